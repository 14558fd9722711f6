// A persistent table of document sets: list N is a zlib bit vector followed by delta records in "<name>.cin",
// found through its 16-byte record in "<name>.cix", read back through a cache bounded by bytes. Queries load
// lists from any thread; transactions (AddInfo, PreCommit, Commit, Rollback) come from one thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ObjectLocks.h"
#include "SarTransaction.h"
#include "SarvaneInternalConfig.h"
#include "core/FastVector.h"
#include "core/LogEntryCallInterface.h"
#include "core/RefCounted.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "file/LockingCFile.h"
#include "file/PersistentEmptyListT.h"
#include "store/BitVector.h"
#include "store/BitsReaderWriter.h"
#include "store/EliasDeltaCodes.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

namespace Ostrel {

class FileDocIDList {
public:
    static constexpr uint32_t kNoBlock = 0xFFFFFFFF;
    static constexpr uint32_t kRecordSize = 16;
    // The least room a new block gets, and how much larger a free block may be and still be taken whole.
    static constexpr uint32_t kMinimumAllocation = 1024;

    // The record of one list in ".cix".
    struct IndexFileStruct {
        uint32_t maxDocId = 0;  // the largest document ever put in the list or taken out of it
        uint32_t blockStart = kNoBlock;
        uint32_t blockEnd = kNoBlock;  // one past the last delta record
        uint32_t allocatedSize = 0;

        bool HasBlock() const { return blockStart != kNoBlock; }
        void Encode(uint8_t* out) const;
        void Decode(const uint8_t* in);
        bool operator==(const IndexFileStruct&) const = default;
    };

    // Opcodes of the commit log.
    enum TransactionOperations : uint32_t {
        kSaveInfo = 0,   // bytes of a block, or one delta record appended to it
        kSaveIndex = 1,  // a list's record
        kEndOfLog = 2,   // the free list of ".cin" as it will stand
    };

    // Delta record flags.
    static constexpr uint8_t kAdditions = 1;
    static constexpr uint8_t kRemovals = 2;

    // Opens "<name>.cix" and "<name>.cin" in the slice's index files path (a read-only store creates missing
    // ones empty first) and reloads the free list from "<name>.pty".
    FileDocIDList(const Vantu::SmartPtr<SarvaneInternalConfig>& config, const std::string& name, uint32_t growStep,
                  uint32_t cacheLimit, bool keepRemovals, bool readOnly);
    virtual ~FileDocIDList();
    FileDocIDList(const FileDocIDList&) = delete;
    FileDocIDList& operator=(const FileDocIDList&) = delete;

    void BeginTransaction();
    // Both lists ascending; a removal wins over an addition of the same document. A list takes at most one
    // AddInfo in a transaction (a second raises): its record is read from ".cix", which shows none of the
    // transaction's own changes. A list left without documents gives its block back.
    void AddInfo(uint32_t listId, const Vantu::FastVector<unsigned int>& additions,
                 const Vantu::FastVector<unsigned int>& removals);
    void PreCommit(const bool& cancel);
    // Replays the log, first cutting both files back to the sizes it was begun with, so it repeats safely.
    void Commit(const bool& cancel);
    void Rollback();
    void ForceQuit();
    void RecoveryDone();

    using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;

    // Compaction: writes the lists into a new store of the same name in `path`, without the documents of
    // `deletedDocuments` (ascending) and every other document moved down by the deleted ones below it. With
    // `renumber` the lists that keep documents take ids from 0 up: `listPairs` gets (old, new) for each that
    // moves and `deletedLists` the lists left empty. Without deletions the files are copied as they are.
    void Shrink(const std::u16string& path, const Vantu::FastVector<unsigned int>& deletedDocuments,
                const Pairs& documentPairs, Vantu::FastVector<unsigned int>& deletedLists, Pairs& listPairs,
                bool renumber, const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log, const bool& cancel);

    // One past the highest list in the file or in the running transaction.
    uint32_t GetMaxListID() const { return nextListId_.load(std::memory_order_acquire); }
    uint64_t GetDiskSpaceUsed() const;

protected:
    // Null when the list has no block.
    void LoadBitVector(uint32_t listId, Vantu::RefCountToConst<VantuAlgo::BitVector>& vector) const;

private:
    using IndexFile = VantuFile::LockingCFileT<unsigned int>;
    using DataFile = VantuFile::LockingCFileGrowT<unsigned int>;
    using EmptyList = VantuFile::PersistentEmptyListT<unsigned int>;
    using Vector = Vantu::RefCountToConst<VantuAlgo::BitVector>;

    struct CacheEntry {
        Vector vector;
        uint32_t stamp;
    };

    // Under the section of ".cix"; a list past the end of the file has a fresh record.
    IndexFileStruct ReadRecord(uint32_t listId) const;
    void LogRecord(uint32_t listId, const IndexFileStruct& record);
    // True when the change leaves the list without documents: it then gives its block back at once, rather
    // than keep an empty list behind a delta.
    bool EmptiedBy(uint32_t listId, const Vantu::FastVector<unsigned int>& additions,
                   const Vantu::FastVector<unsigned int>& removals) const;
    // The delta record of the change, in writeMemory_; returns its size.
    uint32_t BuildDelta(const Vantu::FastVector<unsigned int>& additions,
                        const Vantu::FastVector<unsigned int>& removals);
    // The list as a vector of maxDocId + 1 bits with the change applied; the old block is freed at PreCommit.
    VantuAlgo::BitVector ChangedVector(uint32_t listId, const IndexFileStruct& record,
                                       const Vantu::FastVector<unsigned int>& additions,
                                       const Vantu::FastVector<unsigned int>& removals);
    // The vector as a new block in writeMemory_, with a place for it; returns the block's size.
    uint32_t BuildBlock(const VantuAlgo::BitVector& vector, IndexFileStruct& record);
    Vector LoadBitVectorFromDisk(uint32_t listId) const;
    void OpenFiles();
    // Copies every file of the store to the folder `path`, with the store's files closed meanwhile.
    void CopyFiles(const std::string& path);
    void ReadBlock(const IndexFileStruct& record, VantuAlgo::BitVector& vector) const;
    // Applies one log record; false at the end of the log.
    bool ApplyRecord(SarTransaction::Stream& log);
    void SaveInfoFromTransaction(SarTransaction::Stream& log);
    void SaveIndexFromTransaction(SarTransaction::Stream& log);

    const Vantu::SmartPtr<SarvaneInternalConfig> config_;
    const std::string name_;
    const bool readOnly_;
    const bool keepRemovals_;
    const uint32_t cacheLimit_;
    const std::string basePath_;
    std::atomic<uint32_t> nextListId_{0};

    mutable IndexFile indexFile_;
    mutable DataFile dataFile_;
    EmptyList emptyList_;
    std::set<uint32_t> listsChanged_;  // in the running transaction
    // Blocks of lists rewritten or emptied in the running transaction, as (size, offset).
    std::vector<std::pair<uint32_t, uint32_t>> freedBlocks_;

    // Shared by every reader, used only inside the section of ".cin".
    mutable VantuFile::MemoryBuffer readMemory_{0x40000};
    mutable VantuCompression::ZLib inflateZLib_{1, 6, 15};
    mutable VantuCompression::ICompressedBufferT<unsigned int> inflater_;
    mutable VantuCompression::BitsReaderWriter readBits_;

    VantuFile::MemoryBuffer writeMemory_{0x40000};
    VantuCompression::BitsReaderWriter writeBits_;
    VantuCompression::ZLib deflateZLib_{1, 8, 15};
    VantuCompression::OCompressedBufferT<unsigned int> deflater_;
    const VantuCompression::EliasDeltaCodes codes_{};

    mutable std::mutex cacheSection_;
    mutable std::map<uint32_t, CacheEntry> cache_;
    mutable std::map<uint32_t, uint32_t> cacheStamps_;  // stamp to list id, oldest first
    mutable uint32_t stampCounter_ = 0;
    mutable uint32_t cacheBytes_ = 0;
    // Moves at every record a commit writes: a reader whose disk read began before it doesn't cache.
    mutable uint64_t cacheGeneration_ = 0;

    SarTransaction transaction_;
    mutable ObjectLocks locks_;
};

}  // namespace Ostrel
