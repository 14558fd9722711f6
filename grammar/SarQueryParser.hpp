// The query parser: an LL(6) recogniser that builds the query tree every evaluator walks.
// A bad query raises Ostrel::QueryException (or an antlr::ANTLRException); one instance per parse and thread.
#pragma once

#include <antlr/ASTFactory.hpp>
#include <antlr/ASTPair.hpp>
#include <antlr/BitSet.hpp>
#include <antlr/LLkParser.hpp>
#include <antlr/NoViableAltException.hpp>

#include "SarQueryParserTokenTypes.hpp"

class SarQueryParser : public antlr::LLkParser, public SarQueryParserTokenTypes {
public:
    explicit SarQueryParser(antlr::TokenStream& lexer);
    explicit SarQueryParser(antlr::TokenBuffer& tokens);
    explicit SarQueryParser(const antlr::ParserSharedInputState& state);

    // Prepares a factory for this parser's node types (the runtime requires it before any node is made).
    static void initializeASTFactory(antlr::ASTFactory& factory);

    void query();
    void queryExpression();
    void queryElement();
    void notTerminalNode();
    void terminalNode();
    void exactPhrase();
    void customField();
    void dateFromToday();
    void customFieldValue();

    antlr::RefAST getAST() override { return returnAST; }
    const char* getTokenName(int type) const override;
    const char* const* getTokenNames() const override;
    int getNumTokens() const override;

private:
    static constexpr int kLookahead = 6;
    static const char* const _tokenNames[];
    static const antlr::BitSet _tokenSet_0, _tokenSet_1, _tokenSet_2, _tokenSet_3, _tokenSet_4;

    // Appends a node for LT(1) to the rule's list, or makes it the rule's root, then consumes it.
    void Child(antlr::ASTPair& current, int type);
    void Root(antlr::ASTPair& current, int type);
    void ValueWord(antlr::ASTPair& current, bool inList);
    void ValueListItem(antlr::ASTPair& current);
    bool LookaheadIn(int from, std::initializer_list<const antlr::BitSet*> sets);

    antlr::ASTFactory factory_;
    antlr::RefAST returnAST;
};
