#include "FileDocIDList.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "CrashHarness.h"
#include "FileCollections.h"
#include "FileSmallTerms.h"
#include "SliceFiles.h"
#include "SliceCheck.h"
#include "TempDir.h"
#include "core/Text.h"
#include "file/FileSystem.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

using Record = FileDocIDList::IndexFileStruct;
using Ids = Vantu::FastVector<unsigned int>;
using Collections = Vantu::SmartPtr<FileCollections>;

Collections OpenCollections(const std::string& dir) {
    Collections store(new FileCollections(SliceConfigIn(dir), false));
    store->RecoveryDone();
    return store;
}

Record RecordOf(const std::string& dir, const std::string& name, uint32_t listId) {
    const std::string cix = FileBytes(dir + "/" + name + ".cix");
    Record record;
    if (cix.size() >= (listId + 1) * FileDocIDList::kRecordSize)
        record.Decode(reinterpret_cast<const uint8_t*>(cix.data()) + listId * FileDocIDList::kRecordSize);
    return record;
}

std::vector<unsigned int> Members(const VantuAlgo::BitVector& vector) {
    std::vector<unsigned int> ids;
    for (unsigned int i = 0; i < vector.size(); ++i)
        if (vector[i]) ids.push_back(i);
    return ids;
}

std::vector<unsigned int> DocumentsOf(const FileCollections& store, Vantu::FastVector<unsigned short> collections) {
    VantuAlgo::BitVector documents;
    store.GetValidDocuments(collections, documents);
    return Members(documents);
}

// One committed transaction: each (document, collection) added, then each one deleted.
void Commit(FileCollections& store, const std::vector<std::pair<unsigned, unsigned short>>& added,
            const std::vector<std::pair<unsigned, unsigned short>>& deleted = {}) {
    store.BeginTransaction();
    for (auto [document, collection] : added) store.AddDocument(document, collection);
    for (auto [document, collection] : deleted) store.DeleteDocument(document, collection);
    store.PreCommit(false);
    store.Commit(false);
}

// Bytes of the delta record that adds `ids`.
uint32_t DeltaSize(const Ids& ids) {
    VantuFile::MemoryBuffer memory(64);
    VantuCompression::BitsReaderWriter bits(&memory);
    VantuCompression::EliasDeltaCodes().Compress(ids, true, bits, 0);
    return uint32_t(1 + memory.DataSize());
}

// Consecutive documents from `first` whose delta record is `size` bytes.
Ids AdditionsOfSize(unsigned int first, uint32_t size) {
    Ids ids;
    while (ids.empty() || DeltaSize(ids) < size) ids.push_back(first + unsigned(ids.size()));
    EXPECT_EQ(DeltaSize(ids), size);
    return ids;
}

}  // namespace

TEST(FileDocIDList, DeltasReadBackAsTheUnionWithTheLaterRemovalWinningAndTheLastRemovalFreesTheBlock) {
    TempDir dir;
    Collections store = OpenCollections(dir.Path());
    Commit(*store, {{1, 2}, {5, 2}, {9, 2}});
    const Record first = RecordOf(dir.Path(), "Collections", 2);
    EXPECT_EQ(first.allocatedSize, FileDocIDList::kMinimumAllocation);
    EXPECT_EQ(DocumentsOf(*store, {2}), (std::vector<unsigned>{1, 5, 9}));  // now cached

    Commit(*store, {{20, 2}, {3, 2}});
    Commit(*store, {{30, 2}}, {{5, 2}, {30, 2}});
    const Record grown = RecordOf(dir.Path(), "Collections", 2);
    EXPECT_EQ(grown.blockStart, first.blockStart) << "a delta that fits is appended";
    EXPECT_GT(grown.blockEnd, first.blockEnd);
    EXPECT_EQ(grown.maxDocId, 30u);
    EXPECT_EQ(DocumentsOf(*store, {2}), (std::vector<unsigned>{1, 3, 9, 20}));
    EXPECT_EQ(DocumentsOf(*OpenCollections(dir.Path()), {2}), (std::vector<unsigned>{1, 3, 9, 20}));

    // Removing every document gives the fresh record back and the whole file to the free list.
    Commit(*store, {}, {{1, 2}, {3, 2}, {9, 2}, {20, 2}});
    EXPECT_EQ(RecordOf(dir.Path(), "Collections", 2), Record());
    EXPECT_TRUE(DocumentsOf(*store, {2}).empty());
    std::string pty = FileBytes(dir / "Collections.pty");
    EXPECT_EQ(pty, std::string("\x01\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF", 12));
    Commit(*store, {{7, 4}});
    EXPECT_EQ(RecordOf(dir.Path(), "Collections", 4).blockStart, 0u) << "the freed place is used again";
    ExpectSliceSound(dir.Path());
}

TEST(FileDocIDList, TheDeltaThatExactlyFitsIsAppendedAndOneByteMoreRewritesTheList) {
    for (uint32_t extra : {0u, 1u}) {
        TempDir dir;
        Collections store = OpenCollections(dir.Path());
        Commit(*store, {{0, 0}, {100, 0}});
        const Record before = RecordOf(dir.Path(), "Collections", 0);
        const uint32_t room = before.allocatedSize - (before.blockEnd - before.blockStart);
        const Ids additions = AdditionsOfSize(1000, room + extra);
        store->BeginTransaction();
        for (unsigned id : additions) store->AddDocument(id, 0);
        store->PreCommit(false);
        store->Commit(false);

        const Record after = RecordOf(dir.Path(), "Collections", 0);
        if (extra == 0) {
            EXPECT_EQ(after.blockStart, before.blockStart);
            EXPECT_EQ(after.blockEnd, before.blockStart + before.allocatedSize) << "the block is full";
        } else {
            EXPECT_EQ(after.blockStart, before.blockStart + before.allocatedSize) << "the old place is busy until then";
            EXPECT_LT(after.blockEnd - after.blockStart, room) << "the list is one vector again";
            EXPECT_EQ(after.allocatedSize, FileDocIDList::kMinimumAllocation);
        }
        std::vector<unsigned> expected{0, 100};
        expected.insert(expected.end(), additions.begin(), additions.end());
        EXPECT_EQ(DocumentsOf(*OpenCollections(dir.Path()), {0}), expected) << "extra " << extra;
    }
}

TEST(FileDocIDList, ListsBelowAUsedOneGetFreshRecordsAndTheCountComesFromTheIndexFile) {
    TempDir dir;
    {
        Vantu::SmartPtr<FileSmallTerms> terms(new FileSmallTerms(SliceConfigIn(dir.Path()), false));
        terms->RecoveryDone();
        terms->BeginTransaction();
        terms->AddDocuments(FileSmallTerms::kFirstSmallTerm + 5, {4, 8});
        EXPECT_EQ(terms->GetMaxListID(), 6u) << "the running transaction counts";
        EXPECT_THROW(terms->AddDocuments(FileSmallTerms::kFirstSmallTerm + 5, {9}), Vantu::Exception);
        terms->PreCommit(false);
        terms->Commit(false);
        EXPECT_EQ(FileBytes(dir / "SmallTerms.cix").size(), 6 * FileDocIDList::kRecordSize);
        for (uint32_t list = 0; list < 5; ++list) EXPECT_EQ(RecordOf(dir.Path(), "SmallTerms", list), Record());

        VantuAlgo::BitVector documents;
        documents.set(1, true);
        terms->GetValidDocuments(FileSmallTerms::kFirstSmallTerm + 5, documents);
        EXPECT_EQ(Members(documents), (std::vector<unsigned>{1, 4, 8})) << "ORed into what was there";
        terms->GetValidDocuments(FileSmallTerms::kFirstSmallTerm, documents);
        EXPECT_EQ(Members(documents), (std::vector<unsigned>{1, 4, 8}));

        // A pre-committed transaction isn't in ".cix" yet: a store opened now counts without it.
        terms->BeginTransaction();
        terms->AddDocuments(FileSmallTerms::kFirstSmallTerm + 9, {1});
        terms->PreCommit(false);
    }
    Vantu::SmartPtr<FileSmallTerms> terms(new FileSmallTerms(SliceConfigIn(dir.Path()), false));
    terms->RecoveryDone();
    EXPECT_EQ(terms->GetMaxListID(), 6u);
    terms->Commit(false);
    EXPECT_EQ(terms->GetMaxListID(), 10u);
    VantuAlgo::BitVector documents;
    terms->GetValidDocuments(FileSmallTerms::kFirstSmallTerm + 9, documents);
    EXPECT_EQ(Members(documents), (std::vector<unsigned>{1}));
}

TEST(FileDocIDList, NoCollectionsMeansAllCollections) {
    TempDir dir;
    Collections store = OpenCollections(dir.Path());
    // Added and deleted in one transaction: the removal wins; arrival order doesn't matter.
    Commit(*store, {{9, 3}, {2, 0}, {4, 3}, {6, 1}, {7, 1}}, {{7, 1}});
    EXPECT_EQ(DocumentsOf(*store, {}), (std::vector<unsigned>{2, 4, 6, 9}));
    EXPECT_EQ(DocumentsOf(*store, {3}), (std::vector<unsigned>{4, 9}));
    EXPECT_EQ(DocumentsOf(*store, {0, 1}), (std::vector<unsigned>{2, 6}));
    EXPECT_TRUE(DocumentsOf(*store, {2}).empty());
    EXPECT_TRUE(DocumentsOf(*store, {77}).empty());

    // A rolled back transaction leaves nothing, neither in the files nor in the next transaction.
    store->BeginTransaction();
    store->AddDocument(11, 3);
    store->Rollback();
    EXPECT_FALSE(VantuFile::FileExists(dir / "Collections.ctr"));
    Commit(*store, {{12, 3}});
    EXPECT_EQ(DocumentsOf(*store, {3}), (std::vector<unsigned>{4, 9, 12}));
}

namespace {

// Three lists committed, then a transaction that appends to list 0, rewrites list 1 (the delta is too large),
// empties list 2 and makes list 5 over records for lists 3 and 4.
void CommitFirst(const std::string& dir) {
    Collections store = OpenCollections(dir);
    Commit(*store, {{0, 0}, {3, 0}, {1, 1}, {8, 1}, {2, 2}, {5, 2}});
}

void PreCommitSecond(const std::string& dir) {
    Collections store = OpenCollections(dir);
    store->BeginTransaction();
    store->AddDocument(40, 0);
    for (unsigned id = 100; id < 2600; ++id) store->AddDocument(id, 1);
    store->DeleteDocument(2, 2);
    store->DeleteDocument(5, 2);
    store->AddDocument(6, 5);
    store->PreCommit(false);
}

struct Files {
    std::string cix, cin, pty;
    bool operator==(const Files&) const = default;
};

Files Snapshot(const std::string& dir) {
    return {FileBytes(dir + "/Collections.cix"), FileBytes(dir + "/Collections.cin"), FileBytes(dir + "/Collections.pty")};
}

}  // namespace

TEST(FileDocIDList, ACommitCutShortAnywhereEndsByteIdenticalWhenCommittedAgain) {
    TempDir reference;
    CommitFirst(reference.Path());
    PreCommitSecond(reference.Path());
    OpenCollections(reference.Path())->Commit(false);
    const Files after = Snapshot(reference.Path());
    ASSERT_FALSE(VantuFile::FileExists(reference / "Collections.ctr"));
    ASSERT_EQ(DocumentsOf(*OpenCollections(reference.Path()), {2}), std::vector<unsigned>());

    // Every case starts from a copy of the pre-committed state, built once.
    TempDir before;
    CommitFirst(before.Path());
    PreCommitSecond(before.Path());
    CrashScenario s;
    s.setup = [&before](const std::string& dir) {
        std::filesystem::copy(before.Path(), dir, std::filesystem::copy_options::recursive);
    };
    s.run = [](const std::string& dir) { OpenCollections(dir)->Commit(false); };
    s.check = [&after](const std::string& dir, const CrashCase&) -> std::string {
        OpenCollections(dir)->Commit(false);
        if (VantuFile::FileExists(dir + "/Collections.ctr")) return "the log is still there";
        const Files files = Snapshot(dir);
        if (files.cix != after.cix) return "Collections.cix differs";
        if (files.cin != after.cin) return "Collections.cin differs";
        if (files.pty != after.pty) return "Collections.pty differs";
        Collections store = OpenCollections(dir);
        if (DocumentsOf(*store, {0}) != std::vector<unsigned>{0, 3, 40}) return "list 0 reads wrong";
        if (DocumentsOf(*store, {1}).size() != 2502) return "list 1 reads wrong";
        if (!DocumentsOf(*store, {2}).empty()) return "list 2 isn't empty";
        if (DocumentsOf(*store, {5}) != std::vector<unsigned>{6}) return "list 5 reads wrong";
        return SliceFaults(dir);
    };
    const CrashReport report = RunAtEveryCrashPoint(s, {CrashMode::ProcessDeath, CrashMode::PowerLoss});
    EXPECT_GE(report.crashPoints.size(), 8u) << "a crash point after each record";
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
}

TEST(FileDocIDList, AListReadBeforeACommitReplacesItNeverStaysInTheCache) {
    TempDir dir;
    Collections store = OpenCollections(dir.Path());
    Commit(*store, {{1, 0}});
    store->BeginTransaction();
    store->AddDocument(2, 0);
    store->PreCommit(false);
    // The commit lands between the query's disk read and its turn to fill the cache.
    VantuFile::FaultInjector injector;
    injector.OnCrashPoint("FileDocIDList: list read", 1, [&] { store->Commit(false); });
    injector.Activate();
    EXPECT_EQ(DocumentsOf(*store, {0}), (std::vector<unsigned>{1}));
    injector.Deactivate();
    EXPECT_EQ(DocumentsOf(*store, {0}), (std::vector<unsigned>{1, 2}));
}

TEST(FileDocIDList, QueriesNeverSeeAListGoBackWhileCommitsReplaceIt) {
    TempDir dir;
    Collections store = OpenCollections(dir.Path());
    constexpr unsigned kTransactions = 60;
    std::atomic<bool> done{false};
    std::atomic<unsigned> failures{0};
    std::vector<std::thread> queries;
    for (int q = 0; q < 2; ++q)
        queries.emplace_back([&] {
            size_t seen = 0;
            while (!done) {
                const std::vector<unsigned> documents = DocumentsOf(*store, {0});
                // Each transaction adds the next document: a read is a prefix of 0, 1, 2 ... never shorter.
                for (size_t i = 0; i < documents.size(); ++i)
                    if (documents[i] != i) ++failures;
                if (documents.size() < seen) ++failures;
                seen = documents.size();
            }
        });
    for (unsigned t = 0; t < kTransactions; ++t) Commit(*store, {{t, 0}});
    done = true;
    for (std::thread& q : queries) q.join();
    EXPECT_EQ(failures, 0u);
    EXPECT_EQ(DocumentsOf(*store, {0}).size(), kTransactions);
}

TEST(FileDocIDList, CompactionDropsDeletedDocumentsRenumbersSmallTermsAndCopiesAnUntouchedStore) {
    TempDir dir, target, copy;
    const unsigned kTerm = FileSmallTerms::kFirstSmallTerm;
    Vantu::SmartPtr<FileSmallTerms> terms(new FileSmallTerms(SliceConfigIn(dir.Path()), false));
    terms->RecoveryDone();
    terms->BeginTransaction();
    terms->AddDocuments(kTerm, {1, 2});
    terms->AddDocuments(kTerm + 1, {3});
    terms->AddDocuments(kTerm + 2, {5, 6});
    terms->PreCommit(false);
    terms->Commit(false);
    Collections collections = OpenCollections(dir.Path());
    Commit(*collections, {{3, 0}, {5, 2}, {6, 2}});

    const bool cancel = false;
    Vantu::FastVector<unsigned int> deletedTerms{7};  // the large terms' entries come first
    FileDocIDList::Pairs termPairs{{4, 2}};
    terms->Shrink(Vantu::FromUtf8(target.Path()), {3, 5}, {{4, 2}, {6, 4}}, deletedTerms, termPairs, nullptr, cancel);
    EXPECT_EQ(std::vector<unsigned>(deletedTerms.begin(), deletedTerms.end()), (std::vector<unsigned>{7, kTerm + 1}));
    EXPECT_EQ(termPairs, (FileDocIDList::Pairs{{4, 2}, {kTerm + 2, kTerm + 1}}));
    collections->Shrink(Vantu::FromUtf8(target.Path()), {3, 5}, {{4, 2}, {6, 4}}, nullptr, cancel);

    Vantu::SmartPtr<FileSmallTerms> shrunk(new FileSmallTerms(SliceConfigIn(target.Path()), false));
    VantuAlgo::BitVector documents;
    shrunk->GetValidDocuments(kTerm + 1, documents);
    EXPECT_EQ(Members(documents), (std::vector<unsigned>{4}));
    EXPECT_EQ(shrunk->GetMaxListID(), 2u);
    Collections shrunkCollections = OpenCollections(target.Path());
    EXPECT_TRUE(DocumentsOf(*shrunkCollections, {0}).empty()) << "an emptied collection stays empty";
    EXPECT_EQ(DocumentsOf(*shrunkCollections, {2}), (std::vector<unsigned>{4})) << "collections keep their ids";

    // Nothing deleted: the files are copied byte for byte and no term moves.
    Vantu::FastVector<unsigned int> noTerms;
    FileDocIDList::Pairs noPairs;
    terms->Shrink(Vantu::FromUtf8(copy.Path()), {}, {}, noTerms, noPairs, nullptr, cancel);
    EXPECT_TRUE(noTerms.empty() && noPairs.empty());
    for (const char* file : {"SmallTerms.cix", "SmallTerms.cin", "SmallTerms.pty"})
        EXPECT_EQ(FileBytes(copy / file), FileBytes(dir / file)) << file;
    EXPECT_FALSE(VantuFile::FileExists(copy / "Collections.cix")) << "only the store's own files";
    documents.clear();
    terms->GetValidDocuments(kTerm + 2, documents);
    EXPECT_EQ(Members(documents), (std::vector<unsigned>{5, 6})) << "the store reads on after the copy";
    for (const TempDir* slice : {&dir, &target, &copy}) ExpectSliceSound(slice->Path());
}
