// Stream buffers that run bytes through a compressor: OCompressedBufferT writes units to a target
// stream, ICompressedBufferT reads one unit at a time from a source. One thread at a time per buffer.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "file/BinaryStreamBuf.h"
#include "store/BaseCompression.h"

namespace VantuCompression {

// Windows of the data files' compressed buffers.
inline constexpr unsigned int kCompressedWindow = 0x10000;

using Vantu::ThrowNotImplemented;

template <class T>
class OCompressedBufferT : public Vantu::BinaryStreamBufT<T> {
public:
    OCompressedBufferT(Vantu::BinaryStreamBufT<T>& target, BaseCompression* compression,
                       unsigned int window = kCompressedWindow)
        : Vantu::BinaryStreamBufT<T>(Vantu::BaseBinaryStreamBuf::kModeOutput),
          target_(&target), compression_(compression), buffers_(window) {}

    // Ends the current unit: the input window and the compressor's end step go to the target. An
    // unstarted buffer still writes a whole, empty unit. The next Put starts a new unit.
    void Finish();
    // Whether a unit is open: bytes were put since the last Finish.
    bool Pending() const { return started_ || buffers_.inputFill > 0; }
    // Points the buffer at another target; any open unit is dropped.
    void Attach(Vantu::BinaryStreamBufT<T>& target) {
        Reset();
        target_ = &target;
    }
    BaseCompression& Compression() { return *compression_; }

protected:
    size_t vPut(const void* data, size_t n) override;
    size_t vGet(void*, size_t) override { ThrowNotImplemented("OCompressedBufferT<T>::Get : Not implemented!"); }
    // Bytes put into the open unit, before compression.
    T vTellP() override { return T(unitBytes_); }
    T vSeekP(T, Vantu::SeekOrigin, Vantu::SeekDirection) override {
        ThrowNotImplemented("OCompressedBufferT<T>::SeekP : Not implemented!");
    }
    T vTellG() override { ThrowNotImplemented("OCompressedBufferT<T>::TellG : Not implemented!"); }
    T vSeekG(T, Vantu::SeekOrigin, Vantu::SeekDirection) override {
        ThrowNotImplemented("OCompressedBufferT<T>::SeekG : Not implemented!");
    }
    T vSize() override { return T(unitBytes_); }
    // Pushes the input window through the compressor and flushes the target; the unit stays open.
    void vFlush() override {
        CompressWindow();
        target_->Flush();
    }
    void vClear() override { Reset(); }
    void vClearMemory() override { Reset(); }
    void vClearEnd() override { ThrowNotImplemented("OCompressedBufferT<T>::ClearEnd : Not implemented!"); }
    bool vEndOfFile() override { ThrowNotImplemented("OCompressedBufferT<T>::EndOfFile : Not implemented!"); }

private:
    void Start() {
        if (!started_) compression_->CompressInit(buffers_);
        started_ = true;
    }
    void CompressWindow();
    void DrainOutput() {
        target_->PutExact(buffers_.output.data(), buffers_.outputFill);
        buffers_.ResetOutput();
    }
    void Reset() {
        buffers_.ResetInput();
        buffers_.ResetOutput();
        started_ = false;
        unitBytes_ = 0;
    }

    Vantu::BinaryStreamBufT<T>* target_;
    BaseCompression* compression_;
    BaseCompression::BuffersInfo buffers_;
    bool started_ = false;
    uint64_t unitBytes_ = 0;
};

template <class T>
size_t OCompressedBufferT<T>::vPut(const void* data, size_t n) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    size_t done = 0;
    while (done < n) {
        if (buffers_.inputFill == buffers_.Size()) CompressWindow();
        const size_t take = std::min<size_t>(n - done, buffers_.Size() - buffers_.inputFill);
        std::memcpy(buffers_.input.data() + buffers_.inputFill, bytes + done, take);
        buffers_.inputFill += unsigned(take);
        done += take;
    }
    unitBytes_ += n;
    return n;
}

template <class T>
void OCompressedBufferT<T>::CompressWindow() {
    if (buffers_.inputFill == 0) return;
    Start();
    while (buffers_.InputLeft() > 0) {
        compression_->Compress(buffers_);
        DrainOutput();
    }
    buffers_.ResetInput();
}

template <class T>
void OCompressedBufferT<T>::Finish() {
    CompressWindow();
    Start();
    bool done;
    do {
        done = compression_->CompressEnd(buffers_);
        DrainOutput();
    } while (!done);
    Reset();
}

// Reads one compressed unit. Input that the source delivered past the end of the unit is handed back
// to the source's pending block, so that plain bytes behind a unit read on from the source.
template <class T>
class ICompressedBufferT : public Vantu::BinaryStreamBufT<T> {
public:
    ICompressedBufferT(Vantu::BinaryStreamBufT<T>& source, BaseCompression* compression,
                       unsigned int window = kCompressedWindow)
        : Vantu::BinaryStreamBufT<T>(Vantu::BaseBinaryStreamBuf::kModeInput),
          source_(&source), compression_(compression), buffers_(window) {}

    // At most `limit` compressed bytes are taken from the source for the next unit; 0 lifts the limit.
    void SetLimit(T limit) {
        limit_ = limit;
        consumed_ = 0;
    }
    // Points the buffer at another source, ready for a new unit.
    void Attach(Vantu::BinaryStreamBufT<T>& source) {
        Reset();
        source_ = &source;
    }
    bool Finished() const { return finished_; }
    // Compressed bytes taken from the source and kept, and bytes delivered, in this unit.
    uint64_t Consumed() const { return consumed_; }
    uint64_t Produced() const { return produced_; }
    BaseCompression& Compression() { return *compression_; }

protected:
    size_t vPut(const void*, size_t) override { ThrowNotImplemented("ICompressedBufferT<T>::Put : Not implemented!"); }
    size_t vGet(void* data, size_t n) override;
    T vTellP() override { ThrowNotImplemented("ICompressedBufferT<T>::TellP : Not implemented!"); }
    T vSeekP(T, Vantu::SeekOrigin, Vantu::SeekDirection) override {
        ThrowNotImplemented("ICompressedBufferT<T>::SeekP : Not implemented!");
    }
    T vTellG() override { return source_->TellG(); }
    // Only forward from the current place: the bytes are decompressed and dropped.
    T vSeekG(T offset, Vantu::SeekOrigin origin, Vantu::SeekDirection direction) override;
    T vSize() override { return source_->Size(); }
    // Gives up the unit and starts afresh: the next Get begins a new unit. Under a limit, the source
    // skips what is left of it, so that it stands behind the unit even when nothing was read.
    void vClear() override {
        if (limit_ > consumed_) source_->SeekG(T(limit_ - consumed_), Vantu::kSeekCurrent);
        Reset();
    }
    void vClearMemory() override { ThrowNotImplemented("ICompressedBufferT<T>::ClearMemory : Not implemented!"); }
    void vClearEnd() override { ThrowNotImplemented("ICompressedBufferT<T>::ClearEnd : Not implemented!"); }
    bool vEndOfFile() override {
        if (OutputLeft() == 0 && !finished_) Step(false);
        return finished_ && OutputLeft() == 0;
    }

private:
    size_t OutputLeft() const { return buffers_.outputFill - outputRead_; }
    bool Step(bool mustProgress);
    bool Refill(bool mustProgress);
    void Reset() {
        buffers_.ResetInput();
        buffers_.ResetOutput();
        outputRead_ = 0;
        started_ = finished_ = false;
        limit_ = 0;
        consumed_ = produced_ = 0;
    }

    Vantu::BinaryStreamBufT<T>* source_;
    BaseCompression* compression_;
    BaseCompression::BuffersInfo buffers_;
    unsigned int outputRead_ = 0;
    bool started_ = false;
    bool finished_ = false;
    uint64_t limit_ = 0;
    uint64_t consumed_ = 0;
    uint64_t produced_ = 0;
};

template <class T>
size_t ICompressedBufferT<T>::vGet(void* data, size_t n) {
    auto* bytes = static_cast<uint8_t*>(data);
    size_t done = 0;
    while (done < n) {
        if (OutputLeft() == 0) {
            if (finished_) break;
            Step(true);
            continue;
        }
        const size_t take = std::min(n - done, OutputLeft());
        std::memcpy(bytes + done, buffers_.output.data() + outputRead_, take);
        outputRead_ += unsigned(take);
        done += take;
    }
    produced_ += done;
    // A request that took the last byte of the unit has not yet seen the unit's checksum; going on
    // now reaches the end, so that the source stands right behind the unit, and a unit cut inside its
    // checksum shows as truncated.
    if (done > 0 && OutputLeft() == 0 && !finished_) Step(true);
    return done;
}

// One round of the compressor over a drained output window. False when nothing could be done
// (the source had no more bytes and mustProgress was false).
template <class T>
bool ICompressedBufferT<T>::Step(bool mustProgress) {
    buffers_.ResetOutput();
    outputRead_ = 0;
    if (!started_) {
        compression_->DecompressInit(buffers_);
        started_ = true;
    }
    // The end of a unit may be found without any input left: the last round can stop at its checksum.
    while (buffers_.outputFill == 0 && !finished_) {
        if (buffers_.InputLeft() == 0 && !Refill(mustProgress)) return false;
        finished_ = compression_->Decompress(buffers_);
    }
    if (finished_ && buffers_.InputLeft() > 0) {
        source_->SetPending(buffers_.input.data() + buffers_.inputUsed, buffers_.InputLeft());
        consumed_ -= buffers_.InputLeft();
        buffers_.inputUsed = buffers_.inputFill;
    }
    return true;
}

template <class T>
bool ICompressedBufferT<T>::Refill(bool mustProgress) {
    size_t want = buffers_.Size();
    if (limit_ != 0) want = std::min<uint64_t>(want, limit_ - consumed_);
    const size_t got = want == 0 ? 0 : source_->Get(buffers_.input.data(), want);
    if (got == 0) {
        if (!mustProgress) return false;
        Vantu::ThrowStream<Vantu::BinaryStreamGetEOFException>(
            "Compressed unit truncated after " + std::to_string(consumed_) + " compressed bytes");
    }
    buffers_.inputFill = unsigned(got);
    buffers_.inputUsed = 0;
    consumed_ += got;
    return true;
}

template <class T>
T ICompressedBufferT<T>::vSeekG(T offset, Vantu::SeekOrigin origin, Vantu::SeekDirection direction) {
    if (origin != Vantu::kSeekCurrent || direction != Vantu::kSeekForward) {
        ThrowNotImplemented("ICompressedBufferT<T>::SeekG : Not implemented!");
    }
    uint8_t round[Vantu::BaseBinaryStreamBuf::kCopyRound];
    for (T left = offset; left > 0;) {
        const size_t got = vGet(round, std::min<T>(left, T(sizeof round)));
        if (got == 0) Vantu::ThrowStream<Vantu::BinaryStreamGetEOFException>("Seek past the end of a compressed unit");
        left -= T(got);
    }
    return vTellG();
}

}  // namespace VantuCompression
