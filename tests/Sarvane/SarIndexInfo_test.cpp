#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "CrashHarness.h"
#include "SarException.h"
#include "SarIndexInfo.h"
#include "SliceCheck.h"
#include "TempDir.h"
#include "core/Text.h"
#include "file/FileSystem.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

SarIndexInfo Sample(int32_t seed) {
    SarIndexInfo info;
    info.documentsWithShingles = seed;
    info.collections = {{1, 1000u + seed, 20, 7, 1}, {0xFFFF, 0x1122334455667788ull, 0, 0xFFFFFFFF, 3}};
    info.deletedBitCount = 13;
    info.deletedBits = {0x5A, 0x13};
    info.nextTermId = 300 + seed;
    info.nextSmallTermId = 40;
    info.fields = {{"author", 0, 17}, {std::string(300, 'f'), 3, uint32_t(seed)}};
    info.wordTotal = 0x0102030405060708ull + seed;
    return info;
}

std::string Bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace

TEST(SarIndexInfo, RoundTripsAPlainVersionThenOneZlibUnitWithTheWordTotalOnlyWhenAsked) {
    TempDir dir;
    const SarIndexInfo saved = Sample(5);
    saved.Save(dir.Path(), true, true);
    const std::string bytes = Bytes(dir / "Index.info");
    ASSERT_GT(bytes.size(), 6u);
    EXPECT_EQ(bytes.substr(0, 6), std::string("\xA7\xE8\xF1\x0B\x78\x9C", 6));
    EXPECT_FALSE(VantuFile::FileExists(dir / "Index.info.tmp"));
    SarIndexInfo loaded;
    loaded.Load(dir / "Index.info", true);
    EXPECT_EQ(loaded, saved);

    // Written without the total (as compaction does), a load that wants it keeps the value it had.
    saved.Save(dir.Path(), true, false);
    SarIndexInfo without;
    without.wordTotal = 99;
    without.Load(dir / "Index.info", true);
    EXPECT_EQ(without.wordTotal, 99u);
    without.wordTotal = saved.wordTotal;
    EXPECT_EQ(without, saved);
}

TEST(SarIndexInfo, AnotherVersionIsRefusedWithBothNumbers) {
    TempDir dir;
    Sample(1).Save(dir.Path(), true, false);
    std::string bytes = Bytes(dir / "Index.info");
    bytes[0] = 0x01;
    WriteBytes(dir / "Index.info", bytes);
    try {
        SarIndexInfo::CheckVersion(dir / "Index.info");
        FAIL() << "no version check";
    } catch (const SarInvalidIndexVersionException& e) {
        ASSERT_TRUE(e.GetMessageInfo());
        EXPECT_EQ(e.GetMessageInfo()->Id(), 16);
        EXPECT_EQ(e.GetMessageInfo()->Params(),
                  (std::vector<std::u16string>{Vantu::FromUtf8(std::to_string(0x0BF1E801u)), u"200403111"}));
    }
    SarIndexInfo info;
    EXPECT_THROW(info.Load(dir / "Index.info", false), SarInvalidIndexVersionException);
}

TEST(SarIndexInfo, D1_ThePlainFileWinsOverAPreCommittedOneAndANewFileAloneIsRead) {
    TempDir dir;
    EXPECT_EQ(SarIndexInfo::LoadPath(dir.Path()), "");
    Sample(1).Save(dir.Path(), false, false);
    EXPECT_EQ(SarIndexInfo::LoadPath(dir.Path()), dir / "Index.info.new");
    SarIndexInfo::Commit(dir.Path());
    EXPECT_EQ(SarIndexInfo::LoadPath(dir.Path()), dir / "Index.info");
    EXPECT_FALSE(VantuFile::FileExists(dir / "Index.info.new"));

    // A pre-committed state that recovery may still roll back never hides the committed one.
    Sample(2).Save(dir.Path(), false, false);
    ASSERT_TRUE(VantuFile::FileExists(dir / "Index.info.new"));
    SarIndexInfo loaded;
    loaded.Load(SarIndexInfo::LoadPath(dir.Path()), false);
    EXPECT_EQ(loaded.documentsWithShingles, 1);
    SarIndexInfo::Commit(dir.Path());
    loaded.Load(SarIndexInfo::LoadPath(dir.Path()), false);
    EXPECT_EQ(loaded.documentsWithShingles, 2);
}

TEST(SarIndexInfo, PreCommitThenCommitLeavesTheOldOrTheNewCountersAtEveryCrash) {
    CrashScenario s;
    s.setup = [](const std::string& dir) { Sample(1).Save(dir, true, true); };
    s.run = [](const std::string& dir) {
        Sample(2).Save(dir, false, true);
        SarIndexInfo::Commit(dir);
    };
    s.check = [](const std::string& dir, const CrashCase& c) -> std::string {
        const std::string path = SarIndexInfo::LoadPath(dir);
        if (path.empty()) return "no \"Index.info\" at all";
        SarIndexInfo loaded;
        try {
            loaded.Load(path, true);
        } catch (const Vantu::Exception& e) {
            return "unreadable: " + Vantu::ToUtf8(e.What());
        }
        if (loaded == Sample(2)) return SliceFaults(dir);
        if (loaded == Sample(1)) return c.completed ? "the committed counters were lost" : SliceFaults(dir);
        return "counters that are neither state";
    };
    CrashReport report = RunAtEveryCrashPoint(s);
    EXPECT_GT(report.cases, 3u);
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
}

TEST(SarIndexInfo, AFirstDirectSaveLeavesNoFileOrACompleteOneAtEveryCrash) {
    CrashScenario s;
    s.setup = [](const std::string&) {};
    s.run = [](const std::string& dir) { Sample(3).Save(dir, true, false); };
    s.check = [](const std::string& dir, const CrashCase& c) -> std::string {
        const std::string path = SarIndexInfo::LoadPath(dir);
        if (path.empty()) return c.completed ? "the saved file was lost" : "";
        SarIndexInfo loaded;
        try {
            loaded.Load(path, false);
        } catch (const Vantu::Exception& e) {
            return "unreadable: " + Vantu::ToUtf8(e.What());
        }
        SarIndexInfo expected = Sample(3);
        expected.wordTotal = 0;
        return loaded == expected ? SliceFaults(dir) : "wrong counters";
    };
    CrashReport report = RunAtEveryCrashPoint(s);
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
}
