#include "ObjectLocks.h"

#include "core/Thread.h"

namespace Ostrel {

ObjectLocks::LockerKey ObjectLocks::MyKey(uint32_t first, uint32_t last) {
    return LockerKey(uint32_t(VantuThread::ThisThread::Id()), first, last);
}

// The keys are ordered by range start, so the scan ends at the first range that starts past key's end.
bool ObjectLocks::Overlaps(const std::set<LockerKey>& keys, const LockerKey& key) {
    for (const LockerKey& held : keys) {
        if (held.first > key.last) return false;
        if (key.first <= held.last) return true;
    }
    return false;
}

bool ObjectLocks::TryLock(const LockerKey& key, bool write) {
    if (Overlaps(writeLocks_, key)) return false;
    if (write ? Overlaps(readLocks_, key) : Overlaps(waitingWriters_, key)) return false;
    // A thread's second identical read lock is the same key, so one unlock frees both.
    (write ? writeLocks_ : readLocks_).insert(key);
    return true;
}

bool ObjectLocks::TryReadLock(uint32_t first, uint32_t last) {
    std::lock_guard<std::mutex> guard(section_);
    return TryLock(MyKey(first, last), false);
}

bool ObjectLocks::TryWriteLock(uint32_t first, uint32_t last) {
    std::lock_guard<std::mutex> guard(section_);
    return TryLock(MyKey(first, last), true);
}

void ObjectLocks::Lock(uint32_t first, uint32_t last, bool write) {
    const LockerKey key = MyKey(first, last);
    std::unique_lock<std::mutex> guard(section_);
    if (TryLock(key, write)) return;
    if (!write) {
        released_.wait(guard, [&] { return TryLock(key, false); });
        return;
    }
    const auto waiting = waitingWriters_.insert(key).first;
    released_.wait(guard, [&] { return TryLock(key, true); });
    waitingWriters_.erase(waiting);
    // Readers held back by this writer may now conflict with nothing else.
    released_.notify_all();
}

void ObjectLocks::Unlock(uint32_t first, uint32_t last, bool write) {
    {
        std::lock_guard<std::mutex> guard(section_);
        std::set<LockerKey>& keys = write ? writeLocks_ : readLocks_;
        keys.erase(MyKey(first, last));
    }
    released_.notify_all();
}

bool ObjectLocks::IsReadLockedByMe(uint32_t first, uint32_t last) {
    std::lock_guard<std::mutex> guard(section_);
    return readLocks_.count(MyKey(first, last)) != 0;
}

bool ObjectLocks::IsWriteLockedByMe(uint32_t first, uint32_t last) {
    std::lock_guard<std::mutex> guard(section_);
    return writeLocks_.count(MyKey(first, last)) != 0;
}

ObjectLocker::ObjectLocker(ObjectLocks& locks, uint32_t first, uint32_t last, bool write)
    : locks_(locks), first_(first), last_(last), write_(write) {
    if (write_) {
        locks_.WriteLock(first_, last_);
    } else {
        locks_.ReadLock(first_, last_);
    }
}

ObjectLocker::~ObjectLocker() {
    if (write_) {
        locks_.WriteUnlock(first_, last_);
    } else {
        locks_.ReadUnlock(first_, last_);
    }
}

}  // namespace Ostrel
