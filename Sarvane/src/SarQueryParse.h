// The one road from a query text to its tree: preprocess, stop if blank, UTF-8, lexer, parser, query(), getAST().
// Stateless: any thread; each call builds its own lexer, parser and tree.
#pragma once

#include <antlr/AST.hpp>

#include <string>

#include "QueryException.h"
#include "language/Language.h"

namespace Ostrel {

struct SarQueryParse {
    antlr::RefAST tree;               // null for a blank query; what the parser had built when it failed
    QueryException exception;         // QueryValid unless the parser raised a QueryException
    bool grammarFailure = false;      // the lexer or a token match failed (an antlr::ANTLRException)

    bool IsEmpty() const { return !tree && exception.IsValid() && !grammarFailure; }
    bool IsValid() const { return exception.IsValid() && !grammarFailure; }

    // A blank text (after preprocessing) gives an empty, valid result: no tree and no failure.
    static SarQueryParse Parse(const std::u16string& query, const VantuLanguage::Language& language);
    // The same without the preprocessor, for text the engine wrote itself (printed or expanded queries).
    static SarQueryParse ParsePreprocessed(const std::u16string& text);
};

}  // namespace Ostrel
