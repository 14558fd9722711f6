// Turns a query tree back into text: the normal form (a key and a display text) and the positive words that a
// highlighter marks. Static and stateless: any thread, as long as one tree is used by one thread at a time.
#pragma once

#include <antlr/AST.hpp>

#include <string>
#include <vector>

#include "language/Language.h"

namespace Ostrel {

class SarQueryPrinter {
public:
    // Appends the normal form of `node` to `out`. With `stem`, words print as their stemmed base form (then
    // `language` must not be null); otherwise exactly as typed. `printAnd` writes implicit and explicit "and".
    static void Print(const VantuLanguage::Language* language, bool stem, bool printAnd, antlr::RefAST& node,
                      std::u16string& out);

    // One vector per positive word or phrase: the field name first when there is one, then the words in lower
    // case. Negated parts, comparisons other than equality and bare fields add nothing.
    static void ConvertQuery(const antlr::RefAST& node, std::vector<std::vector<std::u16string>>& out);

private:
    static void ConvertQuery(const antlr::RefAST& node, std::vector<std::vector<std::u16string>>& out, bool negated,
                             const std::u16string& field);
    static void PrintNode(const VantuLanguage::Language* language, bool stem, bool printAnd, antlr::RefAST node,
                          std::u16string& out);
    static void PrintOperand(const VantuLanguage::Language* language, bool stem, bool printAnd, antlr::RefAST node,
                             std::u16string& out);
    static void PrintValue(const VantuLanguage::Language* language, bool stem, antlr::RefAST node, std::u16string& out);
    static std::u16string WordText(const VantuLanguage::Language* language, bool stem, const antlr::RefAST& node);
};

}  // namespace Ostrel
