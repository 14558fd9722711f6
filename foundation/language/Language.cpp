#include "language/Language.h"

#include <libstemmer.h>

#include <algorithm>
#include <map>
#include <new>

#include "core/Exception.h"
#include "core/Text.h"
#include "language/StopWords.h"

namespace VantuLanguage {
namespace {

#include "language/LanguageTables.inc"

constexpr std::array<CharacterRepresentation, 256> BuildCharArray() {
    std::array<CharacterRepresentation, 256> table{};
    for (size_t c = 0; c < table.size(); ++c) table[c].lowerBase = kLatin1LowerBase[c];
    return table;
}

constexpr std::array<uint64_t, 1024> BuildUnbreakableBits() {
    std::array<uint64_t, 1024> bits{};
    for (const CharRange& range : kUnbreakableRanges)
        for (uint32_t c = range.first; c <= range.last; ++c) bits[c >> 6] |= uint64_t{1} << (c & 63);
    return bits;
}

// Ligatures and the letters they stand for; sorted by code.
struct Ligature {
    char16_t code;
    std::u16string_view letters;
};
constexpr Ligature kLigatures[] = {
    {0x00C6, u"AE"},       {0x00DF, u"ss"},       {0x00E6, u"ae"},  {0x0132, u"IJ"},  {0x0133, u"ij"},
    {0x0152, u"OE"},       {0x0153, u"oe"},       {0x01C4, u"D\u017D"}, {0x01C5, u"D\u017E"}, {0x01C6, u"d\u017E"},
    {0x01C7, u"LJ"},       {0x01C8, u"Lj"},       {0x01C9, u"lj"},  {0x01CA, u"NJ"},  {0x01CB, u"Nj"},
    {0x01CC, u"nj"},       {0x01F1, u"DZ"},       {0x01F2, u"Dz"},  {0x01F3, u"dz"},  {0x1E9E, u"SS"},
    {0xFB00, u"ff"},       {0xFB01, u"fi"},       {0xFB02, u"fl"},  {0xFB03, u"ffi"}, {0xFB04, u"ffl"},
    {0xFB05, u"st"},       {0xFB06, u"st"},
};
static_assert(std::is_sorted(std::begin(kLigatures), std::end(kLigatures),
                             [](const Ligature& a, const Ligature& b) { return a.code < b.code; }));
static_assert(std::is_sorted(std::begin(kHighChars), std::end(kHighChars),
                             [](const HighCharEntry& a, const HighCharEntry& b) { return a.code < b.code; }));

class NoStemmer : public Stemmer {
public:
    void Stem(const std::u16string& word, std::u16string& stem) const override { stem = word; }
};

// Snowball stemmers keep state between calls, so each thread gets its own, created on first use.
class SnowballStemmer : public Stemmer {
public:
    explicit SnowballStemmer(const char* algorithm) : algorithm_(algorithm) {
        sb_stemmer* probe = sb_stemmer_new(algorithm, "UTF_8");
        if (!probe) throw Vantu::Exception::FromText(u"No stemmer for the stemming type");
        sb_stemmer_delete(probe);
    }

    void Stem(const std::u16string& word, std::u16string& stem) const override {
        const std::string utf8 = Vantu::ToUtf8(word);
        sb_stemmer* stemmer = ThreadStemmer();
        const sb_symbol* result =
            sb_stemmer_stem(stemmer, reinterpret_cast<const sb_symbol*>(utf8.data()), static_cast<int>(utf8.size()));
        if (!result) throw std::bad_alloc();
        stem = Vantu::FromUtf8(std::string_view(reinterpret_cast<const char*>(result),
                                                static_cast<size_t>(sb_stemmer_length(stemmer))));
    }

private:
    struct Deleter {
        void operator()(sb_stemmer* s) const { sb_stemmer_delete(s); }
    };

    sb_stemmer* ThreadStemmer() const {
        thread_local std::map<const char*, std::unique_ptr<sb_stemmer, Deleter>> stemmers;
        std::unique_ptr<sb_stemmer, Deleter>& stemmer = stemmers[algorithm_];
        if (!stemmer) stemmer.reset(sb_stemmer_new(algorithm_, "UTF_8"));
        if (!stemmer) throw std::bad_alloc();
        return stemmer.get();
    }

    const char* algorithm_;
};

const char* SnowballAlgorithm(Language::StemmingType type) {
    switch (type) {
        case Language::kPorter: return "porter";
        case Language::kEnglish: return "english";
        case Language::kFrench: return "french";
        case Language::kGerman: return "german";
        case Language::kSpanish: return "spanish";
        case Language::kItalian: return "italian";
        case Language::kDutch: return "dutch";
        case Language::kPortuguese: return "portuguese";
        case Language::kSwedish: return "swedish";
        case Language::kDanish: return "danish";
        case Language::kNorwegian: return "norwegian";
        case Language::kFinnish: return "finnish";
        case Language::kRussian: return "russian";
        default: return nullptr;
    }
}

std::unique_ptr<Stemmer> MakeStemmer(Language::StemmingType type) {
    if (type == Language::kNoStemming) return std::make_unique<NoStemmer>();
    const char* algorithm = SnowballAlgorithm(type);
    if (!algorithm) throw Vantu::Exception::FromText(u"Unknown stemming type " + Vantu::FromUtf8(std::to_string(type)));
    return std::make_unique<SnowballStemmer>(algorithm);
}

}  // namespace

constinit const std::array<CharacterRepresentation, 256> Language::CharArray::m_CharArray = BuildCharArray();
constinit const HighCharMap Language::m_msHighCharMap{};
constinit const UnbreakableCharSet Language::m_ssUnbreakableChar{BuildUnbreakableBits()};

const HighCharEntry* HighCharMap::find(char16_t c) const {
    const auto* it = std::lower_bound(std::begin(kHighChars), std::end(kHighChars), c,
                                      [](const HighCharEntry& e, char16_t code) { return e.code < code; });
    return it != std::end(kHighChars) && it->code == c ? it : nullptr;
}

Language::Language(StemmingType type) : type_(type), stemmer_(MakeStemmer(type)) {}

bool Language::IsKnownStemmingType(int32_t type) {
    return type == kNoStemming || SnowballAlgorithm(static_cast<StemmingType>(type)) != nullptr;
}

Language::~Language() = default;

bool Language::IsLatin1WordChar(char16_t c) {
    return (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') ||
           (c >= 192 && c <= 214) || (c >= 216 && c <= 221) || (c >= 223 && c <= 246) || (c >= 248 && c <= 253) ||
           c == 255;
}

bool Language::FindWord(const char16_t*& cursor, const char16_t* const& end, std::u16string& word) const {
    while (cursor < end && !IsWordChar(*cursor)) ++cursor;
    const char16_t* start = cursor;
    while (cursor < end && IsWordChar(*cursor)) ++cursor;
    word.assign(start, cursor);
    return !word.empty();
}

void Language::ExpandLigature(const char16_t& c, std::u16string& out) {
    const auto* it = std::lower_bound(std::begin(kLigatures), std::end(kLigatures), c,
                                      [](const Ligature& l, char16_t code) { return l.code < code; });
    if (it != std::end(kLigatures) && it->code == c)
        out.append(it->letters);
    else
        out.push_back(c);
}

// Both build aside and move in last, so that `in` and `out` may be the same string.
void Language::ExpandLigatures(const std::u16string& in, std::u16string& out) {
    std::u16string result;
    result.reserve(in.size());
    for (char16_t c : in) ExpandLigature(c, result);
    out = std::move(result);
}

void Language::ToLowerBase(const std::u16string& in, std::u16string& out, bool) {
    std::u16string result;
    result.reserve(in.size());
    for (char16_t c : in) {
        if (c < 256) {
            result.push_back(CharArray::m_CharArray[c].lowerBase);
        } else if (const HighCharEntry* entry = m_msHighCharMap.find(c)) {
            result.append(entry->lowerBase);
        } else {
            result.push_back(c);
        }
    }
    out = std::move(result);
}

bool Language::NormalForm(const std::u16string& word, const StopWords& stopWords, std::u16string& out) const {
    std::u16string base;
    ToLowerBase(word, base, true);
    if (stopWords.IsStopWord(base)) {
        out = std::move(base);
        return true;
    }
    Stem(base, out);
    return false;
}

}  // namespace VantuLanguage
