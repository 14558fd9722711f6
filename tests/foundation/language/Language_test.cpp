#include "language/Language.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "core/Exception.h"
#include "core/Text.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "language/CharsetLanguageDetection.h"
#include "language/StopWords.h"
#include "language/Thesaurus.h"
#include "language/Unicode.h"

using VantuLanguage::Language;
using VantuLanguage::StopWords;
using VantuLanguage::Thesaurus;

namespace {

std::string LowerBase(const std::string& word) {
    std::u16string out;
    Language::ToLowerBase(Vantu::FromUtf8(word), out, true);
    return Vantu::ToUtf8(out);
}

std::string Ligatures(const std::string& word) {
    std::u16string out;
    Language::ExpandLigatures(Vantu::FromUtf8(word), out);
    return Vantu::ToUtf8(out);
}

std::vector<std::string> Words(const std::string& text) {
    static const Language language;
    const std::u16string wide = Vantu::FromUtf8(text);
    const char16_t* cursor = wide.data();
    const char16_t* const end = wide.data() + wide.size();
    std::vector<std::string> words;
    std::u16string word;
    while (language.FindWord(cursor, end, word)) words.push_back(Vantu::ToUtf8(word));
    EXPECT_TRUE(word.empty());
    EXPECT_EQ(cursor, end);
    return words;
}

std::string Stem(const Language& language, const std::string& word) {
    std::u16string stem;
    language.Stem(Vantu::FromUtf8(word), stem);
    return Vantu::ToUtf8(stem);
}

}  // namespace

// The tables are committed, not read from the installed library: these forms may never change under an index.
TEST(Language, ToLowerBaseFoldsCaseAccentsAndHighLigatures) {
    EXPECT_EQ(LowerBase("\xC3\x89L\xC3\x88VE"), "eleve");                         // ÉLÈVE
    EXPECT_EQ(LowerBase("Stra\xC3\x9F" "e"), "stra\xC3\x9F" "e");                 // ß is one letter here
    EXPECT_EQ(LowerBase("\xC3\x86" "bler"), "\xC3\xA6" "bler");                   // Æ lowers to æ, one unit
    EXPECT_EQ(LowerBase("\xC3\x98re \xC3\xB0"), "\xC3\xB8re \xC3\xB0");           // no base letter under ø and ð
    EXPECT_EQ(LowerBase("\xC5\x92UVRE"), "\xC5\x93uvre");                         // Œ → œ
    EXPECT_EQ(LowerBase("\xEF\xAC\x81" "nal"), "final");                          // the fi ligature
    EXPECT_EQ(LowerBase("\xCE\x86\xCE\x9B\xCE\xA6\xCE\x91"), "\xCE\xB1\xCE\xBB\xCF\x86\xCE\xB1");  // ΆΛΦΑ → αλφα
    EXPECT_EQ(LowerBase("\xD0\x81\xD0\x96"), "\xD0\xB5\xD0\xB6");                 // ЁЖ → еж
    EXPECT_EQ(LowerBase("\xC4\xB0stanbul"), "istanbul");                          // İ
    EXPECT_EQ(LowerBase("\xEF\xBC\xA1\xEF\xBC\xA2"), "ab");                       // fullwidth AB
    EXPECT_EQ(LowerBase("\xE6\x97\xA5\xE6\x9C\xAC"), "\xE6\x97\xA5\xE6\x9C\xAC"); // CJK as it is
    EXPECT_EQ(LowerBase("\xE1\xBA\x9E"), "ss");                                   // capital sharp s
    std::u16string same = u"ABC\u00c9";
    Language::ToLowerBase(same, same, true);
    EXPECT_EQ(same, u"abce");
}

TEST(Language, ExpandLigature) {
    std::u16string out = u"x";
    Language::ExpandLigature(u'a', out);
    EXPECT_EQ(out, u"xa");
    Language::ExpandLigature(u'\u0153', out);
    EXPECT_EQ(out, u"xaoe");
    EXPECT_EQ(Ligatures("\xC5\x92uvre \xC3\x86" "ble Stra\xC3\x9F" "e \xEF\xAC\x84"), "OEuvre AEble Strasse ffl");
    EXPECT_EQ(Ligatures("plain"), "plain");
}

TEST(Language, FindWord) {
    EXPECT_TRUE(Words("  ,;- \t ").empty());
    EXPECT_TRUE(Words("").empty());
    EXPECT_EQ(Words("Hello, w\xC3\xB6rld 42x"), (std::vector<std::string>{"Hello", "w\xC3\xB6rld", "42x"}));
    EXPECT_EQ(Words("a\xC3\x97" "b\xC3\xB7" "c"), (std::vector<std::string>{"a", "b", "c"}));  // × and ÷
    EXPECT_EQ(Words("don't re-use"), (std::vector<std::string>{"don", "t", "re", "use"}));
    EXPECT_EQ(Words("\xE6\x97\xA5\xE6\x9C\xAC \xD0\xBC\xD0\xB8\xD1\x80"),
              (std::vector<std::string>{"\xE6\x97\xA5\xE6\x9C\xAC", "\xD0\xBC\xD0\xB8\xD1\x80"}));
    EXPECT_EQ(Words("a\xF0\x9F\x98\x80" "b"), (std::vector<std::string>{"a", "b"}));  // outside the BMP
    EXPECT_EQ(Words("caf\xC3\xA9\xE2\x80\x99s"), (std::vector<std::string>{"caf\xC3\xA9", "s"}));
}

TEST(Language, WordCharactersFollowTheLatin1RuleAndTheUnbreakableSet) {
    for (char16_t c = 0; c < 256; ++c) {
        const bool letterOrDigit = (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') ||
                                   (c >= 192 && c != 215 && c != 247 && c != 222 && c != 254);
        EXPECT_EQ(Language::IsWordChar(c), letterOrDigit) << int(c);
    }
    EXPECT_TRUE(Language::m_ssUnbreakableChar.contains(u'\u0153'));   // œ
    EXPECT_TRUE(Language::m_ssUnbreakableChar.contains(u'\u0301'));   // a combining accent stays in its word
    EXPECT_TRUE(Language::m_ssUnbreakableChar.contains(u'\u0663'));   // an Arabic-Indic digit
    EXPECT_FALSE(Language::m_ssUnbreakableChar.contains(u'\u20ac'));  // €
    EXPECT_FALSE(Language::m_ssUnbreakableChar.contains(u'\u2019'));  // ’
    EXPECT_FALSE(Language::m_ssUnbreakableChar.contains(u'\xd83d'));  // a surrogate
    EXPECT_FALSE(Language::m_ssUnbreakableChar.contains(u'\u3000'));  // the ideographic space
}

TEST(Language, StemmingTypes) {
    const Language none(Language::kNoStemming), english(Language::kEnglish), porter(Language::kPorter),
        french(Language::kFrench);
    EXPECT_EQ(Stem(none, "running"), "running");
    EXPECT_EQ(Stem(english, "running"), "run");
    EXPECT_EQ(Stem(english, "generously"), "generous");
    EXPECT_EQ(Stem(porter, "generously"), "gener");
    EXPECT_EQ(Stem(french, "continuellement"), "continuel");
    EXPECT_EQ(Stem(english, ""), "");
    EXPECT_EQ(english.GetStemmingType(), Language::kEnglish);
    EXPECT_THROW(Language(static_cast<Language::StemmingType>(2)), Vantu::Exception);
    EXPECT_THROW(Language(static_cast<Language::StemmingType>(-1)), Vantu::Exception);
    for (int32_t type = -1; type < 20; ++type) {
        const bool known = type == 0 || type == 1 || (type >= 3 && type <= 14);
        EXPECT_EQ(Language::IsKnownStemmingType(type), known) << type;
        if (known) EXPECT_NO_THROW(Language(static_cast<Language::StemmingType>(type))) << type;
    }

    StopWords stopWords;
    std::u16string normal;
    EXPECT_TRUE(english.NormalForm(u"The", stopWords, normal));
    EXPECT_EQ(normal, u"the");
    EXPECT_FALSE(english.NormalForm(u"Connections", stopWords, normal));
    EXPECT_EQ(normal, u"connect");
}

// One Language serves every query thread: each thread gets its own stemmer state.
TEST(Language, StemsFromManyThreadsAtOnce) {
    const Language english(Language::kEnglish);
    const std::vector<std::pair<std::u16string, std::u16string>> words = {
        {u"running", u"run"}, {u"connections", u"connect"}, {u"happily", u"happili"}, {u"cats", u"cat"}};
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::u16string stem;
            for (int i = 0; i < 5000; ++i) {
                const auto& [word, expected] = words[(i + t) % words.size()];
                english.Stem(word, stem);
                failures[t] += stem != expected;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}

TEST(StopWords, DefaultListOrOwnSet) {
    const StopWords defaults;
    EXPECT_TRUE(defaults.IsDefault());
    EXPECT_TRUE(defaults.IsStopWord(u"the"));
    EXPECT_TRUE(defaults.IsStopWord(u"a"));
    EXPECT_TRUE(defaults.IsStopWord(u"yourselves"));
    EXPECT_FALSE(defaults.IsStopWord(u"search"));
    EXPECT_FALSE(defaults.IsStopWord(u"The"));  // asked with normalised words only

    StopWords own(false);
    EXPECT_FALSE(own.IsStopWord(u"the"));
    EXPECT_TRUE(StopWords::IsDefaultStopWord(u"the"));
    own.AddStopWord(u"\u00dcber");
    own.AddStopWord(u"\u0152uvre");
    EXPECT_TRUE(own.IsStopWord(u"uber"));
    EXPECT_TRUE(own.IsStopWord(u"oeuvre"));
    EXPECT_EQ(own.Words().size(), 2u);

    StopWords other(false);
    EXPECT_FALSE(own == other);
    other.AddStopWord(u"uber");
    other.AddStopWord(u"OEUVRE");
    EXPECT_TRUE(own == other);
    EXPECT_FALSE(StopWords(true) == StopWords(false));
}

TEST(Thesaurus, FindsEntriesByBaseForm) {
    Thesaurus thesaurus(Language::kEnglish);
    EXPECT_TRUE(thesaurus.IsEmpty());
    EXPECT_EQ(thesaurus.GetLanguage().GetStemmingType(), Language::kEnglish);
    thesaurus.AddEntry(u"Caf\u00e9", {{u"coffee", u"bistro"}, Thesaurus::ThesaurusNode::kAlternatives});
    thesaurus.AddEntry(u"colour", {{u"color"}, Thesaurus::ThesaurusNode::kReplacement});
    Thesaurus::ThesaurusNode node;
    ASSERT_TRUE(thesaurus.FindSynonym(u"cafe", node));
    EXPECT_EQ(node.words, (std::vector<std::u16string>{u"coffee", u"bistro"}));
    EXPECT_EQ(node.kind, 0u);
    ASSERT_TRUE(thesaurus.FindSynonym(u"colour", node));
    EXPECT_EQ(node.kind, 1u);
    EXPECT_FALSE(thesaurus.FindSynonym(u"tea", node));
    EXPECT_EQ(thesaurus.Size(), 2u);
}

// The stored form: u8 isDefault, u32 count, then each word with its u16 length prefix, in ascending order.
TEST(StopWords, StreamForm) {
    StopWords own(false);
    own.AddStopWord(u"zz");
    own.AddStopWord(u"\u00e9t\u00e9");
    VantuFile::MemoryBuffer memory;
    Vantu::BinaryStreamT<unsigned int> stream(memory);
    stream << own << StopWords();
    const std::vector<uint8_t> expected = {0, 2, 0, 0, 0, 3, 0, 'e', 0, 't', 0, 'e', 0, 2, 0, 'z', 0, 'z', 0,
                                           1, 0, 0, 0, 0};
    ASSERT_EQ(std::vector<uint8_t>(memory.Data(), memory.Data() + memory.Size()), expected);

    StopWords first, second(false);
    second.AddStopWord(u"left over");
    stream >> first >> second;
    EXPECT_TRUE(first == own);
    EXPECT_TRUE(second == StopWords());

    VantuFile::MemoryBuffer cut;
    Vantu::BinaryStreamT<unsigned int> cutStream(cut);
    cutStream << own;
    VantuFile::StaticMemoryBuffer shortData(cut.Data(), cut.Size() - 1);
    Vantu::BinaryStreamT<unsigned int> shortStream(shortData);
    StopWords broken;
    EXPECT_THROW(shortStream >> broken, Vantu::BinaryStreamException);
}

// Other code lowers text unit by unit: the high map, else the Latin-1 table, else Vantu::ToLower. That must
// give ToLowerBase's form for every unit, so the fallback may never change a unit the tables leave alone.
TEST(Language, UnitByUnitLoweringAgreesWithToLowerBase) {
    int differences = 0;
    for (uint32_t c = 256; c < 0x10000; ++c) {
        const char16_t unit = static_cast<char16_t>(c);
        if (!Language::m_msHighCharMap.find(unit) && Vantu::ToLower(unit) != unit) {
            if (++differences < 10) ADD_FAILURE() << std::hex << c << " lowers to " << int(Vantu::ToLower(unit));
        }
    }
    EXPECT_EQ(differences, 0);
}

TEST(CharsetLanguageDetection, LanguageIdsByNameOrCode) {
    using VantuDetection::CharsetLanguageDetection;
    EXPECT_EQ(CharsetLanguageDetection::LanguageID(u"English"), Vantu::LANGUAGE_ENGLISH);
    EXPECT_EQ(CharsetLanguageDetection::LanguageID(u"de-CH"), Vantu::LANGUAGE_GERMAN);
    EXPECT_EQ(CharsetLanguageDetection::LanguageID(u"pt_BR"), Vantu::LANGUAGE_PORTUGUESE);
    EXPECT_EQ(CharsetLanguageDetection::LanguageID(u"FR"), Vantu::LANGUAGE_FRENCH);
    EXPECT_EQ(CharsetLanguageDetection::LanguageID(u"klingon"), Vantu::LANGUAGE_UNKNOWN);
    EXPECT_EQ(CharsetLanguageDetection::LanguageID(u""), Vantu::LANGUAGE_UNKNOWN);
}

TEST(Language, AccentsTypedApartFromTheirLetterGo) {
    EXPECT_EQ(LowerBase("Cafe\xCC\x81"), "cafe");  // e + combining acute
    EXPECT_EQ(Words("cafe\xCC\x81 x"), (std::vector<std::string>{"cafe\xCC\x81", "x"}));
}

TEST(Unicode, PrepareStringAndWordCharacters) {
    using VantuCharset::Unicode;
    const std::u16string text = u"\u0152uvre Caf\u00e9 \ufb01n";
    std::u16string out;
    Unicode::PrepareString(text, out, 0x15);  // what the index compares
    EXPECT_EQ(out, u"oeuvre cafe fin");
    Unicode::PrepareString(text, out, 0x55);  // exact letters, case aside
    EXPECT_EQ(out, u"oeuvre caf\u00e9 fin");
    Unicode::PrepareString(text, out, Unicode::kLowerCase);
    EXPECT_EQ(out, u"\u0153uvre caf\u00e9 \ufb01n");
    Unicode::PrepareString(text, out, 0);
    EXPECT_EQ(out, text);

    EXPECT_TRUE(Unicode::IsWordCharacter(u'a', true));
    EXPECT_FALSE(Unicode::IsWordCharacter(u'\u0301', true));
    EXPECT_TRUE(Unicode::IsWordCharacter(u'\u0301', false));
    EXPECT_FALSE(Unicode::IsWordCharacter(u' ', false));
}

// Stored terms are normal forms: any change to the folding or to the word characters, for any unit, must be a
// deliberate one that comes with a new index version. These digests cover every unit of the BMP.
TEST(Language, TablesArePinned) {
    uint64_t folding = 14695981039346656037ull, words = folding;
    const auto mix = [](uint64_t& hash, uint32_t value) { hash = (hash ^ value) * 1099511628211ull; };
    std::u16string out;
    for (uint32_t c = 0; c < 0x10000; ++c) {
        Language::ToLowerBase(std::u16string(1, static_cast<char16_t>(c)), out, true);
        mix(folding, static_cast<uint32_t>(out.size()));
        for (char16_t unit : out) mix(folding, unit);
        mix(words, Language::IsWordChar(static_cast<char16_t>(c)));
    }
    EXPECT_EQ(folding, 9617395468462221327ull);
    EXPECT_EQ(words, 10312615326674924692ull);
}
