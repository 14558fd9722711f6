#include "SarQueryLexer.hpp"

#include <antlr/CharBuffer.hpp>
#include <antlr/CharStreamException.hpp>
#include <antlr/CharStreamIOException.hpp>
#include <antlr/NoViableAltForCharException.hpp>
#include <antlr/TokenStreamException.hpp>
#include <antlr/TokenStreamIOException.hpp>
#include <antlr/RecognitionException.hpp>
#include <antlr/TokenStreamRecognitionException.hpp>

SarQueryLexer::SarQueryLexer(std::istream& in) : antlr::CharScanner(new antlr::CharBuffer(in), false) {
    setCaseSensitive(false);
}

SarQueryLexer::SarQueryLexer(antlr::InputBuffer& in) : antlr::CharScanner(in, false) { setCaseSensitive(false); }

SarQueryLexer::SarQueryLexer(const antlr::LexerSharedInputState& state) : antlr::CharScanner(state, false) {
    setCaseSensitive(false);
}

bool SarQueryLexer::StartsWord(int c) {
    return (c >= 'a' && c <= 'z') || c == '_' || IsDigit(c) || (c >= 0x80 && c <= 0xFF);
}

bool SarQueryLexer::ContinuesWord(int c) {
    switch (c) {
    case '_': case '*': case '#': case '$': case '^': case '%': case ';': case '.': case '&': case '+': case '-':
        return true;
    default:
        return (c >= 'a' && c <= 'z') || IsDigit(c) || (c >= 0x80 && c <= 0xFF);
    }
}

bool SarQueryLexer::LookingAt(const char* s) {
    for (unsigned int i = 1; *s; ++i, ++s)
        if (LA(i) != (*s & 0xFF)) return false;
    return true;
}

antlr::RefToken SarQueryLexer::nextToken() {
    for (;;) {
        resetText();
        _returnToken = antlr::nullToken;
        try {
            try {
                switch (LA(1)) {
                case '-': mMINUS_(true); break;
                case '+': mPLUS_(true); break;
                case '"': mDQUOTE_(true); break;
                case '\t': case '\n': case '\r': case ' ': case '\'': case ',': mWS_(true); break;
                case '(': mLPAREN_(true); break;
                case ')': mRPAREN_(true); break;
                case ':': mSEMI_(true); break;
                case '=': mEQUAL_(true); break;
                case '/': mDATEDELIM_(true); break;
                default:
                    // The order of these tests is the language: keywords need their blank, a date needs its "/".
                    if (LookingAt("near ")) mNEAR_(true);
                    else if (LookingAt("near:")) mWEIGHTEDNEAR_(true);
                    else if (IsDigit(LA(1)) && IsDigit(LA(2)) && IsDigit(LA(3)) && IsDigit(LA(4)) && LA(5) == '/') mDATE_(true);
                    else if (LookingAt("not ")) mNOT_(true);
                    else if (LookingAt("and ")) mAND_(true);
                    else if (LookingAt("or ")) mOR_(true);
                    else if (LookingAt("<>")) mNOTEQUAL_(true);
                    else if (LookingAt("<=")) mLESSEQUAL_(true);
                    else if (LookingAt(">=")) mGREATEREQUAL_(true);
                    else if (LA(1) == '@' && StartsWord(LA(2))) mFIELDNAME_(true);
                    else if (StartsWord(LA(1))) mWORD_(true);
                    else if (LA(1) == '<') mLESS_(true);
                    else if (LA(1) == '>') mGREATER_(true);
                    else if (LA(1) == '@') mDATEHOURSEP_(true);
                    else if (LA(1) == EOF_CHAR) {
                        uponEOF();
                        _returnToken = makeToken(antlr::Token::EOF_TYPE);
                    } else {
                        throw antlr::NoViableAltForCharException(LA(1), getFilename(), getLine(), getColumn());
                    }
                }
                if (!_returnToken) continue;  // white space: no token, start over
                _returnToken->setType(testLiteralsTable(_returnToken->getType()));
                return _returnToken;
            } catch (antlr::RecognitionException& e) {
                throw antlr::TokenStreamRecognitionException(e);
            }
        } catch (antlr::CharStreamIOException& e) {
            throw antlr::TokenStreamIOException(e.io);
        } catch (antlr::CharStreamException& e) {
            throw antlr::TokenStreamException(e.getMessage());
        }
    }
}

void SarQueryLexer::Emit(int type, std::string::size_type begin, bool createToken) {
    antlr::RefToken token;
    if (createToken && type != antlr::Token::SKIP) {
        token = makeToken(type);
        token->setText(text.substr(begin));
    }
    _returnToken = token;
}

void SarQueryLexer::Match(const char* s, int type, bool createToken) {
    std::string::size_type begin = text.length();
    match(s);
    Emit(type, begin, createToken);
}

void SarQueryLexer::mMINUS_(bool c) { Match("-", MINUS_, c); }
void SarQueryLexer::mPLUS_(bool c) { Match("+", PLUS_, c); }
void SarQueryLexer::mDQUOTE_(bool c) { Match("\"", DQUOTE_, c); }
void SarQueryLexer::mLPAREN_(bool c) { Match("(", LPAREN_, c); }
void SarQueryLexer::mRPAREN_(bool c) { Match(")", RPAREN_, c); }
void SarQueryLexer::mNOT_(bool c) { Match("not ", NOT_, c); }
void SarQueryLexer::mAND_(bool c) { Match("and ", AND_, c); }
void SarQueryLexer::mOR_(bool c) { Match("or ", OR_, c); }
void SarQueryLexer::mNEAR_(bool c) { Match("near ", NEAR_, c); }
void SarQueryLexer::mSEMI_(bool c) { Match(":", SEMI_, c); }
void SarQueryLexer::mNOTEQUAL_(bool c) { Match("<>", NOTEQUAL_, c); }
void SarQueryLexer::mLESS_(bool c) { Match("<", LESS_, c); }
void SarQueryLexer::mLESSEQUAL_(bool c) { Match("<=", LESSEQUAL_, c); }
void SarQueryLexer::mGREATER_(bool c) { Match(">", GREATER_, c); }
void SarQueryLexer::mGREATEREQUAL_(bool c) { Match(">=", GREATEREQUAL_, c); }
void SarQueryLexer::mDATEDELIM_(bool c) { Match("/", DATEDELIM_, c); }
void SarQueryLexer::mDATEHOURSEP_(bool c) { Match("@", DATEHOURSEP_, c); }

void SarQueryLexer::mWS_(bool c) {
    std::string::size_type begin = text.length();
    static const antlr::BitSet blanks = [] {
        antlr::BitSet set;
        for (int ch : {'\t', '\n', '\r', ' ', '\'', ','}) set.add(ch);
        return set;
    }();
    match(blanks);
    Emit(antlr::Token::SKIP, begin, c);
}

void SarQueryLexer::mEQUAL_(bool c) { Match(LA(1) == '=' && LA(2) == '=' ? "==" : "=", EQUAL_, c); }

void SarQueryLexer::mNUMBER_(bool c) {
    std::string::size_type begin = text.length();
    matchRange('0', '9');
    Emit(NUMBER_, begin, c);
}

void SarQueryLexer::mLETTER_(bool c) {
    std::string::size_type begin = text.length();
    matchRange('a', 'z');
    Emit(LETTER_, begin, c);
}

void SarQueryLexer::mWORD_(bool c) {
    std::string::size_type begin = text.length();
    int first = LA(1);
    if (first >= 'a' && first <= 'z') mLETTER_(false);
    else if (IsDigit(first)) mNUMBER_(false);
    else if (first == '_' || (first >= 0x80 && first <= 0xFF)) consume();
    else throw antlr::NoViableAltForCharException(first, getFilename(), getLine(), getColumn());
    while (ContinuesWord(LA(1))) consume();
    Emit(WORD_, begin, c);
}

void SarQueryLexer::mWEIGHTEDNEAR_(bool c) {
    std::string::size_type begin = text.length();
    match("near:");
    mWORD_(false);
    Emit(WEIGHTEDNEAR_, begin, c);
}

void SarQueryLexer::mFIELDNAME_(bool c) {
    std::string::size_type begin = text.length();
    match('@');
    mWORD_(false);
    Emit(FIELDNAME_, begin, c);
}

void SarQueryLexer::mDATE_(bool c) {
    std::string::size_type begin = text.length();
    auto digits = [this](int n) {
        while (n-- > 0) mNUMBER_(false);
    };
    digits(4);
    mDATEDELIM_(false);
    digits(2);
    mDATEDELIM_(false);
    digits(2);
    if (LA(1) == '@') mDATEHOURSEP_(false);
    if (IsDigit(LA(1))) {
        digits(2);
        mSEMI_(false);
        digits(2);
        if (LA(1) == ':') {
            mSEMI_(false);
            digits(2);
        }
    }
    Emit(DATE_, begin, c);
}
