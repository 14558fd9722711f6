#include "DocumentAnalyser.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <set>

#include "core/Text.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "language/Language.h"

namespace Ostrel {

namespace {

using VantuLanguage::WordsExtractor;
using Words = std::vector<WordsExtractor::Word>;
using TermList = DocumentWordStream::TermList;
using Signature = std::array<uint8_t, IndexedDocument::kSignatureSize>;

constexpr uint32_t kMaxTitleWords = 0x3F;
constexpr uint8_t kMaxLengthExponent = 31;

std::set<std::u16string> NormalForms(const Words& words) {
    std::set<std::u16string> forms;
    for (const WordsExtractor::Word& word : words) forms.insert(word.normal);
    return forms;
}

// Stop words are never looked up by a query, so they hold their place among the positions but give no term.
TermList Terms(const Words& words, const std::set<std::u16string>& titleForms) {
    Words kept;
    std::copy_if(words.begin(), words.end(), std::back_inserter(kept),
                 [](const WordsExtractor::Word& word) { return !word.stopWord && !word.normal.empty(); });
    std::map<std::u16string, Vantu::SmartPtr<WordsExtractor::Occurence>> found;
    WordsExtractor::CollectTerms(kept, found);
    TermList terms;
    for (const auto& [normal, occurence] : found) {
        const uint16_t flags = titleForms.count(normal) ? DocumentAnalyser::kTitleFlag : 0;
        terms.push_back({Vantu::ToUtf8(normal), flags, *occurence});
    }
    return terms;
}

// The largest exponent whose length, trunc(1.4^e * 16) words, the document reaches; 0 below 16 words.
uint8_t LengthExponent(size_t wordCount) {
    uint8_t e = 0;
    while (e < kMaxLengthExponent && size_t(std::pow(1.4, e + 1) * 16) <= wordCount) ++e;
    return e;
}

Signature SignatureOf(const Document& document, size_t titleWords, size_t wordCount,
                      const DocumentAnalyser::Extras& extras) {
    const uint16_t head = uint16_t(std::min<size_t>(titleWords, kMaxTitleWords) | (extras.quality & 0x07) << 6 |
                                   (extras.languageMask & 0x7F) << 9);
    const Vantu::DateTime date =
        document.contentDate == Vantu::DateTime::minimum ? document.checkDate : document.contentDate;
    Signature signature{};
    VantuFile::StaticMemoryBuffer memory(signature.data(), signature.size());
    Vantu::BinaryStreamT<unsigned int> out(memory);
    out << head << LengthExponent(wordCount) << date.Seconds() << extras.rank << document.collection
        << document.source;
    return signature;
}

bool HasWordChar(const std::u16string& text) {
    return std::any_of(text.begin(), text.end(), VantuLanguage::Language::IsWordChar);
}

void AddSentence(std::u16string_view piece, std::vector<SummarySentence>& sentences) {
    std::u16string text = Vantu::BeautifyString(std::u16string(piece));
    if (!HasWordChar(text)) return;
    if (text.size() > DocumentAnalyser::kMaxSentenceLength) {
        text.resize(DocumentAnalyser::kMaxSentenceLength);
        Vantu::StripTrailingBlanks(text);
    }
    sentences.push_back({std::move(text)});
}

// A sentence ends behind . ! or ?, or at a line break, which it does not keep.
std::vector<SummarySentence> Sentences(std::u16string_view body) {
    std::vector<SummarySentence> sentences;
    size_t start = 0;
    for (size_t i = 0; i < body.size() && sentences.size() < DocumentAnalyser::kMaxSentences; ++i) {
        const char16_t c = body[i];
        if (c == u'.' || c == u'!' || c == u'?') {
            AddSentence(body.substr(start, i + 1 - start), sentences);
            start = i + 1;
        } else if (c == u'\n' || c == u'\r') {
            AddSentence(body.substr(start, i - start), sentences);
            start = i + 1;
        }
    }
    if (sentences.size() < DocumentAnalyser::kMaxSentences) AddSentence(body.substr(start), sentences);
    return sentences;
}

std::vector<DocumentWordStream::WordCount> WordCounts(const Words& words) {
    std::map<std::u16string, uint32_t> counts;
    for (const WordsExtractor::Word& word : words) ++counts[Vantu::ToLower(word.text)];
    return {counts.begin(), counts.end()};
}

}  // namespace

void DocumentAnalyser::Analyse(Document& document, std::u16string_view body, const Extras& extras) const {
    const DocumentWordStream stream = Build(document, body, extras);
    if (stream.words.empty())
        document.wordStream.Clear();
    else
        stream.Write(document.wordStream);
}

DocumentWordStream DocumentAnalyser::Build(const Document& document, std::u16string_view body,
                                           const Extras& extras) const {
    Words title, all;
    const uint32_t behindTitle = extractor_.Extract(document.title, title);
    all = title;
    extractor_.Extract(body, all, title.empty() ? 0 : behindTitle + 1);
    DocumentWordStream stream;
    if (all.empty()) return stream;

    stream.terms = Terms(all, NormalForms(title));
    std::vector<std::u16string> bodyForms;
    for (auto word = all.begin() + title.size(); word != all.end(); ++word) bodyForms.push_back(word->normal);
    stream.shingles = VantuAlgo::ShingleBag(bodyForms);
    stream.signature = SignatureOf(document, title.size(), all.size(), extras);
    stream.sentences = Sentences(body);
    for (const CustomField& field : extras.fields) stream.fields.push_back(FieldOf(field));
    stream.words = WordCounts(all);
    return stream;
}

DocumentWordStream::Field DocumentAnalyser::FieldOf(const CustomField& field) const {
    DocumentWordStream::Field entry{field, {}, {}};
    if (!entry.CarriesTerms() || field.Value().GetForm() != CustomFieldValue::kString) return entry;
    Words words;
    const uint32_t end = extractor_.Extract(Vantu::FromUtf8(field.Value().GetString()), words);
    entry.valueTerms = Terms(words, {});
    entry.endTerms.push_back({kEndOfValueTerm, 0, VantuLanguage::WordsExtractor::Occurence{end}});
    return entry;
}

}  // namespace Ostrel
