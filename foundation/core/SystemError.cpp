#include "core/SystemError.h"

#include <cstring>

namespace VantuThread {

void ThrowLastError(int error) {
    // Registered at each use: the message table may have been freed and loaded again since.
    VantuMessages::Register(kSystemMessageDomain, kSystemErrorMessage, u"System error %1: %2");
    char buffer[256];
    const char* text = strerror_r(error, buffer, sizeof buffer);
    throw SystemException(VANTU_MESSAGE(kSystemMessageDomain, kSystemErrorMessage, error, std::string(text)));
}

}  // namespace VantuThread
