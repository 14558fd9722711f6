// Keeps one progress value per track, for work that runs in parallel; the wrapped entry gets their
// mean. Any thread: the tracks are under a lock of their own.
#pragma once

#include <vector>

#include "core/BaseLogEntryWrapper.h"
#include "core/CriticalSection.h"

namespace Vantu {

class LogEntryAverageProgressWrapper : public BaseLogEntryWrapper {
public:
    LogEntryAverageProgressWrapper(SmartPtr<LogEntryCallInterface> entry, unsigned int tracks);

    // Sets every track.
    void SetProgress(double progress) override;
    // The mean of the tracks.
    double GetProgress() const override;
    // A track past the last is ignored.
    void SetTrackProgress(unsigned int track, double progress);
    double GetTrackProgress(unsigned int track) const;

private:
    // Under section_.
    void Publish();

    mutable VantuThread::CriticalSection section_;
    std::vector<double> tracks_;
};

}  // namespace Vantu
