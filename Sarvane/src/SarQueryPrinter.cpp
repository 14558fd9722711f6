#include "SarQueryPrinter.h"

#include "SarQueryParserTokenTypes.hpp"
#include "core/Text.h"

namespace Ostrel {

namespace {

using T = SarQueryParserTokenTypes;

std::u16string BaseForm(const antlr::RefAST& node) {
    std::u16string out;
    VantuLanguage::Language::ToLowerBase(Vantu::FromUtf8(node->getText()), out);
    return out;
}

std::u16string LowerForm(const std::string& text) { return Vantu::ToLower(Vantu::FromUtf8(text)); }

void EnsureBlank(std::u16string& out) {
    if (!out.empty() && !Vantu::IsBlank(out.back())) out.push_back(u' ');
}

bool IsType(const antlr::RefAST& node, std::initializer_list<int> types) {
    if (!node) return false;
    for (int t : types)
        if (node->getType() == t) return true;
    return false;
}

}  // namespace

std::u16string SarQueryPrinter::WordText(const VantuLanguage::Language* language, bool stem, const antlr::RefAST& node) {
    if (!stem) return Vantu::FromUtf8(node->getText());
    std::u16string stemmed;
    language->Stem(BaseForm(node), stemmed);
    return stemmed;
}

void SarQueryPrinter::Print(const VantuLanguage::Language* language, bool stem, bool printAnd, antlr::RefAST& node,
                            std::u16string& out) {
    if (node) PrintNode(language, stem, printAnd, node, out);
    Vantu::StripLeadingBlanks(out);
    Vantu::StripTrailingBlanks(out);
}

// A signed value prints as "-5", a relative date as "today - 3d".
void SarQueryPrinter::PrintValue(const VantuLanguage::Language* language, bool stem, antlr::RefAST node,
                                 std::u16string& out) {
    EnsureBlank(out);
    if (node->getType() == T::MINUS_) {
        out += u"-";
        node = node->getNextSibling();
    }
    if (!IsType(node, {T::WORD_, T::DATE_})) return;
    out += WordText(language, stem, node);
    antlr::RefAST sign = node->getNextSibling();
    if (IsType(sign, {T::MINUS_, T::PLUS_}) && IsType(sign->getNextSibling(), {T::WORD_, T::DATE_})) {
        EnsureBlank(out);
        out += sign->getType() == T::MINUS_ ? u"-" : u"+";
        EnsureBlank(out);
        out += WordText(language, stem, sign->getNextSibling());
    }
}

void SarQueryPrinter::PrintOperand(const VantuLanguage::Language* language, bool stem, bool printAnd,
                                   antlr::RefAST node, std::u16string& out) {
    if (IsType(node, {T::WORD_, T::DATE_})) {
        EnsureBlank(out);
        out += WordText(language, stem, node);
    } else {
        Print(language, stem, printAnd, node, out);
    }
}

void SarQueryPrinter::PrintNode(const VantuLanguage::Language* language, bool stem, bool printAnd, antlr::RefAST node,
                                std::u16string& out) {
    switch (node->getType()) {
    case T::FIELDNAME_:
        out += BaseForm(node);
        if (antlr::RefAST op = node->getFirstChild()) {
            EnsureBlank(out);
            out += BaseForm(op);
            if (antlr::RefAST value = op->getNextSibling()) Print(language, stem, printAnd, value, out);
        }
        break;
    case T::WORD_: case T::DATE_: case T::MINUS_:
        PrintValue(language, stem, node, out);
        break;
    case T::DQUOTE_: {
        out += BaseForm(node);
        bool first = true;
        for (antlr::RefAST child = node->getFirstChild(); child; child = child->getNextSibling(), first = false) {
            if (!first && child->getType() != T::DQUOTE_) EnsureBlank(out);
            out += WordText(language, stem, child);
            if (child->getType() == T::DQUOTE_) break;
        }
        break;
    }
    case T::LPAREN_:
        // Items print on their own and join the list text, so the list reads "(a, b )".
        EnsureBlank(out);
        out += BaseForm(node);
        for (antlr::RefAST child = node->getFirstChild(); child; child = child->getNextSibling()) {
            if (child->getType() == T::RPAREN_) {
                EnsureBlank(out);
                out += BaseForm(child);
                continue;
            }
            std::u16string item;
            Print(language, stem, printAnd, child, item);
            out += item;
            if (child->getNextSibling() && child->getNextSibling()->getType() != T::RPAREN_) out += u", ";
        }
        break;
    case T::NOT_:
        EnsureBlank(out);
        out += BaseForm(node);
        PrintOperand(language, stem, printAnd, node->getFirstChild(), out);
        break;
    case T::AND_: case T::OR_: case T::NEAR_: case T::WEIGHTEDNEAR_: {
        antlr::RefAST left = node->getFirstChild();
        if (left) PrintOperand(language, stem, printAnd, left, out);
        EnsureBlank(out);
        if (node->getType() != T::AND_ || printAnd) {
            out += BaseForm(node);
            EnsureBlank(out);
        }
        if (left && left->getNextSibling()) PrintOperand(language, stem, printAnd, left->getNextSibling(), out);
        break;
    }
    default:
        break;
    }
}

void SarQueryPrinter::ConvertQuery(const antlr::RefAST& node, std::vector<std::vector<std::u16string>>& out) {
    ConvertQuery(node, out, false, std::u16string());
}

void SarQueryPrinter::ConvertQuery(const antlr::RefAST& node, std::vector<std::vector<std::u16string>>& out,
                                   bool negated, const std::u16string& field) {
    if (!node) return;
    auto group = [&] {
        std::vector<std::u16string> words;
        if (!field.empty()) words.push_back(field);
        return words;
    };
    switch (node->getType()) {
    case T::FIELDNAME_: {
        antlr::RefAST op = node->getFirstChild();
        if (!op || !op->getNextSibling()) break;
        if ((!negated && op->getType() == T::EQUAL_) || (negated && op->getType() == T::NOTEQUAL_))
            ConvertQuery(op->getNextSibling(), out, false, LowerForm(node->getText()));
        break;
    }
    case T::WORD_:
        if (!negated) {
            out.push_back(group());
            out.back().push_back(LowerForm(node->getText()));
        }
        break;
    case T::DQUOTE_:
        if (!negated && node->getFirstChild()) {
            out.push_back(group());
            for (antlr::RefAST child = node->getFirstChild(); child && child->getType() != T::DQUOTE_;
                 child = child->getNextSibling())
                out.back().push_back(LowerForm(child->getText()));
        }
        break;
    case T::LPAREN_:
        for (antlr::RefAST child = node->getFirstChild(); child && child->getType() != T::RPAREN_;
             child = child->getNextSibling())
            ConvertQuery(child, out, negated, field);
        break;
    case T::NOT_:
        ConvertQuery(node->getFirstChild(), out, !negated, field);
        break;
    case T::AND_: case T::OR_: case T::NEAR_: case T::WEIGHTEDNEAR_:
        if (antlr::RefAST left = node->getFirstChild()) {
            ConvertQuery(left, out, negated, field);
            ConvertQuery(left->getNextSibling(), out, negated, field);
        }
        break;
    default:
        break;
    }
}

}  // namespace Ostrel
