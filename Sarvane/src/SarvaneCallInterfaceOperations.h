// The commands that the container runs on all its slices through the operation pool, one call each.
// Each run gives every target a clone of its own; a command holds only its arguments.
#pragma once

#include "SarOperationPool.h"
#include "SarvaneCallInterface.h"

namespace Ostrel {

// Clones by copying the derived command's arguments.
template <class Derived>
class SarSliceOperation : public SarvaneOperation {
public:
    Vantu::RefCount<SarvaneOperation> Clone() const override {
        return Vantu::RefCount<SarvaneOperation>(new Derived(static_cast<const Derived&>(*this)));
    }
};

class SarStartOperation : public SarSliceOperation<SarStartOperation> {
public:
    explicit SarStartOperation(bool readOnly) : readOnly_(readOnly) {}
    void Execute() override { slice_->Start(readOnly_); }

private:
    bool readOnly_;
};

class SarStopOperation : public SarSliceOperation<SarStopOperation> {
public:
    explicit SarStopOperation(bool abortTransaction) : abortTransaction_(abortTransaction) {}
    void Execute() override { slice_->Stop(abortTransaction_); }

private:
    bool abortTransaction_;
};

class SarDoRecoveryOperation : public SarSliceOperation<SarDoRecoveryOperation> {
public:
    explicit SarDoRecoveryOperation(bool recover) : recover_(recover) {}
    void Execute() override { slice_->DoRecovery(recover_); }

private:
    bool recover_;
};

class SarCheckForRecoveryOperation : public SarSliceOperation<SarCheckForRecoveryOperation> {
public:
    void Execute() override { slice_->CheckForRecovery(); }
};

// A slice's files go only once it is stopped.
class SarDeleteIndexOperation : public SarSliceOperation<SarDeleteIndexOperation> {
public:
    void Execute() override {
        slice_->Stop(false);
        slice_->DeleteIndex();
    }
};

// Runs `operation` on every slice in parallel and raises the first failure in list order.
template <class Operation, class... Args>
void SarRunOnSlices(SarOperationPool& pool, const std::vector<SarvaneCallInterface*>& slices, Args&&... args) {
    pool.Run(Vantu::RefCount<SarvaneOperation>(new Operation(std::forward<Args>(args)...)), slices);
}

}  // namespace Ostrel
