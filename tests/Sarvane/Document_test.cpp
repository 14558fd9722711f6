#include "Document.h"

#include <set>

#include <gtest/gtest.h>

#include "ProcessedDocument.h"
#include "SarvaneStatistics.h"
#include "SortCriteria.h"

namespace Ostrel {
namespace {

std::string Bytes(VantuFile::MemoryBuffer& buffer) {
    return std::string(reinterpret_cast<const char*>(buffer.Data()), buffer.Size());
}

TEST(DocumentTest, UriConversionsRoundTrip) {
    const std::u16string uri = u"file:///c/r\u00E9sum\u00E9/\u4E2D\U0001F600.txt";
    std::string narrow;
    ConvertUriInString(uri, narrow);
    EXPECT_EQ(narrow, "file:///c/r\xC3\xA9sum\xC3\xA9/\xE4\xB8\xAD\xF0\x9F\x98\x80.txt");
    std::u16string wide = u"old";
    ConvertStringInURI(narrow, wide);
    EXPECT_EQ(wide, uri);
    ConvertUriInString(u"", narrow);
    EXPECT_EQ(narrow, "");
}

TEST(DocumentTest, CopyIsDeepAndIndependent) {
    Vantu::SmartPtr<Document> original(new Document);
    original->URI(u"http://host/\u00E9");
    original->wordStream.PutExact("words", 5);
    original->wordStream.SeekG(2);
    original->cachedCopy.PutExact("cached copy", 11);
    original->links = {u"http://a", u"http://b"};
    original->securityAccess.allowed = {u"alice", u"staff"};
    original->securityAccess.denied = {u"bob"};
    original->physical = 1;
    original->collection = 2;
    original->source = 3;
    original->flags = Document::kFixedResult;

    Vantu::SmartPtr<Document> copy(new Document(*original));
    EXPECT_EQ(copy->NbRef(), 1);
    EXPECT_EQ(copy->URI(), original->URI());
    EXPECT_EQ(copy->URIAsString(), "http://host/\xC3\xA9");
    EXPECT_EQ(copy->GetSourceKey(), SourceKey(1, 2, 3));
    EXPECT_EQ(Bytes(copy->wordStream), "words");
    EXPECT_EQ(copy->wordStream.TellG(), 2u);
    EXPECT_EQ(Bytes(copy->cachedCopy), "cached copy");
    EXPECT_EQ(copy->StreamedSize(), 16u);
    EXPECT_EQ(copy->securityAccess, original->securityAccess);
    EXPECT_EQ(copy->flags, Document::kFixedResult);

    // Writing to the copy, reading from it, and clearing it leave the original as it was.
    copy->wordStream.PutExact("MORE", 4);
    char two[2];
    copy->wordStream.GetExact(two, 2);
    copy->links.push_back(u"http://c");
    copy->securityAccess.denied.insert(u"eve");
    copy->URI(u"http://other");
    copy->Clear();
    EXPECT_EQ(copy->StreamedSize(), 0u);
    EXPECT_EQ(Bytes(original->wordStream), "words");
    EXPECT_EQ(original->wordStream.TellG(), 2u);
    EXPECT_EQ(Bytes(original->cachedCopy), "cached copy");
    EXPECT_EQ(original->links.size(), 2u);
    EXPECT_EQ(original->securityAccess.denied, std::set<SarcIdentity>{u"bob"});
    EXPECT_EQ(original->URI(), u"http://host/\u00E9");

    // A cleared document takes new bytes from the start.
    copy->wordStream.PutExact("x", 1);
    EXPECT_EQ(Bytes(copy->wordStream), "x");
}

TEST(DocumentTest, ProcessedDocumentsOrderByKeyThenUri) {
    std::set<ProcessedDocument> documents;
    documents.emplace(SourceKey(1, 1, 2), u"a", u"n", 0, Vantu::DateTime(), 0, true);
    documents.emplace(SourceKey(1, 1, 1), u"b", u"n", 0, Vantu::DateTime(), 0, true);
    documents.emplace(SourceKey(1, 1, 1), u"a", u"n", 0, Vantu::DateTime(), 0, true);
    // Same key and URI: the set finds the entry whatever the other fields say.
    EXPECT_FALSE(documents.emplace(SourceKey(1, 1, 1), u"a", u"x", 9, Vantu::DateTime(), 9, false).second);
    ASSERT_EQ(documents.size(), 3u);
    auto it = documents.begin();
    EXPECT_EQ(it->uri, u"a");
    EXPECT_EQ((++it)->uri, u"b");
    EXPECT_EQ((++it)->key, SourceKey(1, 1, 2));
}

TEST(DocumentTest, StatisticsAndSortNames) {
    SarvaneSliceStatistics slice;
    slice.collections[4].count = 10;
    SarvaneCollectionStatistics out;
    out.deleted = 77;
    EXPECT_FALSE(slice.GetCollectionStats(5, out));
    EXPECT_EQ(out.deleted, 77u);
    ASSERT_TRUE(slice.GetCollectionStats(4, out));
    EXPECT_EQ(out.count, 10u);
    EXPECT_EQ(out.deleted, 0u);

    const SarvaneStatistics fresh;
    EXPECT_EQ(fresh.compactionProgress, -1);
    EXPECT_EQ(fresh.secondValue, -1);
    EXPECT_FALSE(fresh.seen);

    EXPECT_STREQ(SortCriteriaText(Relevance), "Revelancy");
    EXPECT_STREQ(SortCriteriaText(IndexDateAscending), "Ind Date Asc");
    EXPECT_STREQ(SortCriteriaText(SortCriteria(0)), "Invalid !!");
    EXPECT_STREQ(SortCriteriaText(SortCriteria(6)), "Invalid !!");
}

}  // namespace
}  // namespace Ostrel
