#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "MessageIdOf.h"
#include "RecordingLog.h"
#include "SarException.h"
#include "SarIndexInfo.h"
#include "DocumentWordStream.h"
#include "FileDocIdIndexId.h"
#include "FileTransactionsWriter.h"
#include "HeldReader.h"
#include "Sarvane.h"
#include "SarvaneContainer.h"
#include "SarvaneContainerConfig.h"
#include "TempDir.h"
#include "ThreadsNamed.h"
#include "core/Text.h"
#include "file/FileSystem.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

SarvaneConfig SliceConfig(const std::string& path, uint16_t slice = 1) {
    SarvaneConfig config(1, 1, slice);
    config.SetIndexFilesPath(Vantu::FromUtf8(path));
    return config;
}

void Touch(const std::string& path, size_t size = 0) { std::ofstream(path, std::ios::binary) << std::string(size, 'x'); }

// Leaves in a stopped slice's directory one committed transaction per key, each deleting that document of
// `collection`: real transactions without any analysed document.
void CommitDeletions(const std::string& path, const std::vector<uint32_t>& keys, uint16_t collection) {
    Vantu::SmartPtr<SarvaneInternalConfig> config(new SarvaneInternalConfig(SliceConfig(path)));
    Vantu::SmartPtr<FileDocIdIndexId> map(new FileDocIdIndexId(config, false));
    map->RecoveryDone();
    for (uint32_t key : keys) map->AddDocument(key);
    map->PreCommit();
    map->Commit();
    SarvaneSliceStatistics statistics;
    std::mutex section;
    uint32_t pending = 0;
    SarTransactionCounter counter;
    for (uint32_t key : keys) {
        FileTransactionsWriter writer(config, map, counter.NextTransactionPath(Vantu::FromUtf8(path)), statistics,
                                      section, pending, nullptr);
        writer.DeleteDocuments({{key, collection}});
        writer.PreCommit();
        writer.Commit();
    }
}

}  // namespace

TEST(Sarvane, StartsStopsAndStartsAgainWithTheReaderOnlyWhenWritable) {
    TempDir dir;
    const std::string path = dir / "slice";
    Sarvane slice(SliceConfig(path));
    EXPECT_TRUE(std::filesystem::is_directory(path));
    EXPECT_FALSE(VantuFile::FileExists(path + "/Index.info"));
    EXPECT_THROW(slice.PreCommitFromReader(), SarIndexNotStarted);
    EXPECT_THROW(slice.Flush(), SarIndexNotStarted);
    SarvaneStatistics statistics;
    EXPECT_THROW(slice.GetStatistics(statistics), SarIndexNotStarted);

    const int before = ThreadsNamed("TransactionReader");
    slice.Start(false);
    EXPECT_TRUE(slice.IsStarted());
    EXPECT_TRUE(VantuFile::FileExists(path + "/Index.info"));
    EXPECT_EQ(ThreadsNamed("TransactionReader"), before + 1);
    EXPECT_THROW(slice.Start(false), SarIndexAlreadyStarted);
    EXPECT_THROW(slice.DoRecovery(false), SarIndexAlreadyStarted);
    EXPECT_THROW(slice.DeleteIndex(), SarIndexAlreadyStarted);
    for (int i = 0; i < 20; ++i) slice.Flush();
    EXPECT_EQ(slice.GetPendingTransactions(), 0u);

    slice.Stop(false);
    EXPECT_FALSE(slice.IsStarted());
    EXPECT_EQ(ThreadsNamed("TransactionReader"), before);
    slice.Stop(true);  // a second Stop does nothing
    EXPECT_THROW(slice.Flush(), SarIndexNotStarted);

    // A read-only slice has no reader and refuses the reader's steps and every change.
    slice.Start(true);
    EXPECT_EQ(ThreadsNamed("TransactionReader"), before);
    EXPECT_THROW(slice.PreCommitFromReader(), SarIndexReadOnly);
    EXPECT_THROW(slice.Flush(), SarIndexReadOnly);
    EXPECT_THROW(slice.SetSarvaneConfig(SliceConfig(path)), SarIndexReadOnly);
    slice.Stop(false);

    // Found transaction files count as pending from the reader's first look.
    CommitDeletions(path, {100, 101}, 3);
    HeldReader held;
    slice.Start(false);
    EXPECT_EQ(slice.GetPendingTransactions(), 2u);
    uint64_t files = 0;  // the counters, the transactions and the stores: all the directory holds
    for (const auto& file : std::filesystem::directory_iterator(path)) files += file.file_size();
    EXPECT_EQ(slice.GetDiskSpaceUsed(), files);
    EXPECT_EQ(slice.GetIndexFilesPath(), Vantu::FromUtf8(path));
    EXPECT_FALSE(slice.GetHostName().empty());
    slice.GetStatistics(statistics);
    ASSERT_EQ(statistics.slices.size(), 1u);
    EXPECT_EQ(statistics.slices.begin()->first, SarvaneStatistics::SliceKey(1, 1, 1));
    const SarvaneSliceStatistics& mine = statistics.slices.begin()->second;
    EXPECT_EQ(mine.diskSpaceUsed, slice.GetDiskSpaceUsed());
    // The found transactions' trailers count as pending deletions of their collection.
    SarvaneCollectionStatistics collection;
    ASSERT_TRUE(mine.GetCollectionStats(3, collection));
    EXPECT_EQ(collection.pendingDeleted, 2u);
    held.Release();
    slice.Flush();
    EXPECT_EQ(slice.GetPendingTransactions(), 0u);
}

TEST(Sarvane, T2_AReaderThatFailsEndsTheWaitsOfStartAndFlush) {
    TempDir dir;
    const std::string path = dir / "slice";
    Sarvane slice(SliceConfig(path));
    slice.Start(false);
    slice.Stop(false);
    // A transaction that was being applied: the recovery renames it back, and that rename fails.
    CommitDeletions(path, {7}, 3);
    const std::string pending = VantuFile::ListFiles(path, "Index-*.trn").front();
    std::filesystem::rename(pending, pending + ".trd");
    {
        VantuFile::FaultInjector faults;
        faults.FailAt(VantuFile::FileOp::Rename, 1, ENOSPC);
        faults.Activate();
        EXPECT_THROW(slice.Start(false), VantuFile::FileException);
        faults.Deactivate();
    }
    // The failed start leaves the slice up for the caller to stop; nothing waits on the dead reader.
    EXPECT_TRUE(slice.IsStarted());
    EXPECT_THROW(slice.Flush(), VantuFile::FileException);
    EXPECT_THROW(slice.Flush(), VantuFile::FileException);
    slice.Stop(false);
    slice.Start(false);
    slice.Flush();
    EXPECT_TRUE(VantuFile::ListFiles(path, "Index-*").empty());
}

TEST(Sarvane, FlushesFromSeveralThreadsEndAndAStopReleasesThoseStillWaiting) {
    TempDir dir;
    Sarvane slice(SliceConfig(dir / "slice"));
    for (int round = 0; round < 3; ++round) {
        slice.Start(false);
        std::atomic<int> answered{0};
        std::vector<std::thread> flushers;
        for (int t = 0; t < 4; ++t)
            flushers.emplace_back([&] {
                for (int i = 0; i < 50; ++i) {
                    try {
                        slice.Flush();
                    } catch (const SarIndexNotStarted&) {
                    }
                    ++answered;
                }
            });
        // The first round stops while the flushes run; the others once they are done.
        if (round > 0)
            while (answered < 200) std::this_thread::yield();
        slice.Stop(false);
        for (std::thread& t : flushers) t.join();
        EXPECT_EQ(answered, 200);
    }
}

TEST(Sarvane, CountersPassThroughIndexInfoAndARollbackReadsTheCommittedOnes) {
    TempDir dir;
    const std::string path = dir / "slice";
    {
        Sarvane slice(SliceConfig(path));
        slice.Start(false);
        for (int i = 0; i < 3; ++i) slice.AddDocumentContainingShingle();
        slice.PreCommitFromReader();
        slice.CommitFromReader();
        EXPECT_FALSE(VantuFile::FileExists(path + "/Index.info.new"));

        // D1: a pre-committed state is not what a rollback reads back.
        slice.DeleteDocumentContainingShingle();
        slice.PreCommitFromReader();
        ASSERT_TRUE(VantuFile::FileExists(path + "/Index.info.new"));
        slice.RollbackFromReader();
        EXPECT_EQ(slice.GetDocumentsWithShingles(), 3);
        slice.AddDocumentContainingShingle();
    }  // the destructor stops
    Sarvane again(SliceConfig(path));
    again.Start(false);
    EXPECT_EQ(again.GetDocumentsWithShingles(), 3);
    again.Stop(false);

    // A directory that holds only "Index.info.new" starts from it.
    std::filesystem::rename(path + "/Index.info", path + "/Index.info.new");
    again.Start(true);
    EXPECT_EQ(again.GetDocumentsWithShingles(), 3);
}

TEST(Sarvane, TheDocumentStoreOwnsTheCollectionsAndDeletedBitsOfIndexInfo) {
    TempDir dir;
    const std::string path = dir / "slice";
    std::filesystem::create_directories(path);
    SarIndexInfo stored;
    stored.collections = {{5, 100, 40, 2, 1}, {9, 7, 0, 1, 0}};
    stored.deletedBitCount = 1u << 18;
    stored.deletedBits.assign(stored.deletedBitCount / 8, 0);
    stored.deletedBits[0] = 0x20;
    stored.Save(path, true, false);

    Sarvane slice(SliceConfig(path));
    slice.Start(false);
    EXPECT_TRUE(VantuFile::FileExists(path + "/Documents.dix"));
    SarvaneStatistics statistics;
    slice.GetStatistics(statistics);
    SarvaneCollectionStatistics collection;
    ASSERT_TRUE(statistics.slices.begin()->second.GetCollectionStats(5, collection));
    EXPECT_EQ(collection.size, 100u);
    EXPECT_EQ(collection.deletedSize, 40u);
    EXPECT_EQ(collection.count, 2u);
    EXPECT_EQ(collection.deleted, 1u);
    EXPECT_EQ(slice.GetNumberOfDocuments(), 3u);
    // Written back by the store at the next pre-commit, unchanged.
    slice.PreCommitFromReader();
    slice.CommitFromReader();
    slice.Stop(false);
    SarIndexInfo reread;
    reread.Load(path + "/Index.info", false);
    EXPECT_EQ(reread, stored);
}

TEST(Sarvane, AnotherVersionFailsTheStartBeforeAnythingIsTouched) {
    TempDir dir;
    const std::string path = dir / "slice";
    Sarvane slice(SliceConfig(path));
    std::ofstream(path + "/Index.info", std::ios::binary) << std::string("\x01\x02\x03\x04garbage", 11);
    try {
        slice.Start(false);
        FAIL() << "started";
    } catch (const SarInvalidIndexVersionException& e) {
        EXPECT_EQ(e.GetMessageInfo()->Id(), 16);
        EXPECT_EQ(e.GetMessageInfo()->Params().at(0), u"67305985");
        EXPECT_EQ(e.GetMessageInfo()->Params().at(1), u"200403111");
    }
    EXPECT_FALSE(slice.IsStarted());
    EXPECT_EQ(std::filesystem::file_size(path + "/Index.info"), 11u);
    EXPECT_FALSE(VantuFile::FileExists(path + "/Index.info.tmp"));
}

TEST(Sarvane, DeleteIndexRemovesTheIndexFilesAndTheDirectoryUnlessAForeignFileStays) {
    TempDir dir;
    const std::string path = dir / "slice";
    Sarvane slice(SliceConfig(path));
    slice.Start(false);
    slice.AddDocumentContainingShingle();
    slice.PreCommitFromReader();
    slice.Stop(false);
    // The companions of "Index.info" go too: a ".new" one would be the next index's counters.
    for (const char* name : {"Index-0000000003.trn", "a.dix", "b.pty", "c.cor", "Index.info.new", "Index.info.tmp",
                             "keep.me"})
        Touch(path + "/" + name);
    std::filesystem::create_directories(path + "/Transactions/old");
    Touch(path + "/Transactions/old/Index-0000000001.trn");
    slice.DeleteIndex();
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(path)) left.push_back(entry.path().filename());
    EXPECT_EQ(left, std::vector<std::string>{"keep.me"});

    std::filesystem::remove(path + "/keep.me");
    slice.DeleteIndex();
    EXPECT_FALSE(std::filesystem::exists(path));
    // Recovery brings the directory back, and the next start begins a new index from zero.
    slice.DoRecovery(true);
    EXPECT_TRUE(std::filesystem::is_directory(path));
    slice.Start(false);
    EXPECT_EQ(slice.GetDocumentsWithShingles(), 0);
}

// A document with one term, of collection 1.
Vantu::SmartPtr<Document> OneWordDocument() {
    DocumentWordStream stream;
    DocumentWordStream::Term term;
    term.term = "word";
    term.occurence.positions.push_back(0);
    stream.terms = {term};
    Vantu::SmartPtr<Document> document(new Document);
    document->collection = 1;
    stream.Write(document->wordStream);
    return document;
}

TEST(Sarvane, IntakeMakesOneTransactionPerCommitAndRecoveryUndoesAnUnfinishedOne) {
    TempDir dir;
    const std::string path = dir / "slice";
    Sarvane slice(SliceConfig(path));
    slice.Start(false);
    EXPECT_EQ(MessageIdOf<SarInvalidCollectionID>([&] { slice.AddDocument(OneWordDocument(), 1); }), 8);
    slice.AddSupportedCollection(1);
    slice.PreCommit();  // nothing taken: no writer, no file
    slice.Commit();
    auto document = OneWordDocument();
    EXPECT_EQ(slice.AddDocument(document, 10), 0u);
    EXPECT_EQ(document->wordStream.DataSize(), 0u);  // released once the transaction holds it
    auto skipped = OneWordDocument();
    skipped->skipCode = 1;
    EXPECT_EQ(slice.AddDocument(skipped, 11), 0xFFFFFFFFu);
    slice.PreCommit();
    EXPECT_THROW(slice.CheckForRecovery(), SarCannotDoRecoveryIndexIsReadOnly);  // waits for the decision
    {
        HeldReader held;
        slice.Commit();
        slice.CheckForRecovery();
        EXPECT_TRUE(VantuFile::FileExists(path + "/Index-0000000000.trn"));
        EXPECT_EQ(slice.GetPendingTransactions(), 1u);
        held.Release();
        slice.Flush();
    }

    // A stop drops the open transaction; the next recovery removes it and gives its ids again.
    EXPECT_EQ(slice.AddDocument(OneWordDocument(), 12), 1u);
    slice.Stop(false);
    EXPECT_TRUE(VantuFile::FileExists(path + "/Index-0000000001.trn.ttp"));
    slice.DoRecovery(false);
    EXPECT_FALSE(VantuFile::FileExists(path + "/Index-0000000001.trn.ttp"));
    slice.Start(false);
    EXPECT_EQ(slice.GetCurrentDocumentID(), 1u);
    SarvaneStatistics statistics;
    slice.GetStatistics(statistics);
    SarvaneCollectionStatistics collection;
    ASSERT_TRUE(statistics.slices.begin()->second.GetCollectionStats(1, collection));
    EXPECT_EQ(collection.count, 1u);
    EXPECT_EQ(collection.pendingAdded, 0u);
}

TEST(Sarvane, ConfigurationAndCollectionsRefuseWhatTheSliceCannotTake) {
    TempDir dir;
    const std::string path = dir / "slice";
    Sarvane slice(SliceConfig(path));
    SarvaneConfig other(2, 1, 1);
    other.SetIndexFilesPath(Vantu::FromUtf8(path));
    EXPECT_EQ(MessageIdOf<SarInvalidPhysicalIndexID>([&] { slice.SetSarvaneConfig(other); }), 6);
    other = SarvaneConfig(1, 2, 1);
    EXPECT_EQ(MessageIdOf<SarInvalidMirrorID>([&] { slice.SetSarvaneConfig(other); }), 5);
    EXPECT_EQ(MessageIdOf<SarInvalidSliceID>([&] { slice.SetSarvaneConfig(SliceConfig(path, 2)); }), 7);

    slice.Start(false);
    SarvaneConfig moved = SliceConfig(dir / "elsewhere");
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { slice.SetSarvaneConfig(moved); }), 4);
    SarvaneConfig slower = SliceConfig(path);
    slower.SetIndexingPriority(VantuThread::Priority::BelowNormal);
    slice.SetSarvaneConfig(slower);
    slice.Flush();

    slice.AddSupportedCollection(4);
    slice.RemoveSupportedCollection(4);
    EXPECT_EQ(MessageIdOf<SarInvalidCollectionID>([&] { slice.RemoveSupportedCollection(4); }), 8);
}

namespace {

class NoSharedStore : public SarcSharedStore {
public:
    void Commit() override {}
    void Rollback() override {}
};

class NoURIStore : public SarcURIStore {
public:
    void Commit() override {}
    void Rollback() override {}
    void RecoveryDone() override {}
    void BeginTransaction() override {}
    uint32_t GetNumberOfDocuments() const override { return 0; }
};

class NoSecurityCache : public SarcSecurityCache {
public:
    void Commit() override {}
    void Rollback() override {}
    void RetrieveLocalNetworkIDs(const std::vector<SarcIdentity>& ids, std::vector<SarcIdentity>& out) override {
        out = ids;
    }
    void ExpandAllGroupsAgain() override {}
};

// The container's own stores do nothing here: the test is about the slices they sit beside.
class NoStores : public SarvaneContainerStores {
public:
    std::unique_ptr<SarcSharedStore> CreateCachedCopies(const std::string&, bool) override {
        return std::make_unique<NoSharedStore>();
    }
    std::unique_ptr<SarcSharedStore> CreateLinks(const std::string&, bool) override {
        return std::make_unique<NoSharedStore>();
    }
    void RecoverShrink(const SarvaneContainerConfig&) override {}
    Vantu::SmartPtr<SarcURIStore> CreateURIStore(const SarvaneContainerConfig&, bool) override {
        return new NoURIStore;
    }
    Vantu::SmartPtr<SarcSecurityCache> CreateSecurityCache(const SarvaneContainerConfig&, bool) override {
        return new NoSecurityCache;
    }
};

}  // namespace

TEST(Sarvane, ContainerStartsStopsAndDeletesRealSlices) {
    TempDir dir;
    std::filesystem::create_directories(dir / "index");
    SarvaneContainerConfig config(Vantu::FromUtf8(dir.Path()), Vantu::FromUtf8(dir / "index"), 2, 85,
                                  VantuThread::Priority::Normal, VantuThread::Priority::Normal, u"");
    Vantu::SmartPtr<SarvaneTest::RecordingLog> log(new SarvaneTest::RecordingLog);
    Vantu::SmartPtr<SarvaneContainer> container(new SarvaneContainer(config, log, std::make_unique<NoStores>()));
    container->AddPhysicalIndex(1);
    std::vector<Sarvane*> slices;
    for (uint16_t id : {1, 2}) {
        slices.push_back(new Sarvane(SliceConfig(dir / ("index/slice" + std::to_string(id)), id)));
        container->AddSliceIndex(slices.back(), 1, 1, id);
    }
    const int before = ThreadsNamed("TransactionReader");
    container->Start(false);
    for (Sarvane* slice : slices) EXPECT_TRUE(slice->IsStarted());
    EXPECT_EQ(ThreadsNamed("TransactionReader"), before + 2);
    EXPECT_TRUE(VantuFile::FileExists(dir / "index/slice2/Index.info"));
    container->Stop(false);
    for (Sarvane* slice : slices) EXPECT_FALSE(slice->IsStarted());
    EXPECT_EQ(ThreadsNamed("TransactionReader"), before);

    container->Start(true);
    EXPECT_TRUE(slices[0]->IsReadOnly());
    container->Stop(false);
    container->DeleteIndex();
    EXPECT_FALSE(std::filesystem::exists(dir / "index/slice1"));
    EXPECT_FALSE(std::filesystem::exists(dir / "index/slice2"));
}
