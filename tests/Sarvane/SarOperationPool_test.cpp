#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "SarException.h"
#include "SarOperationPool.h"

using namespace Ostrel;
using Vantu::RefCount;

namespace {

// A slice that records the operations run on it and then does what the test asks.
struct FakeSlice {
    std::function<void()> action = [] {};
    std::atomic<int> runs{0};
    std::atomic<const void*> lastOperation{nullptr};
};

using Operation = SarOperationT<FakeSlice>;

class CallOperation : public Operation {
public:
    RefCount<Operation> Clone() const override { return RefCount<Operation>(new CallOperation(*this)); }
    void Execute() override {
        slice_->lastOperation = this;
        ++slice_->runs;
        slice_->action();
    }
};

RefCount<Operation> NewCall() { return RefCount<Operation>(new CallOperation); }

std::vector<FakeSlice*> Targets(std::vector<FakeSlice>& slices) {
    std::vector<FakeSlice*> targets;
    for (FakeSlice& slice : slices) targets.push_back(&slice);
    return targets;
}

// Waits until `done` holds, for a bounded time so that a broken pool fails instead of hanging.
void WaitFor(std::mutex& mutex, std::condition_variable& changed, const std::function<bool()>& done) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, std::chrono::seconds(20), done);
}

}  // namespace

TEST(SarOperationPool, FirstFailureInListOrderReachesTheCallerAfterEverySliceFinished) {
    SarOperationPool pool;
    std::vector<FakeSlice> slices(3);
    std::mutex mutex;
    std::condition_variable changed;
    int finished = 0;
    auto finish = [&] {
        std::lock_guard lock(mutex);
        ++finished;
        changed.notify_all();
    };
    slices[0].action = finish;
    // The 2nd fails only after the 3rd has failed: list order wins over time order.
    slices[1].action = [&] {
        WaitFor(mutex, changed, [&] { return finished == 2; });
        finish();
        throw SarInvalidSliceID(SAR_MESSAGE(20, uint16_t(2), uint16_t(1), uint16_t(0)));
    };
    slices[2].action = [&] {
        finish();
        throw SarIndexReadOnly();
    };
    RefCount<Operation> operation = NewCall();
    try {
        pool.Run(operation, Targets(slices));
        FAIL() << "no exception";
    } catch (const SarInvalidSliceID& e) {
        EXPECT_EQ(e.What(), u"Invalid slice (id: 2). This slice does not exist for the mirror (id: 1) and index (id: 0).");
        std::lock_guard lock(mutex);
        EXPECT_EQ(finished, 3);
    }
    // Each target ran once, the last one on the caller's own operation and the others on clones.
    EXPECT_EQ(slices[2].lastOperation.load(), operation.Get());
    EXPECT_NE(slices[0].lastOperation.load(), operation.Get());
    EXPECT_NE(slices[0].lastOperation.load(), slices[1].lastOperation.load());
    for (const FakeSlice& slice : slices) EXPECT_EQ(slice.runs, 1);
    EXPECT_EQ(pool.ThreadLimit(), 3u);
}

TEST(SarOperationPool, EveryKindOfThrownObjectArrivesAsAnEngineExceptionOfItsClass) {
    SarOperationPool pool;
    std::vector<FakeSlice> slices(1);
    slices[0].action = [] { throw SarIndexReadOnly(); };
    EXPECT_THROW(pool.Run(NewCall(), Targets(slices)), SarIndexReadOnly);

    slices[0].action = [] { throw std::runtime_error("disque plein \xC3\xA9"); };
    try {
        pool.Run(NewCall(), Targets(slices));
        FAIL() << "no exception";
    } catch (const SarException& e) {
        EXPECT_EQ(typeid(e), typeid(SarException));
        EXPECT_EQ(e.What(), u"disque plein \u00e9");
    }

    slices[0].action = [] { throw 42; };
    try {
        pool.Run(NewCall(), Targets(slices));
        FAIL() << "no exception";
    } catch (const SarException& e) {
        EXPECT_EQ(typeid(e), typeid(SarException));
        EXPECT_EQ(e.GetMessageInfo().Get(), SarEmptyMessage().Get());
    }
    EXPECT_EQ(pool.NbFailedFunctions(), 0u);  // nothing ever leaves a worker
}

TEST(SarOperationPool, EmptyListTouchesNothingAndLongListsShareTheWorkers) {
    SarOperationPool pool;
    pool.Run(NewCall(), std::vector<FakeSlice*>{});
    EXPECT_EQ(pool.NbThreadsCreated(), 0u);
    EXPECT_EQ(pool.ThreadLimit(), 1u);

    std::vector<FakeSlice> slices(21);
    pool.Run(NewCall(), Targets(slices));
    EXPECT_EQ(pool.ThreadLimit(), 1u);
    EXPECT_EQ(pool.NbThreadsCreated(), 1u);
    for (const FakeSlice& slice : slices) EXPECT_EQ(slice.runs, 1);

    std::vector<FakeSlice> twenty(20);
    pool.Run(NewCall(), Targets(twenty));
    EXPECT_EQ(pool.ThreadLimit(), 20u);
    EXPECT_LE(pool.NbThreadsCreated(), 20u);
    for (const FakeSlice& slice : twenty) EXPECT_EQ(slice.runs, 1);
}

TEST(SarOperationPool, ConcurrentCallersEachGetTheirOwnOutcome) {
    SarOperationPool pool;
    static constexpr int kRounds = 50;
    auto caller = [&pool](const char* name, int* failures) {
        std::vector<FakeSlice> slices(3);
        slices[1].action = [name] { throw std::runtime_error(name); };
        for (int round = 0; round < kRounds; ++round) {
            try {
                pool.Run(NewCall(), Targets(slices));
            } catch (const SarException& e) {
                if (e.WhatUtf8() == name) ++*failures;
            }
        }
        for (const FakeSlice& slice : slices) EXPECT_EQ(slice.runs, kRounds);
    };
    int failuresA = 0, failuresB = 0;
    std::thread a(caller, "A", &failuresA);
    std::thread b(caller, "B", &failuresB);
    a.join();
    b.join();
    EXPECT_EQ(failuresA, kRounds);
    EXPECT_EQ(failuresB, kRounds);
}

TEST(SarOperationPool, RunFromInsideAnOperationRunsInlineAndPassesItsFailureOut) {
    SarOperationPool pool;
    std::vector<FakeSlice> inner(3);
    inner[1].action = [] { throw SarTooManyDocuments(SAR_MESSAGE(30)); };
    std::vector<FakeSlice> outer(2);
    outer[0].action = [&] { pool.Run(NewCall(), Targets(inner)); };
    EXPECT_THROW(pool.Run(NewCall(), Targets(outer)), SarTooManyDocuments);
    for (const FakeSlice& slice : inner) EXPECT_EQ(slice.runs, 1);
    EXPECT_EQ(outer[1].runs, 1);
}
