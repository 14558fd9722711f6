// Synonyms of words, keyed by their lower-case base form: alternatives to add to a query, or a replacement.
// Filled once, then only read: any thread may look words up at any time.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "language/Language.h"

namespace VantuLanguage {

class Thesaurus {
public:
    struct ThesaurusNode {
        enum Kind : uint32_t { kAlternatives = 0, kReplacement = 1 };
        std::vector<std::u16string> words;
        uint32_t kind = kAlternatives;

        bool operator==(const ThesaurusNode&) const = default;
    };

    // Queries to expand are preprocessed and printed with this thesaurus's language.
    explicit Thesaurus(Language::StemmingType stemming = Language::kNoStemming) : language_(stemming) {}

    const Language& GetLanguage() const { return language_; }

    // A later entry for the same word replaces the earlier one.
    void AddEntry(const std::u16string& word, ThesaurusNode node);
    // `word` is a lower-case base form, as queries give it. True if it has an entry, which `node` receives.
    bool FindSynonym(const std::u16string& word, ThesaurusNode& node) const;
    size_t Size() const { return entries_.size(); }
    bool IsEmpty() const { return entries_.empty(); }

private:
    Language language_;
    std::map<std::u16string, ThesaurusNode> entries_;
};

}  // namespace VantuLanguage
