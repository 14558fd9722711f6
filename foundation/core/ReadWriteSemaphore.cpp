#include "core/ReadWriteSemaphore.h"

namespace VantuThread {

bool ReadWriteSemaphore::TryReadLock(std::thread::id me) {
    if (writeCount_ != 0 && writer_ != me) return false;
    ++readCounts_[me];
    return true;
}

bool ReadWriteSemaphore::TryWriteLock(std::thread::id me) {
    if (writeCount_ != 0) {
        if (writer_ != me) return false;
    } else if (!readCounts_.empty()) {
        return false;
    }
    writer_ = me;
    ++writeCount_;
    return true;
}

void ReadWriteSemaphore::ReadLock() {
    const auto me = std::this_thread::get_id();
    for (;;) {
        {
            CriticalSectionLock lock(section_);
            if (TryReadLock(me)) return;
            released_.Reset();
        }
        released_.Wait();
    }
}

void ReadWriteSemaphore::WriteLock() {
    const auto me = std::this_thread::get_id();
    for (;;) {
        {
            CriticalSectionLock lock(section_);
            if (TryWriteLock(me)) return;
            released_.Reset();
        }
        released_.Wait();
    }
}

void ReadWriteSemaphore::ReadUnlock() {
    CriticalSectionLock lock(section_);
    auto it = readCounts_.find(std::this_thread::get_id());
    if (it == readCounts_.end()) return;
    if (--it->second == 0) readCounts_.erase(it);
    if (readCounts_.empty()) released_.Post();
}

void ReadWriteSemaphore::WriteUnlock() {
    CriticalSectionLock lock(section_);
    if (writeCount_ == 0 || writer_ != std::this_thread::get_id()) return;
    if (--writeCount_ == 0) {
        writer_ = std::thread::id();
        released_.Post();
    }
}

}  // namespace VantuThread
