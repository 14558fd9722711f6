#include <gtest/gtest.h>

#include <zlib.h>

#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

using namespace Vantu;
using namespace VantuCompression;
using VantuFile::MemoryBuffer;
using VantuFile::StaticMemoryBuffer;

namespace {

// Text-like bytes that compress, from a fixed seed.
std::string Payload(size_t size, unsigned seed) {
    static const char* words[] = {"index ", "term ", "posting ", "slice ", "commit ", "zlib ", "\n"};
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < size) text += random() % 5 == 0 ? std::to_string(random()) : words[random() % 7];
    text.resize(size);
    return text;
}

// One unit holding the string, then plain bytes behind it; returns where the unit ended.
size_t WriteUnitAndTrailer(MemoryBuffer& memory, ZLib& zlib, const std::string& text, uint32_t trailer) {
    OCompressedBufferT<unsigned int> compressed(memory, &zlib);
    BinaryStreamT<unsigned int> packed(compressed);
    packed << text;
    compressed.Finish();
    const size_t unitEnd = memory.Size();
    BinaryStreamT<unsigned int> plain(memory);
    plain << trailer << std::u16string(u"tail");
    return unitEnd;
}

}  // namespace

TEST(ZLib, UnitsAtEachLevelRoundTripAndLeavePlainBytesReadable) {
    for (int level : {5, 6, 8}) {
        for (size_t size : {size_t(0), size_t(100), size_t(0x10000 - 2), size_t(300000)}) {
            SCOPED_TRACE("level " + std::to_string(level) + ", size " + std::to_string(size));
            ZLib zlib(1, level, 15);
            const std::string text = Payload(size, unsigned(size + level));
            MemoryBuffer memory;
            memory.SeekP(4);  // the unit doesn't have to start at 0
            const size_t unitEnd = WriteUnitAndTrailer(memory, zlib, text, 0xC0FFEE);
            const uint64_t written = zlib.RunningCount();
            EXPECT_EQ(written, unitEnd - 4);

            // A plain zlib unit: zlib's own one-shot inflate takes it, and the header names the level.
            EXPECT_EQ(memory.Data()[4], 0x78);
            EXPECT_EQ(memory.Data()[5], level == 5 ? 0x5E : level == 6 ? 0x9C : 0xDA);
            std::vector<uint8_t> inflated(text.size() + 8);
            uLongf inflatedSize = inflated.size();
            ASSERT_EQ(uncompress(inflated.data(), &inflatedSize, memory.Data() + 4, unitEnd - 4), Z_OK);
            EXPECT_EQ(inflatedSize, text.size() + (text.size() < 0xFFFF ? 2 : 6));

            memory.SeekG(4);
            ICompressedBufferT<unsigned int> input(memory, &zlib);
            BinaryStreamT<unsigned int> unpacked(input);
            std::string back;
            unpacked >> back;
            EXPECT_EQ(back, text);
            EXPECT_TRUE(input.EndOfFile());
            EXPECT_EQ(zlib.RunningCount(), written);  // the reader's count ends where the writer's did
            uint8_t more;
            EXPECT_EQ(input.Get(&more, 1), 0u);  // the unit has ended; the trailer isn't its data

            BinaryStreamT<unsigned int> plain(memory);
            uint32_t trailer;
            std::u16string tail;
            plain >> trailer >> tail;
            EXPECT_EQ(trailer, 0xC0FFEEu);
            EXPECT_EQ(tail, u"tail");
            EXPECT_TRUE(memory.EndOfFile());
        }
    }
}

TEST(ZLib, ConsecutiveUnitsReadWithLimitOrClear) {
    ZLib zlib(1, 6, 15);
    MemoryBuffer memory;
    OCompressedBufferT<unsigned int> output(memory, &zlib, 4096);  // small windows: many rounds
    BinaryStreamT<unsigned int> packed(output);
    std::vector<std::string> texts = {Payload(20000, 1), "", Payload(9000, 2)};
    std::vector<uint32_t> sizes;
    for (const auto& text : texts) {
        const size_t start = memory.Size();
        if (!text.empty()) packed.PutExact(text.data(), text.size());
        EXPECT_EQ(output.Pending(), !text.empty());
        output.Finish();
        EXPECT_FALSE(output.Pending());
        sizes.push_back(uint32_t(memory.Size() - start));
    }

    // Without a limit, the source gets back what was read past each unit.
    ICompressedBufferT<unsigned int> input(memory, &zlib, 4096);
    for (const auto& text : texts) {
        std::string back;
        EXPECT_EQ(input.Copy(back, text.size() + 10), text.size());
        EXPECT_EQ(back, text);
        EXPECT_TRUE(input.Finished());
        input.Clear();
    }
    EXPECT_TRUE(memory.EndOfFile());

    // With the compressed size as the limit, the source is never read past a unit.
    memory.SeekG(0);
    for (size_t i = 0; i < texts.size(); ++i) {
        input.SetLimit(sizes[i]);
        std::string back(texts[i].size(), '\0');
        input.GetExact(back.data(), back.size());
        EXPECT_EQ(back, texts[i]);
        EXPECT_EQ(input.Consumed(), texts[i].empty() ? 0 : sizes[i]);  // an empty unit is never read...
        EXPECT_EQ(memory.PendingSize(), 0u);
        input.Clear();                                                  // ...and Clear skips it
        EXPECT_EQ(memory.TellG(), std::accumulate(sizes.begin(), sizes.begin() + i + 1, 0u));
    }
    // A skip decompresses and drops.
    memory.SeekG(0);
    input.SeekG(19990, kSeekCurrent);
    char last[10];
    input.GetExact(last, 10);
    EXPECT_EQ(std::string(last, 10), texts[0].substr(19990));
    EXPECT_THROW(input.SeekG(1, kSeekCurrent), BinaryStreamGetEOFException);
}

TEST(ZLib, TruncatedOrCorruptUnitsRaiseStreamExceptions) {
    ZLib zlib(1, 8, 15);
    const std::string text = Payload(150000, 7);
    MemoryBuffer memory;
    const size_t unitEnd = WriteUnitAndTrailer(memory, zlib, text, 1);
    std::vector<uint8_t> unit(memory.Data(), memory.Data() + unitEnd);

    auto read = [&](const std::vector<uint8_t>& bytes) {
        StaticMemoryBuffer source(bytes.data(), bytes.size());
        ICompressedBufferT<unsigned int> input(source, &zlib);
        BinaryStreamT<unsigned int> stream(input);
        std::string back;
        stream >> back;
        return back;
    };
    EXPECT_EQ(read(unit), text);
    for (size_t cut = 0; cut < unit.size(); cut += cut < 16 ? 1 : 997) {
        std::vector<uint8_t> part(unit.begin(), unit.begin() + cut);
        EXPECT_THROW(read(part), BinaryStreamGetEOFException) << "cut at " << cut;
    }
    // The last four bytes are the checksum: a unit without them is short too, whatever was delivered.
    std::vector<uint8_t> noChecksum(unit.begin(), unit.end() - 1);
    EXPECT_THROW(read(noChecksum), BinaryStreamGetEOFException);

    std::mt19937 random(11);
    for (int round = 0; round < 40; ++round) {
        std::vector<uint8_t> bad = unit;
        bad[random() % bad.size()] ^= uint8_t(1 + random() % 255);
        try {
            read(bad);
            ADD_FAILURE() << "corruption in round " << round << " went unnoticed";
        } catch (const CompressionException& e) {
            EXPECT_NE(e.WhatUtf8().find("zlib"), std::string::npos);
        } catch (const BinaryStreamException&) {
            // A corrupt length field or a unit that ends early shows as a short stream.
        }
    }
    EXPECT_THROW(ZLib(1, 10, 15), CompressionException);
}

TEST(ZLib, OneDirectionOnlyPerBuffer) {
    ZLib zlib;
    MemoryBuffer memory;
    OCompressedBufferT<unsigned int> output(memory, &zlib);
    ICompressedBufferT<unsigned int> input(memory, &zlib);
    uint8_t byte = 0;
    try {
        input.Put(&byte, 1);
        FAIL();
    } catch (const Exception& e) {
        EXPECT_EQ(e.What(), u"ICompressedBufferT<T>::Put : Not implemented!");
    }
    EXPECT_THROW(output.Get(&byte, 1), Exception);
    EXPECT_THROW(output.SeekP(0), Exception);
    EXPECT_THROW(input.SeekG(0), Exception);
}
