// The stores that every slice of a container shares, as the container's Start, Stop and recovery drive them,
// and the factory that builds them. The container calls them under its own locks, one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "SarvaneContainerAccess.h"
#include "core/RefCounted.h"

namespace Ostrel {

class SarvaneContainerConfig;

// A shared store takes part in the container's commit as a whole: it commits or rolls back with the slices.
class SarcSharedStore {
public:
    virtual ~SarcSharedStore() = default;
    virtual void Commit() = 0;
    virtual void Rollback() = 0;
};

// The tree of indexed locations; its presence is what makes a container started.
class SarcURIStore : public SarcSharedStore, public Vantu::SPRefCounter {
public:
    // Recovery of every store and slice is over.
    virtual void RecoveryDone() = 0;
    // Opens the transaction that the next commit publishes; writable containers only.
    virtual void BeginTransaction() = 0;
    // The number of documents the tree holds.
    virtual uint32_t GetNumberOfDocuments() const = 0;
};

// The expansion of identities into the groups they belong to.
class SarcSecurityCache : public SarcSharedStore, public Vantu::SPRefCounter {
public:
    // `out` gets the identities and every group they are known to belong to.
    virtual void RetrieveLocalNetworkIDs(const std::vector<SarcIdentity>& identities,
                                         std::vector<SarcIdentity>& out) = 0;
    // The profile that groups are expanded with has changed: expand every group again.
    virtual void ExpandAllGroupsAgain() = 0;
};

class SarvaneContainerStores {
public:
    virtual ~SarvaneContainerStores() = default;

    // The cached copies of documents, in `directory` (which ends in "/") under the name "Repository".
    virtual std::unique_ptr<SarcSharedStore> CreateCachedCopies(const std::string& directory, bool readOnly) = 0;
    // The link graph, in `directory`; built only when the configuration enables it.
    virtual std::unique_ptr<SarcSharedStore> CreateLinks(const std::string& directory, bool readOnly) = 0;
    // Finishes or undoes a compaction that a crash cut short, before any store but the cached copies opens.
    virtual void RecoverShrink(const SarvaneContainerConfig& config) = 0;
    virtual Vantu::SmartPtr<SarcURIStore> CreateURIStore(const SarvaneContainerConfig& config, bool readOnly) = 0;
    virtual Vantu::SmartPtr<SarcSecurityCache> CreateSecurityCache(const SarvaneContainerConfig& config,
                                                                   bool readOnly) = 0;
};

}  // namespace Ostrel
