// The document analyser: text to words with positions and normal forms, and the arithmetic of word positions.
// An extractor is only read after construction, so one may serve many threads; the static operations are pure.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/FastVector.h"
#include "core/RefCounted.h"

namespace Vantu {
template <class T>
class BinaryStreamT;
}

namespace VantuLanguage {

class Language;
class StopWords;

class WordsExtractor {
public:
    // The ascending positions of one term in one document (or of a phrase's words, see GetExactPhrasePositions).
    // Callers read and fill `positions` directly.
    class Occurence : public Vantu::SPRefCounter {
    public:
        using PhraseList = std::vector<std::pair<Vantu::SmartPtr<Occurence>, unsigned>>;

        Occurence() = default;
        Occurence(std::initializer_list<unsigned int> p) : positions(p) {}

        // Some place of `a` and some place of `b` lie at most `distance` words apart, in either order.
        static bool IsNear(const Occurence& a, const Occurence& b, unsigned distance);
        // Each entry: a term's occurrence and its distance from the term before it; for the first term, the
        // number of words ahead of it in the phrase, which must fit in front of it.
        static bool IsExactPhrase(const PhraseList& list);
        // Every place covered by a match of the phrase, widened by `leading` words before it and `trailing`
        // behind it (the stop words at its ends), ascending and without repeats, so that IsNear measures from
        // the nearest word of the phrase.
        static void GetExactPhrasePositions(const PhraseList& list, Occurence& out, unsigned leading,
                                            unsigned trailing);

        Vantu::FastVector<unsigned int> positions;
    };

    // One word of a text as the analyser found it.
    struct Word {
        std::u16string text;    // as written
        std::u16string normal;  // the form under which it is stored and looked up
        uint32_t position;      // word number, from the first position given to Extract
        uint32_t offset;        // of its first unit in the text
        bool stopWord;
    };

    WordsExtractor(const Language& language, const StopWords& stopWords)
        : language_(language), stopWords_(stopWords) {}

    // Appends the words of `text`, numbered from `firstPosition`; returns the position behind the last word, from
    // which a following stretch of the same document goes on.
    uint32_t Extract(std::u16string_view text, std::vector<Word>& words, uint32_t firstPosition = 0) const;

    // Adds the position of each word to the occurrence of its normal form.
    static void CollectTerms(const std::vector<Word>& words, std::map<std::u16string, Vantu::SmartPtr<Occurence>>& terms);

    // The smallest distance between a place of `a` and one of `b`, at least 1 (adjacent words are 1 apart);
    // 0xFFFFFFFF when either has no place.
    static unsigned SmallestDistance(const Occurence& a, const Occurence& b);

    // The normal form of one word as the query side makes it: ligatures expanded, ToLowerBase, and the stem
    // unless that is a stop word. Returns whether it is one.
    bool NormalForm(const std::u16string& word, std::u16string& normal) const;

private:
    const Language& language_;
    const StopWords& stopWords_;
};

// u32 count, then the positions, each a u32, ascending.
Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>& stream,
                                               const WordsExtractor::Occurence& occurence);
Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>& stream,
                                               WordsExtractor::Occurence& occurence);

}  // namespace VantuLanguage
