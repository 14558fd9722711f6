// The picture of an index that the statistics cache hands out: per collection, per slice and for the
// container. Plain values: copy them freely; one thread at a time per object.
#pragma once

#include <cstdint>
#include <map>
#include <tuple>

#include "core/DateTime.h"

namespace Ostrel {

struct SarvaneCollectionStatistics {
    uint64_t size = 0;
    uint64_t deletedSize = 0;
    uint32_t count = 0;
    uint32_t deleted = 0;
    // Documents in transactions that the slice's reader has not applied yet.
    uint32_t pendingAdded = 0;
    uint32_t pendingDeleted = 0;

    bool operator==(const SarvaneCollectionStatistics&) const = default;
};

struct SarvaneSliceStatistics {
    std::map<uint16_t, SarvaneCollectionStatistics> collections;
    uint64_t diskSpaceUsed = 0;

    // False, and `out` untouched, for a collection the slice doesn't hold.
    bool GetCollectionStats(uint16_t collection, SarvaneCollectionStatistics& out) const {
        const auto found = collections.find(collection);
        if (found == collections.end()) return false;
        out = found->second;
        return true;
    }
    bool operator==(const SarvaneSliceStatistics&) const = default;
};

struct SarvaneStatistics {
    // Physical index, mirror and slice ids.
    using SliceKey = std::tuple<uint16_t, uint16_t, uint16_t>;

    std::map<SliceKey, SarvaneSliceStatistics> slices;
    Vantu::DateTime date;
    uint64_t cachedDocumentsSize = 0;
    uint64_t containerStoresSize = 0;
    uint64_t linksSize = 0;
    int32_t compactionProgress = -1;  // percent, or -1 when no compaction runs
    int32_t secondValue = -1;
    bool seen = false;  // false on the first read of a refreshed cache

    bool operator==(const SarvaneStatistics&) const = default;
};

}  // namespace Ostrel
