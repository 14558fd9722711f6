// The reader/writer lock that each configuration record owns. Copying a record gives the copy a lock
// of its own and compares equal, so the records can keep default copies and comparisons. Any thread.
#pragma once

#include "core/ReadWriteSemaphore.h"

namespace Ostrel {

class SarvaneConfigLock {
public:
    SarvaneConfigLock() = default;
    SarvaneConfigLock(const SarvaneConfigLock&) {}
    SarvaneConfigLock& operator=(const SarvaneConfigLock&) { return *this; }
    bool operator==(const SarvaneConfigLock&) const { return true; }

    void ReadLock() const { semaphore_.ReadLock(); }
    void ReadUnlock() const { semaphore_.ReadUnlock(); }
    void WriteLock() const { semaphore_.WriteLock(); }
    void WriteUnlock() const { semaphore_.WriteUnlock(); }

private:
    mutable VantuThread::ReadWriteSemaphore semaphore_;
};

// Holds a record's read or write lock for one scope; works with any record that has the four calls.
template <class Record>
class SarvaneConfigReadLock {
public:
    explicit SarvaneConfigReadLock(const Record& r) : r_(r) { r_.ReadLock(); }
    ~SarvaneConfigReadLock() { r_.ReadUnlock(); }
    SarvaneConfigReadLock(const SarvaneConfigReadLock&) = delete;
    SarvaneConfigReadLock& operator=(const SarvaneConfigReadLock&) = delete;

private:
    const Record& r_;
};

template <class Record>
class SarvaneConfigWriteLock {
public:
    explicit SarvaneConfigWriteLock(const Record& r) : r_(r) { r_.WriteLock(); }
    ~SarvaneConfigWriteLock() { r_.WriteUnlock(); }
    SarvaneConfigWriteLock(const SarvaneConfigWriteLock&) = delete;
    SarvaneConfigWriteLock& operator=(const SarvaneConfigWriteLock&) = delete;

private:
    const Record& r_;
};

}  // namespace Ostrel
