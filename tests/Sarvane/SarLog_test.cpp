#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "RecordingLog.h"
#include "SarException.h"
#include "SarLog.h"
#include "SarOperationPool.h"

using namespace Ostrel;
using SarvaneTest::RecordingLog;
using Vantu::RefCount;
using Vantu::SmartPtr;
using ::testing::ElementsAre;

namespace {

struct FakeSlice {
    SmartPtr<Vantu::LogCallInterface> log;
    std::function<void()> failure;
};

// Adds a document to a fake slice the way a slice's public operation does: under its own suffix.
class AddOperation : public SarOperationT<FakeSlice> {
public:
    RefCount<SarOperationT<FakeSlice>> Clone() const override {
        return RefCount<SarOperationT<FakeSlice>>(new AddOperation(*this));
    }
    void Execute() override { SarLogged(slice_->log, SarvaneSuffix::AddDocument, slice_->failure); }
};

}  // namespace

TEST(SarLog, EachKindOfFailureIsLoggedOnceWithItsSuffixAndRethrownUnchanged) {
    SmartPtr<RecordingLog> log = new RecordingLog;
    EXPECT_EQ(SarLogged(log, SarvaneSuffix::Commit, [] { return 7; }), 7);

    EXPECT_THROW(SarLogged(log, SarvaneSuffix::Commit, [] { throw std::runtime_error("disque plein \xC3\xA9"); }),
                 std::runtime_error);
    EXPECT_THROW(SarLogged(log, SarvaneContainerSuffix::AddDocument,
                           [] { throw SarInvalidCollectionID(SAR_MESSAGE(8, uint16_t(12))); }),
                 SarInvalidCollectionID);
    try {
        SarLogged(log, SarvaneContainerSuffix::UpdateDocumentInformation, [] { throw 42; });
        FAIL() << "no exception";
    } catch (int thrown) {
        EXPECT_EQ(thrown, 42);
    }
    EXPECT_THAT(log->Texts(),
                ElementsAre("disque plein \xC3\xA9 : Sarvane::Commit",
                            "This collection (id: 12) is not supported by the sarvane. : SarvaneContainer::AddDocument",
                            "UNEXPECTED ERROR : SarvaneContainer::UpdateDocumentInfo"));
    for (const RecordingLog::Line& line : log->Lines()) EXPECT_EQ(line.severity, 3);

    // Without a log the failure still goes on.
    EXPECT_THROW(SarLogged(nullptr, SarvaneSuffix::Flush, [] { throw SarIndexReadOnly(); }), SarIndexReadOnly);
    EXPECT_EQ(std::u16string(FileTransactionsReaderSuffix::ApplyTermsOperationsThread),
              u" : FileTransactionsReader::ApplyTermsOperationsThread");
}

TEST(SarLog, AFailureThroughASliceAndTheContainerGivesTwoLinesSliceFirst) {
    SmartPtr<RecordingLog> log = new RecordingLog;
    SarOperationPool pool;
    std::vector<FakeSlice> slices(2, FakeSlice{log, [] {}});
    std::vector<FakeSlice*> targets = {&slices[0], &slices[1]};
    auto addThroughContainer = [&] {
        SarLogged(log, SarvaneContainerSuffix::AddDocument,
                  [&] { pool.Run(RefCount<SarOperationT<FakeSlice>>(new AddOperation), targets); });
    };

    slices[1].failure = [] { throw 42; };
    EXPECT_THROW(addThroughContainer(), SarException);
    EXPECT_THAT(log->Texts(), ElementsAre("UNEXPECTED ERROR : Sarvane::AddDocument", " : SarvaneContainer::AddDocument"));

    log->Clear();
    slices[1].failure = [] { throw SarNoSpaceLeft(SAR_MESSAGE(27)); };
    EXPECT_THROW(addThroughContainer(), SarNoSpaceLeft);
    EXPECT_THAT(log->Texts(), ElementsAre("There is no space left on device. : Sarvane::AddDocument",
                                          "There is no space left on device. : SarvaneContainer::AddDocument"));
}
