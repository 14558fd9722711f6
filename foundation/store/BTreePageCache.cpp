#include "store/BTreePageCache.h"

#include "store/BTreeFile.h"
#include "store/BTreePage.h"

namespace VantuBTree {

BTreePageCache::BTreePageCache(BTreeFile& file, uint32_t pageSize, uint32_t capacityPages)
    : file_(file), pageSize_(pageSize), capacity_(capacityPages) {}

BTreePageCache::Entry& BTreePageCache::Insert(uint32_t id) {
    auto [it, fresh] = pages_.try_emplace(id);
    Entry& e = it->second;
    if (fresh) {
        lru_.push_front(id);
        e.lru = lru_.begin();
        if (spare_.empty()) {
            e.bytes.reset(new uint8_t[pageSize_]);
        } else {
            e.bytes = std::move(spare_.back());
            spare_.pop_back();
        }
    } else {
        lru_.splice(lru_.begin(), lru_, e.lru);
    }
    return e;
}

uint8_t* BTreePageCache::Get(uint32_t id) {
    auto found = pages_.find(id);
    if (found != pages_.end()) {
        lru_.splice(lru_.begin(), lru_, found->second.lru);
        return found->second.bytes.get();
    }
    Entry& e = Insert(id);
    try {
        file_.ReadPage(id, e.bytes.get());
        const BTreePage page(e.bytes.get(), pageSize_);
        if (!page.ChecksumMatches() || !page.IsSound()) file_.ThrowCorrupt("page " + std::to_string(id));
    } catch (...) {
        Drop(id);
        throw;
    }
    return e.bytes.get();
}

uint8_t* BTreePageCache::Create(uint32_t id) {
    Entry& e = Insert(id);
    e.dirty = true;
    return e.bytes.get();
}

void BTreePageCache::MarkDirty(uint32_t id) { pages_.at(id).dirty = true; }

void BTreePageCache::Recycle(Entry& e) {
    lru_.erase(e.lru);
    if (spare_.size() < 4) spare_.push_back(std::move(e.bytes));
}

void BTreePageCache::Drop(uint32_t id) {
    auto found = pages_.find(id);
    if (found == pages_.end()) return;
    Recycle(found->second);
    pages_.erase(found);
}

void BTreePageCache::Clear() {
    pages_.clear();
    lru_.clear();
}

void BTreePageCache::Write(uint32_t id, Entry& e) {
    BTreePage(e.bytes.get(), pageSize_).Seal();
    file_.WritePage(id, e.bytes.get());
    e.dirty = false;
}

void BTreePageCache::WriteDirty() {
    for (auto& [id, e] : pages_)
        if (e.dirty) Write(id, e);
}

void BTreePageCache::Trim() {
    while (pages_.size() > capacity_) {
        const uint32_t id = lru_.back();
        Entry& e = pages_.at(id);
        if (e.dirty) Write(id, e);
        Recycle(e);
        pages_.erase(id);
    }
}

}  // namespace VantuBTree
