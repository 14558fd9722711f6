// The folding under which the highlighter compares the words of a document with those of a query.
// Pure functions over the constant tables of Language: any thread.
#pragma once

#include <string>

namespace VantuCharset {

class Unicode {
public:
    enum PrepareFlags : unsigned int {
        kLowerCase = 0x01,   // lower case
        kBaseLetters = 0x04, // with kLowerCase, accents off too: the canonical form of Language::ToLowerBase
        kLigatures = 0x10,   // ligatures spelt out first, as documents and queries are before they are indexed
        kKeepAccents = 0x40, // exact letters: only the case folds, whatever kBaseLetters says
    };

    // `out` is `in` folded by `flags`. 0x15 gives the form the index compares (before stemming); 0x55 the
    // exact letters, case aside.
    static void PrepareString(const std::u16string& in, std::u16string& out, const unsigned int& flags);

    // Whether `c` may begin a word (`atWordStart`) or stand inside one: the word characters of
    // Language::FindWord, except that a combining accent can't begin a word.
    static bool IsWordCharacter(char16_t c, bool atWordStart);
};

}  // namespace VantuCharset
