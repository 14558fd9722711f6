#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "CrashHarness.h"
#include "TempDir.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "file/PersistentEmptyListT.h"

using namespace VantuFile;
using namespace SarvaneTest;

namespace {

using Blocks = std::map<uint64_t, uint64_t>;

template <class L>
Blocks Of(const L& list) {
    return Blocks(list.Blocks().begin(), list.Blocks().end());
}

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void Spit(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

}  // namespace

TEST(EmptyList, GetSplitsOrTakesWholeAndOnlyCallersMerge) {
    EmptyListT<uint32_t> list;  // one block over the whole 32-bit range
    EXPECT_EQ(Of(list), (Blocks{{0, 0xFFFFFFFFu}}));
    uint32_t size = 100, offset = 7;
    EXPECT_TRUE(list.Get(size, offset, 1000));
    EXPECT_EQ(offset, 0u);
    EXPECT_EQ(size, 100u);
    size = 50;
    EXPECT_TRUE(list.Get(size, offset, 1000));
    EXPECT_EQ(offset, 100u);
    // Freeing two neighbours with Add alone leaves two entries; AddMerged joins them with the tail.
    list.Add(100, 0);
    list.Add(50, 100);
    EXPECT_EQ(list.Blocks().size(), 3u);
    EmptyListT<uint32_t> merged;
    size = 150;
    merged.Get(size, offset, 1000);
    merged.AddMerged(50, 100);
    merged.AddMerged(100, 0);
    EXPECT_EQ(Of(merged), (Blocks{{0, 0xFFFFFFFFu}}));

    // The smallest fitting block wins; a block not above the limit comes whole; no fit changes nothing.
    EmptyListT<uint32_t> small(0xFFFFFFFFu, 0);
    small.Add(30, 0);
    small.Add(10, 100);
    small.Add(20, 200);
    size = 15;
    EXPECT_TRUE(small.Get(size, offset, 0xFFFFFFFFu));
    EXPECT_EQ(offset, 200u);
    EXPECT_EQ(size, 20u);
    size = 31;
    EXPECT_FALSE(small.Get(size, offset, 0xFFFFFFFFu));
    EXPECT_EQ(Of(small), (Blocks{{0, 30}, {100, 10}}));

    // Merging stops at maxBlockSize.
    EmptyListT<uint32_t> capped(40, 0);
    capped.Add(30, 0);
    capped.AddMerged(20, 30);
    EXPECT_EQ(Of(capped), (Blocks{{0, 30}, {30, 20}}));
}

// D4: a commit record's free list replaces the list held in memory at replay; merging it in would count the
// blocks taken since the record was written as free twice.
TEST(EmptyList, D4_ReadReplacesTheListItNeverMergesIntoIt) {
    EmptyListT<uint32_t> recorded(0xFFFFFFFFu, 0);
    recorded.Add(0x10, 0x100);
    VantuFile::MemoryBuffer memory;
    Vantu::BinaryStreamT<unsigned int> stream(memory);
    recorded.Write(stream);

    EmptyListT<uint32_t> live(0xFFFFFFFFu, 0);
    live.Add(0x08, 0x100);  // part of the recorded block, freed again in memory
    live.Add(0x20, 0x400);
    live.Read(stream);
    EXPECT_EQ(Of(live), (Blocks{{0x100, 0x10}}));
}

TEST(EmptyList, ReserveCutsAWhollyFreeRangeOrRefusesAndChangesNothing) {
    EmptyListT<uint64_t> list(~0ull, 0);
    list.Add(100, 1000);
    list.Reserve(10, 1040);
    EXPECT_EQ(Of(list), (Blocks{{1000, 40}, {1050, 50}}));
    EXPECT_THROW(list.Reserve(20, 1040), EmptyListInvalidBlock);
    EXPECT_THROW(list.Reserve(60, 1040), EmptyListInvalidBlock);
    EXPECT_THROW(list.Reserve(1, 999), EmptyListInvalidBlock);
    EXPECT_EQ(Of(list), (Blocks{{1000, 40}, {1050, 50}}));
    list.Clear();
    EXPECT_TRUE(list.Blocks().empty());
}

TEST(EmptyList, StoredFormHasBothWidthsAndReloadPrefersTheNewFile) {
    TempDir dir;
    PersistentEmptyListT<uint32_t> narrow(dir / "n.pty", 0xFFFFFFFFu, 0);
    narrow.Add(0x20, 0x10);
    narrow.Add(0x05, 0x01);
    narrow.Save();
    EXPECT_EQ(Slurp(dir / "n.pty"), std::string("\x02\0\0\0" "\x01\0\0\0\x05\0\0\0" "\x10\0\0\0\x20\0\0\0", 20));

    PersistentEmptyListT<uint64_t> wide(dir / "w.pty");
    wide.Reload();  // no file: the whole range
    EXPECT_EQ(Of(wide), (Blocks{{0, ~0ull}}));
    uint64_t size = 0x300, offset;
    wide.Get(size, offset, 0x1000);
    wide.Save();
    EXPECT_EQ(Slurp(dir / "w.pty"), std::string("\x01\0\0\0" "\x00\x03\0\0\0\0\0\0" "\xFF\xFC\xFF\xFF\xFF\xFF\xFF\xFF", 20));

    // A crash between the renames leaves both files; the ".new" content is the newer list.
    Spit(dir / "w.pty.new", std::string("\x01\0\0\0" "\x00\x04\0\0\0\0\0\0" "\x00\x01\0\0\0\0\0\0", 20));
    wide.Reload();
    EXPECT_EQ(Of(wide), (Blocks{{0x400, 0x100}}));
    EXPECT_FALSE(FileExists(dir / "w.pty.new"));
    // An empty saved list reloads as the initial block.
    Spit(dir / "w.pty", std::string("\0\0\0\0", 4));
    wide.Reload();
    EXPECT_EQ(Of(wide), (Blocks{{0, ~0ull}}));
    wide.Clear();
    EXPECT_FALSE(FileExists(dir / "w.pty"));
}

TEST(EmptyList, TruncatedOrCorruptFilesRaiseAFileExceptionNamingThem) {
    TempDir dir;
    PersistentEmptyListT<uint32_t> list(dir / "c.pty");
    const std::string good("\x02\0\0\0" "\x01\0\0\0\x05\0\0\0" "\x10\0\0\0\x20\0\0\0", 20);
    const std::string bad[] = {
        good.substr(0, 3),                                              // shorter than the count
        good.substr(0, 17),                                             // cut inside a block
        std::string("\x03\0\0\0", 4) + good.substr(4),                  // count beyond the blocks
        good.substr(0, 4) + good.substr(12, 8) + good.substr(4, 8),     // out of order
        std::string("\x01\0\0\0" "\xF0\xFF\xFF\xFF" "\x20\0\0\0", 12),  // passes the width
        std::string("\x01\0\0\0" "\x01\0\0\0" "\0\0\0\0", 12),          // an empty block
    };
    for (const std::string& bytes : bad) {
        Spit(dir / "c.pty", bytes);
        try {
            list.Reload();
            ADD_FAILURE() << "accepted " << bytes.size() << " bytes";
        } catch (const FileException& e) {
            EXPECT_NE(e.WhatUtf8().find("c.pty"), std::string::npos) << e.WhatUtf8();
            EXPECT_NE(e.WhatUtf8().find("damaged"), std::string::npos) << e.WhatUtf8();
        }
    }
    Spit(dir / "c.pty", good);
    list.Reload();
    EXPECT_EQ(Of(list), (Blocks{{1, 5}, {0x10, 0x20}}));
}

TEST(EmptyList, SavedListSurvivesACrashAtEveryDurableOperationInEveryMode) {
    // "before": the fresh list with 4 KiB taken; "after": 64 more blocks taken and every other one freed.
    auto before = [](PersistentEmptyListT<uint64_t>& l) {
        uint64_t size = 4096, offset;
        l.Get(size, offset, 1u << 20);
    };
    auto more = [](PersistentEmptyListT<uint64_t>& l) {
        for (int i = 0; i < 64; ++i) {
            uint64_t size = 100, offset;
            l.Get(size, offset, 1u << 20);
            if (i % 2) l.AddMerged(size, offset);
        }
    };
    auto after = [&](PersistentEmptyListT<uint64_t>& l) {
        before(l);
        more(l);
    };
    auto expected = [](auto build) {
        PersistentEmptyListT<uint64_t> l("/nonexistent");
        build(l);
        return Of(l);
    };
    CrashScenario s;
    s.setup = [&](const std::string& dir) {
        PersistentEmptyListT<uint64_t> l(dir + "/Terms.tin.pty");
        before(l);
        l.Save();
    };
    s.run = [&](const std::string& dir) {
        PersistentEmptyListT<uint64_t> l(dir + "/Terms.tin.pty");
        l.Reload();
        more(l);
        l.Save();
    };
    s.check = [&](const std::string& dir, const CrashCase& c) -> std::string {
        PersistentEmptyListT<uint64_t> l(dir + "/Terms.tin.pty");
        l.Reload();
        if (Of(l) == expected(after)) return "";
        if (Of(l) == expected(before)) return c.completed ? "the saved list was lost" : "";
        return "a list that is neither the old nor the new one";
    };
    CrashReport report = RunAtEveryCrashPoint(s);
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
    EXPECT_GE(report.operations, 8u);
}
