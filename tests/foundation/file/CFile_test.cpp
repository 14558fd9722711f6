#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <sys/stat.h>

#include "TempDir.h"
#include "file/LockingCFile.h"

using namespace VantuFile;

namespace {

uint64_t PhysicalSize(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? uint64_t(st.st_size) : ~0ull;
}

template <class F>
int ActionOf(F&& f) {
    try {
        f();
    } catch (const SeekOutOfRangeException&) {
        return -2;
    } catch (const FileException& e) {
        return e.GetMessageInfo()->Id();
    }
    return -1;
}

}  // namespace

TEST(CFile, PositionAndSizeLiveInTheObjectAndReadsStopAtTheEnd) {
    SarvaneTest::TempDir dir;
    CFileT<uint32_t> file(dir / "a.bin");
    EXPECT_EQ(ActionOf([&] { file.Open(CFileBase::kModeRead); }), kActionOpenRead);
    file.Open(CFileBase::kModeCreate);
    file.Write("abcdefgh", 2, 4);
    EXPECT_EQ(file.Tell(), 8u);
    EXPECT_EQ(file.Size(), 8u);
    EXPECT_TRUE(file.EndOfFile());
    char buffer[16] = {};
    file.Seek(3);
    EXPECT_EQ(file.Read(buffer, 1, 16, false), 5u);
    EXPECT_EQ(std::string(buffer), "defgh");
    EXPECT_EQ(ActionOf([&] { file.Seek(0); file.Read(buffer, 1, 9, true); }), kActionRead);
    // Reads at an explicit offset leave the position alone.
    file.Seek(2);
    EXPECT_EQ(file.ReadAt(6, buffer, 2, true), 2u);
    EXPECT_EQ(file.Tell(), 2u);

    EXPECT_EQ(file.Seek(2, CFileBase::kEnd, CFileBase::kBackward), 6u);
    EXPECT_EQ(ActionOf([&] { file.Seek(7, CFileBase::kCurrent, CFileBase::kBackward); }), -2);
    EXPECT_EQ(ActionOf([&] { file.Seek(1, CFileBase::kBegin, CFileBase::kBackward); }), -2);
    EXPECT_EQ(ActionOf([&] { file.Seek(0xFFFFFFFFu, CFileBase::kEnd, CFileBase::kForward); }), -2);

    file.SetSize(4, false);
    EXPECT_EQ(file.Size(), 4u);
    EXPECT_EQ(file.Tell(), 4u);
    EXPECT_EQ(PhysicalSize(dir / "a.bin"), 4u);
    file.Extend(6);
    EXPECT_EQ(file.Size(), 10u);
    file.Flush();
    file.Close();

    CFileT<uint32_t> again(dir / "a.bin");
    again.Open(CFileBase::kModeRead);
    EXPECT_EQ(again.Size(), 10u);
    EXPECT_EQ(ActionOf([&] { again.Write("x", 1, 1); }), kActionWrite);
    again.Delete();
    EXPECT_FALSE(FileExists(dir / "a.bin"));
}

TEST(CFile, The32BitWidthRefusesPositionsPast4GiBAndThe64BitWidthCarriesOn) {
    SarvaneTest::TempDir dir;
    CFileT<uint32_t> narrow(dir / "n.bin");
    narrow.Open(CFileBase::kModeCreate);
    narrow.Seek(0xFFFFFFF0u);
    EXPECT_EQ(ActionOf([&] { narrow.Write("0123456789abcdefXYZ", 1, 19); }), kActionWrite);
    EXPECT_EQ(ActionOf([&] { narrow.Extend(0x20); }), -2);

    CFileT<uint64_t> wide(dir / "w.bin");
    wide.Open(CFileBase::kModeCreate);
    wide.Seek(0xFFFFFFF0ull);
    wide.Write("0123456789abcdefXYZ", 1, 19);
    EXPECT_EQ(wide.Size(), 0x100000003ull);
    wide.SetSize(0, true);
}

TEST(CFile, GrowingFileReservesInStepsAndFlushLeavesNoSlack) {
    SarvaneTest::TempDir dir;
    LockingCFileGrowT<uint32_t> file(dir / "g.bin", 1000);
    file.Open(CFileBase::kModeCreate);
    file.Write("hello", 1, 5);
    EXPECT_EQ(file.Allocated(), 1000u);
    EXPECT_EQ(PhysicalSize(dir / "g.bin"), 1000u);
    file.Seek(2500);
    EXPECT_EQ(file.Allocated(), 3000u);
    EXPECT_EQ(file.Size(), 2500u);
    // From the current position a growing file never seeks past its logical end.
    file.Seek(10);
    EXPECT_EQ(ActionOf([&] { file.Seek(2491, CFileBase::kCurrent, CFileBase::kForward); }), -2);
    char buffer[8];
    file.Seek(2498);
    EXPECT_EQ(file.Read(buffer, 1, 8, false), 2u);  // never past the logical size, slack or not
    file.Seek(2000);
    file.Write("end", 1, 3);
    file.Flush();
    EXPECT_EQ(file.Allocated(), 2500u);
    EXPECT_EQ(PhysicalSize(dir / "g.bin"), 2500u);
    file.Close();

    LockingCFileGrowT<uint32_t> reader(dir / "g.bin", 1000);
    reader.Open(CFileBase::kModeRead);
    EXPECT_EQ(reader.Size(), 2500u);
    reader.Seek(2400);  // inside the allocation: no change on disk needed
    EXPECT_EQ(ActionOf([&] { reader.Seek(2600); }), kActionSeek);
    reader.Close();
}

// D11: a writer's flush, resize and close never move a reader of the same file.
TEST(CFile, D11_WriterFlushResizeAndCloseLeaveAReaderWhereItWas) {
    SarvaneTest::TempDir dir;
    std::string data(300, 'r');
    CFileGrowT<uint32_t> writer(dir / "shared.bin", 4096);
    writer.Open(CFileBase::kModeCreate);
    writer.Write(data.data(), 1, data.size());
    writer.Flush();
    CFileGrowT<uint32_t> reader(dir / "shared.bin", 4096);
    reader.Open(CFileBase::kModeRead);
    reader.Seek(100);
    writer.Seek(0);
    writer.Write("WW", 1, 2);
    writer.Flush();
    writer.SetSize(250, false);
    writer.Close();
    char buffer[50];
    EXPECT_EQ(reader.Read(buffer, 1, 50, true), 50u);
    EXPECT_EQ(reader.Tell(), 150u);
    EXPECT_EQ(std::string(buffer, 50), data.substr(100, 50));
}
