#include "core/LogEntryAverageProgressWrapper.h"

#include <algorithm>
#include <numeric>

namespace Vantu {

using VantuThread::CriticalSectionLock;

LogEntryAverageProgressWrapper::LogEntryAverageProgressWrapper(SmartPtr<LogEntryCallInterface> entry, unsigned int tracks)
    : BaseLogEntryWrapper(std::move(entry)), tracks_(tracks, 0.0) {}

void LogEntryAverageProgressWrapper::SetProgress(double progress) {
    CriticalSectionLock lock(section_);
    std::fill(tracks_.begin(), tracks_.end(), progress);
    Publish();
}

double LogEntryAverageProgressWrapper::GetProgress() const {
    CriticalSectionLock lock(section_);
    return tracks_.empty() ? 0.0 : std::accumulate(tracks_.begin(), tracks_.end(), 0.0) / double(tracks_.size());
}

void LogEntryAverageProgressWrapper::SetTrackProgress(unsigned int track, double progress) {
    CriticalSectionLock lock(section_);
    if (track >= tracks_.size()) return;
    tracks_[track] = progress;
    Publish();
}

double LogEntryAverageProgressWrapper::GetTrackProgress(unsigned int track) const {
    CriticalSectionLock lock(section_);
    return track < tracks_.size() ? tracks_[track] : 0.0;
}

// The mean is passed on under the lock, so that the wrapped entry sees the means in the order the
// tracks changed.
void LogEntryAverageProgressWrapper::Publish() { Wrapped()->SetProgress(GetProgress()); }

}  // namespace Vantu
