// One document that the open transaction added or removed, as told to the commit participants.
// A plain value: copy it freely, share it read-only between threads.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

#include "SourceKey.h"
#include "core/DateTime.h"

namespace Ostrel {

struct ProcessedDocument {
    SourceKey key;
    std::u16string uri;
    std::u16string name;
    uint32_t extra = 0;
    Vantu::DateTime date;
    uint32_t documentSize = 0;
    bool added = false;  // false: a removal

    ProcessedDocument() = default;
    ProcessedDocument(SourceKey key, std::u16string uri, std::u16string name, uint32_t extra, Vantu::DateTime date,
                      uint32_t documentSize, bool added)
        : key(key), uri(std::move(uri)), name(std::move(name)), extra(extra), date(date),
          documentSize(documentSize), added(added) {}

    // By key, then URI: a set of these finds a document by those two alone.
    bool operator<(const ProcessedDocument& o) const { return std::tie(key, uri) < std::tie(o.key, o.uri); }
};

}  // namespace Ostrel
