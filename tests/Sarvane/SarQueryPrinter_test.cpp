#include <gtest/gtest.h>

#include "SarQueryParse.h"
#include "SarQueryParserTokenTypes.hpp"
#include "SarQueryPrinter.h"
#include "core/Text.h"

using namespace Ostrel;
using VantuLanguage::Language;

namespace {

std::string Printed(const std::string& query, bool printAnd, const Language* stemmer = nullptr) {
    SarQueryParse parse = SarQueryParse::ParsePreprocessed(Vantu::FromUtf8(query));
    EXPECT_TRUE(parse.IsValid()) << query;
    std::u16string out;
    SarQueryPrinter::Print(stemmer, stemmer != nullptr, printAnd, parse.tree, out);
    return Vantu::ToUtf8(out);
}

std::vector<std::vector<std::string>> Converted(const std::string& query) {
    SarQueryParse parse = SarQueryParse::ParsePreprocessed(Vantu::FromUtf8(query));
    std::vector<std::vector<std::u16string>> groups;
    SarQueryPrinter::ConvertQuery(parse.tree, groups);
    std::vector<std::vector<std::string>> out;
    for (auto& g : groups) {
        out.emplace_back();
        for (auto& w : g) out.back().push_back(Vantu::ToUtf8(w));
    }
    return out;
}

using Groups = std::vector<std::vector<std::string>>;

}  // namespace

TEST(SarQueryPrinter, NormalForm) {
    EXPECT_EQ(Printed("a b", false), "a b");
    EXPECT_EQ(Printed("a b", true), "a and b");
    EXPECT_EQ(Printed("Apple OR Pie", true), "Apple or Pie");  // keywords in base form, words as typed
    EXPECT_EQ(Printed("(a or b) NOT c", false), "a or b not c");
    EXPECT_EQ(Printed("x near:5 \"Big OR small\"", true), "x near:5 \"Big OR small\"");
    EXPECT_EQ(Printed("@Author=Smith", true), "@author = Smith");
    EXPECT_EQ(Printed("@size<-5", true), "@size < -5");
    EXPECT_EQ(Printed("@date>=today - 3d", true), "@date >= today - 3d");
    EXPECT_EQ(Printed("@f==(a, \"b c\", 2005/01/02)", true), "@f == (a, \"b c\", 2005/01/02 )");
    EXPECT_EQ(Printed("@f", true), "@f");

    // A null node leaves the text stripped and otherwise unchanged.
    antlr::RefAST none;
    std::u16string out = u"  kept ";
    SarQueryPrinter::Print(nullptr, false, true, none, out);
    EXPECT_EQ(out, u"kept");
}

TEST(SarQueryPrinter, StemmedFormIsBaseFormThroughTheStemmer) {
    Language english(Language::kEnglish);
    EXPECT_EQ(Printed("Running \xC3\x89l\xC3\xA8ves", true, &english), "run and elev");
    EXPECT_EQ(Printed("\"Running Dogs\"", true, &english), "\"run dog\"");
}

TEST(SarQueryPrinter, ConvertQueryKeepsPositiveWordsWithTheirField) {
    EXPECT_EQ(Converted("Alpha \"Beta Gamma\" or delta"), (Groups{{"alpha"}, {"beta", "gamma"}, {"delta"}}));
    EXPECT_EQ(Converted("not a"), Groups{});
    EXPECT_EQ(Converted("not (not a)"), (Groups{{"a"}}));
    EXPECT_EQ(Converted("not @F<>A"), (Groups{{"@f", "a"}}));
    EXPECT_EQ(Converted("@f=(x, \"y z\")"), (Groups{{"@f", "x"}, {"@f", "y", "z"}}));
    EXPECT_EQ(Converted("@f>5 @g"), Groups{});
    EXPECT_EQ(Converted("a near b"), (Groups{{"a"}, {"b"}}));
}

TEST(SarQueryParse, RunsPreprocessorLexerAndParserOnce) {
    Language english(Language::kEnglish);
    SarQueryParse blank = SarQueryParse::Parse(u"   ", english);  // Q3: a blank query is valid and empty
    EXPECT_TRUE(blank.IsEmpty());
    EXPECT_TRUE(blank.IsValid());

    SarQueryParse good = SarQueryParse::Parse(u"red AND blue", english);
    ASSERT_TRUE(good.IsValid());
    ASSERT_TRUE(good.tree);
    EXPECT_EQ(good.tree->getType(), SarQueryParserTokenTypes::AND_);

    SarQueryParse bad = SarQueryParse::ParsePreprocessed(u"\"\"");
    EXPECT_FALSE(bad.IsValid());
    EXPECT_EQ(bad.exception.GetType(), QueryInvalidPhrase);

    SarQueryParse mismatch = SarQueryParse::ParsePreprocessed(u"(a");
    EXPECT_TRUE(mismatch.grammarFailure);
    EXPECT_FALSE(mismatch.IsEmpty());
}

TEST(SarQueryPrinter, PrintParsePrintIsStable) {
    for (const char* query : {"a and b", "a b c", "a or b c", "NOT a", "a near b", "a near:5 \"b c\"", "\"a or (b)\"",
                              "(a or b) c", "@f", "@f=v", "@f==v", "@f<>v", "@f<-5", "@f<=5", "@f>today - 3d",
                              "@f>=2005/01/31@12:30:45", "@f=(a, b)", "@d=(2005/01/02 today-1d \"x y\")",
                              "@date>2005/01/01 and (red or \"big blue\") not green"}) {
        std::string once = Printed(query, true);
        EXPECT_EQ(Printed(once, true), once) << query;
    }
}
