#include "language/StopWords.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "file/BinaryStream.h"
#include "language/Language.h"

namespace VantuLanguage {
namespace {

// English function words, in lower-case base form and sorted, so that a look-up is a binary search over
// constant data that needs no construction. Changing the list changes which words queries skip, not the
// stored terms, which keep every word.
constexpr std::u16string_view kDefaultStopWords[] = {
    u"a",       u"about",   u"above",   u"after",   u"again",   u"against", u"all",      u"am",      u"an",
    u"and",     u"any",     u"are",     u"as",      u"at",      u"be",      u"because",  u"been",    u"before",
    u"being",   u"below",   u"between", u"both",    u"but",     u"by",      u"can",      u"could",   u"did",
    u"do",      u"does",    u"doing",   u"down",    u"during",  u"each",    u"few",      u"for",     u"from",
    u"further", u"had",     u"has",     u"have",    u"having",  u"he",      u"her",      u"here",    u"hers",
    u"herself", u"him",     u"himself", u"his",     u"how",     u"i",       u"if",       u"in",      u"into",
    u"is",      u"it",      u"its",     u"itself",  u"just",    u"me",      u"more",     u"most",    u"my",
    u"myself",  u"no",      u"nor",     u"not",     u"of",      u"off",     u"on",       u"once",    u"only",
    u"or",      u"other",   u"ought",   u"our",     u"ours",    u"ourselves", u"out",    u"over",    u"own",
    u"same",    u"she",     u"should",  u"so",      u"some",    u"such",    u"than",     u"that",    u"the",
    u"their",   u"theirs",  u"them",    u"themselves", u"then", u"there",   u"these",    u"they",    u"this",
    u"those",   u"through", u"to",      u"too",     u"under",   u"until",   u"up",       u"very",    u"was",
    u"we",      u"were",    u"what",    u"when",    u"where",   u"which",   u"while",    u"who",     u"whom",
    u"why",     u"will",    u"with",    u"would",   u"you",     u"your",    u"yours",    u"yourself", u"yourselves",
};
static_assert(std::is_sorted(std::begin(kDefaultStopWords), std::end(kDefaultStopWords)));

}  // namespace

void StopWords::AddStopWord(const std::u16string& word) {
    std::u16string base;
    Language::ExpandLigatures(word, base);
    Language::ToLowerBase(base, base, true);
    words_.insert(std::move(base));
}

bool StopWords::IsDefaultStopWord(const std::u16string& word) {
    return std::binary_search(std::begin(kDefaultStopWords), std::end(kDefaultStopWords), std::u16string_view(word));
}

Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>& stream, const StopWords& stopWords) {
    stream << stopWords.IsDefault() << static_cast<uint32_t>(stopWords.Words().size());
    for (const std::u16string& word : stopWords.Words()) stream << std::u16string_view(word);
    return stream;
}

// Words are read one by one, so a corrupt count fails at the end of the data instead of reserving what it claims.
Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>& stream, StopWords& stopWords) {
    bool isDefault;
    uint32_t count;
    stream >> isDefault >> count;
    StopWords read(isDefault);
    std::u16string word;
    for (uint32_t i = 0; i < count; ++i) {
        stream >> word;
        read.words_.insert(word);
    }
    stopWords = std::move(read);
    return stream;
}

}  // namespace VantuLanguage
