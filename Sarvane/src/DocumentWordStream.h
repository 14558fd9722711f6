// The analysed content of one document, item by item in the order of its compressed word stream, written to
// and read from a Document's wordStream as one zlib unit. A plain value: one thread at a time per object.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "CustomField.h"
#include "IndexedDocument.h"
#include "SummarySentence.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "language/WordsExtractor.h"
#include "store/ShingleBag.h"

namespace Ostrel {

struct DocumentWordStream {
    // One term of a document: its normal form (UTF-8), the flags its postings carry, and its word positions.
    struct Term {
        std::string term;
        uint16_t flags = 0;
        VantuLanguage::WordsExtractor::Occurence occurence;  // ascending positions

        bool operator==(const Term& other) const;
    };
    using TermList = std::vector<Term>;

    // A custom field; an indexed text field carries the terms of its value in two lists, which the writer
    // merges. The analyser puts the value's words, from position 0, in the first list and the end-of-value
    // term "!", right behind the last word, in the second. The lists of any other field are not written.
    struct Field {
        CustomField field;
        TermList valueTerms;
        TermList endTerms;

        bool CarriesTerms() const { return field.IsIndexed() && field.GetType() == CustomField::kString; }
        bool operator==(const Field&) const = default;
    };

    // A word as written, with how often it occurs (at least 1); it feeds the did-you-mean lexicon.
    using WordCount = std::pair<std::u16string, uint32_t>;

    uint32_t leading = 0;  // the engine reads past it
    TermList terms;
    VantuAlgo::ShingleBag shingles;
    std::array<uint8_t, IndexedDocument::kSignatureSize> signature{};
    std::vector<SummarySentence> sentences;
    std::vector<std::u16string> strings;
    std::vector<Field> fields;
    std::vector<WordCount> words;
    TermList lastTerms;  // goes to the same term map as `terms`

    // Replaces the contents of `out` with one zlib unit holding this stream.
    void Write(VantuFile::MemoryBuffer& out) const;
    // Reads the unit that `in` holds, without moving its positions; a unit with bytes left over behind the
    // last item is refused as damaged.
    static DocumentWordStream Read(const VantuFile::MemoryBuffer& in);

    bool operator==(const DocumentWordStream&) const = default;
};

}  // namespace Ostrel
