#include "SarFileBuffer.h"

#include <algorithm>

#include "SarException.h"
#include "file/BinaryStreamException.h"

namespace Ostrel {

namespace {

constexpr uint64_t kNoRegion = ~uint64_t(0);
constexpr size_t kInitialMemory = 0x100000;

}  // namespace

// One open region: a whole free block of the data file, filled from its start by the blocks in `memory_`.
class SarFileBuffer::WriteBuffer {
public:
    WriteBuffer(uint32_t operationCode, uint32_t minimumRemainder, EmptyList& emptyList, DataFile* directFile)
        : operationCode_(operationCode), minimumRemainder_(minimumRemainder), emptyList_(emptyList),
          directFile_(directFile) {}

    void SetDirectFile(DataFile* file) { directFile_ = file; }

    // Bytes of the region not yet used; 0 without a region.
    uint64_t Remaining() const { return start_ == kNoRegion ? 0 : end_ - start_ - memory_.DataSize(); }

    void Take(Vantu::BaseBinaryStreamBuf& source, uint32_t count, uint32_t& size, uint64_t& offset, Stream& stream) {
        if (start_ == kNoRegion || Remaining() < size || memory_.DataSize() >= kMaxRegionMemory) {
            Flush(stream, false);
            uint64_t blockSize = size, blockOffset = 0;
            if (!emptyList_.Get(blockSize, blockOffset, EmptyList::kAll)) throw SarNoSpaceLeft(SAR_MESSAGE(27));
            start_ = blockOffset;
            end_ = blockOffset + blockSize;
        }
        const uint64_t used = memory_.DataSize();
        if (end_ - start_ - used - size < minimumRemainder_) size = uint32_t(end_ - start_ - used);
        offset = start_ + used;
        if (memory_.CopyFrom(source, count) != count)
            Vantu::ThrowStream<Vantu::BinaryStreamGetEOFException>("A stored block ended early");
        // The slack of a block is reserved; its bytes are zeros, so a log never carries stale memory.
        if (count != size) memory_.SeekP(unsigned(size - count), Vantu::kSeekCurrent);
    }

    void Flush(Stream& stream, bool releaseMemory) {
        const uint64_t used = memory_.DataSize();
        if (used != 0) {
            if (directFile_) {
                WriteDirect();
            } else {
                stream << operationCode_ << start_ << uint32_t(used);
                stream.PutExact(memory_.Data(), used);
            }
            // The tail the blocks didn't use goes back to the free list.
            if (start_ + used != end_) emptyList_.AddMerged(end_ - start_ - used, start_ + used);
            Forget();
        } else if (start_ != kNoRegion) {
            emptyList_.AddMerged(end_ - start_, start_);
            Forget();
        }
        if (releaseMemory) memory_.ClearMemory();
    }

    void Forget() {
        start_ = end_ = kNoRegion;
        memory_.Clear();
    }

    void ReleaseMemory() { memory_.ClearMemory(); }

private:
    void WriteDirect() {
        directFile_->Seek(start_);
        const size_t used = memory_.DataSize();
        for (size_t done = 0; done < used; done += Vantu::BaseBinaryStreamBuf::kCopyRound)
            directFile_->Write(memory_.Data() + done, 1, std::min(Vantu::BaseBinaryStreamBuf::kCopyRound, used - done));
    }

    const uint32_t operationCode_;
    const uint32_t minimumRemainder_;
    EmptyList& emptyList_;
    DataFile* directFile_;
    VantuFile::MemoryBuffer memory_{kInitialMemory};
    uint64_t start_ = kNoRegion;
    uint64_t end_ = kNoRegion;
};

SarFileBuffer::SarFileBuffer(uint32_t operationCode, uint32_t minimumRemainder, EmptyList& emptyList,
                             uint32_t maxBuffers)
    : operationCode_(operationCode), minimumRemainder_(minimumRemainder), maxBuffers_(std::max(maxBuffers, 1u)),
      emptyList_(emptyList) {
    buffers_.reserve(maxBuffers_);
}

SarFileBuffer::~SarFileBuffer() = default;

void SarFileBuffer::SetDirectFile(DataFile* file) {
    directFile_ = file;
    for (auto& buffer : buffers_) buffer->SetDirectFile(file);
}

void SarFileBuffer::Write(Vantu::BaseBinaryStreamBuf& source, uint32_t count, uint32_t& size, uint64_t& offset,
                          Stream& stream) {
    size = std::max(size, count);
    WriteBuffer* fullest = nullptr;
    for (auto& buffer : buffers_) {
        const uint64_t remaining = buffer->Remaining();
        if (remaining >= size) return buffer->Take(source, count, size, offset, stream);
        if (!fullest || remaining < fullest->Remaining()) fullest = buffer.get();
    }
    if (buffers_.size() < maxBuffers_ && !(fullest && fullest->Remaining() < kNearlyFull)) {
        buffers_.push_back(std::make_unique<WriteBuffer>(operationCode_, minimumRemainder_, emptyList_, directFile_));
        fullest = buffers_.back().get();
    }
    fullest->Take(source, count, size, offset, stream);
}

void SarFileBuffer::FlushAll(Stream& stream) {
    for (auto& buffer : buffers_) buffer->Flush(stream, true);
}

void SarFileBuffer::Rollback() {
    for (auto& buffer : buffers_) {
        buffer->Forget();
        buffer->ReleaseMemory();
    }
}

}  // namespace Ostrel
