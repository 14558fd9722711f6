// Turns a document's title and body text into its word stream, with the same word forms that the query side
// looks up. Only read after construction: any thread may analyse, each with its own Document.
//
// How the text is laid out:
// - The title's words come first, numbered from 0; the body's words follow one position behind, so that a
//   phrase never runs from the title into the body. Stop words take a position but give no term.
// - A term is the normal form of a word (ligatures spelt out, lower-case base letters, then the stem unless it is
//   a stop word), in UTF-8. A term that occurs in the title carries the term flag 0x0001 (in the title); no
//   other flag is set. All terms go to the first term list; the last term list, which feeds the same term map,
//   stays empty, so a term is never listed twice for one document.
// - The shingle bag is made of the normal forms of all body words, stop words included.
// - The signature holds the number of title words, the caller's quality and language mask, the length exponent
//   of title and body, the content date (the check date when it is not known), the caller's rank, the collection
//   and the source. The leading word is 0 and the list of strings stays empty.
// - Summary sentences are the body cut after each of . ! ? and at line breaks, blanks collapsed; at most
//   kMaxSentences sentences, each cut to kMaxSentenceLength units.
// - The word list holds every word of title and body as written, lower-cased, with its count.
// - An indexed text field given by the caller carries the terms of its value from position 0, and the term "!"
//   right behind its last word, as the "==" operator of the query side expects. Field values are stemmed by the
//   analyser's language, so a slice that does not stem a field needs an analyser without stemming for it.
// - A title and body without a single word leave the stream empty: the engine indexes nothing then.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "CustomField.h"
#include "Document.h"
#include "DocumentWordStream.h"
#include "language/WordsExtractor.h"

namespace Ostrel {

// What the text does not tell, given by the caller of DocumentAnalyser.
struct DocumentAnalysisExtras {
    float rank = 0;            // the link rank kept in the signature
    uint8_t quality = 0;       // 0 to 7
    uint8_t languageMask = 0;  // 7 bits, one per language
    std::vector<CustomField> fields;
};

class DocumentAnalyser {
public:
    static constexpr size_t kMaxSentences = 64;
    static constexpr size_t kMaxSentenceLength = 512;
    static constexpr uint16_t kTitleFlag = 0x0001;
    static constexpr char kEndOfValueTerm[] = "!";

    using Extras = DocumentAnalysisExtras;

    // Both must outlive the analyser.
    DocumentAnalyser(const VantuLanguage::Language& language, const VantuLanguage::StopWords& stopWords)
        : extractor_(language, stopWords) {}

    // Replaces `document.wordStream` with the analysis of `document.title` and `body`.
    void Analyse(Document& document, std::u16string_view body, const Extras& extras = {}) const;
    // The stream that Analyse writes; all empty when the text has no word.
    DocumentWordStream Build(const Document& document, std::u16string_view body, const Extras& extras) const;

private:
    DocumentWordStream::Field FieldOf(const CustomField& field) const;

    VantuLanguage::WordsExtractor extractor_;
};

}  // namespace Ostrel
