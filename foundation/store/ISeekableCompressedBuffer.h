// A decompressing stream over one compressed unit that can seek anywhere in the decompressed bytes.
// One thread at a time; the source must stay positioned by this buffer alone while it is read.
#pragma once

#include <memory>
#include <optional>

#include "file/BinaryStreamMemoryBuffer.h"
#include "store/ZLibCompressedBuffer.h"

namespace VantuCompression {

class ISeekableCompressedBuffer : public Vantu::BinaryStreamBufT<unsigned int> {
public:
    // Flag bit kKeepDecompressed holds every byte decompressed so far in memory, so that a seek back
    // costs nothing; without it a seek back decompresses the unit again from its start.
    static constexpr unsigned int kKeepDecompressed = 1;

    // The unit starts at the source's current read position.
    ISeekableCompressedBuffer(Vantu::BinaryStreamBufT<unsigned int>& source, BaseCompression* compression,
                              unsigned int flag);

protected:
    size_t vPut(const void*, size_t) override;
    size_t vGet(void* data, size_t n) override;
    unsigned int vTellP() override;
    unsigned int vSeekP(unsigned int, Vantu::SeekOrigin, Vantu::SeekDirection) override;
    unsigned int vTellG() override { return position_; }
    unsigned int vSeekG(unsigned int offset, Vantu::SeekOrigin origin, Vantu::SeekDirection direction) override;
    // The decompressed size: found by decompressing up to the end of the unit once.
    unsigned int vSize() override;
    bool vEndOfFile() override;
    void vClearEnd() override;

private:
    bool Keeping() const { return kept_ != nullptr; }
    // Decompresses and drops (or keeps) bytes until `target` is reached or the unit ends.
    void AdvanceTo(uint64_t target);
    void Rewind();

    Vantu::BinaryStreamBufT<unsigned int>& source_;
    ICompressedBufferT<unsigned int> input_;
    unsigned int unitStart_;
    std::unique_ptr<VantuFile::MemoryBuffer> kept_;
    // Read position in the decompressed bytes, and how far the decompressor has come.
    unsigned int position_ = 0;
    unsigned int decompressed_ = 0;
    // The decompressed size, once the end of the unit has been seen.
    std::optional<unsigned int> unitSize_;
};

}  // namespace VantuCompression
