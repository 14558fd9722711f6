// The abstract byte stream under every file format: a put side, a get side, and a pending block that is
// delivered before the source's own bytes. One thread at a time per buffer (the holder of its file's lock).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "file/BinaryStreamException.h"

namespace Vantu {

// Stream origins; the file layer numbers its own origins differently and the file buffers translate.
enum SeekOrigin : int { kSeekBegin = 0, kSeekEnd = 1, kSeekCurrent = 2 };
enum SeekDirection : int { kSeekForward = 0, kSeekBackward = 1 };

class BaseBinaryStreamBuf {
public:
    enum StreamMode : uint8_t { kModeBoth = 0, kModeOutput = 2, kModeInput = 3 };

    // Rounds of the default copies, through the stack.
    static constexpr size_t kCopyRound = 32768;

    explicit BaseBinaryStreamBuf(StreamMode mode = kModeBoth) : mode_(mode) {}
    BaseBinaryStreamBuf(const BaseBinaryStreamBuf&) = delete;
    BaseBinaryStreamBuf& operator=(const BaseBinaryStreamBuf&) = delete;
    virtual ~BaseBinaryStreamBuf() = default;

    // Put and Get return the bytes moved; fewer than asked is a normal outcome (end of the data).
    size_t Put(const void* data, size_t n) { return vPut(data, n); }
    size_t Get(void* data, size_t n);
    void PutExact(const void* data, size_t n);
    void GetExact(void* data, size_t n);

    // Reads up to `count` characters into `text` (replacing it); returns the characters read.
    size_t Copy(std::u16string& text, size_t count);
    size_t Copy(std::string& text, size_t count);
    // Pushes up to n bytes of this stream to `target`; returns the bytes moved.
    size_t CopyTo(BaseBinaryStreamBuf& target, size_t n);
    // Pulls up to n bytes of `source` into this stream; returns the bytes moved.
    size_t CopyFrom(BaseBinaryStreamBuf& source, size_t n) { return source.CopyTo(*this, n); }

    void Flush() { vFlush(); }
    void Clear();
    void ClearMemory();
    void ClearEnd() { vClearEnd(); }
    bool EndOfFile() { return PendingSize() == 0 && vEndOfFile(); }

    // Bytes handed back to this stream, typically those a decompressor read past the end of its unit:
    // the next reads deliver them first.
    void SetPending(const void* data, size_t n);
    size_t PendingSize() const { return pending_.size() - pendingRead_; }

    StreamMode Mode() const { return mode_; }

protected:
    virtual size_t vPut(const void* data, size_t n) = 0;
    virtual size_t vGet(void* data, size_t n) = 0;
    virtual void vFlush() {}
    virtual void vClear() {}
    virtual void vClearMemory() {}
    virtual void vClearEnd() {}
    virtual bool vEndOfFile() = 0;
    virtual size_t vCopy(std::u16string& text, size_t count);
    virtual size_t vCopy(std::string& text, size_t count);
    virtual size_t vCopy(BaseBinaryStreamBuf& target, size_t n);

    void DropPending();
    // Skips up to n pending bytes; returns how many were skipped.
    size_t SkipPending(size_t n);

private:
    size_t TakePending(void* data, size_t n);

    std::vector<uint8_t> pending_;
    size_t pendingRead_ = 0;
    StreamMode mode_;
};

// The positioned side of a stream; T is the width of positions (unsigned int or uint64_t).
template <class T>
class BinaryStreamBufT : public BaseBinaryStreamBuf {
public:
    using Position = T;
    using BaseBinaryStreamBuf::BaseBinaryStreamBuf;

    T TellP() { return vTellP(); }
    T SeekP(T offset, SeekOrigin origin = kSeekBegin, SeekDirection direction = kSeekForward) {
        return vSeekP(offset, origin, direction);
    }
    // The read position that the next Get starts at: pending bytes not yet delivered count before it.
    T TellG() { return vTellG() - T(PendingSize()); }
    T SeekG(T offset, SeekOrigin origin = kSeekBegin, SeekDirection direction = kSeekForward);
    T Size() { return vSize(); }

protected:
    virtual T vTellP() = 0;
    virtual T vSeekP(T offset, SeekOrigin origin, SeekDirection direction) = 0;
    virtual T vTellG() = 0;
    virtual T vSeekG(T offset, SeekOrigin origin, SeekDirection direction) = 0;
    virtual T vSize() = 0;
};

// A seek relative to the current place must count the pending bytes, which lie before the source's place.
template <class T>
T BinaryStreamBufT<T>::SeekG(T offset, SeekOrigin origin, SeekDirection direction) {
    const T pending = T(PendingSize());
    if (origin != kSeekCurrent || pending == 0) {
        DropPending();
        return vSeekG(offset, origin, direction);
    }
    if (direction == kSeekForward && offset <= pending) {
        SkipPending(offset);
        return TellG();
    }
    DropPending();
    if (direction == kSeekForward) return vSeekG(offset - pending, kSeekCurrent, kSeekForward);
    return vSeekG(offset + pending, kSeekCurrent, kSeekBackward);
}

// Where a seek of a region of `size` bytes lands, or an exception when it leaves [0, limit].
uint64_t SeekTarget(uint64_t current, uint64_t size, uint64_t limit, uint64_t offset, SeekOrigin origin,
                    SeekDirection direction);

}  // namespace Vantu
