// One URI entry that the URI store removed: its index document id, where it came from, and its narrow URI.
// A plain value: copy it freely, share it read-only between threads.
#pragma once

#include <cstdint>
#include <string>

#include "SourceKey.h"

namespace Ostrel {

struct DocumentCollectionSourceURI {
    uint32_t indexDocumentId = 0;
    SourceKey key;
    std::string uri;

    bool operator==(const DocumentCollectionSourceURI&) const = default;
};

}  // namespace Ostrel
