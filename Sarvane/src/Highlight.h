// A marked stretch of a text (a query word or phrase in a sentence, a title or a URI), counted in UTF-16
// units. A plain value: copy it freely, share it read-only between threads.
#pragma once

#include <cstdint>

namespace Ostrel {

struct Highlight {
    uint32_t start = 0;
    uint32_t length = 0;

    bool operator==(const Highlight&) const = default;
};

}  // namespace Ostrel
