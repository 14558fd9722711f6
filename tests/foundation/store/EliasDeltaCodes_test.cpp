#include "store/EliasDeltaCodes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "file/BinaryStreamException.h"
#include "file/BinaryStreamMemoryBuffer.h"

using VantuAlgo::BitVector;
using VantuCompression::BitsReaderWriter;
using VantuCompression::EliasDeltaCodes;
using VantuFile::MemoryBuffer;
using VantuFile::StaticMemoryBuffer;
using List = Vantu::FastVector<unsigned int>;
using Entries = std::vector<unsigned int>;

namespace {

Entries Of(const List& list) { return {list.begin(), list.end()}; }

std::vector<uint8_t> Code(const List& list, bool gaps = true, unsigned int base = 0) {
    MemoryBuffer memory;
    BitsReaderWriter bits(&memory);
    EliasDeltaCodes().Compress(list, gaps, bits, base);
    return {memory.Data(), memory.Data() + memory.Size()};
}

}  // namespace

// The coded bytes are stored in the index: count first, then each gap + 1, top bit of a byte first.
TEST(EliasDeltaCodesTest, StoredBytesArePinned) {
    EXPECT_EQ(Code({0}), (std::vector<uint8_t>{0xC0}));
    EXPECT_EQ(Code({3, 10, 25}), (std::vector<uint8_t>{0x56, 0x10, 0x14, 0x00}));
    EXPECT_EQ(Code({3, 10, 25}, false, 3), Code({0, 7, 22}, false, 0));
    EXPECT_EQ(Code({0, 0xFFFFFFFF}).size(), 6u);  // 4 + 1 + 43 bits: count, 0, a 33-bit gap
}

// A list kept in a u32 is read from the 4 bytes of the word: whatever follows the code inside them, and
// with no byte after them, decoding stops at the list's own end.
TEST(EliasDeltaCodesTest, InlineListStopsAtItsOwnEndAndAcceptsZero) {
    std::mt19937 random(7);
    const List lists[] = {{0}, {0, 1, 2}, {0, 0, 0, 0, 0}, {3, 10, 25}, {1000}, {0, 65535}, {5, 6, 7, 8, 9, 10}};
    for (const List& list : lists) {
        auto coded = Code(list);
        ASSERT_LE(coded.size(), 4u);
        for (int fill : {0x00, 0xFF, -1}) {
            uint8_t word[4];
            for (size_t i = 0; i < 4; ++i)
                word[i] = i < coded.size() ? coded[i] : static_cast<uint8_t>(fill < 0 ? random() : fill);
            StaticMemoryBuffer region(word, sizeof word);
            BitsReaderWriter bits(&region);
            List decoded;
            EXPECT_EQ(EliasDeltaCodes().Uncompress(bits, true, decoded, 0), list.size());
            EXPECT_EQ(Of(decoded), Of(list));
            EXPECT_EQ(region.TellG(), coded.size());
        }
    }
}

// Lists follow each other on byte boundaries, and the byte after a list is the stream's next byte.
TEST(EliasDeltaCodesTest, ListsShareAStreamByteAfterByte) {
    MemoryBuffer memory;
    BitsReaderWriter bits(&memory);
    EliasDeltaCodes codes;
    const uint8_t marker = 0xA5;
    codes.Compress(List{1, 2, 3}, true, bits, 0);
    memory.PutExact(&marker, 1);
    codes.Compress(List{7}, true, bits, 0);
    codes.Compress(List{4, 4, 9}, true, bits, 0);

    List first, second, third;
    EXPECT_EQ(codes.Uncompress(bits, true, first, 0), 3u);
    uint8_t byte = 0;
    memory.GetExact(&byte, 1);
    EXPECT_EQ(byte, marker);
    codes.Uncompress(bits, true, second, 0);
    codes.Uncompress(bits, true, third, 0);
    EXPECT_EQ(Of(first), (Entries{1, 2, 3}));
    EXPECT_EQ(Of(second), (Entries{7}));
    EXPECT_EQ(Of(third), (Entries{4, 4, 9}));
    EXPECT_TRUE(memory.EndOfFile());
}

TEST(EliasDeltaCodesTest, RandomListsRoundTrip) {
    std::mt19937 random(20240611);
    EliasDeltaCodes codes;
    MemoryBuffer memory;
    BitsReaderWriter bits(&memory);
    std::vector<std::pair<List, bool>> written;
    for (int round = 0; round < 300; ++round) {
        // Gap sizes from dense doc-id runs to full 32-bit jumps.
        unsigned int gapBits = random() % 33;
        bool gaps = random() % 4 != 0;
        List list;
        list.resize(1 + random() % 200);
        uint64_t value = random() % 4 == 0 ? 0 : random() % 1000;
        for (unsigned int& entry : list) {
            uint64_t step = gapBits == 0 ? 0 : random() & ((uint64_t{1} << gapBits) - 1);
            value = gaps ? std::min<uint64_t>(value + step, UINT32_MAX) : step;
            entry = static_cast<unsigned int>(value);
        }
        if (gaps) list.back() = random() % 8 == 0 ? UINT32_MAX : list.back();
        codes.Compress(list, gaps, bits, 0);
        written.emplace_back(list, gaps);
    }
    for (const auto& [list, gaps] : written) {
        List decoded;
        ASSERT_EQ(codes.Uncompress(bits, gaps, decoded, 0), list.size());
        ASSERT_EQ(Of(decoded), Of(list));
    }
    EXPECT_TRUE(memory.EndOfFile());
}

TEST(EliasDeltaCodesTest, SetsBitsOfAVector) {
    MemoryBuffer memory;
    BitsReaderWriter bits(&memory);
    EliasDeltaCodes codes;
    codes.Compress(List{0, 5, 40}, true, bits, 0);
    codes.Compress(List{5, 41}, true, bits, 0);
    codes.Compress(List{2, 100}, true, bits, 0);

    BitVector vector;
    vector.resize(20);
    EXPECT_EQ(codes.Uncompress(bits, true, vector, true, true, 0), 3u);
    EXPECT_EQ(vector.size(), 41u);
    codes.Uncompress(bits, true, vector, false, true, 0);  // clearing grows too
    EXPECT_EQ(vector.size(), 42u);
    codes.Uncompress(bits, true, vector, true, false, 0);  // without grow, 100 is skipped
    EXPECT_EQ(vector.size(), 42u);
    EXPECT_EQ(vector.count(), 3u);
    EXPECT_TRUE(vector[0] && vector[2] && vector[40]);
}

TEST(EliasDeltaCodesTest, RefusesBadListsAndRaisesOnBadBytes) {
    MemoryBuffer memory;
    BitsReaderWriter bits(&memory);
    EliasDeltaCodes codes;
    EXPECT_THROW(codes.Compress(List{}, true, bits, 0), Vantu::Exception);
    EXPECT_THROW(codes.Compress(List{4, 3}, true, bits, 0), Vantu::Exception);
    EXPECT_THROW(codes.Compress(List{1}, false, bits, 2), Vantu::Exception);
    EXPECT_EQ(memory.Size(), 0u);  // a refused list writes nothing

    // A list cut short raises the stream's end-of-data error; a run of zeros longer than any length
    // raises a decoding error.
    auto coded = Code({3, 10, 25});
    StaticMemoryBuffer cut(coded.data(), 2);
    BitsReaderWriter cutBits(&cut);
    List decoded;
    EXPECT_THROW(codes.Uncompress(cutBits, true, decoded, 0), Vantu::BinaryStreamGetEOFException);
    const uint8_t zeros[] = {0x00, 0x00, 0xFF};
    StaticMemoryBuffer corrupt(zeros, sizeof zeros);
    BitsReaderWriter corruptBits(&corrupt);
    EXPECT_THROW(codes.Uncompress(corruptBits, true, decoded, 0), Vantu::BinaryStreamException);
}
