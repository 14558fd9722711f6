// A long-running log entry: a text with fields, a severity, a date, a duration, a progress from 0.0
// to 1.0 and a comment. Implementations are callable from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/DateTime.h"
#include "core/MessageInfo.h"
#include "core/RefCounted.h"

namespace Vantu {

class LogCallInterface;

class LogEntryCallInterface : public SPRefCounter {
public:
    // 0 is a normal report and 3 an exception text; the two between grade what lies between.
    enum EntrySeverities : int32_t { Normal = 0, Notice = 1, Warning = 2, Error = 3 };

    virtual void Close() = 0;   // the operation ended normally
    virtual void Cancel() = 0;  // the operation was given up
    virtual bool IsClosed() const = 0;
    virtual void SetLog(SmartPtr<LogCallInterface> log) = 0;
    virtual SmartPtr<LogCallInterface> GetLog() const = 0;
    virtual void SetField(const std::u16string& name, const std::u16string& value) = 0;
    virtual std::u16string GetField(const std::u16string& name) const = 0;
    virtual void SetSeverity(EntrySeverities severity) = 0;
    virtual EntrySeverities GetSeverity() const = 0;
    virtual void SetDateTime(DateTime date) = 0;
    virtual DateTime GetDateTime() const = 0;
    virtual void SetDuration(double seconds) = 0;
    virtual double GetDuration() const = 0;
    virtual void SetProgress(double progress) = 0;
    virtual double GetProgress() const = 0;
    virtual void SetComment(SmartPtr<MessageInfo> comment) = 0;
    virtual void SetComment(const std::u16string& comment) = 0;
    virtual std::u16string GetComment() const = 0;
    // Appends the names of the fields set so far, in name order.
    virtual void EnumFields(std::vector<std::u16string>& names) const = 0;
};

}  // namespace Vantu
