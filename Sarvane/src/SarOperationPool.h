// Runs one command on a list of slices in parallel and raises in the caller the first failure in list order.
// Any thread may call Run, several at once, a worker of the pool included (its nested runs go inline).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/Exception.h"
#include "core/ThreadPool.h"

namespace Ostrel {

class SarvaneCallInterface;

// A command with its arguments, run once per target slice; each target gets a clone of its own.
template <class Slice>
class SarOperationT {
public:
    virtual ~SarOperationT() = default;
    SarOperationT& operator=(const SarOperationT&) = delete;

    // A new operation with the same arguments, for another slice.
    virtual Vantu::RefCount<SarOperationT> Clone() const = 0;
    // Calls the slice; runs on a worker of the pool.
    virtual void Execute() = 0;

    // What Execute threw on its last run, or null.
    const Vantu::BaseException* GetException() const { return exception_.get(); }

    // Runs Execute on `slice` and keeps whatever comes out as an exception of the engine: nothing escapes,
    // so the caller can raise it on its own thread with its exact class.
    void RunOn(Slice* slice);

protected:
    SarOperationT() = default;
    // A copy takes the arguments only: it targets no slice yet and has not failed.
    SarOperationT(const SarOperationT&) {}

    Slice* slice_ = nullptr;

private:
    std::unique_ptr<Vantu::BaseException> exception_;
};

using SarvaneOperation = SarOperationT<SarvaneCallInterface>;

// The exception being handled, as one that can cross threads: an engine or foundation exception keeps its
// class, a standard one becomes a SarException with its text, anything else a SarException with the empty
// message. Call only inside a catch handler.
std::unique_ptr<Vantu::BaseException> SarCurrentException();

class SarOperationPool : public VantuThread::ThreadPool {
public:
    SarOperationPool();

    // Runs a clone of `operation` on every slice but the last and `operation` itself on the last, waits until
    // all have finished, then rethrows the exception of the first failed operation in list order.
    template <class Slice>
    void Run(Vantu::RefCount<SarOperationT<Slice>> operation, const std::vector<Slice*>& slices);

private:
    // Raises the worker limit to the number of slices of a run, up to 20 slices; larger lists share the workers.
    void GrowFor(size_t slices);
    // True on a worker of this pool while it runs an operation: joining there would wait for itself.
    bool RunningOnWorker() const;

    // Marks the calling thread as running an operation of `pool` for one scope.
    class WorkerMark {
    public:
        explicit WorkerMark(const SarOperationPool* pool);
        ~WorkerMark();
        WorkerMark(const WorkerMark&) = delete;
        WorkerMark& operator=(const WorkerMark&) = delete;

    private:
        const SarOperationPool* previous_;
    };
};

template <class Slice>
void SarOperationT<Slice>::RunOn(Slice* slice) {
    slice_ = slice;
    try {
        Execute();
    } catch (...) {
        exception_ = SarCurrentException();
    }
}

template <class Slice>
void SarOperationPool::Run(Vantu::RefCount<SarOperationT<Slice>> operation, const std::vector<Slice*>& slices) {
    if (slices.empty()) return;
    // Clone everything first: a failed clone must not leave functions running on the caller's data.
    std::vector<Vantu::RefCount<SarOperationT<Slice>>> operations;
    operations.reserve(slices.size());
    for (size_t i = 0; i + 1 < slices.size(); ++i) operations.push_back(operation->Clone());
    operations.push_back(std::move(operation));

    if (RunningOnWorker()) {
        for (size_t i = 0; i < slices.size(); ++i) operations[i]->RunOn(slices[i]);
    } else {
        GrowFor(slices.size());
        for (size_t i = 0; i < slices.size(); ++i)
            AddFunction(VantuThread::MakeFunction(
                [this, op = operations[i], slice = slices[i]] {
                    WorkerMark mark(this);
                    op->RunOn(slice);
                }));
        Join(kAll);
    }
    for (const auto& op : operations)
        if (const Vantu::BaseException* failure = op->GetException()) failure->Rethrow();
}

}  // namespace Ostrel
