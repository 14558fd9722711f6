// Lets one step of a long operation report its progress as if it were the whole: the wrapped entry
// gets base + progress * weight. Any thread.
#pragma once

#include <atomic>

#include "core/BaseLogEntryWrapper.h"

namespace Vantu {

class LogEntryProgressWrapper : public BaseLogEntryWrapper {
public:
    LogEntryProgressWrapper(SmartPtr<LogEntryCallInterface> entry, double base, double weight)
        : BaseLogEntryWrapper(std::move(entry)), base_(base), weight_(weight) {}

    void SetProgress(double progress) override {
        progress_ = progress;
        Wrapped()->SetProgress(base_ + progress * weight_);
    }
    // In the wrapper's own scale: what was last set here.
    double GetProgress() const override { return progress_; }

private:
    const double base_;
    const double weight_;
    std::atomic<double> progress_{0.0};
};

}  // namespace Vantu
