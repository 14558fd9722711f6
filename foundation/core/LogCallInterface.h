// The application's log sink. Implementations must accept calls from any thread at once: slices log
// from pool workers and from their reader threads.
#pragma once

#include <string>

#include "core/LogEntryCallInterface.h"

namespace Vantu {

class LogCallInterface : public SPRefCounter {
public:
    // Writes one line at once.
    virtual void AddEntry(const std::u16string& text, LogEntryCallInterface::EntrySeverities severity) = 0;
};

}  // namespace Vantu
