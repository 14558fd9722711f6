#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "DocumentAnalyser.h"
#include "Sarvane.h"
#include "SliceFiles.h"
#include "TempDir.h"
#include "core/Text.h"
#include "language/Language.h"
#include "language/StopWords.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

// Document `key` says "river" when key % 3 == 0 and "mill" when key is even, and "stone" always.
class QuerySlice {
public:
    explicit QuerySlice(const std::string& path) : slice_(Config(path)) {
        slice_.AddSupportedCollection(1);
        slice_.Start(false);
    }
    static SarvaneConfig Config(const std::string& path) {
        SarvaneConfig config(1, 1, 1);
        config.SetIndexFilesPath(Vantu::FromUtf8(path));
        config.SetDocumentLevelSecurity(false);
        return config;
    }
    void Add(uint32_t first, uint32_t count) {
        for (uint32_t key = first; key < first + count; ++key) {
            std::u16string body = u"stone";
            if (key % 3 == 0) body += u" river";
            if (key % 2 == 0) body += u" mill";
            Vantu::SmartPtr<Document> document(new Document);
            document->URI(u"doc:" + Vantu::FromUtf8(std::to_string(key)));
            document->collection = 1;
            analyser_.Analyse(*document, body);
            slice_.AddDocument(document, key);
        }
        slice_.PreCommit();
        slice_.Commit();
        slice_.Flush();
    }
    // The URIs of the records of the range.
    std::vector<std::string> Ask(const std::u16string& query, unsigned first = 0, unsigned count = 1000,
                                 QueryAnswer* answer = nullptr) {
        std::vector<IndexedDocumentWeight> results;
        QueryAnswer local;
        slice_.PerformQuery(query, u"", {}, {}, results, first, count, false, true, IndexDateDescending, u"",
                            answer ? *answer : local);
        std::vector<std::string> uris;
        for (const IndexedDocumentWeight& result : results) uris.push_back(result.GetDocument()->uri);
        return uris;
    }
    std::u16string Dump() {
        Ask(u"@dumpcache");
        const std::string bytes = FileBytes(Vantu::ToUtf8(slice_.GetIndexFilesPath()) + "/DumpCache.txt");
        std::u16string text;  // UTF-16, little-endian
        for (size_t i = 0; i + 1 < bytes.size(); i += 2) text += char16_t(uint8_t(bytes[i]) | uint8_t(bytes[i + 1]) << 8);
        return text;
    }
    Sarvane& Slice() { return slice_; }

private:
    VantuLanguage::Language language_{VantuLanguage::Language::kEnglish};
    VantuLanguage::StopWords stopWords_{true};
    DocumentAnalyser analyser_{language_, stopWords_};
    Sarvane slice_;
};

std::vector<std::string> Uris(std::initializer_list<int> keys) {
    std::vector<std::string> uris;
    for (int key : keys) uris.push_back("doc:" + std::to_string(key));
    return uris;
}

}  // namespace

TEST(SarvaneQuery, AnswersFromTheAppliedDocumentsInTheAskedOrderAndRange) {
    TempDir dir;
    QuerySlice slice(dir / "slice");
    slice.Add(0, 12);
    QueryAnswer answer;
    EXPECT_EQ(slice.Ask(u"river", 0, 1000, &answer), Uris({9, 6, 3, 0}));  // newest indexed first
    EXPECT_EQ(answer.total, 4u);
    EXPECT_EQ(slice.Ask(u"river AND mill"), Uris({6, 0}));
    EXPECT_EQ(slice.Ask(u"river OR mill").size(), 8u);
    EXPECT_EQ(slice.Ask(u"river", 1, 2), Uris({6, 3}));
    // A range past 1000 records is cut back: first 900 with count 500 starts at 500.
    EXPECT_TRUE(slice.Ask(u"stone", 900, 500, &answer).empty());
    EXPECT_EQ(answer.total, 12u);
    // A bad text answers what the parser built, with the failure beside it; a blank one answers nothing.
    slice.Ask(u"river AND (", 0, 10, &answer);
    EXPECT_FALSE(answer.exception.IsValid());
    EXPECT_TRUE(slice.Ask(u"   ", 0, 10, &answer).empty());
    EXPECT_TRUE(answer.exception.IsValid());  // Q3
    ASSERT_TRUE(slice.Slice().LoadDocument(7, {}, false));
    EXPECT_EQ(slice.Slice().LoadDocument(7, {}, false)->uri, "doc:7");
    EXPECT_FALSE(slice.Slice().LoadDocument(99, {}, false));
}

// The cache answers later pages and spelling variants, and is dropped once a transaction is applied.
TEST(SarvaneQuery, TheCacheServesVariantsAndIsDroppedAfterATransaction) {
    TempDir dir;
    QuerySlice slice(dir / "slice");
    slice.Add(0, 12);
    slice.Ask(u"river mill");
    slice.Ask(u"  RIVER   Mill ", 1, 1);
    const std::u16string dump = slice.Dump();
    EXPECT_NE(dump.find(u"Number of elements in cache: 1\n"), std::u16string::npos) << Vantu::ToUtf8(dump);
    EXPECT_NE(dump.find(u"\tQuery: river mill Optimization: On"), std::u16string::npos);
    slice.Add(12, 6);
    EXPECT_NE(slice.Dump().find(u"Number of elements in cache: 0\n"), std::u16string::npos);
    EXPECT_EQ(slice.Ask(u"river").front(), "doc:15");
}

// Queries run while the reader applies transactions: each answer is the index before or after a transaction,
// never less than an earlier answer, and the cache never keeps an answer from before a change.
TEST(SarvaneQuery, QueriesDuringTransactionsSeeWholeStatesInOrder) {
    TempDir dir;
    QuerySlice slice(dir / "slice");
    slice.Add(0, 6);
    std::atomic<bool> done{false};
    std::vector<unsigned> totals;
    std::thread asking([&] {
        while (!done) {
            QueryAnswer answer;
            slice.Ask(u"stone", 0, 5, &answer);
            totals.push_back(answer.total);
        }
    });
    for (uint32_t first = 6; first < 36; first += 6) slice.Add(first, 6);
    done = true;
    asking.join();
    ASSERT_FALSE(totals.empty());
    for (size_t i = 0; i < totals.size(); ++i) {
        EXPECT_EQ(totals[i] % 6, 0u) << totals[i];
        if (i > 0) EXPECT_GE(totals[i], totals[i - 1]);
    }
    QueryAnswer answer;
    slice.Ask(u"stone", 0, 5, &answer);
    EXPECT_EQ(answer.total, 36u);
}
