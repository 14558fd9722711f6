#include "core/ThreadPool.h"

#include <algorithm>
#include <mutex>

namespace VantuThread {

ThreadPool::ThreadPool(std::string name, uint32_t threads, VantuThread::Priority priority)
    : name_(std::move(name)), limit_(threads), priority_(priority) {}

ThreadPool::~ThreadPool() {
    std::vector<Vantu::RefCount<Thread>> workers;
    {
        std::unique_lock lock(section_);
        workDone_.wait(lock, [this] { return queue_.empty() && running_ == 0; });
        stopping_ = true;
        workQueued_.notify_all();
        workers.swap(workers_);
    }
    workers.clear();  // each release waits for its worker's end
}

uint32_t ThreadPool::NextId() {
    do {
        ++lastId_;
    } while (lastId_ == 0 || lastId_ == kAll || unfinished_.count(lastId_));
    return lastId_;
}

uint32_t ThreadPool::AddFunction(Vantu::SmartPtr<Function> function) {
    CriticalSectionLock lock(section_);
    uint32_t id = NextId();
    queue_.emplace_back(id, std::move(function));
    unfinished_.insert(id);
    if (queue_.size() > idle_ && workers_.size() < std::max<uint32_t>(limit_, 1)) StartWorker();
    workQueued_.notify_one();
    return id;
}

void ThreadPool::Join(uint32_t id) {
    std::unique_lock lock(section_);
    if (id == kAll)
        workDone_.wait(lock, [this] { return queue_.empty() && running_ == 0; });
    else
        workDone_.wait(lock, [this, id] { return unfinished_.count(id) == 0; });
}

uint32_t ThreadPool::NbFunctionsToRun() const {
    CriticalSectionLock lock(section_);
    return uint32_t(queue_.size());
}

void ThreadPool::Priority(VantuThread::Priority priority) {
    CriticalSectionLock lock(section_);
    priority_ = priority;
    for (auto& worker : workers_) worker->SetPriority(priority);
}

void ThreadPool::CreateWorkerThreads(uint32_t n) {
    CriticalSectionLock lock(section_);
    while (n-- > 0) StartWorker();
}

uint32_t ThreadPool::ThreadLimit() const {
    CriticalSectionLock lock(section_);
    return limit_;
}

void ThreadPool::SetThreadLimit(uint32_t limit) {
    CriticalSectionLock lock(section_);
    limit_ = limit;
}

uint32_t ThreadPool::NbThreadsCreated() const {
    CriticalSectionLock lock(section_);
    return uint32_t(workers_.size());
}

uint32_t ThreadPool::NbIdleThreads() const {
    CriticalSectionLock lock(section_);
    return idle_;
}

uint32_t ThreadPool::NbFailedFunctions() const {
    CriticalSectionLock lock(section_);
    return failed_;
}

// Under section_.
void ThreadPool::StartWorker() {
    Vantu::RefCount<Thread> worker(new Thread(name_, MakeFunction([this] { Work(); })));
    worker->SetPriority(priority_);
    worker->Run();
    workers_.push_back(std::move(worker));
}

void ThreadPool::Work() {
    std::unique_lock lock(section_);
    for (;;) {
        ++idle_;
        workQueued_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        --idle_;
        if (queue_.empty()) return;  // stopping, and nothing is left to run
        auto [id, function] = std::move(queue_.front());
        queue_.pop_front();
        ++running_;
        lock.unlock();
        try {
            if (function) function->Call();
        } catch (...) {
            ReportFailure("ThreadPool \"" + name_ + "\"", std::current_exception());
            lock.lock();
            ++failed_;
            lock.unlock();
        }
        function = nullptr;  // drop what the function holds before anyone learns it is done
        lock.lock();
        --running_;
        unfinished_.erase(id);
        workDone_.notify_all();
    }
}

}  // namespace VantuThread
