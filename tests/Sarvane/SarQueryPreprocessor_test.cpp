#include "SarQueryPreprocessor.h"

#include <gtest/gtest.h>

#include <random>

#include "core/Text.h"

using Ostrel::SarQueryPreprocessor;
using VantuLanguage::Language;

namespace {

std::string Run(const std::u16string& query) {
    static const Language language(Language::kEnglish);
    std::u16string result;
    SarQueryPreprocessor::Preprocess(query, language, result);
    return Vantu::ToUtf8(result);
}

std::string Run(const std::string& query) { return Run(Vantu::FromUtf8(query)); }

struct Case {
    const char* query;
    const char* expected;
};

void ExpectAll(std::initializer_list<Case> cases) {
    for (const Case& c : cases) EXPECT_EQ(Run(c.query), c.expected) << "query: [" << c.query << "]";
}

}  // namespace

TEST(SarQueryPreprocessor, CompoundsBecomePhrases) {
    ExpectAll({
        {"foo-bar baz", "\"foo bar\" baz"},
        {"foo - bar", "foo   bar"},
        {"re-use", "\"re use\""},
        {"a.b", "\"a b\""},
        {"3.14", "\"3 14\""},
        {"x_y", "\"x y\""},
        {"foo@bar", "\"foo bar\""},
        {"a@b c", "\"a b\" c"},
        {"(a@b)", "(\"a b\")"},
        {"x-5", "\"x 5\""},
        {"a-b-c d", "\"a b c\" d"},
        {"a \"x-y\" b", "a \"x y\" b"},
        {"a \"3.14\" b", "a \"3 14\" b"},        // a number in a phrase is no value
        {"\"a =3.14 b\"", "\"a =3 14 b\""},
        {"C:\\temp\\a.txt", "C  temp \"a txt\""},
        {"2005/01/02", "\"2005 01 02\""},
        {"near:5", "\"near 5\""},
        {"a near:x b", "a \"near x\" b"},
        {"@a=b_c", "@a=\"b c\""},             // something stands between the field name and the underscore
        {"12@10:3 x", "\"12 10 3\" x"},        // too short for an hour
        {"2005/01/02@10:30 abc", "\"2005 01 02@10:30\" abc"},
        {"abc = 2005/01/02", "abc = \"2005 01 02\""},  // no "@" in front of the name
        {"ab x2005/01/02", "ab \"x2005 01 02\""},
        {"(x -5)", "(x  5)"},
        {"-5", " 5"},
        {"a -5x", "a  5x"},
        {"a-3d", "\"a 3d\""},
        {".5", " 5"},
        {"5.", "5 "},
        {"a 1.5", "a \"1 5\""},
    });
}

TEST(SarQueryPreprocessor, ValuesKeepTheirPunctuation) {
    ExpectAll({
        {"@size>3.14", "@size>3.14"},
        {"@size>-5", "@size>-5"},
        {"@f<-5", "@f<-5"},
        {"@size>=-1.5", "@size>=-1.5"},
        {"@my-field=a", "@myfield=a"},
        {"@my_field=a", "@myfield=a"},
        {"@date=2005/01/02", "@date=2005/01/02"},
        {"@date > 2005/01/02", "@date > 2005/01/02"},
        {"@d1=2005/01/02", "@d1=2005/01/02"},
        {"@d1x=2005/01/02", "@d1x=\"2005 01 02\""},
        {"@d=(2005/01/02,2006/01/02)", "@d=(2005/01/02,2006/01/02)"},
        {"@date=2005/01/02@10:30", "@date=2005/01/02@10:30"},
        {"a near:5 b", "a near:5 b"},
        {"a NEAR:12 b", "a NEAR:12 b"},
        {"@d=(2005/01/02)", "@d=(2005/01/02)"},
        {"@f=(a,-5)", "@f=(a,-5)"},
        {"(-5)", "(-5)"},
        {"@s=-1.5", "@s=-1.5"},
    });
}

TEST(SarQueryPreprocessor, RelativeDatesAreSeparatedFromTheirSign) {
    ExpectAll({
        {"@date>=today-3d", "@date>=today -3d"},
        {"@date>=TODAY-3d", "@date>=today -3d"},
        {"@date<Yesterday+1d", "@date<yesterday +1d"},
        {"@date>now-2h", "@date>now -2h"},
        {"now -1d", "now -1d"},
        {"now-playing", "now  playing"},
        {"snow-white", "snow  white"},
    });
}

TEST(SarQueryPreprocessor, ParenthesesAndQuotesAreBalanced) {
    ExpectAll({
        {"(a or b", "(a or b)"},
        {"a) b", "a b"},
        {")))a", "a"},
        {"\"a (b", "a  b"},
        {"(a \"b", "(a b)"},
        {"a \"b", "a b"},
        {"\"a (b) c\"", "\"a  b  c\""},
        {"a (b \"c) d", "a (b c  d)"},
        {"((a) (b", "((a) (b))"},
    });
}

TEST(SarQueryPreprocessor, CharactersOutsideTheLanguageBecomeBlanks) {
    ExpectAll({
        {"#a", " a"},
        {" #a", "  a"},
        {"c#", "c "},
        {"*?'", "   "},
        {"don't", "don t"},
        {"\xC5\x93uvre", "oeuvre"},       // the oe ligature is spelt out
        {"\xC3\x86" "ble", "AEble"},      // and so is AE, keeping its case
        {"\xEF\xAC\x81nal", "final"},     // fi
        {"caf\xC3\xA9 \xC3\x97 x", "caf\xC3\xA9   x"},  // the multiplication sign is no letter
        {"\xE6\x97\xA5\xE6\x9C\xAC \xE2\x82\xAC", "\xE6\x97\xA5\xE6\x9C\xAC  "},  // CJK letters stay, the euro sign goes
        {"a\xF0\x9F\x98\x80" "b", "a  b"},  // a character outside the BMP: two blanks
    });
}

TEST(SarQueryPreprocessor, EmptyQueryLeavesTheResultAlone) {
    static const Language language;
    std::u16string result = u"kept";
    SarQueryPreprocessor::Preprocess(u"", language, result);
    EXPECT_EQ(result, u"kept");
    SarQueryPreprocessor::Preprocess(u"a", language, result);
    EXPECT_EQ(result, u"a");
}

// Random UTF-16 text, rich in the characters the rules look at, never throws and always comes out with paired
// quotes and only characters the grammar knows.
TEST(SarQueryPreprocessor, FuzzNeverFails) {
    static const Language language;
    const std::u16string alphabet = u" ()\"+-<>=\t\r\n:@/,._\\#*'0123456789aenorstwdyhmAZ\u00e9\u00c6\u0153\ufb01\u65e5\u20ac";
    const std::u16string pieces[] = {u"today", u"now", u"yesterday", u"near:", u"@date=", u"2005/01/02", u"@10:30"};
    std::mt19937 random(20240611);
    for (int round = 0; round < 20000; ++round) {
        std::u16string query;
        const int length = static_cast<int>(random() % 40);
        for (int i = 0; i < length; ++i) {
            const unsigned pick = random() % 20;
            if (pick == 0)
                query += pieces[random() % std::size(pieces)];
            else if (pick == 1)
                query.push_back(static_cast<char16_t>(random() % 0x10000));
            else
                query.push_back(alphabet[random() % alphabet.size()]);
        }
        std::u16string result;
        ASSERT_NO_THROW(SarQueryPreprocessor::Preprocess(query, language, result)) << Vantu::ToUtf8(query);
        EXPECT_EQ(std::count(result.begin(), result.end(), u'"') % 2, 0) << Vantu::ToUtf8(query);
        for (char16_t c : result)
            ASSERT_TRUE(Language::IsWordChar(c) || std::u16string_view(u" ()\"+-<>=\t\r\n:@/,._").find(c) !=
                                                      std::u16string_view::npos)
                << Vantu::ToUtf8(query);
    }
}
