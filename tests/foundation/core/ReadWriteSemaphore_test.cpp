#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "core/ReadWriteSemaphore.h"

using namespace VantuThread;

TEST(ReadWriteSemaphore, WriterRetakesReadAndWriteReaderRetakesRead) {
    ReadWriteSemaphore rw;
    rw.WriteLock();
    rw.ReadLock();  // returns at once for the writer
    rw.WriteLock();
    rw.ReadLock();
    rw.ReadUnlock();
    rw.WriteUnlock();
    rw.ReadUnlock();
    rw.WriteUnlock();
    std::thread([&] { WriteLocker other(rw); }).join();  // fully released

    rw.ReadLock();
    rw.ReadLock();
    std::thread([&] { ReadLocker other(rw); }).join();  // readers share
    rw.ReadUnlock();
    rw.ReadUnlock();
    std::thread([&] { WriteLocker other(rw); }).join();
}

TEST(ReadWriteSemaphore, WritersExcludeEveryoneUnderContention) {
    ReadWriteSemaphore rw;
    std::atomic<int> readers{0}, writers{0}, violations{0};
    long a = 0, b = 0;  // written together by writers, checked by readers
    auto reader = [&] {
        for (int i = 0; i < 2000; ++i) {
            ReadLocker lock(rw);
            ++readers;
            if (writers.load() != 0) ++violations;
            {
                ReadLocker again(rw);
                if (a != b) ++violations;
            }
            --readers;
        }
    };
    auto writer = [&] {
        for (int i = 0; i < 500; ++i) {
            WriteLocker lock(rw);
            if (writers.fetch_add(1) != 0 || readers.load() != 0) ++violations;
            ++a;
            {
                ReadLocker read(rw);
                WriteLocker nested(rw);
                ++b;
            }
            --writers;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) threads.emplace_back(reader);
    for (int i = 0; i < 2; ++i) threads.emplace_back(writer);
    for (auto& t : threads) t.join();
    EXPECT_EQ(violations.load(), 0);
    EXPECT_EQ(a, 1000);
    EXPECT_EQ(b, 1000);
}
