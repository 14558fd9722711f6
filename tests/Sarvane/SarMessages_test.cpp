#include <gtest/gtest.h>

#include <map>

#include "SarException.h"
#include "SarMessages.h"
#include "core/Messages.h"

using namespace Ostrel;

namespace {

// The texts as the product documents them; the library's table must match them to the character.
const std::map<int32_t, std::u16string> kExpected = {
    {0, u"Applying transaction: %1"},
    {1, u"Index compaction was canceled."},
    {3, u"Writing the transaction."},
    {4, u"The configuration of the sarvane cannot be changed while the system is running."},
    {5, u"The mirror cannot not be changed in configuration of the sarvane."},
    {6, u"The physical index cannot not be changed in configuration of the sarvane."},
    {7, u"The slice cannot not be changed in configuration of the sarvane."},
    {8, u"This collection (id: %1) is not supported by the sarvane."},
    {9, u"The document was not found: %1"},
    {10, u"A document was added to an invalid index (id: %1). Therefore, it cannot be processed."},
    {11, u"Invalid collection (id: %1). This collection already exists in the index."},
    {12, u"The configuration of the index engine is invalid."},
    {13, u"Invalid field %1."},
    {14, u"User field %1 already exists with a different type in the index."},
    {15, u"Invalid path for the index engine (path: %1)."},
    {16, u"Invalid index version: %1, this version is required: %2."},
    {17, u"Invalid mirror (id: %1). This mirror is not part of the index (id: %2)"},
    {18, u"The multiplier is invalid. It must be smaller than or equal to: %1"},
    {19, u"The index (id: %1) does not exist."},
    {20, u"Invalid slice (id: %1). This slice does not exist for the mirror (id: %2) and index (id: %3)."},
    {21, u"The number of documents to refine is invalid. It must be smaller than or equal to: %1"},
    {22, u"This invalid query cannot be executed: %1"},
    {23, u"There is not enough free space to add documents to the index. At least %1 MB is needed."},
    {24, u"There is not enough free space to compact the index. At least %1 MB is needed."},
    {25, u"There is not enough free space on %1 to compact the index. At least %2 MB is needed."},
    {26, u"There is not enough free space to start the index. At least %1 MB is needed."},
    {27, u"There is no space left on device."},
    {29, u"The slice (id: %1) already exists in this index (id: %2) and mirror (id: %3)."},
    {30, u"There are too many documents in the index. Try using the Compact Index option."},
    {31, u"The index compaction is completed."},
    {32, u"Retrieving files from the previous compaction operation."},
    {33, u"Deleting files from the previous compaction operation and returning to your original index."},
    {34, u"The state of the index is invalid. Proceeding with recovery..."},
    {35, u"The transaction reader is resuming the operations from: %1."},
    {36, u"The state of the transaction writer is invalid. Proceeding with recovery..."},
    {37, u"The state of the transaction writer is invalid. Proceeding with rollback..."},
    {38, u"The state of the transaction reader is invalid. Proceeding with rollback on: %1"},
    {39, u"Compacting the indexes."},
    {40, u"Transaction %1 written. (%2 documents to add; %3 documents to delete)"},
    {41, u"Document cannot be added to the index because its URL is too long (%1)."},
};

}  // namespace

// Runs first in its process: nothing has loaded the table yet, building the message must do it.
TEST(SarMessages, AMessageRendersWithItsParametersWithoutAnyExplicitLoad) {
    EXPECT_EQ(SAR_MESSAGE(8, uint16_t(65535))->GetMsg(), u"This collection (id: 65535) is not supported by the sarvane.");
    EXPECT_EQ(SarInvalidSliceID(SAR_MESSAGE(20, uint16_t(3), uint16_t(2), uint16_t(1))).What(),
              u"Invalid slice (id: 3). This slice does not exist for the mirror (id: 2) and index (id: 1).");
    EXPECT_EQ(SAR_MESSAGE(25, u"/data/index", uint32_t(4000000000u))->GetMsg(),
              u"There is not enough free space on /data/index to compact the index. At least 4000000000 MB is needed.");
    EXPECT_EQ(SAR_MESSAGE(40, std::string("Index-0000000012.trn"), 3, 0)->GetMsg(),
              u"Transaction Index-0000000012.trn written. (3 documents to add; 0 documents to delete)");
}

TEST(SarMessages, EveryTextMatchesAndLanguageOneIsEmpty) {
    ASSERT_EQ(SarMessageTable().size(), kExpected.size());
    for (const auto& [id, text] : kExpected) {
        SCOPED_TRACE(id);
        EXPECT_EQ(SarReadMessage(id), text);
        EXPECT_EQ(VantuMessages::ReadMessage(kSarMessageDomain, id, 0), text);
        EXPECT_EQ(VantuMessages::ReadMessage(kSarMessageDomain, id, 1), u"");
    }
    // Ids 2 and 28 are not part of the table.
    EXPECT_EQ(SarReadMessage(2), u"[SARVANE message 2]");
    EXPECT_EQ(SarReadMessage(28), u"[SARVANE message 28]");
    for (int32_t id : {5, 6, 7}) EXPECT_NE(SarReadMessage(id).find(u"cannot not be changed"), std::u16string::npos);
}

TEST(SarMessages, BlockHoldsOneRecordPerMessageInTheLoadableForm) {
    std::vector<unsigned char> block = SarMessageBlock();
    // Count, then the first record: "SARVANE", id 0, two languages, language 0 present with 24 UTF-16 units.
    const std::vector<unsigned char> head = {40, 0, 0, 0, 7, 0, 0, 0, 'S', 'A', 'R', 'V', 'A', 'N', 'E',
                                             0,  0, 0, 0, 2, 0, 0, 0, 1,   48,  0,   0,   0,   'A'};
    ASSERT_GE(block.size(), head.size());
    EXPECT_TRUE(std::equal(head.begin(), head.end(), block.begin()));
    EXPECT_EQ(block[head.size()], 0);  // high byte of 'A'
    EXPECT_EQ(block.back(), 0);        // language 1 of the last record is absent
    size_t textBytes = 0;
    for (const auto& entry : kExpected) textBytes += entry.second.size() * 2;
    EXPECT_EQ(block.size(), 4 + kExpected.size() * (4 + 7 + 4 + 4 + 1 + 4 + 1) + textBytes);
}

TEST(SarMessages, AnotherModulesInitFreePairKeepsTheEngineTexts) {
    SarReadMessage(12);
    VantuMessages::Init();
    VantuMessages::Free();
    EXPECT_EQ(SarReadMessage(12), u"The configuration of the index engine is invalid.");
}
