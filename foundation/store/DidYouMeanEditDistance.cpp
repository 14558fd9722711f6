#include "store/DidYouMeanEditDistance.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Text.h"
#include "language/Language.h"

namespace VantuAlgo {

namespace {

using VantuLanguage::Language;

constexpr unsigned int kStep = 2;
constexpr unsigned int kHalfStep = 1;

// The lower-case base letter under which the language folds a character for the index; a character
// that folds to several letters, or to nothing, stands for itself.
char16_t BaseOf(char16_t c) {
    if (c < 256) {
        char16_t base = Language::CharArray::m_CharArray[c].lowerBase;
        return base != 0 ? base : c;
    }
    const VantuLanguage::HighCharEntry* entry = Language::m_msHighCharMap.find(c);
    return entry != nullptr && entry->lowerBase.size() == 1 ? entry->lowerBase[0] : c;
}

// Every character by its base letter, for the characters that share one with some other character.
const std::unordered_map<char16_t, std::vector<char16_t>>& Groups() {
    static const auto groups = [] {
        std::unordered_map<char16_t, std::vector<char16_t>> byBase;
        for (uint32_t c = 0; c <= 0xFFFF; ++c) {
            char16_t base = BaseOf(static_cast<char16_t>(c));
            if (base == c) continue;
            auto& group = byBase[base];
            if (group.empty()) group.push_back(base);
            group.push_back(static_cast<char16_t>(c));
        }
        return byBase;
    }();
    return groups;
}

unsigned int ReplaceCost(char16_t a, char16_t b, char16_t baseA, char16_t baseB) {
    return a == b ? 0 : baseA == baseB ? kHalfStep : kStep;
}

// Inserting or deleting word[i] is cheap when it repeats the character before it; only the second of a
// pair is cheap, so removing a whole pair still costs more than a step.
unsigned int InsertCost(std::u16string_view word, size_t i) { return i > 0 && word[i - 1] == word[i] ? kHalfStep : kStep; }

}  // namespace

// Optimal string alignment: the classic table, with one row kept two rows back for swaps.
unsigned int DidYouMeanEditDistance::GetEditDistance(const std::u16string& a, const std::u16string& b) const {
    const size_t n = a.size(), m = b.size();
    std::u16string baseA(a), baseB(b);
    for (char16_t& c : baseA) c = BaseOf(c);
    for (char16_t& c : baseB) c = BaseOf(c);
    std::vector<unsigned int> before(m + 1), previous(m + 1), current(m + 1);
    for (size_t j = 1; j <= m; ++j) previous[j] = previous[j - 1] + InsertCost(b, j - 1);
    for (size_t i = 1; i <= n; ++i) {
        current[0] = previous[0] + InsertCost(a, i - 1);
        for (size_t j = 1; j <= m; ++j) {
            unsigned int best = std::min({previous[j] + InsertCost(a, i - 1), current[j - 1] + InsertCost(b, j - 1),
                                          previous[j - 1] + ReplaceCost(a[i - 1], b[j - 1], baseA[i - 1], baseB[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1] && a[i - 1] != a[i - 2])
                best = std::min(best, before[j - 2] + kStep);
            current[j] = best;
        }
        std::swap(before, previous);
        std::swap(previous, current);
    }
    return previous[m];
}

unsigned int DidYouMeanEditDistance::GetEditDistance(const std::string& a, const std::string& b) const {
    return GetEditDistance(Vantu::FromUtf8(a), Vantu::FromUtf8(b));
}

void DidYouMeanEditDistance::GetCompatibleChar(const unsigned short& character,
                                               std::set<unsigned short>& result) const {
    result.clear();
    auto group = Groups().find(BaseOf(static_cast<char16_t>(character)));
    if (group == Groups().end()) return;
    for (char16_t c : group->second)
        if (c != character) result.insert(c);
}

}  // namespace VantuAlgo
