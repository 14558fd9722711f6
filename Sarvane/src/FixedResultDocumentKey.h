// One pinned document of a query: its URI, its place in the pin's list and its collection and source.
// A plain value: copy it freely, share it read-only between threads.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

namespace Ostrel {

struct FixedResultDocumentKey {
    std::u16string uri;
    uint16_t order = 0;
    uint16_t collection = 0;
    uint16_t source = 0;
    // The URI is used as written; otherwise it is lower-cased unit by unit.
    bool caseSensitive = false;

    FixedResultDocumentKey() = default;
    FixedResultDocumentKey(const std::u16string& uri, uint16_t order, uint16_t collection, uint16_t source,
                           bool caseSensitive)
        : uri(uri), order(order), collection(collection), source(source), caseSensitive(caseSensitive) {}

    bool operator==(const FixedResultDocumentKey&) const = default;
    // By URI (UTF-16 units, then length), collection, source, then order; caseSensitive does not order.
    bool operator<(const FixedResultDocumentKey& o) const {
        return std::tie(uri, collection, source, order) < std::tie(o.uri, o.collection, o.source, o.order);
    }
};

}  // namespace Ostrel
