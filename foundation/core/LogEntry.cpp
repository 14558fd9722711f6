#include "core/LogEntry.h"

namespace Vantu {

using VantuThread::CriticalSectionLock;

LogEntry::LogEntry(SmartPtr<LogCallInterface> log, const std::u16string& text, EntrySeverities severity)
    : text_(text),
      opened_(std::chrono::steady_clock::now()),
      log_(std::move(log)),
      severity_(severity),
      date_(DateTime::GetCurrentDateTime()) {
    if (log_) log_->AddEntry(text_, severity_);
}

void LogEntry::End(bool cancelled) {
    CriticalSectionLock lock(section_);
    if (closed_) return;
    closed_ = true;
    cancelled_ = cancelled;
    if (duration_ < 0) duration_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - opened_).count();
}

void LogEntry::Close() { End(false); }
void LogEntry::Cancel() { End(true); }

bool LogEntry::IsClosed() const {
    CriticalSectionLock lock(section_);
    return closed_;
}

bool LogEntry::IsCancelled() const {
    CriticalSectionLock lock(section_);
    return cancelled_;
}

void LogEntry::SetLog(SmartPtr<LogCallInterface> log) {
    CriticalSectionLock lock(section_);
    log_ = std::move(log);
}

SmartPtr<LogCallInterface> LogEntry::GetLog() const {
    CriticalSectionLock lock(section_);
    return log_;
}

void LogEntry::SetField(const std::u16string& name, const std::u16string& value) {
    CriticalSectionLock lock(section_);
    fields_[name] = value;
}

std::u16string LogEntry::GetField(const std::u16string& name) const {
    CriticalSectionLock lock(section_);
    auto it = fields_.find(name);
    return it == fields_.end() ? std::u16string() : it->second;
}

void LogEntry::SetSeverity(EntrySeverities severity) {
    CriticalSectionLock lock(section_);
    severity_ = severity;
}

LogEntryCallInterface::EntrySeverities LogEntry::GetSeverity() const {
    CriticalSectionLock lock(section_);
    return severity_;
}

void LogEntry::SetDateTime(DateTime date) {
    CriticalSectionLock lock(section_);
    date_ = date;
}

DateTime LogEntry::GetDateTime() const {
    CriticalSectionLock lock(section_);
    return date_;
}

void LogEntry::SetDuration(double seconds) {
    CriticalSectionLock lock(section_);
    duration_ = seconds;
}

double LogEntry::GetDuration() const {
    CriticalSectionLock lock(section_);
    return duration_ < 0 ? 0.0 : duration_;
}

void LogEntry::SetProgress(double progress) {
    CriticalSectionLock lock(section_);
    progress_ = progress;
}

double LogEntry::GetProgress() const {
    CriticalSectionLock lock(section_);
    return progress_;
}

void LogEntry::SetComment(SmartPtr<MessageInfo> comment) {
    CriticalSectionLock lock(section_);
    comment_ = std::move(comment);
}

void LogEntry::SetComment(const std::u16string& comment) { SetComment(MessageInfo::FromText(comment)); }

std::u16string LogEntry::GetComment() const {
    CriticalSectionLock lock(section_);
    return comment_ ? comment_->GetMsg() : std::u16string();
}

void LogEntry::EnumFields(std::vector<std::u16string>& names) const {
    CriticalSectionLock lock(section_);
    for (const auto& field : fields_) names.push_back(field.first);
}

}  // namespace Vantu
