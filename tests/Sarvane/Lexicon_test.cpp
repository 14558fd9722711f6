#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "CrashHarness.h"
#include "Lexicon.h"
#include "MessageIdOf.h"
#include "SarException.h"
#include "SliceCheck.h"
#include "SliceFiles.h"
#include "TempDir.h"
#include "core/LogEntry.h"
#include "core/Text.h"
#include "file/CFileT.h"
#include "file/FileSystem.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

SarIndexInfo FreshInfo() {
    SarIndexInfo info;
    info.nextSmallTermId = Lexicon::kFirstSmallTermId;
    return info;
}

void Settle(Lexicon& lexicon) {
    lexicon.PreCommit(false);
    lexicon.Commit(false, nullptr);
}

// The terms of one tree file with their ids.
std::map<std::string, uint32_t> TreeOf(const std::string& path) {
    VantuBTree::BTreeMap<std::string, uint32_t> tree(path, 0x10000, 0x10000, true);
    std::map<std::string, uint32_t> terms;
    for (auto at = tree.Begin(); at != tree.end(); ++at) terms.insert(*at);
    return terms;
}

}  // namespace

TEST(Lexicon, TermsTakeIdsFromTwoCountersAndStandInTheTreeTheirCountChooses) {
    TempDir dir;
    {
        Lexicon lexicon(SliceConfigIn(dir.Path()), nullptr, nullptr, false);
        lexicon.LoadInfo(FreshInfo());
        EXPECT_EQ(lexicon.AddTerm("rare", 25, false), 0u);
        EXPECT_EQ(lexicon.AddTerm("common", 26, false), 1u);
        EXPECT_EQ(lexicon.AddTerm("@author", 26, true), Lexicon::kFirstSmallTermId);
        EXPECT_EQ(lexicon.AddTerm("rare", 1000, true), 0u);  // an existing term keeps its id
        EXPECT_EQ(lexicon.AddTerm("rising", 1, false), 2u);
        lexicon.PromoteTerm("rising");
        EXPECT_EQ(lexicon.FindTerm("rising"), 2u);
        EXPECT_EQ(lexicon.FindTerm("absent"), Term::kNoTermId);
        lexicon.AddFieldAlias("@writer", "@author");
        EXPECT_EQ(lexicon.FindTerm("@writer"), Lexicon::kFirstSmallTermId);
        lexicon.ClearFieldAliases();
        EXPECT_EQ(lexicon.FindTerm("@writer"), Term::kNoTermId);
        lexicon.PreCommit(false);
        Vantu::SmartPtr<Vantu::LogEntry> entry(new Vantu::LogEntry(nullptr, u"commit", Vantu::LogEntry::Normal));
        lexicon.Commit(false, entry);
        EXPECT_DOUBLE_EQ(entry->GetProgress(), 0.25);  // the trees' share; the postings take the rest
        EXPECT_GT(lexicon.GetDiskSpaceUsed(), 0u);
    }
    for (const char* name : {Lexicon::kStringFieldsFileName, Lexicon::kDoubleFieldsFileName,
                             Lexicon::kDateFieldsFileName, Lexicon::kLongFieldsFileName})
        EXPECT_TRUE(VantuFile::FileExists(dir / name)) << name;
    EXPECT_EQ(TreeOf(dir / Lexicon::kRareTermsFileName), (std::map<std::string, uint32_t>{{"rare", 0}}));
    EXPECT_EQ(TreeOf(dir / Lexicon::kFrequentTermsFileName),
              (std::map<std::string, uint32_t>{{"@author", Lexicon::kFirstSmallTermId}, {"common", 1}, {"rising", 2}}));

    // The ids are stable across a reopen; the counters come back from the saved counters.
    Lexicon reopened(SliceConfigIn(dir.Path()), nullptr, nullptr, true);
    EXPECT_EQ(reopened.FindTerm("common"), 1u);
    ExpectSliceSound(dir.Path());
}

// A rolled-back transaction gives its ids out again; the cache must not keep one of them for its old term, or
// two terms would share an id.
TEST(Lexicon, ARollbackEmptiesTheCacheSoNoTwoTermsShareAnId) {
    TempDir dir;
    Lexicon lexicon(SliceConfigIn(dir.Path()), nullptr, nullptr, false);
    SarIndexInfo committed = FreshInfo();
    lexicon.LoadInfo(committed);
    lexicon.AddTerm("kept", 26, false);
    Settle(lexicon);
    lexicon.SaveInfo(committed);

    const uint32_t abandoned = lexicon.AddTerm("abandoned", 26, false);
    EXPECT_EQ(lexicon.AddTerm("abandoned", 26, false), abandoned);  // now cached
    lexicon.Rollback();
    lexicon.LoadInfo(committed);
    EXPECT_EQ(lexicon.FindTerm("abandoned"), Term::kNoTermId);
    const uint32_t other = lexicon.AddTerm("other", 26, false);
    EXPECT_EQ(other, abandoned);  // the id is given again
    EXPECT_NE(lexicon.AddTerm("abandoned", 26, false), other);
}

namespace {

// The transaction of the crash test: terms added, pre-committed with the counters in "Index.info.new", a decision
// mark, then committed. The mark plays the reader's rename that follows every store's pre-commit.
std::string Decided(const std::string& dir) { return dir + "/decided"; }

void Mark(const std::string& path) {
    VantuFile::CFileT<unsigned int> file(path);
    file.Open(VantuFile::CFileT<unsigned int>::kModeCreate);
    file.Close();
    VantuFile::SyncDirectoryOf(path);
}

// Reopens as the slice does after a crash: commit or roll back by the mark, counters from "Index.info".
Vantu::SmartPtr<Lexicon> Recover(const std::string& dir) {
    Vantu::SmartPtr<Lexicon> lexicon(new Lexicon(SliceConfigIn(dir), nullptr, nullptr, false));
    if (VantuFile::FileExists(Decided(dir))) {
        lexicon->Commit(false, nullptr);
        SarIndexInfo::Commit(dir);
    } else {
        lexicon->Rollback();
    }
    SarIndexInfo info;
    info.Load(SarIndexInfo::LoadPath(dir), false);
    lexicon->LoadInfo(info);
    return lexicon;
}

std::string DistinctIds(const std::string& dir, uint32_t nextTermId) {
    std::set<uint32_t> ids;
    size_t terms = 0;
    for (const char* name : {Lexicon::kRareTermsFileName, Lexicon::kFrequentTermsFileName})
        for (const auto& [term, id] : TreeOf(dir + "/" + name)) {
            ++terms;
            ids.insert(id);
            if (id >= nextTermId) return term + " has an id the counter gives out again";
        }
    return ids.size() == terms ? "" : "two terms share an id";
}

}  // namespace

TEST(Lexicon, ACrashInATransactionNeverLetsTwoTermsShareAnId) {
    CrashScenario s;
    s.setup = [](const std::string& dir) {
        Lexicon lexicon(SliceConfigIn(dir), nullptr, nullptr, false);
        lexicon.LoadInfo(FreshInfo());
        for (int i = 0; i < 6; ++i) lexicon.AddTerm("old" + std::to_string(i), i % 2 ? 26 : 1, false);
        Settle(lexicon);
        SarIndexInfo info = FreshInfo();
        lexicon.SaveInfo(info);
        info.Save(dir, true, false);
    };
    s.run = [](const std::string& dir) {
        Lexicon lexicon(SliceConfigIn(dir), nullptr, nullptr, false);
        SarIndexInfo info;
        info.Load(SarIndexInfo::LoadPath(dir), false);
        lexicon.LoadInfo(info);
        for (int i = 0; i < 6; ++i) lexicon.AddTerm("new" + std::to_string(i), i % 2 ? 26 : 1, false);
        lexicon.PreCommit(false);
        lexicon.SaveInfo(info);
        info.Save(dir, false, false);
        Mark(Decided(dir));
        lexicon.Commit(false, nullptr);
        SarIndexInfo::Commit(dir);
    };
    s.check = [](const std::string& dir, const CrashCase& c) -> std::string {
        auto lexicon = Recover(dir);
        if (const std::string faults = SliceFaults(dir); !faults.empty()) return faults;
        const bool kept = lexicon->FindTerm("new0") != Term::kNoTermId;
        if ((c.completed || VantuFile::FileExists(Decided(dir))) != kept) return "the decision was not followed";
        if (lexicon->FindTerm("old5") == Term::kNoTermId) return "a committed term is lost";
        // More terms after the recovery: still one id per term.
        for (int i = 0; i < 4; ++i) lexicon->AddTerm("after" + std::to_string(i), 1, false);
        Settle(*lexicon);
        return DistinctIds(dir, lexicon->GetNextTermId());
    };
    const CrashReport report = RunAtEveryCrashPoint(s, {CrashMode::ProcessDeath, CrashMode::PowerLoss});
    EXPECT_TRUE(report.failures.empty()) << report.Summary();
}

TEST(Term, PostingsAreFoundByWalkOrSearchFromAnyStart) {
    Term term(7);
    for (uint32_t id : {2u, 5u, 5u, 9u}) term.GetDocumentWeights().push_back(DocIDWeightStruct(id, 1, 0));
    const DocIDWeightStruct* found = nullptr;
    const DocIDWeightStruct* second = term.GetDocumentWeights().begin() + 1;
    for (bool binary : {false, true}) {
        EXPECT_TRUE(term.GetDocumentWeight(5, binary, nullptr, found));
        EXPECT_EQ(found, second);  // the first of equal postings
        EXPECT_FALSE(term.GetDocumentWeight(2, binary, second, found));  // searched from `start` on
        EXPECT_TRUE(term.GetDocumentWeight(2, binary, term.GetDocumentWeights().end(), found));  // past the end
        EXPECT_FALSE(term.GetDocumentWeight(6, binary, nullptr, found));
    }
    const auto list = term.GetDocumentList();
    EXPECT_EQ(list->size(), 10u);
    EXPECT_TRUE((*list)[2] && (*list)[5] && (*list)[9] && !(*list)[3]);
    EXPECT_TRUE(Term().GetDocumentList()->empty());
}

TEST(Lexicon, PostingsGoThroughTheDictionaryAndARareTermMovesWhenItPasses25Documents) {
    TempDir dir;
    Vantu::SmartPtr<FileIndexedTerms> terms(new FileIndexedTerms(SliceConfigIn(dir.Path()), false));
    Vantu::SmartPtr<FileSmallTerms> smallTerms(new FileSmallTerms(SliceConfigIn(dir.Path()), false));
    Lexicon lexicon(SliceConfigIn(dir.Path()), terms, smallTerms, false);
    lexicon.LoadInfo(FreshInfo());
    auto apply = [&](const std::string& term, uint32_t first, uint32_t end) {
        std::vector<TransactionTermOperation> operations;
        for (uint32_t d = first; d < end; ++d) operations.emplace_back(d, 0, 1);
        FileIndexedTerms::Operations pointers;
        for (auto& operation : operations) pointers.push_back(&operation);
        lexicon.BeginTransaction();
        lexicon.AddDocumentsForTerm(term, pointers);
        lexicon.PreCommit(false);
        lexicon.Commit(false, nullptr);
    };
    apply("rising", 0, 25);
    EXPECT_EQ(TreeOf(dir / Lexicon::kRareTermsFileName).count("rising"), 1u);
    apply("rising", 25, 26);
    EXPECT_EQ(TreeOf(dir / Lexicon::kRareTermsFileName).count("rising"), 0u);
    EXPECT_EQ(TreeOf(dir / Lexicon::kFrequentTermsFileName).at("rising"), 0u);
    EXPECT_EQ(lexicon.LoadTerm("rising", false)->GetNumberOfDocuments(), 26u);

    // Unknown: null. Known without postings: an empty term. An alias loads the term it names.
    EXPECT_FALSE(lexicon.LoadTerm("absent", true));
    lexicon.AddTerm("@author", 26, true);
    lexicon.AddTerm("bare", 1, false);
    const auto bare = lexicon.LoadTerm("bare", true);
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->GetNumberOfDocuments(), 0u);
    lexicon.AddFieldAlias("@writer", "rising");
    EXPECT_EQ(lexicon.LoadTerm("@writer", true)->GetNumberOfDocuments(), 26u);

    // A small term lists the documents that have a field, found under an alias too.
    lexicon.BeginTransaction();
    lexicon.AddDocumentsForTerm("@pages", Vantu::FastVector<unsigned int>{1, 3});
    lexicon.PreCommit(false);
    lexicon.Commit(false, nullptr);
    EXPECT_EQ(lexicon.FindTerm("@pages"), Lexicon::kFirstSmallTermId + 1);
    lexicon.AddFieldAlias("@count", "@pages");
    VantuAlgo::BitVector documents;
    lexicon.GetDocumentsListForSmallTerm("@count", documents);
    EXPECT_TRUE(documents.size() >= 4 && documents[1] && documents[3] && !documents[2]);

    // A rollback takes the stores' transactions with it.
    lexicon.BeginTransaction();
    lexicon.Rollback();
    EXPECT_FALSE(VantuFile::FileExists(dir / "Terms.ttr"));
    ExpectSliceSound(dir.Path());
}

// A field's type is fixed when first seen; a string value is a term with one id, other values list documents.
TEST(Lexicon, CustomFieldsKeepTheirFirstTypeAndAStringValueKeepsItsTermId) {
    TempDir dir;
    Lexicon lexicon(SliceConfigIn(dir.Path()), nullptr, nullptr, false);
    lexicon.LoadInfo(FreshInfo());
    const CustomField author("@Author", CustomFieldValue("ann"), CustomField::kIndexed);
    EXPECT_EQ(lexicon.AddCustomField(author, Lexicon::kNoDocument), 0u);
    EXPECT_EQ(lexicon.AddCustomField(author, 4), 0u);  // the same value: the same term, one id used
    EXPECT_EQ(lexicon.GetNextTermId(), 1u);
    for (uint32_t document : {9u, 3u})
        EXPECT_EQ(lexicon.AddCustomField(CustomField("@pages", CustomFieldValue(int32_t(-5)), CustomField::kIndexed),
                                         document),
                  Term::kNoTermId);
    EXPECT_EQ(MessageIdOf<SarInvalidCustomField>([&] {
                  lexicon.AddCustomField(CustomField("@pages", CustomFieldValue("many"), CustomField::kIndexed), 12);
              }),
              14);
    SarIndexInfo info;
    lexicon.SaveInfo(info);
    const std::vector<SarFieldInfo> fields = {{"@author", CustomField::kString, 4}, {"@pages", CustomField::kLong, 9}};
    EXPECT_EQ(info.fields, fields);  // keyed by the name's base form; the refused value changed nothing
    Settle(lexicon);
    const auto keys = TreeOf(dir / Lexicon::kStringFieldsFileName);
    EXPECT_EQ(keys, (std::map<std::string, uint32_t>{{std::string("@author\0ann", 11), 0}}));
}
