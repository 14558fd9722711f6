// One slice's cache of query answers: the ranked list and what goes with it, under a key without the requested
// range, so that a later page is a hit; the oldest-used entries go first past the size limit. Any thread.
#pragma once

#include <atomic>
#include <functional>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "QueryException.h"
#include "RankingEngine.h"
#include "SarvaneContainerAccess.h"
#include "SortCriteria.h"
#include "core/EventSemaphore.h"
#include "core/ReadWriteSemaphore.h"

namespace Ostrel {

struct QueryCacheKey {
    std::u16string text;  // the query and its extra part, lower-cased, blanks collapsed
    SortCriteria sortCriteria = Relevance;
    bool optimization = false;
    std::u16string preferredLanguage;
    std::vector<uint16_t> collections;
    std::vector<SarcIdentity> networkIds;

    static QueryCacheKey Make(const std::u16string& query, const std::u16string& extraQuery, SortCriteria sortCriteria,
                              bool optimization, const std::u16string& preferredLanguage,
                              std::vector<uint16_t> collections, std::vector<SarcIdentity> networkIds);
    // Field by field: the order, the text, the optimisation, the language, the collections, the identities.
    bool operator<(const QueryCacheKey& other) const;
};

struct QueryCacheEntry {
    std::vector<DocumentIDWeight> weights;  // the ranked list, its first kMaxWeights records
    uint32_t total = 0;
    std::vector<std::u16string> ignoredTerms;
    std::vector<std::u16string> highlightTerms;
    std::vector<std::vector<std::u16string>> highlightPhrases;
    QueryException exception;
    // The deferred checks stopped at `computedFor` (first + count) documents: a later page beyond them isn't here.
    bool more = false;
    uint32_t computedFor = 0;
};

class SarQueryCache {
public:
    static constexpr size_t kMaxWeights = 10000;

    // `limit`: the configured size of the cache in bytes, read at each store.
    explicit SarQueryCache(std::function<uint64_t()> limit) : limit_(std::move(limit)) {}

    // Waits while a twin computes the same key, then looks it up. A hit takes the next time stamp. A miss (also an
    // entry whose deferred checks stopped short of `wanted` records, Q1) marks the key running and gives the
    // cache's generation in `generation`; the caller must end with Store or Abandon.
    std::optional<QueryCacheEntry> Lookup(const QueryCacheKey& key, uint32_t wanted, uint64_t& generation);
    // Keeps the answer of a miss (cut to kMaxWeights records), evicting the oldest-used entries until it fits,
    // and wakes the twins. An entry larger than the whole cache is kept alone. An answer computed before a Clear
    // (another generation) is dropped: it may tell of the index as it was before the change.
    void Store(const QueryCacheKey& key, QueryCacheEntry entry, uint64_t generation);
    // The computation failed: the twins wake and compute on their own.
    void Abandon(const QueryCacheKey& key);
    // Whenever answers could change.
    void Clear();
    // The text of "DumpCache.txt": the counts, then one line per entry in key order.
    std::u16string DumpText() const;

    size_t Entries() const;
    uint64_t SizeInBytes() const;

private:
    struct Stored {
        QueryCacheEntry entry;
        uint64_t size = 0;
        // A hit changes it under the read side of entriesLock_.
        std::atomic<uint32_t> timeStamp{0};
    };

    static uint64_t EstimateSize(const QueryCacheKey& key, const QueryCacheEntry& entry);
    void Release(const QueryCacheKey& key);

    // One clock for every slice of the process: each store and each hit takes its next value.
    static std::atomic<uint32_t> clock_;

    const std::function<uint64_t()> limit_;
    std::map<QueryCacheKey, Stored> entries_;
    uint64_t size_ = 0;
    // Raised by each Clear, under entriesLock_.
    uint64_t generation_ = 0;
    mutable VantuThread::ReadWriteSemaphore entriesLock_;
    // The keys being computed now, each with the event their twins wait on. Never held with entriesLock_.
    std::map<QueryCacheKey, std::shared_ptr<VantuThread::EventSemaphore>> running_;
    mutable std::mutex runningLock_;
};

}  // namespace Ostrel
