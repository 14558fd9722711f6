#include <gtest/gtest.h>

#include "FileDocIdIndexId.h"
#include "MessageIdOf.h"
#include "SarException.h"
#include "SarvaneInternalConfig.h"
#include "SliceCheck.h"
#include "SliceFiles.h"
#include "TempDir.h"
#include "core/Text.h"
#include "store/BTreeMap.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

Vantu::SmartPtr<FileDocIdIndexId> Open(const std::string& dir, bool readOnly = false) {
    Vantu::SmartPtr<FileDocIdIndexId> map(new FileDocIdIndexId(SliceConfigIn(dir), readOnly));
    map->RecoveryDone();
    return map;
}

void Settle(FileDocIdIndexId& map) {
    map.PreCommit();
    map.Commit();
}

}  // namespace

TEST(FileDocIdIndexId, GivesDenseIdsLooksThemUpAndDeletesSortedBatches) {
    TempDir dir;
    auto map = Open(dir.Path());
    EXPECT_EQ(map->GetCurrentDocId(), 0u);
    for (uint32_t key : {10u, 20u, 30u, 40u, 50u}) map->AddDocument(key);
    EXPECT_EQ(map->GetDocId(30), 2u);
    EXPECT_EQ(map->GetDocId(31), FileDocIdIndexId::kNoDocument);

    Vantu::FastVector<uint32_t> keys{10, 15, 40}, ids;
    map->GetDocIds(keys, ids);
    ASSERT_EQ(ids.size(), 2u);  // an unknown key adds nothing
    EXPECT_EQ(ids[0], 0u);
    EXPECT_EQ(ids[1], 3u);

    std::vector<std::pair<uint32_t, uint16_t>> resolved;
    map->DeleteDocuments({{20, 7}, {25, 7}, {30, 8}, {40, 9}}, resolved);
    EXPECT_EQ(resolved, (std::vector<std::pair<uint32_t, uint16_t>>{{1, 7}, {2, 8}, {3, 9}}));
    EXPECT_EQ(map->GetDocId(40), FileDocIdIndexId::kNoDocument);
    EXPECT_EQ(map->GetDocId(50), 4u);
    // Deleted ids are not given again.
    EXPECT_EQ(map->AddDocument(60), 5u);
}

TEST(FileDocIdIndexId, TheCounterLivesInTheTreeAndRollsBackWithIt) {
    TempDir dir;
    {
        auto map = Open(dir.Path());
        map->AddDocument(1);
        map->AddDocument(2);
        Settle(*map);
        map->AddDocument(3);  // never committed
        map->PreCommit();
        map->Rollback();
        map->RecoveryDone();
        EXPECT_EQ(map->GetCurrentDocId(), 2u);
        EXPECT_EQ(map->GetDocId(3), FileDocIdIndexId::kNoDocument);
    }
    // The counter is the record under 0xFFFFFFFF, and nothing else counts.
    VantuBTree::BTreeMap<uint32_t, uint32_t> tree(dir / FileDocIdIndexId::kFileName, 0x10000, 0x10000, true);
    ASSERT_NE(tree.Find(0xFFFFFFFF), tree.end());
    EXPECT_EQ(tree.Find(0xFFFFFFFF)->second, 2u);
    EXPECT_EQ(tree.GetRecordCount(), 3u);

    auto reopened = Open(dir.Path(), true);
    EXPECT_EQ(reopened->GetCurrentDocId(), 2u);
    EXPECT_EQ(reopened->GetDocId(2), 1u);
    ExpectSliceSound(dir.Path());
}

TEST(FileDocIdIndexId, TheLastIdIsAcceptedAndTheNextAddRaisesMessage30) {
    TempDir dir;
    {
        VantuBTree::BTreeMap<uint32_t, uint32_t> tree(dir / FileDocIdIndexId::kFileName, 0x10000, 0x10000);
        tree.Insert(0xFFFFFFFF, 0xFFFFFE);
        tree.PreCommit();
        tree.Commit();
    }
    auto map = Open(dir.Path());
    EXPECT_EQ(map->AddDocument(7), 0xFFFFFEu);
    EXPECT_EQ(MessageIdOf<SarTooManyDocuments>([&] { map->AddDocument(8); }), 30);
    EXPECT_EQ(map->GetDocId(8), FileDocIdIndexId::kNoDocument);
    EXPECT_EQ(map->GetCurrentDocId(), 0xFFFFFFu);
}
