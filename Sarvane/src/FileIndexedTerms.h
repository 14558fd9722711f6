// The postings of each large term in "Terms.tix", "Terms.tin" and four ".tps" files, changed only by "Terms.ttr".
// LoadTerm, GetNumberOfDocuments, GetOccurencesForDocument: any thread, also in Commit; the rest: one thread.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DocIDWeightStruct.h"
#include "ObjectLocks.h"
#include "SarFileBuffer.h"
#include "SarTransaction.h"
#include "SarvaneInternalConfig.h"
#include "Term.h"
#include "TransactionTermOperation.h"
#include "core/FastVector.h"
#include "core/LogEntryCallInterface.h"
#include "core/RefCounted.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "file/LockingCFile.h"
#include "file/PersistentEmptyListT.h"
#include "language/WordsExtractor.h"
#include "store/BitVector.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

namespace Ostrel {

class FileIndexedTerms : public Vantu::SPRefCounter {
public:
    static constexpr const char* kFileName = "Terms";
    static constexpr uint64_t kNoBlock = ~uint64_t(0);
    static constexpr uint32_t kNoPositions = 0xFFFFFFFF;
    // Up to this many postings live in the record itself.
    static constexpr uint32_t kInlinePostings = 3;
    // A chunk of this many postings or more is one zlib unit.
    static constexpr uint32_t kCompressedChunk = 25;
    // Coded positions up to this many bytes live in the posting's position word.
    static constexpr uint32_t kInlinePositionBytes = 4;
    // A term that passes this many documents belongs in the frequent tree of the Lexicon.
    static constexpr uint32_t kFrequentLimit = 25;
    static constexpr uint32_t kPositionFiles = 4;
    static constexpr uint32_t kBatchRecords = 1000;

    // The record of one term id in ".tix", kept as its stored bytes. With 1 to 3 documents the bytes from
    // offset 5 hold the postings themselves, each followed by its position word.
    class IndexFileStruct {
    public:
        static constexpr uint32_t kSize = 35;

        IndexFileStruct() { Reset(); }
        // The fresh record: no documents, no pending posting, no block.
        void Reset();

        uint32_t NumberOfDocuments() const { return Get<uint32_t>(0); }
        void SetNumberOfDocuments(uint32_t n) { Set(0, n); }
        bool HasPendingPosting() const { return bytes[4] != 0; }
        void SetHasPendingPosting(bool pending) { bytes[4] = pending; }
        uint64_t BlockStart() const { return Get<uint64_t>(5); }
        uint64_t BlockEnd() const { return Get<uint64_t>(13); }
        uint32_t AllocatedSize() const { return Get<uint32_t>(21); }
        bool HasBlock() const { return BlockStart() != kNoBlock; }
        void SetBlock(uint64_t start, uint64_t end, uint32_t allocated) {
            Set(5, start);
            Set(13, end);
            Set(21, allocated);
        }
        DocIDWeightStruct PendingPosting() const { return Get<DocIDWeightStruct>(25); }
        uint32_t PendingPosition() const { return Get<uint32_t>(31); }
        void SetPending(const DocIDWeightStruct& posting, uint32_t position) {
            Set(25, posting);
            Set(31, position);
        }
        // The inline entries, `i` below 3.
        DocIDWeightStruct InlinePosting(uint32_t i) const { return Get<DocIDWeightStruct>(5 + i * 10); }
        uint32_t InlinePosition(uint32_t i) const { return Get<uint32_t>(11 + i * 10); }
        void SetInline(uint32_t i, const DocIDWeightStruct& posting, uint32_t position) {
            Set(5 + i * 10, posting);
            Set(11 + i * 10, position);
        }

        std::array<uint8_t, kSize> bytes;

    private:
        template <class V>
        V Get(size_t at) const {
            V value;
            std::memcpy(static_cast<void*>(&value), bytes.data() + at, sizeof value);
            return value;
        }
        template <class V>
        void Set(size_t at, const V& value) {
            std::memcpy(bytes.data() + at, &value, sizeof value);
        }
    };

    // Opcodes of "Terms.ttr".
    enum TransactionOperations : uint32_t {
        kPositions = 0,     // bytes of a ".tps" file
        kIndexRecords = 1,  // records of ".tix"
        kAppendChunk = 2,   // a chunk behind the last one of an existing block
        kRegion = 3,        // a flushed region of ".tin"
        kEndOfLog = 4,      // the free list of ".tin" as it will stand
    };

    using Postings = Vantu::FastVector<DocIDWeightStruct>;
    using Positions = Vantu::FastVector<uint32_t>;
    using Operations = Vantu::PointerVector<TransactionTermOperation>;
    using Occurence = VantuLanguage::WordsExtractor::Occurence;

    // Opens every file; a read-only store creates missing ones empty first. Reloads the free list of ".tin".
    FileIndexedTerms(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly);
    ~FileIndexedTerms();

    void BeginTransaction();
    // Ids come in ascending order within a transaction, each once, and `operations` ascend by document id above
    // the term's earlier postings. True when the term went from at most 25 documents to more.
    bool AddDocumentsForTerm(uint32_t termId, const Operations& operations);
    // The log is complete on disk when it returns.
    void PreCommit();
    // Replays the log, first cutting every file back to the sizes it was begun with, so it repeats safely.
    // With `cancel` the log stays for a later Commit.
    void Commit(const bool& cancel, const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log);
    void Rollback();
    // Drops what the transaction allocated in ".tin".
    void ForceQuit();

    // Given before a transaction is applied; Commit and Rollback forget both. Not owned: it must outlive
    // the transaction, and nobody may change it meanwhile.
    void SetDeletedDocumentsVector(const VantuAlgo::BitVector& deleted);
    void SetTotalNumberOfDocuments(uint32_t total) { totalDocuments_ = total; }

    // An unknown term gives an empty Term.
    Vantu::SmartPtr<Term> LoadTerm(uint32_t termId, bool withPositions) const;
    uint32_t GetNumberOfDocuments(uint32_t termId) const;
    // Looks for `documentId` in `term` (loaded with positions) from `cursor` on; on success loads its positions
    // into `occurence` (created when null) and moves `cursor` one posting on, else `cursor` goes to the end.
    bool GetOccurencesForDocument(const Term& term, uint32_t documentId, Vantu::SmartPtr<Occurence>& occurence,
                                  const DocIDWeightStruct*& cursor) const;
    uint64_t GetDiskSpaceUsed() const;

private:
    using IndexFile = VantuFile::LockingCFileGrowT<unsigned int>;
    using DataFile = VantuFile::LockingCFileGrowT<uint64_t>;
    using Stream = SarTransaction::Stream;
    class PositionFile;

    void LoadTermFromDisk(uint32_t termId, Postings& postings, Positions& positions, bool withPositions) const;
    // Appends the chunks of the record's block; positions only `withPositions`.
    void ReadBlock(const IndexFileStruct& record, Postings& postings, Positions* positions) const;
    void LoadTermPositions(uint32_t termId, const DocIDWeightStruct& posting, uint32_t positionWord,
                           Occurence& occurence) const;
    bool SaveTermInfo(uint32_t termId);
    void StartBatch(uint32_t termId);
    void SaveInfoInInfoFile(IndexFileStruct& record);
    // Writes the work vectors as one chunk; false when the block had no room, the term's old postings
    // then standing in front of the work vectors.
    bool SaveChunk(IndexFileStruct& record, uint32_t added);
    bool CheckRoom(IndexFileStruct& record, uint64_t need);
    uint32_t BuildChunk();
    uint32_t Allocation(uint32_t total, uint32_t size, uint32_t added) const;
    void DropDeletedDocuments();
    void SaveIndexStruct();
    void ReleasePendingFree();
    // False at the end of the log.
    bool ApplyRecord(uint32_t opcode, Stream& log);
    void SaveTermIndexFromTransaction(Stream& log);
    void SaveTermInfoChunkFromTransaction(Stream& log);
    void SaveTermInfoFromTransaction(Stream& log);
    void SavePositionsFromTransaction(Stream& log);
    void ClearWork();

    const std::string basePath_;
    mutable ObjectLocks locks_;
    mutable IndexFile indexFile_;
    mutable DataFile infoFile_;
    VantuFile::PersistentEmptyListT<uint64_t> emptyList_;
    SarFileBuffer fileBuffer_;
    std::vector<std::unique_ptr<PositionFile>> positionFiles_;
    SarTransaction transaction_;

    // The work of the one applying thread.
    VantuFile::MemoryBuffer positionMemory_{0x40000};
    Postings newPostings_;
    Positions newPositions_;
    VantuCompression::ZLib compression_{1, 6, 15};
    VantuFile::MemoryBuffer writeMemory_{0x40000};
    VantuCompression::OCompressedBufferT<unsigned int> deflater_;
    // Blocks that rewrites left, as (size, offset): free only once the records that left them are logged.
    std::vector<std::pair<uint64_t, uint64_t>> pendingFree_;
    std::vector<IndexFileStruct> recordBatch_;
    uint32_t batchStart_ = 0;
    uint32_t batchLoaded_ = 0;
    uint32_t batchLast_ = 0;
    uint32_t batchLimit_ = 0;
    // Records of ".tix" with this transaction's batches counted: a new batch never leaves a hole behind it.
    uint32_t indexRecords_ = 0;
    const VantuAlgo::BitVector* deletedDocuments_ = nullptr;
    uint32_t firstDeleted_ = 0;
    uint32_t totalDocuments_ = 0;
};

}  // namespace Ostrel
