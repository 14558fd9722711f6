// The plain log entry: writes its text to the log when it opens, then keeps its state for whoever
// watches the operation (its progress, fields and comment). Any thread; its own lock guards the state.
#pragma once

#include <chrono>
#include <map>

#include "core/CriticalSection.h"
#include "core/LogCallInterface.h"

namespace Vantu {

class LogEntry : public LogEntryCallInterface {
public:
    // The date is now; a null log is allowed and receives nothing.
    LogEntry(SmartPtr<LogCallInterface> log, const std::u16string& text, EntrySeverities severity);

    // Both end the entry once; the first sets the duration from the opening unless one was set.
    void Close() override;
    void Cancel() override;
    bool IsClosed() const override;
    bool IsCancelled() const;
    void SetLog(SmartPtr<LogCallInterface> log) override;
    SmartPtr<LogCallInterface> GetLog() const override;
    void SetField(const std::u16string& name, const std::u16string& value) override;
    std::u16string GetField(const std::u16string& name) const override;
    void SetSeverity(EntrySeverities severity) override;
    EntrySeverities GetSeverity() const override;
    void SetDateTime(DateTime date) override;
    DateTime GetDateTime() const override;
    void SetDuration(double seconds) override;
    double GetDuration() const override;
    void SetProgress(double progress) override;
    double GetProgress() const override;
    void SetComment(SmartPtr<MessageInfo> comment) override;
    void SetComment(const std::u16string& comment) override;
    std::u16string GetComment() const override;
    void EnumFields(std::vector<std::u16string>& names) const override;
    const std::u16string& Text() const { return text_; }

private:
    void End(bool cancelled);

    mutable VantuThread::CriticalSection section_;
    const std::u16string text_;
    const std::chrono::steady_clock::time_point opened_;
    SmartPtr<LogCallInterface> log_;
    std::map<std::u16string, std::u16string> fields_;
    EntrySeverities severity_;
    DateTime date_;
    double duration_ = -1.0;  // not set
    double progress_ = 0.0;
    SmartPtr<MessageInfo> comment_;
    bool closed_ = false;
    bool cancelled_ = false;
};

}  // namespace Vantu
