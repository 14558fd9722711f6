#include "language/Thesaurus.h"

#include "language/Language.h"

namespace VantuLanguage {

void Thesaurus::AddEntry(const std::u16string& word, ThesaurusNode node) {
    std::u16string key;
    Language::ExpandLigatures(word, key);
    Language::ToLowerBase(key, key, true);
    entries_[key] = std::move(node);
}

bool Thesaurus::FindSynonym(const std::u16string& word, ThesaurusNode& node) const {
    const auto it = entries_.find(word);
    if (it == entries_.end()) return false;
    node = it->second;
    return true;
}

}  // namespace VantuLanguage
