// Token numbers of the query language. Every tree walker switches on them, so they never change.
#pragma once

struct SarQueryParserTokenTypes {
    enum {
        EOF_ = 1,
        NULL_TREE_LOOKAHEAD = 3,
        AND_ = 4,
        OR_ = 5,
        WS_ = 6,
        NOT_ = 7,
        WORD_ = 8,
        NEAR_ = 9,
        WEIGHTEDNEAR_ = 10,
        LPAREN_ = 11,
        RPAREN_ = 12,
        DQUOTE_ = 13,
        MINUS_ = 14,
        PLUS_ = 15,
        SEMI_ = 16,
        EQUAL_ = 17,
        NOTEQUAL_ = 18,
        LESS_ = 19,
        LESSEQUAL_ = 20,
        GREATER_ = 21,
        GREATEREQUAL_ = 22,
        DATEHOURSEP_ = 23,
        DATE_ = 24,
        FIELDNAME_ = 25,
        NUMBER_ = 26,
        LETTER_ = 27,
        DATEDELIM_ = 28,
    };
};
