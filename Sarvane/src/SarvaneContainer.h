// The one object an application talks to: the topology of physical indexes, mirrors and slices, the stores
// they share, their start and stop in a fixed order, and a cache of their statistics. Reference counted; any
// thread may call it, and operationLock, indexesLock, uriReadersLock and the configuration's lock nest in that order.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "PhysicalIndex.h"
#include "SarOperationPool.h"
#include "SarvaneCallInterface.h"
#include "SarvaneContainerAccess.h"
#include "SarvaneContainerConfig.h"
#include "SarvaneContainerStores.h"
#include "SarvaneStatistics.h"
#include "core/CriticalSection.h"
#include "core/EventSemaphore.h"
#include "core/LogCallInterface.h"
#include "core/ReadWriteSemaphore.h"
#include "core/RefCounted.h"
#include "core/Thread.h"
#include "core/ThreadPool.h"

namespace Ostrel {

class SarvaneConfig;

class SarvaneContainer : public Vantu::SPRefCounter {
public:
    // Copies the configuration and builds the pools and an empty topology; touches no file.
    // `log` goes to every slice; `stores` builds the stores that the slices share.
    SarvaneContainer(const SarvaneContainerConfig& config, Vantu::SmartPtr<Vantu::LogCallInterface> log,
                     std::unique_ptr<SarvaneContainerStores> stores);
    // Stops a started container, then deletes every slice of the topology.
    ~SarvaneContainer() override;
    SarvaneContainer(const SarvaneContainer&) = delete;
    SarvaneContainer& operator=(const SarvaneContainer&) = delete;

    // Topology. Unknown ids raise SarInvalidPhysicalIndexID (19), SarInvalidMirrorID (17),
    // SarInvalidSliceID (20); collections SarInvalidCollectionID (11).
    void AddPhysicalIndex(uint16_t physical);
    // The slices stay in the list of all slices: a caller removes them first.
    void RemovePhysicalIndex(uint16_t physical);
    // Takes the slice over once it is in the topology; on any failure the caller still owns it and it does
    // not run. A slice id that the mirror has raises SarInvalidMirrorID (29).
    void AddSliceIndex(SarvaneCallInterface* slice, uint16_t physical, uint16_t mirror, uint16_t sliceId);
    void RemoveSliceIndex(uint16_t physical, uint16_t mirror, uint16_t sliceId, bool deleteFiles);
    void AddCollectionForPhysical(uint16_t physical, uint16_t collection);
    void RemoveCollectionForPhysical(uint16_t physical, uint16_t collection);
    void SetSarvaneConfig(uint16_t physical, uint16_t mirror, uint16_t sliceId, const SarvaneConfig& config);
    // Aliases of custom fields, kept in lower case by the container and told to every slice of the index.
    void AddCustomFieldAlias(uint16_t physical, const std::u16string& alias, const std::u16string& field);
    void ClearCustomFieldAliases(uint16_t physical);
    void GetCustomFieldAliases(std::map<std::u16string, std::u16string>& out) const;

    // Read-only topology questions.
    // The answer of the last mirror that has a slice knowing the field; 0xFF when none knows it.
    unsigned char GetCustomFieldType(uint16_t physical, const std::string& field) const;
    // The last answer of all slices of the index.
    bool IsCustomFieldRankable(uint16_t physical, const std::string& field) const;
    // (physical, collection) for each collection that the identities, expanded into their groups, may see.
    // A stopped container has no security cache to expand them: they are taken as given.
    void EnumValidCollectionIDs(const std::vector<SarcIdentity>& identities,
                                std::vector<std::pair<uint16_t, uint16_t>>& out) const;

    // Queries. One mirror of each physical index answers (the mirrors take turns), over those of its collections
    // that the identities, expanded into their groups, may read; its slices run on the query pool, and their
    // records merge by the sort key, ties in the order of the slices. Records `first` to first + count, never past
    // place 1000. A bad query text comes back in the answer; a slice's failure is raised. Any thread.
    bool PerformQuery(const std::u16string& query, const std::u16string& extraQuery,
                      const std::vector<SarcIdentity>& networkIds,
                      const std::map<uint16_t, std::vector<uint16_t>>& collectionsByPhysicalIndex,
                      std::vector<IndexedDocumentWeight>& results, unsigned first, unsigned count, bool filterDuplicates,
                      bool optimization, SortCriteria sortCriteria, const std::u16string& preferredLanguage,
                      QueryAnswer& answer) const;
    // The document `documentId` of a slice; null when the slice or the document is missing or the identities may
    // not read its collection.
    Vantu::SmartPtrToConst<IndexedDocument> LoadDocument(uint16_t physical, uint16_t mirror, uint16_t sliceId,
                                                         unsigned documentId,
                                                         const std::vector<SarcIdentity>& networkIds) const;

    // Access lists of collections.
    void AddAccessControlEntry(uint16_t physical, uint16_t collection, SarcAccessList::AccessType access,
                               const SarcIdentity& identity);
    // Adds the entry to every collection of every physical index.
    void AddAccessControlEntry(SarcAccessList::AccessType access, const SarcIdentity& identity);
    void RemoveAccessControlEntry(uint16_t physical, uint16_t collection, const SarcIdentity& identity);
    void ClearAccessControlEntry(uint16_t physical, uint16_t collection);
    Vantu::SmartPtrToConst<SarcAccessList> GetAccessControlList(uint16_t physical, uint16_t collection) const;

    // Lifecycle. Start twice raises SarIndexAlreadyStarted; Stop on a stopped container SarIndexNotStarted.
    void Start(bool readOnly);
    void Stop(bool abortTransaction);
    // Deletes the files of every slice and of the shared stores; the container must be stopped.
    void DeleteIndex();
    bool IsStarted() const;

    // Hold indexesLock exclusively, for a caller that needs a stable topology.
    void Lock() { indexesLock_.WriteLock(); }
    void Unlock() { indexesLock_.WriteUnlock(); }

    void GetSarvaneContainerConfig(SarvaneContainerConfig& out) const;
    // On a started container only the changes that ValidRunningModifications allows (else message 12).
    void SetSarvaneContainerConfig(const SarvaneContainerConfig& config);

    // Statistics of every slice, from a cache that the thread "Sarc: StatsThread" keeps. `fast` false has the
    // thread refresh the cache and waits for it; `fast` true waits 2 s at most and then takes what the cache
    // holds, which the thread renews when it is older than 10 s. `seen` is false only on the first read of a
    // refreshed cache. Once the container is stopped or stopping there is no thread to refresh it: both modes
    // answer the last cache at once rather than raise, so a caller needs no care about a concurrent Stop. A
    // slice that fails to answer leaves the last cache in place (its date tells its age) and is logged.
    void GetStatistics(SarvaneStatistics& out, bool fast) const;
    // The number of documents in the URI store. SarIndexNotStarted on a container that isn't started.
    uint32_t GetNumberOfDocumentsInIndex() const;

private:
    // Callers hold indexesLock.
    PhysicalIndex& FindPhysical(uint16_t physical);
    const PhysicalIndex& FindPhysical(uint16_t physical) const;
    MirrorIndex& FindMirror(PhysicalIndex& index, uint16_t physical, uint16_t mirror);
    SarvaneCallInterface& FindSlice(uint16_t physical, uint16_t mirror, uint16_t sliceId);
    // The directory of the shared stores, made when missing, with the "/" that the stores expect.
    std::string PrepareIndexFilesDirectory();
    // Drops the shared stores in their fixed order.
    void ReleaseStores();
    // Start-up recovery: on a read-only index whether the commit sentry exists (the slices raise when they
    // hold unfinished work); on a writable one, the end of an interrupted commit in every store and slice.
    bool CheckForRecovery();
    void DoRecovery();
    std::string SentryPath() const;
    // The identities with the groups they belong to; as given on a stopped container. Under operationLock.
    std::vector<SarcIdentity> ExpandIdentities(const std::vector<SarcIdentity>& identities) const;

    // The statistics thread: started last by Start, ended first by Stop (see Stop for why).
    void StartStatsThread();
    void EndStatsThread();
    void* StatsThread(void*);
    // Under statisticsLock: whether the cache is young enough to answer; if so the waiting caller is told.
    bool AnswerFromFreshCache();
    // Asks every slice, then replaces the cache; on failure the cache stays and the failure is logged.
    void RefreshStatistics();
    // Fills `out` from every slice; false after a failure, which is logged.
    bool CollectStatistics(SarvaneStatistics& out);
    // Waits until the thread says the cache is ready: 2 s at most when `fast`, else as long as the thread runs.
    void WaitForStatistics(bool fast) const;

    SarvaneContainerConfig config_;
    const Vantu::SmartPtr<Vantu::LogCallInterface> log_;
    const std::unique_ptr<SarvaneContainerStores> stores_;
    // Set while started: the test behind IsStarted. Changed under indexesLock and uriReadersLock exclusive.
    Vantu::SmartPtr<SarcURIStore> uriStore_;
    Vantu::SmartPtr<SarcSecurityCache> securityCache_;
    std::unique_ptr<SarcSharedStore> folithek_;
    std::unique_ptr<SarcSharedStore> netrova_;
    bool readOnly_ = false;
    std::atomic<bool> stopping_{false};

    std::map<uint16_t, PhysicalIndex> physicalIndexes_;
    // Alias to real field name, both lower case.
    std::map<std::u16string, std::u16string> customFieldAliases_;
    // Every slice of every mirror in the order they were added: the target of operations.
    std::vector<SarvaneCallInterface*> allSlices_;

    mutable VantuThread::ReadWriteSemaphore operationLock_;
    mutable VantuThread::ReadWriteSemaphore indexesLock_;
    // Shared by the read calls on the URI store; taken after indexesLock.
    mutable VantuThread::ReadWriteSemaphore uriReadersLock_;
    mutable VantuThread::ThreadPool queryPool_;
    VantuThread::ThreadPool fastQueryPool_;
    SarOperationPool operationPool_;

    // "Sarc: StatsThread"; set and dropped under indexesLock exclusive. It runs while statsActive_ is set.
    Vantu::RefCount<VantuThread::Thread> statsThread_;
    std::atomic<bool> statsActive_{false};
    mutable VantuThread::CriticalSection statisticsLock_;
    // Under statisticsLock: the cache, and the tick of its last refresh; 0 asks the thread for a refresh.
    mutable SarvaneStatistics statistics_;
    mutable uint64_t statisticsTick_ = 0;
    // Wakes the thread (auto-reset).
    mutable VantuThread::EventSemaphore statsEvent_{false, false};
    // The cache is ready; one waiter takes each signal (auto-reset).
    mutable VantuThread::EventSemaphore statsReadyEvent_{false, false};
};

}  // namespace Ostrel
