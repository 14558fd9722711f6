// Verifies every invariant of a slice directory's files without changing a byte: sizes, free lists, postings,
// positions, dictionary trees, documents, doc-id lists, commit logs and slice transactions. One thread per check.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "SarCheckFiles.h"

namespace Ostrel {

class SarCheckReport {
public:
    std::vector<SarCheckFinding> findings;
    // Bytes of data files decoded so far, and the total the check will decode.
    uint64_t bytesChecked = 0;
    uint64_t bytesTotal = 0;
    // Called as the check moves on, with bytesChecked and bytesTotal; optional.
    std::function<void(uint64_t checked, uint64_t total)> progress;

    void Add(SarCheckFinding finding) { findings.push_back(std::move(finding)); }
    // Findings that are faults, information aside.
    size_t Faults() const;
    bool Sound() const { return Faults() == 0; }
    // One finding a line.
    std::string ToString() const;
};

// Checks the slice in `directory`, which it only reads: each store is checked on the files it finds, and
// the rules across stores where both sides are there. Never raises for damaged files: they give findings.
void CheckSlice(const std::string& directory, SarCheckReport& report);

}  // namespace Ostrel
