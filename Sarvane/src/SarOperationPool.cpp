#include "SarOperationPool.h"

#include <algorithm>
#include <exception>

#include "SarException.h"
#include "SarThreads.h"
#include "core/Text.h"

namespace Ostrel {

namespace {

// The pool whose operation the calling thread runs, if any.
thread_local const SarOperationPool* runningPool = nullptr;

constexpr size_t kMaxSlicesToGrow = 20;

}  // namespace

std::unique_ptr<Vantu::BaseException> SarCurrentException() {
    try {
        throw;
    } catch (const Vantu::BaseException& e) {
        return std::unique_ptr<Vantu::BaseException>(e.Clone());
    } catch (const std::exception& e) {
        return std::make_unique<SarException>(Vantu::FromUtf8(e.what()));
    } catch (...) {
        return std::make_unique<SarException>(SarEmptyMessage());
    }
}

SarOperationPool::SarOperationPool() : ThreadPool(kOperationPoolName, 1, VantuThread::Priority::Normal) {}

void SarOperationPool::GrowFor(size_t slices) {
    uint32_t added = 0;
    {
        VantuThread::CriticalSectionLock lock(Section());
        if (ThreadLimit() >= slices || slices > kMaxSlicesToGrow) return;
        const uint32_t limit = static_cast<uint32_t>(slices);
        SetThreadLimit(limit);
        const uint32_t created = NbThreadsCreated();
        if (created < limit) added = std::min(limit - created, NbFunctionsToRun());
    }
    // Workers start outside the section; the functions about to be queued start any others up to the limit.
    if (added > 0) CreateWorkerThreads(added);
}

bool SarOperationPool::RunningOnWorker() const { return runningPool == this; }

SarOperationPool::WorkerMark::WorkerMark(const SarOperationPool* pool) : previous_(runningPool) { runningPool = pool; }

SarOperationPool::WorkerMark::~WorkerMark() { runningPool = previous_; }

}  // namespace Ostrel
