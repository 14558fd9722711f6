#include "MirrorIndex.h"

#include "SarException.h"

namespace Ostrel {

void MirrorIndex::AddSliceIndex(SarvaneCallInterface* slice, uint16_t physical, uint16_t mirror, uint16_t sliceId) {
    if (!slices_.emplace(sliceId, slice).second)
        throw SarInvalidMirrorID(SAR_MESSAGE(29, sliceId, physical, mirror));
}

SarvaneCallInterface* MirrorIndex::Find(uint16_t sliceId) const {
    auto it = slices_.find(sliceId);
    return it == slices_.end() ? nullptr : it->second;
}

void MirrorIndex::DeleteAll() {
    for (auto& [id, slice] : slices_) delete slice;
    slices_.clear();
}

}  // namespace Ostrel
