// Reader/writer locks on inclusive ranges of numbers, kept as a list of what is held: overlapping writers
// exclude each other and readers, readers share, and a waiting writer is served before new readers. Any thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <tuple>

namespace Ostrel {

class ObjectLocks {
public:
    // One held range: its owner's thread id and both bounds, inclusive.
    struct LockerKey {
        uint32_t threadId = 0xFFFFFFFF;
        uint32_t first = 0xFFFFFFFF;
        uint32_t last = 0xFFFFFFFF;

        LockerKey() = default;
        LockerKey(uint32_t threadId, uint32_t first, uint32_t last) : threadId(threadId), first(first), last(last) {}
        // By range start first, so that a scan can stop at the first range beginning past the one asked for.
        bool operator<(const LockerKey& o) const {
            return std::tie(first, last, threadId) < std::tie(o.first, o.last, o.threadId);
        }
        bool operator==(const LockerKey&) const = default;
    };

    ObjectLocks() = default;
    ObjectLocks(const ObjectLocks&) = delete;
    ObjectLocks& operator=(const ObjectLocks&) = delete;

    // Block until the range is taken. Not re-entrant: a thread asking for a range it overlaps in a
    // conflicting mode waits for itself.
    void ReadLock(uint32_t first, uint32_t last) { Lock(first, last, false); }
    void WriteLock(uint32_t first, uint32_t last) { Lock(first, last, true); }
    bool TryReadLock(uint32_t first, uint32_t last);
    bool TryWriteLock(uint32_t first, uint32_t last);
    // A range is given back once, by the thread that took it, with the same bounds and mode. A thread's
    // identical read locks count as one.
    void ReadUnlock(uint32_t first, uint32_t last) { Unlock(first, last, false); }
    void WriteUnlock(uint32_t first, uint32_t last) { Unlock(first, last, true); }
    bool IsReadLockedByMe(uint32_t first, uint32_t last);
    bool IsWriteLockedByMe(uint32_t first, uint32_t last);

private:
    static LockerKey MyKey(uint32_t first, uint32_t last);
    static bool Overlaps(const std::set<LockerKey>& keys, const LockerKey& key);
    // Under section_.
    bool TryLock(const LockerKey& key, bool write);
    void Lock(uint32_t first, uint32_t last, bool write);
    void Unlock(uint32_t first, uint32_t last, bool write);

    std::mutex section_;
    std::condition_variable released_;
    std::set<LockerKey> writeLocks_;
    std::set<LockerKey> readLocks_;
    // Writers blocked in WriteLock; a reader that overlaps one waits behind it, so that a stream of
    // readers cannot keep a writer out for ever.
    std::set<LockerKey> waitingWriters_;
};

// Holds one range of an ObjectLocks for a scope. The thread that made it destroys it.
class ObjectLocker {
public:
    ObjectLocker(ObjectLocks& locks, uint32_t id, bool write) : ObjectLocker(locks, id, id, write) {}
    ObjectLocker(ObjectLocks& locks, uint32_t first, uint32_t last, bool write);
    ~ObjectLocker();
    ObjectLocker(const ObjectLocker&) = delete;
    ObjectLocker& operator=(const ObjectLocker&) = delete;

private:
    ObjectLocks& locks_;
    uint32_t first_;
    uint32_t last_;
    bool write_;
};

}  // namespace Ostrel
