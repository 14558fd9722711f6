#include "DocIDWeightStruct.h"

namespace Ostrel {

DocIDWeightStruct::DocIDWeightStruct(uint32_t documentId, uint32_t positionCount, uint16_t termFlags)
    : head_((documentId & kDocumentIdMask) | ((positionCount < kPositionCountLimit ? positionCount : 0) << 25) |
            (uint32_t(termFlags & 0x0001) << 30) | (uint32_t(termFlags & 0x0020) << 26)),
      flagsLow_(uint8_t(((termFlags & 0x001E) >> 1) | ((termFlags & 0x03C0) >> 2))),
      flagsHigh_(uint8_t((termFlags >> 10) & 0x0F)) {}

uint16_t DocIDWeightStruct::TermFlags() const {
    return uint16_t(((head_ >> 30) & 0x1) | ((head_ >> 26) & 0x20) | ((flagsLow_ & 0x0F) << 1) |
                    ((flagsLow_ & 0xF0) << 2) | ((flagsHigh_ & 0x0F) << 10));
}

}  // namespace Ostrel
