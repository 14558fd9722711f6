#include "core/Text.h"

#include <algorithm>

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

namespace {

struct CasePair {
    char16_t from;
    char16_t to;
};

#include "core/CaseTables.inc"

template <size_t N>
char16_t Map(const CasePair (&table)[N], char16_t c) {
    const CasePair* end = table + N;
    const CasePair* it = std::lower_bound(table, end, c, [](const CasePair& p, char16_t v) { return p.from < v; });
    return it != end && it->from == c ? it->to : c;
}

}  // namespace

char16_t ToLower(char16_t c) {
    if (c < 0x80) return c >= u'A' && c <= u'Z' ? char16_t(c + 32) : c;
    return Map(kToLower, c);
}

char16_t ToUpper(char16_t c) {
    if (c < 0x80) return c >= u'a' && c <= u'z' ? char16_t(c - 32) : c;
    return Map(kToUpper, c);
}

bool IsUpper(char16_t c) { return ToLower(c) != c; }

void ToLower(const std::u16string& text, std::u16string& out) {
    out.resize(text.size());
    std::transform(text.begin(), text.end(), out.begin(), [](char16_t c) { return ToLower(c); });
}

std::u16string ToLower(const std::u16string& text) {
    std::u16string out;
    ToLower(text, out);
    return out;
}

std::u16string ToUpper(const std::u16string& text) {
    std::u16string out(text.size(), u'\0');
    std::transform(text.begin(), text.end(), out.begin(), [](char16_t c) { return ToUpper(c); });
    return out;
}

std::string ToLower(const std::string& text) {
    if (std::any_of(text.begin(), text.end(), [](char c) { return (unsigned char)c >= 0x80; }))
        return ToUtf8(ToLower(FromUtf8(text)));
    std::string out = text;
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = char(c + 32);
    return out;
}

bool IsBlank(char16_t c) {
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\v' || c == u'\f' || c == 0x00A0 || c == 0x3000;
}

void StripLeadingBlanks(std::u16string& text) {
    text.erase(text.begin(), std::find_if(text.begin(), text.end(), [](char16_t c) { return !IsBlank(c); }));
}

void StripTrailingBlanks(std::u16string& text) {
    text.erase(std::find_if(text.rbegin(), text.rend(), [](char16_t c) { return !IsBlank(c); }).base(), text.end());
}

void BeautifyString(const std::u16string& in, std::u16string& out, bool strip, bool collapse) {
    std::u16string result;
    result.reserve(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        if (!collapse || !IsBlank(in[i])) {
            result.push_back(in[i]);
            continue;
        }
        while (i + 1 < in.size() && IsBlank(in[i + 1])) ++i;
        result.push_back(u' ');
    }
    if (strip) {
        StripTrailingBlanks(result);
        StripLeadingBlanks(result);
    }
    out = std::move(result);
}

std::u16string BeautifyString(const std::u16string& in, bool strip, bool collapse) {
    std::u16string out;
    BeautifyString(in, out, strip, collapse);
    return out;
}

bool WNoCase::IsEqual(const std::u16string& a, const std::u16string& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char16_t x, char16_t y) { return ToLower(x) == ToLower(y); });
}

}  // namespace Vantu
