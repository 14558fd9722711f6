// Word boundaries, case folding, base letters, ligatures and stemming: the one definition of a word's normal form.
// Immutable after construction; every operation, static or not, may be called from any thread at once.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace VantuLanguage {

class StopWords;

// What the engine reads of one Latin-1 code: its lower-case base letter.
struct CharacterRepresentation {
    char16_t lowerBase;
};

// One code above 255 whose folded form differs from itself.
struct HighCharEntry {
    char16_t code;
    std::u16string_view upperBase;
    std::u16string_view lowerBase;  // may be longer than one unit, or empty (a combining accent)
};

struct CharRange {
    char16_t first;
    char16_t last;
};

// The folded forms above 255, looked up by code; built at compile time, so safe before any static constructor.
class HighCharMap {
public:
    // The entry of `c`, or nullptr when `c` folds to itself.
    const HighCharEntry* find(char16_t c) const;
};

// Characters above 255 that belong to words: letters, marks and digits of the Basic Multilingual Plane.
// Surrogates are not members, so a character outside that plane separates words.
class UnbreakableCharSet {
public:
    constexpr explicit UnbreakableCharSet(const std::array<uint64_t, 1024>& bits) : bits_(bits) {}
    bool contains(char16_t c) const { return (bits_[c >> 6] >> (c & 63)) & 1; }

private:
    std::array<uint64_t, 1024> bits_;
};

// Turns a lower-case base form into its stem. Implementations are safe to call from several threads at once.
class Stemmer {
public:
    virtual ~Stemmer() = default;
    virtual void Stem(const std::u16string& word, std::u16string& stem) const = 0;
};

class Language {
public:
    // Stored as i32 in configurations: a value never changes meaning under a stored index.
    enum StemmingType : int32_t {
        kNoStemming = 0,
        kPorter = 1,  // the original Porter algorithm, English
        kEnglish = 3,
        kFrench = 4,
        kGerman = 5,
        kSpanish = 6,
        kItalian = 7,
        kDutch = 8,
        kPortuguese = 9,
        kSwedish = 10,
        kDanish = 11,
        kNorwegian = 12,
        kFinnish = 13,
        kRussian = 14,
    };

    struct CharArray {
        static const std::array<CharacterRepresentation, 256> m_CharArray;
    };
    static const HighCharMap m_msHighCharMap;
    static const UnbreakableCharSet m_ssUnbreakableChar;

    // Throws Vantu::Exception for a type that names no stemmer: guessing would change every stored term.
    explicit Language(StemmingType type = kNoStemming);
    // Whether a stored value names a stemming type, so that a configuration can refuse it before any start.
    static bool IsKnownStemmingType(int32_t type);
    Language(const Language&) = delete;
    Language& operator=(const Language&) = delete;
    virtual ~Language();

    StemmingType GetStemmingType() const { return type_; }
    const Stemmer& GetStemmer() const { return *stemmer_; }
    void Stem(const std::u16string& word, std::u16string& stem) const { stemmer_->Stem(word, stem); }

    // The next run of word characters at or after `cursor`, which moves behind it. At the end of the text
    // `word` is empty, `cursor` equals `end`, and the result is false.
    bool FindWord(const char16_t*& cursor, const char16_t* const& end, std::u16string& word) const;

    // A Latin-1 letter or digit (without the multiplication and division signs, thorn and its capital), or a
    // member of m_ssUnbreakableChar.
    static bool IsWordChar(char16_t c) { return c <= 255 ? IsLatin1WordChar(c) : m_ssUnbreakableChar.contains(c); }
    static bool IsLatin1WordChar(char16_t c);

    // Appends `c`, or its letters if it is a ligature (the case of the ligature is kept).
    static void ExpandLigature(const char16_t& c, std::u16string& out);
    static void ExpandLigatures(const std::u16string& in, std::u16string& out);

    // The canonical form of a word: lower case, accents off, compatibility ligatures such as "fi" spelt out
    // (œ and æ stay letters; ExpandLigature spells them). `lowerBase` is what every caller passes (true); the
    // form exists in no other variant.
    static void ToLowerBase(const std::u16string& in, std::u16string& out, bool lowerBase = true);

    // The normal form under which a word is stored and looked up, for a word whose ligatures are already
    // expanded (a query word behind the preprocessor): ToLowerBase, then the stem unless the base form is a stop
    // word. Returns whether it is one.
    bool NormalForm(const std::u16string& word, const StopWords& stopWords, std::u16string& out) const;

private:
    StemmingType type_;
    std::unique_ptr<Stemmer> stemmer_;
};

}  // namespace VantuLanguage
