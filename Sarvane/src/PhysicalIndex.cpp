#include "PhysicalIndex.h"

#include "SarException.h"

namespace Ostrel {

void PhysicalIndex::AddCollection(uint16_t collection) {
    if (collectionAccess_.count(collection)) throw SarInvalidCollectionID(SAR_MESSAGE(11, collection));
    collectionAccess_.emplace(collection, new SarcAccessList);
    supportedCollections_.insert(collection);
}

void PhysicalIndex::RemoveCollection(uint16_t collection) {
    if (!collectionAccess_.erase(collection)) throw SarInvalidCollectionID(SAR_MESSAGE(11, collection));
    supportedCollections_.erase(collection);
}

const Vantu::SmartPtr<SarcAccessList>& PhysicalIndex::GetAccessList(uint16_t collection) const {
    auto it = collectionAccess_.find(collection);
    if (it == collectionAccess_.end()) throw SarInvalidCollectionID(SAR_MESSAGE(11, collection));
    return it->second;
}

void PhysicalIndex::ForEachSlice(const std::function<void(SarvaneCallInterface&)>& call) const {
    for (const auto& [mirrorId, mirror] : mirrors_)
        for (const auto& [sliceId, slice] : mirror.GetSlices()) call(*slice);
}

}  // namespace Ostrel
