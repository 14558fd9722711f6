#include <gtest/gtest.h>

#include <antlr/ANTLRException.hpp>
#include <antlr/RecognitionException.hpp>
#include <antlr/TokenStreamRecognitionException.hpp>

#include <sstream>
#include <variant>

#include "QueryException.h"
#include "SarQueryLexer.hpp"
#include "SarQueryParser.hpp"

using Ostrel::QueryException;

namespace {

// A tree as text: WORD_ nodes by their text, others as TYPE[text](children...).
std::string Shape(antlr::RefAST node, const SarQueryParser& parser) {
    std::string out;
    for (bool first = true; node; node = node->getNextSibling(), first = false) {
        if (!first) out += ' ';
        if (node->getType() == SarQueryParserTokenTypes::WORD_ && !node->getFirstChild()) {
            out += node->getText();
            continue;
        }
        out += std::string(parser.getTokenName(node->getType())) + "[" + node->getText() + "]";
        if (node->getFirstChild()) out += "(" + Shape(node->getFirstChild(), parser) + ")";
    }
    return out;
}

// Parses raw lexer input: the shape of the tree, or the failure.
std::string Parse(const std::string& text) {
    std::istringstream in(text);
    SarQueryLexer lexer(in);
    SarQueryParser parser(lexer);
    try {
        parser.query();
    } catch (const QueryException& e) {
        return "QueryException " + std::to_string(e.GetType()) + " '" + e.GetText() + "'";
    } catch (const antlr::ANTLRException& e) {
        return "ANTLRException";
    }
    return Shape(parser.getAST(), parser);
}

std::vector<std::pair<int, std::string>> Tokens(const std::string& text) {
    std::istringstream in(text);
    SarQueryLexer lexer(in);
    std::vector<std::pair<int, std::string>> tokens;
    for (antlr::RefToken t = lexer.nextToken(); t->getType() != antlr::Token::EOF_TYPE; t = lexer.nextToken())
        tokens.push_back({t->getType(), t->getText()});
    return tokens;
}

using T = SarQueryParserTokenTypes;

}  // namespace

TEST(SarQueryLexer, KeywordsNeedTheirBlankAndKeepTheirCase) {
    EXPECT_EQ(Tokens("NoT a"), (std::vector<std::pair<int, std::string>>{{T::NOT_, "NoT "}, {T::WORD_, "a"}}));
    EXPECT_EQ(Tokens("not\ta and"), (std::vector<std::pair<int, std::string>>{{T::WORD_, "not"}, {T::WORD_, "a"}, {T::WORD_, "and"}}));
    EXPECT_EQ(Tokens("nearby near:5 Near x"),
              (std::vector<std::pair<int, std::string>>{{T::WORD_, "nearby"}, {T::WEIGHTEDNEAR_, "near:5"}, {T::NEAR_, "Near "}, {T::WORD_, "x"}}));
    EXPECT_EQ(Tokens("a-b+c -d"), (std::vector<std::pair<int, std::string>>{{T::WORD_, "a-b+c"}, {T::MINUS_, "-"}, {T::WORD_, "d"}}));
    // Non-ASCII bytes are word bytes whatever the locale; apostrophes and commas separate words.
    EXPECT_EQ(Tokens("\xC3\xA9t\xC3\xA9's,x"), (std::vector<std::pair<int, std::string>>{{T::WORD_, "\xC3\xA9t\xC3\xA9"}, {T::WORD_, "s"}, {T::WORD_, "x"}}));
}

TEST(SarQueryLexer, OperatorsFieldsAndDates) {
    EXPECT_EQ(Tokens("@Author==x<>y<=z>=w<v>u@"),
              (std::vector<std::pair<int, std::string>>{{T::FIELDNAME_, "@Author"}, {T::EQUAL_, "=="}, {T::WORD_, "x"},
                                                         {T::NOTEQUAL_, "<>"}, {T::WORD_, "y"}, {T::LESSEQUAL_, "<="},
                                                         {T::WORD_, "z"}, {T::GREATEREQUAL_, ">="}, {T::WORD_, "w"},
                                                         {T::LESS_, "<"}, {T::WORD_, "v"}, {T::GREATER_, ">"},
                                                         {T::WORD_, "u"}, {T::DATEHOURSEP_, "@"}}));
    EXPECT_EQ(Tokens("2005/01/31@12:30:45 2005/01/31 1999/12/0101:02"),
              (std::vector<std::pair<int, std::string>>{{T::DATE_, "2005/01/31@12:30:45"}, {T::DATE_, "2005/01/31"}, {T::DATE_, "1999/12/0101:02"}}));
    EXPECT_EQ(Tokens("12/3"), (std::vector<std::pair<int, std::string>>{{T::WORD_, "12"}, {T::DATEDELIM_, "/"}, {T::WORD_, "3"}}));
    EXPECT_THROW(Tokens("2005/1/02"), antlr::TokenStreamRecognitionException);
    EXPECT_THROW(Tokens("a ! b"), antlr::TokenStreamRecognitionException);
}

TEST(SarQueryParser, TreeShapes) {
    EXPECT_EQ(Parse("a and b"), "AND_[and ](a b)");
    EXPECT_EQ(Parse("a b"), "AND_[and](a b)");
    EXPECT_EQ(Parse("a b c"), "AND_[and](AND_[and](a b) c)");
    EXPECT_EQ(Parse("a or b and c"), "AND_[and ](OR_[or ](a b) c)");
    EXPECT_EQ(Parse("NOT a"), "NOT_[NOT ](a)");
    EXPECT_EQ(Parse("a near b"), "NEAR_[near ](a b)");
    EXPECT_EQ(Parse("a near:5 b"), "WEIGHTEDNEAR_[near:5](a b)");
    EXPECT_EQ(Parse("a near b near c"), "NEAR_[near ](a b)");
    EXPECT_EQ(Parse("\"a or (b)\""), "DQUOTE_[\"](a OR_[or ] b DQUOTE_[\"])");
    EXPECT_EQ(Parse("(a or b) c"), "AND_[and](OR_[or ](a b) c)");
    EXPECT_EQ(Parse("(a) (b c)"), "AND_[and](a AND_[and](b c))");
    EXPECT_EQ(Parse("@f"), "FIELDNAME_[@f]");
    EXPECT_EQ(Parse("@f=v"), "FIELDNAME_[@f](EQUAL_[=] v)");
    EXPECT_EQ(Parse("@f<-5"), "FIELDNAME_[@f](LESS_[<] MINUS_[-] 5)");
    EXPECT_EQ(Parse("@f>=today - 3d"), "FIELDNAME_[@f](GREATEREQUAL_[>=] today MINUS_[-] 3d)");
    EXPECT_EQ(Parse("@f=(a b)"), "FIELDNAME_[@f](EQUAL_[=] LPAREN_[(](a b RPAREN_[)]))");
    EXPECT_EQ(Parse("@d=(2005/01/02 today-1d \"x y\")"),
              "FIELDNAME_[@d](EQUAL_[=] LPAREN_[(](DATE_[2005/01/02] today-1d DQUOTE_[\"](x y DQUOTE_[\"]) RPAREN_[)]))");
    EXPECT_EQ(Parse("@d=(today - 1d x)"), "FIELDNAME_[@d](EQUAL_[=] LPAREN_[(](today MINUS_[-] 1d x RPAREN_[)]))");
    // The implicit conjunction binds tighter than an explicit operator.
    EXPECT_EQ(Parse("a or b c"), "OR_[or ](a AND_[and](b c))");
    EXPECT_EQ(Parse("a ) b"), "a");
}

TEST(SarQueryParser, LookaheadEndsAnElementBeforeADateOrSlash) {
    // The element loop looks six tokens ahead: a DATE_ third to sixth keeps it going, a DATE_ second or a "/"
    // anywhere in reach ends it, and the word before then fails on what follows it.
    EXPECT_EQ(Parse("a b c @f=2005/01/02"), "AND_[and](AND_[and](AND_[and](a b) c) FIELDNAME_[@f](EQUAL_[=] DATE_[2005/01/02]))");
    EXPECT_EQ(Parse("a b c d e f / g"), "QueryException 2 '/'");
    EXPECT_EQ(Parse("a 2005/01/02"), "QueryException 2 '2005/01/02'");
    EXPECT_EQ(Parse("a b 2005/01/02"), "QueryException 2 '2005/01/02'");
}

TEST(SarQueryParser, FailuresCarryTheirTypeAndText) {
    EXPECT_EQ(Parse("( )"), "QueryException 2 ')'");
    EXPECT_EQ(Parse("a and "), "QueryException 2 ''");
    EXPECT_EQ(Parse("\"\""), "QueryException 5 ''");
    EXPECT_EQ(Parse("@f="), "QueryException 3 ''");
    EXPECT_EQ(Parse("@f 2005/01/02"), "QueryException 3 '@f'");
    EXPECT_EQ(Parse("@f=v 2005/01/02"), "QueryException 3 ''");
}

// A NEAR whose second operand is missing reports the NEAR token (type 7). The DATE_ and WORD_ alternatives of a
// value or an operand cannot fail by themselves once chosen, so types 4 and 9 are never raised by the parser:
// what follows a date or word fails in the enclosing rule, with that rule's type.
TEST(SarQueryParser, NearOperandFailureIsType7_DateAndWordFailuresBelongToTheirRule) {
    EXPECT_EQ(Parse("a near )"), "QueryException 7 'near '");
    EXPECT_EQ(Parse("\"a b\" near:3 @f"), "QueryException 7 'near:3'");
    EXPECT_EQ(Parse("@d=2005/01/02 x"), "AND_[and](FIELDNAME_[@d](EQUAL_[=] DATE_[2005/01/02]) x)");
    EXPECT_EQ(Parse("@d=(2005/01/02 :)"), "ANTLRException");  // the list ends, then ")" is a mismatch
    EXPECT_EQ(Parse("@d=today :"), "QueryException 3 ''");
    EXPECT_EQ(Parse("@d=today +"), "ANTLRException");  // the relative date's word is matched, not chosen
    EXPECT_EQ(Parse("@f=(a"), "QueryException 3 ''");
    EXPECT_EQ(Parse("\"a @f b\""), "ANTLRException");        // a field name cannot stand in a phrase
    EXPECT_EQ(Parse("(a"), "ANTLRException");
}
