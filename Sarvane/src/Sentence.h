// One sentence of a result's summary with the marks of the query's words in it and the points it earned.
// A plain value: copy it freely, share it read-only between threads.
#pragma once

#include <string>

#include "Highlight.h"
#include "core/FastVector.h"

namespace Ostrel {

struct Sentence {
    std::u16string text;
    Vantu::FastVector<Highlight> marks;
    int weight = 0;
};

}  // namespace Ostrel
