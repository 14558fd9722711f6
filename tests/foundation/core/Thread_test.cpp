#include <gtest/gtest.h>

#include <atomic>
#include <pthread.h>
#include <sys/resource.h>
#include <thread>

#include "core/CoreMessages.h"
#include "core/CriticalSection.h"
#include "core/EventSemaphore.h"
#include "core/SystemError.h"
#include "core/Thread.h"

using namespace VantuThread;
using Vantu::RefCount;

TEST(Thread, ReleasingTheLastReferenceFromAnotherThreadWaitsForTheFunction) {
    EventSemaphore go(true, false);
    std::atomic<bool> returned{false};
    RefCount<Thread> thread(new Thread("waiter", MakeFunction([&] {
        go.Wait();
        returned = true;
    })));
    thread->Run();

    EventSemaphore aboutToDrop(true, false);
    std::thread dropper([&, last = std::move(thread)]() mutable {
        aboutToDrop.Post();
        last = nullptr;
        EXPECT_TRUE(returned.load());
    });
    aboutToDrop.Wait();
    go.Post();
    dropper.join();
}

TEST(Thread, NeverStartedAndSelfReleasedThreadsDoNotWait) {  // T5
    { RefCount<Thread> idle(new Thread("idle", MakeFunction([] { FAIL(); }))); }

    RefCount<Thread> slot;
    EventSemaphore go(true, false), dropped(true, false);
    RefCount<Thread> thread(new Thread("self", MakeFunction([&] {
        go.Wait();
        slot = nullptr;  // the last reference: the thread cannot join itself
        dropped.Post();
    })));
    slot = thread;
    thread->Run();
    thread = nullptr;
    go.Post();
    EXPECT_EQ(dropped.Wait(), WaitResult::Signalled);
}

TEST(Thread, NameIsCutTo15BytesAndPriorityAppliesAtStart) {
    char name[32] = {};
    int nice = 0;
    ThreadId id = 0;
    RefCount<Thread> thread(new Thread("Sarc: TransactionThread", MakeFunction([&] {
        pthread_getname_np(pthread_self(), name, sizeof name);
        nice = getpriority(PRIO_PROCESS, ThisThread::Id());
        id = ThisThread::Id();
    })));
    thread->SetPriority(Priority::Lowest);
    EXPECT_EQ(thread->Id(), 0);
    thread->Run();
    EXPECT_THROW(thread->Run(), ThreadException);
    thread = nullptr;
    EXPECT_STREQ(name, "Sarc: Transacti");
    EXPECT_GE(nice, 10);
    EXPECT_NE(id, 0);
}

TEST(Thread, ThrowLastErrorCarriesTheErrorNumber) {
    try {
        ThrowLastError(ENOENT);
        FAIL();
    } catch (const SystemException& e) {
        EXPECT_EQ(e.GetMessageInfo()->Id(), Vantu::kSystemErrorMessage);
        EXPECT_EQ(e.GetMessageInfo()->Params().at(0), u"2");
        EXPECT_EQ(e.WhatUtf8(), "System error 2: No such file or directory.");
    }
}

TEST(EventSemaphore, AutoResetReleasesOneWaitManualResetStaysSet) {
    EventSemaphore autoEvent(false, true);
    EXPECT_EQ(autoEvent.Wait(0), WaitResult::Signalled);
    EXPECT_EQ(autoEvent.Wait(0), WaitResult::TimedOut);
    autoEvent.Post();
    autoEvent.Post();
    EXPECT_EQ(autoEvent.Wait(5), WaitResult::Signalled);
    EXPECT_EQ(autoEvent.Wait(0), WaitResult::TimedOut);

    EventSemaphore manual(true, false);
    EXPECT_EQ(manual.Wait(1), WaitResult::TimedOut);
    std::thread poster([&] { manual.Post(); });
    EXPECT_EQ(manual.Wait(), WaitResult::Signalled);
    EXPECT_EQ(manual.Wait(0), WaitResult::Signalled);
    poster.join();
    manual.Reset();
    EXPECT_EQ(manual.Wait(0), WaitResult::TimedOut);
}

TEST(CriticalSection, OwnerReentersOthersCannotTryEnter) {
    CriticalSection section;
    CriticalSectionLock outer(section);
    EXPECT_TRUE(section.TryEnter());
    section.Leave();
    bool taken = true;
    std::thread other([&] { taken = section.TryEnter(); });
    other.join();
    EXPECT_FALSE(taken);
}
