// Record bytes of the key and value types that the stores keep in trees; a store adds its own
// specialisations beside its key type. Stateless: any thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

namespace VantuBTree {

// Each specialisation gives kFixedSize (0 when sizes vary), Size, Write and Read. Read receives the
// stored size and never reads past it, whatever the bytes say.
template <class T>
struct BTreeTraitsT;

template <>
struct BTreeTraitsT<unsigned int> {
    static constexpr uint32_t kFixedSize = 4;
    static uint32_t Size(const unsigned int&) { return 4; }
    static void Write(const unsigned int& v, uint8_t* out) {
        for (int i = 0; i < 4; ++i) out[i] = uint8_t(v >> (8 * i));
    }
    static void Read(const uint8_t* in, uint32_t size, unsigned int& v) {
        v = size < 4 ? 0 : in[0] | (in[1] << 8) | (in[2] << 16) | (unsigned(in[3]) << 24);
    }
};

// u16 length in bytes, then the bytes.
template <>
struct BTreeTraitsT<std::string> {
    static constexpr uint32_t kFixedSize = 0;
    static uint32_t Size(const std::string& s) { return 2 + static_cast<uint32_t>(s.size()); }
    static void Write(const std::string& s, uint8_t* out) {
        out[0] = uint8_t(s.size());
        out[1] = uint8_t(s.size() >> 8);
        if (!s.empty()) std::memcpy(out + 2, s.data(), s.size());
    }
    static uint32_t StoredLength(const uint8_t* in, uint32_t size) {
        if (size < 2) return 0;
        const uint32_t n = in[0] | (in[1] << 8);
        return n < size - 2 ? n : size - 2;
    }
    static void Read(const uint8_t* in, uint32_t size, std::string& s) {
        s.assign(reinterpret_cast<const char*>(in) + 2, StoredLength(in, size));
    }
};

// u16 length in code units, then two bytes (little-endian) for each.
template <>
struct BTreeTraitsT<std::u16string> {
    static constexpr uint32_t kFixedSize = 0;
    static uint32_t Size(const std::u16string& s) { return 2 + 2 * static_cast<uint32_t>(s.size()); }
    static void Write(const std::u16string& s, uint8_t* out) {
        out[0] = uint8_t(s.size());
        out[1] = uint8_t(s.size() >> 8);
        for (size_t i = 0; i < s.size(); ++i) {
            out[2 + 2 * i] = uint8_t(s[i]);
            out[3 + 2 * i] = uint8_t(s[i] >> 8);
        }
    }
    static void Read(const uint8_t* in, uint32_t size, std::u16string& s) {
        const uint32_t n = size < 2 ? 0 : std::min<uint32_t>(in[0] | (in[1] << 8), (size - 2) / 2);
        s.resize(n);
        for (uint32_t i = 0; i < n; ++i) s[i] = char16_t(in[2 + 2 * i] | (in[3 + 2 * i] << 8));
    }
};

}  // namespace VantuBTree
