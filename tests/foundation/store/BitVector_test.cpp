#include "store/BitVector.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using VantuAlgo::BitVector;

namespace {

// A plain model: one bool per bit.
std::vector<bool> Model(const BitVector& v) {
    std::vector<bool> bits(v.size());
    for (unsigned int i = 0; i < v.size(); ++i) bits[i] = v[i];
    return bits;
}

BitVector FromModel(const std::vector<bool>& bits) {
    BitVector v;
    v.resize(static_cast<unsigned int>(bits.size()));
    for (unsigned int i = 0; i < bits.size(); ++i) v.set(i, bits[i]);
    return v;
}

std::vector<bool> RandomBits(std::mt19937& random, unsigned int size) {
    std::vector<bool> bits(size);
    for (unsigned int i = 0; i < size; ++i) bits[i] = random() % 3 == 0;
    return bits;
}

}  // namespace

// The stores save these bytes as they stand: bit 0 is the top bit of byte 0.
TEST(BitVectorTest, ByteFormAndTailStayFixed) {
    BitVector v;
    v.resize(20);
    v.set(0, true);
    v.set(9, true);
    v.set(15, true);
    v.set(19, true);
    ASSERT_EQ(v.byteSize(), 3u);
    EXPECT_EQ(v.data()[0], 0x80);
    EXPECT_EQ(v.data()[1], 0x41);
    EXPECT_EQ(v.data()[2], 0x10);

    // Bits past the size never show in the bytes, whatever changed them.
    v.invert();
    EXPECT_EQ(v.data()[2], 0xE0);
    v.resize(18);
    EXPECT_EQ(v.data()[2], 0xC0);
    v.resize(24);
    EXPECT_FALSE(v[20]);
    EXPECT_EQ(v.count(), 18u - 3u);

    v.setBits(3, 13, true, false);
    EXPECT_EQ(v.data()[0], 0x7F);
    EXPECT_EQ(v.data()[1], 0xFE);
    v.setBits(20, 40, true, false);  // without grow the range stops at the end
    EXPECT_EQ(v.size(), 24u);
    EXPECT_EQ(v.data()[2], 0xCF);
    v.setBits(30, 34, true, true);
    EXPECT_EQ(v.size(), 34u);
    EXPECT_FALSE(v[29]);
    EXPECT_TRUE(v[33]);
    v.set(40, false);  // set grows, the new bits are 0
    EXPECT_EQ(v.size(), 41u);
    EXPECT_EQ(v.count(), 24u);
    v.clear();
    EXPECT_TRUE(v.empty());
    v.resize(16);
    EXPECT_EQ(v.count(), 0u);
    v.setBits(Vantu::FastVector<unsigned int>{1, 20}, true);
    EXPECT_EQ(v.size(), 21u);
    EXPECT_EQ(v.count(), 2u);
    EXPECT_TRUE(v[1] && v[20]);
}

// S1: a missing bit is 0, so a shorter right side lets no tail bit of the left side through.
TEST(BitVectorTest, AndKeepsSizeAndClearsTailS1) {
    BitVector a, b;
    a.resize(200, true);
    b.resize(70, true);
    b.set(3, false);
    a &= b;
    EXPECT_EQ(a.size(), 200u);
    EXPECT_EQ(a.count(), 69u);
    EXPECT_FALSE(a[3]);
    EXPECT_TRUE(a[69]);
    EXPECT_FALSE(a[70]);
    EXPECT_EQ(a.findFirstSetBit(BitVector::Iterator(&a, 70), a.end()), a.end());

    BitVector empty;
    a &= empty;
    EXPECT_EQ(a.size(), 200u);
    EXPECT_EQ(a.count(), 0u);

    // OR takes the longer size; an empty left side OR'ed with lists is empty only if they all are.
    BitVector sum;
    sum |= empty;
    EXPECT_TRUE(sum.empty());
    sum |= b;
    EXPECT_EQ(sum.size(), 70u);
    BitVector shortOne;
    shortOne.resize(5);
    shortOne.set(4, true);
    sum.set(4, false);
    sum |= shortOne;
    EXPECT_EQ(sum.size(), 70u);
    EXPECT_TRUE(sum[4]);
}

TEST(BitVectorTest, RandomOperationsMatchAModel) {
    std::mt19937 random(1234);
    for (int round = 0; round < 200; ++round) {
        auto left = RandomBits(random, random() % 300);
        auto right = RandomBits(random, random() % 300);
        BitVector a = FromModel(left), b = FromModel(right);

        BitVector andResult = a;
        andResult &= b;
        BitVector orResult = a;
        orResult |= b;
        BitVector inverted = a;
        inverted.invert();

        std::vector<bool> expectAnd(left.size()), expectOr(std::max(left.size(), right.size()));
        std::vector<bool> expectInvert(left.size());
        for (size_t i = 0; i < expectAnd.size(); ++i) expectAnd[i] = left[i] && i < right.size() && right[i];
        for (size_t i = 0; i < expectOr.size(); ++i)
            expectOr[i] = (i < left.size() && left[i]) || (i < right.size() && right[i]);
        for (size_t i = 0; i < left.size(); ++i) expectInvert[i] = !left[i];
        ASSERT_EQ(Model(andResult), expectAnd);
        ASSERT_EQ(Model(orResult), expectOr);
        ASSERT_EQ(Model(inverted), expectInvert);
        ASSERT_TRUE(FromModel(expectInvert) == inverted);  // bytes past the size stay 0

        // Walking the set bits by findFirstSetBit visits exactly the model's set bits, from any start.
        unsigned int from = left.empty() ? 0 : random() % left.size();
        unsigned int to = from + random() % (left.size() - from + 1);
        std::vector<unsigned int> found, expected;
        for (auto it = a.findFirstSetBit(BitVector::Iterator(&a, from), BitVector::Iterator(&a, to));
             it.index() != to; it = a.findFirstSetBit(++it, BitVector::Iterator(&a, to)))
            found.push_back(it.index());
        for (unsigned int i = from; i < to; ++i)
            if (left[i]) expected.push_back(i);
        ASSERT_EQ(found, expected);
    }
}
