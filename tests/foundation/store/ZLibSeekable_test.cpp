#include <gtest/gtest.h>

#include <random>
#include <string>

#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "store/ISeekableCompressedBuffer.h"
#include "store/ZLib.h"

using namespace Vantu;
using namespace VantuCompression;
using VantuFile::MemoryBuffer;

namespace {

std::string Document(size_t size) {
    std::mt19937 random(5);
    std::string text;
    while (text.size() < size) text += "<p>word " + std::to_string(random() % 1000) + "</p>\n";
    text.resize(size);
    return text;
}

// A unit behind a few plain bytes, as a cached copy sits in its buffer.
void WriteUnit(MemoryBuffer& memory, ZLib& zlib, const std::string& text) {
    memory.PutExact("head", 4);
    OCompressedBufferT<unsigned int> output(memory, &zlib);
    output.PutExact(text.data(), text.size());
    output.Finish();
}

}  // namespace

TEST(ZLibSeekable, SeeksAnywhereInTheDecompressedBytesWithOrWithoutKeepingThem) {
    const std::string text = Document(200000);
    for (unsigned int flag : {0u, ISeekableCompressedBuffer::kKeepDecompressed}) {
        SCOPED_TRACE("flag " + std::to_string(flag));
        ZLib zlib(1, 8, 15);
        MemoryBuffer memory;
        WriteUnit(memory, zlib, text);
        memory.SeekG(4);
        ISeekableCompressedBuffer input(memory, &zlib, flag);

        char piece[100];
        input.GetExact(piece, 10);
        EXPECT_EQ(std::string(piece, 10), text.substr(0, 10));
        EXPECT_EQ(input.Size(), text.size());
        EXPECT_EQ(input.TellG(), 10u);  // finding the size doesn't move the reader

        std::mt19937 random(3);
        for (int round = 0; round < 30; ++round) {
            const unsigned int at = random() % (text.size() - sizeof piece);
            switch (round % 3) {
                case 0: input.SeekG(at); break;
                case 1: input.SeekG(unsigned(text.size()) - at, kSeekEnd, kSeekBackward); break;
                default: {
                    const unsigned int here = input.TellG();
                    input.SeekG(here > at ? here - at : at - here, kSeekCurrent,
                                here > at ? kSeekBackward : kSeekForward);
                }
            }
            ASSERT_EQ(input.TellG(), at);
            input.GetExact(piece, sizeof piece);
            ASSERT_EQ(std::string(piece, sizeof piece), text.substr(at, sizeof piece)) << "round " << round;
        }

        input.SeekG(5, kSeekEnd, kSeekBackward);
        EXPECT_FALSE(input.EndOfFile());
        EXPECT_EQ(input.Get(piece, sizeof piece), 5u);
        EXPECT_TRUE(input.EndOfFile());
        EXPECT_THROW(input.SeekG(unsigned(text.size()) + 1), BinaryStreamException);
        input.SeekG(0);
        std::string all;
        EXPECT_EQ(input.Copy(all, text.size() + 1), text.size());
        EXPECT_EQ(all, text);
        EXPECT_THROW(input.Put("x", 1), Exception);
    }
}

TEST(ZLibSeekable, EmptyAndTruncatedUnits) {
    ZLib zlib(1, 8, 15);
    MemoryBuffer memory;
    WriteUnit(memory, zlib, "");
    memory.SeekG(4);
    ISeekableCompressedBuffer empty(memory, &zlib, 1);
    EXPECT_EQ(empty.Size(), 0u);
    EXPECT_TRUE(empty.EndOfFile());

    MemoryBuffer whole;
    WriteUnit(whole, zlib, Document(50000));
    VantuFile::StaticMemoryBuffer cut(whole.Data(), whole.Size() - 100);
    cut.SeekG(4);
    ISeekableCompressedBuffer truncated(cut, &zlib, 0);
    EXPECT_THROW(truncated.Size(), BinaryStreamGetEOFException);
}
