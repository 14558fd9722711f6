// A queue of functions run by up to a limit of named worker threads, created when work finds no
// idle worker. Any thread may add and join; subclasses read and raise the limit under Section().
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "core/CriticalSection.h"
#include "core/Function.h"
#include "core/Thread.h"

namespace VantuThread {

class ThreadPool {
public:
    static constexpr uint32_t kAll = 0xFFFFFFFF;

    // `threads` is the worker limit; a limit of 0 still lets one worker run, or nothing queued would.
    ThreadPool(std::string name, uint32_t threads, VantuThread::Priority priority);
    // Runs everything queued, then ends the workers. Must not run on one of the pool's workers.
    virtual ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Queues the function; the answer is its id for Join, never 0 nor kAll.
    uint32_t AddFunction(Vantu::SmartPtr<Function> function);
    // Waits until function `id` has run (at once when it is unknown or done); with kAll, until the
    // queue is empty and no worker runs anything. Not from a worker of this pool, nor under Section().
    void Join(uint32_t id);
    uint32_t NbFunctionsToRun() const;
    // Sets the priority of every worker, present and future.
    void Priority(VantuThread::Priority priority);
    // Starts `n` more workers, whatever the limit.
    void CreateWorkerThreads(uint32_t n);

    // The pool's own lock over the figures below; each accessor also takes it, so a caller that
    // needs two figures to agree holds it around both.
    CriticalSection& Section() const { return section_; }
    uint32_t ThreadLimit() const;
    void SetThreadLimit(uint32_t limit);
    uint32_t NbThreadsCreated() const;
    uint32_t NbIdleThreads() const;
    // Functions that ended by an exception. The worker reports each on stderr and goes on.
    uint32_t NbFailedFunctions() const;
    const std::string& Name() const { return name_; }

private:
    void StartWorker();
    void Work();
    uint32_t NextId();

    const std::string name_;
    mutable CriticalSection section_;
    std::condition_variable_any workQueued_;
    std::condition_variable_any workDone_;
    std::deque<std::pair<uint32_t, Vantu::SmartPtr<Function>>> queue_;
    std::unordered_set<uint32_t> unfinished_;  // queued or running
    std::vector<Vantu::RefCount<Thread>> workers_;
    uint32_t limit_;
    uint32_t idle_ = 0;
    uint32_t running_ = 0;
    uint32_t failed_ = 0;
    uint32_t lastId_ = 0;
    VantuThread::Priority priority_;
    bool stopping_ = false;
};

}  // namespace VantuThread
