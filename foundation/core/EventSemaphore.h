// An event that threads wait on: manual-reset events stay set until Reset, auto-reset ones
// release one waiter per Post. Any thread may Post, Reset and Wait.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace VantuThread {

// Abandoned never happens here (no owner can die holding an event); callers still accept it.
enum class WaitResult { Signalled, Abandoned, TimedOut };

class EventSemaphore {
public:
    static constexpr uint32_t kInfinite = 0xFFFFFFFF;

    EventSemaphore(bool manualReset, bool initiallySet);
    EventSemaphore(const EventSemaphore&) = delete;
    EventSemaphore& operator=(const EventSemaphore&) = delete;

    void Post();
    void Reset();
    // Waits at most `ms` milliseconds (kInfinite: no limit). An auto-reset event is cleared by the
    // waiter it releases.
    WaitResult Wait(uint32_t ms = kInfinite);

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    const bool manualReset_;
    bool set_;
};

}  // namespace VantuThread
