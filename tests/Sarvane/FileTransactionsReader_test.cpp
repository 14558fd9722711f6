#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "CrashHarness.h"
#include "DocumentAnalyser.h"
#include "FileTransactionsReader.h"
#include "FileTransactionsWriter.h"
#include "HeldReader.h"
#include "RecordingLog.h"
#include "SarException.h"
#include "SarSliceStores.h"
#include "Sarvane.h"
#include "SliceCheck.h"
#include "SliceFiles.h"
#include "TempDir.h"
#include "core/EventSemaphore.h"
#include "core/Text.h"
#include "file/FaultInjector.h"
#include "file/FileSystem.h"
#include "language/Language.h"
#include "language/StopWords.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

const char* const kWords[] = {"river", "mill",  "stone", "bridge", "north", "harbour", "lantern", "meadow",
                              "copper", "forest", "signal", "orchard", "valley", "thunder", "window", "garden"};

SarvaneConfig SliceConfig(const std::string& path, bool keepTransactions = false) {
    SarvaneConfig config(1, 1, 1);
    config.SetIndexFilesPath(Vantu::FromUtf8(path));
    config.SetTransactionsKeep(keepTransactions);
    return config;
}

// Generated documents: document `key` has the URI "doc:<key>", collection 1 or 2, and words of the list drawn
// by a generator seeded with the key, so every run builds the same text.
class Documents {
public:
    Vantu::SmartPtr<Document> Make(uint32_t key) const {
        std::mt19937 random(key);
        std::u16string body;
        for (int i = 0; i < 6 + int(key % 5); ++i) body += Vantu::FromUtf8(kWords[random() % 16]) + u" ";
        Vantu::SmartPtr<Document> document(new Document);
        document->URI(u"doc:" + Vantu::FromUtf8(std::to_string(key)));
        document->collection = uint16_t(1 + key % 2);
        DocumentAnalyser::Extras extras;
        extras.fields.emplace_back("@pages", CustomFieldValue(int32_t(key)), CustomField::kIndexed);
        analyser_.Analyse(*document, body, extras);
        return document;
    }
    // The terms and positions of the document, as its analysis gives them.
    std::map<std::string, std::vector<unsigned int>> Terms(uint32_t key) const {
        std::map<std::string, std::vector<unsigned int>> terms;
        for (const auto& term : DocumentWordStream::Read(Make(key)->wordStream).terms)
            terms[term.term].assign(term.occurence.positions.begin(), term.occurence.positions.end());
        return terms;
    }

private:
    VantuLanguage::Language language_{VantuLanguage::Language::kEnglish};
    VantuLanguage::StopWords stopWords_{true};
    DocumentAnalyser analyser_{language_, stopWords_};
};

const Documents& Texts() {
    static const Documents documents;
    return documents;
}

void Add(Sarvane& slice, uint32_t first, uint32_t count) {
    for (uint32_t key = first; key < first + count; ++key) slice.AddDocument(Texts().Make(key), key);
}

// As the container starts a slice that may have crashed: its collections, its recovery without the container's
// commit marker, then the start.
void StartAfterCrash(Sarvane& slice) {
    slice.AddSupportedCollection(1);
    slice.AddSupportedCollection(2);
    slice.DoRecovery(false);
    slice.Start(false);
}

void CommitAll(Sarvane& slice) {
    slice.PreCommit();
    slice.Commit();
}

std::unique_ptr<SarSliceStores> OpenStores(const std::string& dir) { return SarSliceStores::OpenStopped(SliceConfigIn(dir)); }

// A stopped slice's state, in a form two runs compare: each document's record, the postings with positions of
// every term the generated texts use, the collections' lists and the deleted documents.
std::string Digest(const std::string& dir) {
    const auto opened = OpenStores(dir);
    SarSliceStores& stores = *opened;
    std::ostringstream out;
    const uint32_t next = stores.documentIdMap->GetCurrentDocId();
    out << "documents " << stores.documents->GetNumberOfDocuments() << " of " << next << "\n";
    for (uint32_t id = 0; id < next; ++id) {
        const auto document = stores.documents->LoadDocument(id);
        out << id << " " << (document ? document->uri : "-") << " rank "
            << stores.documents->GetDocumentWeight(id).RankValue() << "\n";
    }
    std::set<std::string> terms;
    for (uint32_t key = 0; key < 64; ++key)
        for (const auto& [term, positions] : Texts().Terms(key)) terms.insert(term);
    for (const std::string& text : terms) {
        const auto term = stores.lexicon->LoadTerm(text, true);
        out << text << ":";
        if (!term) continue;
        const DocIDWeightStruct* cursor = nullptr;
        for (const DocIDWeightStruct& posting : term->GetDocumentWeights()) {
            Vantu::SmartPtr<FileIndexedTerms::Occurence> occurence;
            stores.lexicon->GetOccurencesForDocument(*term, posting.DocumentId(), occurence, cursor);
            out << " " << posting.DocumentId() << "@";
            for (unsigned int position : occurence->positions) out << position << ",";
        }
        out << "\n";
    }
    for (uint16_t collection : {1, 2}) {
        VantuAlgo::BitVector documents;
        stores.collections->GetValidDocuments({collection}, documents);
        out << "collection " << collection << ":";
        for (size_t id = 0; id < documents.size(); ++id)
            if (documents[id]) out << " " << id;
        out << "\n";
    }
    VantuAlgo::BitVector pages;
    stores.lexicon->GetDocumentsListForSmallTerm("@pages", pages);
    out << "@pages: " << pages.count() << "\n";
    const VantuAlgo::BitVector deleted = stores.documents->GetDeletedDocuments();
    out << "deleted:";
    for (size_t id = 0; id < deleted.size(); ++id)
        if (deleted[id]) out << " " << id;
    return out.str();
}

// The first transaction of the scenario, applied; the second written beside it and pending: documents 8 to 11,
// the deletion of 1 and 2 (and of 9, which the same transaction added), and ranks for 0 and 3.
void TwoTransactions(const std::string& dir) {
    {
        Sarvane slice(SliceConfig(dir));
        slice.AddSupportedCollection(1);
        slice.AddSupportedCollection(2);
        slice.Start(false);
        Add(slice, 0, 8);
        CommitAll(slice);
        slice.Flush();
    }
    Vantu::SmartPtr<SarvaneInternalConfig> config(new SarvaneInternalConfig(SliceConfig(dir)));
    Vantu::SmartPtr<FileDocIdIndexId> map(new FileDocIdIndexId(config, false));
    map->RecoveryDone();
    SarvaneSliceStatistics statistics;
    std::mutex section;
    uint32_t pending = 0;
    SarTransactionCounter counter;
    FileTransactionsWriter writer(config, map, counter.NextTransactionPath(Vantu::FromUtf8(dir)), statistics,
                                  section, pending, nullptr);
    for (uint32_t key = 8; key < 12; ++key) writer.AddDocument(Texts().Make(key), key);
    writer.DeleteDocuments({{1, 2}, {2, 1}, {9, 2}});
    writer.UpdateDocumentsRank({{0, 0.5f}, {3, 0.25f}});
    writer.PreCommit();
    writer.Commit();
}

void ApplyPending(const std::string& dir) {
    Sarvane slice(SliceConfig(dir));
    slice.Start(false);
    slice.Flush();
    slice.Stop(false);
}

}  // namespace

TEST(FileTransactionsReader, CommittedDocumentsReachEveryStoreWithTheirPostingsRecordsAndLists) {
    TempDir dir;
    const std::string path = dir / "slice";
    TwoTransactions(path);
    const std::vector<std::string> pending = VantuFile::ListFiles(path, "Index-*.trn");
    ASSERT_EQ(pending.size(), 1u);
    {
        Sarvane slice(SliceConfig(path, true));
        HeldReader held;
        slice.Start(false);
        EXPECT_EQ(slice.GetPendingTransactions(), 1u);
        held.Release();
        slice.Flush();
        EXPECT_EQ(slice.GetPendingTransactions(), 0u);
        EXPECT_EQ(slice.GetNumberOfDocuments(), 9u);  // 12 taken, 9 added and deleted at once, 1 and 2 deleted
        // Document 9 never counts among those with shingles: nothing would take it out again.
        EXPECT_EQ(slice.GetDocumentsWithShingles(), 9);
        SarvaneStatistics statistics;
        slice.GetStatistics(statistics);
        SarvaneCollectionStatistics collection;
        ASSERT_TRUE(statistics.slices.begin()->second.GetCollectionStats(1, collection));
        EXPECT_EQ(collection.pendingAdded + collection.pendingDeleted, 0u);
    }
    // The applied transaction went to the archive, under its own name.
    EXPECT_FALSE(VantuFile::FileExists(pending.front()));
    EXPECT_TRUE(VantuFile::FileExists(path + "/Transactions/" + std::filesystem::path(pending.front()).filename().string()));

    // Every posting is that of the analysis, with its positions, for the documents that stay.
    std::map<std::string, std::map<uint32_t, std::vector<unsigned int>>> expected;
    for (uint32_t key : {0, 3, 4, 5, 6, 7, 8, 10, 11})
        for (const auto& [term, positions] : Texts().Terms(key)) expected[term][key] = positions;
    const auto opened = OpenStores(path);
    SarSliceStores& stores = *opened;
    const VantuAlgo::BitVector deleted = stores.documents->GetDeletedDocuments();
    for (const auto& [text, documents] : expected) {
        const auto term = stores.lexicon->LoadTerm(text, true);
        ASSERT_TRUE(term) << text;
        std::map<uint32_t, std::vector<unsigned int>> found;
        const DocIDWeightStruct* cursor = nullptr;
        for (const DocIDWeightStruct& posting : term->GetDocumentWeights()) {
            if (posting.DocumentId() < deleted.size() && deleted[posting.DocumentId()]) continue;
            Vantu::SmartPtr<FileIndexedTerms::Occurence> occurence;
            ASSERT_TRUE(stores.lexicon->GetOccurencesForDocument(*term, posting.DocumentId(), occurence, cursor));
            found[posting.DocumentId()].assign(occurence->positions.begin(), occurence->positions.end());
        }
        EXPECT_EQ(found, documents) << text;
    }
    for (uint32_t key = 0; key < 12; ++key) {
        const auto document = stores.documents->LoadDocument(key);
        const bool gone = key == 1 || key == 2 || key == 9;
        EXPECT_EQ(!document, gone) << key;
        if (document) {
            EXPECT_EQ(document->uri, "doc:" + std::to_string(key));
        }
    }
    EXPECT_EQ(stores.documents->GetDocumentWeight(0).RankValue(), 0.5f);
    EXPECT_EQ(stores.documents->GetDocumentWeight(3).RankValue(), 0.25f);
    // Lists hold the documents that reached the store; the one added and deleted at once never did.
    for (uint16_t collection : {1, 2}) {
        VantuAlgo::BitVector documents;
        stores.collections->GetValidDocuments({collection}, documents);
        for (uint32_t key : {0, 3, 4, 5, 6, 7, 8, 10, 11})
            EXPECT_EQ(key < documents.size() && documents[key], key % 2 + 1 == collection) << key;
        EXPECT_FALSE(9 < documents.size() && documents[9]);
    }
    VantuAlgo::BitVector pages;
    stores.lexicon->GetDocumentsListForSmallTerm("@pages", pages);
    EXPECT_EQ(pages.count(), 11u);  // every document but 9, deleted ones until compaction
    ExpectSliceSound(path);
}

// Every durable step of applying a transaction, and of the recovery that follows, may be cut: the next start
// ends in the state of a run without a crash, each committed document present once, every deletion done.
TEST(FileTransactionsReader, ACrashAtAnyStepOfApplyingEndsInTheStateOfAnUninterruptedRun) {
    TempDir reference;
    TwoTransactions(reference / "slice");
    ApplyPending(reference / "slice");
    const std::string expected = Digest(reference / "slice");

    CrashScenario scenario;
    scenario.setup = [](const std::string& dir) { TwoTransactions(dir + "/slice"); };
    scenario.run = [](const std::string& dir) { ApplyPending(dir + "/slice"); };
    scenario.check = [&](const std::string& dir, const CrashCase&) -> std::string {
        ApplyPending(dir + "/slice");
        const std::string found = Digest(dir + "/slice");
        if (found != expected) return "state after recovery:\n" + found + "\nexpected:\n" + expected;
        return SliceFaults(dir + "/slice");
    };
    scenario.every = 5;
    const CrashReport report = RunAtEveryCrashPoint(scenario, {CrashMode::ProcessDeath, CrashMode::PowerLoss});
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
    std::cout << report.operations << " operations, " << report.cases << " cases\n";
    // The reader's own points were passed: each term's postings and the point of no return.
    EXPECT_NE(std::find(report.crashPoints.begin(), report.crashPoints.end(), "FileTransactionsReader: term applied"),
              report.crashPoints.end());
}

// A failure of a store, in the reader or in its postings helper, ends the reader with the file still ".trd";
// queries go on with the old state, and the next start rolls back and applies the transaction whole (T2).
TEST(FileTransactionsReader, T2_AFailedStoreLeavesTheTransactionForTheNextStartToApplyWhole) {
    TempDir reference;
    TwoTransactions(reference / "slice");
    ApplyPending(reference / "slice");
    const std::string expected = Digest(reference / "slice");
    for (const char* point : {"FileTransactionsReader: term applied", "FileTransactionsReader: stores pre-committed"}) {
        TempDir dir;
        const std::string path = dir / "slice";
        TwoTransactions(path);
        Vantu::SmartPtr<RecordingLog> log(new RecordingLog);
        {
            Sarvane slice(SliceConfig(path));
            slice.Initialize(log.Get());
            VantuFile::FaultInjector faults;
            faults.OnCrashPoint(point, 1, [] { throw SarNoSpaceLeft(SAR_MESSAGE(27)); });
            faults.Activate();
            slice.Start(false);
            EXPECT_THROW(slice.Flush(), SarNoSpaceLeft) << point;
            faults.Deactivate();
            EXPECT_EQ(slice.GetNumberOfDocuments(), 8u);  // the old state answers
            EXPECT_EQ(VantuFile::ListFiles(path, "Index-*.trn.trd").size(), 1u) << point;
        }
        EXPECT_TRUE(log->Contains(u" : Sarvane::ReadTransactions")) << point;
        ApplyPending(path);
        EXPECT_EQ(Digest(path), expected) << point;
        ExpectSliceSound(path);
    }
}

// A stop that abandons the transaction in work leaves a name that the next start settles.
TEST(FileTransactionsReader, AnAbortingStopLeavesAStateTheNextStartFinishes) {
    TempDir reference;
    TwoTransactions(reference / "slice");
    ApplyPending(reference / "slice");
    const std::string expected = Digest(reference / "slice");
    for (const char* point : {"FileTransactionsReader: term applied", "FileTransactionsReader: stores pre-committed",
                              "FileIndexedDocuments: record applied"}) {
        TempDir dir;
        const std::string path = dir / "slice";
        TwoTransactions(path);
        {
            // The reader waits at the point until the stop has begun, so the stop always finds it there.
            Sarvane slice(SliceConfig(path));
            VantuThread::EventSemaphore reached(true, false);
            VantuFile::FaultInjector faults;
            faults.OnCrashPoint(point, 1, [&] {
                reached.Post();
                while (!slice.IsStopping()) std::this_thread::yield();
            });
            faults.Activate();
            slice.Start(false);
            reached.Wait();
            slice.Stop(true);
            faults.Deactivate();
        }
        ApplyPending(path);
        EXPECT_EQ(Digest(path), expected) << point;
        ExpectSliceSound(path);
        EXPECT_TRUE(VantuFile::ListFiles(path, "Index-*").empty()) << point;
    }
}

// Intake refuses what the stores could never take, so that no committed transaction is impossible to apply: a
// field name or a term too long for a dictionary record refuses the document before it takes an id. The longest
// accepted name, term and value are applied.
TEST(FileTransactionsReader, WhatIntakeTakesCanAlwaysBeApplied) {
    TempDir dir;
    const std::string path = dir / "slice";
    Sarvane slice(SliceConfig(path));
    slice.AddSupportedCollection(1);
    slice.Start(false);
    const std::string longest = "@" + std::string(Lexicon::kMaxTermSize - 1, 'f');
    const auto withField = [](const std::string& name, size_t termSize = Lexicon::kMaxTermSize) {
        DocumentWordStream stream;
        DocumentWordStream::Term term;
        term.term = std::string(termSize, 'w');
        term.occurence.positions.push_back(0);
        stream.terms = {term};
        DocumentWordStream::Field field;
        field.field = CustomField(name, CustomFieldValue(std::string(Lexicon::kMaxTermSize, 'v')), CustomField::kIndexed);
        field.valueTerms = {term};
        stream.fields = {field};
        Vantu::SmartPtr<Document> document(new Document);
        document->collection = 1;
        stream.Write(document->wordStream);
        return document;
    };
    EXPECT_THROW(slice.AddDocument(withField(longest + "f"), 1), SarInvalidCustomField);
    EXPECT_THROW(slice.AddDocument(withField(longest, Lexicon::kMaxTermSize + 1), 3), SarException);
    EXPECT_EQ(slice.AddDocument(withField(longest), 2), 0u);
    CommitAll(slice);
    slice.Flush();
    EXPECT_EQ(slice.GetNumberOfDocuments(), 1u);
}

// Documents added, deleted and committed at random times, the process killed at random times: after each
// restart every document whose commit returned is there exactly once, and nothing else is but the documents of
// the commit that was in flight. SARVANE_READER_SOAK sets the number of kills (CI runs a few).
TEST(FileTransactionsReader, KillSoakNeverLosesNorDuplicatesACommittedDocument) {
    const char* rounds = getenv("SARVANE_READER_SOAK");
    const int kills = rounds ? atoi(rounds) : 4;
    TempDir dir;
    const std::string path = dir / "slice";
    std::mt19937 random(7);
    uint32_t committed = 0;  // keys below this are committed
    for (int round = 0; round < kills; ++round) {
        int report[2];
        ASSERT_EQ(pipe(report), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(report[0]);
            Sarvane slice(SliceConfig(path));
            StartAfterCrash(slice);
            for (uint32_t key = committed;; key += 5) {
                Add(slice, key, 5);
                CommitAll(slice);
                const uint32_t done = key + 5;
                if (write(report[1], &done, sizeof done) != sizeof done) _exit(1);
            }
        }
        close(report[1]);
        std::this_thread::sleep_for(std::chrono::milliseconds(100 + random() % 400));
        kill(child, SIGKILL);
        int status;
        waitpid(child, &status, 0);
        uint32_t done;
        uint32_t reported = committed;
        while (read(report[0], &done, sizeof done) == sizeof done) reported = done;
        close(report[0]);

        Sarvane slice(SliceConfig(path));
        StartAfterCrash(slice);
        slice.Flush();
        slice.Stop(false);
        // The commit in flight may have got past its rename: its five documents count then.
        const auto stores = OpenStores(path);
        std::multiset<std::string> uris;
        for (uint32_t id = 0; id < stores->documentIdMap->GetCurrentDocId(); ++id)
            if (const auto document = stores->documents->LoadDocument(id)) uris.insert(document->uri);
        committed = reported + (uris.size() == reported + 5 ? 5 : 0);
        ASSERT_EQ(uris.size(), committed) << "kill " << round;
        for (uint32_t key = 0; key < committed; ++key)
            ASSERT_EQ(uris.count("doc:" + std::to_string(key)), 1u) << key << " after kill " << round;
        ExpectSliceSound(path);
    }
}
