// Where a document comes from: physical index, collection and source ids. A plain value: copy it freely,
// share it read-only between threads.
#pragma once

#include <compare>
#include <cstdint>

#include "file/BinaryStream.h"

namespace Ostrel {

struct SourceKey {
    // In the source field: every source of the collection.
    static constexpr uint16_t kAllSources = 0xFFFF;

    uint16_t physical = 0;
    uint16_t collection = 0;
    uint16_t source = 0;

    SourceKey() = default;
    SourceKey(uint16_t physical, uint16_t collection, uint16_t source)
        : physical(physical), collection(collection), source(source) {}

    bool AllSources() const { return source == kAllSources; }
    // Field by field in declaration order: the URI store keys on this order, so it never changes.
    auto operator<=>(const SourceKey&) const = default;
};

// Six bytes: physical, collection, source, each a u16.
Vantu::BaseBinaryStream& operator<<(Vantu::BaseBinaryStream& stream, const SourceKey& key);
Vantu::BaseBinaryStream& operator>>(Vantu::BaseBinaryStream& stream, SourceKey& key);

}  // namespace Ostrel
