#include "file/CFileBase.h"

namespace VantuFile {

void CFileBase::ThrowSeekOutOfRange(uint64_t offset) const {
    RegisterFileMessages();
    throw SeekOutOfRangeException(VANTU_MESSAGE(kFileMessageDomain, kMessageSeekOutOfRange, path_, offset));
}

}  // namespace VantuFile
