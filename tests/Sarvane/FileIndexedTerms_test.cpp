#include "FileIndexedTerms.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "CrashHarness.h"
#include "SarException.h"
#include "SliceCheck.h"
#include "SliceFiles.h"
#include "TempDir.h"
#include "core/LogEntry.h"
#include "core/Text.h"
#include "file/BinaryStreamException.h"
#include "file/FileSystem.h"
#include "store/EliasDeltaCodes.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

using Store = Vantu::SmartPtr<FileIndexedTerms>;
using Record = FileIndexedTerms::IndexFileStruct;
using List = Vantu::FastVector<unsigned int>;

Store Open(const std::string& dir) { return Store(new FileIndexedTerms(SliceConfigIn(dir), false)); }

std::vector<uint8_t> Code(const List& positions) {
    if (positions.size() == 0) return {};
    VantuFile::MemoryBuffer memory(64);
    VantuCompression::BitsReaderWriter bits(&memory);
    VantuCompression::EliasDeltaCodes().Compress(positions, true, bits, 0);
    return {memory.Data(), memory.Data() + memory.DataSize()};
}

// Positions of a document: none for some, up to a dozen for others, so that lists land inline and in ".tps".
List PositionsOf(uint32_t document) {
    List positions;
    unsigned at = document % 5;
    for (uint32_t i = 0; i < (document * 7) % 13; ++i) positions.push_back(at += 1 + (document + i) % 40);
    return positions;
}

// The first run 0, 1, 2 ... whose coded form takes exactly `bytes` bytes.
List CodedIn(size_t bytes) {
    for (unsigned count = 1;; ++count) {
        List positions;
        for (unsigned i = 0; i < count; ++i) positions.push_back(i * 3);
        if (Code(positions).size() == bytes) return positions;
    }
}

// The operations of one term in one transaction, owning their position data.
struct Operations {
    std::vector<std::vector<uint8_t>> data;
    std::vector<TransactionTermOperation> operations;
    FileIndexedTerms::Operations pointers;

    explicit Operations(const std::vector<uint32_t>& documents,
                        const std::function<List(uint32_t)>& positionsOf = PositionsOf) {
        data.reserve(documents.size());
        operations.reserve(documents.size());
        for (uint32_t document : documents) {
            const List positions = positionsOf(document);
            data.push_back(Code(positions));
            operations.emplace_back(document, uint32_t(positions.size()), uint16_t(1 << (document % 14)));
            operations.back().SetData(data.back().data(), uint16_t(data.back().size()));
        }
        for (TransactionTermOperation& operation : operations) pointers.push_back(&operation);
    }
};

std::vector<uint32_t> Range(uint32_t first, uint32_t end) {
    std::vector<uint32_t> documents;
    for (uint32_t d = first; d < end; ++d) documents.push_back(d);
    return documents;
}

using Adds = std::map<uint32_t, std::vector<uint32_t>>;
using Model = std::map<uint32_t, std::vector<uint32_t>>;

// One transaction: the terms in ascending order, each with its documents; results by term.
std::map<uint32_t, bool> Apply(FileIndexedTerms& store, const Adds& adds, bool commit = true) {
    std::map<uint32_t, bool> passed;
    store.BeginTransaction();
    for (const auto& [term, documents] : adds) passed[term] = store.AddDocumentsForTerm(term, Operations(documents).pointers);
    store.PreCommit();
    if (commit) store.Commit(false, nullptr);
    return passed;
}

void Fold(Model& model, const Adds& adds) {
    for (const auto& [term, documents] : adds)
        model[term].insert(model[term].end(), documents.begin(), documents.end());
}

// What the store gives for `term` differs from the model: documents, flags, positions.
std::string Differs(const FileIndexedTerms& store, uint32_t term, const std::vector<uint32_t>& documents) {
    Vantu::SmartPtr<Term> loaded = store.LoadTerm(term, true);
    if (loaded->GetTermID() != term) return "wrong id";
    if (store.GetNumberOfDocuments(term) != documents.size()) return "wrong count in the record";
    if (loaded->GetNumberOfDocuments() != documents.size() || loaded->GetDocumentPositions().size() != documents.size())
        return "term " + std::to_string(term) + " has " + std::to_string(loaded->GetNumberOfDocuments()) +
               " postings, not " + std::to_string(documents.size());
    const DocIDWeightStruct* cursor = nullptr;
    Vantu::SmartPtr<FileIndexedTerms::Occurence> occurence;
    for (size_t i = 0; i < documents.size(); ++i) {
        const DocIDWeightStruct& posting = loaded->GetDocumentWeights()[i];
        const List expected = PositionsOf(documents[i]);
        if (posting.DocumentId() != documents[i] || posting.TermFlags() != (1 << (documents[i] % 14)) ||
            posting.PositionCount() != expected.size())
            return "posting " + std::to_string(i) + " of term " + std::to_string(term) + " is wrong";
        if (!store.GetOccurencesForDocument(*loaded, documents[i], occurence, cursor) ||
            std::vector<unsigned>(occurence->positions.begin(), occurence->positions.end()) !=
                std::vector<unsigned>(expected.begin(), expected.end()))
            return "positions of document " + std::to_string(documents[i]) + " in term " + std::to_string(term);
    }
    return "";
}

std::string Differs(const FileIndexedTerms& store, const Model& model) {
    for (const auto& [term, documents] : model)
        if (std::string what = Differs(store, term, documents); !what.empty()) return what;
    return "";
}

Record RecordOf(const std::string& dir, uint32_t term) {
    Record record;
    const std::string tix = FileBytes(dir + "/Terms.tix");
    std::memcpy(record.bytes.data(), tix.data() + term * Record::kSize, Record::kSize);
    return record;
}

uint32_t U32(const std::string& bytes, size_t at) {
    uint32_t value;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

}  // namespace

TEST(FileIndexedTerms, EachBoundaryRoundTrips) {
    TempDir dir;
    Store store = Open(dir.Path());
    Model model;
    auto step = [&](const Adds& adds) {
        const auto passed = Apply(*store, adds);
        Fold(model, adds);
        EXPECT_EQ(Differs(*store, model), "");
        return passed;
    };

    // Three documents live in the record; the fourth moves all four into a chunk of a fresh block.
    step({{0, {1, 2, 3}}});
    EXPECT_EQ(RecordOf(dir.Path(), 0).NumberOfDocuments(), 3u);
    EXPECT_EQ(FileBytes(dir / "Terms.tin").size(), 0u);
    step({{0, {4}}});
    Record record = RecordOf(dir.Path(), 0);
    ASSERT_TRUE(record.HasBlock());
    EXPECT_EQ(record.BlockEnd() - record.BlockStart(), 4 + 4 * 10u);
    EXPECT_FALSE(record.HasPendingPosting());

    // One more document waits in the record and ".tin" stays as it was; the next takes it into a chunk.
    const std::string tin = FileBytes(dir / "Terms.tin");
    step({{0, {5}}});
    EXPECT_EQ(FileBytes(dir / "Terms.tin"), tin);
    record = RecordOf(dir.Path(), 0);
    EXPECT_TRUE(record.HasPendingPosting());
    EXPECT_EQ(record.NumberOfDocuments(), 5u);
    EXPECT_EQ(record.PendingPosting().DocumentId(), 5u);
    step({{0, {6}}});
    record = RecordOf(dir.Path(), 0);
    EXPECT_FALSE(record.HasPendingPosting());
    EXPECT_EQ(record.BlockEnd() - record.BlockStart(), 4 + 4 * 10u + 4 + 2 * 10u);

    // 24 postings make a plain chunk, 25 a zlib unit with its size in front; 25 to 26 documents is the promotion.
    auto passed = step({{1, Range(0, 24)}, {2, Range(0, 25)}, {3, Range(0, 25)}});
    EXPECT_FALSE(passed[3]);
    const std::string blocks = FileBytes(dir / "Terms.tin");
    const Record plain = RecordOf(dir.Path(), 1), packed = RecordOf(dir.Path(), 2);
    EXPECT_EQ(U32(blocks, plain.BlockStart()), 24u);
    EXPECT_EQ(plain.BlockEnd() - plain.BlockStart(), 4 + 24 * 10u);
    const DocIDWeightStruct first = Operations({0}).operations[0].Weight();
    EXPECT_EQ(blocks.substr(plain.BlockStart() + 4, 6), std::string(reinterpret_cast<const char*>(&first), 6));
    EXPECT_EQ(U32(blocks, packed.BlockStart()), 25u);
    EXPECT_EQ(packed.BlockEnd() - packed.BlockStart(), 8 + U32(blocks, packed.BlockStart() + 4));
    EXPECT_EQ(uint8_t(blocks[packed.BlockStart() + 8]), 0x78);
    passed = step({{3, {25}}});
    EXPECT_TRUE(passed[3]);
    passed = step({{3, {26}}});
    EXPECT_FALSE(passed[3]);

    // Coded positions of 4 bytes stay in the position word; 5 bytes go to "Terms.(4 & 3).tps".
    const List four = CodedIn(4), five = CodedIn(5);
    auto lists = [&](uint32_t document) { return document == 0 ? four : five; };
    store->BeginTransaction();
    store->AddDocumentsForTerm(4, Operations({0, 1}, lists).pointers);
    store->PreCommit();
    store->Commit(false, nullptr);
    record = RecordOf(dir.Path(), 4);
    EXPECT_TRUE(record.InlinePosting(0).PositionsInline());
    EXPECT_FALSE(record.InlinePosting(1).PositionsInline());
    const std::string tps = FileBytes(dir / "Terms.0.tps");
    const uint32_t word = record.InlinePosition(1);
    EXPECT_EQ(tps.substr(word, 7), std::string("\x05\x00", 2) + std::string(reinterpret_cast<const char*>(Code(five).data()), 5));
    Vantu::SmartPtr<Term> loaded = store->LoadTerm(4, true);
    Vantu::SmartPtr<FileIndexedTerms::Occurence> occurence;
    const DocIDWeightStruct* cursor = nullptr;
    for (uint32_t document : {0u, 1u}) {
        ASSERT_TRUE(store->GetOccurencesForDocument(*loaded, document, occurence, cursor));
        EXPECT_EQ(occurence->positions.size(), lists(document).size());
    }
    EXPECT_FALSE(store->GetOccurencesForDocument(*loaded, 0, occurence, cursor));

    // A term past the end of ".tix" is empty; loaded without positions it carries no position words.
    EXPECT_EQ(store->LoadTerm(999, true)->GetNumberOfDocuments(), 0u);
    EXPECT_EQ(store->LoadTerm(2, false)->GetDocumentPositions().size(), 0u);
    EXPECT_EQ(store->LoadTerm(2, false)->GetNumberOfDocuments(), 25u);

    // Everything reads back the same from a fresh store.
    EXPECT_EQ(Differs(*Open(dir.Path()), model), "");
    ExpectSliceSound(dir.Path());
}

TEST(FileIndexedTerms, ARewriteDropsDeletedDocumentsAndFreesTheOldBlockOnlyAfterItsRecord) {
    TempDir dir;
    Store store = Open(dir.Path());
    Apply(*store, {{0, Range(0, 10)}, {1, Range(0, 10)}, {2, Range(0, 10)}});
    const Record before = RecordOf(dir.Path(), 0);

    VantuAlgo::BitVector deleted;
    deleted.resize(18);
    for (uint32_t d : {2u, 5u, 15u}) deleted.set(d, true);
    store->SetDeletedDocumentsVector(deleted);
    VantuAlgo::BitVector all;
    all.resize(40, true);
    // Term 0 outgrows its block and is rewritten without its deleted documents; term 1 keeps room, and its
    // deleted documents stay for the evaluators to filter.
    store->BeginTransaction();
    store->AddDocumentsForTerm(0, Operations(Range(10, 20)).pointers);
    store->AddDocumentsForTerm(1, Operations({10}).pointers);
    store->PreCommit();
    store->Commit(false, nullptr);

    std::vector<uint32_t> kept;
    for (uint32_t d = 0; d < 20; ++d)
        if (!deleted[d]) kept.push_back(d);
    EXPECT_EQ(Differs(*store, 0, kept), "");
    std::vector<uint32_t> term1 = Range(0, 11);
    EXPECT_EQ(Differs(*store, 1, term1), "");
    const Record after = RecordOf(dir.Path(), 0);
    EXPECT_NE(after.BlockStart(), before.BlockStart());
    // The old block is free in the committed list.
    VantuFile::PersistentEmptyListT<uint64_t> free(dir / "Terms.tin.pty");
    free.Reload();
    auto block = free.Blocks().upper_bound(before.BlockStart());
    ASSERT_NE(block, free.Blocks().begin());
    --block;
    EXPECT_LE(block->first + 0, before.BlockStart());
    EXPECT_GE(block->first + block->second, before.BlockStart() + before.AllocatedSize());

    // A rewrite that keeps no posting leaves a fresh record.
    store->SetDeletedDocumentsVector(all);
    store->BeginTransaction();
    store->AddDocumentsForTerm(2, Operations(Range(10, 30)).pointers);
    store->PreCommit();
    store->Commit(false, nullptr);
    EXPECT_EQ(RecordOf(dir.Path(), 2).bytes, Record().bytes);
    EXPECT_EQ(store->LoadTerm(2, true)->GetNumberOfDocuments(), 0u);
    ExpectSliceSound(dir.Path());
}

// D6: ids that the Lexicon gave to terms without postings, or that lie beyond a whole batch, get fresh records.
TEST(FileIndexedTerms, GapsInTermIdsLeaveFreshRecordsNeverZeroedOnes) {
    TempDir dir;
    Store store = Open(dir.Path());
    Model model;
    const Adds first = {{0, Range(0, 6)}}, second = {{3, {1}}, {1203, Range(0, 5)}, {2500, Range(0, 30)}};
    Apply(*store, first);
    Apply(*store, second);
    Fold(model, first);
    Fold(model, second);
    const std::string tix = FileBytes(dir / "Terms.tix");
    ASSERT_EQ(tix.size(), 2501 * Record::kSize);
    const std::string fresh(reinterpret_cast<const char*>(Record().bytes.data()), Record::kSize);
    for (uint32_t term = 0; term <= 2500; ++term)
        if (!model.count(term)) {
            ASSERT_EQ(tix.substr(term * Record::kSize, Record::kSize), fresh) << term;
        }
    // A term of a gap takes postings like any other.
    const Adds third = {{1, Range(0, 5)}, {1500, Range(3, 40)}, {2500, {30}}};
    Apply(*store, third);
    Fold(model, third);
    EXPECT_EQ(Differs(*store, model), "");
    // An id at or below the last one of the transaction is refused before anything is written.
    store->BeginTransaction();
    store->AddDocumentsForTerm(1500, Operations({50}).pointers);
    EXPECT_THROW(store->AddDocumentsForTerm(3, Operations({51}).pointers), SarException);
    EXPECT_THROW(store->AddDocumentsForTerm(1500, Operations({52}).pointers), SarException);
    store->Rollback();
    EXPECT_EQ(Differs(*store, model), "");
    ExpectSliceSound(dir.Path());
}

TEST(FileIndexedTerms, ALogWithoutItsEndRaisesAtTheEndOfTheFile) {
    TempDir dir;
    {
        SarTransaction log(Vantu::FromUtf8(dir / "Terms.ttr"), true);
        log.Open(false);
        SarTransaction::Stream& stream = log.GetStream();
        stream << uint32_t(0) << uint64_t(0) << uint32_t(0) << uint32_t(0) << uint32_t(0) << uint32_t(0);
        stream << uint32_t(FileIndexedTerms::kPositions) << uint32_t(1) << uint32_t(0) << uint32_t(3);
        stream.PutExact("abc", 3);
        log.Close();
    }
    Store store = Open(dir.Path());
    EXPECT_THROW(store->Commit(false, nullptr), Vantu::BinaryStreamGetEOFException);
    // The log stays for a later attempt, and a rollback removes it.
    EXPECT_TRUE(VantuFile::FileExists(dir / "Terms.ttr"));
    store->Rollback();
    EXPECT_FALSE(VantuFile::FileExists(dir / "Terms.ttr"));
}

namespace {

struct Files {
    std::string tix, tin, pty, tps[4];
    bool operator==(const Files&) const = default;
};

Files Snapshot(const std::string& dir) {
    Files files{FileBytes(dir + "/Terms.tix"), FileBytes(dir + "/Terms.tin"), FileBytes(dir + "/Terms.tin.pty"), {}};
    for (int n = 0; n < 4; ++n) files.tps[n] = FileBytes(dir + "/Terms." + std::to_string(n) + ".tps");
    return files;
}

const Adds kFirst = {{0, Range(0, 3)}, {1, Range(0, 10)}, {2, Range(0, 30)}, {5, Range(0, 4)}, {6, Range(0, 40)}};
// Inline to chunk, a pending posting, an append, a rewrite, new terms across a batch.
const Adds kSecond = {{0, {3}}, {1, {10}}, {2, Range(30, 34)}, {5, Range(4, 40)}, {6, {40}}, {7, Range(0, 9)},
                      {1100, Range(5, 60)}};

// Asks the replay to stop at the first progress it reports.
class CancellingEntry : public Vantu::LogEntry {
public:
    explicit CancellingEntry(bool& cancel) : LogEntry(nullptr, u"Commit", Normal), cancel_(cancel) {}
    void SetProgress(double progress) override {
        LogEntry::SetProgress(progress);
        cancel_ = true;
    }

private:
    bool& cancel_;
};

void CommitFirst(const std::string& dir) { Apply(*Open(dir), kFirst); }
void PreCommitSecond(const std::string& dir) { Apply(*Open(dir), kSecond, false); }

Model Both() {
    Model model;
    Fold(model, kFirst);
    Fold(model, kSecond);
    return model;
}

}  // namespace

TEST(FileIndexedTerms, ACommitCutShortAnywhereEndsByteIdenticalWhenReplayed) {
    TempDir reference;
    CommitFirst(reference.Path());
    PreCommitSecond(reference.Path());
    Open(reference.Path())->Commit(false, nullptr);
    const Files after = Snapshot(reference.Path());
    ASSERT_FALSE(VantuFile::FileExists(reference / "Terms.ttr"));
    ASSERT_EQ(Differs(*Open(reference.Path()), Both()), "");

    // A replay cancelled at its first progress report leaves the log; the next one ends with the same files.
    TempDir cancelled;
    CommitFirst(cancelled.Path());
    PreCommitSecond(cancelled.Path());
    bool cancel = false;
    Vantu::SmartPtr<Vantu::LogEntryCallInterface> progress(new CancellingEntry(cancel));
    progress->SetProgress(0.5);
    cancel = false;
    Open(cancelled.Path())->Commit(cancel, progress);
    EXPECT_TRUE(cancel);
    EXPECT_GT(progress->GetProgress(), 0.5);
    EXPECT_TRUE(VantuFile::FileExists(cancelled / "Terms.ttr"));
    Open(cancelled.Path())->Commit(false, nullptr);
    EXPECT_TRUE(Snapshot(cancelled.Path()) == after);

    // Every case starts from a copy of the pre-committed state, built once.
    TempDir before;
    CommitFirst(before.Path());
    PreCommitSecond(before.Path());
    CrashScenario s;
    s.setup = [&before](const std::string& dir) {
        std::filesystem::copy(before.Path(), dir, std::filesystem::copy_options::recursive);
    };
    s.run = [](const std::string& dir) { Open(dir)->Commit(false, nullptr); };
    s.check = [&after](const std::string& dir, const CrashCase&) -> std::string {
        // Recovery finds the log and commits again.
        Open(dir)->Commit(false, nullptr);
        if (VantuFile::FileExists(dir + "/Terms.ttr")) return "the log is still there";
        const Files files = Snapshot(dir);
        if (files.tix != after.tix) return "Terms.tix differs";
        if (files.tin != after.tin) return "Terms.tin differs";
        if (files.pty != after.pty) return "Terms.tin.pty differs";
        for (int n = 0; n < 4; ++n)
            if (files.tps[n] != after.tps[n]) return "Terms." + std::to_string(n) + ".tps differs";
        const std::string differs = Differs(*Open(dir), Both());
        return differs.empty() ? SliceFaults(dir) : differs;
    };
    const CrashReport report = RunAtEveryCrashPoint(s, {CrashMode::ProcessDeath, CrashMode::PowerLoss});
    EXPECT_GE(report.crashPoints.size(), 6u);
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
}

// Queries load terms while the reader thread commits: every load is the term as one transaction left it.
TEST(FileIndexedTerms, LoadTermDuringCommitSeesOldOrNewPostingsNeverAMix) {
    TempDir dir;
    Store store = Open(dir.Path());
    // Terms a batch apart: blocks that one batch's rewrites free are handed to the next batch in the same commit.
    constexpr uint32_t kTerms = 40, kTransactions = 30, kSpacing = FileIndexedTerms::kBatchRecords + 1;
    std::atomic<bool> done{false};
    std::atomic<uint32_t> failures{0}, loads{0};
    // Transaction t adds to term i the documents [start(t), start(t + 1)), a number that varies with i and t so
    // that terms pass through inline records, pending postings, appends and rewrites.
    auto start = [](uint32_t term, uint32_t t) {
        uint32_t documents = 0;
        for (uint32_t k = 0; k < t; ++k) documents += 1 + (term * 7 + k * 3) % (term % 4 == 0 ? 40 : 5);
        return documents;
    };
    std::thread writer([&] {
        for (uint32_t t = 0; t < kTransactions; ++t) {
            Adds adds;
            for (uint32_t term = 0; term < kTerms; ++term) adds[term * kSpacing] = Range(start(term, t), start(term, t + 1));
            Apply(*store, adds);
        }
        done = true;
    });
    std::vector<std::thread> queries;
    for (uint32_t q = 0; q < 2; ++q)
        queries.emplace_back([&, q] {
            for (uint32_t round = 0; !done; ++round) {
                const uint32_t term = (round * 7 + q) % kTerms;
                Vantu::SmartPtr<Term> loaded = store->LoadTerm(term * kSpacing, true);
                const uint32_t n = loaded->GetNumberOfDocuments();
                bool whole = false;
                for (uint32_t t = 0; t <= kTransactions && !whole; ++t) whole = start(term, t) == n;
                for (uint32_t i = 0; i < n && whole; ++i)
                    whole = loaded->GetDocumentWeights()[i].DocumentId() == i;
                if (!whole) ++failures;
                ++loads;
            }
        });
    writer.join();
    for (std::thread& q : queries) q.join();
    EXPECT_EQ(failures, 0u);
    EXPECT_GT(loads, 0u);
    Model model;
    for (uint32_t term = 0; term < kTerms; ++term) model[term * kSpacing] = Range(0, start(term, kTransactions));
    EXPECT_EQ(Differs(*store, model), "");
}
