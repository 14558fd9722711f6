#include "FileTransactionsReader.h"

#include <algorithm>
#include <filesystem>

#include "Sarvane.h"
#include "SarException.h"
#include "SarLog.h"
#include "SarStoreFiles.h"
#include "SarThreads.h"
#include "SarvaneConfigLock.h"
#include "core/LogEntry.h"
#include "core/LogEntryProgressWrapper.h"
#include "core/Text.h"
#include "file/BinaryStreamException.h"
#include "file/FileException.h"
#include "file/FaultInjector.h"
#include "file/FileSystem.h"

namespace Ostrel {

namespace {

using ConfigRead = SarvaneConfigReadLock<SarvaneInternalConfig>;

template <class T>
T ConfigValue(const SarvaneInternalConfig& config, T (SarvaneConfig::*get)() const) {
    ConfigRead hold(config);
    return (config.*get)();
}

std::string IndexDirectory(const SarvaneInternalConfig& config) {
    return ConfigValue(config, &SarvaneConfig::GetIndexFilesPathAsString);
}

std::string FileName(const std::string& path) { return std::filesystem::path(path).filename().string(); }

std::string WithoutState(const std::string& path) { return path.substr(0, path.find_last_of('.')); }

Vantu::SmartPtr<Vantu::LogEntry> OpenEntry(const SarvaneInternalConfig& config,
                                           const Vantu::SmartPtr<Vantu::LogCallInterface>& log,
                                           const std::u16string& text) {
    return new Vantu::LogEntry(log, SarLogPrefix(config) + text, Vantu::LogEntryCallInterface::Normal);
}

std::string Narrow(const char16_t* text) { return Vantu::ToUtf8(text); }

// Reads and drops `size` bytes: a compressed stream can't seek.
void Skip(SarTransaction::Stream& stream, uint64_t size) {
    uint8_t scratch[0x4000];
    for (; size != 0; size -= std::min<uint64_t>(size, sizeof scratch))
        stream.GetExact(scratch, size_t(std::min<uint64_t>(size, sizeof scratch)));
}

[[noreturn]] void ThrowDamaged(const std::string& what) {
    Vantu::ThrowStream<Vantu::BinaryStreamException>("Transaction file damaged: " + what);
}

}  // namespace

FileTransactionsReader::FileTransactionsReader(Sarvane& engine, SarSliceStores& stores,
                                               const Vantu::SmartPtr<SarvaneInternalConfig>& config,
                                               const std::atomic<bool>& cancel,
                                               const Vantu::SmartPtr<Vantu::LogCallInterface>& log)
    : engine_(engine),
      stores_(stores),
      config_(config),
      cancelFlag_(cancel),
      keepTransactions_(ConfigValue(*config, &SarvaneConfig::GetTransactionsKeep)),
      securityEnabled_(ConfigValue(*config, &SarvaneConfig::GetDocumentLevelSecurity)),
      log_(log) {
    Recover();
    helperThread_ = SarStartThread(kApplyTermsThreadName,
                                   VantuThread::MakeFunction(this, &FileTransactionsReader::ApplyTermsOperationsThread),
                                   ConfigValue(*config_, &SarvaneConfig::GetIndexingPriority));
}

FileTransactionsReader::~FileTransactionsReader() {
    stopping_ = true;
    applyRequested_.Post();
    helperThread_ = nullptr;
}

bool FileTransactionsReader::CheckForRecovery(const SarvaneInternalConfig& config) {
    const std::string directory = IndexDirectory(config);
    return !VantuFile::ListFiles(directory, "*.trd").empty() || !VantuFile::ListFiles(directory, "*.trb").empty();
}

bool FileTransactionsReader::Cancelled() {
    if (cancelFlag_.load()) cancel_ = true;
    return cancel_;
}

void FileTransactionsReader::Recover() {
    const std::string directory = IndexDirectory(*config_);
    // A slice applies one transaction at a time, so there is never more than one of each.
    if (const auto applying = VantuFile::ListFiles(directory, "*.trd"); !applying.empty()) {
        const std::string& path = applying.front();
        OpenEntry(*config_, log_, SAR_MESSAGE(38, Vantu::FromUtf8(FileName(WithoutState(path))))->GetMsg())->Close();
        RollbackStores();
        VantuFile::RenameDurably(path, WithoutState(path));
    }
    if (const auto committing = VantuFile::ListFiles(directory, "*.trb"); !committing.empty()) {
        const std::string& path = committing.front();
        Vantu::SmartPtr<Vantu::LogEntry> entry =
            OpenEntry(*config_, log_, SAR_MESSAGE(35, Vantu::FromUtf8(FileName(WithoutState(path))))->GetMsg());
        if (CommitStores(entry)) Dispose(path);
        entry->Close();
    }
    engine_.RecoveryDoneFromReader();
    stores_.RecoveryDone();
}

void FileTransactionsReader::BeginTransaction() {
    stores_.documents->BeginTransaction();
    stores_.collections->BeginTransaction();
    stores_.lexicon->BeginTransaction();
}

void FileTransactionsReader::PreCommitStores() {
    if (Cancelled()) return;
    engine_.PreCommitFromReader();
    if (Cancelled()) return;
    stores_.lexicon->PreCommit(cancel_);
    if (Cancelled()) return;
    stores_.documents->PreCommit(cancel_);
    if (Cancelled()) return;
    stores_.collections->PreCommit(cancel_);
}

bool FileTransactionsReader::CommitStores(const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& entry) {
    engine_.CommitFromReader();
    if (Cancelled()) return false;
    stores_.lexicon->Commit(cancel_, new Vantu::LogEntryProgressWrapper(entry, 0.0, 0.85));
    entry->SetProgress(0.85);
    if (Cancelled()) return false;
    stores_.documents->Commit(cancel_);
    entry->SetProgress(0.9);
    if (Cancelled()) return false;
    stores_.collections->Commit(cancel_);
    entry->SetProgress(0.92);
    return !Cancelled();
}

void FileTransactionsReader::RollbackStores() {
    stores_.documents->Rollback();
    stores_.collections->Rollback();
    stores_.lexicon->Rollback();
    engine_.RollbackFromReader();
}

void FileTransactionsReader::ForceQuitStores() {
    stores_.documents->ForceQuit();
    stores_.collections->ForceQuit();
    stores_.lexicon->ForceQuit();
}

void FileTransactionsReader::Dispose(const std::string& trbPath) {
    const std::string name = WithoutState(trbPath);
    if (!keepTransactions_) return VantuFile::DeleteDurably(trbPath);
    const std::filesystem::path kept = std::filesystem::path(name).parent_path() / Narrow(kTransactionsFolder);
    if (!std::filesystem::is_directory(kept)) {
        std::error_code error;
        std::filesystem::create_directory(kept, error);
        if (error) VantuFile::ThrowFileError(VantuFile::kActionOpenWrite, kept.string(), error.value());
        VantuFile::SyncDirectoryOf(kept.string());
    }
    VantuFile::RenameDurably(trbPath, (kept / FileName(name)).string());
}

bool FileTransactionsReader::ApplyTransaction(const std::string& path, SarvaneSliceStatistics& statistics,
                                              std::mutex& statisticsSection) {
    VantuFile::CrashPoint("FileTransactionsReader: applying");
    const std::string applying = path + Narrow(kTransactionBeingApplied);
    VantuFile::RenameDurably(path, applying);
    Vantu::SmartPtr<Vantu::LogEntry> entry =
        OpenEntry(*config_, log_, SAR_MESSAGE(0, Vantu::FromUtf8(FileName(path)))->GetMsg());
    const TransactionTrailer trailer = TransactionTrailer::Read(applying);
    const std::set<uint32_t> removed(trailer.removed.begin(), trailer.removed.end());
    {
        // Its end is the end of the deletions: nothing behind them is read.
        SarTransaction transaction(Vantu::FromUtf8(applying), true);
        transaction.Open(true);
        BeginTransaction();
        Vantu::SmartPtr<Vantu::LogEntryCallInterface> progress = new Vantu::LogEntryProgressWrapper(entry, 0.0, 0.5);
        SarTransaction::Stream& stream = transaction.GetStream();
        const auto report = [&] { progress->SetProgress(transaction.GetBytesReadPct()); };
        const uint32_t records = Cancelled() ? 0 : ReadDocuments(stream, removed);
        report();
        deletedSnapshot_ = stores_.documents->GetDeletedDocuments();
        stores_.terms->SetTotalNumberOfDocuments(stores_.documents->GetNumberOfDocuments() + records);
        stores_.terms->SetDeletedDocumentsVector(deletedSnapshot_);
        if (!Cancelled()) ReadTermSection(stream);
        report();
        if (!Cancelled()) ReadCustomFieldTermSection(stream);
        report();
        // The helper writes the postings while the rest goes to the other stores.
        applyDone_.Reset();
        applyRequested_.Post();
        if (!Cancelled()) ReadFieldDocumentLists(stream);
        if (!Cancelled()) SkipWords(stream);
        if (!Cancelled()) ReadRanks(stream);
        report();
        if (!Cancelled()) ReadDeletions(stream);
        report();
    }
    applyDone_.Wait();
    FreeBlocks();
    // A failed postings write must never reach ".trb": the file stays ".trd" and rolls back (T2).
    if (helperFailure_) std::rethrow_exception(std::exchange(helperFailure_, nullptr));
    if (Cancelled()) {
        RollbackStores();
        VantuFile::RenameDurably(applying, path);
        entry->Cancel();
        return false;
    }
    PreCommitStores();
    if (Cancelled()) {
        ForceQuitStores();
        return false;
    }
    VantuFile::CrashPoint("FileTransactionsReader: stores pre-committed");
    const std::string committing = path + Narrow(kTransactionStoresCommitting);
    VantuFile::RenameDurably(applying, committing);
    if (!CommitStores(new Vantu::LogEntryProgressWrapper(entry, 0.5, 0.5))) {
        ForceQuitStores();
        return false;
    }
    Dispose(committing);
    {
        std::lock_guard<std::mutex> hold(statisticsSection);
        for (const auto& [id, counts] : trailer.collections) {
            SarvaneCollectionStatistics& collection = statistics.collections[id];
            collection.pendingAdded -= counts.first;
            collection.pendingDeleted -= counts.second;
        }
    }
    entry->Close();
    return true;
}

uint32_t FileTransactionsReader::ReadDocuments(SarTransaction::Stream& stream, const std::set<uint32_t>& removed) {
    uint32_t records = 0;
    uint8_t opcode;
    for (stream >> opcode; opcode == kTransactionDocumentOpcode && !Cancelled(); stream >> opcode, ++records) {
        uint32_t id;
        uint8_t shingles;
        uint16_t collection;
        stream >> id >> shingles >> collection;
        const bool keep = removed.count(id) == 0;
        // Only a document that reaches the store is counted: nothing would take a removed one out again.
        if (shingles && keep) engine_.AddDocumentContainingShingle();
        if (keep)
            stores_.documents->AddDocument(id, collection, stream);
        else
            SkipDocument(stream);
        ReadCustomFields(stream, id, keep);
        if (securityEnabled_) {
            // The access lists wait for the slice's access-list store; they are read to keep the stream's place.
            for (int list = 0; list < 2; ++list) {
                uint32_t count;
                stream >> count;
                for (uint32_t i = 0; i < count; ++i) {
                    std::u16string identity;
                    stream >> identity;
                }
            }
        }
        if (keep) stores_.collections->AddDocument(id, collection);
    }
    return records;
}

void FileTransactionsReader::SkipDocument(SarTransaction::Stream& stream) {
    uint32_t size, storedSize, wordsSize;
    uint8_t signature[15];
    stream >> size;
    stream.GetExact(signature, sizeof signature);
    stream >> storedSize >> wordsSize;
    Skip(stream, storedSize);
    // The word list counts only for the word corrector, which this slice doesn't keep.
    stream >> wordsSize;
    Skip(stream, wordsSize);
}

void FileTransactionsReader::ReadCustomFields(SarTransaction::Stream& stream, uint32_t documentId, bool keep) {
    uint32_t count;
    stream >> count;
    for (uint32_t i = 0; i < count; ++i) {
        CustomField field;
        stream >> field;
        if (!keep) continue;
        try {
            stores_.lexicon->AddCustomField(field, documentId);
        } catch (const SarInvalidCustomField& e) {
            // A field that changed its type is left out of this document; the others go on.
            if (log_) log_->AddEntry(e.What(), Vantu::LogEntryCallInterface::Error);
        }
    }
}

void FileTransactionsReader::AllocateSection(SarTransaction::Stream& stream) {
    stream >> operationsLeft_ >> bytesLeft_;
    operationBlocks_.emplace_back(new TransactionTermOperation[operationsLeft_]);
    dataBlocks_.emplace_back(new uint8_t[bytesLeft_]);
    nextOperation_ = operationBlocks_.back().get();
    nextData_ = dataBlocks_.back().get();
}

void FileTransactionsReader::ReadTermSection(SarTransaction::Stream& stream) {
    AllocateSection(stream);
    ReadTermTable(stream, {});
}

void FileTransactionsReader::ReadCustomFieldTermSection(SarTransaction::Stream& stream) {
    AllocateSection(stream);
    uint32_t fields;
    stream >> fields;
    for (uint32_t i = 0; i < fields && !Cancelled(); ++i) {
        std::string field;
        stream >> field;
        ReadTermTable(stream, field);
    }
}

void FileTransactionsReader::ReadTermTable(SarTransaction::Stream& stream, const std::string& field) {
    uint32_t count;
    stream >> count;
    if (count > operationsLeft_) ThrowDamaged("more terms than operations");
    termBlocks_.emplace_back(new OperationTransactionStruct[count]);
    OperationTransactionStruct* const terms = termBlocks_.back().get();
    uint32_t read = 0;
    for (; read < count && !Cancelled(); ++read) {
        OperationTransactionStruct& entry = terms[read];
        std::string term;
        uint32_t n;
        stream >> term >> n;
        if (n > operationsLeft_) ThrowDamaged("more operations than counted");
        if (field.empty()) {
            entry.termId = stores_.lexicon->AddTerm(term, n, false);
        } else {
            const CustomField value(field, CustomField::kString, CustomFieldValue(term), CustomField::kIndexed);
            entry.termId = stores_.lexicon->AddCustomField(value, Lexicon::kNoDocument);
        }
        entry.operations.reserve(n);
        for (uint32_t i = 0; i < n; ++i, ++nextOperation_, --operationsLeft_) {
            uint8_t head[TransactionTermOperation::kFileSize];
            stream.GetExact(head, sizeof head);
            *nextOperation_ = TransactionTermOperation::FromFile(head);
            const uint16_t length = nextOperation_->DataLength();
            if (length > bytesLeft_) ThrowDamaged("more position data than counted");
            stream.GetExact(nextData_, length);
            nextOperation_->SetData(nextData_, length);
            nextData_ += length;
            bytesLeft_ -= length;
            entry.operations.push_back(nextOperation_);
        }
    }
    if (Cancelled()) return;
    for (uint32_t i = 0; i < read; ++i)
        if (terms[i].termId != Term::kNoTermId) queue_.push_back(&terms[i]);
}

void FileTransactionsReader::ReadFieldDocumentLists(SarTransaction::Stream& stream) {
    uint32_t count;
    stream >> count;
    for (uint32_t i = 0; i < count && !Cancelled(); ++i) {
        std::string name;
        uint32_t n;
        stream >> name >> n;
        Vantu::FastVector<unsigned int> documents;
        documents.resize(n);
        for (unsigned int& id : documents) stream >> id;
        stores_.lexicon->AddDocumentsForTerm(name, documents);
    }
}

void FileTransactionsReader::SkipWords(SarTransaction::Stream& stream) {
    // The word corrector's counts: this slice keeps no word corrector yet.
    uint32_t count;
    stream >> count;
    for (uint32_t i = 0; i < count && !Cancelled(); ++i) {
        std::u16string word;
        uint32_t total;
        stream >> word >> total;
    }
}

void FileTransactionsReader::ReadRanks(SarTransaction::Stream& stream) {
    uint32_t count;
    stream >> count;
    if (count == 0) return;
    std::vector<std::pair<uint32_t, float>> ranks(count);
    for (auto& [id, rank] : ranks) stream >> id >> rank;
    stores_.documents->UpdateDocumentRankValue(ranks, cancel_);
}

void FileTransactionsReader::ReadDeletions(SarTransaction::Stream& stream) {
    uint32_t count;
    stream >> count;
    std::vector<std::pair<uint32_t, uint16_t>> deletions(count);
    for (auto& [id, collection] : deletions) {
        uint16_t unused;
        stream >> id >> collection >> unused;
    }
    std::map<std::u16string, uint32_t> words;
    for (const auto& [id, collection] : deletions) {
        if (Cancelled()) return;
        if (stores_.documents->DeleteDocument(id, words)) engine_.DeleteDocumentContainingShingle();
        stores_.collections->DeleteDocument(id, collection);
        // The word corrector would take the words out again; without it they only cost memory.
        words.clear();
    }
}

void FileTransactionsReader::FreeBlocks() {
    queue_.clear();
    termBlocks_.clear();
    operationBlocks_.clear();
    dataBlocks_.clear();
    operationsLeft_ = bytesLeft_ = 0;
    nextOperation_ = nullptr;
    nextData_ = nullptr;
}

void* FileTransactionsReader::ApplyTermsOperationsThread(void*) {
    try {
        // A stop of the slice only cuts the work short: the reader still waits for applyDone_.
        while (!stopping_) {
            applyRequested_.Wait();
            if (stopping_) break;
            SarLogged(log_, FileTransactionsReaderSuffix::ApplyTermsOperationsThread, [&] { ApplyQueue(); });
        }
    } catch (...) {
        // The thread ends here; the reader finds the failure once it is released (T2).
        helperFailure_ = std::current_exception();
        applyDone_.Post();
    }
    return nullptr;
}

void FileTransactionsReader::ApplyQueue() {
    // In term-id order the postings store walks its term index once, forward.
    std::sort(queue_.begin(), queue_.end(),
              [](const OperationTransactionStruct* a, const OperationTransactionStruct* b) { return a->termId < b->termId; });
    for (const OperationTransactionStruct* term : queue_) {
        if (stopping_ || cancelFlag_) break;
        stores_.terms->AddDocumentsForTerm(term->termId, term->operations);
        VantuFile::CrashPoint("FileTransactionsReader: term applied");
    }
    queue_.clear();
    applyRequested_.Reset();
    applyDone_.Post();
}

}  // namespace Ostrel
