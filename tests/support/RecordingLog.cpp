#include "RecordingLog.h"

#include "core/Text.h"

namespace SarvaneTest {

void RecordingLog::AddEntry(const std::u16string& text, Vantu::LogEntryCallInterface::EntrySeverities severity) {
    std::lock_guard guard(mutex_);
    lines_.push_back({text, severity});
}

std::vector<RecordingLog::Line> RecordingLog::Lines() const {
    std::lock_guard guard(mutex_);
    return lines_;
}

std::vector<std::string> RecordingLog::Texts() const {
    std::vector<std::string> texts;
    for (const Line& line : Lines()) texts.push_back(Vantu::ToUtf8(line.text));
    return texts;
}

bool RecordingLog::Contains(const std::u16string& part) const {
    std::lock_guard guard(mutex_);
    for (const Line& line : lines_)
        if (line.text.find(part) != std::u16string::npos) return true;
    return false;
}

void RecordingLog::Clear() {
    std::lock_guard guard(mutex_);
    lines_.clear();
}

}  // namespace SarvaneTest
