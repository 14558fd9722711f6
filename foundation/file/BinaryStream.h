// The typed front over one stream buffer: scalars at their natural width, little-endian, and strings
// with a length prefix. One thread at a time per stream (the thread that may use its buffer).
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "file/BinaryStreamBuf.h"

namespace Vantu {

static_assert(std::endian::native == std::endian::little,
              "scalars are stored as their in-memory bytes, which must be little-endian");

class BaseBinaryStream {
public:
    // The u16 prefix value that announces a u32 length behind it.
    static constexpr uint16_t kLongLength = 0xFFFF;

    explicit BaseBinaryStream(BaseBinaryStreamBuf* buffer, bool owned = false) : owned_(owned), buffer_(buffer) {}
    BaseBinaryStream(const BaseBinaryStream&) = delete;
    BaseBinaryStream& operator=(const BaseBinaryStream&) = delete;
    virtual ~BaseBinaryStream();

    size_t Put(const void* data, size_t n) { return buffer_->Put(data, n); }
    size_t Get(void* data, size_t n) { return buffer_->Get(data, n); }
    void PutExact(const void* data, size_t n) { buffer_->PutExact(data, n); }
    void GetExact(void* data, size_t n) { buffer_->GetExact(data, n); }
    BaseBinaryStreamBuf& BaseBuffer() { return *buffer_; }

    // The length of a string, or the count of a counted list: u16, or 0xFFFF then u32 from 65535 on.
    void PutLength(size_t length);
    size_t GetLength();

    void PutString(std::string_view text);
    void PutString(std::u16string_view text);
    void GetString(std::string& text);
    void GetString(std::u16string& text);

    template <class V>
        requires std::is_arithmetic_v<V>
    void PutScalar(V value) {
        if constexpr (std::is_same_v<V, bool>) {
            const uint8_t byte = value ? 1 : 0;
            PutExact(&byte, 1);
        } else {
            PutExact(&value, sizeof value);
        }
    }
    template <class V>
        requires std::is_arithmetic_v<V>
    void GetScalar(V& value) {
        if constexpr (std::is_same_v<V, bool>) {
            uint8_t byte;
            GetExact(&byte, 1);
            value = byte != 0;
        } else {
            GetExact(&value, sizeof value);
        }
    }

private:
    bool owned_;
    BaseBinaryStreamBuf* buffer_;
};

template <class T>
class BinaryStreamT : public BaseBinaryStream {
public:
    explicit BinaryStreamT(BinaryStreamBufT<T>* buffer, bool owned = false)
        : BaseBinaryStream(buffer, owned), buffer_(buffer) {}
    explicit BinaryStreamT(BinaryStreamBufT<T>& buffer) : BinaryStreamT(&buffer, false) {}

    BinaryStreamBufT<T>& Buffer() { return *buffer_; }

private:
    BinaryStreamBufT<T>* buffer_;
};

// The operators return the stream's own type, so that a chain may go on with operators that other
// records define on BinaryStreamT<unsigned int>. A temporary stream works too, for one expression.
template <class S>
concept BinaryStreamLike = std::derived_from<std::remove_cvref_t<S>, BaseBinaryStream>;

template <BinaryStreamLike S, class V>
    requires std::is_arithmetic_v<V>
S&& operator<<(S&& stream, V value) {
    stream.PutScalar(value);
    return std::forward<S>(stream);
}

template <BinaryStreamLike S, class V>
    requires std::is_arithmetic_v<V>
S&& operator>>(S&& stream, V& value) {
    stream.GetScalar(value);
    return std::forward<S>(stream);
}

template <BinaryStreamLike S>
S&& operator<<(S&& stream, std::string_view text) {
    stream.PutString(text);
    return std::forward<S>(stream);
}

template <BinaryStreamLike S>
S&& operator<<(S&& stream, std::u16string_view text) {
    stream.PutString(text);
    return std::forward<S>(stream);
}

template <BinaryStreamLike S>
S&& operator>>(S&& stream, std::string& text) {
    stream.GetString(text);
    return std::forward<S>(stream);
}

template <BinaryStreamLike S>
S&& operator>>(S&& stream, std::u16string& text) {
    stream.GetString(text);
    return std::forward<S>(stream);
}

}  // namespace Vantu
