#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>

#include "TempDir.h"
#include "file/FileException.h"
#include "store/BTreeMap.h"
#include "store/BTreeMultiMap.h"
#include "store/BTreeSet.h"

using namespace VantuBTree;
using SarvaneTest::TempDir;

namespace {

using U32Map = BTreeMap<unsigned int, unsigned int, FastLess<unsigned int>, 0>;
using StrMap = BTreeMap<std::string, unsigned int, FastLess<std::string>, 0>;
using StrMulti = BTreeMultiMap<std::string, unsigned int, FastLess<std::string>>;
constexpr uint32_t kSmallPage = 1024;  // small pages make deep trees out of few records

template <class Tree>
std::vector<typename Tree::value_type> Contents(Tree& tree) {
    std::vector<typename Tree::value_type> out;
    for (auto it = tree.Begin(); !(it == tree.end()); ++it) out.push_back(*it);
    return out;
}

}  // namespace

TEST(BTree, MapInsertFindBoundsUpdateAndDistance) {
    TempDir dir;
    StrMap tree(dir / "Lexicon.ltr", 0x10000, 1 << 20);
    EXPECT_TRUE(tree.Insert("beta", 2).second);
    EXPECT_TRUE(tree.Insert("alpha", 1).second);
    EXPECT_TRUE(tree.Insert("gamma", 3).second);

    auto [at, inserted] = tree.Insert("beta", 99);  // an existing key keeps its value
    EXPECT_FALSE(inserted);
    EXPECT_EQ(at->second, 2u);
    EXPECT_EQ(tree.Find("beta")->second, 2u);
    EXPECT_EQ(tree.GetRecordCount(), 3u);

    EXPECT_TRUE(tree.Find("delta") == tree.end());
    EXPECT_TRUE(tree.LowerBound("zeta") == tree.end());  // past all records
    EXPECT_EQ(tree.LowerBound("b")->first, "beta");
    EXPECT_EQ(tree.UpperBound("beta")->first, "gamma");
    // FastLess: the shorter of two strings with a common head comes first.
    EXPECT_TRUE(tree.Insert("alp", 0).second);
    EXPECT_EQ(tree.Begin()->first, "alp");

    auto updated = tree.Update(tree.Find("gamma"), 33);
    EXPECT_EQ(updated->second, 33u);
    EXPECT_EQ(tree.Find("gamma")->second, 33u);
    EXPECT_EQ(tree.end() - tree.Begin(), 4);
    EXPECT_EQ(tree.Find("gamma") - tree.Find("alpha"), 2);
    EXPECT_EQ(tree.Erase("alpha"), 1u);
    EXPECT_EQ(tree.Erase("alpha"), 0u);
    EXPECT_EQ(tree.GetRecordCount(), 3u);

    // A hint near the key and one far from it give the same answer.
    auto hint = tree.Find("alp");
    EXPECT_EQ(tree.FindEx(hint, "gamma")->second, 33u);
    EXPECT_TRUE(tree.FindEx(hint, "zz") == tree.end());
}

TEST(BTree, MultiMapKeepsInsertionOrderAndErasesOneByIterator) {
    TempDir dir;
    StrMulti tree(dir / "LexiconCFD.lcf", kSmallPage, 1 << 16);
    for (unsigned v : {5u, 1u, 9u}) EXPECT_TRUE(tree.Insert("k", v).second);
    tree.Insert("a", 0);
    tree.Insert("z", 0);

    std::vector<unsigned> values;
    for (auto it = tree.LowerBound("k"); !(it == tree.UpperBound("k")); ++it) values.push_back(it->second);
    EXPECT_EQ(values, (std::vector<unsigned>{5, 1, 9}));

    auto second = tree.LowerBound("k");
    ++second;
    bool nextValid = false;
    StrMulti::iterator next;
    EXPECT_TRUE(tree.Erase(second, nextValid, next));
    ASSERT_TRUE(nextValid);
    EXPECT_EQ(next->second, 9u);
    EXPECT_EQ(tree.GetRecordCount(), 4u);
    EXPECT_EQ(tree.Erase("k"), 2u);
    EXPECT_EQ(tree.GetRecordCount(), 2u);
}

TEST(BTree, RecordOverTheLimitRaisesAndIsNotStored) {
    TempDir dir;
    StrMap tree(dir / "Lexicon.ltr", 0x10000, 1 << 20);
    const uint32_t limit = tree.RecordLimit();
    EXPECT_EQ(limit, 16366u);
    const std::string fits(limit - 2 - 4, 'x');  // u16 length + bytes, and a 4-byte value
    EXPECT_TRUE(tree.Insert(fits, 1).second);
    EXPECT_THROW(tree.Insert(fits + "y", 2), RecordTooLargeException);
    EXPECT_EQ(tree.GetRecordCount(), 1u);
    EXPECT_TRUE(tree.Find(fits + "y") == tree.end());

    BTreeSet<std::u16string> set(dir / "Words.ltr", kSmallPage, 1 << 16);
    EXPECT_THROW(set.Insert(std::u16string(set.RecordLimit(), u'w')), RecordTooLargeException);
    EXPECT_TRUE(set.Insert(u"w\u00e9rd").second);
    EXPECT_EQ(*set.Begin(), u"w\u00e9rd");
}

// D10: every file a tree keeps carries the tree's extension, so the engine's patterns ("*.ltr") delete and copy
// all of it, a pending PreCommit included.
TEST(BTree, D10_SideFilesKeepTheTreesExtension) {
    TempDir dir;
    U32Map tree(dir / "Lexicon.ltr", kSmallPage, 1 << 16);
    for (unsigned i = 0; i < 100; ++i) tree.Insert(i, i);
    tree.PreCommit();
    tree.Commit();
    tree.Insert(100, 100);
    tree.PreCommit();
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
        EXPECT_EQ(entry.path().extension(), ".ltr") << entry.path();
        EXPECT_EQ(entry.path().filename().string().rfind("Lexicon.", 0), 0u) << entry.path();
        ++files;
    }
    EXPECT_GE(files, 2u);
}

// D8: changes without PreCommit never reach the committed state; a pending PreCommit survives reopening
// and then goes either way.
TEST(BTree, D8_PendingPreCommitSurvivesReopenAndUnsavedChangesDrop) {
    TempDir dir;
    const std::string path = dir / "DocIdIndexId.uri";
    {
        U32Map tree(path, kSmallPage, 1 << 16);
        for (unsigned i = 0; i < 500; ++i) tree.Insert(i, i * 10);
        tree.Commit();
        tree.Commit();  // nothing pending: does nothing
        for (unsigned i = 0; i < 500; i += 2) tree.Erase(i);
    }  // destroyed without PreCommit
    {
        U32Map tree(path, kSmallPage, 1 << 16);
        EXPECT_EQ(tree.GetRecordCount(), 500u);
        for (unsigned i = 500; i < 800; ++i) tree.Insert(i, i);
        tree.Erase(3u);
        tree.PreCommit();
    }  // as if the process died between PreCommit and Commit
    {
        U32Map tree(path, kSmallPage, 1 << 16);
        EXPECT_EQ(tree.GetRecordCount(), 799u);
        tree.Rollback();
        EXPECT_EQ(tree.GetRecordCount(), 500u);
        EXPECT_EQ(tree.Find(3u)->second, 30u);
        EXPECT_TRUE(tree.Find(600u) == tree.end());
        tree.Rollback();  // nothing pending: does nothing
        tree.Insert(1000u, 1);
        tree.PreCommit();
    }
    {
        U32Map tree(path, kSmallPage, 1 << 16);
        tree.Commit();
        EXPECT_EQ(tree.GetRecordCount(), 501u);
    }
    U32Map tree(path, kSmallPage, 1 << 16);
    EXPECT_EQ(tree.GetRecordCount(), 501u);
    EXPECT_EQ(tree.Find(1000u)->second, 1u);
}

TEST(BTree, DamagedOrTruncatedFileRaises) {
    TempDir dir;
    const std::string path = dir / "Security.six";
    {
        U32Map tree(path, kSmallPage, 1 << 16);
        for (unsigned i = 0; i < 2000; ++i) tree.Insert(i, i);
        tree.Commit();
    }
    const auto size = std::filesystem::file_size(path);
    auto findAll = [&] {
        U32Map tree(path, kSmallPage, 1 << 16);
        for (unsigned i = 0; i < 2000; ++i) tree.Find(i);
    };
    {
        std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(size / 2);
        f.put('\x5a');
    }
    EXPECT_THROW(findAll(), VantuFile::FileException);
    std::filesystem::resize_file(path, size / 3);
    EXPECT_THROW(findAll(), VantuFile::FileException);
    {
        std::ofstream head(BTreeFile::SideFileName(path, "head"), std::ios::binary | std::ios::app);
        head.put('x');
    }
    EXPECT_THROW(findAll(), VantuFile::FileException);
}

TEST(BTree, ReadOnlyRefusesChangesUntilAllowed) {
    TempDir dir;
    const std::string path = dir / "SarcURI-DocInfo.uri";
    {
        U32Map first(path, kSmallPage, 1 << 16);
        first.Insert(1u, 1u);
        first.Commit();
    }
    EXPECT_THROW(U32Map(dir / "missing.uri", kSmallPage, 1 << 16, true), VantuFile::FileException);
    U32Map tree(path, kSmallPage, 1 << 16);
    tree.Insert(2u, 2u);
    tree.Commit();
    tree.ReadOnly(true);
    EXPECT_THROW(tree.Insert(3u, 3u), ReadOnlyException);
    EXPECT_EQ(U32Map(path, kSmallPage, 1 << 16, true).GetRecordCount(), 2u);  // committed state is in the files
    tree.ReadOnly(false);
    EXPECT_TRUE(tree.Insert(3u, 3u).second);
}

// Random operations against std::multimap, with transactions and reopening; small pages and a small
// cache so that splits, merges, copies on write and evictions all happen.
template <class Tree, class Model>
void RunDifferential(bool duplicates, uint32_t seed) {
    TempDir dir;
    const std::string path = dir / "Tree.ltr";
    auto tree = std::make_unique<Tree>(path, kSmallPage, 8 * kSmallPage);
    Model committed, pending, work;
    bool hasPending = false;
    typename Tree::iterator hint = tree->Begin();
    std::mt19937 rng(seed);
    auto key = [&] { return std::to_string(rng() % 3000); };
    auto contents = [](const Model& m) { return std::vector<std::pair<std::string, unsigned>>(m.begin(), m.end()); };
    for (int step = 0; step < 6000; ++step) {
        const unsigned op = rng() % 1000;
        if (op < 500) {
            const std::string k = key();
            const unsigned v = rng();
            const bool fresh = tree->Insert(k, v).second;
            EXPECT_EQ(fresh, duplicates || work.count(k) == 0);
            if (fresh) work.emplace(k, v);
        } else if (op < 650) {
            const std::string k = key();
            EXPECT_EQ(tree->Erase(k), work.erase(k));
        } else if (op < 750) {
            const std::string k = key();
            auto it = tree->LowerBound(k);
            auto m = work.lower_bound(k);
            ASSERT_EQ(it == tree->end(), m == work.end());
            if (m == work.end()) continue;
            ASSERT_EQ(it->first, m->first);
            bool nextValid = false;
            typename Tree::iterator next;
            ASSERT_TRUE(tree->Erase(it, nextValid, next));
            m = work.erase(m);
            ASSERT_TRUE(nextValid);
            ASSERT_EQ(next == tree->end(), m == work.end());
            if (m != work.end()) {
                EXPECT_EQ(next->first, m->first);
            }
        } else if (op < 880) {
            const std::string k = key();
            auto it = step % 2 ? tree->FindEx(hint, k) : tree->Find(k);  // a hint near or far gives the same
            hint = it;
            auto m = work.find(k);
            ASSERT_EQ(it == tree->end(), m == work.end());
            if (m == work.end()) continue;
            EXPECT_EQ(it->second, m->second);
            const unsigned v = rng();
            tree->Update(it, v);
            m->second = v;
        } else if (op < 960) {
            ASSERT_EQ(Contents(*tree), contents(work)) << "step " << step;
        } else if (op < 975) {
            tree->PreCommit();
            pending = work;
            hasPending = true;
        } else if (op < 985) {
            tree->Commit();
            committed = work;
            hasPending = false;
        } else if (op < 993) {
            tree->Rollback();
            work = committed;
            hasPending = false;
        } else {
            tree.reset();
            tree = std::make_unique<Tree>(path, kSmallPage, 8 * kSmallPage);
            work = hasPending ? pending : committed;
            hint = tree->Begin();
        }
        ASSERT_EQ(tree->GetRecordCount(), work.size()) << "step " << step;
    }
    tree->Commit();
    EXPECT_EQ(Contents(*tree), contents(work));
    tree.reset();
    Tree reopened(path, kSmallPage, 8 * kSmallPage);
    EXPECT_EQ(Contents(reopened), contents(work));
}

TEST(BTree, DifferentialAgainstStdMapWithTransactions) {
    RunDifferential<StrMap, std::map<std::string, unsigned>>(false, 7);
}

TEST(BTree, DifferentialAgainstStdMultimapWithTransactions) {
    RunDifferential<StrMulti, std::multimap<std::string, unsigned>>(true, 11);
}
