// One sentence of a document kept for its contextual summaries. A plain value: copy it freely, share it
// read-only between threads.
#pragma once

#include <string>

#include "file/BinaryStream.h"

namespace Ostrel {

struct SummarySentence {
    std::u16string text;

    bool operator==(const SummarySentence&) const = default;
};

// The text as a wide string.
inline Vantu::BaseBinaryStream& operator<<(Vantu::BaseBinaryStream& stream, const SummarySentence& sentence) {
    return stream << std::u16string_view(sentence.text);
}

inline Vantu::BaseBinaryStream& operator>>(Vantu::BaseBinaryStream& stream, SummarySentence& sentence) {
    return stream >> sentence.text;
}

}  // namespace Ostrel
