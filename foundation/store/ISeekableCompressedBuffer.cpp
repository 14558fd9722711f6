#include "store/ISeekableCompressedBuffer.h"

#include <algorithm>
#include <limits>

namespace VantuCompression {

ISeekableCompressedBuffer::ISeekableCompressedBuffer(Vantu::BinaryStreamBufT<unsigned int>& source,
                                                     BaseCompression* compression, unsigned int flag)
    : Vantu::BinaryStreamBufT<unsigned int>(kModeInput),
      source_(source),
      input_(source, compression),
      unitStart_(source.TellG()),
      kept_(flag & kKeepDecompressed ? std::make_unique<VantuFile::MemoryBuffer>(kCompressedWindow) : nullptr) {}

size_t ISeekableCompressedBuffer::vPut(const void*, size_t) {
    ThrowNotImplemented("ISeekableCompressedBuffer::Put : Not implemented!");
}

unsigned int ISeekableCompressedBuffer::vTellP() {
    ThrowNotImplemented("ISeekableCompressedBuffer::TellP : Not implemented!");
}

unsigned int ISeekableCompressedBuffer::vSeekP(unsigned int, Vantu::SeekOrigin, Vantu::SeekDirection) {
    ThrowNotImplemented("ISeekableCompressedBuffer::SeekP : Not implemented!");
}

void ISeekableCompressedBuffer::vClearEnd() {
    ThrowNotImplemented("ISeekableCompressedBuffer::ClearEnd : Not implemented!");
}

size_t ISeekableCompressedBuffer::vGet(void* data, size_t n) {
    size_t got;
    if (Keeping()) {
        AdvanceTo(uint64_t(position_) + n);
        kept_->SeekG(position_);
        got = kept_->Get(data, n);
    } else {
        got = input_.Get(data, n);
        decompressed_ += unsigned(got);
        if (got < n) unitSize_ = decompressed_;
    }
    position_ += unsigned(got);
    return got;
}

unsigned int ISeekableCompressedBuffer::vSeekG(unsigned int offset, Vantu::SeekOrigin origin,
                                               Vantu::SeekDirection direction) {
    const bool fromEnd = origin == Vantu::kSeekEnd;
    const uint64_t size = fromEnd ? vSize() : std::numeric_limits<unsigned int>::max();
    const uint64_t target = Vantu::SeekTarget(position_, size, size, offset, origin, direction);
    if (!Keeping() && target < decompressed_) Rewind();
    AdvanceTo(target);
    if (target > decompressed_) {
        Vantu::ThrowStream<Vantu::BinaryStreamException>("Seek past the end of the decompressed data: " +
                                                         std::to_string(target) + " of " +
                                                         std::to_string(decompressed_) + " bytes");
    }
    position_ = unsigned(target);
    return position_;
}

unsigned int ISeekableCompressedBuffer::vSize() {
    if (!unitSize_) {
        const unsigned int position = position_;
        AdvanceTo(std::numeric_limits<unsigned int>::max());
        if (!Keeping()) {
            Rewind();
            AdvanceTo(position);
        }
    }
    return *unitSize_;
}

bool ISeekableCompressedBuffer::vEndOfFile() {
    if (Keeping() && position_ < decompressed_) return false;
    return input_.EndOfFile();
}

void ISeekableCompressedBuffer::AdvanceTo(uint64_t target) {
    uint8_t round[kCopyRound];
    while (decompressed_ < target && !(unitSize_ && decompressed_ >= *unitSize_)) {
        const size_t want = size_t(std::min<uint64_t>(sizeof round, target - decompressed_));
        const size_t got = input_.Get(round, want);
        if (Keeping()) {
            kept_->SeekP(decompressed_);
            kept_->PutExact(round, got);
        }
        decompressed_ += unsigned(got);
        if (got < want) unitSize_ = decompressed_;
    }
    if (!Keeping()) position_ = decompressed_;
}

// Only a buffer that keeps nothing has to go back: the unit is read again from its first byte.
void ISeekableCompressedBuffer::Rewind() {
    input_.Clear();
    source_.SeekG(unitStart_);
    decompressed_ = 0;
    position_ = 0;
}

}  // namespace VantuCompression
