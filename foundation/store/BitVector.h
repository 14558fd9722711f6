// A growable set of bits with a fixed byte form: bit i lies in byte i >> 3 under 0x80 >> (i & 7).
// Not synchronised: one writer at a time; a const vector may be read by many threads.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/FastVector.h"

namespace VantuAlgo {

class BitVector;

// A position in a vector; findFirstSetBit moves it to the next set bit.
template <class Vector>
class BitVectorIteratorT {
public:
    BitVectorIteratorT() = default;
    BitVectorIteratorT(Vector* vector, unsigned int index) : vector_(vector), index_(index) {}

    unsigned int index() const { return index_; }
    bool operator*() const { return (*vector_)[index_]; }
    BitVectorIteratorT& operator++() {
        ++index_;
        return *this;
    }
    bool operator==(const BitVectorIteratorT& other) const { return index_ == other.index_; }

private:
    Vector* vector_ = nullptr;
    unsigned int index_ = 0;
};

using BitVectorIterator = BitVectorIteratorT<BitVector>;
using BitVectorConstIterator = BitVectorIteratorT<const BitVector>;

class BitVector {
public:
    using Iterator = BitVectorIterator;
    using ConstIterator = BitVectorConstIterator;

    BitVector() = default;
    BitVector(const BitVector& other);
    BitVector(BitVector&& other) noexcept;
    BitVector& operator=(const BitVector& other);
    BitVector& operator=(BitVector&& other) noexcept;
    ~BitVector();

    unsigned int size() const { return size_; }
    bool empty() const { return size_ == 0; }
    unsigned int capacity() const { return capacity_; }
    // The stored form: (size() + 7) / 8 bytes; bits past size() in the last byte are always 0.
    unsigned char* data() { return bytes_; }
    const unsigned char* data() const { return bytes_; }
    unsigned int byteSize() const { return ByteCount(size_); }

    // A bit at or past size() reads as 0.
    bool operator[](unsigned int index) const {
        return index < size_ && (bytes_[index >> 3] & (0x80u >> (index & 7))) != 0;
    }
    // Grows the vector to index + 1 bits when the index lies past its end.
    void set(unsigned int index, bool value);
    // Bits first..last-1. With grow the vector grows to last bits; without, the range stops at size().
    void setBits(unsigned int first, unsigned int last, bool value, bool grow);
    // Each listed bit, growing the vector as set() does.
    void setBits(const Vantu::FastVector<unsigned int>& indexes, bool value);

    void resize(unsigned int bits, bool value = false);
    void clear();
    void invert();
    // Bits of this vector at or past other.size() become 0: a missing bit is 0. The size stays.
    BitVector& operator&=(const BitVector& other);
    // The vector takes the size of a longer right side.
    BitVector& operator|=(const BitVector& other);
    bool operator==(const BitVector& other) const;

    unsigned int count() const;

    BitVectorIterator begin() { return {this, 0}; }
    BitVectorIterator end() { return {this, size_}; }
    BitVectorConstIterator begin() const { return {this, 0}; }
    BitVectorConstIterator end() const { return {this, size_}; }
    // The first set bit in [from, to), or to.
    BitVectorIterator findFirstSetBit(BitVectorIterator from, BitVectorIterator to);
    BitVectorConstIterator findFirstSetBit(BitVectorConstIterator from, BitVectorConstIterator to) const;

private:
    static unsigned int ByteCount(unsigned int bits) { return static_cast<unsigned int>((uint64_t{bits} + 7) >> 3); }

    unsigned int FindFirstSetBit(unsigned int from, unsigned int to) const;
    // Capacity grows to at least bytes; old bits stay, new bytes are 0.
    void reallocate(unsigned int bytes);
    void ClearTail();

    unsigned char* bytes_ = nullptr;
    unsigned int size_ = 0;
    unsigned int capacity_ = 0;
};

}  // namespace VantuAlgo
