#include "SarQueryParse.h"

#include <antlr/ANTLRException.hpp>

#include <algorithm>
#include <sstream>

#include "SarQueryLexer.hpp"
#include "SarQueryParser.hpp"
#include "SarQueryPreprocessor.h"
#include "core/Text.h"

namespace Ostrel {

SarQueryParse SarQueryParse::Parse(const std::u16string& query, const VantuLanguage::Language& language) {
    std::u16string text;
    SarQueryPreprocessor::Preprocess(query, language, text);
    return ParsePreprocessed(text);
}

SarQueryParse SarQueryParse::ParsePreprocessed(const std::u16string& text) {
    SarQueryParse result;
    if (std::all_of(text.begin(), text.end(), Vantu::IsBlank)) return result;
    std::istringstream in(Vantu::ToUtf8(text));
    SarQueryLexer lexer(in);
    SarQueryParser parser(lexer);
    try {
        parser.query();
    } catch (const QueryException& e) {
        result.exception = e;
    } catch (const antlr::ANTLRException&) {
        result.grammarFailure = true;
    }
    result.tree = parser.getAST();
    return result;
}

}  // namespace Ostrel
