// Atomic counters shared between threads. Any thread.
#pragma once

#include <atomic>
#include <cstdint>

namespace Vantu {

class InterlockedCounter {
public:
    explicit InterlockedCounter(int32_t value = 0) : value_(value) {}
    InterlockedCounter(const InterlockedCounter&) = delete;
    InterlockedCounter& operator=(const InterlockedCounter&) = delete;

    // Both answer the new value.
    int32_t operator++() { return value_.fetch_add(1, std::memory_order_acq_rel) + 1; }
    int32_t operator--() { return value_.fetch_sub(1, std::memory_order_acq_rel) - 1; }
    int32_t Value() const { return value_.load(std::memory_order_acquire); }

private:
    std::atomic<int32_t> value_;
};

}  // namespace Vantu

namespace VantuThread {

// Adds `value` to `*target` atomically and answers the old value.
inline int32_t VantuInterlockedExchangeAdd(volatile int32_t* target, int32_t value) {
    return __atomic_fetch_add(target, value, __ATOMIC_SEQ_CST);
}

}  // namespace VantuThread
