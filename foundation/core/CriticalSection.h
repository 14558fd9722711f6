// Mutual exclusion that its owner may enter again; TryEnter never blocks.
// Any thread; a thread leaves as many times as it entered.
#pragma once

#include <mutex>

namespace VantuThread {

class CriticalSection {
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void Enter() { mutex_.lock(); }
    bool TryEnter() { return mutex_.try_lock(); }
    void Leave() { mutex_.unlock(); }

    // Lockable names, so that std::unique_lock and std::condition_variable_any accept a section.
    void lock() { Enter(); }
    bool try_lock() { return TryEnter(); }
    void unlock() { Leave(); }

private:
    std::recursive_mutex mutex_;
};

// Holds a section for one scope.
class CriticalSectionLock {
public:
    explicit CriticalSectionLock(CriticalSection& section) : section_(section) { section_.Enter(); }
    ~CriticalSectionLock() { section_.Leave(); }
    CriticalSectionLock(const CriticalSectionLock&) = delete;
    CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

private:
    CriticalSection& section_;
};

}  // namespace VantuThread
