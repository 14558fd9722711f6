#include "SarvaneContainer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sys/stat.h>

#include "SarException.h"
#include "SarLog.h"
#include "SarThreads.h"
#include "SarvaneCallInterfaceOperations.h"
#include "SarvaneConfig.h"
#include "ThreadedQuery.h"
#include "core/Text.h"
#include "file/FileSystem.h"

namespace Ostrel {

using VantuThread::ReadLocker;
using VantuThread::WriteLocker;

namespace {

// A merged answer never reaches past this place.
constexpr size_t kResultsPerQuery = 1000;
// One counter for the whole process: successive queries take the mirrors of an index in turn.
std::atomic<uint32_t> queryCounter{0};

}  // namespace

namespace {

constexpr uint32_t kMaxQueryThreads = 64;
constexpr const char* kSentryName = "SarcCommit.sentry";
// The shared stores' files in the index directory, in the order DeleteIndex removes them.
constexpr const char* kSharedStoreFiles[] = {"Repository*.*", "SarcURI-DocInfo.*", "SecurityCache-*", "Links*.*"};

// How long the statistics cache answers without a refresh, how long its thread sleeps when nobody asks,
// how long a fast caller waits, and the round in which a waiting caller looks whether the thread is still there.
constexpr uint64_t kStatisticsFreshMs = 10000;
constexpr uint32_t kStatsIdleMs = 300000;
constexpr uint32_t kFastStatisticsWaitMs = 2000;
constexpr uint32_t kStatisticsWaitRoundMs = 250;

bool IsDirectory(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Milliseconds on a clock that never goes back; never 0, which marks a cache that must be refreshed.
uint64_t TickCount() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::max<uint64_t>(1, std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

SarvaneContainer::SarvaneContainer(const SarvaneContainerConfig& config, Vantu::SmartPtr<Vantu::LogCallInterface> log,
                                   std::unique_ptr<SarvaneContainerStores> stores)
    : config_(config),
      log_(std::move(log)),
      stores_(std::move(stores)),
      queryPool_("QueryPool", config.GetNumberOfQueryThreads(), config.GetQueryPriority()),
      fastQueryPool_("FastQueryPool", 2, VantuThread::Priority::Highest) {}

SarvaneContainer::~SarvaneContainer() {
    stopping_ = true;
    if (uriStore_ && folithek_) {
        try {
            Stop(true);
        } catch (...) {
            // A slice that fails to stop is deleted all the same below.
        }
    }
    // The statistics thread holds a plain pointer to this container.
    EndStatsThread();
    for (auto& [id, index] : physicalIndexes_)
        for (auto& [mirrorId, mirror] : index.GetMirrors()) mirror.DeleteAll();
    queryPool_.Join(VantuThread::ThreadPool::kAll);
    fastQueryPool_.Join(VantuThread::ThreadPool::kAll);
    ReleaseStores();
}

PhysicalIndex& SarvaneContainer::FindPhysical(uint16_t physical) {
    auto it = physicalIndexes_.find(physical);
    if (it == physicalIndexes_.end()) throw SarInvalidPhysicalIndexID(SAR_MESSAGE(19, physical));
    return it->second;
}

const PhysicalIndex& SarvaneContainer::FindPhysical(uint16_t physical) const {
    return const_cast<SarvaneContainer*>(this)->FindPhysical(physical);
}

MirrorIndex& SarvaneContainer::FindMirror(PhysicalIndex& index, uint16_t physical, uint16_t mirror) {
    auto it = index.GetMirrors().find(mirror);
    if (it == index.GetMirrors().end()) throw SarInvalidMirrorID(SAR_MESSAGE(17, mirror, physical));
    return it->second;
}

SarvaneCallInterface& SarvaneContainer::FindSlice(uint16_t physical, uint16_t mirror, uint16_t sliceId) {
    SarvaneCallInterface* slice = FindMirror(FindPhysical(physical), physical, mirror).Find(sliceId);
    if (!slice) throw SarInvalidSliceID(SAR_MESSAGE(20, sliceId, mirror, physical));
    return *slice;
}

void SarvaneContainer::AddPhysicalIndex(uint16_t physical) {
    return SarLogged(log_, SarvaneContainerSuffix::AddPhysicalIndex, [&] {
        ReadLocker operation(operationLock_);
        WriteLocker indexes(indexesLock_);
        physicalIndexes_.try_emplace(physical);
    });
}

void SarvaneContainer::RemovePhysicalIndex(uint16_t physical) {
    return SarLogged(log_, SarvaneContainerSuffix::RemovePhysicalIndex, [&] {
        ReadLocker operation(operationLock_);
        WriteLocker indexes(indexesLock_);
        if (!physicalIndexes_.erase(physical)) throw SarInvalidPhysicalIndexID(SAR_MESSAGE(19, physical));
    });
}

void SarvaneContainer::AddSliceIndex(SarvaneCallInterface* slice, uint16_t physical, uint16_t mirror,
                                     uint16_t sliceId) {
    return SarLogged(log_, SarvaneContainerSuffix::AddSliceIndex, [&] {
        ReadLocker operation(operationLock_);
        WriteLocker indexes(indexesLock_);
        slice->Initialize(log_.Get());
        PhysicalIndex& index = FindPhysical(physical);
        for (uint16_t collection : index.GetSupportedCollections()) slice->AddSupportedCollection(collection);
        // A taken slice id is refused before the slice starts, so that a refused slice never runs and stays
        // wholly the caller's.
        auto existing = index.GetMirrors().find(mirror);
        if (existing != index.GetMirrors().end() && existing->second.Find(sliceId))
            throw SarInvalidMirrorID(SAR_MESSAGE(29, sliceId, physical, mirror));
        // A slice added to a running container comes up at once.
        if (uriStore_) slice->Start(readOnly_);
        // A mirror comes into being with its first slice.
        index.GetMirrors()[mirror].AddSliceIndex(slice, physical, mirror, sliceId);
        allSlices_.push_back(slice);
    });
}

void SarvaneContainer::RemoveSliceIndex(uint16_t physical, uint16_t mirror, uint16_t sliceId, bool deleteFiles) {
    return SarLogged(log_, SarvaneContainerSuffix::RemoveSliceIndex, [&] {
        ReadLocker operation(operationLock_);
        WriteLocker indexes(indexesLock_);
        PhysicalIndex& index = FindPhysical(physical);
        MirrorIndex& mirrorIndex = FindMirror(index, physical, mirror);
        SarvaneCallInterface* slice = &FindSlice(physical, mirror, sliceId);
        if (deleteFiles) {
            slice->Stop(false);
            slice->DeleteIndex();
        }
        allSlices_.erase(std::find(allSlices_.begin(), allSlices_.end(), slice));
        delete slice;
        mirrorIndex.Erase(sliceId);
        if (mirrorIndex.IsEmpty()) index.GetMirrors().erase(mirror);
    });
}

void SarvaneContainer::AddCollectionForPhysical(uint16_t physical, uint16_t collection) {
    return SarLogged(log_, SarvaneContainerSuffix::AddCollectionForPhysical, [&] {
        ReadLocker operation(operationLock_);
        WriteLocker indexes(indexesLock_);
        PhysicalIndex& index = FindPhysical(physical);
        index.AddCollection(collection);
        index.ForEachSlice([&](SarvaneCallInterface& slice) { slice.AddSupportedCollection(collection); });
    });
}

void SarvaneContainer::RemoveCollectionForPhysical(uint16_t physical, uint16_t collection) {
    return SarLogged(log_, SarvaneContainerSuffix::RemoveCollectionForPhysical, [&] {
        ReadLocker operation(operationLock_);
        WriteLocker indexes(indexesLock_);
        PhysicalIndex& index = FindPhysical(physical);
        index.RemoveCollection(collection);
        index.ForEachSlice([&](SarvaneCallInterface& slice) { slice.RemoveSupportedCollection(collection); });
    });
}

void SarvaneContainer::SetSarvaneConfig(uint16_t physical, uint16_t mirror, uint16_t sliceId,
                                        const SarvaneConfig& config) {
    return SarLogged(log_, SarvaneContainerSuffix::SetSarvaneConfig, [&] {
        ReadLocker operation(operationLock_);
        WriteLocker indexes(indexesLock_);
        FindSlice(physical, mirror, sliceId).SetSarvaneConfig(config);
    });
}

void SarvaneContainer::AddCustomFieldAlias(uint16_t physical, const std::u16string& alias,
                                           const std::u16string& field) {
    return SarLogged(log_, SarvaneContainerSuffix::AddCustomFieldAlias, [&] {
        ReadLocker operation(operationLock_);
        WriteLocker indexes(indexesLock_);
        PhysicalIndex& index = FindPhysical(physical);
        const std::u16string lowerAlias = Vantu::ToLower(alias), lowerField = Vantu::ToLower(field);
        customFieldAliases_[lowerAlias] = lowerField;
        index.ForEachSlice([&](SarvaneCallInterface& slice) { slice.AddFieldAlias(lowerAlias, lowerField); });
    });
}

void SarvaneContainer::ClearCustomFieldAliases(uint16_t physical) {
    return SarLogged(log_, SarvaneContainerSuffix::ClearCustomFieldAliases, [&] {
        ReadLocker operation(operationLock_);
        WriteLocker indexes(indexesLock_);
        PhysicalIndex& index = FindPhysical(physical);
        customFieldAliases_.clear();
        index.ForEachSlice([](SarvaneCallInterface& slice) { slice.ClearFieldAliases(); });
    });
}

void SarvaneContainer::GetCustomFieldAliases(std::map<std::u16string, std::u16string>& out) const {
    ReadLocker indexes(indexesLock_);
    out = customFieldAliases_;
}

unsigned char SarvaneContainer::GetCustomFieldType(uint16_t physical, const std::string& field) const {
    return SarLogged(log_, SarvaneContainerSuffix::GetCustomFieldType, [&] {
        ReadLocker indexes(indexesLock_);
        unsigned char type = 0xFF;
        for (const auto& [mirrorId, mirror] : FindPhysical(physical).GetMirrors()) {
            type = 0xFF;
            for (const auto& [sliceId, slice] : mirror.GetSlices())
                if ((type = slice->GetCustomFieldType(field)) != 0xFF) break;
        }
        return type;
    });
}

bool SarvaneContainer::IsCustomFieldRankable(uint16_t physical, const std::string& field) const {
    return SarLogged(log_, SarvaneContainerSuffix::IsCustomFieldRankable, [&] {
        ReadLocker indexes(indexesLock_);
        bool rankable = false;
        FindPhysical(physical).ForEachSlice(
            [&](SarvaneCallInterface& slice) { rankable = slice.IsCustomFieldRankable(field); });
        return rankable;
    });
}

void SarvaneContainer::EnumValidCollectionIDs(const std::vector<SarcIdentity>& identities,
                                              std::vector<std::pair<uint16_t, uint16_t>>& out) const {
    return SarLogged(log_, SarvaneContainerSuffix::EnumValidCollectionIDs, [&] {
        // operationLock keeps the security cache from going away meanwhile.
        ReadLocker operation(operationLock_);
        const std::vector<SarcIdentity> expanded = ExpandIdentities(identities);
        out.clear();
        ReadLocker indexes(indexesLock_);
        for (const auto& [physical, index] : physicalIndexes_)
            for (const auto& [collection, access] : index.GetCollectionAccess())
                if (access->IsAllowed(expanded)) out.emplace_back(physical, collection);
    });
}

std::vector<SarcIdentity> SarvaneContainer::ExpandIdentities(const std::vector<SarcIdentity>& identities) const {
    ReadLocker indexes(indexesLock_);
    if (!securityCache_) return identities;
    std::vector<SarcIdentity> expanded;
    securityCache_->RetrieveLocalNetworkIDs(identities, expanded);
    return expanded;
}

bool SarvaneContainer::PerformQuery(const std::u16string& query, const std::u16string& extraQuery,
                                    const std::vector<SarcIdentity>& networkIds,
                                    const std::map<uint16_t, std::vector<uint16_t>>& collectionsByPhysicalIndex,
                                    std::vector<IndexedDocumentWeight>& results, unsigned first, unsigned count,
                                    bool filterDuplicates, bool optimization, SortCriteria sortCriteria,
                                    const std::u16string& preferredLanguage, QueryAnswer& answer) const {
    return SarLogged(log_, SarvaneContainerSuffix::PerformQuery, [&] {
        const auto start = std::chrono::steady_clock::now();
        ReadLocker operation(operationLock_);
        const std::vector<SarcIdentity> expanded = ExpandIdentities(networkIds);
        answer = QueryAnswer();
        results.clear();
        // Held for the whole call: the pool threads rely on it, so that no slice goes away under them.
        ReadLocker indexes(indexesLock_);
        const uint32_t duplicateFactor = config_.GetDocumentDuplicateFactor();
        std::vector<std::shared_ptr<ThreadedQuery>> queries;
        for (const auto& [physical, wanted] : collectionsByPhysicalIndex) {
            const auto index = physicalIndexes_.find(physical);
            if (index == physicalIndexes_.end() || index->second.GetMirrors().empty()) continue;
            std::vector<uint16_t> allowed;
            for (uint16_t collection : wanted) {
                const auto& access = index->second.GetCollectionAccess();
                if (const auto list = access.find(collection); list != access.end() && list->second->IsAllowed(expanded))
                    allowed.push_back(collection);
            }
            if (allowed.empty()) continue;
            const auto& mirrors = index->second.GetMirrors();
            const MirrorIndex& mirror = std::next(mirrors.begin(), ++queryCounter % mirrors.size())->second;
            for (const auto& [id, slice] : mirror.GetSlices()) {
                auto threaded = std::make_shared<ThreadedQuery>(*slice, expanded, query, extraQuery, allowed,
                                                                first + count, filterDuplicates, optimization,
                                                                preferredLanguage, sortCriteria, duplicateFactor);
                queries.push_back(threaded);
                queryPool_.AddFunction(VantuThread::MakeFunction([threaded] { threaded->Run(); }));
            }
        }
        bool duplicatesDropped = false;
        std::vector<IndexedDocumentWeight> merged;
        // Every slice is waited for, even after one failed: none may run on past the topology's lock.
        std::exception_ptr failure;
        for (const auto& threaded : queries) {
            threaded->Wait();
            if (failure) continue;
            try {
                threaded->Collect(merged, answer, duplicatesDropped);
            } catch (...) {
                failure = std::current_exception();
            }
        }
        if (failure) std::rethrow_exception(failure);
        std::stable_sort(merged.begin(), merged.end(), IndexedDocumentWeight::ComesBefore);
        const size_t end = std::min<size_t>({size_t(first) + count, kResultsPerQuery, merged.size()});
        const size_t begin = std::min<size_t>(first, end);
        results.assign(std::make_move_iterator(merged.begin() + begin), std::make_move_iterator(merged.begin() + end));
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        answer.seconds = std::max(0.01, seconds);
        return duplicatesDropped;
    });
}

Vantu::SmartPtrToConst<IndexedDocument> SarvaneContainer::LoadDocument(uint16_t physical, uint16_t mirror,
                                                                       uint16_t sliceId, unsigned documentId,
                                                                       const std::vector<SarcIdentity>& networkIds) const {
    return SarLogged(log_, SarvaneContainerSuffix::LoadDocument, [&]() -> Vantu::SmartPtrToConst<IndexedDocument> {
        ReadLocker operation(operationLock_);
        const std::vector<SarcIdentity> expanded = ExpandIdentities(networkIds);
        ReadLocker indexes(indexesLock_);
        const auto index = physicalIndexes_.find(physical);
        if (index == physicalIndexes_.end()) return nullptr;
        const auto copy = index->second.GetMirrors().find(mirror);
        if (copy == index->second.GetMirrors().end()) return nullptr;
        const SarvaneCallInterface* slice = copy->second.Find(sliceId);
        if (!slice) return nullptr;
        Vantu::SmartPtrToConst<IndexedDocument> document = slice->LoadDocument(documentId, expanded, true);
        if (!document) return nullptr;
        // A collection without an access list passes.
        const auto& access = index->second.GetCollectionAccess();
        const auto list = access.find(document->collection);
        return list == access.end() || list->second->IsAllowed(expanded) ? document : nullptr;
    });
}

void SarvaneContainer::AddAccessControlEntry(uint16_t physical, uint16_t collection,
                                             SarcAccessList::AccessType access, const SarcIdentity& identity) {
    return SarLogged(log_, SarvaneContainerSuffix::AddAccessControlEntry, [&] {
        WriteLocker indexes(indexesLock_);
        FindPhysical(physical).GetAccessList(collection)->AddAccessControlEntry(identity, access);
    });
}

void SarvaneContainer::AddAccessControlEntry(SarcAccessList::AccessType access, const SarcIdentity& identity) {
    return SarLogged(log_, SarvaneContainerSuffix::AddAccessControlEntry, [&] {
        WriteLocker indexes(indexesLock_);
        for (auto& [physical, index] : physicalIndexes_)
            for (auto& [collection, list] : index.GetCollectionAccess()) list->AddAccessControlEntry(identity, access);
    });
}

void SarvaneContainer::RemoveAccessControlEntry(uint16_t physical, uint16_t collection,
                                                const SarcIdentity& identity) {
    WriteLocker indexes(indexesLock_);
    FindPhysical(physical).GetAccessList(collection)->RemoveAccessControlEntry(identity);
}

void SarvaneContainer::ClearAccessControlEntry(uint16_t physical, uint16_t collection) {
    return SarLogged(log_, SarvaneContainerSuffix::ClearAccessControlEntry, [&] {
        WriteLocker indexes(indexesLock_);
        FindPhysical(physical).GetAccessList(collection)->Clear();
    });
}

Vantu::SmartPtrToConst<SarcAccessList> SarvaneContainer::GetAccessControlList(uint16_t physical,
                                                                              uint16_t collection) const {
    return SarLogged(log_, SarvaneContainerSuffix::GetAccessControlList, [&] {
        ReadLocker indexes(indexesLock_);
        return FindPhysical(physical).GetAccessList(collection);
    });
}

bool SarvaneContainer::IsStarted() const {
    ReadLocker operation(operationLock_);
    ReadLocker indexes(indexesLock_);
    return bool(uriStore_);
}

std::string SarvaneContainer::PrepareIndexFilesDirectory() {
    SarvaneConfigReadLock<SarvaneContainerConfig> hold(config_);
    std::string directory = config_.GetIndexFilesPathAsString();
    if (!IsDirectory(directory) && mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST)
        throw SarInvalidIndexPath(SAR_MESSAGE(15, config_.GetIndexFilesPath()));
    if (directory.empty() || directory.back() != '/') directory += '/';
    return directory;
}

std::string SarvaneContainer::SentryPath() const {
    SarvaneConfigReadLock<SarvaneContainerConfig> hold(config_);
    return config_.GetConfigPathAsString() + "/" + kSentryName;
}

void SarvaneContainer::Start(bool readOnly) {
    ReadLocker operation(operationLock_);
    WriteLocker indexes(indexesLock_);
    readOnly_ = readOnly;
    if (uriStore_) throw SarIndexAlreadyStarted();
    std::string directory = PrepareIndexFilesDirectory();
    folithek_ = stores_->CreateCachedCopies(directory, readOnly);
    bool links;
    {
        SarvaneConfigReadLock<SarvaneContainerConfig> hold(config_);
        links = config_.GetEnableNetrova();
    }
    if (links) netrova_ = stores_->CreateLinks(directory, readOnly);
    stores_->RecoverShrink(config_);
    {
        WriteLocker uriReaders(uriReadersLock_);
        uriStore_ = stores_->CreateURIStore(config_, readOnly);
    }
    securityCache_ = stores_->CreateSecurityCache(config_, readOnly);
    if (!readOnly) {
        DoRecovery();
    } else if (CheckForRecovery()) {
        // Recovery writes: a read-only container cannot finish a commit, so it does not start at all.
        ReleaseStores();
        throw SarCannotDoRecoveryIndexIsReadOnly();
    }
    // From here on a failure leaves the stores open and the container started: the caller's recourse is Stop.
    SarRunOnSlices<SarStartOperation>(operationPool_, allSlices_, readOnly);
    uriStore_->RecoveryDone();
    stopping_ = false;
    if (!readOnly) uriStore_->BeginTransaction();
    StartStatsThread();
}

void SarvaneContainer::Stop(bool abortTransaction) {
    return SarLogged(log_, SarvaneContainerSuffix::Stop, [&] {
        if (!IsStarted()) throw SarIndexNotStarted();
        // The statistics thread goes first, while the container is still started: no Start can come between
        // and clear what ends it, and Stop holds no lock yet that the thread may be waiting for.
        EndStatsThread();
        WriteLocker operation(operationLock_);
        // A concurrent Stop may have come first.
        if (!uriStore_) throw SarIndexNotStarted();
        stopping_ = true;
        // indexesLock only now: the threads that end with `stopping` may need it on their way out.
        ReadLocker indexes(indexesLock_);
        SarRunOnSlices<SarStopOperation>(operationPool_, allSlices_, abortTransaction);
        ReleaseStores();
    });
}

void SarvaneContainer::ReleaseStores() {
    {
        WriteLocker uriReaders(uriReadersLock_);
        uriStore_ = nullptr;
    }
    securityCache_ = nullptr;
    folithek_.reset();
    netrova_.reset();
}

bool SarvaneContainer::CheckForRecovery() {
    if (VantuFile::FileExists(SentryPath())) return true;
    SarRunOnSlices<SarCheckForRecoveryOperation>(operationPool_, allSlices_);
    return false;
}

void SarvaneContainer::DoRecovery() {
    const std::string sentry = SentryPath();
    // The sentry is the commit's point of no return: with it the commit is finished, without it undone.
    const bool recover = VantuFile::FileExists(sentry);
    std::vector<SarcSharedStore*> stores = {uriStore_.Get(), securityCache_.Get(), folithek_.get(), netrova_.get()};
    for (SarcSharedStore* store : stores) {
        if (!store) continue;
        if (recover)
            store->Commit();
        else
            store->Rollback();
    }
    SarRunOnSlices<SarDoRecoveryOperation>(operationPool_, allSlices_, recover);
    // Last, so that a crash during recovery repeats the same recovery.
    if (recover) VantuFile::DeleteDurably(sentry);
}

void SarvaneContainer::DeleteIndex() {
    ReadLocker operation(operationLock_);
    WriteLocker indexes(indexesLock_);
    if (uriStore_) throw SarIndexAlreadyStarted();
    SarRunOnSlices<SarDeleteIndexOperation>(operationPool_, allSlices_);
    std::string directory;
    {
        SarvaneConfigReadLock<SarvaneContainerConfig> hold(config_);
        directory = config_.GetIndexFilesPathAsString();
    }
    for (const char* pattern : kSharedStoreFiles)
        for (const std::string& path : VantuFile::ListFiles(directory, pattern)) VantuFile::DeleteDurably(path);
}

void SarvaneContainer::GetSarvaneContainerConfig(SarvaneContainerConfig& out) const {
    SarvaneConfigWriteLock<SarvaneContainerConfig> write(out);
    SarvaneConfigReadLock<SarvaneContainerConfig> read(config_);
    out = config_;
}

void SarvaneContainer::SetSarvaneContainerConfig(const SarvaneContainerConfig& config) {
    return SarLogged(log_, SarvaneContainerSuffix::SetSarvaneContainerConfig, [&] {
        ReadLocker operation(operationLock_);
        ReadLocker indexes(indexesLock_);
        SarvaneConfigWriteLock<SarvaneContainerConfig> write(config_);
        if (uriStore_ && !config_.ValidRunningModifications(config)) throw SarInvalidConfiguration(SAR_MESSAGE(12));
        if (securityCache_ && config.GetMapiProfile() != config_.GetMapiProfile()) securityCache_->ExpandAllGroupsAgain();
        config_ = config;

        VantuThread::CriticalSectionLock hold(queryPool_.Section());
        const uint32_t limit = std::min(config_.GetNumberOfQueryThreads(), kMaxQueryThreads);
        const uint32_t oldLimit = queryPool_.ThreadLimit();
        if (limit > oldLimit) {
            queryPool_.SetThreadLimit(limit);
            const uint32_t missing = limit - std::min(limit, queryPool_.NbThreadsCreated());
            queryPool_.CreateWorkerThreads(std::min(missing, queryPool_.NbFunctionsToRun()));
        }
        queryPool_.Priority(config_.GetQueryPriority());
    });
}

void SarvaneContainer::StartStatsThread() {
    statsActive_ = true;
    statsThread_ = SarStartThread(kStatsThreadName, VantuThread::MakeFunction(this, &SarvaneContainer::StatsThread));
}

void SarvaneContainer::EndStatsThread() {
    Vantu::RefCount<VantuThread::Thread> thread;
    {
        WriteLocker indexes(indexesLock_);
        statsActive_ = false;
        thread = std::move(statsThread_);
    }
    statsEvent_.Post();
    // Dropping the last reference waits for the thread's end.
}

void* SarvaneContainer::StatsThread(void*) {
    while (statsActive_) {
        if (!AnswerFromFreshCache()) RefreshStatistics();
        statsEvent_.Wait(kStatsIdleMs);
    }
    return nullptr;
}

bool SarvaneContainer::AnswerFromFreshCache() {
    VantuThread::CriticalSectionLock hold(statisticsLock_);
    if (statisticsTick_ == 0 || TickCount() - statisticsTick_ >= kStatisticsFreshMs) return false;
    // Told under the lock, so that a slow caller who has just cleared the tick never takes this signal.
    statsReadyEvent_.Post();
    return true;
}

bool SarvaneContainer::CollectStatistics(SarvaneStatistics& out) {
    try {
        SarLogged(log_, SarvaneContainerSuffix::GetStatistics, [&] {
            ReadLocker operation(operationLock_);
            ReadLocker indexes(indexesLock_);
            for (const auto& [physical, index] : physicalIndexes_)
                index.ForEachSlice([&](SarvaneCallInterface& slice) { slice.GetStatistics(out); });
        });
    } catch (...) {
        return false;
    }
    // The shared stores tell no sizes yet: cached documents, container stores and links count 0. The record
    // starts with no compaction progress and unseen.
    out.date = Vantu::DateTime::GetCurrentDateTime();
    return true;
}

void SarvaneContainer::RefreshStatistics() {
    uint64_t started;
    {
        VantuThread::CriticalSectionLock hold(statisticsLock_);
        started = statisticsTick_ = TickCount();
    }
    SarvaneStatistics local;
    const bool collected = CollectStatistics(local);
    VantuThread::CriticalSectionLock hold(statisticsLock_);
    // After a failure the last cache stays, and the slices are asked again once it is stale.
    if (collected) statistics_ = std::move(local);
    // A slow caller who cleared the tick meanwhile asked after this refresh began: its wake-up brings another.
    if (statisticsTick_ != started) return;
    statisticsTick_ = TickCount();
    statsReadyEvent_.Post();
}

void SarvaneContainer::WaitForStatistics(bool fast) const {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(kFastStatisticsWaitMs);
    // In rounds: a thread that has ended never answers, and a wake-up that another caller took is repeated.
    while (statsActive_) {
        uint32_t round = kStatisticsWaitRoundMs;
        if (fast) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) return;
            round = std::min<uint32_t>(round, left);
        }
        if (statsReadyEvent_.Wait(round) == VantuThread::WaitResult::Signalled) return;
        statsEvent_.Post();
    }
}

void SarvaneContainer::GetStatistics(SarvaneStatistics& out, bool fast) const {
    return SarLogged(log_, SarvaneContainerSuffix::GetStatistics, [&] {
        if (!fast) {
            VantuThread::CriticalSectionLock hold(statisticsLock_);
            statisticsTick_ = 0;
            statsReadyEvent_.Reset();
        }
        statsEvent_.Post();
        WaitForStatistics(fast);
        VantuThread::CriticalSectionLock hold(statisticsLock_);
        out = statistics_;
        statistics_.seen = true;
    });
}

uint32_t SarvaneContainer::GetNumberOfDocumentsInIndex() const {
    ReadLocker uriReaders(uriReadersLock_);
    if (!uriStore_) throw SarIndexNotStarted();
    return uriStore_->GetNumberOfDocuments();
}

}  // namespace Ostrel
