#include <gtest/gtest.h>

#include <thread>

#include "SarvaneContainerFakes.h"
#include "SarThreads.h"
#include "ThreadsNamed.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

class ContainerStatisticsTest : public ContainerTest {
protected:
    SarvaneStatistics Read(bool fast) {
        SarvaneStatistics out;
        container_->GetStatistics(out, fast);
        return out;
    }
    static uint32_t Documents(const SarvaneStatistics& statistics, SarvaneStatistics::SliceKey key) {
        SarvaneCollectionStatistics collection;
        EXPECT_TRUE(statistics.slices.at(key).GetCollectionStats(1, collection));
        return collection.count;
    }
};

}  // namespace

TEST_F(ContainerStatisticsTest, SlowReadsRefreshFastReadsTakeTheCacheAndStopKeepsIt) {
    container_->AddPhysicalIndex(2);
    container_->AddPhysicalIndex(1);
    FakeSlice* a = AddSlice(2, 1, 1);
    AddSlice(1, 2, 1);
    AddSlice(1, 1, 2);
    a->documents = 5;
    EXPECT_EQ(ThreadsNamed(kStatsThreadName), 0);
    container_->Start(false);

    SarvaneStatistics first = Read(false);
    using Key = SarvaneStatistics::SliceKey;
    std::vector<Key> keys;
    for (const auto& [key, slice] : first.slices) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<Key>{{1, 1, 2}, {1, 2, 1}, {2, 1, 1}}));
    EXPECT_EQ(Documents(first, {2, 1, 1}), 5u);
    EXPECT_FALSE(first.seen);
    EXPECT_EQ(first.compactionProgress, -1);
    EXPECT_EQ(first.secondValue, -1);
    EXPECT_NE(first.date, Vantu::DateTime::minimum);
    // The thread has run by now, so it shows its name.
    EXPECT_EQ(ThreadsNamed(kStatsThreadName), 1);

    // Every slow read asks every slice once more, even within the cache's freshness.
    const int asked = a->statisticsCalls;
    a->documents = 6;
    SarvaneStatistics second = Read(false);
    EXPECT_EQ(a->statisticsCalls, asked + 1);
    EXPECT_EQ(Documents(second, {2, 1, 1}), 6u);
    EXPECT_FALSE(second.seen);

    // A fast read within the freshness answers the cache as it stands, now seen.
    a->documents = 7;
    SarvaneStatistics fast = Read(true);
    EXPECT_EQ(a->statisticsCalls, asked + 1);
    EXPECT_EQ(Documents(fast, {2, 1, 1}), 6u);
    EXPECT_TRUE(fast.seen);
    EXPECT_EQ(fast.slices, second.slices);

    container_->Stop(false);
    EXPECT_EQ(ThreadsNamed(kStatsThreadName), 0);
    // A stopped container answers its last cache in both modes, without asking the stopped slices.
    const int afterStop = a->statisticsCalls;
    EXPECT_EQ(Read(true).slices, second.slices);
    SarvaneStatistics slow = Read(false);
    EXPECT_EQ(slow.slices, second.slices);
    EXPECT_TRUE(slow.seen);
    EXPECT_EQ(a->statisticsCalls, afterStop);

    // A read-only container has its statistics thread too.
    container_->Start(true);
    EXPECT_EQ(Documents(Read(false), {2, 1, 1}), 7u);
    EXPECT_EQ(ThreadsNamed(kStatsThreadName), 1);
    // Dropping the container ends the thread like a Stop.
    container_ = nullptr;
    EXPECT_EQ(ThreadsNamed(kStatsThreadName), 0);
}

TEST_F(ContainerStatisticsTest, FailingSliceKeepsTheLastCacheIsLoggedAndIsAskedAgain) {
    container_->AddPhysicalIndex(1);
    FakeSlice* good = AddSlice(1, 1, 1);
    FakeSlice* bad = AddSlice(1, 1, 2);
    good->documents = 1;
    container_->Start(false);
    const SarvaneStatistics before = Read(false);

    bad->failStatistics = true;
    good->documents = 2;
    // The slow caller gets the last cache instead of waiting for a refresh that cannot come.
    SarvaneStatistics failed = Read(false);
    EXPECT_EQ(failed.slices, before.slices);
    EXPECT_EQ(failed.date, before.date);
    EXPECT_TRUE(log_->Contains(u" : SarvaneContainer::GetStatistics"));

    // The thread lives on: once the slice answers, so does the cache.
    bad->failStatistics = false;
    EXPECT_EQ(Documents(Read(false), {1, 1, 1}), 2u);
}

TEST_F(ContainerStatisticsTest, DocumentCountComesFromTheURIStoreOfAStartedContainer) {
    container_ = MakeContainer(false, 42);
    EXPECT_THROW(container_->GetNumberOfDocumentsInIndex(), SarIndexNotStarted);
    container_->Start(true);
    EXPECT_EQ(container_->GetNumberOfDocumentsInIndex(), 42u);
    container_->Stop(false);
    EXPECT_THROW(container_->GetNumberOfDocumentsInIndex(), SarIndexNotStarted);
}

// Readers in both modes against Start, Stop and topology changes: every read returns (T2), and no refresh
// ever asks a slice that is stopped or gone. Run under TSan.
TEST_F(ContainerStatisticsTest, ReadsNeverHangAcrossStopsAndTopologyChanges) {
    container_->AddPhysicalIndex(1);
    AddSlice(1, 1, 1);
    std::vector<std::thread> threads;
    for (int reader = 0; reader < 3; ++reader)
        threads.emplace_back([&, reader] {
            for (int i = 0; i < 40; ++i) {
                SarvaneStatistics out;
                container_->GetStatistics(out, (i + reader) % 2 == 0);
                try {
                    container_->GetNumberOfDocumentsInIndex();
                } catch (const SarIndexNotStarted&) {
                }
            }
        });
    threads.emplace_back([&] {
        for (uint16_t i = 2; i < 20; ++i) {
            AddSlice(1, 1, i);
            container_->RemoveSliceIndex(1, 1, i, false);
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; i < 8; ++i) {
            container_->Start(i % 2 == 1);
            container_->Stop(false);
        }
    });
    for (auto& t : threads) t.join();
    EXPECT_FALSE(log_->Contains(u" : SarvaneContainer::GetStatistics")) << ::testing::PrintToString(log_->Texts());
    EXPECT_EQ(ThreadsNamed(kStatsThreadName), 0);
}
