#include <gtest/gtest.h>

#include "core/Text.h"

using namespace Vantu;

TEST(Text, CaseMapsUnitByUnitBeyondAscii) {
    EXPECT_EQ(ToLower(u'A'), u'a');
    EXPECT_EQ(ToLower(u'\u00C9'), u'\u00E9');  // É
    EXPECT_EQ(ToLower(u'\u0394'), u'\u03B4');  // Δ
    EXPECT_EQ(ToUpper(u'\u044F'), u'\u042F');  // я
    EXPECT_EQ(ToLower(u'7'), u'7');
    EXPECT_TRUE(IsUpper(u'\u0130'));
    EXPECT_FALSE(IsUpper(u'\u00DF'));
    const std::u16string mixed = u"Stra\u00DFe \u00C9T\u00C9 \U0001D400";  // a surrogate pair stays
    EXPECT_EQ(ToLower(mixed), u"stra\u00DFe \u00E9t\u00E9 \U0001D400");
    EXPECT_EQ(ToLower(mixed).size(), mixed.size());
    std::u16string out = u"old";
    ToLower(u"ABC", out);
    EXPECT_EQ(out, u"abc");
    EXPECT_EQ(ToUpper(u"\u00e9t\u00e9"), u"\u00C9T\u00C9");
    EXPECT_EQ(ToLower(std::string("HTTP://Www.X")), "http://www.x");
    EXPECT_EQ(ToLower(std::string("\xC3\x89T\xC3\x89")), "\xC3\xA9t\xC3\xA9");
    EXPECT_TRUE(WNoCase::IsEqual(u"\u00C9t\u00E9", u"\u00E9T\u00C9"));
    EXPECT_FALSE(WNoCase::IsEqual(u"ab", u"abc"));
}

TEST(Text, BlanksAreStrippedAndCollapsed) {
    std::u16string s = u" \t a  b \u00A0\n";
    StripLeadingBlanks(s);
    EXPECT_EQ(s, u"a  b \u00A0\n");
    StripTrailingBlanks(s);
    EXPECT_EQ(s, u"a  b");
    std::u16string blank = u"  ";
    StripTrailingBlanks(blank);
    EXPECT_EQ(blank, u"");
    EXPECT_EQ(BeautifyString(u"  Hello \t  world  "), u"Hello world");
    EXPECT_EQ(BeautifyString(u"  a  b ", false, true), u" a b ");
    EXPECT_EQ(BeautifyString(u"  a  b ", true, false), u"a  b");
    std::u16string out;
    BeautifyString(u"", out, true, true);
    EXPECT_EQ(out, u"");
    EXPECT_EQ(BeautifyString(ToLower(u"Foo   BAR")), BeautifyString(ToLower(u"foo bar")));
}
