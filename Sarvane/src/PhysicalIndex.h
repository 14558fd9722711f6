// One physical index: its mirrors by id and its collections, each with an access list.
// A plain record of the container's topology, guarded by the container's indexesLock.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>

#include "MirrorIndex.h"
#include "SarvaneContainerAccess.h"

namespace Ostrel {

class PhysicalIndex {
public:
    using Mirrors = std::map<uint16_t, MirrorIndex>;
    using CollectionAccess = std::map<uint16_t, Vantu::SmartPtr<SarcAccessList>>;

    Mirrors& GetMirrors() { return mirrors_; }
    const Mirrors& GetMirrors() const { return mirrors_; }
    CollectionAccess& GetCollectionAccess() { return collectionAccess_; }
    const CollectionAccess& GetCollectionAccess() const { return collectionAccess_; }
    // The collection ids that each slice joining this index is told about.
    const std::set<uint16_t>& GetSupportedCollections() const { return supportedCollections_; }

    // Throws SarInvalidCollectionID (message 11) when the collection exists.
    void AddCollection(uint16_t collection);
    // Throws SarInvalidCollectionID (message 11) when the collection is unknown.
    void RemoveCollection(uint16_t collection);
    // The collection's access list; throws SarInvalidCollectionID (message 11) when it is unknown.
    const Vantu::SmartPtr<SarcAccessList>& GetAccessList(uint16_t collection) const;

    // Calls `call` on every slice of every mirror, mirrors and slices in id order.
    void ForEachSlice(const std::function<void(SarvaneCallInterface&)>& call) const;

private:
    Mirrors mirrors_;
    CollectionAccess collectionAccess_;
    std::set<uint16_t> supportedCollections_;
};

}  // namespace Ostrel
