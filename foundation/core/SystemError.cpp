#include "core/SystemError.h"

#include <cstring>

#include "core/CoreMessages.h"

namespace VantuThread {

void ThrowLastError(int error) {
    char buffer[256];
    const char* text = strerror_r(error, buffer, sizeof buffer);
    throw SystemException(VANTU_CORE_MESSAGE(Vantu::kSystemErrorMessage, error, std::string(text)));
}

}  // namespace VantuThread
