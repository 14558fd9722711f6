// A slice's document store: records, stored documents and word lists, a replayable commit log, and in memory the
// weights, deleted documents and collection statistics. Reads from any thread; changes from the reader thread.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "IndexedDocument.h"
#include "SarFileBuffer.h"
#include "SarIndexInfo.h"
#include "SarTransaction.h"
#include "SarvaneInternalConfig.h"
#include "SarvaneStatistics.h"
#include "core/FastVector.h"
#include "core/LogEntryCallInterface.h"
#include "core/ReadWriteSemaphore.h"
#include "core/RefCounted.h"
#include "file/BinaryStreamFileBuffer.h"
#include "file/LockingCFile.h"
#include "file/PersistentEmptyListT.h"
#include "store/BitVector.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

namespace Ostrel {

// The 15 bytes that ranking keeps for each document; this store only reads and writes the rank value.
struct RankingEngineDocWeight {
    static constexpr size_t kSize = 15;
    static constexpr size_t kRankValueOffset = 7;

    std::array<uint8_t, kSize> bytes{};

    float RankValue() const;
    void SetRankValue(float value);
    bool operator==(const RankingEngineDocWeight&) const = default;
};

class FileIndexedDocuments : public Vantu::SPRefCounter {
public:
    static constexpr const char* kFileName = "Documents";
    static constexpr uint32_t kRecordSize = 27;
    static constexpr uint64_t kNoOffset = ~uint64_t(0);
    static constexpr uint32_t kNoDocument = 0xFFFFFF;

    // The record of one document id in ".dix".
    struct IndexFileStruct {
        uint64_t offset = kNoOffset;  // of the block in ".din"
        uint32_t size = 0;            // of the stored document, the first part of the block
        RankingEngineDocWeight weight;

        bool Blank() const { return offset == kNoOffset; }
        void Encode(uint8_t* out) const;
        void Decode(const uint8_t* in);
    };

    // Opcodes of the commit log.
    enum TransactionOperations : uint32_t {
        kAddDocument = 0,     // a region of ".din"
        kDeleteDocument = 1,  // the weight entry and the record become blank
        kIndexRecords = 2,    // records of new documents
        kEndOfLog = 3,        // the free list of ".din" as it will stand
        kUpdateIndex = 4,     // records whose rank value changed
    };

    // Opens the files (a read-only store creates missing ones empty first) and reloads the free list.
    FileIndexedDocuments(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly);
    ~FileIndexedDocuments();

    void BeginTransaction();
    // `stream` stands behind the collection field of a document record of a slice transaction.
    void AddDocument(uint32_t documentId, uint16_t collection, Vantu::BinaryStreamT<unsigned int>& stream);
    // Adds the document's words to `words`; true when its shingle bag isn't empty. An unknown or deleted id
    // changes nothing and gives false.
    bool DeleteDocument(uint32_t documentId, std::map<std::u16string, uint32_t>& words);
    // `ranks` ascending by id: every record up to the last listed id takes its listed value, or 0 unlisted.
    void UpdateDocumentRankValue(const std::vector<std::pair<uint32_t, float>>& ranks, const bool& cancel);
    void PreCommit(const bool& cancel);
    // Replays the log, first cutting both files back to the sizes it was begun with, so it repeats safely.
    void Commit(const bool& cancel);
    void Rollback();
    void ForceQuit();
    void RecoveryDone();
    // Rebuilds the weight table from ".dix".
    void LoadWeights();

    using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;
    // Compaction: writes into the folder `path` a store without the documents of `deletedDocuments` (ascending),
    // each kept one taking the next id, and this store's items of "Index.info" into `infoStream`, with no
    // deletions left in them. Without deletions and pairs the files are copied as they are.
    void Shrink(const std::u16string& path, Vantu::BaseBinaryStream& infoStream,
                const Vantu::FastVector<unsigned int>& deletedDocuments, const Pairs& documentPairs,
                const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log, const bool& cancel);

    // "Index.info" items 2 to 5: the collections with the running transaction folded in, and the deleted bits.
    void SaveInfo(SarIndexInfo& info) const;
    void LoadInfo(const SarIndexInfo& info);

    // Null for a blank record or an id past the end of ".dix".
    Vantu::SmartPtrToConst<IndexedDocument> LoadDocument(uint32_t documentId);
    // Copies the document's word list, one zlib unit, to `output`.
    void LoadWCLBuffer(uint32_t documentId, Vantu::BaseBinaryStreamBuf& output);
    // The id has a record in ".dix".
    bool IsDocumentValid(uint32_t documentId) const;
    // False only for a blank record; an id past the end counts as indexed.
    bool DocumentIsIndexed(uint32_t documentId) const;
    // All zero past the table. Takes the read side of the table's lock itself; a caller reading many weights
    // may hold ReadLockCache around them, but must not load documents meanwhile (".dix" comes before the table).
    RankingEngineDocWeight GetDocumentWeight(uint32_t documentId) const;
    void ReadLockCache() const { weightsLock_.ReadLock(); }
    void ReadUnlockCache() const { weightsLock_.ReadUnlock(); }
    // A copy: the reader thread goes on setting bits while a query uses it.
    VantuAlgo::BitVector GetDeletedDocuments() const;
    uint32_t GetNumberOfDocuments() const { return numberOfDocuments_.load(std::memory_order_relaxed); }
    // Zeroes the stored numbers of every entry of `statistics`, then sets those of the collections held here.
    void GetStatistics(SarvaneSliceStatistics& statistics) const;
    uint64_t GetDiskSpaceUsed() const;

private:
    using IndexFile = VantuFile::LockingCFileGrowT<unsigned int>;
    using DataFile = VantuFile::LockingCFileGrowT<uint64_t>;
    using Lock = std::lock_guard<VantuThread::CriticalSection>;
    using Statistics = std::map<uint16_t, SarvaneCollectionStatistics>;
    using WeightChunk = Vantu::FastVector<RankingEngineDocWeight>;

    IndexFileStruct ReadRecord(uint32_t documentId);
    void ReadRecords(uint32_t first, uint32_t count, Vantu::FastVector<IndexFileStruct>& records);
    void WriteRecords(uint32_t opcode, uint32_t first, const Vantu::FastVector<IndexFileStruct>& records);
    void LoadDocumentFromDisk(const IndexFileStruct& record, IndexedDocument& document);
    void WriteDocument(IndexFileStruct& record, Vantu::BinaryStreamT<unsigned int>& stream, uint32_t wordsSize);
    void FlushIndexCache();
    // Blanks the records of deleted documents in a round of a rank update; true when one changed.
    bool BlankDeleted(uint32_t first, Vantu::FastVector<IndexFileStruct>& round) const;
    // Adds the record's word list to `words`; returns the list's size.
    uint32_t ReadWords(const IndexFileStruct& record, std::map<std::u16string, uint32_t>& words);
    void SetWeight(uint32_t documentId, const RankingEngineDocWeight& weight);
    // Applies one log record; false at the end of the log.
    bool ApplyRecord(SarTransaction::Stream& log, bool& ranksChanged);
    void AddDocumentFromTransaction(SarTransaction::Stream& log);
    void DeleteDocumentFromTransaction(uint32_t documentId, uint32_t indexOffset);
    void UpdateIndexFromTransaction(SarTransaction::Stream& log);
    void ResetReader();
    void CopyFiles(const std::string& targetBase, Vantu::BaseBinaryStream& infoStream);
    // Appends the block of `record` to `output`; returns its length.
    uint64_t CopyBlock(const IndexFileStruct& record, Vantu::BaseBinaryStreamBuf& output);

    const Vantu::SmartPtr<SarvaneInternalConfig> config_;
    const bool readOnly_;
    const std::string basePath_;
    std::atomic<uint32_t> numberOfDocuments_{0};
    Statistics collectionStatistics_;
    Statistics transactionStatistics_;

    mutable IndexFile indexFile_;
    uint32_t indexEnd_ = 0;
    mutable DataFile dataFile_;
    VantuFile::PersistentEmptyListT<uint64_t> emptyList_;
    VantuCompression::ZLib zlib_{1, 6, 15};
    VantuFile::ICFileBufferT<uint64_t, DataFile> dataInput_;
    VantuCompression::ICompressedBufferT<uint64_t> inflater_;
    Vantu::BinaryStreamT<uint64_t> documentStream_;
    SarFileBuffer fileBuffer_;
    uint64_t dataEnd_ = 0;

    mutable std::mutex deletedLock_;
    VantuAlgo::BitVector deletedDocuments_;

    std::vector<std::unique_ptr<WeightChunk>> weights_;
    uint32_t weightCount_ = 0;
    mutable VantuThread::ReadWriteSemaphore weightsLock_;

    SarTransaction transaction_;
    std::unique_ptr<Vantu::FastVector<IndexFileStruct>> indexCache_;
    uint32_t indexCacheStart_ = kNoDocument;
};

}  // namespace Ostrel
