// A file whose physical size grows in steps of `growStep` ahead of its logical size, reserving the space on
// the device so that a full disk shows at once; Flush cuts the slack off again, before it syncs, so the cut
// survives a crash. One thread at a time per object (LockingCFileGrowT gives callers a section).
#pragma once

#include "file/CFileT.h"

namespace VantuFile {

template <class T>
class CFileGrowT : public CFileT<T> {
    using Base = CFileT<T>;

public:
    CFileGrowT(PathT<char> path, T growStep, int accessHint = 0, bool osCached = true, bool sparse = false)
        : Base(std::move(path), accessHint, osCached, sparse), growStep_(growStep ? growStep : 1) {}
    ~CFileGrowT() override {
        // A destructor can't report: whoever needs the slack gone and the data durable calls Close.
        this->handle_.Close();
    }

    void Open(int mode) override {
        Base::Open(mode);
        allocated_ = this->size_;
    }

    void Close() override {
        if (this->IsOpen()) Flush();
        Base::Close();
    }

    void Flush() override {
        if (!this->writable_) return;
        if (allocated_ != this->size_)
            if (int error = this->handle_.Resize(this->size_)) this->Throw(kActionSeek, error);
        allocated_ = this->size_;
        Base::Flush();
    }

    T Allocated() const { return allocated_; }
    T GrowStep() const { return growStep_; }

protected:
    void Reach(uint64_t target) override {
        if (target <= allocated_) return;
        if (!this->writable_) this->Throw(kActionSeek, EBADF);
        uint64_t grown = Grown(target);
        if (int error = this->handle_.Allocate(grown)) this->Throw(kActionSeek, error);
        allocated_ = T(grown);
    }

    size_t Readable(uint64_t offset, size_t bytes) const override {
        return offset >= this->size_ ? 0 : size_t(std::min<uint64_t>(bytes, this->size_ - offset));
    }

    bool MayPassSize(int origin, uint64_t offset) const override {
        return origin != CFileBase::kCurrent || offset <= uint64_t(this->size_ - this->position_);
    }

    void Resized() override { allocated_ = this->size_; }

private:
    // The next physical size that holds `target`: whole steps past the current allocation, on a step boundary.
    uint64_t Grown(uint64_t target) const {
        uint64_t step = growStep_, grown;
        uint64_t steps = (target - allocated_) / step + 1;
        if (__builtin_mul_overflow(steps, step, &grown) || __builtin_add_overflow(grown, allocated_, &grown))
            return target;
        uint64_t rounded = (grown + step - 1) / step * step;
        if (rounded >= grown) grown = rounded;
        return grown < target || grown > Base::kLimit ? target : grown;
    }

    T growStep_;
    T allocated_ = 0;
};

}  // namespace VantuFile
