#include "FileIndexedDocuments.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>

#include "CrashHarness.h"
#include "SarTransactionRecords.h"
#include "SliceCheck.h"
#include "SliceFiles.h"
#include "TempDir.h"
#include "core/Text.h"
#include "file/FileSystem.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

using Store = Vantu::SmartPtr<FileIndexedDocuments>;
using Words = std::map<std::u16string, uint32_t>;

Store Open(const std::string& dir, bool readOnly = false) {
    Store store(new FileIndexedDocuments(SliceConfigIn(dir, 3, 4, 5), readOnly));
    store->RecoveryDone();
    return store;
}

std::vector<uint8_t> Unit(const std::function<void(Vantu::BaseBinaryStream&)>& write) {
    VantuFile::MemoryBuffer memory(256);
    VantuCompression::ZLib zlib(1, 6, 15);
    VantuCompression::OCompressedBufferT<unsigned int> deflater(memory, &zlib);
    Vantu::BinaryStreamT<unsigned int> out(deflater);
    write(out);
    deflater.Finish();
    return {memory.Data(), memory.Data() + memory.DataSize()};
}

// A document as a slice transaction carries it; its weight bytes all say `id`, its rank value aside.
struct Doc {
    IndexedDocument indexed;
    TransactionDocumentRecord record;
};

Doc MakeDoc(uint32_t id, uint16_t collection, Words words = {}, bool shingles = false, uint8_t flags = 0) {
    Doc d;
    d.indexed.uri = "file://doc/" + std::to_string(id);
    d.indexed.title = u"Title " + Vantu::FromUtf8(std::to_string(id));
    d.indexed.collection = collection;
    d.indexed.size = 1000 + id;
    d.indexed.documentId = id;
    d.indexed.flags = flags;
    if (shingles) d.indexed.shingles = VantuAlgo::ShingleBag({u"a", u"b", u"c", u"d", u"e"});
    d.record.documentId = id;
    d.record.collection = collection;
    d.record.size = (flags & IndexedDocument::kSizeNotCounted) ? 0 : d.indexed.size;
    d.record.signature.fill(uint8_t(id));
    d.indexed.signature = d.record.signature;
    d.record.stored = Unit([&](Vantu::BaseBinaryStream& out) { d.indexed.Save(out); });
    if (!words.empty())
        d.record.words = Unit([&](Vantu::BaseBinaryStream& out) {
            out << uint32_t(words.size());
            for (const auto& [word, count] : words) out << std::u16string_view(word) << uint8_t(count - 1);
        });
    return d;
}

void Add(FileIndexedDocuments& store, const Doc& d) {
    VantuFile::MemoryBuffer memory(256);
    Vantu::BinaryStreamT<unsigned int> stream(memory);
    d.record.Write(stream, false);
    // The store reads behind the id, the shingle flag and the collection.
    uint32_t id;
    uint8_t shingles;
    uint16_t collection;
    stream >> id >> shingles >> collection;
    store.AddDocument(id, collection, stream);
}

RankingEngineDocWeight WeightOf(const Doc& d) {
    RankingEngineDocWeight w;
    w.bytes = d.record.signature;
    return w;
}

// One committed transaction of `docs`.
void Commit(FileIndexedDocuments& store, const std::vector<Doc>& docs) {
    store.BeginTransaction();
    for (const Doc& d : docs) Add(store, d);
    store.PreCommit(false);
    store.Commit(false);
}

struct Files {
    std::string dix, din, pty;
    bool operator==(const Files&) const = default;
};

Files Snapshot(const std::string& dir) {
    return {FileBytes(dir + "/Documents.dix"), FileBytes(dir + "/Documents.din"), FileBytes(dir + "/Documents.din.pty")};
}

}  // namespace

TEST(FileIndexedDocuments, CommittedDocumentsLoadBackByteForByteAndGapsAreBlank) {
    TempDir dir;
    Store store = Open(dir.Path());
    const std::vector<Doc> docs = {MakeDoc(0, 1, {{u"alpha", 2}}), MakeDoc(1, 2), MakeDoc(3, 1, {{u"beta", 1}})};
    Commit(*store, docs);

    const std::string dix = FileBytes(dir / "Documents.dix"), din = FileBytes(dir / "Documents.din");
    ASSERT_EQ(dix.size(), 4 * 27u);
    for (const Doc& d : docs) {
        const uint32_t id = d.record.documentId;
        FileIndexedDocuments::IndexFileStruct record;
        record.Decode(reinterpret_cast<const uint8_t*>(dix.data() + id * 27));
        EXPECT_EQ(record.size, d.record.stored.size());
        EXPECT_EQ(record.weight, WeightOf(d));
        // The block: the stored unit, the words' size and the word list, exactly as the transaction had them.
        std::string block(d.record.stored.begin(), d.record.stored.end());
        const uint32_t wordsSize = uint32_t(d.record.words.size());
        block.append(reinterpret_cast<const char*>(&wordsSize), 4).append(d.record.words.begin(), d.record.words.end());
        EXPECT_EQ(din.substr(record.offset, block.size()), block);

        auto loaded = store->LoadDocument(id);
        ASSERT_TRUE(loaded);
        IndexedDocument expected = d.indexed;
        expected.physical = 3, expected.mirror = 4, expected.slice = 5;
        EXPECT_EQ(*loaded, expected);
        EXPECT_EQ(store->GetDocumentWeight(id), WeightOf(d));
        VantuFile::MemoryBuffer wordList(16);
        store->LoadWCLBuffer(id, wordList);
        EXPECT_EQ(std::vector<uint8_t>(wordList.Data(), wordList.Data() + wordList.DataSize()), d.record.words);
    }
    // The skipped id 2: a blank record, a zero weight.
    EXPECT_EQ(dix.substr(2 * 27, 27), std::string(8, '\xff') + std::string(19, '\0'));
    EXPECT_EQ(store->GetDocumentWeight(2), RankingEngineDocWeight());
    EXPECT_TRUE(store->IsDocumentValid(2));
    EXPECT_FALSE(store->DocumentIsIndexed(2));
    // Past the end: not valid, yet "indexed"; nothing to load, a zero weight.
    EXPECT_FALSE(store->IsDocumentValid(4));
    EXPECT_TRUE(store->DocumentIsIndexed(4));
    EXPECT_FALSE(store->LoadDocument(4));
    EXPECT_EQ(store->GetDocumentWeight(4), RankingEngineDocWeight());
    // The free list was saved with the file's used part cut out of it.
    EXPECT_EQ(FileBytes(dir / "Documents.din.pty").size(), 4u + 16u);
    EXPECT_FALSE(VantuFile::FileExists(dir / "Documents.dtr"));

    // Reopened, the weights come back from ".dix".
    store = nullptr;
    store = Open(dir.Path());
    for (const Doc& d : docs) EXPECT_EQ(store->GetDocumentWeight(d.record.documentId), WeightOf(d));
    ExpectSliceSound(dir.Path());
}

TEST(FileIndexedDocuments, DeletionFreesTheBlockCountsWordsAndTheStatisticsTravelThroughIndexInfo) {
    TempDir dir;
    Store store = Open(dir.Path());
    const std::vector<Doc> docs = {MakeDoc(0, 1, {{u"alpha", 2}, {u"beta", 256}}, true),
                                   MakeDoc(1, 1, {}, false, IndexedDocument::kSizeNotCounted), MakeDoc(2, 7)};
    // The slice saves the counters between the stores' PreCommit and Commit, and reads them back after.
    SarIndexInfo committed;
    store->BeginTransaction();
    for (const Doc& d : docs) Add(*store, d);
    store->SaveInfo(committed);
    store->PreCommit(false);
    store->Commit(false);
    store->LoadInfo(committed);
    EXPECT_EQ(store->GetNumberOfDocuments(), 3u);

    store->BeginTransaction();
    Words words{{u"alpha", 5}};
    EXPECT_TRUE(store->DeleteDocument(0, words));
    EXPECT_EQ(words, (Words{{u"alpha", 7}, {u"beta", 256}}));
    EXPECT_FALSE(store->DeleteDocument(9, words));  // unknown: nothing happens
    EXPECT_FALSE(store->DeleteDocument(1, words));  // no shingles, no words
    EXPECT_EQ(words.size(), 2u);
    // The deletion shows at once; the record goes blank only at commit.
    const VantuAlgo::BitVector deleted = store->GetDeletedDocuments();
    EXPECT_TRUE(deleted[0] && deleted[1] && !deleted[2]);
    EXPECT_EQ(deleted.size(), 1u << 18);
    EXPECT_TRUE(store->DocumentIsIndexed(0));
    // A new document takes the freed place at the start of ".din".
    Add(*store, MakeDoc(3, 7));

    SarIndexInfo pending;
    store->SaveInfo(pending);
    ASSERT_EQ(pending.collections.size(), 2u);
    // The document whose size isn't counted adds nothing to either size.
    EXPECT_EQ(pending.collections[0], (SarCollectionInfo{1, 0, 1000, 0, 2}));
    EXPECT_EQ(pending.collections[1], (SarCollectionInfo{7, 1002 + 1003, 0, 2, 0}));
    EXPECT_EQ(pending.deletedBitCount, 1u << 18);
    EXPECT_EQ(pending.deletedBits[0], 0xC0);

    store->PreCommit(false);
    store->Commit(false);
    EXPECT_FALSE(store->DocumentIsIndexed(0));
    EXPECT_TRUE(store->IsDocumentValid(0));
    EXPECT_FALSE(store->LoadDocument(0));
    EXPECT_EQ(store->GetDocumentWeight(0), RankingEngineDocWeight());
    FileIndexedDocuments::IndexFileStruct record;
    record.Decode(reinterpret_cast<const uint8_t*>(FileBytes(dir / "Documents.dix").data() + 3 * 27));
    EXPECT_EQ(record.offset, 0u);
    IndexedDocument third = MakeDoc(3, 7).indexed;
    third.physical = 3, third.mirror = 4, third.slice = 5;
    EXPECT_EQ(*store->LoadDocument(3), third);

    // The stored numbers: a fresh store loads them, and GetStatistics zeroes what it doesn't hold.
    Store other = Open(dir.Path());
    other->LoadInfo(pending);
    EXPECT_EQ(other->GetNumberOfDocuments(), 2u);
    EXPECT_TRUE(other->GetDeletedDocuments()[1]);
    SarvaneSliceStatistics statistics;
    statistics.collections[9].count = 4;
    statistics.collections[9].pendingAdded = 6;
    other->GetStatistics(statistics);
    EXPECT_EQ(statistics.collections[9].count, 0u);
    EXPECT_EQ(statistics.collections[9].pendingAdded, 6u);
    EXPECT_EQ(statistics.collections[1].deleted, 2u);
    EXPECT_EQ(statistics.collections[7].size, 2005u);
    ExpectSliceSound(dir.Path());
}

TEST(FileIndexedDocuments, RankUpdatesReplaceRanksUpToTheLastListedId) {
    TempDir dir;
    Store store = Open(dir.Path());
    std::vector<Doc> docs;
    for (uint32_t id = 0; id < 5; ++id) {
        docs.push_back(MakeDoc(id, 1));
        docs.back().record.signature = {};
    }
    Commit(*store, docs);
    auto rankOf = [&](uint32_t id) { return store->GetDocumentWeight(id).RankValue(); };

    store->BeginTransaction();
    store->UpdateDocumentRankValue({{0, 0.5f}, {2, 0.25f}, {4, 2.0f}}, false);
    store->PreCommit(false);
    store->Commit(false);
    EXPECT_EQ(rankOf(0), 0.5f);
    EXPECT_EQ(rankOf(2), 0.25f);
    EXPECT_EQ(rankOf(4), 2.0f);

    const std::string before = FileBytes(dir / "Documents.dix");
    store->BeginTransaction();
    // 0 keeps its value, 1 moves by exactly the tolerance and stays 0; the rest lie past the last id.
    store->UpdateDocumentRankValue({{0, 0.5f}, {1, 0.0001f}}, false);
    store->UpdateDocumentRankValue({}, false);
    store->PreCommit(false);
    store->Commit(false);
    EXPECT_EQ(FileBytes(dir / "Documents.dix"), before);

    store->BeginTransaction();
    store->UpdateDocumentRankValue({{1, 1.0f}, {3, 3.0f}}, false);
    store->PreCommit(false);
    store->Commit(false);
    // 0 and 2, below the last listed id and unlisted, lose their ranks; 4 keeps its own.
    EXPECT_EQ(rankOf(0), 0.0f);
    EXPECT_EQ(rankOf(1), 1.0f);
    EXPECT_EQ(rankOf(2), 0.0f);
    EXPECT_EQ(rankOf(3), 3.0f);
    EXPECT_EQ(rankOf(4), 2.0f);
    // Only the rank bytes changed.
    for (uint32_t id = 0; id < 5; ++id) {
        RankingEngineDocWeight w = store->GetDocumentWeight(id);
        w.SetRankValue(0.0f);
        EXPECT_EQ(w, RankingEngineDocWeight());
    }
}

namespace {

// Words enough that blocks differ in size and some reuse the places freed by deletions.
Doc WordyDoc(uint32_t id, uint16_t collection) {
    Words words;
    for (uint32_t i = 0; i <= id % 4; ++i) words[u"word" + Vantu::FromUtf8(std::to_string(id * 10 + i))] = i + 1;
    return MakeDoc(id, collection, words, id % 2 == 0);
}

void CommitFirst(const std::string& dir) {
    Store store = Open(dir);
    std::vector<Doc> docs;
    for (uint32_t id = 0; id < 6; ++id) docs.push_back(WordyDoc(id, uint16_t(1 + id % 2)));
    Commit(*store, docs);
}

// The second transaction, pre-committed: deletions whose places new documents reuse, a skipped id, and a rank
// update. A crash right after it leaves the log behind.
void PreCommitSecond(FileIndexedDocuments& store) {
    store.BeginTransaction();
    Words words;
    store.UpdateDocumentRankValue({{0, 0.75f}, {3, 1.5f}}, false);
    store.DeleteDocument(1, words);
    store.DeleteDocument(2, words);
    for (uint32_t id : {6u, 8u, 9u}) Add(store, WordyDoc(id, 3));
    store.PreCommit(false);
}

}  // namespace

TEST(FileIndexedDocuments, ACommitCutShortAnywhereEndsByteIdenticalWhenReplayed) {
    TempDir reference;
    CommitFirst(reference.Path());
    PreCommitSecond(*Open(reference.Path()));
    Open(reference.Path())->Commit(false);
    const Files after = Snapshot(reference.Path());
    ASSERT_FALSE(VantuFile::FileExists(reference / "Documents.dtr"));

    CrashScenario s;
    s.setup = [](const std::string& dir) {
        CommitFirst(dir);
        PreCommitSecond(*Open(dir));
    };
    s.run = [](const std::string& dir) { Open(dir)->Commit(false); };
    s.check = [&after](const std::string& dir, const CrashCase&) -> std::string {
        // Recovery finds the log and commits again.
        Open(dir)->Commit(false);
        if (VantuFile::FileExists(dir + "/Documents.dtr")) return "the log is still there";
        const Files files = Snapshot(dir);
        if (files.dix != after.dix) return "Documents.dix differs";
        if (files.din != after.din) return "Documents.din differs";
        if (files.pty != after.pty) return "Documents.din.pty differs";
        Store store = Open(dir);
        if (store->LoadDocument(1) || !store->LoadDocument(9)) return "the wrong documents load";
        if (store->GetDocumentWeight(3).RankValue() != 1.5f) return "the rank of 3 is lost";
        return SliceFaults(dir);
    };
    const CrashReport report = RunAtEveryCrashPoint(s);
    EXPECT_GE(report.crashPoints.size(), 6u);
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
}

TEST(FileIndexedDocuments, RollbackAfterPreCommitRestoresTheFreeListAndRemovesTheLog) {
    // What the files hold when only the first transaction and then document 6 were ever committed.
    TempDir reference;
    CommitFirst(reference.Path());
    Commit(*Open(reference.Path()), {WordyDoc(6, 3)});
    const Files expected = Snapshot(reference.Path());
    // After a rollback the store must place document 6 exactly there: nothing of the freed places and of the
    // regions taken may remain in its free list.
    auto rollBackThenAdd = [](FileIndexedDocuments& store, const std::string& dir) -> std::string {
        store.Rollback();
        if (VantuFile::FileExists(dir + "/Documents.dtr")) return "the log is still there";
        Commit(store, {WordyDoc(6, 3)});
        return "";
    };

    TempDir dir;
    CommitFirst(dir.Path());
    Store store = Open(dir.Path());
    PreCommitSecond(*store);
    EXPECT_EQ(rollBackThenAdd(*store, dir.Path()), "");
    EXPECT_EQ(Snapshot(dir.Path()), expected);

    // A rollback cut short anywhere is finished by the next one.
    CrashScenario s;
    s.setup = [](const std::string& path) {
        CommitFirst(path);
        PreCommitSecond(*Open(path));
    };
    s.run = [](const std::string& path) { Open(path)->Rollback(); };
    s.check = [&](const std::string& path, const CrashCase&) -> std::string {
        const std::string verdict = rollBackThenAdd(*Open(path), path);
        if (!verdict.empty()) return verdict;
        if (Snapshot(path) != expected) return "the files differ from a store that never saw the transaction";
        return SliceFaults(path);
    };
    const CrashReport report = RunAtEveryCrashPoint(s, {CrashMode::ProcessDeath, CrashMode::PowerLoss});
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
}

TEST(FileIndexedDocuments, QueriesReadWhileTheReaderThreadAppliesTransactions) {
    TempDir dir;
    Store store = Open(dir.Path());
    constexpr uint32_t kTransactions = 12, kPerTransaction = 25;
    std::atomic<bool> done{false};
    std::atomic<uint32_t> failures{0};

    std::thread writer([&] {
        uint32_t next = 0;
        for (uint32_t t = 0; t < kTransactions; ++t) {
            store->BeginTransaction();
            Words words;
            // The deletion comes before the rank update here: the rewritten round must keep the record blank.
            if (next > 0) store->DeleteDocument(next / 2, words);
            std::vector<std::pair<uint32_t, float>> ranks;
            for (uint32_t id = 0; id < next; id += 3) ranks.emplace_back(id, float(t + 1));
            store->UpdateDocumentRankValue(ranks, false);
            for (uint32_t i = 0; i < kPerTransaction; ++i, ++next) Add(*store, MakeDoc(next, 1, {{u"w", 1}}));
            store->PreCommit(false);
            store->Commit(false);
        }
        done = true;
    });
    // A weight is whole: zero, or every byte but the rank value says its id.
    auto whole = [](uint32_t id, const RankingEngineDocWeight& w) {
        if (w == RankingEngineDocWeight()) return true;
        for (size_t i = 0; i < w.bytes.size(); ++i)
            if ((i < 7 || i > 10) && w.bytes[i] != uint8_t(id)) return false;
        return true;
    };
    std::vector<std::thread> queries;
    for (int q = 0; q < 2; ++q)
        queries.emplace_back([&] {
            while (!done) {
                const uint32_t end = kTransactions * kPerTransaction;
                store->ReadLockCache();
                for (uint32_t id = 0; id < end; ++id)
                    if (!whole(id, store->GetDocumentWeight(id))) ++failures;
                store->ReadUnlockCache();
                const VantuAlgo::BitVector deleted = store->GetDeletedDocuments();
                if (deleted.size() % (1u << 18) != 0) ++failures;
                for (uint32_t id = 0; id < end; id += 7) {
                    auto document = store->LoadDocument(id);
                    if (document && document->uri != "file://doc/" + std::to_string(id)) ++failures;
                    if (document && !store->IsDocumentValid(id)) ++failures;
                    store->DocumentIsIndexed(id);
                }
            }
        });
    writer.join();
    for (std::thread& q : queries) q.join();
    EXPECT_EQ(failures, 0u);
    EXPECT_EQ(store->GetDocumentWeight(3).RankValue(), float(kTransactions));
    // The second transaction deleted document 12.
    EXPECT_FALSE(store->LoadDocument(12));
    EXPECT_TRUE(store->GetDeletedDocuments()[12]);
}

TEST(FileIndexedDocuments, ShrinkMovesKeptDocumentsDownBackToBackAndLeavesNoDeletions) {
    TempDir dir, compacted, copied;
    Store store = Open(dir.Path());
    // Two transactions, their counters saved between PreCommit and Commit as the slice does.
    for (int t = 0; t < 2; ++t) {
        SarIndexInfo info;
        store->BeginTransaction();
        Words words;
        for (uint32_t id = 0; id < 6 && t == 0; ++id) Add(*store, WordyDoc(id, uint16_t(1 + id % 2)));
        for (uint32_t id : {1u, 3u})
            if (t == 1) store->DeleteDocument(id, words);
        store->SaveInfo(info);
        store->PreCommit(false);
        store->Commit(false);
        store->LoadInfo(info);
    }

    VantuFile::MemoryBuffer memory(64);
    Vantu::BinaryStreamT<unsigned int> stream(memory);
    store->Shrink(Vantu::FromUtf8(compacted.Path()), stream, {1, 3}, {{2, 1}, {4, 2}, {5, 3}}, nullptr, false);
    // The counters: the collections without deletions, and no deleted bit.
    uint32_t count, bits;
    stream >> count;
    ASSERT_EQ(count, 2u);
    for (uint32_t expected : {3u, 1u}) {
        uint16_t id;
        uint64_t size, deletedSize;
        uint32_t documents, deleted;
        stream >> id >> size >> deletedSize >> documents >> deleted;
        EXPECT_EQ(documents, expected);
        EXPECT_EQ(deletedSize + deleted, 0u);
    }
    stream >> bits;
    EXPECT_EQ(bits, 0u);
    EXPECT_TRUE(memory.EndOfFile());

    Store shrunk = Open(compacted.Path());
    EXPECT_FALSE(shrunk->IsDocumentValid(4));
    const std::string din = FileBytes(compacted / "Documents.din");
    uint64_t end = 0;
    for (auto [from, to] : {std::pair{0u, 0u}, {2u, 1u}, {4u, 2u}, {5u, 3u}}) {
        IndexedDocument moved = WordyDoc(from, uint16_t(1 + from % 2)).indexed;
        moved.documentId = to;
        moved.physical = 3, moved.mirror = 4, moved.slice = 5;
        EXPECT_EQ(*shrunk->LoadDocument(to), moved);
        EXPECT_EQ(shrunk->GetDocumentWeight(to), store->GetDocumentWeight(from));
        VantuFile::MemoryBuffer before(16), after(16);
        store->LoadWCLBuffer(from, before);
        shrunk->LoadWCLBuffer(to, after);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(after.Data()), after.DataSize()),
                  std::string(reinterpret_cast<const char*>(before.Data()), before.DataSize()));
        end += FileIndexedDocuments::kRecordSize;
    }
    EXPECT_EQ(FileBytes(compacted / "Documents.dix").size(), end);
    // No gap in ".din": the free list is its tail alone.
    VantuFile::PersistentEmptyListT<uint64_t> list(compacted / "Documents.din.pty");
    list.Reload();
    EXPECT_EQ(list.Blocks(), (std::map<uint64_t, uint64_t>{{din.size(), UINT64_MAX - din.size()}}));

    // Nothing to remove: the files are copied as they are, and the counters keep the deleted bits.
    memory.Clear();
    store->Shrink(Vantu::FromUtf8(copied.Path()), stream, {}, {}, nullptr, false);
    EXPECT_EQ(Snapshot(copied.Path()), Snapshot(dir.Path()));
    EXPECT_TRUE(store->LoadDocument(2));
    stream >> count;
    memory.SeekG(4 + count * 26);
    stream >> bits;
    EXPECT_EQ(bits, 1u << 18);
    for (const TempDir* slice : {&dir, &compacted, &copied}) ExpectSliceSound(slice->Path());
}
