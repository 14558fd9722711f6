// Applies a slice's finished transactions to its stores, one at a time, and settles by file names what a crash
// left: ".trd" rolls back, ".trb" commits again. The slice's reader thread only; its helper thread
// "Reader: ApplyTerms" writes the postings of the large terms while the reader goes on through the file.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "FileIndexedTerms.h"
#include "SarSliceStores.h"
#include "SarTransaction.h"
#include "SarTransactionRecords.h"
#include "SarvaneInternalConfig.h"
#include "SarvaneStatistics.h"
#include "core/EventSemaphore.h"
#include "core/LogCallInterface.h"
#include "core/LogEntryCallInterface.h"
#include "core/RefCounted.h"
#include "core/Thread.h"
#include "store/BitVector.h"

namespace Ostrel {

class Sarvane;

class FileTransactionsReader {
public:
    // Settles what a crash left (a ".trd" rolls back to a pending transaction, a ".trb" commits again), ends the
    // stores' recovery, then starts the helper thread. `cancel` is the slice's abort flag: when it is set the work
    // stops early, and the name of the file tells the next start what to do.
    FileTransactionsReader(Sarvane& engine, SarSliceStores& stores, const Vantu::SmartPtr<SarvaneInternalConfig>& config,
                           const std::atomic<bool>& cancel, const Vantu::SmartPtr<Vantu::LogCallInterface>& log);
    // Ends the helper thread.
    ~FileTransactionsReader();
    FileTransactionsReader(const FileTransactionsReader&) = delete;
    FileTransactionsReader& operator=(const FileTransactionsReader&) = delete;

    // The whole of one transaction "X": X becomes X.trd while the stores take it, X.trb once they pre-committed,
    // and goes (or moves to "Transactions") once they committed; then the pending counters of its collections
    // drop under `statisticsSection`. A store's failure leaves X.trd, which the next start rolls back. False when
    // a stop cut it short.
    bool ApplyTransaction(const std::string& path, SarvaneSliceStatistics& statistics, std::mutex& statisticsSection);

    // Whether a transaction was being applied or committed when the slice stopped.
    static bool CheckForRecovery(const SarvaneInternalConfig& config);

private:
    // One term of a transaction: its id once the dictionary gave it, and its operations.
    struct OperationTransactionStruct {
        uint32_t termId = 0xFFFFFFFF;
        FileIndexedTerms::Operations operations;
    };

    void Recover();
    // Refreshes cancel_ from the slice's flag; true once it is set.
    bool Cancelled();
    void BeginTransaction();
    void PreCommitStores();
    // False when a stop cut it short.
    bool CommitStores(const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& entry);
    void RollbackStores();
    void ForceQuitStores();
    void Dispose(const std::string& trbPath);

    uint32_t ReadDocuments(SarTransaction::Stream& stream, const std::set<uint32_t>& removed);
    void SkipDocument(SarTransaction::Stream& stream);
    void ReadCustomFields(SarTransaction::Stream& stream, uint32_t documentId, bool keep);
    // Reads a term section's two counts and makes the arrays that its tables fill.
    void AllocateSection(SarTransaction::Stream& stream);
    void ReadTermSection(SarTransaction::Stream& stream);
    void ReadCustomFieldTermSection(SarTransaction::Stream& stream);
    // Reads one term table into the section's arrays; `field` is empty for the words of the text.
    void ReadTermTable(SarTransaction::Stream& stream, const std::string& field);
    void ReadFieldDocumentLists(SarTransaction::Stream& stream);
    void SkipWords(SarTransaction::Stream& stream);
    void ReadRanks(SarTransaction::Stream& stream);
    void ReadDeletions(SarTransaction::Stream& stream);
    void FreeBlocks();

    void* ApplyTermsOperationsThread(void*);
    void ApplyQueue();

    Sarvane& engine_;
    SarSliceStores& stores_;
    const Vantu::SmartPtr<SarvaneInternalConfig> config_;
    const std::atomic<bool>& cancelFlag_;
    // What the stores are handed: set once cancelFlag_ was seen set, only by the reader thread.
    bool cancel_ = false;
    const bool keepTransactions_;
    const bool securityEnabled_;
    const Vantu::SmartPtr<Vantu::LogCallInterface> log_;

    // The arrays of the transaction in work: one block of operations and one of position data per term section
    // (the counts ahead of each section size them), one block of terms per term table.
    std::vector<std::unique_ptr<TransactionTermOperation[]>> operationBlocks_;
    std::vector<std::unique_ptr<uint8_t[]>> dataBlocks_;
    std::vector<std::unique_ptr<OperationTransactionStruct[]>> termBlocks_;
    // Room left in the newest blocks, so that a bad count can't write past them.
    uint32_t operationsLeft_ = 0;
    uint32_t bytesLeft_ = 0;
    TransactionTermOperation* nextOperation_ = nullptr;
    uint8_t* nextData_ = nullptr;
    // The deleted documents as they stood before this transaction's deletions: the postings helper filters
    // rewritten postings by this copy while the reader goes on deleting (D7).
    VantuAlgo::BitVector deletedSnapshot_;

    // The helper's work: filled only while it waits on applyRequested_, emptied only by it, so it needs no lock.
    std::vector<OperationTransactionStruct*> queue_;
    VantuThread::EventSemaphore applyRequested_{true, false};
    VantuThread::EventSemaphore applyDone_{true, true};
    std::atomic<bool> stopping_{false};
    // What ended the helper; read by the reader after applyDone_.
    std::exception_ptr helperFailure_;
    Vantu::RefCount<VantuThread::Thread> helperThread_;
};

}  // namespace Ostrel
