// Stream buffers over a file object: OCFileBufferT writes with an optional write-behind stage,
// ICFileBufferT reads with an optional read-ahead window. Used by the thread that holds the file's lock.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "file/BinaryStreamBuf.h"

namespace VantuFile {

template <class T>
class CFileT;

// The file layer numbers its origins begin 0, current 1, end 2; the streams begin 0, end 1, current 2.
constexpr int FileOrigin(Vantu::SeekOrigin origin) {
    return origin == Vantu::kSeekEnd ? 2 : origin == Vantu::kSeekCurrent ? 1 : 0;
}

template <class T, class File = CFileT<T>>
class OCFileBufferT : public Vantu::BinaryStreamBufT<T> {
public:
    // With a threshold, writes smaller than it gather in memory until it is full.
    explicit OCFileBufferT(File& file, size_t threshold = 0)
        : Vantu::BinaryStreamBufT<T>(Vantu::BaseBinaryStreamBuf::kModeOutput), file_(&file), threshold_(threshold) {
        memory_.reserve(threshold);
    }
    ~OCFileBufferT() override;

    File& GetFile() { return *file_; }

protected:
    size_t vPut(const void* data, size_t n) override;
    size_t vGet(void*, size_t) override { Vantu::ThrowNotImplemented("OCFileBufferT<T>::Get : Not implemented!"); }
    T vTellP() override { return file_->Tell() + T(memory_.size()); }
    T vSeekP(T offset, Vantu::SeekOrigin origin, Vantu::SeekDirection direction) override;
    T vTellG() override { Vantu::ThrowNotImplemented("OCFileBufferT<T>::TellG : Not implemented!"); }
    T vSeekG(T, Vantu::SeekOrigin, Vantu::SeekDirection) override {
        Vantu::ThrowNotImplemented("OCFileBufferT<T>::SeekG : Not implemented!");
    }
    T vSize() override { return std::max(file_->Size(), vTellP()); }
    bool vEndOfFile() override { return file_->EndOfFile(); }
    void vFlush() override {
        Drain();
        file_->Flush();
    }
    // Bytes not yet written are dropped.
    void vClear() override { memory_.clear(); }
    void vClearMemory() override { std::vector<uint8_t>().swap(memory_); }
    void vClearEnd() override { Vantu::ThrowNotImplemented("OCFileBufferT<T>::ClearEnd : Not implemented!"); }

private:
    void Drain();

    File* file_;
    size_t threshold_;
    std::vector<uint8_t> memory_;
};

template <class T, class File>
OCFileBufferT<T, File>::~OCFileBufferT() {
    // A destructor can't report a failed write; a caller that must know flushes first.
    try {
        Drain();
    } catch (...) {
    }
}

template <class T, class File>
size_t OCFileBufferT<T, File>::vPut(const void* data, size_t n) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    if (threshold_ == 0 || n >= threshold_) {
        Drain();
        file_->Write(bytes, 1, n);
        return n;
    }
    const size_t fits = std::min(n, threshold_ - memory_.size());
    memory_.insert(memory_.end(), bytes, bytes + fits);
    if (fits < n) {
        Drain();
        memory_.insert(memory_.end(), bytes + fits, bytes + n);
    }
    return n;
}

template <class T, class File>
T OCFileBufferT<T, File>::vSeekP(T offset, Vantu::SeekOrigin origin, Vantu::SeekDirection direction) {
    // Once drained, the file stands where the stream does, and its own range rules apply.
    Drain();
    file_->Seek(offset, FileOrigin(origin), direction);
    return vTellP();
}

template <class T, class File>
void OCFileBufferT<T, File>::Drain() {
    for (size_t done = 0; done < memory_.size(); done += Vantu::BaseBinaryStreamBuf::kCopyRound) {
        file_->Write(memory_.data() + done, 1, std::min(Vantu::BaseBinaryStreamBuf::kCopyRound, memory_.size() - done));
    }
    memory_.clear();
}

template <class T, class File = CFileT<T>>
class ICFileBufferT : public Vantu::BinaryStreamBufT<T> {
public:
    // With a read-ahead, reads smaller than it are served from a window of that many bytes.
    explicit ICFileBufferT(File& file, size_t readAhead = 0)
        : Vantu::BinaryStreamBufT<T>(Vantu::BaseBinaryStreamBuf::kModeInput), file_(&file), readAhead_(readAhead) {}

    File& GetFile() { return *file_; }

protected:
    size_t vPut(const void*, size_t) override {
        Vantu::ThrowNotImplemented("ICFileBufferT<T>::Put : Not implemented!");
    }
    size_t vGet(void* data, size_t n) override;
    T vTellP() override { Vantu::ThrowNotImplemented("ICFileBuffer::TellP : Not implemented!"); }
    T vSeekP(T, Vantu::SeekOrigin, Vantu::SeekDirection) override {
        Vantu::ThrowNotImplemented("ICFileBufferT<T>::SeekP: Not implemented!");
    }
    T vTellG() override {
        DropMovedWindow();
        return file_->Tell() - T(Buffered());
    }
    T vSeekG(T offset, Vantu::SeekOrigin origin, Vantu::SeekDirection direction) override;
    T vSize() override { return file_->Size(); }
    bool vEndOfFile() override { return Buffered() == 0 && file_->EndOfFile(); }
    void vFlush() override { Vantu::ThrowNotImplemented("ICFileBufferT<T>::Flush: Not implemented!"); }
    void vClear() override { window_.clear(), windowRead_ = 0; }
    void vClearMemory() override {
        std::vector<uint8_t>().swap(window_);
        windowRead_ = 0;
    }
    void vClearEnd() override { Vantu::ThrowNotImplemented("ICFileBufferT<T>::ClearEnd : Not implemented!"); }

private:
    size_t Buffered() const { return window_.size() - windowRead_; }
    // A writer sharing the file object moves its position; the window then no longer ends there and
    // may hold bytes that were overwritten, so it is dropped. A writer that leaves the file exactly at
    // the window's end goes unnoticed: such a caller clears this buffer itself.
    void DropMovedWindow() {
        if (!window_.empty() && file_->Tell() != windowBase_ + T(window_.size())) vClear();
    }

    File* file_;
    size_t readAhead_;
    // Bytes read ahead from the file at windowBase_; the file's position is at the window's end.
    T windowBase_ = 0;
    std::vector<uint8_t> window_;
    size_t windowRead_ = 0;
};

template <class T, class File>
size_t ICFileBufferT<T, File>::vGet(void* data, size_t n) {
    auto* bytes = static_cast<uint8_t*>(data);
    DropMovedWindow();
    if (Buffered() == 0 && n < readAhead_) {
        windowBase_ = file_->Tell();
        window_.resize(readAhead_);
        window_.resize(file_->Read(window_.data(), 1, readAhead_, false));
        windowRead_ = 0;
    }
    const size_t fromWindow = std::min(n, Buffered());
    if (fromWindow > 0) std::memcpy(bytes, window_.data() + windowRead_, fromWindow);
    windowRead_ += fromWindow;
    if (fromWindow == n) return n;
    return fromWindow + file_->Read(bytes + fromWindow, 1, n - fromWindow, false);
}

template <class T, class File>
T ICFileBufferT<T, File>::vSeekG(T offset, Vantu::SeekOrigin origin, Vantu::SeekDirection direction) {
    DropMovedWindow();
    const T here = vTellG();
    const T target = T(Vantu::SeekTarget(here, file_->Size(), T(~T(0)), offset, origin, direction));
    if (!window_.empty() && target >= windowBase_ && target - windowBase_ <= window_.size()) {
        windowRead_ = size_t(target - windowBase_);
        return target;
    }
    vClear();
    file_->Seek(target);
    return target;
}

}  // namespace VantuFile
