#include "core/EventSemaphore.h"

#include <chrono>

namespace VantuThread {

EventSemaphore::EventSemaphore(bool manualReset, bool initiallySet) : manualReset_(manualReset), set_(initiallySet) {}

void EventSemaphore::Post() {
    std::lock_guard guard(mutex_);
    set_ = true;
    // An auto-reset event lets one waiter through; waking all would only make the others wait again.
    if (manualReset_)
        changed_.notify_all();
    else
        changed_.notify_one();
}

void EventSemaphore::Reset() {
    std::lock_guard guard(mutex_);
    set_ = false;
}

WaitResult EventSemaphore::Wait(uint32_t ms) {
    std::unique_lock guard(mutex_);
    auto isSet = [this] { return set_; };
    if (ms == kInfinite)
        changed_.wait(guard, isSet);
    else if (!changed_.wait_for(guard, std::chrono::milliseconds(ms), isSet))
        return WaitResult::TimedOut;
    if (!manualReset_) set_ = false;
    return WaitResult::Signalled;
}

}  // namespace VantuThread
