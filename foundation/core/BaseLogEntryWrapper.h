// A log entry that forwards every operation to the entry it wraps; subclasses change some of them.
// Any thread, as the wrapped entry.
#pragma once

#include "core/LogCallInterface.h"

namespace Vantu {

class BaseLogEntryWrapper : public LogEntryCallInterface {
public:
    explicit BaseLogEntryWrapper(SmartPtr<LogEntryCallInterface> entry) : entry_(std::move(entry)) {}

    void Close() override { entry_->Close(); }
    void Cancel() override { entry_->Cancel(); }
    bool IsClosed() const override { return entry_->IsClosed(); }
    void SetLog(SmartPtr<LogCallInterface> log) override { entry_->SetLog(std::move(log)); }
    SmartPtr<LogCallInterface> GetLog() const override { return entry_->GetLog(); }
    void SetField(const std::u16string& name, const std::u16string& value) override { entry_->SetField(name, value); }
    std::u16string GetField(const std::u16string& name) const override { return entry_->GetField(name); }
    void SetSeverity(EntrySeverities severity) override { entry_->SetSeverity(severity); }
    EntrySeverities GetSeverity() const override { return entry_->GetSeverity(); }
    void SetDateTime(DateTime date) override { entry_->SetDateTime(date); }
    DateTime GetDateTime() const override { return entry_->GetDateTime(); }
    void SetDuration(double seconds) override { entry_->SetDuration(seconds); }
    double GetDuration() const override { return entry_->GetDuration(); }
    void SetProgress(double progress) override { entry_->SetProgress(progress); }
    double GetProgress() const override { return entry_->GetProgress(); }
    void SetComment(SmartPtr<MessageInfo> comment) override { entry_->SetComment(std::move(comment)); }
    void SetComment(const std::u16string& comment) override { entry_->SetComment(comment); }
    std::u16string GetComment() const override { return entry_->GetComment(); }
    void EnumFields(std::vector<std::u16string>& names) const override { entry_->EnumFields(names); }

protected:
    const SmartPtr<LogEntryCallInterface>& Wrapped() const { return entry_; }

private:
    const SmartPtr<LogEntryCallInterface> entry_;
};

}  // namespace Vantu
