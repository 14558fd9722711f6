#include "store/BitVector.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace VantuAlgo {

// Every byte from byteSize() up to capacity_ is 0, and so are the bits past size_ in the last byte;
// capacity_ is a whole number of 8-byte words. So whole words can be combined without masks, and a
// vector that grows finds its new bits already clear.
namespace {

constexpr unsigned int kWord = 8;

unsigned int WordBytes(unsigned int bytes) { return (bytes + kWord - 1) & ~(kWord - 1); }

// Loads eight bytes so that bit i of the vector is bit 63 - (i & 63) of the value.
uint64_t LoadWord(const unsigned char* p) {
    uint64_t value;
    std::memcpy(&value, p, kWord);
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
    return value;
}

template <class Combine>
void CombineWords(unsigned char* target, const unsigned char* source, unsigned int bytes, Combine combine) {
    for (unsigned int i = 0; i < bytes; i += kWord) {
        uint64_t a, b;
        std::memcpy(&a, target + i, kWord);
        std::memcpy(&b, source + i, kWord);
        a = combine(a, b);
        std::memcpy(target + i, &a, kWord);
    }
}

}  // namespace

BitVector::BitVector(const BitVector& other) { *this = other; }

BitVector::BitVector(BitVector&& other) noexcept
    : bytes_(std::exchange(other.bytes_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

BitVector& BitVector::operator=(const BitVector& other) {
    if (this == &other) return *this;
    clear();
    reallocate(other.byteSize());
    if (other.size_ != 0) std::memcpy(bytes_, other.bytes_, other.byteSize());
    size_ = other.size_;
    return *this;
}

BitVector& BitVector::operator=(BitVector&& other) noexcept {
    std::swap(bytes_, other.bytes_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
    return *this;
}

BitVector::~BitVector() { std::free(bytes_); }

void BitVector::reallocate(unsigned int bytes) {
    if (bytes <= capacity_) return;
    unsigned int grown = std::max(bytes, capacity_ + capacity_ / 2);
    unsigned int target = WordBytes(std::max(grown, kWord));
    auto* fresh = static_cast<unsigned char*>(std::realloc(bytes_, target));
    if (fresh == nullptr) throw std::bad_alloc();
    std::memset(fresh + capacity_, 0, target - capacity_);
    bytes_ = fresh;
    capacity_ = target;
}

void BitVector::set(unsigned int index, bool value) {
    if (index >= size_) {
        if (!value) return resize(index + 1);
        resize(index + 1);
    }
    unsigned char mask = static_cast<unsigned char>(0x80u >> (index & 7));
    if (value)
        bytes_[index >> 3] |= mask;
    else
        bytes_[index >> 3] &= static_cast<unsigned char>(~mask);
}

void BitVector::setBits(unsigned int first, unsigned int last, bool value, bool grow) {
    if (grow && last > size_) resize(last);
    last = std::min(last, size_);
    if (first >= last) return;
    unsigned int firstByte = first >> 3, lastByte = (last - 1) >> 3;
    unsigned char head = static_cast<unsigned char>(0xFFu >> (first & 7));
    unsigned char tail = static_cast<unsigned char>(0xFFu << (7 - ((last - 1) & 7)));
    auto apply = [&](unsigned int byte, unsigned char mask) {
        if (value)
            bytes_[byte] |= mask;
        else
            bytes_[byte] &= static_cast<unsigned char>(~mask);
    };
    if (firstByte == lastByte) return apply(firstByte, head & tail);
    apply(firstByte, head);
    std::memset(bytes_ + firstByte + 1, value ? 0xFF : 0, lastByte - firstByte - 1);
    apply(lastByte, tail);
}

void BitVector::setBits(const Vantu::FastVector<unsigned int>& indexes, bool value) {
    for (unsigned int index : indexes) set(index, value);
}

void BitVector::resize(unsigned int bits, bool value) {
    unsigned int old = size_;
    if (bits >= old) {
        reallocate(ByteCount(bits));
        size_ = bits;
        if (value) setBits(old, bits, true, false);
        return;
    }
    unsigned int keep = ByteCount(bits);
    std::memset(bytes_ + keep, 0, ByteCount(old) - keep);
    size_ = bits;
    ClearTail();
}

void BitVector::ClearTail() {
    if (size_ & 7) bytes_[size_ >> 3] &= static_cast<unsigned char>(0xFFu << (8 - (size_ & 7)));
    std::memset(bytes_ + byteSize(), 0, WordBytes(byteSize()) - byteSize());
}

void BitVector::clear() {
    if (size_ != 0) std::memset(bytes_, 0, byteSize());
    size_ = 0;
}

void BitVector::invert() {
    CombineWords(bytes_, bytes_, WordBytes(byteSize()), [](uint64_t a, uint64_t) { return ~a; });
    if (size_ != 0) ClearTail();
}

BitVector& BitVector::operator&=(const BitVector& other) {
    if (size_ == 0) return *this;
    unsigned int common = std::min(byteSize(), other.byteSize());
    CombineWords(bytes_, other.bytes_, WordBytes(common), [](uint64_t a, uint64_t b) { return a & b; });
    std::memset(bytes_ + common, 0, byteSize() - common);
    return *this;
}

BitVector& BitVector::operator|=(const BitVector& other) {
    if (other.size_ > size_) resize(other.size_);
    CombineWords(bytes_, other.bytes_, WordBytes(other.byteSize()), [](uint64_t a, uint64_t b) { return a | b; });
    return *this;
}

bool BitVector::operator==(const BitVector& other) const {
    return size_ == other.size_ && (size_ == 0 || std::memcmp(bytes_, other.bytes_, byteSize()) == 0);
}

unsigned int BitVector::count() const {
    unsigned int total = 0;
    for (unsigned int i = 0; i < byteSize(); i += kWord) total += std::popcount(LoadWord(bytes_ + i));
    return total;
}

unsigned int BitVector::FindFirstSetBit(unsigned int from, unsigned int to) const {
    unsigned int limit = std::min(to, size_);
    if (from >= limit) return to;
    unsigned int word = from >> 6;
    uint64_t bits = LoadWord(bytes_ + word * kWord) & (~uint64_t{0} >> (from & 63));
    unsigned int lastWord = (limit - 1) >> 6;
    while (bits == 0 && word < lastWord) bits = LoadWord(bytes_ + ++word * kWord);
    unsigned int found = word * 64 + static_cast<unsigned int>(std::countl_zero(bits));
    return bits != 0 && found < limit ? found : to;
}

BitVectorIterator BitVector::findFirstSetBit(BitVectorIterator from, BitVectorIterator to) {
    return {this, FindFirstSetBit(from.index(), to.index())};
}

BitVectorConstIterator BitVector::findFirstSetBit(BitVectorConstIterator from, BitVectorConstIterator to) const {
    return {this, FindFirstSetBit(from.index(), to.index())};
}

}  // namespace VantuAlgo
