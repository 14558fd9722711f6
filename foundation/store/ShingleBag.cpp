#include "store/ShingleBag.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>

#include "file/BinaryStreamException.h"

namespace VantuAlgo {

namespace {

// Bags are compared across documents indexed years apart, so the hash is fixed here rather than taken
// from the standard library: FNV-1a over the code units, then a 64-bit finaliser so that the smallest
// values are a fair sample of the shingles.
uint32_t HashShingle(const std::vector<std::u16string>& words, size_t first, size_t count) {
    uint64_t hash = 0xCBF29CE484222325ull;
    auto mix = [&hash](uint64_t unit) {
        hash ^= unit;
        hash *= 0x100000001B3ull;
    };
    for (size_t i = first; i < first + count; ++i) {
        for (char16_t unit : words[i]) mix(unit);
        mix(0x10000);  // a word boundary no code unit can forge
    }
    hash ^= hash >> 33;
    hash *= 0xFF51AFD7ED558CCDull;
    hash ^= hash >> 33;
    hash *= 0xC4CEB9FE1A85EC53ull;
    hash ^= hash >> 33;
    return static_cast<uint32_t>(hash);
}

}  // namespace

ShingleBag::ShingleBag(const std::vector<std::u16string>& words) {
    if (words.empty()) return;
    size_t width = std::min<size_t>(kShingleWords, words.size());
    std::set<uint32_t> smallest;
    for (size_t first = 0; first + width <= words.size(); ++first) {
        smallest.insert(HashShingle(words, first, width));
        if (smallest.size() > kBagSize) smallest.erase(std::prev(smallest.end()));
    }
    hashes_.assign(smallest.begin(), smallest.end());
}

// The smallest kBagSize hashes of the union are a sample of it; the share of that sample found in both
// bags estimates the resemblance of the two documents (exactly, for bags that kept all their shingles).
bool ShingleBag::IsSimilar(const ShingleBag& other, unsigned int threshold) const {
    if (empty() || other.empty()) return false;
    auto a = hashes_.begin(), b = other.hashes_.begin();
    unsigned int sampled = 0, common = 0;
    while (sampled < kBagSize && a != hashes_.end() && b != other.hashes_.end()) {
        if (*a == *b) {
            ++common;
            ++a;
            ++b;
        } else if (*a < *b) {
            ++a;
        } else {
            ++b;
        }
        ++sampled;
    }
    // What one side still holds within the sample belongs to that side alone.
    sampled += std::min<unsigned int>(kBagSize - sampled, static_cast<unsigned int>((hashes_.end() - a) +
                                                                                    (other.hashes_.end() - b)));
    return uint64_t{common} * 100 >= uint64_t{threshold} * sampled;
}

Vantu::BaseBinaryStream& operator<<(Vantu::BaseBinaryStream& stream, const ShingleBag& bag) {
    stream.PutScalar(static_cast<uint8_t>(bag.hashes_.size()));
    for (uint32_t hash : bag.hashes_) stream.PutScalar(hash);
    return stream;
}

Vantu::BaseBinaryStream& operator>>(Vantu::BaseBinaryStream& stream, ShingleBag& bag) {
    uint8_t count;
    stream.GetScalar(count);
    if (count > ShingleBag::kBagSize) Vantu::ThrowStream<Vantu::BinaryStreamException>("ShingleBag: too many hashes");
    std::vector<uint32_t> hashes(count);
    for (uint32_t& hash : hashes) stream.GetScalar(hash);
    if (std::adjacent_find(hashes.begin(), hashes.end(), std::greater_equal<uint32_t>()) != hashes.end())
        Vantu::ThrowStream<Vantu::BinaryStreamException>("ShingleBag: hashes out of order");
    bag.hashes_ = std::move(hashes);
    return stream;
}

}  // namespace VantuAlgo
