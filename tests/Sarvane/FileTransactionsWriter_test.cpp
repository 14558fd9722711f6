#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "CrashHarness.h"
#include "DocumentWordStream.h"
#include "IndexedDocument.h"
#include "Lexicon.h"
#include "MessageIdOf.h"
#include "SarException.h"
#include "FileDocIdIndexId.h"
#include "FileTransactionsWriter.h"
#include "RecordingLog.h"
#include "SarTransactionRecords.h"
#include "SliceCheck.h"
#include "SliceFiles.h"
#include "TempDir.h"
#include "core/Text.h"
#include "file/CFileT.h"
#include "file/FileSystem.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

using Pairs = std::vector<std::pair<uint32_t, uint16_t>>;

// One slice's side of the writer: its configuration, id map, statistics and pending count.
struct Slice {
    explicit Slice(const std::string& dir) : dir(dir), config(SliceConfigIn(dir)), map(new FileDocIdIndexId(config, false)) {
        map->RecoveryDone();
    }
    Vantu::SmartPtr<FileTransactionsWriter> Writer(uint64_t number = 1) {
        path = dir + "/" + Vantu::ToUtf8(SarTransactionFileName(number));
        return new FileTransactionsWriter(config, map, Vantu::FromUtf8(path), statistics, section, pending, log);
    }
    // Index document ids `keys` become committed documents of the map, as an earlier transaction leaves them.
    void Commit(const std::vector<uint32_t>& keys) {
        for (uint32_t key : keys) map->AddDocument(key);
        map->PreCommit();
        map->Commit();
    }

    std::string dir;
    std::string path;
    Vantu::SmartPtr<SarvaneInternalConfig> config;
    Vantu::SmartPtr<FileDocIdIndexId> map;
    SarvaneSliceStatistics statistics;
    std::mutex section;
    uint32_t pending = 0;
    Vantu::SmartPtr<RecordingLog> log{new RecordingLog};
};

bool Exists(const std::string& path) { return VantuFile::FileExists(path); }

}  // namespace

TEST(FileTransactionsWriter, RanksAndDeletionsAloneMakeAFileWithoutDocumentRecords) {
    TempDir dir;
    Slice slice(dir.Path());
    slice.Commit({10, 11, 12, 13});

    // Nothing to say: the ".ttp" goes and no transaction comes into being.
    auto empty = slice.Writer(1);
    EXPECT_TRUE(Exists(slice.path + ".ttp"));
    empty->UpdateDocumentsRank({{99, 1.0f}});  // unknown: dropped
    empty->DeleteDocuments({{98, 1}});         // unknown: dropped
    empty->PreCommit();
    empty->Commit();
    EXPECT_FALSE(Exists(slice.path + ".ttp") || Exists(slice.path + ".trc") || Exists(slice.path));
    EXPECT_EQ(slice.pending, 0u);

    auto writer = slice.Writer(2);
    writer->UpdateDocumentsRank({{11, 0.25f}, {13, 0.5f}});
    writer->UpdateDocumentsRank({{10, 0.75f}, {11, 2.0f}});  // the later rank of 11 wins
    writer->DeleteDocuments({{12, 4}, {13, 5}});
    writer->DeleteDocuments({{12, 4}});  // already gone from the map: nothing more
    writer->PreCommit();
    EXPECT_TRUE(FileTransactionsWriter::CheckForRecovery(*slice.config));
    writer->Commit();
    EXPECT_FALSE(FileTransactionsWriter::CheckForRecovery(*slice.config));
    ASSERT_TRUE(Exists(slice.path));
    EXPECT_EQ(slice.pending, 1u);
    EXPECT_TRUE(slice.log->Contains(u"] Transaction Index-0000000002.trn written. (0 documents to add; 2 "
                                    u"documents to delete)"));

    const TransactionContents contents = TransactionContents::Decode(slice.path, false);
    EXPECT_TRUE(contents.documents.empty());  // the body opens with 0xED
    EXPECT_EQ(contents.sections.ranks, (std::vector<std::pair<uint32_t, float>>{{0, 0.75f}, {1, 2.0f}, {3, 0.5f}}));
    EXPECT_EQ(contents.sections.deletions, (Pairs{{2, 4}, {3, 5}}));
    EXPECT_TRUE(contents.sections.terms.empty());
    EXPECT_EQ(contents.trailer.collections, (std::map<uint16_t, std::pair<uint32_t, uint32_t>>{{4, {0, 1}}, {5, {0, 1}}}));
    EXPECT_TRUE(contents.trailer.removed.empty());
    EXPECT_EQ(slice.statistics.collections[4].pendingDeleted, 1u);

    // Recovery without the container's decision removes every pre-committed transaction, not only the first.
    std::filesystem::rename(slice.path, slice.path + ".trc");
    std::filesystem::copy_file(slice.path + ".trc", dir / "Index-0000000003.trn.trc");
    FileTransactionsWriter::DoRecovery(slice.config, *slice.map, false, slice.log);
    EXPECT_FALSE(FileTransactionsWriter::CheckForRecovery(*slice.config));
    EXPECT_TRUE(slice.log->Contains(u"Proceeding with rollback..."));
}

namespace {

using Term = DocumentWordStream::Term;

Term MakeTerm(std::string term, uint16_t flags, std::vector<unsigned int> positions) {
    Term t;
    t.term = std::move(term);
    t.flags = flags;
    for (unsigned int p : positions) t.occurence.positions.push_back(p);
    return t;
}

std::vector<unsigned int> Range(unsigned int count, unsigned int step = 1) {
    std::vector<unsigned int> positions;
    for (unsigned int i = 0; i < count; ++i) positions.push_back(i * step);
    return positions;
}

Vantu::SmartPtr<Document> MakeDocument(uint16_t collection, const DocumentWordStream& stream) {
    Vantu::SmartPtr<Document> document(new Document);
    document->URI(u"file:///doc");
    document->collection = collection;
    stream.Write(document->wordStream);
    return document;
}

// The bytes of one zlib unit, inflated.
void Inflate(const std::vector<uint8_t>& unit, std::vector<uint8_t>& out) {
    VantuFile::StaticMemoryBuffer source(static_cast<const void*>(unit.data()), unit.size());
    VantuCompression::ZLib zlib(1, 5, 15);
    VantuCompression::ICompressedBufferT<unsigned int> inflater(source, &zlib);
    uint8_t chunk[4096];
    while (size_t n = inflater.Get(chunk, sizeof chunk)) out.insert(out.end(), chunk, chunk + n);
}

std::vector<unsigned int> PositionsOf(const TransactionTermEntry& entry) {
    const auto positions = entry.Positions();
    return std::vector<unsigned int>(positions.begin(), positions.end());
}

}  // namespace

TEST(FileTransactionsWriter, ATransactionDecodesToExactlyWhatWasAdded) {
    TempDir dir;
    Slice slice(dir.Path());
    slice.config->SetDocumentLevelSecurity(true);
    slice.Commit({50});  // document 0, from an earlier transaction
    auto writer = slice.Writer(7);

    DocumentWordStream a;
    a.terms = {MakeTerm("alpha", 0x0021, {1, 5}), MakeTerm("beta", 0, Range(31))};
    a.lastTerms = {MakeTerm("gamma", 0x3FFF, {40})};
    a.shingles = VantuAlgo::ShingleBag({u"one", u"two", u"three", u"four"});
    for (uint8_t i = 0; i < a.signature.size(); ++i) a.signature[i] = uint8_t(i + 1);
    a.sentences = {SummarySentence{u"One sentence."}};
    a.fields = {{CustomField("Author", CustomFieldValue(std::string("Bob")), 0x06), {MakeTerm("bob", 0, {0})},
                 {MakeTerm("!", 0, {1})}},
                {CustomField("Pages", CustomFieldValue(int32_t(12)), 0x02), {}, {}},
                {CustomField("Note", CustomFieldValue(std::string("n")), 0x04), {}, {}}};
    a.words = {{u"Alpha", 1}, {u"beta", 300}};
    auto first = MakeDocument(1, a);
    first->title = u"  Title ";
    first->size = 1234;
    first->securityAccess.allowed = {u"alice"};
    first->securityAccess.denied = {u"eve"};
    EXPECT_EQ(writer->AddDocument(first, 100), 1u);

    DocumentWordStream b;
    b.terms = {MakeTerm("beta", 0, Range(32))};
    auto second = MakeDocument(2, b);
    second->size = 50;
    second->flags = Document::kSizeNotCounted;
    EXPECT_EQ(writer->AddDocument(second, 101), 2u);

    DocumentWordStream c;
    c.terms = {MakeTerm("alpha", 0, {0}), MakeTerm("delta", 0, {1})};
    c.words = {{u"Alpha", 2}};
    EXPECT_EQ(writer->AddDocument(MakeDocument(1, c), 102), 3u);
    // An empty stream uses no id.
    EXPECT_EQ(writer->AddDocument(Vantu::SmartPtr<Document>(new Document), 103), 0xFFFFFFFFu);
    EXPECT_EQ(slice.map->GetCurrentDocId(), 4u);
    writer->DeleteDocuments({{50, 9}, {102, 1}});  // one from before, one added and deleted now
    writer->PreCommit();
    writer->Commit();

    const TransactionContents contents = TransactionContents::Decode(slice.path, true);
    ASSERT_EQ(contents.documents.size(), 3u);  // the record of a removed document stays
    const TransactionDocumentRecord& record = contents.documents[0];
    EXPECT_EQ(record.documentId, 1u);
    EXPECT_EQ(record.collection, 1);
    EXPECT_EQ(record.size, 1234u);
    EXPECT_TRUE(record.hasShingles);
    EXPECT_EQ(record.signature, a.signature);
    ASSERT_EQ(record.customFields.size(), 1u);  // only indexed fields that aren't text
    EXPECT_EQ(record.customFields[0].Name(), "@Pages");
    EXPECT_EQ(record.allowed, std::vector<SarcIdentity>{u"alice"});
    EXPECT_EQ(record.denied, std::vector<SarcIdentity>{u"eve"});
    EXPECT_EQ(contents.documents[1].size, 0u);  // its size isn't counted
    EXPECT_FALSE(contents.documents[1].hasShingles);

    std::vector<uint8_t> bytes;
    Inflate(record.stored, bytes);
    VantuFile::StaticMemoryBuffer storedBuffer(static_cast<const void*>(bytes.data()), bytes.size());
    Vantu::BaseBinaryStream storedStream(&storedBuffer);
    IndexedDocument stored;
    stored.Load(storedStream);
    EXPECT_EQ(stored.title, u"Title");
    EXPECT_EQ(stored.documentId, 1u);
    EXPECT_EQ(stored.summarySentences, a.sentences);
    EXPECT_EQ(stored.shingles, a.shingles);
    ASSERT_EQ(stored.userFields.size(), 2u);  // the fields that travel, in their order
    EXPECT_EQ(stored.userFields[0].Name(), "@Author");
    EXPECT_EQ(stored.userFields[1].Name(), "@Note");

    bytes.clear();
    Inflate(record.words, bytes);
    VantuFile::StaticMemoryBuffer wordsBuffer(static_cast<const void*>(bytes.data()), bytes.size());
    Vantu::BaseBinaryStream wordsStream(&wordsBuffer);
    uint32_t count;
    std::u16string word;
    uint8_t told;
    wordsStream >> count;
    EXPECT_EQ(count, 2u);
    wordsStream >> word >> told;
    EXPECT_EQ(std::make_pair(word, told), std::make_pair(std::u16string(u"Alpha"), uint8_t(0)));
    wordsStream >> word >> told;
    EXPECT_EQ(told, 255);  // a frequency above 256 counts as 256

    // Term tables in byte order, the removed document's operations gone, flags and counts in place.
    const TransactionSections& sections = contents.sections;
    std::vector<std::string> terms;
    for (const auto& [term, entries] : sections.terms) terms.push_back(term);
    EXPECT_EQ(terms, (std::vector<std::string>{"alpha", "beta", "gamma"}));
    const auto& alpha = sections.terms.at("alpha");
    ASSERT_EQ(alpha.size(), 1u);
    EXPECT_EQ(alpha[0].operation.DocumentId(), 1u);
    EXPECT_EQ(alpha[0].operation.TermFlags(), 0x0021);
    EXPECT_EQ(alpha[0].operation.PositionCount(), 2u);
    EXPECT_EQ(PositionsOf(alpha[0]), (std::vector<unsigned int>{1, 5}));
    const auto& beta = sections.terms.at("beta");
    ASSERT_EQ(beta.size(), 2u);
    EXPECT_EQ(beta[0].operation.PositionCount(), 31u);
    EXPECT_EQ(beta[1].operation.PositionCount(), 0u);  // 32 positions don't fit the count
    EXPECT_EQ(beta[1].Positions().size(), 32u);
    EXPECT_EQ(sections.terms.at("gamma")[0].operation.TermFlags(), 0x3FFF);
    EXPECT_EQ(sections.operationCount, 4u);
    uint32_t positionBytes = 0;
    for (const auto& [term, entries] : sections.terms)
        for (const auto& entry : entries) positionBytes += uint32_t(entry.data.size());
    EXPECT_EQ(sections.operationBytes, positionBytes);

    ASSERT_EQ(sections.fields.count("@author"), 1u);
    EXPECT_EQ(sections.fields.at("@author").size(), 2u);  // "!" and "bob"
    EXPECT_EQ(sections.customFieldOperationCount, 2u);
    EXPECT_EQ(sections.fieldDocuments,
              (std::map<std::string, std::vector<uint32_t>>{{"@author", {1}}, {"@pages", {1}}}));
    EXPECT_EQ(sections.words, (std::map<std::u16string, uint32_t>{{u"Alpha", 3}, {u"beta", 256}}));
    EXPECT_EQ(sections.deletions, (Pairs{{0, 9}}));

    // Added and deleted in one transaction: in neither count, and in the removed list.
    EXPECT_EQ(contents.trailer.collections,
              (std::map<uint16_t, std::pair<uint32_t, uint32_t>>{{1, {1, 0}}, {2, {1, 0}}, {9, {0, 1}}}));
    EXPECT_EQ(contents.trailer.removed, std::vector<uint32_t>{3});
    EXPECT_EQ(slice.statistics.collections[1].pendingAdded, 1u);
    EXPECT_EQ(slice.statistics.collections[9].pendingDeleted, 1u);
}

TEST(FileTransactionsWriter, PositionsThatDontFitAreCutFromTheEnd) {
    TempDir dir;
    Slice slice(dir.Path());
    auto writer = slice.Writer();
    DocumentWordStream stream;
    stream.terms = {MakeTerm("wide", 0, Range(100000, 1000))};
    writer->AddDocument(MakeDocument(1, stream), 1);
    EXPECT_GT(writer->MemoryInUse(), 0u);
    writer->PreCommit();
    writer->Commit();
    const TransactionContents contents = TransactionContents::Decode(slice.path, true);
    const TransactionTermEntry& entry = contents.sections.terms.at("wide").at(0);
    EXPECT_LE(entry.data.size(), 0xFFFFu);
    EXPECT_GT(entry.data.size(), 0xF000u);  // cut close to the limit, not far below it
    EXPECT_EQ(entry.operation.PositionCount(), 0u);
    const auto kept = PositionsOf(entry);
    ASSERT_GT(kept.size(), 1000u);
    ASSERT_LT(kept.size(), 100000u);
    for (size_t i = 0; i < kept.size(); ++i) ASSERT_EQ(kept[i], i * 1000) << i;
}

// D2: a document refused for its stream, its fields or an over-long term takes no id and leaves nothing behind. D3: ids needn't ascend with index document ids, and the rank list still comes out by id.
TEST(FileTransactionsWriter, D2_D3_RefusedDocumentsLeaveNoTraceAndRanksFollowDocumentIds) {
    TempDir dir;
    Slice slice(dir.Path());
    auto writer = slice.Writer();
    DocumentWordStream badField;
    badField.terms = {MakeTerm("lost", 0, {0})};
    badField.fields = {{CustomField(std::string(Lexicon::kMaxTermSize + 1, 'f'), CustomFieldValue(int32_t(1)), 0x02), {}, {}}};
    EXPECT_EQ(MessageIdOf<SarInvalidCustomField>([&] { writer->AddDocument(MakeDocument(1, badField), 5); }), 13);
    Vantu::SmartPtr<Document> garbage(new Document);
    garbage->wordStream.Put("not a zlib unit", 15);
    EXPECT_ANY_THROW(writer->AddDocument(garbage, 6));
    DocumentWordStream longTerm;
    longTerm.terms = {MakeTerm(std::string(Lexicon::kMaxTermSize + 1, 'x'), 0, {0}), MakeTerm("lost", 0, {1})};
    EXPECT_THROW(writer->AddDocument(MakeDocument(1, longTerm), 7), SarException);
    EXPECT_EQ(slice.map->GetCurrentDocId(), 0u);

    DocumentWordStream good;
    good.terms = {MakeTerm(std::string(Lexicon::kMaxTermSize, 'x'), 0, {0}), MakeTerm("kept", 0, {1})};
    EXPECT_EQ(writer->AddDocument(MakeDocument(1, good), 20), 0u);
    EXPECT_EQ(writer->AddDocument(MakeDocument(1, good), 10), 1u);
    writer->UpdateDocumentsRank({{10, 1.0f}, {20, 2.0f}});
    writer->UpdateDocumentsRank({{20, 3.0f}});
    writer->PreCommit();
    writer->Commit();

    const TransactionContents contents = TransactionContents::Decode(slice.path, true);
    EXPECT_EQ(contents.documents.size(), 2u);
    std::vector<std::string> terms;
    for (const auto& [term, entries] : contents.sections.terms) terms.push_back(term);
    EXPECT_EQ(terms, (std::vector<std::string>{"kept", std::string(Lexicon::kMaxTermSize, 'x')}));
    EXPECT_EQ(contents.sections.operationCount, 4u);
    EXPECT_TRUE(contents.sections.fieldDocuments.empty());
    EXPECT_EQ(contents.sections.ranks, (std::vector<std::pair<uint32_t, float>>{{0, 3.0f}, {1, 1.0f}}));
}

namespace {

// What recovery leaves, in the terms of the test below: "before" (no transaction, key 10 still mapped), "after"
// (the transaction pending, key 10 deleted and the map's counter moved on), or what is wrong.
std::string Judge(const std::string& dir, bool recover) {
    {
        Slice slice(dir);
        FileTransactionsWriter::DoRecovery(slice.config, *slice.map, recover, nullptr);
    }
    Slice slice(dir);
    if (FileTransactionsWriter::CheckForRecovery(*slice.config)) return "a .trc survived recovery";
    const std::string path = dir + "/Index-0000000001.trn";
    if (Exists(path + ".ttp")) return "a .ttp survived recovery";
    const bool mapped = slice.map->GetDocId(10) != FileDocIdIndexId::kNoDocument;
    if (!Exists(path)) return mapped && slice.map->GetCurrentDocId() == 3 ? "before" : "half a rollback";
    const TransactionContents contents = TransactionContents::Decode(path, true);
    if (mapped || slice.map->GetCurrentDocId() != 4) return "a transaction without its map";
    return contents.sections.deletions == Pairs{{0, 1}} && contents.documents.size() == 1 ? "after" : "a torn transaction";
}

}  // namespace

// The container's decision record: made durable between the slices' pre-commit and their commit.
std::string Sentry(const std::string& dir) { return dir + "/sentry"; }

void MakeSentry(const std::string& dir) {
    VantuFile::CFileT<unsigned int> file(Sentry(dir));
    file.Open(VantuFile::CFileT<unsigned int>::kModeCreate);
    file.Flush();
    file.Close();
    VantuFile::SyncDirectoryOf(Sentry(dir));
}

// Recovery decides by the file's name and the container's decision alone: a ".ttp" goes, a ".trc" stays only
// when the container kept the batch; the id map moves in step, whatever instant the crash chose.
TEST(FileTransactionsWriter, RecoveryByNamesAfterACrashAtEveryStep) {
    CrashScenario s;
    s.setup = [](const std::string& dir) { Slice(dir).Commit({10, 11, 12}); };
    s.run = [](const std::string& dir) {
        Slice slice(dir);
        auto writer = slice.Writer(1);
        DocumentWordStream stream;
        stream.terms = {MakeTerm("word", 0, {0})};
        writer->AddDocument(MakeDocument(1, stream), 20);  // id 3, given out by this transaction
        writer->DeleteDocuments({{10, 1}});
        writer->PreCommit();
        MakeSentry(dir);
        writer->Commit();
    };
    s.check = [](const std::string& dir, const CrashCase& c) -> std::string {
        const bool kept = Exists(Sentry(dir));
        const std::string state = Judge(dir, kept);
        if (state != (c.completed || kept ? "after" : "before"))
            return (kept ? "kept, but " : "dropped, but ") + state;
        return SliceFaults(dir);
    };
    // The torn variant adds nothing here that a plain power cut doesn't show, at a third of the time.
    const CrashReport report = RunAtEveryCrashPoint(s, {CrashMode::ProcessDeath, CrashMode::PowerLoss});
    EXPECT_GE(report.operations, 6u);
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
}
