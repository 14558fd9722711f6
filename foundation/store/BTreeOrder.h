// The key orders of the trees (FastLess, Less) and the comparison a tree makes on stored key bytes,
// which skips decoding for the common key types. Stateless: any thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "store/BTreeTraitsT.h"

namespace VantuBTree {

// Strings: code units compared over the shorter length, the shorter first on equality. Others: `<`.
template <class T>
struct FastLess {
    bool operator()(const T& a, const T& b) const { return a < b; }
};

template <class C>
struct FastLess<std::basic_string<C>> {
    bool operator()(const std::basic_string<C>& a, const std::basic_string<C>& b) const {
        const size_t n = std::min(a.size(), b.size());
        for (size_t i = 0; i < n; ++i)
            if (a[i] != b[i]) return static_cast<std::make_unsigned_t<C>>(a[i]) < static_cast<std::make_unsigned_t<C>>(b[i]);
        return a.size() < b.size();
    }
};

template <class T>
struct Less {
    bool operator()(const T& a, const T& b) const { return a < b; }
};

// `Less(a, b)` on the stored bytes of two keys.
template <class K, class Order, class KeyTraits>
struct BTreeKeyOrder {
    static bool Less(const uint8_t* a, uint32_t aSize, const uint8_t* b, uint32_t bSize) {
        K x{}, y{};
        KeyTraits::Read(a, aSize, x);
        KeyTraits::Read(b, bSize, y);
        return Order()(x, y);
    }
};

// Narrow strings under FastLess: memcmp of the stored bytes behind the length.
template <>
struct BTreeKeyOrder<std::string, FastLess<std::string>, BTreeTraitsT<std::string>> {
    static bool Less(const uint8_t* a, uint32_t aSize, const uint8_t* b, uint32_t bSize) {
        using T = BTreeTraitsT<std::string>;
        const uint32_t an = T::StoredLength(a, aSize), bn = T::StoredLength(b, bSize);
        const int c = std::memcmp(a + 2, b + 2, std::min(an, bn));
        return c != 0 ? c < 0 : an < bn;
    }
};

}  // namespace VantuBTree
