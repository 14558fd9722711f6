#include "file/BinaryStream.h"

#include <limits>

namespace Vantu {

BaseBinaryStream::~BaseBinaryStream() {
    if (owned_) delete buffer_;
}

void BaseBinaryStream::PutLength(size_t length) {
    if (length < kLongLength) {
        PutScalar(uint16_t(length));
        return;
    }
    if (length > std::numeric_limits<uint32_t>::max()) {
        ThrowStream<BinaryStreamException>("Length too large for a stream: " + std::to_string(length));
    }
    PutScalar(kLongLength);
    PutScalar(uint32_t(length));
}

size_t BaseBinaryStream::GetLength() {
    uint16_t shortLength;
    GetScalar(shortLength);
    if (shortLength != kLongLength) return shortLength;
    uint32_t length;
    GetScalar(length);
    return length;
}

void BaseBinaryStream::PutString(std::string_view text) {
    PutLength(text.size());
    PutExact(text.data(), text.size());
}

void BaseBinaryStream::PutString(std::u16string_view text) {
    PutLength(text.size());
    PutExact(text.data(), text.size() * sizeof(char16_t));
}

// The copies read in bounded rounds, so a corrupt length fails at the end of the data instead of
// allocating what it claims.
void BaseBinaryStream::GetString(std::string& text) {
    const size_t length = GetLength();
    if (buffer_->Copy(text, length) != length) {
        ThrowStream<BinaryStreamGetEOFException>("Unexpected end of stream inside a string of " +
                                                 std::to_string(length) + " bytes");
    }
}

void BaseBinaryStream::GetString(std::u16string& text) {
    const size_t length = GetLength();
    if (buffer_->Copy(text, length) != length) {
        ThrowStream<BinaryStreamGetEOFException>("Unexpected end of stream inside a string of " +
                                                 std::to_string(length) + " characters");
    }
}

}  // namespace Vantu
