// A document's fingerprint for near-duplicate detection: the smallest hashes of its 4-word shingles.
// A built bag is read-only: any thread may compare it; building and loading belong to one thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "file/BinaryStream.h"

namespace VantuAlgo {

class ShingleBag {
public:
    // Words per shingle, and the number of smallest shingle hashes a bag keeps.
    static constexpr unsigned int kShingleWords = 4;
    static constexpr unsigned int kBagSize = 64;

    ShingleBag() = default;
    // The words of a document in reading order; a text shorter than a shingle is one shingle.
    explicit ShingleBag(const std::vector<std::u16string>& words);

    bool empty() const { return hashes_.empty(); }
    bool operator==(const ShingleBag& other) const = default;

    // True when the estimated share of shingles the two documents have in common, in percent, is at
    // least threshold. An empty bag is similar to none.
    bool IsSimilar(const ShingleBag& other, unsigned int threshold) const;

    friend Vantu::BaseBinaryStream& operator<<(Vantu::BaseBinaryStream& stream, const ShingleBag& bag);
    friend Vantu::BaseBinaryStream& operator>>(Vantu::BaseBinaryStream& stream, ShingleBag& bag);

private:
    std::vector<uint32_t> hashes_;  // ascending, distinct, at most kBagSize
};

}  // namespace VantuAlgo
