#include "SarQueryPreprocessor.h"

#include <algorithm>
#include <string_view>

namespace Ostrel {
namespace {

using VantuLanguage::Language;

constexpr std::u16string_view kAllowedPunctuation = u" ()\"+-<>=\t\r\n:@/,._";
constexpr std::u16string_view kHashAfterBlank = u" #";
constexpr std::u16string_view kSeparators = u"_-.\\/:";
constexpr std::u16string_view kComparison = u"=<>";
constexpr std::u16string_view kAlphanumerics = u"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ1234567890";
constexpr std::u16string_view kPhraseTerminators = u" )(";
constexpr char16_t kQuote = u'"';
constexpr std::u16string_view kRelativeDateWords[] = {u"today", u"yesterday", u"now"};

bool IsIn(std::u16string_view set, char16_t c) { return set.find(c) != std::u16string_view::npos; }
bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
bool IsAsciiLetter(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }
char16_t AsciiLower(char16_t c) { return c >= u'A' && c <= u'Z' ? c + (u'a' - u'A') : c; }

size_t CountQuotes(const std::u16string& text, size_t from, size_t to) {
    return std::count(text.begin() + from, text.begin() + to, kQuote);
}

// Whether `pattern` (lower case) stands in `text` at `at`, comparing ASCII letters without case.
bool StandsAt(const std::u16string& text, size_t at, std::u16string_view pattern) {
    if (at + pattern.size() > text.size()) return false;
    for (size_t k = 0; k < pattern.size(); ++k)
        if (AsciiLower(text[at + k]) != pattern[k]) return false;
    return true;
}

size_t FindIgnoringCase(const std::u16string& text, std::u16string_view pattern, size_t from) {
    for (size_t i = from; i + pattern.size() <= text.size(); ++i)
        if (StandsAt(text, i, pattern)) return i;
    return std::u16string::npos;
}

}  // namespace

void SarQueryPreprocessor::Preprocess(const std::u16string& query, const Language& language, std::u16string& result) {
    if (query.empty()) return;
    result.clear();
    result.reserve(query.size() + 1);
    for (char16_t c : query) Language::ExpandLigature(c, result);

    for (char16_t& c : result)
        if (!Language::IsWordChar(c) && !IsIn(kAllowedPunctuation, c)) c = u' ';

    // A "#" survives only behind a word (as in "c#", when the language keeps it).
    if (result[0] == u'#') result[0] = u' ';
    for (size_t at = result.find(kHashAfterBlank); at != std::u16string::npos; at = result.find(kHashAfterBlank, at))
        result[at + 1] = u' ';

    ManageSpecialCharInDate(result);
    ManageCustomFieldDelim(language, result);
    BalanceParAndQuotes(result);
    ManageHyphenAndUnderscore(language, result);
}

// "today-3d" must reach the grammar as the date word, a sign and a period.
void SarQueryPreprocessor::ManageSpecialCharInDate(std::u16string& text) {
    for (std::u16string_view word : kRelativeDateWords) {
        for (char16_t sign : {u'+', u'-'}) {
            std::u16string pattern(word);
            pattern.push_back(sign);
            std::u16string replacement(word);
            replacement += u' ';
            replacement.push_back(sign);
            for (size_t at = FindIgnoringCase(text, pattern, 0); at != std::u16string::npos;
                 at = FindIgnoringCase(text, pattern, at + replacement.size()))
                text.replace(at, pattern.size(), replacement);
        }
    }
}

void SarQueryPreprocessor::ManageCustomFieldDelim(const Language& language, std::u16string& text) {
    for (size_t i = text.find(u'@'); i != std::u16string::npos; i = text.find(u'@', i + 1)) {
        if (i == 0 || text[i - 1] == u' ' || text[i - 1] == u'(') continue;  // starts a field name
        const bool dateHourSeparator = i >= 3 && text.size() - i - 1 >= 5 && IsDigit(text[i - 2]) &&
                                       IsDigit(text[i - 1]) && IsDigit(text[i + 1]) && IsDigit(text[i + 2]) &&
                                       text[i + 3] == u':' && IsDigit(text[i + 4]) && IsDigit(text[i + 5]);
        if (dateHourSeparator) continue;
        text[i] = u' ';
        InsertExactPhrase(language, static_cast<unsigned>(i), text);
    }
}

// Parentheses inside a phrase never count; an excess ")" goes, a missing one is added at the end, and a lone
// quote is dropped only after that, so in `(a "b` the added ")" stays where it was put.
void SarQueryPreprocessor::BalanceParAndQuotes(std::u16string& text) {
    std::u16string out;
    out.reserve(text.size() + 1);
    size_t quotes = 0;
    size_t depth = 0;
    for (char16_t c : text) {
        const bool inPhrase = quotes % 2 != 0;
        if (c == kQuote) {
            out.push_back(c);
            ++quotes;
        } else if (c == u'(') {
            out.push_back(inPhrase ? u' ' : c);
            if (!inPhrase) ++depth;
        } else if (c == u')') {
            if (inPhrase) {
                out.push_back(u' ');
            } else if (depth > 0) {
                out.push_back(c);
                --depth;
            }
        } else {
            out.push_back(c);
        }
    }
    out.append(depth, u')');
    if (quotes % 2 != 0) out.erase(out.rfind(kQuote), 1);
    text = std::move(out);
}

void SarQueryPreprocessor::ManageHyphenAndUnderscore(const Language& language, std::u16string& text) {
    for (size_t i = text.find_first_of(kSeparators); i != std::u16string::npos;
         i = text.find_first_of(kSeparators, i + 1)) {
        const unsigned pos = static_cast<unsigned>(i);
        bool replace = true;
        switch (text[i]) {
            case u'-': replace = MustReplaceHyphen(language, text, pos) && !ManageFieldName(pos, text); break;
            case u'_': replace = !ManageFieldName(pos, text); break;
            case u'/': replace = !CheckIfSlashInDate(text, pos); break;
            case u':': {
                const bool timeOfDate = (i >= 3 && text[i - 3] == u'@') || (i >= 6 && text[i - 6] == u'@');
                const bool weightedNear = i > 4 && StandsAt(text, i - 4, u"near") &&
                                          i + 1 < text.size() && IsDigit(text[i + 1]);
                replace = !timeOfDate && !weightedNear;
                break;
            }
            case u'.': replace = !KeepsPointInValue(text, pos); break;
            default: break;  // a backslash never means anything
        }
        if (replace) {
            text[i] = u' ';
            InsertExactPhrase(language, pos, text);
        }
    }
}

// A point stays inside a number that is a value: behind a comparison, a list, a sign or a closed group.
bool SarQueryPreprocessor::KeepsPointInValue(const std::u16string& text, unsigned int pos) {
    if (pos == 0 || pos + 1 >= text.size() || !IsDigit(text[pos - 1]) || !IsDigit(text[pos + 1])) return false;
    size_t k = pos - 1;
    while (k > 1 && IsDigit(text[k])) --k;
    while (k > 1 && text[k] == u' ') --k;
    const bool keep = IsIn(u"=<>),-", text[k]);
    if (CountQuotes(text, 0, k) % 2 == 0) return keep;
    return CountQuotes(text, k, text.size()) % 2 == 0;  // the number stands in a phrase
}

bool SarQueryPreprocessor::MustReplaceHyphen(const Language&, const std::u16string& text, unsigned int pos) {
    const size_t n = text.size();
    size_t j = pos + 1;
    while (j < n && text[j] == u' ') ++j;
    if (j >= n) return true;
    size_t valueChars = 0;
    while (j < n && (IsDigit(text[j]) || IsIn(u"ymodhs.", text[j]))) {
        ++j;
        ++valueChars;
    }
    if (j < n && !(IsIn(u" ),", text[j]) && valueChars > 0)) return true;

    // A period follows: a sign if it stands behind a relative date word, a comparison, a list or a group.
    ptrdiff_t k = static_cast<ptrdiff_t>(pos) - 1;
    while (k >= 0 && text[k] == u' ') --k;
    ptrdiff_t wordStart = k;
    while (wordStart >= 0 && text[wordStart] <= 255 && Language::IsLatin1WordChar(text[wordStart])) --wordStart;
    const std::u16string_view word(text.data() + wordStart + 1, static_cast<size_t>(k - wordStart));
    for (std::u16string_view dateWord : kRelativeDateWords)
        if (word == dateWord) return false;
    if (k < 0) return true;
    return !IsIn(u"=<>),(", text[k]);
}

// A hyphen or underscore inside a field name is dropped: "@my-field" and "@my_field" both name "myfield".
bool SarQueryPreprocessor::ManageFieldName(unsigned int pos, std::u16string& text) {
    if (pos == 0) return false;
    const size_t at = text.rfind(u'@', pos);
    if (at == std::u16string::npos) return false;
    for (ptrdiff_t k = static_cast<ptrdiff_t>(pos) - 1; k >= 0; --k) {
        if (IsIn(kAlphanumerics, text[k]) || text[k] == u'@') continue;
        if (static_cast<size_t>(k) >= at) return false;
        break;
    }
    text.erase(pos, 1);
    return true;
}

// Only a query that can hold a field name, an operator and the ten characters of a date can hold one.
bool SarQueryPreprocessor::CheckIfSlashInDate(const std::u16string& text, unsigned int pos) {
    if (text.size() < 13 || pos < 7) return false;
    const auto digits = [&](size_t from, size_t count) {
        return std::all_of(text.begin() + from, text.begin() + from + count, IsDigit);
    };
    if (digits(pos - 4, 4) && CheckDateFromSlashNumber(text, pos, true)) return true;
    if (digits(pos - 7, 4) && text[pos - 3] == u'/' && digits(pos - 2, 2))
        return CheckDateFromSlashNumber(text, pos, false);
    return false;
}

// Reads leftwards from just before the year: accepted behind "@name" and a comparison, or as a member of a list.
bool SarQueryPreprocessor::CheckDateFromSlashNumber(const std::u16string& text, unsigned int pos, bool firstSlash) {
    enum State { kStart, kBlank, kAfterComparison, kBlankBeforeName, kName, kAccept, kReject };
    const ptrdiff_t start = static_cast<ptrdiff_t>(pos) - (firstSlash ? 5 : 8);
    State state = kStart;
    for (ptrdiff_t k = start; k >= 0; --k) {
        const char16_t c = text[k];
        switch (state) {
            case kStart:
            case kBlank:
                state = c == u' ' ? kBlank
                        : IsIn(kComparison, c) ? kAfterComparison
                        : (c == u',' || c == u'(') ? kAccept
                        : kReject;
                break;
            case kAfterComparison:
                state = c == u' ' ? kBlankBeforeName : IsAsciiLetter(c) ? kName : kAfterComparison;
                break;
            case kBlankBeforeName:
                state = c == u' ' ? kBlankBeforeName : IsAsciiLetter(c) ? kName : kReject;
                break;
            case kName:
                state = c == u'@' ? kAccept : IsAsciiLetter(c) ? kName : kReject;
                break;
            default: break;
        }
        if (state == kAccept) return true;
        if (state == kReject) return false;
    }
    return false;
}

// Called once the separator at `pos` became a blank: quotes the compound around it unless it already stands in
// a phrase or the separator held nothing together.
void SarQueryPreprocessor::InsertExactPhrase(const Language&, unsigned int pos, std::u16string& text) {
    if (CountQuotes(text, 0, pos) % 2 != 0) return;
    if (pos == 0 || pos + 1 >= text.size() || text[pos - 1] == u' ' || text[pos + 1] == u' ') return;
    size_t k = pos - 1;
    while (k > 0 && (Language::IsWordChar(text[k]) || text[k] == u':')) --k;
    const size_t start = k > 0 ? k + 1 : (Language::IsWordChar(text[0]) ? 0 : 1);
    text.insert(start, 1, kQuote);
    const size_t end = text.find_first_of(kPhraseTerminators, pos + 2);
    if (end == std::u16string::npos)
        text.push_back(kQuote);
    else
        text.insert(end, 1, kQuote);
}

}  // namespace Ostrel
