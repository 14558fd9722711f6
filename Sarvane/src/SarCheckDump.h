// The contents of a slice as JSON lines, read as the index checker reads it: never changing a byte. Damage
// the readers meet raises SarCheckDamage. One thread per call.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace Ostrel {

class SarCheckDump {
public:
    explicit SarCheckDump(std::string directory) : directory_(std::move(directory)) {}

    // One line per term of the dictionary trees: {"term","id","tree","documents"}.
    void Terms(std::ostream& out) const;
    // One line per posting of `term`: {"term","id","document","flags","positions"}; a small term's lines have
    // no flags and positions. Nothing for a term the dictionary doesn't know.
    void Term(const std::string& term, std::ostream& out) const;
    // One line: the document's record, stored form and word list; {"document","blank":true} for a blank record.
    void Document(uint32_t documentId, std::ostream& out) const;
    // One line per doc-id list of "Collections" and "SmallTerms": {"store","list","documents"}.
    void Lists(std::ostream& out) const;

private:
    const std::string directory_;
};

// `text` as a JSON string, quotes included.
std::string SarJsonString(const std::string& text);

}  // namespace Ostrel
