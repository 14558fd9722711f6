// The numbered texts of the foundation core's own failures (domain "VANTUCORE"), compiled in and
// registered on first use. Any thread.
#pragma once

#include <cstdint>

#include "core/MessageInfo.h"

namespace Vantu {

enum CoreMessage : int32_t {
    kSystemErrorMessage = 1,     // "System error %1: %2."
    kInvalidDateMessage = 2,     // "Invalid date: %1."
    kThreadStartedMessage = 3,   // "The thread %1 is already started."
};

// The domain name, once the texts are in the message service; every core message is built through it.
const char* CoreMessageDomain();

}  // namespace Vantu

#define VANTU_CORE_MESSAGE(id, ...) VANTU_MESSAGE(::Vantu::CoreMessageDomain(), id __VA_OPT__(, ) __VA_ARGS__)
