#include "SarTransaction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sys/stat.h>

#include "CrashHarness.h"
#include "SarException.h"
#include "TempDir.h"
#include "core/Text.h"

using namespace Ostrel;
using SarvaneTest::TempDir;

namespace {

std::u16string Wide(const std::string& path) { return Vantu::FromUtf8(path); }

struct Header {
    uint32_t magic = 0, total = 0, resume = 0;
};

Header ReadHeader(const std::string& path) {
    Header h;
    std::ifstream in(path, std::ios::binary);
    in.read(reinterpret_cast<char*>(&h), sizeof h);
    return h;
}

void WriteRaw(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Record i: its number and a text of i % 97 letters that compresses poorly, so that a few thousand
// records span several compressed windows.
std::string RecordText(int i) {
    std::string text(size_t(i % 97), ' ');
    uint32_t x = uint32_t(i) * 2654435761u + 1;
    for (char& c : text) c = char('a' + (x = x * 1103515245u + 12345u) % 26);
    return text;
}

void WriteRecords(SarTransaction& t, int count) {
    auto& s = t.GetStream();
    for (int i = 0; i < count; ++i) {
        s.PutScalar(uint32_t(i));
        s.PutString(RecordText(i));
    }
}

// Empty when the stream holds exactly the records of WriteRecords, read from record `from` on.
std::string ReadRecords(SarTransaction& t, int count, int from = 0) {
    auto& s = t.GetStream();
    for (int i = from; i < count; ++i) {
        uint32_t n = 0;
        std::string text;
        s.GetScalar(n);
        s.GetString(text);
        if (n != uint32_t(i) || text != RecordText(i))
            return "record " + std::to_string(i) + " differs";
    }
    return "";
}

void WriteLog(const std::string& path, bool compressed, int count) {
    SarTransaction t(Wide(path), compressed);
    t.Open(false);
    WriteRecords(t, count);
    t.Close();
}

int FileActionOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const VantuFile::FileException& e) {
        return e.GetMessageInfo()->Id();
    }
    return -1;
}

}  // namespace

TEST(SarTransaction, HeaderOfFreshWrongAndShortFiles) {
    TempDir dir;
    const std::string path = dir / "a.trn";
    SarTransaction t(Wide(path), true);
    EXPECT_FALSE(t.Exists());
    EXPECT_EQ(t.GetDiskSpaceUsed(), 0u);
    t.Clear();  // nothing to delete

    WriteRaw(path, "old bytes that the writer must drop");
    t.Open(false);
    EXPECT_GE(t.GetDiskSpaceUsed(), SarTransaction::kGrowStep);  // the growth slack shows while open
    t.Close();
    const Header fresh = ReadHeader(path);
    EXPECT_EQ(fresh.magic, 0x0BF1E8A7u);
    EXPECT_EQ(fresh.total, 0u);
    EXPECT_EQ(fresh.resume, 0u);
    EXPECT_EQ(t.GetDiskSpaceUsed(), 12u);  // the slack is cut at Close

    t.Open(true);
    EXPECT_FALSE(t.NeedResume());
    EXPECT_EQ(t.GetBytesReadPct(), 0.0);  // compressed with a count of 0
    t.Close();

    WriteRaw(path, std::string("\x01\x02\x03\x04\0\0\0\0\x05\0\0\0", 12));
    try {
        t.Open(true);
        ADD_FAILURE() << "a wrong magic was accepted";
    } catch (const SarInvalidIndexVersionException& e) {
        EXPECT_EQ(e.GetMessageInfo()->Id(), 16);
        EXPECT_EQ(e.GetMessageInfo()->Params().at(0), u"67305985");
        EXPECT_EQ(e.GetMessageInfo()->Params().at(1), u"200403111");
    }
    EXPECT_TRUE(t.GetTransactionFile().IsOpen());
    t.Close();
    EXPECT_EQ(ReadHeader(path).magic, 0x04030201u);  // a foreign file is left as it was

    WriteRaw(path, std::string("\xA7\xE8\xF1\x0B\0\0", 6));
    EXPECT_EQ(FileActionOf([&] { t.Open(true); }), VantuFile::kActionRead);
    t.Clear();
    EXPECT_FALSE(t.Exists());
    EXPECT_EQ(FileActionOf([&] { t.Open(true); }), VantuFile::kActionOpenRead);
}

TEST(SarTransaction, PlainAndDeflatedBodiesRoundTripWithATrailerBehind) {
    TempDir dir;
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed);
        const std::string path = dir / (compressed ? "c.trn" : "p.trn");
        const int count = 3000;
        SarTransaction t(Wide(path), compressed);
        for (int round = 0; round < 2; ++round) {  // Open always starts afresh
            t.Open(false);
            WriteRecords(t, count - round);
            t.Close();
        }
        // A user's plain trailer behind the body.
        t.GetTransactionFile().Open(VantuFile::CFileBase::kModeReadWrite);
        t.GetTransactionFile().Seek(0, VantuFile::CFileBase::kEnd);
        const uint32_t trailer = 0xC0FFEE;
        t.GetTransactionFile().Write(&trailer, 4, 1);
        t.GetTransactionFile().Close();

        const Header h = ReadHeader(path);
        EXPECT_EQ(h.magic, SarTransaction::kMagic);
        std::string body(2, '\0');
        std::ifstream(path, std::ios::binary).seekg(12).read(body.data(), 2);
        if (compressed) {
            EXPECT_EQ(body, "\x78\xDA");  // a zlib unit at level 8 right behind the header
        }
        EXPECT_EQ(h.total != 0, compressed);
        t.Open(true);
        EXPECT_EQ(t.Total(), h.total);
        EXPECT_EQ(ReadRecords(t, count - 1), "");
        if (compressed) {
            EXPECT_NEAR(t.GetBytesReadPct(), 1.0, 1e-9);
        }
        // The body ends where the deflate unit does; the trailer is read from the file side.
        if (compressed) {
            EXPECT_TRUE(t.GetStream().BaseBuffer().EndOfFile());
        }
        auto& file = t.GetTransactionFile();
        uint32_t readTrailer = 0;
        file.ReadAt(file.Size() - 4, &readTrailer, 4, true);
        EXPECT_EQ(readTrailer, trailer);
        t.Close();
    }
}

TEST(SarTransaction, ASavedPositionSurvivesReopenAndResumeClearsItFirst) {
    TempDir dir;
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed);
        const std::string path = dir / (compressed ? "c.trn" : "p.trn");
        const int count = 6000, stop = 1234;
        WriteLog(path, compressed, count);

        SarTransaction t(Wide(path), compressed);
        t.Open(true);
        EXPECT_EQ(ReadRecords(t, stop), "");
        const double pct = t.GetBytesReadPct();
        EXPECT_GT(pct, 0.0);
        EXPECT_LT(pct, 1.0);
        t.SaveStateForResume();
        const uint32_t saved = t.ResumePosition();
        EXPECT_NE(saved, 0u);
        t.Close();
        EXPECT_EQ(ReadHeader(path).resume, saved);

        SarTransaction reader(Wide(path), compressed);
        reader.Open(true);
        EXPECT_TRUE(reader.NeedResume());
        reader.Resume();
        EXPECT_FALSE(reader.NeedResume());
        EXPECT_EQ(ReadHeader(path).resume, 0u);  // on disk before the reader moves on
        EXPECT_EQ(ReadRecords(reader, count, stop), "");
        reader.Close();

        reader.Open(true);
        EXPECT_FALSE(reader.NeedResume());
        reader.Resume();  // nothing to do
        EXPECT_EQ(ReadRecords(reader, count), "");
        reader.Close();
    }
}

TEST(SarTransaction, NamesAndNumbersOfSliceTransactions) {
    EXPECT_EQ(SarTransactionFileName(0), u"Index-0000000000.trn");
    EXPECT_EQ(SarTransactionFileName(42), u"Index-0000000042.trn");
    EXPECT_EQ(SarTransactionFileName(10000000000ull), u"Index-10000000000.trn");
    EXPECT_EQ(SarRemoveTransactionState(u"Index-0000000042.trn.trc"), u"Index-0000000042.trn");

    TempDir dir;
    const std::u16string index = Wide(dir.Path());
    const auto name = [&](const std::u16string& path) { return path.substr(index.size() + 1); };
    {
        SarTransactionCounter counter;
        EXPECT_EQ(name(counter.NextTransactionPath(index)), u"Index-0000000000.trn");
        EXPECT_EQ(name(counter.NextTransactionPath(index)), u"Index-0000000001.trn");
    }
    // Gaps: the highest state of any transaction counts, whatever its extension.
    WriteRaw(dir / "Index-0000000003.trn", "");
    WriteRaw(dir / "Index-0000000007.trn.trd", "");
    WriteRaw(dir / "Index-0000000002.trn.ttp", "");
    WriteRaw(dir / "other.trn", "");
    {
        SarTransactionCounter counter;
        EXPECT_EQ(name(counter.NextTransactionPath(index)), u"Index-0000000008.trn");
    }
    // The archive holds higher numbers than the index path.
    mkdir((dir / "Transactions").c_str(), 0755);
    WriteRaw(dir / "Transactions/Index-0000000011.trn", "");
    {
        SarTransactionCounter counter;
        EXPECT_EQ(name(counter.NextTransactionPath(index)), u"Index-0000000012.trn");
        // A name in use is skipped on every request, not only the first.
        WriteRaw(dir / "Index-0000000013.trn", "");
        EXPECT_EQ(name(counter.NextTransactionPath(index)), u"Index-0000000014.trn");
    }
    // Text order puts 11 digits below 10, and the search for a free name walks past them.
    WriteRaw(dir / "Index-9999999999.trn", "");
    WriteRaw(dir / "Index-10000000000.trn", "");
    {
        SarTransactionCounter counter;
        EXPECT_EQ(name(counter.NextTransactionPath(index)), u"Index-10000000001.trn");
    }
}

namespace {

using SarvaneTest::CrashCase;
using SarvaneTest::CrashScenario;

// Few records: without a write-behind stage every field of a plain log is a write of its own.
constexpr int kCrashRecords = 12, kCrashStop = 5;

std::string LogPath(const std::string& dir) { return dir + "/log.ctr"; }

// Empty when the log opens with its resume position one of `positions`, and a reader that resumes from
// there reads the rest of the body.
std::string JudgeLog(const std::string& dir, bool compressed, std::initializer_list<uint32_t> positions) {
    try {
        SarTransaction t(Wide(LogPath(dir)), compressed);
        t.Open(true);
        if (std::find(positions.begin(), positions.end(), t.ResumePosition()) == positions.end())
            return "resume position " + std::to_string(t.ResumePosition());
        const bool resumes = t.NeedResume();
        t.Resume();
        std::string verdict = ReadRecords(t, kCrashRecords, resumes ? kCrashStop : 0);
        t.Close();
        return verdict;
    } catch (const Vantu::Exception& e) {
        return "the log doesn't read: " + Vantu::ToUtf8(e.GetMessageInfo()->GetMsg(true));
    }
}

void ExpectAllCasesPass(const CrashScenario& s, uint64_t minimumOperations) {
    const auto report = SarvaneTest::RunAtEveryCrashPoint(s);
    EXPECT_GE(report.operations, minimumOperations);
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
}

}  // namespace

TEST(SarTransaction, CrashWhileWritingLeavesNoLogOrOneThatOpensAndAWholeOneOnceClosed) {
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed);
        CrashScenario s;
        s.setup = [](const std::string&) {};
        s.run = [compressed](const std::string& dir) { WriteLog(LogPath(dir), compressed, kCrashRecords); };
        s.check = [compressed](const std::string& dir, const CrashCase& c) -> std::string {
            if (c.completed) return JudgeLog(dir, compressed, {0});
            // An unfinished log is never replayed (a crash inside Open(false) may even leave it without a
            // header): the stores above roll it back, and that must work.
            SarTransaction t(Wide(LogPath(dir)), compressed);
            try {
                t.Clear();
            } catch (const Vantu::Exception& e) {
                return "rollback fails: " + Vantu::ToUtf8(e.GetMessageInfo()->GetMsg(true));
            }
            return t.Exists() ? "the log survived its rollback" : "";
        };
        ExpectAllCasesPass(s, 4);  // header, body, syncs, the folder's sync
    }
}

TEST(SarTransaction, CrashWhileResumingLeavesTheOldOrTheClearedPosition) {
    static uint32_t saved = 0;
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed);
        CrashScenario s;
        s.setup = [compressed](const std::string& dir) {
            WriteLog(LogPath(dir), compressed, kCrashRecords);
            SarTransaction t(Wide(LogPath(dir)), compressed);
            t.Open(true);
            ReadRecords(t, kCrashStop);
            t.SaveStateForResume();
            saved = t.ResumePosition();
            t.Close();
        };
        s.run = [compressed](const std::string& dir) {
            SarTransaction t(Wide(LogPath(dir)), compressed);
            t.Open(true);
            t.Resume();
            t.Close();
        };
        s.check = [compressed](const std::string& dir, const CrashCase& c) -> std::string {
            if (saved == 0) return "no position was saved";
            return c.completed ? JudgeLog(dir, compressed, {0}) : JudgeLog(dir, compressed, {0, saved});
        };
        ExpectAllCasesPass(s, 2);  // the header's write and its sync
    }
}
