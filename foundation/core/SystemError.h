// Failures of operating-system calls, raised as exceptions that carry the error number.
// Any thread.
#pragma once

#include <cerrno>

#include "core/Exception.h"

namespace VantuThread {

VANTU_DECLARE_EXCEPTION(SystemException, Vantu::Exception);
// A thread object used against its rules, such as a second Run.
VANTU_DECLARE_EXCEPTION(ThreadException, Vantu::Exception);

// Raises `error` (by default the thread's last error, errno) as a SystemException whose message
// has the number and the system's description as parameters.
[[noreturn]] void ThrowLastError(int error = errno);

}  // namespace VantuThread
