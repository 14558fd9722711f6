#include <gtest/gtest.h>

#include <pthread.h>

#include "SarOperationPool.h"
#include "SarThreads.h"

using namespace Ostrel;

namespace {

std::string CurrentThreadName() {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

}  // namespace

TEST(SarThreads, EngineThreadsAndPoolWorkersCarryTheirNamesCutTo15Bytes) {
    std::string seen;
    {
        auto thread = SarStartThread(kTransactionThreadName, VantuThread::MakeFunction([&] { seen = CurrentThreadName(); }),
                                     VantuThread::Priority::BelowNormal);
    }  // the last reference waits for the end
    EXPECT_EQ(seen, "Sarc: Transacti");

    struct Slice {
        std::string name;
    } slice;
    struct NameOperation : SarOperationT<Slice> {
        Vantu::RefCount<SarOperationT<Slice>> Clone() const override {
            return Vantu::RefCount<SarOperationT<Slice>>(new NameOperation(*this));
        }
        void Execute() override { slice_->name = CurrentThreadName(); }
    };
    SarOperationPool pool;
    pool.Run(Vantu::RefCount<SarOperationT<Slice>>(new NameOperation), std::vector<Slice*>{&slice});
    EXPECT_EQ(slice.name, "SarOperationPoo");
}
