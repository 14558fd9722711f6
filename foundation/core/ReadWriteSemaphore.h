// Many readers or one writer. The writer may take the read and the write lock again any number of
// times, and a reader may take the read lock again; nobody upgrades a read lock. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <thread>

#include "core/CriticalSection.h"
#include "core/EventSemaphore.h"

namespace VantuThread {

class ReadWriteSemaphore {
public:
    ReadWriteSemaphore() = default;
    ReadWriteSemaphore(const ReadWriteSemaphore&) = delete;
    ReadWriteSemaphore& operator=(const ReadWriteSemaphore&) = delete;

    void ReadLock();
    void ReadUnlock();
    void WriteLock();
    void WriteUnlock();

private:
    // Under section_; true when the lock was taken.
    bool TryReadLock(std::thread::id me);
    bool TryWriteLock(std::thread::id me);

    CriticalSection section_;
    // Set whenever the lock may have become free; a thread that must wait clears it under section_
    // before it waits, and whoever frees the lock sets it again, so no release is missed.
    EventSemaphore released_{true, true};
    std::map<std::thread::id, uint32_t> readCounts_;
    uint32_t writeCount_ = 0;
    std::thread::id writer_;  // no thread while writeCount_ is 0
};

// Scoped holders.
class ReadLocker {
public:
    explicit ReadLocker(ReadWriteSemaphore& s) : s_(s) { s_.ReadLock(); }
    ~ReadLocker() { s_.ReadUnlock(); }
    ReadLocker(const ReadLocker&) = delete;
    ReadLocker& operator=(const ReadLocker&) = delete;

private:
    ReadWriteSemaphore& s_;
};

class WriteLocker {
public:
    explicit WriteLocker(ReadWriteSemaphore& s) : s_(s) { s_.WriteLock(); }
    ~WriteLocker() { s_.WriteUnlock(); }
    WriteLocker(const WriteLocker&) = delete;
    WriteLocker& operator=(const WriteLocker&) = delete;

private:
    ReadWriteSemaphore& s_;
};

}  // namespace VantuThread
