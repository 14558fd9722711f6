#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <sys/resource.h>

#include "core/EventSemaphore.h"
#include "core/ThreadPool.h"

using namespace VantuThread;

namespace {

// Counts how many functions run at once, and lets them finish only when the gate opens.
struct Gate {
    EventSemaphore open{true, false};
    std::atomic<int> running{0}, most{0}, done{0};

    Vantu::SmartPtr<Function> Blocked() {
        return MakeFunction([this] {
            int now = ++running;
            for (int seen = most.load(); now > seen && !most.compare_exchange_weak(seen, now);) {}
            open.Wait();
            --running;
            ++done;
        });
    }
};

class Counter {
public:
    void* Add(void* amount) {
        total += *static_cast<int*>(amount);
        return nullptr;
    }
    std::atomic<int> total{0};
};

}  // namespace

TEST(ThreadPool, JoinAllOnAnIdlePoolReturnsAtOnce) {
    ThreadPool pool("idle", 2, Priority::Normal);
    pool.Join(ThreadPool::kAll);
    pool.Join(12345);  // unknown id
    EXPECT_EQ(pool.NbThreadsCreated(), 0u);
}

TEST(ThreadPool, WorkersAreCreatedOnNeedUpToTheLimit) {
    Gate gate;
    ThreadPool pool("limited", 2, Priority::Normal);
    uint32_t first = pool.AddFunction(gate.Blocked());
    for (int i = 0; i < 5; ++i) pool.AddFunction(gate.Blocked());
    EXPECT_EQ(pool.NbThreadsCreated(), 2u);
    gate.open.Post();
    pool.Join(first);
    pool.Join(ThreadPool::kAll);
    EXPECT_EQ(gate.done.load(), 6);
    EXPECT_LE(gate.most.load(), 2);
    EXPECT_EQ(pool.NbFunctionsToRun(), 0u);
}

TEST(ThreadPool, SubclassRaisesTheLimitAndAddsWorkers) {
    Gate gate;
    std::latch allStarted(3);
    ThreadPool pool("growing", 1, Priority::BelowNormal);
    for (int i = 0; i < 3; ++i)
        pool.AddFunction(MakeFunction([&] {
            allStarted.count_down();
            gate.open.Wait();
        }));
    EXPECT_EQ(pool.NbThreadsCreated(), 1u);
    {
        CriticalSectionLock lock(pool.Section());
        pool.SetThreadLimit(3);
        pool.CreateWorkerThreads(pool.ThreadLimit() - pool.NbThreadsCreated());
    }
    allStarted.wait();  // all three run at once
    gate.open.Post();
    pool.Join(ThreadPool::kAll);
    EXPECT_EQ(pool.NbThreadsCreated(), 3u);
    EXPECT_EQ(pool.NbIdleThreads(), 3u);

    pool.Priority(Priority::Lowest);  // reaches the workers already running
    std::atomic<int> lowest{0};
    for (int i = 0; i < 3; ++i)
        pool.AddFunction(MakeFunction([&] {
            if (getpriority(PRIO_PROCESS, ThisThread::Id()) >= 10) ++lowest;
        }));
    pool.Join(ThreadPool::kAll);
    EXPECT_EQ(lowest.load(), 3);
}

TEST(ThreadPool, AFailingFunctionIsCountedAndTheWorkerGoesOn) {
    Counter counter;
    int two = 2;
    {
        ThreadPool pool("failing", 0, Priority::Normal);  // a limit of 0 still runs its queue
        pool.AddFunction(MakeFunction([] { throw std::runtime_error("boom"); }));
        pool.AddFunction(MakeFunction(&counter, &Counter::Add, &two));
        Vantu::RefCount<Counter> held(new Counter);
        pool.Join(pool.AddFunction(MakeFunction(held, &Counter::Add, &two)));
        EXPECT_EQ(held->total.load(), 2);
        EXPECT_EQ(pool.NbFailedFunctions(), 1u);
        EXPECT_EQ(pool.NbThreadsCreated(), 1u);
        for (int i = 0; i < 4; ++i) pool.AddFunction(MakeFunction(&counter, &Counter::Add, &two));
    }  // the destructor runs what is still queued
    EXPECT_EQ(counter.total.load(), 10);
}
