#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>

#include "TempDir.h"
#include "file/CFileGrowT.h"
#include "file/FaultInjector.h"
#include "file/StateFile.h"

using namespace VantuFile;

namespace {

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

template <class F>
int ActionOf(F&& f) {
    try {
        f();
    } catch (const FileException& e) {
        return e.GetMessageInfo()->Id();
    }
    return -1;
}

}  // namespace

TEST(FaultInjector, FailsTheNthOperationOfAKindWithTheActionOfThatStep) {
    SarvaneTest::TempDir dir;
    FaultInjector f;
    f.Activate();
    f.FailAt(FileOp::Write, 2, EIO);
    f.FailAt(FileOp::Rename, 1, EXDEV);
    f.FailAt(FileOp::Truncate, 1, ENOSPC);
    CFileGrowT<uint32_t> file(dir / "f.bin", 4096);
    file.Open(CFileBase::kModeCreate);
    // A full disk shows when the file grows, before any data is written there.
    EXPECT_EQ(ActionOf([&] { file.Write("a", 1, 1); }), kActionSeek);
    file.Write("a", 1, 1);
    EXPECT_EQ(ActionOf([&] { file.Write("b", 1, 1); }), kActionWrite);
    EXPECT_EQ(file.Tell(), 1u);  // a failed write doesn't move the position
    file.Close();
    EXPECT_EQ(ActionOf([&] { StateFile::Replace(dir / "s", "x"); }), kActionRename);
    StateFile::Replace(dir / "s", "y");
    EXPECT_EQ(Slurp(dir / "s"), "y");
    f.Deactivate();
    EXPECT_EQ(FaultInjector::Active(), nullptr);
}

TEST(FaultInjector, CallsBackAtTheNthOperationAndAtNamedPoints) {
    SarvaneTest::TempDir dir;
    FaultInjector f;
    f.Activate();
    std::vector<std::string> seen;
    f.OnOperation(3, [&] { seen.push_back("op3"); });
    f.OnCrashPoint("StateFile: new in place", 1, [&] { seen.push_back("point"); });
    StateFile::Replace(dir / "s", "content");
    EXPECT_EQ(seen, (std::vector<std::string>{"op3", "point"}));
    EXPECT_EQ(f.Operations(), 8u);
    EXPECT_EQ(f.CrashPointsPassed(), (std::vector<std::string>{"StateFile: tmp written", "StateFile: new in place"}));
}

TEST(FaultInjector, PowerCutKeepsOnlyWhatWasSyncedOrATornPrefixOfTheRest) {
    const std::string tail(2048, 'z');
    // Leaves "synced" with "kept" durable and 2048 bytes beyond it unsynced, and "unsynced" synced but
    // with its name never made durable; "old", durable before the test, is deleted durably.
    auto scenario = [&](const std::string& dir, std::optional<uint64_t> seed) {
        std::ofstream(dir + "/old") << "durable before the test";
        FaultInjector f;
        f.Activate();
        CFileT<uint32_t> old(dir + "/old");
        old.Delete();
        CFileT<uint32_t> synced(dir + "/synced");
        synced.Open(CFileBase::kModeCreate);
        synced.Write("kept", 1, 4);
        synced.Flush();
        SyncDirectoryOf(dir + "/synced");
        synced.Write(tail.data(), 1, tail.size());
        synced.Close();
        CFileT<uint32_t> unsynced(dir + "/unsynced");
        unsynced.Open(CFileBase::kModeCreate);
        unsynced.Write("lost", 1, 4);
        unsynced.Flush();
        unsynced.Close();
        f.CutPower(seed);
    };
    {
        SarvaneTest::TempDir dir;
        scenario(dir.Path(), std::nullopt);
        EXPECT_FALSE(std::ifstream(dir / "old").good());
        EXPECT_EQ(Slurp(dir / "synced"), "kept");
        EXPECT_FALSE(std::ifstream(dir / "unsynced").good());
    }
    std::set<size_t> sizes;
    std::set<bool> unsyncedKept;
    for (uint64_t seed = 1; seed <= 24; ++seed) {
        SarvaneTest::TempDir dir;
        scenario(dir.Path(), seed);
        std::string content = Slurp(dir / "synced");
        ASSERT_EQ(content.substr(0, 4), "kept");
        EXPECT_TRUE(content.size() == 4 || content.size() % 512 == 0 || content.size() == 2052) << content.size();
        EXPECT_EQ(content.substr(4), tail.substr(0, content.size() - 4));
        sizes.insert(content.size());
        bool kept = std::ifstream(dir / "unsynced").good();
        if (kept) EXPECT_EQ(Slurp(dir / "unsynced"), "lost");
        unsyncedKept.insert(kept);
        EXPECT_FALSE(std::ifstream(dir / "old").good());
    }
    EXPECT_GE(sizes.size(), 3u);
    EXPECT_EQ(unsyncedKept.size(), 2u);
}
