// The query lexer: UTF-8 bytes in, tokens of SarQueryParserTokenTypes out; keywords match in any case.
// One instance per parse, on the parsing thread.
#pragma once

#include <antlr/CharScanner.hpp>
#include <antlr/InputBuffer.hpp>
#include <antlr/LexerSharedInputState.hpp>

#include <istream>

#include "SarQueryParserTokenTypes.hpp"

class SarQueryLexer : public antlr::CharScanner, public SarQueryParserTokenTypes {
public:
    explicit SarQueryLexer(std::istream& in);
    explicit SarQueryLexer(antlr::InputBuffer& in);
    explicit SarQueryLexer(const antlr::LexerSharedInputState& state);

    antlr::RefToken nextToken() override;
    bool getCaseSensitiveLiterals() const override { return true; }

    void mMINUS_(bool _createToken);
    void mPLUS_(bool _createToken);
    void mDQUOTE_(bool _createToken);
    void mWS_(bool _createToken);
    void mLPAREN_(bool _createToken);
    void mRPAREN_(bool _createToken);
    void mNOT_(bool _createToken);
    void mAND_(bool _createToken);
    void mOR_(bool _createToken);
    void mNEAR_(bool _createToken);
    void mWEIGHTEDNEAR_(bool _createToken);
    void mWORD_(bool _createToken);
    void mSEMI_(bool _createToken);
    void mEQUAL_(bool _createToken);
    void mNOTEQUAL_(bool _createToken);
    void mLESS_(bool _createToken);
    void mLESSEQUAL_(bool _createToken);
    void mGREATER_(bool _createToken);
    void mGREATEREQUAL_(bool _createToken);
    void mFIELDNAME_(bool _createToken);
    void mDATEDELIM_(bool _createToken);
    void mDATEHOURSEP_(bool _createToken);
    void mDATE_(bool _createToken);

protected:
    // ASCII only: the lexer must not fold case by the process locale, and bytes from 0x80 are word bytes.
    int toLower(int c) const override { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; }

    void mNUMBER_(bool _createToken);
    void mLETTER_(bool _createToken);

private:
    // What can begin a word: digits, "_", letters and every byte from 0x80.
    static bool StartsWord(int c);
    static bool ContinuesWord(int c);
    static bool IsDigit(int c) { return c >= '0' && c <= '9'; }
    bool LookingAt(const char* s);

    void Match(const char* s, int type, bool createToken);
    void Emit(int type, std::string::size_type begin, bool createToken);
};
