// UTF-8 <-> UTF-16 conversion, case mapping and blank handling. Wide strings are std::u16string
// throughout the project. Pure functions: any thread.
#pragma once

#include <string>
#include <string_view>

namespace Vantu {

// Invalid sequences become U+FFFD; the conversion never fails.
std::u16string FromUtf8(std::string_view text);
std::string ToUtf8(std::u16string_view text);

// Simple case mapping of one UTF-16 unit, from tables fixed in the source so that keys built with it
// never change with a library upgrade. Surrogates and units without a mapping stay as they are;
// strings map unit by unit, so lengths and positions carry over.
char16_t ToLower(char16_t c);
char16_t ToUpper(char16_t c);
// True for a unit that has a lower-case form other than itself.
bool IsUpper(char16_t c);
std::u16string ToLower(const std::u16string& text);
void ToLower(const std::u16string& text, std::u16string& out);
std::u16string ToUpper(const std::u16string& text);
// UTF-8: ASCII text is lowered byte by byte; other text through UTF-16, where an invalid sequence
// becomes U+FFFD.
std::string ToLower(const std::string& text);

// Blanks: space, tab, line breaks, form feed, no-break space and the ideographic space.
bool IsBlank(char16_t c);
void StripLeadingBlanks(std::u16string& text);
void StripTrailingBlanks(std::u16string& text);
// `out` is `in` with, when `strip`, no blanks at either end and, when `collapse`, each run of blanks
// replaced by one space. The two together make texts that differ only in spacing equal.
void BeautifyString(const std::u16string& in, std::u16string& out, bool strip = true, bool collapse = true);
std::u16string BeautifyString(const std::u16string& in, bool strip = true, bool collapse = true);

// Comparison without regard to case, by the mapping above.
struct WNoCase {
    static bool IsEqual(const std::u16string& a, const std::u16string& b);
};

}  // namespace Vantu
