// A log sink for tests that keeps every line it receives, in order. Any thread may add lines.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "core/LogCallInterface.h"

namespace SarvaneTest {

class RecordingLog : public Vantu::LogCallInterface {
public:
    struct Line {
        std::u16string text;
        Vantu::LogEntryCallInterface::EntrySeverities severity;
    };

    void AddEntry(const std::u16string& text, Vantu::LogEntryCallInterface::EntrySeverities severity) override;

    std::vector<Line> Lines() const;
    // The texts in UTF-8, readable in test failures.
    std::vector<std::string> Texts() const;
    // Whether some line contains `part`.
    bool Contains(const std::u16string& part) const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
};

}  // namespace SarvaneTest
