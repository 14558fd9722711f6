#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "file/BinaryStream.h"
#include "TempDir.h"
#include "file/BinaryStreamFileBuffer.h"
#include "file/CFileGrowT.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

using namespace Vantu;

namespace fake {

// Stands in for the file object: bytes in memory, with a count of the calls that reach it.
struct File {
    std::vector<uint8_t> bytes;
    unsigned int position = 0;
    int writes = 0;
    int reads = 0;

    void Write(const void* data, size_t elementSize, size_t count) {
        ++writes;
        const size_t n = elementSize * count;
        if (bytes.size() < position + n) bytes.resize(position + n);
        std::memcpy(bytes.data() + position, data, n);
        position += unsigned(n);
    }
    size_t Read(void* data, size_t elementSize, size_t count, bool) {
        ++reads;
        const size_t n = std::min(elementSize * count, bytes.size() - std::min<size_t>(position, bytes.size()));
        std::memcpy(data, bytes.data() + position, n);
        position += unsigned(n);
        return n;
    }
    unsigned int Tell() const { return position; }
    unsigned int Size() const { return unsigned(bytes.size()); }
    bool EndOfFile() const { return position >= bytes.size(); }
    void Flush() {}
    // Origins as the file layer numbers them: begin, current, end.
    unsigned int Seek(unsigned int offset, int origin = 0, int direction = 0) {
        const unsigned int base = origin == 0 ? 0 : origin == 1 ? position : Size();
        position = direction == 0 ? base + offset : base - offset;
        return position;
    }
};

}  // namespace fake

using Output = VantuFile::OCFileBufferT<unsigned int, fake::File>;
using Input = VantuFile::ICFileBufferT<unsigned int, fake::File>;

TEST(BinaryStreamFileBuffer, WriteBehindGathersSmallWritesAndPassesLargeOnes) {
    fake::File file;
    {
        Output output(file, 16);
        BinaryStreamT<unsigned int> stream(output);
        stream << uint32_t(1) << uint32_t(2) << uint32_t(3);
        EXPECT_EQ(file.writes, 0);
        EXPECT_EQ(output.TellP(), 12u);
        EXPECT_EQ(output.Size(), 12u);
        stream << uint64_t(4);  // 4 bytes fit, the rest starts the emptied stage
        EXPECT_EQ(file.writes, 1);
        EXPECT_EQ(file.bytes.size(), 16u);
        stream.PutExact(std::string(40, 'x').data(), 40);  // at or above the threshold: straight through
        EXPECT_EQ(file.bytes.size(), 60u);
        output.SeekP(60, kSeekCurrent, kSeekBackward);
        stream << uint32_t(9);
        output.SeekP(0, kSeekEnd);
        EXPECT_EQ(output.TellP(), 60u);
    }  // the destructor writes what is left
    ASSERT_EQ(file.bytes.size(), 60u);
    EXPECT_EQ(file.bytes[0], 9);
    EXPECT_EQ(file.bytes[12], 4);

    file.position = 0;
    Input input(file, 8);
    BinaryStreamT<unsigned int> stream(input);
    uint32_t v;
    stream >> v;
    EXPECT_EQ(file.reads, 1);
    EXPECT_EQ(input.TellG(), 4u);
    stream >> v;
    EXPECT_EQ(file.reads, 1);  // from the window
    EXPECT_EQ(v, 2u);
    input.SeekG(2, kSeekCurrent, kSeekBackward);  // inside the window: no file call
    EXPECT_EQ(input.TellG(), 6u);
    std::string big;
    EXPECT_EQ(input.Copy(big, 100), 54u);  // the window's two bytes, then the file
    EXPECT_EQ(big.substr(14), std::string(40, 'x'));
    EXPECT_TRUE(input.EndOfFile());
    EXPECT_EQ(input.SeekG(4, kSeekEnd, kSeekBackward), 56u);

    // A writer on the same file object moves it: the window read before is not served again.
    input.SeekG(0);
    stream >> v;
    Output writer(file);
    writer.SeekP(0);
    BinaryStreamT<unsigned int>(&writer) << uint16_t(0x55);
    input.SeekG(0);
    stream >> v;
    EXPECT_EQ(v, 0x55u);  // the file held 9 there before
    try {
        input.Put("x", 1);
        FAIL();
    } catch (const Exception& e) {
        EXPECT_EQ(e.What(), u"ICFileBufferT<T>::Put : Not implemented!");
    }
}

TEST(BinaryStreamFileBuffer, ZlibUnitThenPlainTrailerThroughFileBuffers) {
    fake::File file;
    VantuCompression::ZLib zlib(1, 5, 15);
    std::mt19937 random(9);
    std::string text;
    for (int i = 0; i < 40000; ++i) text += char('a' + random() % 4);
    {
        Output plain(file, 0x1000);
        BinaryStreamT<unsigned int> header(plain);
        header << uint32_t(0x0BF1E8A7);
        VantuCompression::OCompressedBufferT<unsigned int> compressed(plain, &zlib);
        BinaryStreamT<unsigned int> body(compressed);
        body << text << uint32_t(77);
        compressed.Finish();
        header << uint16_t(0xBEEF);
    }
    file.position = 0;
    Input input(file, 0x2000);
    BinaryStreamT<unsigned int> plain(input);
    uint32_t magic, tail;
    uint16_t trailer;
    std::string back;
    plain >> magic;
    VantuCompression::ICompressedBufferT<unsigned int> inflater(input, &zlib);
    BinaryStreamT<unsigned int> body(inflater);
    body >> back >> tail;
    plain >> trailer;
    EXPECT_EQ(magic, 0x0BF1E8A7u);
    EXPECT_EQ(back, text);
    EXPECT_EQ(tail, 77u);
    EXPECT_EQ(trailer, 0xBEEF);
    EXPECT_TRUE(input.EndOfFile());
}

TEST(BinaryStreamFileBuffer, RealGrowingFileKeepsUnitAndTrailerAcrossReopen) {
    SarvaneTest::TempDir dir;
    const std::string text(100000, 'q');
    {
        VantuFile::CFileGrowT<unsigned int> file(dir / "unit.trn", 0x10000);
        file.Open(VantuFile::CFileBase::kModeCreate);
        VantuFile::OCFileBufferT<unsigned int> output(file);
        VantuCompression::ZLib zlib(1, 8, 15);
        VantuCompression::OCompressedBufferT<unsigned int> compressed(output, &zlib);
        BinaryStreamT<unsigned int> body(compressed);
        body << text;
        compressed.Finish();
        BinaryStreamT<unsigned int> plain(output);
        plain << uint32_t(0xFEEDu);
        output.Flush();
        EXPECT_EQ(file.Allocated(), file.Size());  // a flushed growing file has no slack
        file.Close();
    }
    VantuFile::CFileT<unsigned int> file(dir / "unit.trn");
    file.Open(VantuFile::CFileBase::kModeRead);
    VantuFile::ICFileBufferT<unsigned int> input(file, 0x1000);
    VantuCompression::ZLib zlib(1, 6, 15);  // any zlib unit reads, whatever its level
    VantuCompression::ICompressedBufferT<unsigned int> inflater(input, &zlib);
    BinaryStreamT<unsigned int> body(inflater);
    std::string back;
    uint32_t trailer;
    BinaryStreamT<unsigned int> plain(input);
    body >> back;
    plain >> trailer;
    EXPECT_EQ(back, text);
    EXPECT_EQ(trailer, 0xFEEDu);
    EXPECT_TRUE(input.EndOfFile());
    input.SeekG(4, kSeekEnd, kSeekBackward);
    plain >> trailer;
    EXPECT_EQ(trailer, 0xFEEDu);
    VantuFile::OCFileBufferT<unsigned int> readOnly(file);
    EXPECT_THROW(readOnly.SeekP(1, kSeekBegin, kSeekBackward), VantuFile::SeekOutOfRangeException);
}
