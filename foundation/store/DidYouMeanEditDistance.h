// The distance between a misspelt word and a candidate, in half steps: 2 units are one whole edit.
// Stateless: any thread.
#pragma once

#include <set>
#include <string>

namespace VantuAlgo {

// Costs, in units: inserting, deleting, replacing a character or swapping two neighbours is 2. Half a
// step (1) is replacing a character by one the language folds to the same base letter (case or accent),
// or inserting or deleting a character that repeats the one before it ("adress", "occured"): the usual
// slips of typing.
class DidYouMeanEditDistance {
public:
    unsigned int GetEditDistance(const std::u16string& a, const std::u16string& b) const;
    // UTF-8 words, compared as their UTF-16 code units.
    unsigned int GetEditDistance(const std::string& a, const std::string& b) const;

    // The characters that the language folds to the same base letter as character, that letter
    // included, character itself left out: case and accent variants. Empty when there are none.
    void GetCompatibleChar(const unsigned short& character, std::set<unsigned short>& result) const;
};

}  // namespace VantuAlgo
