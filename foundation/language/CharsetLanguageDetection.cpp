#include "language/CharsetLanguageDetection.h"

#include <string_view>

namespace VantuDetection {
namespace {

struct LanguageName {
    std::u16string_view name;
    std::u16string_view code;
    Vantu::LANGUAGE id;
};

constexpr LanguageName kLanguages[] = {
    {u"english", u"en", Vantu::LANGUAGE_ENGLISH},       {u"french", u"fr", Vantu::LANGUAGE_FRENCH},
    {u"japanese", u"ja", Vantu::LANGUAGE_JAPANESE},     {u"german", u"de", Vantu::LANGUAGE_GERMAN},
    {u"spanish", u"es", Vantu::LANGUAGE_SPANISH},       {u"chinese", u"zh", Vantu::LANGUAGE_CHINESE},
    {u"italian", u"it", Vantu::LANGUAGE_ITALIAN},       {u"dutch", u"nl", Vantu::LANGUAGE_DUTCH},
    {u"korean", u"ko", Vantu::LANGUAGE_KOREAN},         {u"portuguese", u"pt", Vantu::LANGUAGE_PORTUGUESE},
    {u"swedish", u"sv", Vantu::LANGUAGE_SWEDISH},       {u"danish", u"da", Vantu::LANGUAGE_DANISH},
    {u"norwegian", u"no", Vantu::LANGUAGE_NORWEGIAN},   {u"finnish", u"fi", Vantu::LANGUAGE_FINNISH},
    {u"russian", u"ru", Vantu::LANGUAGE_RUSSIAN},
};

}  // namespace

Vantu::LANGUAGE CharsetLanguageDetection::LanguageID(const std::u16string& name) {
    std::u16string key;
    for (char16_t c : name) {
        if (c == u'-' || c == u'_') break;  // a region never changes the language
        key.push_back(c >= u'A' && c <= u'Z' ? c + (u'a' - u'A') : c);
    }
    while (!key.empty() && key.back() == u' ') key.pop_back();
    for (const LanguageName& language : kLanguages)
        if (key == language.name || key == language.code) return language.id;
    return Vantu::LANGUAGE_UNKNOWN;
}

}  // namespace VantuDetection
