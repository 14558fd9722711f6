// Language ids and their names, for the language preferences of queries and documents.
// Pure functions over constant tables: any thread.
#pragma once

#include <cstdint>
#include <string>

namespace Vantu {

// Stored in ranking records as small numbers: a value never changes meaning.
enum LANGUAGE : int32_t {
    LANGUAGE_UNKNOWN = 0,
    LANGUAGE_ENGLISH = 1,
    LANGUAGE_FRENCH = 2,
    LANGUAGE_JAPANESE = 3,
    LANGUAGE_GERMAN = 4,
    LANGUAGE_SPANISH = 5,
    LANGUAGE_CHINESE = 6,
    LANGUAGE_ITALIAN = 7,
    LANGUAGE_DUTCH = 8,
    LANGUAGE_KOREAN = 9,
    LANGUAGE_PORTUGUESE = 10,
    LANGUAGE_SWEDISH = 11,
    LANGUAGE_DANISH = 12,
    LANGUAGE_NORWEGIAN = 13,
    LANGUAGE_FINNISH = 14,
    LANGUAGE_RUSSIAN = 15,
};

}  // namespace Vantu

namespace VantuDetection {

class CharsetLanguageDetection {
public:
    // The id of a language named in English ("German") or by its ISO 639-1 code, with or without a region
    // ("de", "de-CH", "pt_BR"), in any case; LANGUAGE_UNKNOWN for any other name.
    static Vantu::LANGUAGE LanguageID(const std::u16string& name);
};

}  // namespace VantuDetection
