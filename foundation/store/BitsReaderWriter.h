// A bit stream over a byte stream, top bit first: it holds no bits between lists and reads no byte past one.
// Not synchronised: one thread at a time, like the stream below it.
#pragma once

#include <bit>
#include <cstdint>

#include "file/BinaryStreamBuf.h"

namespace VantuCompression {

class BitsReaderWriter {
public:
    using Stream = Vantu::BinaryStreamBufT<unsigned int>;

    explicit BitsReaderWriter(Stream* stream = nullptr) : stream_(stream) {}

    // Re-points the bits at another stream, between lists, or after a stream error to start clean.
    void SetStream(Stream* stream) {
        stream_ = stream;
        held_ = 0;
        heldCount_ = 0;
        outCount_ = 0;
    }
    Stream* GetStream() const { return stream_; }

    // Appends the low count bits of value, count at most 56.
    void PutBits(uint64_t value, unsigned int count) {
        held_ = (held_ << count) | (value & LowMask(count));
        heldCount_ += count;
        while (heldCount_ >= 8) {
            heldCount_ -= 8;
            out_[outCount_++] = static_cast<unsigned char>(held_ >> heldCount_);
            if (outCount_ == sizeof(out_)) FlushBytes();
        }
    }
    // Pads the last byte with 0 bits and hands every byte to the stream.
    void EndWrite() {
        if (heldCount_ != 0) PutBits(0, 8 - heldCount_);
        FlushBytes();
        held_ = 0;
    }

    // Reads count bits, count at most 56, the first read as the most significant.
    uint64_t GetBits(unsigned int count) {
        while (heldCount_ < count) Fetch();
        heldCount_ -= count;
        return (held_ >> heldCount_) & LowMask(count);
    }
    // Reads 0 bits up to the next 1 bit, which stays unread; gives their number, stopping past limit.
    unsigned int SkipZeros(unsigned int limit) {
        unsigned int zeros = 0;
        for (;;) {
            if (heldCount_ == 0) Fetch();
            uint64_t visible = held_ & LowMask(heldCount_);
            if (visible != 0) {
                unsigned int run = static_cast<unsigned int>(std::countl_zero(visible)) - (64 - heldCount_);
                heldCount_ -= run;
                return zeros + run;
            }
            zeros += heldCount_;
            heldCount_ = 0;
            if (zeros > limit) return zeros;
        }
    }
    // Drops the unread bits of the current byte: the next list begins on the next byte.
    void EndRead() {
        held_ = 0;
        heldCount_ = 0;
    }

private:
    static uint64_t LowMask(unsigned int count) { return count == 0 ? 0 : ~uint64_t{0} >> (64 - count); }

    // Raises the stream's end-of-data exception when the bytes run out inside a list.
    void Fetch();
    void FlushBytes();

    Stream* stream_;
    uint64_t held_ = 0;          // the low heldCount_ bits are pending, oldest first
    unsigned int heldCount_ = 0;
    unsigned char out_[256];
    unsigned int outCount_ = 0;
};

}  // namespace VantuCompression
