#include "Sarvane.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "FileTransactionsReader.h"
#include "SarException.h"
#include "SarLog.h"
#include "SarStoreFiles.h"
#include "SarThreads.h"
#include "SarTransactionRecords.h"
#include "SarvaneConfigLock.h"
#include "core/Text.h"
#include "file/BinaryStreamException.h"
#include "file/FileException.h"
#include "file/FileSystem.h"

namespace Ostrel {

namespace {

using ConfigRead = SarvaneConfigReadLock<SarvaneInternalConfig>;
using ConfigWrite = SarvaneConfigWriteLock<SarvaneInternalConfig>;

// DeleteIndex removes the slice's files by these patterns, in this order. The companions of "Index.info"
// go with it: a ".new" one left behind would be read as the counters of the next index made here.
constexpr const char* kIndexFilePatterns[] = {
    "*.cache", "*.trs",      "*.trc",      "*.trd", "*.trb", "*.tc",  "*.trn", "*.ttp", "*.dix",
    "*.din",   "*.dtr",      "*.tix",      "*.tin", "*.tps", "*.ttr", "*.ltr", "*.lcf", "*.lci",
    "*.urd",   "*.uri",      "*.cix",      "*.cin", "*.ctr", "*.info", "*.info.new", "*.info.tmp",
    "*.osd",   "*.log",      "*.pty",      "*.sin", "*.six", "*.cor", "*.dat"};
constexpr const char* kTransactionFiles = "Index-*.trn";
constexpr const char* kTransactionsKept = "Transactions";


}  // namespace

Sarvane::Sarvane(const SarvaneConfig& config)
    : config_(new SarvaneInternalConfig(config)),
      queryCache_([this] { return SarStoreSize(*config_, SarvaneConfig::kQueryCacheSize); }) {
    CreateIndexPath();
}

Sarvane::~Sarvane() { Stop(false); }

std::string Sarvane::Directory() const {
    ConfigRead hold(*config_);
    return config_->GetIndexFilesPathAsString();
}

void Sarvane::CreateIndexPath() const {
    ConfigRead hold(*config_);
    const std::string directory = config_->GetIndexFilesPathAsString();
    if (std::filesystem::is_directory(directory)) return;
    if (mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST)
        VantuFile::ThrowFileError(VantuFile::kActionOpenWrite, directory);
    VantuFile::SyncDirectoryOf(directory);
}

void Sarvane::Initialize(Vantu::LogCallInterface* log) { log_ = log; }

void Sarvane::Start(bool readOnly) {
    if (started_) throw SarIndexAlreadyStarted();
    readerExitFlag_ = false;
    abortFlag_ = false;
    stopFlag_ = false;
    // An index of another version fails here, before anything in it is touched.
    ReadInfoFile(true);
    readOnly_ = readOnly;
    {
        ConfigRead hold(*config_);
        VantuThread::WriteLocker files(filesLock_);
        stores_ = std::make_unique<SarSliceStores>(config_, readOnly);
        language_ = std::make_unique<VantuLanguage::Language>(config_->GetStemmingType());
        stopWords_ = config_->GetStopWords();
        // Fresh stores start from zero counters, which a new "Index.info" records.
        info_ = SarIndexInfo();
        documentsWithShingles_ = 0;
        started_ = true;
    }
    ReadInfoFile(false);
    // The stores end their recovery once, with the counters loaded: on a writable slice the reader does it,
    // after it settled what a crash left.
    if (readOnly)
        stores_->RecoveryDone();
    else
        StartTransactionsReader();
    queryCache_.Clear();
}

void Sarvane::Stop(bool abortTransaction) {
    abortFlag_ = abortTransaction;
    flushRequested_ = false;
    readerExitFlag_ = true;
    stopFlag_ = true;
    transactionsEvent_.Post();
    flushDoneEvent_.Post();
    // Waits for the reader's end while holding nothing it could need (T1).
    readerThread_ = nullptr;
    // The stores go under filesLock_, so that no query holds one; an open transaction goes without PreCommit,
    // and recovery removes what it left.
    VantuThread::WriteLocker files(filesLock_);
    started_ = false;
    {
        std::lock_guard<std::mutex> hold(writerLock_);
        writer_ = nullptr;
    }
    stores_.reset();
}

void Sarvane::ReadInfoFile(bool versionOnly) {
    ConfigRead hold(*config_);
    const std::string path = SarIndexInfo::LoadPath(config_->GetIndexFilesPathAsString());
    if (path.empty()) {
        if (!versionOnly) SaveInfoFile(true);
        return;
    }
    if (versionOnly) return SarIndexInfo::CheckVersion(path);
    SarIndexInfo loaded;
    loaded.Load(path, config_->GetEnableWordCorrectorLexicon());
    std::lock_guard<std::mutex> statistics(statisticsLock_);
    info_ = std::move(loaded);
    documentsWithShingles_ = info_.documentsWithShingles;
    stores_->documents->LoadInfo(info_);
    stores_->lexicon->LoadInfo(info_);
}

void Sarvane::SaveInfoFile(bool direct) {
    ConfigRead hold(*config_);
    info_.documentsWithShingles = documentsWithShingles_;
    stores_->documents->SaveInfo(info_);
    stores_->lexicon->SaveInfo(info_);
    info_.Save(config_->GetIndexFilesPathAsString(), direct, config_->GetEnableWordCorrectorLexicon());
}

void Sarvane::CheckWritable() const {
    if (!started_) throw SarIndexNotStarted();
    if (readOnly_) throw SarIndexReadOnly();
}

void Sarvane::PreCommitFromReader() {
    CheckWritable();
    SaveInfoFile(false);
}

void Sarvane::CommitFromReader() {
    CheckWritable();
    SarIndexInfo::Commit(Directory());
    ReadInfoFile(false);
}

void Sarvane::RollbackFromReader() {
    CheckWritable();
    ReadInfoFile(false);
}

void Sarvane::RecoveryDoneFromReader() { CheckWritable(); }

void Sarvane::StartTransactionsReader() {
    // An old reader ends first.
    readerExitFlag_ = true;
    transactionsEvent_.Post();
    readerThread_ = nullptr;
    readerExitFlag_ = false;
    abortFlag_ = false;
    cancelShrink_ = false;
    {
        std::lock_guard<std::mutex> hold(statisticsLock_);
        readerFailure_ = nullptr;
    }
    {
        ConfigRead hold(*config_);
        readerStartedEvent_.Reset();
        readerThread_ = SarStartThread(kTransactionReaderThreadName,
                                       VantuThread::MakeFunction(this, &Sarvane::ReadTransactions),
                                       config_->GetIndexingPriority());
    }
    // Outside the configuration's lock: the reader's recovery reads the configuration, and a writer
    // waiting for that lock would hold the reader back (T1).
    readerStartedEvent_.Wait();
    RethrowReaderFailure();
}

void* Sarvane::ReadTransactions(void*) {
    try {
        SarLogged(log_, SarvaneSuffix::ReadTransactions, [&] {
            // Its construction settles what a crash left in the stores.
            FileTransactionsReader reader(*this, *stores_, config_, abortFlag_, log_);
            // Counted before Start returns, so that a started slice already reports what it found.
            CountPendingTransactions();
            readerStartedEvent_.Post();
            RunReaderLoop(reader);
        });
    } catch (...) {
        ReaderFailed(std::current_exception());
    }
    return nullptr;
}

std::vector<std::string> Sarvane::ListTransactions() const {
    std::vector<std::string> transactions = VantuFile::ListFiles(Directory(), kTransactionFiles);
    // The numbers are zero-padded, so the names sort as the numbers do.
    std::sort(transactions.begin(), transactions.end());
    return transactions;
}

void Sarvane::CountPendingTransactions() {
    const std::vector<std::string> transactions = ListTransactions();
    std::lock_guard<std::mutex> hold(statisticsLock_);
    RefreshStoredStatistics();
    for (auto& [id, collection] : statistics_.collections) collection.pendingAdded = collection.pendingDeleted = 0;
    for (const std::string& path : transactions)
        for (const auto& [id, counts] : TransactionTrailer::Read(path).collections) {
            statistics_.collections[id].pendingAdded += counts.first;
            statistics_.collections[id].pendingDeleted += counts.second;
        }
    pendingTransactions_ = uint32_t(transactions.size());
}

void Sarvane::RunReaderLoop(FileTransactionsReader& reader) {
    std::vector<std::string> pending;  // in number order
    while (!readerExitFlag_) {
        // Read before looking for work, so that a flush asked for after an empty look waits for the next (T3).
        const bool flushWanted = flushRequested_;
        if (pending.empty()) pending = ListTransactions();
        if (pending.empty()) {
            if (flushWanted && flushRequested_.exchange(false)) flushDoneEvent_.Post();
        } else {
            const std::string path = pending.front();
            pending.erase(pending.begin());
            if (!reader.ApplyTransaction(path, statistics_, statisticsLock_)) break;
            std::lock_guard<std::mutex> hold(statisticsLock_);
            --pendingTransactions_;
            queryCache_.Clear();
            continue;
        }
        if (readerExitFlag_) break;
        transactionsEvent_.Wait();
        // A commit that signalled before this reset renamed its file before: the next listing finds it.
        if (!readerExitFlag_) transactionsEvent_.Reset();
    }
}

void Sarvane::ReaderFailed(std::exception_ptr failure) {
    {
        std::lock_guard<std::mutex> hold(statisticsLock_);
        readerFailure_ = failure;
    }
    // Whoever waits on the reader wakes and finds the failure (T2).
    flushRequested_ = false;
    flushDoneEvent_.Post();
    readerStartedEvent_.Post();
}

void Sarvane::RethrowReaderFailure() const {
    std::exception_ptr failure;
    {
        std::lock_guard<std::mutex> hold(statisticsLock_);
        failure = readerFailure_;
    }
    if (failure) std::rethrow_exception(failure);
}

void Sarvane::Flush() {
    std::lock_guard<std::mutex> one(flushLock_);
    CheckWritable();
    RethrowReaderFailure();
    // A signal left by an earlier Stop must not answer this flush.
    flushDoneEvent_.Reset();
    flushRequested_ = true;
    transactionsEvent_.Post();
    if (!stopFlag_) flushDoneEvent_.Wait();
    RethrowReaderFailure();
    if (stopFlag_) throw SarIndexNotStarted();
}

void Sarvane::DoRecovery(bool recover) {
    if (started_) throw SarIndexAlreadyStarted();
    CreateIndexPath();
    {
        ConfigRead hold(*config_);
        Vantu::SmartPtr<FileDocIdIndexId> documentIdMap(new FileDocIdIndexId(config_, false));
        FileTransactionsWriter::DoRecovery(config_, *documentIdMap, recover, log_);
    }
    transactionsEvent_.Post();
}

void Sarvane::CheckForRecovery() const {
    if (FileTransactionsWriter::CheckForRecovery(*config_) || FileTransactionsReader::CheckForRecovery(*config_))
        throw SarCannotDoRecoveryIndexIsReadOnly();
}

void Sarvane::DeleteIndex() {
    if (started_) throw SarIndexAlreadyStarted();
    ConfigRead hold(*config_);
    const std::string directory = config_->GetIndexFilesPathAsString();
    for (const char* pattern : kIndexFilePatterns)
        for (const std::string& path : VantuFile::ListFiles(directory, pattern)) VantuFile::DeleteDurably(path);
    std::error_code error;
    const std::string kept = directory + "/" + kTransactionsKept;
    if (std::filesystem::is_directory(kept, error) && std::filesystem::remove_all(kept, error) == uintmax_t(-1))
        VantuFile::ThrowFileError(VantuFile::kActionDelete, kept, error.value());
    // A file of another kind keeps the directory.
    if (std::filesystem::is_directory(directory, error) && std::filesystem::is_empty(directory, error) &&
        rmdir(directory.c_str()) != 0)
        VantuFile::ThrowFileError(VantuFile::kActionDelete, directory);
}

FileTransactionsWriter& Sarvane::GetTransactionWriter() {
    if (!writer_)
        writer_ = new FileTransactionsWriter(config_, stores_->documentIdMap,
                                             transactionCounter_.NextTransactionPath(GetIndexFilesPath()),
                                             statistics_, statisticsLock_, pendingTransactions_, log_);
    return *writer_;
}

uint32_t Sarvane::AddDocument(const Vantu::SmartPtr<Document>& document, uint32_t indexDocumentId) {
    VantuThread::ReadLocker files(filesLock_);
    CheckWritable();
    {
        std::lock_guard<std::mutex> hold(collectionsLock_);
        if (!supportedCollections_.count(document->collection))
            throw SarInvalidCollectionID(SAR_MESSAGE(8, document->collection));
    }
    if (stopFlag_ || document->skipCode != 0) return 0xFFFFFFFF;
    uint32_t id;
    {
        std::lock_guard<std::mutex> hold(writerLock_);
        id = GetTransactionWriter().AddDocument(Vantu::SmartPtrToConst<Document>(document), indexDocumentId);
    }
    // A batch of documents may be in flight: each one's streams go as soon as the transaction holds them.
    document->Clear();
    return id;
}

void Sarvane::DeleteDocuments(const std::vector<std::pair<unsigned int, uint16_t>>& documents) {
    VantuThread::ReadLocker files(filesLock_);
    CheckWritable();
    std::lock_guard<std::mutex> hold(writerLock_);
    GetTransactionWriter().DeleteDocuments(documents);
}

void Sarvane::UpdateDocumentsRank(const std::vector<std::pair<uint32_t, float>>& ranks) {
    VantuThread::ReadLocker files(filesLock_);
    CheckWritable();
    {
        std::lock_guard<std::mutex> hold(writerLock_);
        GetTransactionWriter().UpdateDocumentsRank(ranks);
    }
    queryCache_.Clear();
}

uint32_t Sarvane::GetCurrentDocumentID() const {
    VantuThread::ReadLocker files(filesLock_);
    if (!started_) throw SarIndexNotStarted();
    return stores_->documentIdMap->GetCurrentDocId();
}

uint32_t Sarvane::GetNumberOfDocuments() const {
    VantuThread::ReadLocker files(filesLock_);
    if (!started_) throw SarIndexNotStarted();
    return stores_->documents->GetNumberOfDocuments();
}

// A slice that took nothing since the last commit has no writer and nothing to do.
void Sarvane::PreCommit() {
    VantuThread::ReadLocker files(filesLock_);
    if (!started_) throw SarIndexNotStarted();
    std::lock_guard<std::mutex> hold(writerLock_);
    if (writer_) writer_->PreCommit();
}

void Sarvane::Commit() {
    VantuThread::ReadLocker files(filesLock_);
    if (!started_) throw SarIndexNotStarted();
    {
        std::lock_guard<std::mutex> hold(writerLock_);
        if (!writer_) return;
        writer_->Commit();
        writer_ = nullptr;
    }
    transactionsEvent_.Post();
}

unsigned int Sarvane::GetPendingTransactions() const {
    std::lock_guard<std::mutex> hold(statisticsLock_);
    return pendingTransactions_;
}

void Sarvane::GetStatistics(SarvaneStatistics& out) const {
    if (!started_) throw SarIndexNotStarted();
    // Measured before statisticsLock_, which is taken after filesLock_ everywhere else.
    const uint64_t diskSpaceUsed = GetDiskSpaceUsed();
    VantuThread::ReadLocker files(filesLock_);
    if (!stores_) throw SarIndexNotStarted();
    std::lock_guard<std::mutex> hold(statisticsLock_);
    RefreshStoredStatistics();
    statistics_.diskSpaceUsed = diskSpaceUsed;
    ConfigRead config(*config_);
    out.slices[{config_->GetPhysicalID(), config_->GetMirrorID(), config_->GetSliceID()}] = statistics_;
}

void Sarvane::RefreshStoredStatistics() const { stores_->documents->GetStatistics(statistics_); }

void Sarvane::ApplyShrink() { Vantu::ThrowNotImplemented("Sarvane::ApplyShrink : Not implemented!"); }

void Sarvane::CancelShrink() { cancelShrink_ = true; }

void Sarvane::DeleteShrink() { Vantu::ThrowNotImplemented("Sarvane::DeleteShrink : Not implemented!"); }

void Sarvane::SetSarvaneConfig(const SarvaneConfig& config) {
    if (readOnly_) throw SarIndexReadOnly();
    ConfigWrite hold(*config_);
    if (config.GetPhysicalID() != config_->GetPhysicalID()) throw SarInvalidPhysicalIndexID(SAR_MESSAGE(6));
    if (config.GetMirrorID() != config_->GetMirrorID()) throw SarInvalidMirrorID(SAR_MESSAGE(5));
    if (config.GetSliceID() != config_->GetSliceID()) throw SarInvalidSliceID(SAR_MESSAGE(7));
    if (started_ && !config_->ValidRunningModifications(config)) throw SarInvalidConfiguration(SAR_MESSAGE(4));
    if (readerThread_ && config.GetIndexingPriority() != config_->GetIndexingPriority())
        readerThread_->SetPriority(config.GetIndexingPriority());
    *config_ = config;
}

void Sarvane::AddFixedResult(const std::u16string&, const std::u16string&, uint16_t, unsigned int, uint16_t,
                             uint16_t) {
    CheckWritable();
    Vantu::ThrowNotImplemented("Sarvane::AddFixedResult : Not implemented!");
}

void Sarvane::ClearFixedResults() {
    CheckWritable();
    Vantu::ThrowNotImplemented("Sarvane::ClearFixedResults : Not implemented!");
}

void Sarvane::ClearFieldAliases() {
    if (!started_) throw SarIndexNotStarted();
    Vantu::ThrowNotImplemented("Sarvane::ClearFieldAliases : Not implemented!");
}

void Sarvane::AddFieldAlias(const std::u16string&, const std::u16string&) {
    if (!started_) throw SarIndexNotStarted();
    Vantu::ThrowNotImplemented("Sarvane::AddFieldAlias : Not implemented!");
}

unsigned char Sarvane::GetCustomFieldType(const std::string&) const {
    if (!started_) throw SarIndexNotStarted();
    Vantu::ThrowNotImplemented("Sarvane::GetCustomFieldType : Not implemented!");
}

bool Sarvane::IsCustomFieldRankable(const std::string&) const {
    Vantu::ThrowNotImplemented("Sarvane::IsCustomFieldRankable : Not implemented!");
}

void Sarvane::AddSupportedCollection(uint16_t collection) {
    std::lock_guard<std::mutex> hold(collectionsLock_);
    supportedCollections_.insert(collection);
}

void Sarvane::RemoveSupportedCollection(uint16_t collection) {
    std::lock_guard<std::mutex> hold(collectionsLock_);
    if (!supportedCollections_.erase(collection)) throw SarInvalidCollectionID(SAR_MESSAGE(8, collection));
}

std::u16string Sarvane::GetHostName() const {
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    return Vantu::FromUtf8(name);
}

uint64_t Sarvane::GetDiskSpaceUsed() const {
    const std::string directory = Directory();
    uint64_t total = 0;
    {
        VantuThread::ReadLocker files(filesLock_);
        if (stores_) total += stores_->GetDiskSpaceUsed();
    }
    for (const char* pattern : {SarIndexInfo::kFileName, kTransactionPattern})
        for (const std::string& path : VantuFile::ListFiles(directory, pattern)) total += SarSizeOnDisk(path);
    return total;
}

bool Sarvane::HasEnoughFreeSpaceToShrink() const {
    Vantu::ThrowNotImplemented("Sarvane::HasEnoughFreeSpaceToShrink : Not implemented!");
}

std::u16string Sarvane::GetIndexFilesPath() const {
    ConfigRead hold(*config_);
    return config_->GetIndexFilesPath();
}

}  // namespace Ostrel
