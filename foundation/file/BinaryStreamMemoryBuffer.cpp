#include "file/BinaryStreamMemoryBuffer.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace VantuFile {

namespace {

// Positions of these streams are 32 bits wide.
constexpr size_t kMaxSize = std::numeric_limits<unsigned int>::max();

}  // namespace

void MemoryRegionBuffer::SetRegion(uint8_t* data, size_t size, size_t capacity) {
    data_ = data;
    size_ = size;
    capacity_ = capacity;
}

size_t MemoryRegionBuffer::vPut(const void* data, size_t n) {
    if (n == 0) return 0;
    const size_t end = put_ + std::min(n, kMaxSize - put_);
    const size_t room = Reserve(end);
    if (room <= put_) return 0;
    // A put past the data (after a seek) leaves zeros in the gap, as a file would.
    if (put_ > size_) std::memset(data_ + size_, 0, put_ - size_);
    const size_t taken = room - put_;
    std::memcpy(data_ + put_, data, taken);
    put_ += taken;
    size_ = std::max(size_, put_);
    return taken;
}

size_t MemoryRegionBuffer::vGet(void* data, size_t n) {
    const size_t take = get_ < size_ ? std::min(n, size_ - get_) : 0;
    if (take > 0) std::memcpy(data, data_ + get_, take);
    get_ += take;
    return take;
}

void MemoryRegionBuffer::vClear() {
    put_ = 0;
    get_ = 0;
}

unsigned int MemoryRegionBuffer::vSeekP(unsigned int offset, Vantu::SeekOrigin origin,
                                        Vantu::SeekDirection direction) {
    const auto target = Vantu::SeekTarget(put_, size_, kMaxSize, offset, origin, direction);
    if (Reserve(target) < target) Vantu::ThrowStream<Vantu::BinaryStreamException>("Seek past the end of a fixed memory region");
    if (target > size_) {
        std::memset(data_ + size_, 0, target - size_);
        size_ = target;
    }
    put_ = target;
    return unsigned(put_);
}

unsigned int MemoryRegionBuffer::vSeekG(unsigned int offset, Vantu::SeekOrigin origin,
                                        Vantu::SeekDirection direction) {
    get_ = Vantu::SeekTarget(get_, size_, size_, offset, origin, direction);
    return unsigned(get_);
}

MemoryBuffer::MemoryBuffer(size_t capacity) {
    memory_.reset(new uint8_t[std::max<size_t>(capacity, 1)]);
    SetRegion(memory_.get(), 0, capacity);
}

// Grows by doubling, so a stream written in small pieces costs amortised constant time per byte.
size_t MemoryBuffer::Reserve(size_t needed) {
    if (needed <= capacity_) return needed;
    const size_t capacity = std::min(kMaxSize, std::max(needed, capacity_ * 2));
    std::unique_ptr<uint8_t[]> grown(new uint8_t[capacity]);
    std::memcpy(grown.get(), memory_.get(), size_);
    memory_ = std::move(grown);
    SetRegion(memory_.get(), size_, capacity);
    return needed;
}

void MemoryBuffer::vClear() {
    MemoryRegionBuffer::vClear();
    size_ = 0;
}

void MemoryBuffer::vClearMemory() {
    memory_.reset(new uint8_t[1]);
    SetRegion(memory_.get(), 0, 0);
}

StaticMemoryBuffer::StaticMemoryBuffer(void* data, size_t size) : readOnly_(false) {
    SetRegion(static_cast<uint8_t*>(data), size, size);
}

StaticMemoryBuffer::StaticMemoryBuffer(const void* data, size_t size) : readOnly_(true) {
    // Reserve refuses every put, so the region is never written through this pointer.
    SetRegion(static_cast<uint8_t*>(const_cast<void*>(data)), size, size);
}

}  // namespace VantuFile
