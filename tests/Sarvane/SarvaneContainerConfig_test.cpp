#include <gtest/gtest.h>

#include <fstream>

#include "MessageIdOf.h"
#include "SarException.h"
#include "SarvaneContainerConfig.h"
#include "StreamRoundTrip.h"
#include "TempDir.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "core/Text.h"

using namespace Ostrel;
using VantuThread::Priority;

namespace {

SarvaneContainerConfig Valid() {
    return SarvaneContainerConfig(u"/tmp/sarvane-config", u"/tmp/sarvane-index", 5, 85, Priority::AboveNormal,
                                  Priority::Normal, u"");
}

}  // namespace

TEST(SarvaneContainerConfig, DefaultsClampsAndRefusals) {
    SarvaneContainerConfig c = Valid();
    EXPECT_EQ(c.GetURICacheSize(), 0x10000u);
    EXPECT_EQ(c.GetURIInfoCacheSize(), 0x100000u);
    EXPECT_EQ(c.GetTransactionsUpdateFrequency(), 600u);
    EXPECT_EQ(c.GetTransactionsMaxDocumentsSize(), 0x1400000u);
    EXPECT_FALSE(c.GetEnableNetrova());

    c.SetTransactionsUpdateFrequency(3);
    EXPECT_EQ(c.GetTransactionsUpdateFrequency(), 10u);
    c.SetTransactionsUpdateFrequency(0);
    EXPECT_EQ(c.GetTransactionsUpdateFrequency(), 10u);
    c.SetNumberOfQueryThreads(21);
    EXPECT_EQ(c.GetNumberOfQueryThreads(), 20u);
    c.SetDocumentDuplicateFactor(150);
    EXPECT_EQ(c.GetDocumentDuplicateFactor(), 100u);
    c.SetURIInfoCacheSize(0xFFFFFFFF);  // C1: no wrap, then the clamp
    EXPECT_EQ(c.GetURIInfoCacheSize(), 0xA00000u);
    c.SetURICacheSize(64);
    EXPECT_EQ(c.GetURICacheSize(), 65536u);

    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { c.SetNumberOfQueryThreads(0); }), 12);
    c.SetNumberOfQueryThreads(5);
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { c.SetTransactionsMaxDocumentsSize(0); }), 12);
    c.SetTransactionsMaxDocumentsSize(1);
    c.SetConfigPath(u"");
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { c.ValidateConfig(); }), 12);
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>(
                  [] { SarvaneContainerConfig(u"", u"/x", 5, 85, Priority::Normal, Priority::Normal, u""); }),
              12);
}

TEST(SarvaneContainerConfig, IndexPathThatIsAFileIsRefused) {
    SarvaneTest::TempDir dir;
    std::ofstream(dir / "plain") << "x";
    std::u16string file = Vantu::FromUtf8(dir / "plain");
    EXPECT_EQ(MessageIdOf<SarInvalidIndexPath>(
                  [&] { SarvaneContainerConfig(u"/c", file, 5, 85, Priority::Normal, Priority::Normal, u""); }),
              15);
    SarvaneContainerConfig c = Valid();
    EXPECT_EQ(MessageIdOf<SarInvalidIndexPath>([&] { c.SetIndexFilesPath(file); }), 15);
    c.SetIndexFilesPath(Vantu::FromUtf8(dir / "later"));
    EXPECT_EQ(c.GetIndexFilesPathAsString(), dir / "later");
}

TEST(SarvaneContainerConfig, RunningModificationsAndEquality) {
    SarvaneContainerConfig running = Valid();
    SarvaneContainerConfig next(running);
    EXPECT_TRUE(next == running);
    next.SetNumberOfQueryThreads(8);
    next.SetTransactionsUpdateFrequency(20);
    next.SetMapiProfile(u"profile");
    next.SetMinimumDiskSpace(1ull << 40);
    next.GetFixedResults()[3].push_back({{u"query"}, {FixedResultDocumentKey(u"file:///a", 1, 2, 3, false)}});
    EXPECT_FALSE(next == running);
    EXPECT_TRUE(running.ValidRunningModifications(next));

    SarvaneContainerConfig keys(next);
    keys.GetFixedResults()[3][0].second[0].caseSensitive = true;
    EXPECT_FALSE(keys == next);

    SarvaneContainerConfig uri(running);
    uri.SetURIInfoGrowSize(8);
    EXPECT_FALSE(running.ValidRunningModifications(uri));
    SarvaneContainerConfig path(running);
    path.SetConfigPath(u"/elsewhere");
    EXPECT_FALSE(running.ValidRunningModifications(path));
}

TEST(SarvaneContainerConfig, StreamFormRoundTripsWithoutValidating) {
    SarvaneContainerConfig c = Valid();
    c.SetMapiProfile(u"Outlook");
    c.SetEnableNetrova(true);
    c.SetMinimumDiskSpace(0x123456789ull);
    c.GetFixedResults()[2].push_back({{u"q1", u"q2"}, {FixedResultDocumentKey(u"file:///a", 1, 4, 5, true),
                                                     FixedResultDocumentKey(u"file:///b", 2, 4, 5, false)}});
    c.GetFixedResults()[9].push_back({{}, {}});
    EXPECT_TRUE(SarvaneTest::RoundTrip(c) == c);

    // A default record streams as it stands, empty paths included, and reads back without a refusal:
    // 3 empty strings, 2 + 2 + 5 u32, the flag, an empty pin count, the Netrova flag, u32 reserved, u64.
    VantuFile::MemoryBuffer plain;
    Vantu::BinaryStreamT<unsigned int> plainOut(plain);
    plainOut << SarvaneContainerConfig();
    EXPECT_EQ(plain.Size(), 6u + 36u + 1u + 4u + 1u + 4u + 8u);
    EXPECT_EQ(plain.Data()[4], 1);   // QueryPriority
    EXPECT_EQ(plain.Data()[14], 5);  // NumberOfQueryThreads
    Vantu::BinaryStreamT<unsigned int> plainIn(plain);
    SarvaneContainerConfig back;
    plainIn >> back;
    EXPECT_TRUE(back == SarvaneContainerConfig());
}
