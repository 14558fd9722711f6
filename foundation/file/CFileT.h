// An unbuffered file whose position and size live in the object, so Tell, Size and EndOfFile cost no
// system call. T is the width of positions (uint32_t or uint64_t); a position past its range is refused.
// One thread at a time per object; LockingCFileT gives the callers the section that makes sharing safe.
#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>

#include "file/CFileBase.h"
#include "file/FileHandle.h"
#include "file/FileSystem.h"

namespace VantuFile {

template <class T>
class CFileT : public CFileBase {
public:
    static constexpr uint64_t kLimit = std::numeric_limits<T>::max();

    explicit CFileT(PathT<char> path, int accessHint = 0, bool osCached = true, bool sparse = false)
        : CFileBase(std::move(path)), accessHint_(accessHint), osCached_(osCached), sparse_(sparse) {}
    ~CFileT() override { handle_.Close(); }

    virtual void Write(const void* buffer, size_t elementSize, size_t count) {
        uint64_t end;
        if (Wraps(position_, uint64_t(elementSize) * count, end)) Throw(kActionWrite, EFBIG);
        Reach(end);
        if (int error = handle_.WriteAt(position_, buffer, end - position_)) Throw(kActionWrite, error);
        position_ = T(end);
        size_ = std::max(size_, position_);
    }

    // Returns the bytes read; with `exact` a short read raises action 7.
    virtual size_t Read(void* buffer, size_t elementSize, size_t count, bool exact) {
        size_t done = ReadAt(position_, buffer, elementSize * count, exact);
        position_ = T(position_ + done);
        return done;
    }

    // Reads at `offset` without moving the position: readers that share the object use this.
    size_t ReadAt(T offset, void* buffer, size_t bytes, bool exact) {
        uint64_t end;
        if (Wraps(offset, bytes, end)) Throw(kActionRead, EFBIG);
        size_t wanted = Readable(offset, bytes), done = 0;
        if (int error = handle_.ReadAt(offset, buffer, wanted, done)) Throw(kActionRead, error);
        if (exact && done < bytes) Throw(kActionRead, ENODATA);
        return done;
    }

    // Replaces a handle already held. Afterwards the position is 0 and the size the file's.
    virtual void Open(int mode) {
        auto handleMode = static_cast<FileHandle::Mode>(mode);
        if (int error = handle_.Open(Path(), handleMode, accessHint_, osCached_))
            Throw(mode == kModeRead ? kActionOpenRead : kActionOpenWrite, error);
        // Sparse files are a request that this platform serves by doing nothing.
        sparse_ = false;
        writable_ = mode != kModeRead;
        uint64_t physical = 0;
        if (int error = handle_.PhysicalSize(physical)) Throw(kActionAttributes, error);
        if (physical > kLimit) Throw(kActionAttributes, EFBIG);
        position_ = 0;
        size_ = T(physical);
    }

    virtual void Close() { handle_.Close(); }

    // Closes, then removes the file and makes the removal durable; a failure raises action 3.
    virtual void Delete() {
        Close();
        DeleteDurably(Path());
    }

    T Tell() const { return position_; }
    bool EndOfFile() const { return position_ >= size_; }
    T Size() const { return size_; }
    bool IsOpen() const { return handle_.IsOpen(); }
    bool IsWritable() const { return writable_; }

    virtual T Seek(T offset, int origin = kBegin, int direction = kForward) {
        uint64_t target = 0;
        bool back = direction == kBackward;
        if (origin == kBegin) {
            if (back) ThrowSeekOutOfRange(offset);
            target = offset;
        } else {
            uint64_t base = origin == kCurrent ? position_ : size_;
            if (back ? offset > base : Wraps(base, offset, target) || !MayPassSize(origin, offset))
                ThrowSeekOutOfRange(offset);
            if (back) target = base - offset;
        }
        Reach(target);
        position_ = T(target);
        size_ = std::max(size_, position_);
        return position_;
    }

    virtual void SetSize(T newSize, bool force) {
        if (newSize == size_ && !force) return;
        if (int error = handle_.Resize(newSize)) Throw(kActionSeek, error);
        position_ = size_ = newSize;
        Resized();
    }

    // Pushes what was written to stable storage.
    virtual void Flush() {
        if (!writable_) return;
        if (int error = handle_.Sync()) Throw(kActionWrite, error);
    }

    // Moves the end of the file `bytes` beyond the current end, and the position with it.
    virtual void Extend(T bytes) {
        uint64_t end;
        if (Wraps(size_, bytes, end)) ThrowSeekOutOfRange(bytes);
        if (int error = handle_.Resize(end)) Throw(kActionSeek, error);
        position_ = size_ = T(end);
        Resized();
    }

protected:
    // True when `a + b` doesn't fit the width; `sum` receives it otherwise.
    static bool Wraps(uint64_t a, uint64_t b, uint64_t& sum) {
        return __builtin_add_overflow(a, b, &sum) || sum > kLimit;
    }

    // The growing file's rules: where the physical file must reach, how far a read may go, what a seek
    // from the current position may pass, and what follows a resize.
    virtual void Reach(uint64_t) {}
    virtual size_t Readable(uint64_t, size_t bytes) const { return bytes; }
    virtual bool MayPassSize(int, uint64_t) const { return true; }
    virtual void Resized() {}

    FileHandle handle_;
    int accessHint_;
    bool osCached_;
    bool writable_ = false;
    bool sparse_;
    T position_ = 0;
    T size_ = 0;
};

}  // namespace VantuFile
