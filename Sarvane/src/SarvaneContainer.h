// The one object an application talks to: the topology of physical indexes, mirrors and slices, the stores
// they share, and their start and stop in a fixed order. Reference counted; any thread may call it, and
// the locks operationLock, indexesLock and the configuration's lock are taken in that order.
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
#include "core/LogCallInterface.h"
#include "core/ReadWriteSemaphore.h"
#include "core/RefCounted.h"
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

    SarvaneContainerConfig config_;
    const Vantu::SmartPtr<Vantu::LogCallInterface> log_;
    const std::unique_ptr<SarvaneContainerStores> stores_;
    // Set while started: the test behind IsStarted.
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
    VantuThread::ThreadPool queryPool_;
    VantuThread::ThreadPool fastQueryPool_;
    SarOperationPool operationPool_;
};

}  // namespace Ostrel
