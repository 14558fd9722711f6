// Fakes of the slices and shared stores that a container drives, recording what reaches them, and a fixture
// with a container over them in a temporary directory. Any thread may call the fakes.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "RecordingLog.h"
#include "SarException.h"
#include "SarvaneConfig.h"
#include "SarvaneContainer.h"
#include "TempDir.h"
#include "core/Text.h"

namespace SarvaneTest {

using namespace Ostrel;

// Every call that reaches a fake slice or store, in arrival order; workers of the pool record too.
class Recorder {
public:
    void Add(const std::string& event) {
        std::lock_guard<std::mutex> hold(mutex_);
        events_.push_back(event);
    }
    std::vector<std::string> Events() const {
        std::lock_guard<std::mutex> hold(mutex_);
        return events_;
    }
    void Clear() {
        std::lock_guard<std::mutex> hold(mutex_);
        events_.clear();
    }
    // Position of the first event equal to `event`, or -1.
    int Find(const std::string& event) const {
        auto events = Events();
        auto it = std::find(events.begin(), events.end(), event);
        return it == events.end() ? -1 : int(it - events.begin());
    }
    bool Has(const std::string& event) const { return Find(event) >= 0; }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> events_;
};

class FakeSlice : public SarvaneCallInterface {
public:
    FakeSlice(Recorder& recorder, std::string name, SarvaneStatistics::SliceKey key = {})
        : r_(recorder), name_(std::move(name)), key_(key) {}
    ~FakeSlice() override { r_.Add(name_ + ":deleted"); }

    void Start(bool readOnly) override {
        r_.Add(name_ + (readOnly ? ":Start(ro)" : ":Start(rw)"));
        if (failStart) throw SarIndexReadOnly();
        started = true;
    }
    void Stop(bool abortTransaction) override {
        r_.Add(name_ + ":Stop");
        started = false;
    }
    void DeleteIndex() override { r_.Add(name_ + ":DeleteIndex"); }
    void Initialize(Vantu::LogCallInterface* log) override { r_.Add(name_ + ":Initialize"); }
    void PreCommit() override {}
    void Commit() override {}
    void DoRecovery(bool recover) override { r_.Add(name_ + (recover ? ":DoRecovery(1)" : ":DoRecovery(0)")); }
    void DeleteDocuments(const std::vector<std::pair<unsigned int, uint16_t>>&) override {}
    unsigned int GetPendingTransactions() const override { return 0; }
    // Fills its entry: collection 1 holds `documents`. Stopped or failing, it raises as a slice does.
    void GetStatistics(SarvaneStatistics& out) const override {
        ++statisticsCalls;
        if (!started) throw SarIndexNotStarted();
        if (failStatistics) throw SarIndexReadOnly();
        out.slices[key_].collections[1].count = documents;
    }
    void ApplyShrink() override {}
    void CancelShrink() override {}
    void DeleteShrink() override {}
    void SetSarvaneConfig(const SarvaneConfig& config) override {
        r_.Add(name_ + ":SetSarvaneConfig " + std::to_string(config.GetMaximumTermsPerQuery()));
    }
    void AddFixedResult(const std::u16string&, const std::u16string&, uint16_t, unsigned int, uint16_t,
                        uint16_t) override {}
    void ClearFixedResults() override {}
    void Flush() override {}
    void ClearFieldAliases() override { r_.Add(name_ + ":ClearFieldAliases"); }
    void AddFieldAlias(const std::u16string& alias, const std::u16string& field) override {
        r_.Add(name_ + ":AddFieldAlias " + Vantu::ToUtf8(alias) + "=" + Vantu::ToUtf8(field));
    }
    unsigned char GetCustomFieldType(const std::string& field) const override {
        auto it = fieldTypes.find(field);
        return it == fieldTypes.end() ? 0xFF : it->second;
    }
    bool IsCustomFieldRankable(const std::string& field) const override { return rankable; }
    void AddSupportedCollection(uint16_t collection) override {
        r_.Add(name_ + ":AddSupportedCollection " + std::to_string(collection));
    }
    void RemoveSupportedCollection(uint16_t collection) override {
        r_.Add(name_ + ":RemoveSupportedCollection " + std::to_string(collection));
    }
    void CheckForRecovery() const override {
        r_.Add(name_ + ":CheckForRecovery");
        if (unfinishedWork) throw SarCannotDoRecoveryIndexIsReadOnly();
    }
    std::u16string GetHostName() const override { return u"host"; }
    uint64_t GetDiskSpaceUsed() const override { return 0; }
    bool HasEnoughFreeSpaceToShrink() const override { return true; }
    std::u16string GetIndexFilesPath() const override { return u""; }
    // Answers the records of `ranked` from `first`, and notes the collections it was asked for.
    bool PerformQuery(const std::u16string&, const std::u16string&, const std::vector<SarcIdentity>&,
                      const std::vector<uint16_t>& collections, std::vector<IndexedDocumentWeight>& results,
                      unsigned first, unsigned count, bool, bool, SortCriteria, const std::u16string&,
                      QueryAnswer& answer) const override {
        r_.Add(name_ + ":PerformQuery");
        if (failQuery) throw SarIndexNotStarted();
        askedCollections = collections;
        const size_t end = std::min<size_t>(size_t(first) + count, ranked.size());
        results.assign(ranked.begin() + std::min<size_t>(first, end), ranked.begin() + end);
        answer.total = answer.totalWithoutDuplicates = unsigned(ranked.size());
        answer.exception = QueryException(QuerySyntaxError, name_);
        return false;
    }
    Vantu::SmartPtrToConst<IndexedDocument> LoadDocument(unsigned int id, const std::vector<SarcIdentity>&,
                                                         bool) const override {
        for (const IndexedDocumentWeight& record : ranked)
            if (record.GetDocument()->documentId == id) return record.GetDocument();
        return nullptr;
    }
    // Records of the documents in collection `collection` with their scores, each dated `id` days into 2001.
    void Rank(uint16_t collection, std::vector<std::pair<uint32_t, uint32_t>> idsAndScores, SortCriteria order) {
        for (const auto& [id, score] : idsAndScores) {
            Vantu::SmartPtr<IndexedDocument> document(new IndexedDocument);
            document->documentId = id;
            document->collection = collection;
            const Vantu::DateTime date = Vantu::DateTime::FromSeconds(978307200 + id * 86400);
            ranked.emplace_back(document, order, score, 0.0f, 0, date, date,
                                std::vector<Sentence>{}, false, Vantu::FastVector<Highlight>{},
                                Vantu::FastVector<Highlight>{});
        }
    }

    std::vector<IndexedDocumentWeight> ranked;
    mutable std::vector<uint16_t> askedCollections;
    bool failQuery = false;
    std::map<std::string, unsigned char> fieldTypes;
    bool rankable = false;
    bool failStart = false;
    bool unfinishedWork = false;
    std::atomic<bool> started{false};
    std::atomic<uint32_t> documents{0};
    std::atomic<bool> failStatistics{false};
    mutable std::atomic<int> statisticsCalls{0};

private:
    Recorder& r_;
    std::string name_;
    SarvaneStatistics::SliceKey key_;
};

class FakeStore : public SarcSharedStore {
public:
    FakeStore(Recorder& r, std::string name) : r_(r), name_(std::move(name)) { r_.Add("create " + name_); }
    ~FakeStore() override { r_.Add("release " + name_); }
    void Commit() override { r_.Add(name_ + ":Commit"); }
    void Rollback() override { r_.Add(name_ + ":Rollback"); }

protected:
    Recorder& r_;
    std::string name_;
};

class FakeURIStore : public SarcURIStore {
public:
    FakeURIStore(Recorder& r, uint32_t documents) : store_(r, "uri"), r_(r), documents_(documents) {}
    void Commit() override { store_.Commit(); }
    void Rollback() override { store_.Rollback(); }
    void RecoveryDone() override { r_.Add("uri:RecoveryDone"); }
    void BeginTransaction() override { r_.Add("uri:BeginTransaction"); }
    uint32_t GetNumberOfDocuments() const override { return documents_; }

private:
    FakeStore store_;
    Recorder& r_;
    const uint32_t documents_;
};

// Knows one group: "staff", of which "ann" is a member.
class FakeSecurityCache : public SarcSecurityCache {
public:
    explicit FakeSecurityCache(Recorder& r) : store_(r, "security"), r_(r) {}
    void Commit() override { store_.Commit(); }
    void Rollback() override { store_.Rollback(); }
    void RetrieveLocalNetworkIDs(const std::vector<SarcIdentity>& ids, std::vector<SarcIdentity>& out) override {
        out = ids;
        if (std::count(ids.begin(), ids.end(), u"ann")) out.push_back(u"staff");
    }
    void ExpandAllGroupsAgain() override { r_.Add("security:ExpandAllGroupsAgain"); }

private:
    FakeStore store_;
    Recorder& r_;
};

// A URI store that it makes holds `uriDocuments` documents.
class FakeStores : public SarvaneContainerStores {
public:
    FakeStores(Recorder& r, uint32_t uriDocuments) : r_(r), uriDocuments_(uriDocuments) {}
    std::unique_ptr<SarcSharedStore> CreateCachedCopies(const std::string& directory, bool readOnly) override {
        r_.Add("cached copies in " + directory);
        return std::make_unique<FakeStore>(r_, "folithek");
    }
    std::unique_ptr<SarcSharedStore> CreateLinks(const std::string& directory, bool readOnly) override {
        return std::make_unique<FakeStore>(r_, "netrova");
    }
    void RecoverShrink(const SarvaneContainerConfig&) override { r_.Add("RecoverShrink"); }
    Vantu::SmartPtr<SarcURIStore> CreateURIStore(const SarvaneContainerConfig&, bool readOnly) override {
        return new FakeURIStore(r_, uriDocuments_);
    }
    Vantu::SmartPtr<SarcSecurityCache> CreateSecurityCache(const SarvaneContainerConfig&, bool readOnly) override {
        return new FakeSecurityCache(r_);
    }

private:
    Recorder& r_;
    const uint32_t uriDocuments_;
};

class ContainerTest : public ::testing::Test {
protected:
    ContainerTest() { container_ = MakeContainer(false); }

    Vantu::SmartPtr<SarvaneContainer> MakeContainer(bool links, uint32_t uriDocuments = 0) {
        SarvaneContainerConfig config(Vantu::FromUtf8(dir_.Path()), Vantu::FromUtf8(dir_ / "index"), 2, 85,
                                      VantuThread::Priority::Normal, VantuThread::Priority::Normal, u"");
        config.SetEnableNetrova(links);
        return new SarvaneContainer(config, log_, std::make_unique<FakeStores>(r_, uriDocuments));
    }

    FakeSlice* AddSlice(uint16_t physical, uint16_t mirror, uint16_t slice) {
        auto* fake = new FakeSlice(r_, Name(physical, mirror, slice), {physical, mirror, slice});
        container_->AddSliceIndex(fake, physical, mirror, slice);
        return fake;
    }
    static std::string Name(uint16_t physical, uint16_t mirror, uint16_t slice) {
        return "s" + std::to_string(physical) + "." + std::to_string(mirror) + "." + std::to_string(slice);
    }

    TempDir dir_;
    Recorder r_;
    Vantu::SmartPtr<RecordingLog> log_{new SarvaneTest::RecordingLog};
    Vantu::SmartPtr<SarvaneContainer> container_;
};

}  // namespace SarvaneTest
