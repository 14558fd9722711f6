// One track of a LogEntryAverageProgressWrapper, so that each parallel worker reports as if it were
// alone. Wrapping any other entry, it forwards progress unchanged. Any thread.
#pragma once

#include "core/LogEntryAverageProgressWrapper.h"

namespace Vantu {

class LogEntryDistinctProgressWrapper : public BaseLogEntryWrapper {
public:
    LogEntryDistinctProgressWrapper(SmartPtr<LogEntryCallInterface> entry, unsigned int index)
        : BaseLogEntryWrapper(entry), average_(dynamic_cast<LogEntryAverageProgressWrapper*>(entry.Get())), index_(index) {}

    void SetProgress(double progress) override {
        if (average_)
            average_->SetTrackProgress(index_, progress);
        else
            Wrapped()->SetProgress(progress);
    }
    double GetProgress() const override { return average_ ? average_->GetTrackProgress(index_) : Wrapped()->GetProgress(); }

private:
    LogEntryAverageProgressWrapper* const average_;  // the wrapped entry, when it is an average
    const unsigned int index_;
};

}  // namespace Vantu
