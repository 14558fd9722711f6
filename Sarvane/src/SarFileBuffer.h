// Allocator and write-behind for a data file of variable blocks: blocks gather in memory inside regions taken
// whole from the file's free list, and a region goes to the store's log (or straight to a file) when it is full.
// No lock: the one thread that applies a transaction calls it, holding the data file's section.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "file/CFileT.h"
#include "file/EmptyListT.h"

namespace Ostrel {

class SarFileBuffer {
public:
    using EmptyList = VantuFile::EmptyListT<uint64_t>;
    using DataFile = VantuFile::CFileT<uint64_t>;
    using Stream = Vantu::BinaryStreamT<unsigned int>;

    // A region's memory is flushed once it holds this much, however much of the region is left.
    static constexpr size_t kMaxRegionMemory = 0x400000;
    // A full set of regions gives the block to the fullest one when it has less than this left.
    static constexpr uint64_t kNearlyFull = 128;

    // `operationCode` opens every region record in the log; a region tail under `minimumRemainder` goes to
    // the block that leaves it. `emptyList` is the data file's, not owned.
    SarFileBuffer(uint32_t operationCode, uint32_t minimumRemainder, EmptyList& emptyList, uint32_t maxBuffers);
    ~SarFileBuffer();
    SarFileBuffer(const SarFileBuffer&) = delete;
    SarFileBuffer& operator=(const SarFileBuffer&) = delete;

    // With a file, regions are written to it at their offsets instead of into a log; null goes back to logging.
    void SetDirectFile(DataFile* file);

    // Stores `count` bytes of `source` as one block of at least `size` bytes; `size` may come back larger.
    // `offset` receives the block's place. Raises SarNoSpaceLeft (27) when the free list has no block that fits.
    void Write(Vantu::BaseBinaryStreamBuf& source, uint32_t count, uint32_t& size, uint64_t& offset, Stream& stream);
    // Flushes every region and gives its memory back: a record that refers to the blocks written so far
    // may follow in the log.
    void FlushAll(Stream& stream);
    // Forgets every region without giving anything back: the owner reloads its free list.
    void Rollback();

private:
    class WriteBuffer;

    const uint32_t operationCode_;
    const uint32_t minimumRemainder_;
    const uint32_t maxBuffers_;
    EmptyList& emptyList_;
    DataFile* directFile_ = nullptr;
    std::vector<std::unique_ptr<WriteBuffer>> buffers_;
};

}  // namespace Ostrel
