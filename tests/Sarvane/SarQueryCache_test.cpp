#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "SarQueryCache.h"

using namespace Ostrel;

namespace {

QueryCacheKey Key(const std::u16string& text, std::vector<uint16_t> collections = {1},
                  std::vector<SarcIdentity> identities = {u"ann"}) {
    return QueryCacheKey::Make(text, u"", Relevance, true, u"en", std::move(collections), std::move(identities));
}

QueryCacheEntry Answer(uint32_t documents, bool more = false, uint32_t computedFor = 0) {
    QueryCacheEntry entry;
    for (uint32_t id = 0; id < documents; ++id) entry.weights.push_back({id, 100 - id});
    entry.total = documents;
    entry.more = more;
    entry.computedFor = computedFor;
    return entry;
}

}  // namespace

// The key holds neither the range nor the case or spacing of the text, but does hold who asks and where; a Clear
// empties the cache for good.
TEST(SarQueryCache, LaterPagesAndSpellingVariantsHitOtherIdentitiesAndCollectionsMiss) {
    SarQueryCache cache([] { return uint64_t(1) << 20; });
    uint64_t g = 0;  // the generation of the last miss
    ASSERT_FALSE(cache.Lookup(Key(u"river mill"), 10, g));
    cache.Store(Key(u"river mill"), Answer(30), g);
    const auto hit = cache.Lookup(Key(u"  River   MILL "), 500, g);
    ASSERT_TRUE(hit);
    EXPECT_EQ(hit->weights.size(), 30u);
    for (const QueryCacheKey& other : {Key(u"river mill", {2}), Key(u"river mill", {1}, {u"bob"}), Key(u"river")}) {
        EXPECT_FALSE(cache.Lookup(other, 10, g));
        cache.Abandon(other);
    }
    cache.Clear();
    EXPECT_FALSE(cache.Lookup(Key(u"river mill"), 10, g));
    EXPECT_EQ(cache.SizeInBytes(), 0u);
    // An answer computed before a change of the index never enters the cache after it.
    cache.Clear();
    cache.Store(Key(u"river mill"), Answer(30), g);
    EXPECT_EQ(cache.Entries(), 0u);
}

TEST(SarQueryCache, TheOldestUsedEntryGoesFirstAndAnEntryLargerThanTheCacheStaysAlone) {
    // An answer of 10 records for one identity, one collection, the text "a" and the language "en".
    const uint64_t one = 2 * (4 * (4 * 10 + 20) + 6 * 3 + 1 + 1 + 2);
    uint64_t limit = 2 * one;
    SarQueryCache cache([&] { return limit; });
    uint64_t g = 0;  // the generation of the last miss
    for (const char16_t* text : {u"a", u"b"}) {
        ASSERT_FALSE(cache.Lookup(Key(text), 10, g));
        cache.Store(Key(text), Answer(10), g);
    }
    EXPECT_EQ(cache.SizeInBytes(), 2 * one);
    ASSERT_TRUE(cache.Lookup(Key(u"a"), 10, g));  // "b" is now the oldest used
    ASSERT_FALSE(cache.Lookup(Key(u"c"), 10, g));
    cache.Store(Key(u"c"), Answer(10), g);
    EXPECT_TRUE(cache.Lookup(Key(u"a"), 10, g));
    EXPECT_FALSE(cache.Lookup(Key(u"b"), 10, g));
    cache.Abandon(Key(u"b"));
    ASSERT_FALSE(cache.Lookup(Key(u"d"), 10, g));
    cache.Store(Key(u"d"), Answer(SarQueryCache::kMaxWeights + 5), g);
    EXPECT_EQ(cache.Entries(), 1u);
    EXPECT_EQ(cache.Lookup(Key(u"d"), 10, g)->weights.size(), SarQueryCache::kMaxWeights);
}

// An answer whose deferred checks stopped at the first page never answers a deeper one (Q1).
TEST(SarQueryCache, Q1_AnAnswerCutShortOfTheRequestedRangeIsComputedAgainAndReplaced) {
    SarQueryCache cache([] { return uint64_t(1) << 20; });
    uint64_t g = 0;  // the generation of the last miss
    ASSERT_FALSE(cache.Lookup(Key(u"near"), 10, g));
    cache.Store(Key(u"near"), Answer(10, true, 10), g);
    EXPECT_TRUE(cache.Lookup(Key(u"near"), 10, g));
    EXPECT_FALSE(cache.Lookup(Key(u"near"), 20, g));
    cache.Store(Key(u"near"), Answer(20, true, 20), g);
    EXPECT_EQ(cache.Lookup(Key(u"near"), 20, g)->weights.size(), 20u);
}

// Of two equal queries at once, the second waits for the first's answer instead of computing it again.
TEST(SarQueryCache, ATwinWaitsForTheAnswerOfTheQueryBeingComputed) {
    SarQueryCache cache([] { return uint64_t(1) << 20; });
    uint64_t g = 0;  // the generation of the last miss
    ASSERT_FALSE(cache.Lookup(Key(u"mill"), 10, g));
    std::optional<QueryCacheEntry> twin;
    uint64_t twinGeneration;
    std::thread waiting([&] { twin = cache.Lookup(Key(u"mill"), 10, twinGeneration); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // lets the twin reach its wait
    cache.Store(Key(u"mill"), Answer(3), g);
    waiting.join();
    ASSERT_TRUE(twin);
    EXPECT_EQ(twin->total, 3u);
}

TEST(SarQueryCache, TheDumpListsEachEntryWithItsKeySizeAndTimeStamp) {
    SarQueryCache cache([] { return uint64_t(4096); });
    uint64_t g = 0;  // the generation of the last miss
    ASSERT_FALSE(cache.Lookup(Key(u"Mill", {1, 3}, {u"ann", u"bob"}), 10, g));
    cache.Store(Key(u"Mill", {1, 3}, {u"ann", u"bob"}), Answer(2), g);
    const std::u16string text = cache.DumpText();
    EXPECT_EQ(text.substr(0, text.find(u"\tQuery")),
              u"Dump cache\n\nNumber of elements in cache: 1\nMaximum size in bytes: 4096\nSize in bytes of the cache: " +
                  Vantu::FromUtf8(std::to_string(cache.SizeInBytes())) + u"\n\nElements of the cache:\n");
    EXPECT_NE(text.find(u"\tQuery: mill Optimization: On Preferred Language: en Sort Criteria: Revelancy "
                        u"Collections: (1, 3) Network IDS: (ann, bob) Size in bytes: "),
              std::u16string::npos);
}
