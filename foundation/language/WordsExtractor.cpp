#include "language/WordsExtractor.h"

#include <algorithm>
#include <limits>

#include "file/BinaryStream.h"
#include "language/Language.h"
#include "language/StopWords.h"

namespace VantuLanguage {
namespace {

constexpr uint32_t kNoDistance = std::numeric_limits<uint32_t>::max();

// The smallest |pa - pb| by one merge walk over both ascending lists; 0 when they share a place.
uint32_t ClosestGap(const Vantu::FastVector<unsigned int>& a, const Vantu::FastVector<unsigned int>& b) {
    uint32_t best = kNoDistance;
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size() && best != 0) {
        if (a[i] < b[j]) {
            best = std::min(best, b[j] - a[i]);
            ++i;
        } else {
            best = std::min(best, a[i] - b[j]);
            ++j;
        }
    }
    return best;
}

bool Holds(const WordsExtractor::Occurence* occurence, uint64_t position) {
    const Vantu::FastVector<unsigned int>& p = occurence->positions;
    return position <= kNoDistance && std::binary_search(p.begin(), p.end(), static_cast<uint32_t>(position));
}

// Calls `onMatch(first, last)` for each place of the first term at which every term stands at its distance.
template <class OnMatch>
void ForEachPhraseMatch(const WordsExtractor::Occurence::PhraseList& list, OnMatch&& onMatch) {
    if (list.empty()) return;
    for (const auto& [occurence, gap] : list)
        if (!occurence || occurence->positions.empty()) return;
    for (uint32_t first : list.front().first->positions) {
        if (first < list.front().second) continue;
        uint64_t at = first;
        bool all = true;
        for (size_t k = 1; k < list.size() && all; ++k) {
            at += list[k].second;
            all = Holds(list[k].first.Get(), at);
        }
        if (all && !onMatch(first, static_cast<uint32_t>(at))) return;
    }
}

}  // namespace

using Occurence = WordsExtractor::Occurence;

bool Occurence::IsNear(const Occurence& a, const Occurence& b, unsigned distance) {
    const uint32_t gap = ClosestGap(a.positions, b.positions);
    return gap != kNoDistance && gap <= distance;
}

bool Occurence::IsExactPhrase(const PhraseList& list) {
    bool found = false;
    ForEachPhraseMatch(list, [&](uint32_t, uint32_t) { return !(found = true); });
    return found;
}

void Occurence::GetExactPhrasePositions(const PhraseList& list, Occurence& out, unsigned leading, unsigned trailing) {
    out.positions.clear();
    ForEachPhraseMatch(list, [&](uint32_t first, uint32_t last) {
        uint64_t from = first > leading ? first - leading : 0;
        const uint64_t to = std::min<uint64_t>(uint64_t{last} + trailing, kNoDistance - 1);
        if (!out.positions.empty()) from = std::max<uint64_t>(from, uint64_t{out.positions.back()} + 1);
        for (uint64_t p = from; p <= to; ++p) out.positions.push_back(static_cast<uint32_t>(p));
        return true;
    });
}

unsigned WordsExtractor::SmallestDistance(const Occurence& a, const Occurence& b) {
    const uint32_t gap = ClosestGap(a.positions, b.positions);
    return std::max<uint32_t>(gap, 1);
}

bool WordsExtractor::NormalForm(const std::u16string& word, std::u16string& normal) const {
    std::u16string expanded;
    Language::ExpandLigatures(word, expanded);
    return language_.NormalForm(expanded, stopWords_, normal);
}

uint32_t WordsExtractor::Extract(std::u16string_view text, std::vector<Word>& words, uint32_t firstPosition) const {
    const char16_t* const begin = text.data();
    const char16_t* const end = begin + text.size();
    const char16_t* cursor = begin;
    uint32_t position = firstPosition;
    std::u16string found;
    while (language_.FindWord(cursor, end, found)) {
        Word word{std::move(found), {}, position++, static_cast<uint32_t>(cursor - begin), false};
        word.offset -= static_cast<uint32_t>(word.text.size());
        word.stopWord = NormalForm(word.text, word.normal);
        words.push_back(std::move(word));
        found.clear();
    }
    return position;
}

void WordsExtractor::CollectTerms(const std::vector<Word>& words, std::map<std::u16string, Vantu::SmartPtr<Occurence>>& terms) {
    for (const Word& word : words) {
        Vantu::SmartPtr<Occurence>& occurence = terms[word.normal];
        if (!occurence) occurence = new Occurence();
        Vantu::FastVector<unsigned int>& positions = occurence->positions;
        if (positions.empty() || positions.back() < word.position)
            positions.push_back(word.position);
        else if (!std::binary_search(positions.begin(), positions.end(), word.position))
            positions.insert(std::lower_bound(positions.begin(), positions.end(), word.position), word.position);
    }
}

Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>& stream, const Occurence& occurence) {
    stream << static_cast<uint32_t>(occurence.positions.size());
    for (uint32_t position : occurence.positions) stream << position;
    return stream;
}

// Positions are read one by one, so a corrupt count fails at the end of the data instead of reserving it.
Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>& stream, Occurence& occurence) {
    uint32_t count;
    stream >> count;
    occurence.positions.clear();
    for (uint32_t i = 0, position; i < count; ++i) {
        stream >> position;
        occurence.positions.push_back(position);
    }
    return stream;
}

}  // namespace VantuLanguage
