// Fuzz target over the whole query road: arbitrary UTF-16 in, a tree or a QueryException out, never a crash,
// hang or leak. Built for libFuzzer by scripts/fuzz.sh; a bounded run is part of the test suite.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "SarQueryParse.h"
#include "SarQueryPrinter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const VantuLanguage::Language english(VantuLanguage::Language::kEnglish);
    std::u16string query(size / 2, u'\0');
    for (size_t i = 0; i < query.size(); ++i) query[i] = char16_t(data[2 * i] | data[2 * i + 1] << 8);

    Ostrel::SarQueryParse parse = Ostrel::SarQueryParse::Parse(query, english);
    std::u16string printed;
    Ostrel::SarQueryPrinter::Print(&english, true, true, parse.tree, printed);
    std::vector<std::vector<std::u16string>> groups;
    Ostrel::SarQueryPrinter::ConvertQuery(parse.tree, groups);
    return 0;
}
