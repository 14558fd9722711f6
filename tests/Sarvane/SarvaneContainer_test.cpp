#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "MessageIdOf.h"
#include "SarvaneContainerFakes.h"

using namespace Ostrel;
using namespace SarvaneTest;

TEST_F(ContainerTest, TopologyErrorsCarryTheirMessages) {
    auto* orphan = new FakeSlice(r_, "orphan");
    EXPECT_EQ(MessageIdOf<SarInvalidPhysicalIndexID>([&] { container_->AddSliceIndex(orphan, 1, 1, 1); }), 19);
    EXPECT_EQ(MessageIdOf<SarInvalidPhysicalIndexID>([&] { container_->RemovePhysicalIndex(1); }), 19);
    container_->AddPhysicalIndex(1);
    AddSlice(1, 1, 1);
    EXPECT_EQ(MessageIdOf<SarInvalidPhysicalIndexID>([&] { container_->RemoveSliceIndex(2, 1, 1, false); }), 19);
    EXPECT_EQ(MessageIdOf<SarInvalidMirrorID>([&] { container_->RemoveSliceIndex(1, 2, 1, false); }), 17);
    EXPECT_EQ(MessageIdOf<SarInvalidSliceID>([&] { container_->RemoveSliceIndex(1, 1, 2, false); }), 20);
    EXPECT_EQ(MessageIdOf<SarInvalidSliceID>([&] { container_->SetSarvaneConfig(1, 1, 9, SarvaneConfig()); }), 20);

    container_->AddCollectionForPhysical(1, 7);
    EXPECT_EQ(MessageIdOf<SarInvalidCollectionID>([&] { container_->AddCollectionForPhysical(1, 7); }), 11);
    EXPECT_EQ(MessageIdOf<SarInvalidCollectionID>([&] { container_->RemoveCollectionForPhysical(1, 8); }), 11);
    EXPECT_EQ(MessageIdOf<SarInvalidCollectionID>([&] { container_->GetAccessControlList(1, 8); }), 11);

    // Adding a physical index that exists keeps its mirrors.
    container_->AddPhysicalIndex(1);
    container_->SetSarvaneConfig(1, 1, 1, SarvaneConfig());
    EXPECT_TRUE(r_.Has("s1.1.1:SetSarvaneConfig 16"));
    EXPECT_FALSE(r_.Has("orphan:deleted"));
    delete orphan;

    // Each failure is logged once, by the public operation it passed through, with that operation's suffix.
    EXPECT_TRUE(log_->Contains(u"The index (id: 1) does not exist. : SarvaneContainer::RemovePhysicalIndex"));
    EXPECT_TRUE(log_->Contains(u"The index (id: 2) does not exist. : SarvaneContainer::RemoveSliceIndex"));
    EXPECT_TRUE(log_->Contains(u" : SarvaneContainer::AddCollectionForPhysical"));
    EXPECT_THROW(container_->Stop(false), SarIndexNotStarted);
    EXPECT_TRUE(log_->Contains(u" : SarvaneContainer::Stop"));
    // Start reports nothing itself: its failure reaches the caller unlogged.
    container_->Start(false);
    const size_t lines = log_->Lines().size();
    EXPECT_THROW(container_->Start(false), SarIndexAlreadyStarted);
    EXPECT_EQ(log_->Lines().size(), lines);
}

TEST_F(ContainerTest, DuplicateSliceIsRefusedBeforeItRunsAndStaysTheCallers) {
    container_->AddPhysicalIndex(1);
    AddSlice(1, 1, 1);
    container_->Start(false);
    FakeSlice duplicate(r_, "dup");
    EXPECT_EQ(MessageIdOf<SarInvalidMirrorID>([&] { container_->AddSliceIndex(&duplicate, 1, 1, 1); }), 29);
    EXPECT_FALSE(duplicate.started);
    EXPECT_FALSE(r_.Has("dup:Start(rw)"));
    // A slice that fails to start is not taken over either.
    FakeSlice failing(r_, "failing");
    failing.failStart = true;
    EXPECT_THROW(container_->AddSliceIndex(&failing, 1, 1, 2), SarIndexReadOnly);
    EXPECT_EQ(MessageIdOf<SarInvalidSliceID>([&] { container_->RemoveSliceIndex(1, 1, 2, false); }), 20);
    container_->Stop(false);
    EXPECT_FALSE(r_.Has("dup:Stop"));
    EXPECT_FALSE(r_.Has("failing:Stop"));
}

TEST_F(ContainerTest, MirrorIsBornWithItsFirstSliceAndGoesWithItsLast) {
    container_->AddPhysicalIndex(1);
    AddSlice(1, 4, 1);
    AddSlice(1, 4, 2);
    container_->RemoveSliceIndex(1, 4, 1, false);
    EXPECT_TRUE(r_.Has("s1.4.1:deleted"));
    EXPECT_FALSE(r_.Has("s1.4.1:DeleteIndex"));
    container_->RemoveSliceIndex(1, 4, 2, true);
    EXPECT_LT(r_.Find("s1.4.2:Stop"), r_.Find("s1.4.2:DeleteIndex"));
    EXPECT_LT(r_.Find("s1.4.2:DeleteIndex"), r_.Find("s1.4.2:deleted"));
    // The mirror is gone, the physical index stays.
    EXPECT_EQ(MessageIdOf<SarInvalidMirrorID>([&] { container_->RemoveSliceIndex(1, 4, 2, false); }), 17);
    AddSlice(1, 4, 2);
    // A removed slice is no target any more.
    r_.Clear();
    container_->Start(true);
    EXPECT_TRUE(r_.Has("s1.4.2:Start(ro)"));
    EXPECT_FALSE(r_.Has("s1.4.1:Start(ro)"));
}

TEST_F(ContainerTest, CollectionsReachEverySliceOfTheIndexAndEachNewcomer) {
    container_->AddPhysicalIndex(1);
    container_->AddPhysicalIndex(2);
    AddSlice(1, 1, 1);
    AddSlice(1, 2, 1);
    AddSlice(2, 1, 1);
    container_->AddCollectionForPhysical(1, 5);
    EXPECT_TRUE(r_.Has("s1.1.1:AddSupportedCollection 5"));
    EXPECT_TRUE(r_.Has("s1.2.1:AddSupportedCollection 5"));
    EXPECT_FALSE(r_.Has("s2.1.1:AddSupportedCollection 5"));
    AddSlice(1, 2, 2);
    EXPECT_LT(r_.Find("s1.2.2:Initialize"), r_.Find("s1.2.2:AddSupportedCollection 5"));
    container_->RemoveCollectionForPhysical(1, 5);
    for (const char* slice : {"s1.1.1", "s1.2.1", "s1.2.2"})
        EXPECT_TRUE(r_.Has(std::string(slice) + ":RemoveSupportedCollection 5")) << slice;
}

TEST_F(ContainerTest, FieldQuestionsFollowMirrorAndSliceOrder) {
    container_->AddPhysicalIndex(1);
    FakeSlice* a = AddSlice(1, 1, 1);
    FakeSlice* b = AddSlice(1, 1, 2);
    FakeSlice* c = AddSlice(1, 2, 1);
    EXPECT_EQ(container_->GetCustomFieldType(1, "size"), 0xFF);
    b->fieldTypes["size"] = 2;
    a->fieldTypes["size"] = 1;
    EXPECT_EQ(container_->GetCustomFieldType(1, "size"), 0xFF);  // the last mirror does not know it
    c->fieldTypes["size"] = 3;
    EXPECT_EQ(container_->GetCustomFieldType(1, "size"), 3);
    a->rankable = true;
    EXPECT_FALSE(container_->IsCustomFieldRankable(1, "size"));
    c->rankable = true;
    EXPECT_TRUE(container_->IsCustomFieldRankable(1, "size"));
    EXPECT_EQ(MessageIdOf<SarInvalidPhysicalIndexID>([&] { container_->GetCustomFieldType(3, "size"); }), 19);

    container_->AddCustomFieldAlias(1, u"Weight", u"SIZE");
    EXPECT_TRUE(r_.Has("s1.1.2:AddFieldAlias weight=size"));
    EXPECT_TRUE(r_.Has("s1.2.1:AddFieldAlias weight=size"));
    std::map<std::u16string, std::u16string> aliases;
    container_->GetCustomFieldAliases(aliases);
    EXPECT_EQ(aliases, (std::map<std::u16string, std::u16string>{{u"weight", u"size"}}));
    container_->ClearCustomFieldAliases(1);
    EXPECT_TRUE(r_.Has("s1.1.1:ClearFieldAliases"));
    container_->GetCustomFieldAliases(aliases);
    EXPECT_TRUE(aliases.empty());
}

TEST_F(ContainerTest, ValidCollectionsFollowAccessListsAndExpandedGroups) {
    container_->AddPhysicalIndex(2);
    container_->AddPhysicalIndex(1);
    for (uint16_t collection : {3, 1}) {
        container_->AddCollectionForPhysical(1, collection);
        container_->AddCollectionForPhysical(2, collection);
    }
    std::vector<std::pair<uint16_t, uint16_t>> out{{9, 9}};
    container_->EnumValidCollectionIDs({u"ann"}, out);
    EXPECT_TRUE(out.empty());

    container_->AddAccessControlEntry(SarcAccessList::AccessType::Allow, u"staff");
    container_->AddAccessControlEntry(1, 3, SarcAccessList::AccessType::Deny, u"ann");
    container_->Start(false);
    container_->EnumValidCollectionIDs({u"ann"}, out);
    using P = std::pair<uint16_t, uint16_t>;
    EXPECT_EQ(out, (std::vector<P>{{1, 1}, {2, 1}, {2, 3}}));
    container_->RemoveAccessControlEntry(1, 3, u"ann");
    container_->ClearAccessControlEntry(2, 1);
    container_->EnumValidCollectionIDs({u"ann"}, out);
    EXPECT_EQ(out, (std::vector<P>{{1, 1}, {1, 3}, {2, 3}}));
    EXPECT_TRUE(container_->GetAccessControlList(2, 1)->Entries().empty());
    container_->EnumValidCollectionIDs({u"bob"}, out);
    EXPECT_TRUE(out.empty());
}

TEST_F(ContainerTest, StartRunsItsStepsInOrderAndStopUndoesThem) {
    container_ = MakeContainer(true);
    container_->AddPhysicalIndex(1);
    AddSlice(1, 1, 1);
    AddSlice(1, 2, 1);
    r_.Clear();
    container_->Start(false);
    EXPECT_TRUE(container_->IsStarted());
    const std::vector<std::string> stores = {"cached copies in " + dir_.Path() + "/index/",
                                             "create folithek", "create netrova", "RecoverShrink", "create uri",
                                             "create security", "uri:Rollback", "security:Rollback",
                                             "folithek:Rollback", "netrova:Rollback"};
    auto events = r_.Events();
    ASSERT_GE(events.size(), stores.size() + 6);
    EXPECT_EQ(std::vector<std::string>(events.begin(), events.begin() + stores.size()), stores);
    // The slices recover, then start, in parallel; the URI store opens its transaction last.
    for (const char* slice : {"s1.1.1", "s1.2.1"}) {
        EXPECT_LT(r_.Find(std::string(slice) + ":DoRecovery(0)"), r_.Find("s1.1.1:Start(rw)"));
        EXPECT_LT(r_.Find(std::string(slice) + ":DoRecovery(0)"), r_.Find("s1.2.1:Start(rw)"));
        EXPECT_LT(r_.Find(std::string(slice) + ":Start(rw)"), r_.Find("uri:RecoveryDone"));
    }
    EXPECT_EQ(events.back(), "uri:BeginTransaction");
    EXPECT_TRUE(std::filesystem::is_directory(dir_ / "index"));

    EXPECT_THROW(container_->Start(false), SarIndexAlreadyStarted);
    EXPECT_THROW(container_->DeleteIndex(), SarIndexAlreadyStarted);

    r_.Clear();
    container_->Stop(false);
    EXPECT_FALSE(container_->IsStarted());
    events = r_.Events();
    ASSERT_EQ(events.size(), 6u);
    EXPECT_EQ(std::vector<std::string>(events.begin() + 2, events.end()),
              (std::vector<std::string>{"release uri", "release security", "release folithek", "release netrova"}));
    EXPECT_THROW(container_->Stop(false), SarIndexNotStarted);

    // A new start is allowed; a slice added to the running container comes up with its readOnly.
    container_->Start(true);
    FakeSlice* late = AddSlice(1, 3, 1);
    EXPECT_TRUE(late->started);
    EXPECT_TRUE(r_.Has("s1.3.1:Start(ro)"));
    EXPECT_FALSE(r_.Has("uri:BeginTransaction"));
}

TEST_F(ContainerTest, RecoveryFinishesACommitPastItsSentry) {
    container_->AddPhysicalIndex(1);
    AddSlice(1, 1, 1);
    std::ofstream(dir_ / "SarcCommit.sentry") << "";
    container_->Start(false);
    EXPECT_TRUE(r_.Has("uri:Commit"));
    EXPECT_TRUE(r_.Has("folithek:Commit"));
    EXPECT_FALSE(r_.Has("uri:Rollback"));
    EXPECT_LT(r_.Find("s1.1.1:DoRecovery(1)"), r_.Find("s1.1.1:Start(rw)"));
    EXPECT_FALSE(std::filesystem::exists(dir_ / "SarcCommit.sentry"));
}

TEST_F(ContainerTest, ReadOnlyStartRefusesAnIndexThatNeedsRecovery) {
    container_->AddPhysicalIndex(1);
    FakeSlice* slice = AddSlice(1, 1, 1);
    std::ofstream(dir_ / "SarcCommit.sentry") << "";
    EXPECT_THROW(container_->Start(true), SarCannotDoRecoveryIndexIsReadOnly);
    EXPECT_FALSE(container_->IsStarted());
    for (const char* store : {"release uri", "release security", "release folithek"}) EXPECT_TRUE(r_.Has(store));
    EXPECT_FALSE(r_.Has("s1.1.1:CheckForRecovery"));
    EXPECT_TRUE(std::filesystem::exists(dir_ / "SarcCommit.sentry"));

    // Without the sentry the slices are asked; one with unfinished work fails like a slice's start: the
    // stores stay and the container counts as started until Stop.
    std::filesystem::remove(dir_ / "SarcCommit.sentry");
    slice->unfinishedWork = true;
    EXPECT_THROW(container_->Start(true), SarCannotDoRecoveryIndexIsReadOnly);
    EXPECT_TRUE(container_->IsStarted());
    EXPECT_FALSE(slice->started);
    container_->Stop(true);
}

TEST_F(ContainerTest, DeleteIndexRemovesSliceAndSharedStoreFiles) {
    container_->AddPhysicalIndex(1);
    AddSlice(1, 1, 1);
    std::filesystem::create_directories(dir_ / "index/Repository.sub");
    for (const char* name : {"Repository.dat", "SarcURI-DocInfo.uri", "SecurityCache-Grp.idx", "Links1.dat",
                             "Keep.txt", "SarcURI-DocInfo"})
        std::ofstream(dir_ / "index/" + name) << "x";
    container_->DeleteIndex();
    EXPECT_LT(r_.Find("s1.1.1:Stop"), r_.Find("s1.1.1:DeleteIndex"));
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(dir_ / "index"))
        left.push_back(entry.path().filename().string());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{"Keep.txt", "Repository.sub", "SarcURI-DocInfo"}));
}

TEST_F(ContainerTest, ContainerConfigurationChangesWhileRunning) {
    SarvaneContainerConfig config;
    container_->GetSarvaneContainerConfig(config);
    EXPECT_EQ(config.GetNumberOfQueryThreads(), 2u);
    container_->Start(false);
    SarvaneContainerConfig bigger(config);
    bigger.SetURICacheSize(1024);
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { container_->SetSarvaneContainerConfig(bigger); }), 12);
    SarvaneContainerConfig allowed(config);
    allowed.SetNumberOfQueryThreads(6);
    allowed.SetMapiProfile(u"other");
    container_->SetSarvaneContainerConfig(allowed);
    EXPECT_TRUE(r_.Has("security:ExpandAllGroupsAgain"));
    container_->GetSarvaneContainerConfig(config);
    EXPECT_TRUE(config == allowed);
    container_->Stop(false);
    container_->SetSarvaneContainerConfig(bigger);  // a stopped container takes any change
}

// Topology changes, questions and Start/Stop from several threads at once; run under TSan.
TEST_F(ContainerTest, ConcurrentTopologyQuestionsAndLifecycle) {
    for (uint16_t physical = 1; physical <= 3; ++physical) {
        container_->AddPhysicalIndex(physical);
        container_->AddCollectionForPhysical(physical, 1);
        AddSlice(physical, 1, 1);
    }
    container_->AddAccessControlEntry(SarcAccessList::AccessType::Allow, u"staff");
    std::vector<std::thread> threads;
    for (uint16_t physical = 1; physical <= 2; ++physical)
        threads.emplace_back([&, physical] {
            for (uint16_t i = 2; i < 30; ++i) {
                AddSlice(physical, i % 3, i);
                container_->AddCollectionForPhysical(physical, i);
                container_->RemoveSliceIndex(physical, i % 3, i, false);
            }
        });
    threads.emplace_back([&] {
        std::vector<std::pair<uint16_t, uint16_t>> out;
        for (int i = 0; i < 200; ++i) {
            // Expanded or not (the container may be stopped), "staff" sees the first collection of each index.
            container_->EnumValidCollectionIDs({u"ann", u"staff"}, out);
            EXPECT_GE(out.size(), 3u);
            container_->GetCustomFieldType(3, "field");
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; i < 10; ++i) {
            container_->Start(i % 2 == 0);
            container_->Stop(false);
        }
    });
    for (auto& t : threads) t.join();
    EXPECT_FALSE(container_->IsStarted());
}

// One mirror of each index answers, the mirrors taking turns; its slices' records merge by the sort key, and the
// range is cut at place 1000; a collection the identities may not read is never asked for.
TEST_F(ContainerTest, QueriesMergeOneMirrorOfEachIndexByTheSortKeyWithinTheRange) {
    container_->AddPhysicalIndex(1);
    container_->AddCollectionForPhysical(1, 1);
    container_->AddCollectionForPhysical(1, 2);
    container_->AddAccessControlEntry(SarcAccessList::AccessType::Allow, u"ann");
    container_->AddAccessControlEntry(1, 2, SarcAccessList::AccessType::Deny, u"ann");
    FakeSlice* first = AddSlice(1, 1, 1);
    FakeSlice* second = AddSlice(1, 1, 2);
    AddSlice(1, 2, 1);
    first->Rank(1, {{1, 90}, {2, 50}, {3, 10}}, Relevance);
    second->Rank(1, {{7, 70}, {8, 50}}, Relevance);
    std::vector<IndexedDocumentWeight> results;
    QueryAnswer answer;
    using Got = std::vector<std::pair<uint32_t, uint32_t>>;
    const auto ask = [&](unsigned from, unsigned count, const SarcIdentity& who = u"ann") {
        container_->PerformQuery(u"river", u"", {who}, {{1, {1, 2}}}, results, from, count, false, true, Relevance,
                                 u"", answer);
        Got got;
        for (const IndexedDocumentWeight& record : results)
            got.emplace_back(record.GetDocument()->documentId, record.GetScore());
        return got;
    };
    const auto asked = [&](const std::string& slice) {
        const auto events = r_.Events();
        return std::count(events.begin(), events.end(), slice + ":PerformQuery");
    };
    ask(0, 10);
    ask(0, 10);
    EXPECT_EQ(asked("s1.1.1"), 1);
    EXPECT_EQ(asked("s1.2.1"), 1);
    container_->RemoveSliceIndex(1, 2, 1, false);

    // Equal scores keep the order of the slices.
    EXPECT_EQ(ask(0, 10), (Got{{1, 90}, {7, 70}, {2, 50}, {8, 50}, {3, 10}}));
    EXPECT_EQ(first->askedCollections, std::vector<uint16_t>{1});  // collection 2 is denied to ann
    EXPECT_EQ(answer.total, 5u);
    EXPECT_EQ(answer.exception.GetText(), "s1.1.2");  // the last slice's
    EXPECT_EQ(ask(1, 2), (Got{{7, 70}, {2, 50}}));
    EXPECT_TRUE(container_->LoadDocument(1, 1, 2, 8, {u"ann"}));
    EXPECT_FALSE(container_->LoadDocument(1, 1, 2, 8, {u"bob"}));  // bob may read no collection
    EXPECT_FALSE(container_->LoadDocument(1, 1, 3, 8, {u"ann"}));

    // Nothing is answered past place 1000.
    Got many;
    for (uint32_t id = 100; id < 1300; ++id) many.emplace_back(id, 2000 - id);
    second->Rank(1, many, Relevance);
    EXPECT_EQ(ask(0, 5000).size(), 1000u);
    EXPECT_EQ(ask(900, 500).size(), 100u);
    // With no collection to read no slice is asked.
    const auto before = asked("s1.1.1");
    EXPECT_TRUE(ask(0, 10, u"bob").empty());
    EXPECT_EQ(answer.seconds, 0.01);
    EXPECT_EQ(asked("s1.1.1"), before);
    first->failQuery = true;
    EXPECT_THROW(ask(0, 10), SarIndexNotStarted);
}

// Each order merges the slices' lists by its own key: dates and indexing order, either way.
TEST_F(ContainerTest, EveryOrderMergesTheSlicesByItsKey) {
    container_->AddPhysicalIndex(1);
    container_->AddCollectionForPhysical(1, 1);
    container_->AddAccessControlEntry(SarcAccessList::AccessType::Allow, u"ann");
    FakeSlice* first = AddSlice(1, 1, 1);
    FakeSlice* second = AddSlice(1, 1, 2);
    for (SortCriteria order : {DocumentDateDescending, DocumentDateAscending, IndexDateDescending, IndexDateAscending}) {
        const bool newest = order == DocumentDateDescending || order == IndexDateDescending;
        first->ranked.clear();
        second->ranked.clear();
        first->Rank(1, newest ? std::vector<std::pair<uint32_t, uint32_t>>{{9, 0}, {4, 0}, {1, 0}}
                              : std::vector<std::pair<uint32_t, uint32_t>>{{1, 0}, {4, 0}, {9, 0}}, order);
        second->Rank(1, newest ? std::vector<std::pair<uint32_t, uint32_t>>{{7, 0}, {2, 0}}
                               : std::vector<std::pair<uint32_t, uint32_t>>{{2, 0}, {7, 0}}, order);
        std::vector<IndexedDocumentWeight> results;
        QueryAnswer answer;
        container_->PerformQuery(u"river", u"", {u"ann"}, {{1, {1}}}, results, 0, 10, false, false, order, u"", answer);
        std::vector<uint32_t> ids;
        for (const IndexedDocumentWeight& record : results) ids.push_back(record.GetDocument()->documentId);
        EXPECT_EQ(ids, newest ? (std::vector<uint32_t>{9, 7, 4, 2, 1}) : (std::vector<uint32_t>{1, 2, 4, 7, 9}))
            << SortCriteriaText(order);
    }
}
