// Ends a log entry when the scope ends, however it ends: Close, or Cancel when asked at construction.
// Drop() ends the guard's duty early. One thread: the scope's owner.
#pragma once

#include "core/LogEntryCallInterface.h"

namespace Vantu {

class LogEntryCloser {
public:
    LogEntryCloser(SmartPtr<LogEntryCallInterface> entry, bool cancel) : entry_(std::move(entry)), cancel_(cancel) {}
    ~LogEntryCloser() {
        if (!entry_ || entry_->IsClosed()) return;
        if (cancel_)
            entry_->Cancel();
        else
            entry_->Close();
    }
    LogEntryCloser(const LogEntryCloser&) = delete;
    LogEntryCloser& operator=(const LogEntryCloser&) = delete;

    void Drop() { entry_ = nullptr; }

private:
    SmartPtr<LogEntryCallInterface> entry_;
    const bool cancel_;
};

}  // namespace Vantu
