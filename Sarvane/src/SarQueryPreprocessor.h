// Turns the text a person typed into text the query grammar takes: punctuation that means nothing becomes a
// blank, and the compound it held together becomes an exact phrase. Never fails. Stateless: any thread.
#pragma once

#include <string>

#include "language/Language.h"

namespace Ostrel {

class SarQueryPreprocessor {
public:
    // An empty query leaves `result` untouched; otherwise `result` receives the preprocessed text.
    static void Preprocess(const std::u16string& query, const VantuLanguage::Language& language,
                           std::u16string& result);

private:
    static void ManageSpecialCharInDate(std::u16string& text);
    static void ManageCustomFieldDelim(const VantuLanguage::Language& language, std::u16string& text);
    static void BalanceParAndQuotes(std::u16string& text);
    static bool MustReplaceHyphen(const VantuLanguage::Language& language, const std::u16string& text, unsigned int pos);
    static void ManageHyphenAndUnderscore(const VantuLanguage::Language& language, std::u16string& text);
    static bool CheckDateFromSlashNumber(const std::u16string& text, unsigned int pos, bool firstSlash);
    static bool CheckIfSlashInDate(const std::u16string& text, unsigned int pos);
    static void InsertExactPhrase(const VantuLanguage::Language& language, unsigned int pos, std::u16string& text);
    static bool ManageFieldName(unsigned int pos, std::u16string& text);
    static bool KeepsPointInValue(const std::u16string& text, unsigned int pos);
};

}  // namespace Ostrel
