// Holds a slice's reader just before it takes its first transaction, until the test releases it, so that what a
// started slice reports before any transaction is applied can be looked at. The test thread only.
#pragma once

#include "core/EventSemaphore.h"
#include "file/FaultInjector.h"

namespace SarvaneTest {

class HeldReader {
public:
    HeldReader() {
        faults_.OnCrashPoint("FileTransactionsReader: applying", 1, [this] { release_.Wait(); });
        faults_.Activate();
    }
    // The reader must be idle by then (a Flush after Release): it may be inside the injector until it is.
    ~HeldReader() {
        release_.Post();
        faults_.Deactivate();
    }
    void Release() { release_.Post(); }

private:
    VantuFile::FaultInjector faults_;
    VantuThread::EventSemaphore release_{true, false};
};

}  // namespace SarvaneTest
