// One complete copy of a physical index: its slices by slice id, in the order the slice choice counts in.
// Holds the slices without owning them; the container guards it with its indexesLock.
#pragma once

#include <cstdint>
#include <map>

#include "SarvaneCallInterface.h"

namespace Ostrel {

class MirrorIndex {
public:
    using Slices = std::map<uint16_t, SarvaneCallInterface*>;

    MirrorIndex() = default;
    MirrorIndex(const MirrorIndex&) = default;
    MirrorIndex& operator=(const MirrorIndex&) = default;
    // Leaves the slices alone: only the container's destructor deletes them, through DeleteAll.
    ~MirrorIndex() = default;

    // Throws SarInvalidMirrorID (message 29: slice, physical, mirror) when the slice id is taken.
    void AddSliceIndex(SarvaneCallInterface* slice, uint16_t physical, uint16_t mirror, uint16_t sliceId);
    // The slice under `sliceId`, or null.
    SarvaneCallInterface* Find(uint16_t sliceId) const;
    void Erase(uint16_t sliceId) { slices_.erase(sliceId); }
    // Deletes every slice and empties the mirror.
    void DeleteAll();

    const Slices& GetSlices() const { return slices_; }
    bool IsEmpty() const { return slices_.empty(); }

private:
    Slices slices_;
};

}  // namespace Ostrel
