#include "SarQueryParser.hpp"

#include <antlr/CommonAST.hpp>

#include <vector>

#include "QueryException.h"

using antlr::ASTPair;
using antlr::BitSet;
using antlr::NoViableAltException;
using antlr::RefAST;
using Ostrel::QueryException;

namespace {

BitSet MakeSet(std::initializer_list<int> members) {
    BitSet set(64);
    for (int m : members) set.add(m);
    return set;
}

// The text a failure reports: the token or node the exception holds, else nothing.
std::string OffendingText(const NoViableAltException& e) {
    if (e.token) return e.token->getText();
    if (e.node) return e.node->getText();
    return std::string();
}

bool IsEndOfOperand(int type) {
    switch (type) {
    case antlr::Token::EOF_TYPE:
    case SarQueryParserTokenTypes::AND_: case SarQueryParserTokenTypes::OR_: case SarQueryParserTokenTypes::WS_:
    case SarQueryParserTokenTypes::NOT_: case SarQueryParserTokenTypes::WORD_: case SarQueryParserTokenTypes::LPAREN_:
    case SarQueryParserTokenTypes::RPAREN_: case SarQueryParserTokenTypes::DQUOTE_:
    case SarQueryParserTokenTypes::FIELDNAME_:
        return true;
    default:
        return false;
    }
}

}  // namespace

const char* const SarQueryParser::_tokenNames[] = {
    "<0>", "EOF", "<2>", "NULL_TREE_LOOKAHEAD", "AND_", "OR_", "WS_", "NOT_", "WORD_", "NEAR_", "WEIGHTEDNEAR_",
    "LPAREN_", "RPAREN_", "DQUOTE_", "MINUS_", "PLUS_", "SEMI_", "EQUAL_", "NOTEQUAL_", "LESS_", "LESSEQUAL_",
    "GREATER_", "GREATEREQUAL_", "DATEHOURSEP_", "DATE_", "FIELDNAME_", "NUMBER_", "LETTER_", "DATEDELIM_", nullptr};

// What can begin an element.
const BitSet SarQueryParser::_tokenSet_0 = MakeSet({NOT_, WORD_, LPAREN_, DQUOTE_, FIELDNAME_});
// EOF, every type from AND_ to DATEHOURSEP_, and FIELDNAME_.
const BitSet SarQueryParser::_tokenSet_1 =
    MakeSet({EOF_, AND_, OR_, WS_, NOT_, WORD_, NEAR_, WEIGHTEDNEAR_, LPAREN_, RPAREN_, DQUOTE_, MINUS_, PLUS_, SEMI_,
             EQUAL_, NOTEQUAL_, LESS_, LESSEQUAL_, GREATER_, GREATEREQUAL_, DATEHOURSEP_, FIELDNAME_});
const BitSet SarQueryParser::_tokenSet_2 =
    MakeSet({EOF_, AND_, OR_, WS_, NOT_, WORD_, NEAR_, WEIGHTEDNEAR_, LPAREN_, RPAREN_, DQUOTE_, MINUS_, PLUS_, SEMI_,
             EQUAL_, NOTEQUAL_, LESS_, LESSEQUAL_, GREATER_, GREATEREQUAL_, DATEHOURSEP_, FIELDNAME_, DATE_});
const BitSet SarQueryParser::_tokenSet_3 = MakeSet({WORD_, RPAREN_, DQUOTE_, MINUS_, DATE_});
const BitSet SarQueryParser::_tokenSet_4 =
    MakeSet({EOF_, AND_, OR_, WS_, NOT_, WORD_, NEAR_, LPAREN_, RPAREN_, DQUOTE_, MINUS_, PLUS_, SEMI_, EQUAL_,
             NOTEQUAL_, LESS_, LESSEQUAL_, GREATER_, GREATEREQUAL_, DATEHOURSEP_, FIELDNAME_, DATE_});

SarQueryParser::SarQueryParser(antlr::TokenStream& lexer) : antlr::LLkParser(lexer, kLookahead) {
    initializeASTFactory(factory_);
    setASTFactory(&factory_);
}

SarQueryParser::SarQueryParser(antlr::TokenBuffer& tokens) : antlr::LLkParser(tokens, kLookahead) {
    initializeASTFactory(factory_);
    setASTFactory(&factory_);
}

SarQueryParser::SarQueryParser(const antlr::ParserSharedInputState& state) : antlr::LLkParser(state, kLookahead) {
    initializeASTFactory(factory_);
    setASTFactory(&factory_);
}

void SarQueryParser::initializeASTFactory(antlr::ASTFactory& factory) { factory.setMaxNodeType(DATEDELIM_); }

const char* SarQueryParser::getTokenName(int type) const {
    return type >= 0 && type < getNumTokens() ? _tokenNames[type] : "<invalid>";
}
const char* const* SarQueryParser::getTokenNames() const { return _tokenNames; }
int SarQueryParser::getNumTokens() const { return DATEDELIM_ + 1; }

void SarQueryParser::Child(ASTPair& current, int type) {
    astFactory->addASTChild(current, astFactory->create(LT(1)));
    match(type);
}

void SarQueryParser::Root(ASTPair& current, int type) {
    astFactory->makeASTRoot(current, astFactory->create(LT(1)));
    match(type);
}

bool SarQueryParser::LookaheadIn(int from, std::initializer_list<const BitSet*> sets) {
    int k = from;
    for (const BitSet* set : sets)
        if (!set->member(LA(k++))) return false;
    return true;
}

// query: queryExpression { queryExpression }. Whatever follows the last complete expression is ignored.
void SarQueryParser::query() {
    returnAST = antlr::nullAST;
    ASTPair current;
    try {
        do {
            queryExpression();
            astFactory->addASTChild(current, returnAST);
        } while (_tokenSet_0.member(LA(1)));
    } catch (NoViableAltException& e) {
        throw QueryException(Ostrel::QuerySyntaxError, OffendingText(e));
    }
    returnAST = current.root;
}

// queryExpression: queryElement { (AND_^ | OR_^ | WS_) queryElement }, left associative.
void SarQueryParser::queryExpression() {
    returnAST = antlr::nullAST;
    ASTPair current;
    try {
        queryElement();
        astFactory->addASTChild(current, returnAST);
        for (;;) {
            switch (LA(1)) {
            case AND_: Root(current, AND_); break;
            case OR_: Root(current, OR_); break;
            case WS_: Child(current, WS_); break;
            default: returnAST = current.root; return;
            }
            queryElement();
            astFactory->addASTChild(current, returnAST);
        }
    } catch (NoViableAltException& e) {
        throw QueryException(Ostrel::QuerySyntaxError, OffendingText(e));
    }
}

// queryElement: notTerminalNode { notTerminalNode }, each further element joined by an implicit AND_ "and".
// The loop goes on only on six tokens of evidence, so a "/" or a DATE_ close behind ends the element.
void SarQueryParser::queryElement() {
    returnAST = antlr::nullAST;
    ASTPair current;
    try {
        notTerminalNode();
        astFactory->addASTChild(current, returnAST);
        while (_tokenSet_0.member(LA(1)) && _tokenSet_1.member(LA(2)) &&
               LookaheadIn(3, {&_tokenSet_2, &_tokenSet_2, &_tokenSet_2, &_tokenSet_2})) {
            notTerminalNode();
            std::vector<RefAST> nodes{astFactory->create(AND_, "and"), current.root, returnAST};
            RefAST conjunction = astFactory->make(nodes);
            current.root = conjunction;
            current.child = conjunction->getFirstChild() ? conjunction->getFirstChild() : conjunction;
            current.advanceChildToEnd();
        }
    } catch (NoViableAltException& e) {
        throw QueryException(Ostrel::QuerySyntaxError, OffendingText(e));
    }
    returnAST = current.root;
}

// notTerminalNode: [NOT_^] terminalNode
void SarQueryParser::notTerminalNode() {
    returnAST = antlr::nullAST;
    ASTPair current;
    try {
        switch (LA(1)) {
        case NOT_: Root(current, NOT_); break;
        case WORD_: case LPAREN_: case DQUOTE_: case FIELDNAME_: break;
        default: throw NoViableAltException(LT(1), getFilename());
        }
        terminalNode();
        astFactory->addASTChild(current, returnAST);
    } catch (NoViableAltException& e) {
        throw QueryException(Ostrel::QuerySyntaxError, OffendingText(e));
    }
    returnAST = current.root;
}

// terminalNode: (WORD_ | exactPhrase) [(NEAR_^ | WEIGHTEDNEAR_^) (WORD_ | exactPhrase)]
//             | LPAREN_! queryExpression { queryExpression } RPAREN_!
//             | customField
void SarQueryParser::terminalNode() {
    returnAST = antlr::nullAST;
    ASTPair current;
    auto operand = [&] {
        if (LA(1) == WORD_) {
            Child(current, WORD_);
        } else if (LA(1) == DQUOTE_) {
            exactPhrase();
            astFactory->addASTChild(current, returnAST);
        } else {
            throw NoViableAltException(LT(1), getFilename());
        }
    };
    try {
        switch (LA(1)) {
        case WORD_: case DQUOTE_:
            operand();
            if (LA(1) == NEAR_ || LA(1) == WEIGHTEDNEAR_) {
                std::string nearText = LT(1)->getText();
                Root(current, LA(1));
                // A NEAR without a second operand reports the operator, the most useful thing to show.
                try {
                    operand();
                } catch (NoViableAltException&) {
                    throw QueryException(Ostrel::QueryInvalidNear, nearText);
                }
            } else if (!IsEndOfOperand(LA(1))) {
                throw NoViableAltException(LT(1), getFilename());
            }
            break;
        case LPAREN_:
            match(LPAREN_);
            do {
                queryExpression();
                astFactory->addASTChild(current, returnAST);
            } while (_tokenSet_0.member(LA(1)));
            match(RPAREN_);
            break;
        case FIELDNAME_:
            customField();
            astFactory->addASTChild(current, returnAST);
            break;
        default:
            throw NoViableAltException(LT(1), getFilename());
        }
    } catch (NoViableAltException& e) {
        throw QueryException(Ostrel::QuerySyntaxError, OffendingText(e));
    }
    returnAST = current.root;
}

// exactPhrase: DQUOTE_^ item { item } DQUOTE_; words and keywords stay, punctuation is dropped,
// and the closing quote is the last child.
void SarQueryParser::exactPhrase() {
    returnAST = antlr::nullAST;
    ASTPair current;
    try {
        Root(current, DQUOTE_);
        for (int items = 0;; ++items) {
            int type = LA(1);
            if (type == WORD_ || type == NOT_ || type == OR_ || type == AND_ || type == NEAR_) {
                Child(current, type);
            } else if (type == LPAREN_ || type == RPAREN_ || (type >= MINUS_ && type <= DATEHOURSEP_)) {
                match(type);
            } else if (items > 0) {
                break;
            } else {
                throw NoViableAltException(LT(1), getFilename());
            }
        }
        Child(current, DQUOTE_);
    } catch (NoViableAltException&) {
        throw QueryException(Ostrel::QueryInvalidPhrase, std::string());
    }
    returnAST = current.root;
}

// customField: FIELDNAME_^ [(EQUAL_ | NOTEQUAL_ | LESS_ | LESSEQUAL_ | GREATER_ | GREATEREQUAL_) customFieldValue]
void SarQueryParser::customField() {
    returnAST = antlr::nullAST;
    ASTPair current;
    std::string field = LT(1)->getText();
    try {
        Root(current, FIELDNAME_);
        int type = LA(1);
        if (type >= EQUAL_ && type <= GREATEREQUAL_) {
            Child(current, type);
            customFieldValue();
            astFactory->addASTChild(current, returnAST);
        } else if (!IsEndOfOperand(type)) {
            throw NoViableAltException(LT(1), getFilename());
        }
    } catch (NoViableAltException&) {
        throw QueryException(Ostrel::QueryInvalidCustomField, field);
    }
    returnAST = current.root;
}

// dateFromToday: (PLUS_ | MINUS_) WORD_, as siblings.
void SarQueryParser::dateFromToday() {
    returnAST = antlr::nullAST;
    ASTPair current;
    try {
        if (LA(1) != PLUS_ && LA(1) != MINUS_) throw NoViableAltException(LT(1), getFilename());
        Child(current, LA(1));
        Child(current, WORD_);
    } catch (NoViableAltException& e) {
        throw QueryException(Ostrel::QueryInvalidDateFromToday, OffendingText(e));
    }
    returnAST = current.root;
}

// [MINUS_] WORD_ [dateFromToday]. Inside a list the relative date needs six tokens of evidence.
void SarQueryParser::ValueWord(ASTPair& current, bool inList) {
    if (LA(1) == MINUS_) Child(current, MINUS_);
    Child(current, WORD_);
    bool relative;
    if (!inList) {
        relative = LA(1) == MINUS_ || LA(1) == PLUS_;
        if (!relative && !IsEndOfOperand(LA(1))) throw NoViableAltException(LT(1), getFilename());
    } else {
        relative = (LA(1) == MINUS_ || LA(1) == PLUS_) && LA(2) == WORD_ &&
                   LookaheadIn(3, {&_tokenSet_3, &_tokenSet_4, &_tokenSet_2, &_tokenSet_2});
        if (!relative && !LookaheadIn(1, {&_tokenSet_3, &_tokenSet_4, &_tokenSet_2, &_tokenSet_2, &_tokenSet_2, &_tokenSet_2}))
            throw NoViableAltException(LT(1), getFilename());
    }
    if (relative) {
        dateFromToday();
        astFactory->addASTChild(current, returnAST);
    }
}

// A value of a list: DATE_, [MINUS_] WORD_ [dateFromToday], or exactPhrase.
void SarQueryParser::ValueListItem(ASTPair& current) {
    switch (LA(1)) {
    case DATE_: Child(current, DATE_); break;
    case MINUS_: case WORD_: ValueWord(current, true); break;
    case DQUOTE_:
        exactPhrase();
        astFactory->addASTChild(current, returnAST);
        break;
    default: throw NoViableAltException(LT(1), getFilename());
    }
}

// customFieldValue: DATE_ | [MINUS_] WORD_ [dateFromToday] | exactPhrase | LPAREN_^ value { value } RPAREN_
void SarQueryParser::customFieldValue() {
    returnAST = antlr::nullAST;
    ASTPair current;
    try {
        switch (LA(1)) {
        case DATE_: Child(current, DATE_); break;
        case MINUS_: case WORD_: ValueWord(current, false); break;
        case DQUOTE_:
            exactPhrase();
            astFactory->addASTChild(current, returnAST);
            break;
        case LPAREN_:
            Root(current, LPAREN_);
            do {
                ValueListItem(current);
            } while (LA(1) == DATE_ || LA(1) == WORD_ || LA(1) == MINUS_ || LA(1) == DQUOTE_);
            Child(current, RPAREN_);
            break;
        default:
            throw NoViableAltException(LT(1), getFilename());
        }
    } catch (NoViableAltException&) {
        throw QueryException(Ostrel::QueryInvalidCustomField, std::string());
    }
    returnAST = current.root;
}
