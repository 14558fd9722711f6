#include "TransactionTermOperation.h"

#include <cstring>

namespace Ostrel {

TransactionTermOperation::TransactionTermOperation(uint32_t documentId, uint32_t positionCount, uint16_t termFlags)
    : head_((documentId & kDocumentIdMask) | ((positionCount < kPositionCountLimit ? positionCount : 0) << 25) |
            (uint32_t(termFlags & 0x0001) << 30) | (uint32_t(termFlags & 0x0020) << 26)),
      flagsLow_(uint8_t(((termFlags & 0x001E) >> 1) | ((termFlags & 0x03C0) >> 2))),
      flagsHigh_(uint8_t((termFlags >> 10) & 0x0F)) {}

uint16_t TransactionTermOperation::TermFlags() const {
    return uint16_t(((head_ >> 30) & 0x1) | ((head_ >> 26) & 0x20) | ((flagsLow_ & 0x0F) << 1) |
                    ((flagsLow_ & 0xF0) << 2) | ((flagsHigh_ & 0x0F) << 10));
}

void TransactionTermOperation::ToFile(uint8_t out[kFileSize]) const {
    // The platform is little-endian, and so is the file.
    std::memcpy(out, &head_, 4);
    out[4] = flagsLow_;
    out[5] = flagsHigh_;
    std::memcpy(out + 6, &dataLength_, 2);
}

TransactionTermOperation TransactionTermOperation::FromFile(const uint8_t in[kFileSize]) {
    TransactionTermOperation operation;
    std::memcpy(&operation.head_, in, 4);
    operation.flagsLow_ = in[4];
    operation.flagsHigh_ = in[5];
    std::memcpy(&operation.dataLength_, in + 6, 2);
    return operation;
}

}  // namespace Ostrel
