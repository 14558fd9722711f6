// In-memory streams with independent put and get positions: MemoryBuffer grows and owns its bytes,
// StaticMemoryBuffer works over a fixed region it doesn't own. One thread at a time per buffer.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "file/BinaryStreamBuf.h"

namespace VantuFile {

// What the two memory streams share: a region of `capacity` bytes of which `size` hold data.
class MemoryRegionBuffer : public Vantu::BinaryStreamBufT<unsigned int> {
public:
    const uint8_t* Data() const { return data_; }
    uint8_t* Data() { return data_; }
    // The bytes held, for readers that may not move the buffer's positions.
    size_t DataSize() const { return size_; }

protected:
    MemoryRegionBuffer() = default;
    void SetRegion(uint8_t* data, size_t size, size_t capacity);
    // Makes room up to the position `needed`; returns the end the region can reach, at most `needed`.
    virtual size_t Reserve(size_t needed) = 0;

    size_t vPut(const void* data, size_t n) override;
    size_t vGet(void* data, size_t n) override;
    void vClear() override;
    bool vEndOfFile() override { return get_ >= size_; }
    unsigned int vTellP() override { return unsigned(put_); }
    unsigned int vSeekP(unsigned int offset, Vantu::SeekOrigin origin, Vantu::SeekDirection direction) override;
    unsigned int vTellG() override { return unsigned(get_); }
    unsigned int vSeekG(unsigned int offset, Vantu::SeekOrigin origin, Vantu::SeekDirection direction) override;
    unsigned int vSize() override { return unsigned(size_); }

    uint8_t* data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
    size_t put_ = 0;
    size_t get_ = 0;
};

class MemoryBuffer : public MemoryRegionBuffer {
public:
    explicit MemoryBuffer(size_t capacity = 0);

protected:
    size_t Reserve(size_t needed) override;
    void vClear() override;
    void vClearMemory() override;
    void vClearEnd() override { size_ = put_; get_ = std::min(get_, size_); }

private:
    std::unique_ptr<uint8_t[]> memory_;
};

// Every byte of the region counts as data from the start: it is read as it stands and overwritten by puts.
class StaticMemoryBuffer : public MemoryRegionBuffer {
public:
    StaticMemoryBuffer(void* data, size_t size);
    // A read-only view: puts take nothing.
    StaticMemoryBuffer(const void* data, size_t size);

protected:
    size_t Reserve(size_t needed) override { return readOnly_ ? 0 : std::min(needed, capacity_); }

private:
    bool readOnly_;
};

}  // namespace VantuFile
