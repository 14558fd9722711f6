#include "core/Text.h"

namespace Vantu {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf16(std::u16string& out, char32_t c) {
    if (c < 0x10000) {
        out.push_back(char16_t(c));
    } else {
        c -= 0x10000;
        out.push_back(char16_t(0xD800 + (c >> 10)));
        out.push_back(char16_t(0xDC00 + (c & 0x3FF)));
    }
}

void AppendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out.push_back(char(c));
    } else if (c < 0x800) {
        out.push_back(char(0xC0 | (c >> 6)));
        out.push_back(char(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(char(0xE0 | (c >> 12)));
        out.push_back(char(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(char(0x80 | (c & 0x3F)));
    } else {
        out.push_back(char(0xF0 | (c >> 18)));
        out.push_back(char(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(char(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(char(0x80 | (c & 0x3F)));
    }
}

// Decodes one code point at text[i], advancing i; malformed input yields U+FFFD.
char32_t DecodeUtf8(std::string_view text, size_t& i) {
    unsigned char b = text[i++];
    if (b < 0x80) return b;
    int extra = b >= 0xF0 && b < 0xF5 ? 3 : b >= 0xE0 ? 2 : b >= 0xC2 && b < 0xE0 ? 1 : -1;
    if (extra < 0 || b >= 0xF5) return kReplacement;
    char32_t c = b & (0x3F >> extra);
    for (int k = 0; k < extra; ++k) {
        if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return kReplacement;
        c = (c << 6) | (static_cast<unsigned char>(text[i++]) & 0x3F);
    }
    static constexpr char32_t kMin[] = {0, 0x80, 0x800, 0x10000};
    if (c < kMin[extra] || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) return kReplacement;
    return c;
}

}  // namespace

std::u16string FromUtf8(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) AppendUtf16(out, DecodeUtf8(text, i));
    return out;
}

std::string ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        } else if (c >= 0xD800 && c < 0xE000) {
            c = kReplacement;
        }
        AppendUtf8(out, c);
    }
    return out;
}

}  // namespace Vantu
