#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"

using namespace Vantu;
using VantuFile::MemoryBuffer;
using VantuFile::StaticMemoryBuffer;

namespace {

std::vector<uint8_t> Bytes(MemoryBuffer& memory) { return {memory.Data(), memory.Data() + memory.Size()}; }

// Counts the calls that reach the source, to show which operations never touch it.
class CountingBuffer : public MemoryBuffer {
public:
    int gets = 0;

protected:
    size_t vGet(void* data, size_t n) override {
        ++gets;
        return MemoryBuffer::vGet(data, n);
    }
};

}  // namespace

TEST(BinaryStream, ScalarsRoundTripLittleEndianAndPacked) {
    MemoryBuffer memory(16);
    BinaryStreamT<unsigned int> out(memory);
    out << uint8_t(0xAB) << int8_t(-2) << uint16_t(0x1234) << int16_t(-3) << uint32_t(0xDEADBEEF) << int32_t(-4)
        << uint64_t(0x0102030405060708ull) << int64_t(std::numeric_limits<int64_t>::min()) << 1.5f << -0.25
        << true << false << char16_t(0x20AC);
    EXPECT_EQ(memory.Size(), 1u + 1 + 2 + 2 + 4 + 4 + 8 + 8 + 4 + 8 + 1 + 1 + 2);
    const std::vector<uint8_t> head(memory.Data(), memory.Data() + 8);
    EXPECT_EQ(head, (std::vector<uint8_t>{0xAB, 0xFE, 0x34, 0x12, 0xFD, 0xFF, 0xEF, 0xBE}));
    EXPECT_EQ(memory.Data()[14], 0x08);  // the u64 starts with its lowest byte
    EXPECT_EQ(memory.Data()[42], 1);     // true is the byte 1

    BinaryStreamT<unsigned int> in(memory);
    uint8_t a; int8_t b; uint16_t c; int16_t d; uint32_t e; int32_t f; uint64_t g; int64_t h;
    float i; double j; bool k, l; char16_t m;
    in >> a >> b >> c >> d >> e >> f >> g >> h >> i >> j >> k >> l >> m;
    EXPECT_EQ(a, 0xAB); EXPECT_EQ(b, -2); EXPECT_EQ(c, 0x1234); EXPECT_EQ(d, -3);
    EXPECT_EQ(e, 0xDEADBEEF); EXPECT_EQ(f, -4); EXPECT_EQ(g, 0x0102030405060708ull);
    EXPECT_EQ(h, std::numeric_limits<int64_t>::min());
    EXPECT_EQ(i, 1.5f); EXPECT_EQ(j, -0.25); EXPECT_TRUE(k); EXPECT_FALSE(l); EXPECT_EQ(m, 0x20AC);
    EXPECT_TRUE(memory.EndOfFile());
    EXPECT_THROW(in >> a, BinaryStreamGetEOFException);
}

TEST(BinaryStream, StringPrefixesSwitchToSixBytesAt65535) {
    MemoryBuffer memory;
    BinaryStreamT<unsigned int> stream(memory);
    const std::string narrow = "h\xC3\xA9llo";
    const std::u16string wide = u"\u20ACuro \U0001F600";
    const std::u16string wide65534(65534, u'\u00E9');
    const std::string narrow65535(65535, 'x');
    const std::u16string wide70000(70000, u'w');
    stream << std::string() << std::u16string() << narrow << wide << wide65534 << narrow65535 << wide70000;

    const auto bytes = Bytes(memory);
    EXPECT_EQ(bytes[0], 0); EXPECT_EQ(bytes[1], 0);  // an empty string is its prefix alone
    EXPECT_EQ(bytes[2], 0); EXPECT_EQ(bytes[3], 0);
    EXPECT_EQ(bytes[4], 6); EXPECT_EQ(bytes[5], 0);  // bytes, not characters, of UTF-8
    size_t at = 4 + 2 + narrow.size();
    EXPECT_EQ(bytes[at], 7);                          // UTF-16 units, a surrogate pair counts two
    at += 2 + 2 * wide.size();
    EXPECT_EQ(bytes[at], 0xFE); EXPECT_EQ(bytes[at + 1], 0xFF);
    EXPECT_EQ(bytes[at + 2], 0xE9); EXPECT_EQ(bytes[at + 3], 0x00);  // UTF-16LE
    at += 2 + 2 * 65534;
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + at, bytes.begin() + at + 6),
              (std::vector<uint8_t>{0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}));
    at += 6 + 65535;
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + at, bytes.begin() + at + 6),
              (std::vector<uint8_t>{0xFF, 0xFF, 0x70, 0x11, 0x01, 0x00}));
    EXPECT_EQ(bytes.size(), at + 6 + 2 * 70000);

    std::string n0, n1, n2;
    std::u16string w0, w1, w2, w3;
    stream >> n0 >> w0 >> n1 >> w1 >> w2 >> n2 >> w3;
    EXPECT_EQ(n0, ""); EXPECT_EQ(w0, u""); EXPECT_EQ(n1, narrow); EXPECT_EQ(w1, wide);
    EXPECT_EQ(w2, wide65534); EXPECT_EQ(n2, narrow65535); EXPECT_EQ(w3, wide70000);

    memory.Clear();
    stream.PutLength(65535);
    stream.PutLength(3);
    EXPECT_EQ(memory.Size(), 8u);
    EXPECT_EQ(stream.GetLength(), 65535u);
    EXPECT_EQ(stream.GetLength(), 3u);
}

TEST(BinaryStream, TruncatedOrCorruptInputRaisesInsteadOfReturningGarbage) {
    MemoryBuffer memory;
    BinaryStreamT<unsigned int> out(memory);
    out << uint32_t(7) << std::u16string(u"wide text") << std::string(70000, 'n') << uint64_t(9);
    const auto whole = Bytes(memory);
    // Every cut of the record fails on the field it cuts, with a stream exception.
    for (size_t cut = 0; cut < whole.size(); cut += cut < 64 ? 1 : 4099) {
        StaticMemoryBuffer part(whole.data(), cut);
        BinaryStreamT<unsigned int> in(part);
        uint32_t a; std::u16string b; std::string c; uint64_t d;
        EXPECT_THROW(in >> a >> b >> c >> d, BinaryStreamGetEOFException) << "cut at " << cut;
    }
    // A length that claims 4 GiB over a few bytes fails at the end of the data without reserving it.
    const uint8_t corrupt[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 'a', 'b', 'c'};
    StaticMemoryBuffer bad(corrupt, sizeof corrupt);
    BinaryStreamT<unsigned int> in(bad);
    std::string text;
    try {
        in >> text;
        FAIL() << "no exception";
    } catch (const BinaryStreamException& e) {
        EXPECT_NE(e.WhatUtf8().find("4294967295"), std::string::npos) << e.WhatUtf8();
    }
    // A wide string cut inside a UTF-16 unit is short too.
    const uint8_t odd[] = {2, 0, 'a', 0, 'b'};
    StaticMemoryBuffer oddBuffer(odd, sizeof odd);
    BinaryStreamT<unsigned int> oddStream(oddBuffer);
    std::u16string wide;
    EXPECT_THROW(oddStream >> wide, BinaryStreamGetEOFException);
}

TEST(BinaryStream, MemoryBuffersKeepIndependentPositionsAndBounds) {
    MemoryBuffer memory(2);
    BinaryStreamT<unsigned int> stream(memory);
    stream << uint32_t(0x11111111) << uint32_t(0x22222222);
    uint32_t v;
    stream >> v;
    EXPECT_EQ(memory.TellG(), 4u);
    EXPECT_EQ(memory.TellP(), 8u);
    memory.SeekP(0);
    stream << uint16_t(0xAAAA);                // overwrite in place; the size stays
    EXPECT_EQ(memory.Size(), 8u);
    memory.SeekP(2, kSeekEnd);                 // past the end: the gap reads as zeros
    stream << uint8_t(0x77);
    EXPECT_EQ(memory.Size(), 11u);
    EXPECT_EQ(memory.Data()[8], 0);
    EXPECT_EQ(memory.SeekG(4, kSeekCurrent, kSeekBackward), 0u);
    stream >> v;
    EXPECT_EQ(v, 0x1111AAAAu);
    EXPECT_THROW(memory.SeekG(12), BinaryStreamException);
    EXPECT_THROW(memory.SeekG(5, kSeekCurrent, kSeekBackward), BinaryStreamException);
    EXPECT_EQ(memory.TellG(), 4u);
    memory.SeekP(6);
    memory.ClearEnd();
    EXPECT_EQ(memory.Size(), 6u);
    memory.Clear();
    EXPECT_EQ(memory.Size(), 0u);
    EXPECT_EQ(memory.TellG(), 0u);
    EXPECT_TRUE(memory.EndOfFile());

    uint8_t region[5] = {1, 2, 3, 4, 5};
    StaticMemoryBuffer fixed(region, sizeof region);
    BinaryStreamT<unsigned int> fixedStream(fixed);
    fixedStream >> v;
    EXPECT_EQ(v, 0x04030201u);
    fixed.SeekP(2);
    EXPECT_THROW(fixedStream << uint32_t(0xCCDDEEFF), BinaryStreamPutEOFException);  // three bytes of room
    EXPECT_EQ(region[4], 0xDD);                                                      // what fit was written
    EXPECT_THROW(fixed.SeekP(6), BinaryStreamException);
    const uint8_t constant[2] = {9, 9};
    StaticMemoryBuffer readOnly(constant, sizeof constant);
    EXPECT_EQ(readOnly.Put("x", 1), 0u);
}

TEST(BinaryStream, PendingBlockIsDeliveredFirstAndCountsInPositions) {
    CountingBuffer source;
    BinaryStreamT<unsigned int> stream(source);
    stream << uint8_t(10) << uint8_t(11) << uint8_t(12);
    uint8_t byte = 0;
    EXPECT_EQ(source.Get(&byte, 0), 0u);  // a read of nothing never reaches the source
    EXPECT_EQ(source.gets, 0);
    stream >> byte;
    EXPECT_EQ(source.TellG(), 1u);

    const uint8_t back[] = {1, 2, 3};
    source.SetPending(back, 3);
    EXPECT_EQ(source.TellG(), 4294967294u);  // the pending bytes stand before the source's place
    EXPECT_FALSE(source.EndOfFile());
    uint8_t two[2];
    stream.GetExact(two, 2);
    EXPECT_EQ(two[1], 2);
    EXPECT_EQ(source.SeekG(2, kSeekCurrent), 2u);  // skips the last pending byte and one of the source
    stream >> byte;
    EXPECT_EQ(byte, 12);

    source.SetPending(back, 3);
    EXPECT_EQ(source.SeekG(0), 0u);  // a rewind drops the pending block
    stream >> byte;
    EXPECT_EQ(byte, 10);

    std::string copied;
    MemoryBuffer target;
    source.SetPending(back, 1);
    EXPECT_EQ(source.CopyTo(target, 100), 3u);  // the pending byte, then the source's two
    EXPECT_EQ(target.Size(), 3u);
    EXPECT_EQ(target.Data()[0], 1);
    EXPECT_EQ(target.Data()[2], 12);
    EXPECT_EQ(target.Copy(copied, 5), 3u);
}
