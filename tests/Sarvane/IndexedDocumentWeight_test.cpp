#include "IndexedDocumentWeight.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <string>
#include <vector>

namespace Ostrel {
namespace {

using Vantu::DateTime;
using Uris = std::vector<std::string>;

// One record of a slice's answer; `fixedOrder` not 0 makes it a fixed result.
struct Record {
    std::string uri;
    uint32_t documentId = 0;
    uint32_t score = 0;
    uint32_t date = 0;
    int fixedOrder = 0;
};

IndexedDocumentWeight MakeWeight(const Record& r, SortCriteria criteria) {
    auto* document = new IndexedDocument();
    document->uri = r.uri;
    document->documentId = r.documentId;
    return IndexedDocumentWeight(document, criteria, r.score, 50.0f, r.fixedOrder, DateTime::FromSeconds(r.date),
                                 DateTime(), {}, r.fixedOrder != 0, {}, {});
}

// Merges the slices' answers, each in its slice's order, as the container does; gives the URIs.
Uris Merge(const std::vector<std::vector<Record>>& slices, SortCriteria criteria) {
    std::vector<IndexedDocumentWeight> merged;
    for (const auto& slice : slices)
        for (const Record& r : slice) merged.push_back(MakeWeight(r, criteria));
    std::stable_sort(merged.begin(), merged.end(), IndexedDocumentWeight::ComesBefore);
    Uris uris;
    for (const auto& weight : merged) uris.push_back(weight.GetDocument()->uri);
    return uris;
}

TEST(IndexedDocumentWeightTest, RelevanceByScoreTiesKeepArrival) {
    const std::vector<std::vector<Record>> slices = {
        {{"a1", 9, 0xFFFFFFFF}, {"a2", 8, 0xFFFEFFFF}, {"a3", 7, 500}, {"a4", 3, 500}, {"a5", 1, 0}},
        {{"b1", 9, 0xFFFF0000}, {"b2", 4, 0x80000000}, {"b3", 2, 500}, {"b4", 5, 0}},
    };
    // Scores past the top of the ordinary band tie with it.
    EXPECT_EQ(Merge(slices, Relevance), (Uris{"a1", "a2", "b1", "b2", "a3", "a4", "b3", "a5", "b4"}));
    EXPECT_EQ(Merge(slices, SortCriteria(9)), Merge(slices, Relevance));
    EXPECT_EQ(IndexedDocumentWeight().GetSortKey(), INT_MIN);
}

TEST(IndexedDocumentWeightTest, DocumentDatesBothWays) {
    const uint32_t day = 86400, max = DateTime::maximum.Seconds();
    // Scores run against the dates: they must play no part.
    EXPECT_EQ(Merge({{{"a1", 5, 1, max}, {"a2", 4, 2, 40 * day}, {"a3", 3, 3, 10 * day}, {"a4", 2, 4, 0}},
                     {{"b1", 5, 1, max - 1}, {"b2", 4, 2, 0x80000000}, {"b3", 3, 3, 10 * day}, {"b4", 2, 4, day}}},
                    DocumentDateDescending),
              (Uris{"a1", "b1", "b2", "a2", "a3", "b3", "b4", "a4"}));
    EXPECT_EQ(Merge({{{"a1", 2, 4, 0}, {"a2", 3, 3, 10 * day}, {"a3", 4, 2, 40 * day}, {"a4", 5, 1, max}},
                     {{"b1", 2, 4, 0}, {"b2", 3, 3, day}, {"b3", 4, 2, 10 * day}, {"b4", 5, 1, 0x80000000}}},
                    DocumentDateAscending),
              (Uris{"a1", "b1", "b2", "a2", "b3", "a3", "b4", "a4"}));
}

TEST(IndexedDocumentWeightTest, IndexOrderBySliceIds) {
    EXPECT_EQ(Merge({{{"a1", 0xFFFFFE}, {"a2", 30}, {"a3", 10}}, {{"b1", 31}, {"b2", 30}, {"b3", 0}}},
                    IndexDateDescending),
              (Uris{"a1", "b1", "a2", "b2", "a3", "b3"}));
    EXPECT_EQ(Merge({{{"a1", 0}, {"a2", 30}, {"a3", 0xFFFFFE}}, {{"b1", 10}, {"b2", 30}, {"b3", 31}}},
                    IndexDateAscending),
              (Uris{"a1", "b1", "a2", "b2", "b3", "a3"}));
}

TEST(IndexedDocumentWeightTest, FixedResultsFirstInTheirOrder) {
    EXPECT_EQ(Merge({{{"a-pin1", 1, 1000000, 0, 0x7FFFFFFF}, {"a-pin2", 2, 1000000, 0, 0x7FFFFFFE},
                      {"a1", 3, 0xFFFFFFFF}},
                     {{"b-pin1", 4, 1000000, 0, 0x7FFFFFFF}, {"b-far", 9, 1000000, 0, 1}, {"b1", 5, 2000000}}},
                    Relevance),
              (Uris{"a-pin1", "b-pin1", "a-pin2", "b-far", "a1", "b1"}));
    for (SortCriteria criteria : {Relevance, DocumentDateDescending, DocumentDateAscending, IndexDateDescending,
                                  IndexDateAscending}) {
        const int32_t pin = MakeWeight({"f", 1, 0, 0, 1}, criteria).GetSortKey();
        EXPECT_GT(pin, MakeWeight({"x", 0, 0xFFFFFFFF, 0xFFFFFFFF}, criteria).GetSortKey()) << criteria;
        EXPECT_GT(pin, MakeWeight({"y", 0xFFFFFF, 0, 0}, criteria).GetSortKey()) << criteria;
    }
}

TEST(IndexedDocumentWeightTest, CopiesShareTheDocumentAndOwnTheirSummary) {
    Vantu::SmartPtrToConst<IndexedDocument> document(new IndexedDocument());
    std::vector<Sentence> sentences = {
        {u"first", {}, 10}, {u"second", {}, 0}, {u"third", {{1, 2}}, 25}, {u"fourth", {}, 10}};
    auto original = std::make_unique<IndexedDocumentWeight>(document, DocumentDateAscending, 42, 87.5f, 0,
                                                            DateTime::FromSeconds(100), DateTime::FromSeconds(200),
                                                            sentences, false, Vantu::FastVector<Highlight>{{3, 4}},
                                                            Vantu::FastVector<Highlight>{{0, 2}, {5, 1}});
    IndexedDocumentWeight copy(*original), assigned;
    assigned = *original;
    copy.SetSummary({{u"changed", {}, 1}}, {}, {});
    original.reset();
    EXPECT_EQ(document->NbRef(), 3);
    EXPECT_EQ(copy.GetDocument().Get(), document.Get());
    EXPECT_EQ(assigned.GetDocument().Get(), document.Get());
    EXPECT_EQ(assigned.GetSortKey(), copy.GetSortKey());
    EXPECT_EQ(assigned.GetSecondDate(), DateTime::FromSeconds(200));
    EXPECT_EQ(assigned.GetTitleHighlights()[0], (Highlight{3, 4}));
    EXPECT_EQ(assigned.GetUriHighlights()[1], (Highlight{5, 1}));
    EXPECT_EQ(assigned.GetSentences()[2].marks[0], (Highlight{1, 2}));
    EXPECT_EQ(copy.GetSentences().size(), 1u);
    EXPECT_TRUE(copy.GetTitleHighlights().empty());
    // The heaviest sentences first; equal weights keep the document's order.
    std::vector<std::u16string> best;
    for (const Sentence& s : assigned.GetBestSentences(3)) best.push_back(s.text);
    EXPECT_EQ(best, (std::vector<std::u16string>{u"third", u"first", u"fourth"}));
}

}  // namespace
}  // namespace Ostrel
