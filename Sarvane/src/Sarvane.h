// One slice: a self-contained index in its own directory, started and stopped by its container, with a
// reader thread "TransactionReader" that applies finished transactions. Any thread; the slice guards itself.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "Document.h"
#include "FileTransactionsWriter.h"
#include "SarIndexInfo.h"
#include "IndexedDocumentWeight.h"
#include "RankingEngineConfig.h"
#include "SarQueryCache.h"
#include "SarSliceStores.h"
#include "SarTransaction.h"
#include "SarvaneStatistics.h"
#include "SarvaneCallInterface.h"
#include "SarvaneInternalConfig.h"
#include "core/EventSemaphore.h"
#include "core/LogCallInterface.h"
#include "core/ReadWriteSemaphore.h"
#include "core/RefCounted.h"
#include "core/Thread.h"

namespace Ostrel {

class FileTransactionsReader;

class Sarvane : public SarvaneCallInterface {
public:
    // Copies the configuration and creates the index directory; opens no store.
    explicit Sarvane(const SarvaneConfig& config);
    ~Sarvane() override;
    Sarvane(const Sarvane&) = delete;
    Sarvane& operator=(const Sarvane&) = delete;

    void Start(bool readOnly) override;
    // Works in any state and raises nothing of its own; a second Stop does nothing.
    void Stop(bool abortTransaction) override;
    void DeleteIndex() override;
    void Initialize(Vantu::LogCallInterface* log) override;
    void PreCommit() override;
    void Commit() override;
    void DoRecovery(bool recover) override;
    void DeleteDocuments(const std::vector<std::pair<unsigned int, uint16_t>>& documents) override;
    unsigned int GetPendingTransactions() const override;
    void GetStatistics(SarvaneStatistics& out) const override;
    void ApplyShrink() override;
    void CancelShrink() override;
    void DeleteShrink() override;
    void SetSarvaneConfig(const SarvaneConfig& config) override;
    void AddFixedResult(const std::u16string& query, const std::u16string& uri, uint16_t order,
                        unsigned int documentId, uint16_t collection, uint16_t source) override;
    void ClearFixedResults() override;
    // Waits until the reader has applied every finished transaction; a reader that died raises its failure.
    void Flush() override;
    void ClearFieldAliases() override;
    void AddFieldAlias(const std::u16string& alias, const std::u16string& field) override;
    unsigned char GetCustomFieldType(const std::string& field) const override;
    bool IsCustomFieldRankable(const std::string& field) const override;
    void AddSupportedCollection(uint16_t collection) override;
    void RemoveSupportedCollection(uint16_t collection) override;
    void CheckForRecovery() const override;
    std::u16string GetHostName() const override;
    uint64_t GetDiskSpaceUsed() const override;
    bool HasEnoughFreeSpaceToShrink() const override;
    std::u16string GetIndexFilesPath() const override;

    // Intake, on a started, writable slice: each call goes to the open transaction, made on the first change
    // after a commit. A document with a skip code, or one that comes after Stop, is dropped without a word;
    // the document's streams are released once the transaction holds them. Returns the slice's document id,
    // or 0xFFFFFFFF when nothing was added.
    uint32_t AddDocument(const Vantu::SmartPtr<Document>& document, uint32_t indexDocumentId);
    // Pairs of (index document id, rank), ascending by id.
    void UpdateDocumentsRank(const std::vector<std::pair<uint32_t, float>>& ranks);
    // The next document id the slice will give.
    uint32_t GetCurrentDocumentID() const;
    // The documents of the committed counters, as the document store holds them.
    uint32_t GetNumberOfDocuments() const;

    // Answers a query from the slice's documents of `collections` (all when empty): records `first` to
    // first + count of the ranked list (at most 1000 in all), from the cache when a query with the same text,
    // order, language, collections and identities was answered since the last change. The exact text
    // "@dumpcache" also writes "DumpCache.txt". True when a duplicate was dropped. Any thread.
    bool PerformQuery(const std::u16string& query, const std::u16string& extraQuery,
                      const std::vector<SarcIdentity>& networkIds, const std::vector<uint16_t>& collections,
                      std::vector<IndexedDocumentWeight>& results, unsigned first, unsigned count, bool filterDuplicates,
                      bool optimization, SortCriteria sortCriteria, const std::u16string& preferredLanguage,
                      QueryAnswer& answer) const override;
    // The stored document of `id`, the slice's own when `idIsInternal`, else an index document id; null when
    // there is none. Any thread.
    Vantu::SmartPtrToConst<IndexedDocument> LoadDocument(unsigned int id, const std::vector<SarcIdentity>& networkIds,
                                                         bool idIsInternal) const override;

    // The reader's steps of a transaction's life: write "Index.info.new", make it "Index.info", load the
    // counters back from disk, and the end of recovery. Each needs a started, writable slice.
    void PreCommitFromReader();
    void CommitFromReader();
    void RollbackFromReader();
    void RecoveryDoneFromReader();

    bool IsStarted() const { return started_; }
    // From the first step of Stop on; an aborting stop has set its flag before.
    bool IsStopping() const { return stopFlag_; }
    bool IsReadOnly() const { return readOnly_; }
    void AddDocumentContainingShingle() { ++documentsWithShingles_; }
    void DeleteDocumentContainingShingle() { --documentsWithShingles_; }
    int32_t GetDocumentsWithShingles() const { return documentsWithShingles_; }

private:
    std::string Directory() const;
    void CreateIndexPath() const;
    void ReadInfoFile(bool versionOnly);
    void SaveInfoFile(bool direct);
    void CheckWritable() const;
    // The open transaction, made with the next free number when there is none. Under writerLock_.
    FileTransactionsWriter& GetTransactionWriter();
    void StartTransactionsReader();
    // The reader thread: settles what a crash left (a failure there reaches Start), then applies the
    // transactions in number order until the slice stops.
    void* ReadTransactions(void*);
    void RunReaderLoop(FileTransactionsReader& reader);
    std::vector<std::string> ListTransactions() const;
    void CountPendingTransactions();
    // Copies the stored per-collection numbers into statistics_; the pending ones stay. Under statisticsLock_.
    void RefreshStoredStatistics() const;
    // Keeps what ended the reader and releases everyone who waits on it.
    void ReaderFailed(std::exception_ptr failure);
    // The query path's steps, under the read side of filesLock_.
    QueryCacheEntry ComputeAnswer(const std::u16string& text, const VantuAlgo::BitVector& allowed, bool optimization,
                                  SortCriteria sortCriteria, const std::u16string& preferredLanguage,
                                  unsigned maximumTerms, unsigned wanted) const;
    // The records of the range from a ranked list; true when a duplicate was dropped.
    bool CollectResults(const QueryCacheEntry& entry, bool useDuplicateFilter, uint32_t duplicateFactor, unsigned first,
                        unsigned count, SortCriteria sortCriteria, std::vector<IndexedDocumentWeight>& results,
                        QueryAnswer& answer) const;
    void WriteCacheDump() const;
    void RethrowReaderFailure() const;

    // Plain flags, polled across threads, each paired with the event that wakes the poller.
    std::atomic<bool> stopFlag_{false};
    std::atomic<bool> abortFlag_{false};
    std::atomic<bool> readerExitFlag_{false};
    std::atomic<bool> flushRequested_{false};
    std::atomic<bool> readOnly_{false};
    std::atomic<bool> cancelShrink_{false};
    // Whether stores_ is set: set by Start once the stores exist, cleared by Stop before they go.
    std::atomic<bool> started_{false};
    std::atomic<int32_t> documentsWithShingles_{0};

    Vantu::SmartPtr<Vantu::LogCallInterface> log_;
    const Vantu::SmartPtr<SarvaneInternalConfig> config_;
    // The counters of "Index.info" as last read or written; the stores fill their items at each save and take
    // them back at each load.
    SarIndexInfo info_;

    // One Flush waits at a time: the reader answers a drain with one signal.
    std::mutex flushLock_;

    VantuThread::EventSemaphore transactionsEvent_{true, false};
    VantuThread::EventSemaphore readerStartedEvent_{true, false};
    VantuThread::EventSemaphore flushDoneEvent_{false, false};
    Vantu::RefCount<VantuThread::Thread> readerThread_;
    // What ended the reader (T2); guarded by statisticsLock_.
    std::exception_ptr readerFailure_;

    // Held exclusively while the stores are made or released, shared by whoever uses them.
    mutable VantuThread::ReadWriteSemaphore filesLock_;
    std::unique_ptr<SarSliceStores> stores_;
    // The open transaction, null between a commit and the next change; writerLock_ orders every call on it.
    Vantu::SmartPtr<FileTransactionsWriter> writer_;
    std::mutex writerLock_;
    SarTransactionCounter transactionCounter_;
    std::set<uint16_t> supportedCollections_;
    mutable std::mutex collectionsLock_;
    // The stored numbers come from the stores at each GetStatistics; the pending ones are kept here by the
    // transaction writer and the reader.
    mutable SarvaneSliceStatistics statistics_;
    uint32_t pendingTransactions_ = 0;
    // Guards statistics_, pendingTransactions_, readerFailure_ and the loading of info_. Taken after filesLock_,
    // and before the query cache's lock.
    mutable std::mutex statisticsLock_;
    // Emptied whenever answers could change: at Start, on rank updates, after each applied transaction.
    mutable SarQueryCache queryCache_;
    // The query path's language and stop words, taken from the configuration at Start, and the ranking's.
    std::unique_ptr<VantuLanguage::Language> language_;
    VantuLanguage::StopWords stopWords_;
    RankingEngineConfig rankingConfig_;
};

}  // namespace Ostrel
