#include "language/Unicode.h"

#include "core/Text.h"
#include "language/Language.h"

namespace VantuCharset {

using VantuLanguage::Language;

void Unicode::PrepareString(const std::u16string& in, std::u16string& out, const unsigned int& flags) {
    std::u16string text;
    if (flags & kLigatures)
        Language::ExpandLigatures(in, text);
    else
        text = in;
    const bool lower = flags & kLowerCase;
    if (lower && (flags & kBaseLetters) && !(flags & kKeepAccents))
        Language::ToLowerBase(text, text, true);
    else if (lower)
        Vantu::ToLower(text, text);
    out = std::move(text);
}

bool Unicode::IsWordCharacter(char16_t c, bool atWordStart) {
    if (atWordStart && c >= 0x0300 && c < 0x0370) return false;
    return Language::IsWordChar(c);
}

}  // namespace VantuCharset
