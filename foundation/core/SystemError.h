// Failures of operating-system calls, raised as exceptions that carry the error number.
// Any thread.
#pragma once

#include <cerrno>

#include "core/Exception.h"

namespace VantuThread {

// Domain and id of the message "System error %1: %2" (error number, its description).
inline constexpr const char* kSystemMessageDomain = "VANTU";
inline constexpr int kSystemErrorMessage = 1;

VANTU_DECLARE_EXCEPTION(SystemException, Vantu::Exception);

// Raises `error` (by default the thread's last error, errno) as a SystemException.
[[noreturn]] void ThrowLastError(int error = errno);

}  // namespace VantuThread
