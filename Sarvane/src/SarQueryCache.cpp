#include "SarQueryCache.h"

#include <algorithm>
#include <tuple>

#include "core/Text.h"

namespace Ostrel {

std::atomic<uint32_t> SarQueryCache::clock_{0};

QueryCacheKey QueryCacheKey::Make(const std::u16string& query, const std::u16string& extraQuery,
                                  SortCriteria sortCriteria, bool optimization, const std::u16string& preferredLanguage,
                                  std::vector<uint16_t> collections, std::vector<SarcIdentity> networkIds) {
    QueryCacheKey key;
    key.text = Vantu::BeautifyString(Vantu::ToLower(query + u" " + extraQuery));
    key.sortCriteria = sortCriteria;
    key.optimization = optimization;
    key.preferredLanguage = preferredLanguage;
    key.collections = std::move(collections);
    key.networkIds = std::move(networkIds);
    return key;
}

bool QueryCacheKey::operator<(const QueryCacheKey& o) const {
    return std::tie(sortCriteria, text, optimization, preferredLanguage, collections, networkIds) <
           std::tie(o.sortCriteria, o.text, o.optimization, o.preferredLanguage, o.collections, o.networkIds);
}

std::optional<QueryCacheEntry> SarQueryCache::Lookup(const QueryCacheKey& key, uint32_t wanted,
                                                     uint64_t& generation) {
    std::shared_ptr<VantuThread::EventSemaphore> twin;
    {
        std::lock_guard<std::mutex> hold(runningLock_);
        if (const auto found = running_.find(key); found != running_.end()) twin = found->second;
    }
    if (twin) twin->Wait();
    {
        VantuThread::ReadLocker hold(entriesLock_);
        generation = generation_;
        if (const auto found = entries_.find(key); found != entries_.end()) {
            const QueryCacheEntry& entry = found->second.entry;
            // An answer whose checks stopped short of this page would give it fewer records than a fresh one (Q1).
            if (!entry.more || wanted <= entry.computedFor) {
                found->second.timeStamp = ++clock_;
                return entry;
            }
        }
    }
    // A twin that entered the key meanwhile keeps its event: this call computes too, without waiting again.
    std::lock_guard<std::mutex> hold(runningLock_);
    running_.try_emplace(key, std::make_shared<VantuThread::EventSemaphore>(true, false));
    return std::nullopt;
}

uint64_t SarQueryCache::EstimateSize(const QueryCacheKey& key, const QueryCacheEntry& entry) {
    const uint64_t weights = entry.weights.size(), ignored = entry.ignoredTerms.size(),
                   highlights = entry.highlightTerms.size(), phrases = entry.highlightPhrases.size();
    return 2 * (4 * (4 * weights + ignored + highlights + 20) + 6 * (3 * key.networkIds.size() + 2 * phrases) +
                key.collections.size() + key.text.size() + key.preferredLanguage.size() + entry.exception.GetText().size());
}

void SarQueryCache::Store(const QueryCacheKey& key, QueryCacheEntry entry, uint64_t generation) {
    if (entry.weights.size() > kMaxWeights) entry.weights.resize(kMaxWeights);
    const uint64_t size = EstimateSize(key, entry);
    const uint64_t limit = limit_();
    {
        VantuThread::WriteLocker hold(entriesLock_);
        if (generation != generation_) return Release(key);
        while (size_ + size > limit && !entries_.empty()) {
            const auto oldest = std::min_element(entries_.begin(), entries_.end(), [](const auto& a, const auto& b) {
                return a.second.timeStamp < b.second.timeStamp;
            });
            size_ -= oldest->second.size;
            entries_.erase(oldest);
        }
        const auto [at, added] = entries_.try_emplace(key);
        // A twin's answer already stands unless it stopped short of this one (Q1).
        if (added || (at->second.entry.more && entry.computedFor > at->second.entry.computedFor)) {
            size_ += size - (added ? 0 : at->second.size);
            at->second.entry = std::move(entry);
            at->second.size = size;
        }
        at->second.timeStamp = ++clock_;
    }
    Release(key);
}

void SarQueryCache::Abandon(const QueryCacheKey& key) { Release(key); }

void SarQueryCache::Release(const QueryCacheKey& key) {
    std::lock_guard<std::mutex> hold(runningLock_);
    if (const auto found = running_.find(key); found != running_.end()) {
        found->second->Post();
        running_.erase(found);
    }
}

void SarQueryCache::Clear() {
    VantuThread::WriteLocker hold(entriesLock_);
    entries_.clear();
    size_ = 0;
    ++generation_;
}

size_t SarQueryCache::Entries() const {
    VantuThread::ReadLocker hold(entriesLock_);
    return entries_.size();
}

uint64_t SarQueryCache::SizeInBytes() const {
    VantuThread::ReadLocker hold(entriesLock_);
    return size_;
}

std::u16string SarQueryCache::DumpText() const {
    const auto number = [](uint64_t n) { return Vantu::FromUtf8(std::to_string(n)); };
    VantuThread::ReadLocker hold(entriesLock_);
    std::u16string text = u"Dump cache\n\nNumber of elements in cache: " + number(entries_.size()) +
                          u"\nMaximum size in bytes: " + number(limit_()) + u"\nSize in bytes of the cache: " +
                          number(size_) + u"\n\nElements of the cache:\n";
    for (const auto& [key, stored] : entries_) {
        std::u16string collections, identities;
        for (uint16_t id : key.collections) collections += (collections.empty() ? u"" : u", ") + number(id);
        for (const SarcIdentity& id : key.networkIds) identities += (identities.empty() ? u"" : u", ") + id;
        text += u"\tQuery: " + key.text + u" Optimization: " + (key.optimization ? u"On" : u"Off") +
                u" Preferred Language: " + key.preferredLanguage + u" Sort Criteria: " +
                Vantu::FromUtf8(SortCriteriaText(key.sortCriteria)) + u" Collections: (" + collections +
                u") Network IDS: (" + identities + u") Size in bytes: " + number(stored.size) + u" Time Stamp: " +
                number(stored.timeStamp) + u"\n";
    }
    return text;
}

}  // namespace Ostrel
