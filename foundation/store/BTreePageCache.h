// The pages of one tree held in memory, least recently used first out; a page changed in memory is
// written to its own id before it leaves. Used by its tree's thread only.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

namespace VantuBTree {

class BTreeFile;

class BTreePageCache {
public:
    BTreePageCache(BTreeFile& file, uint32_t pageSize, uint32_t capacityPages);

    // The page's bytes, read and checked on a miss; raises a file exception for a page that isn't whole.
    uint8_t* Get(uint32_t id);
    // A blank buffer for a new page, marked changed.
    uint8_t* Create(uint32_t id);
    void MarkDirty(uint32_t id);
    // Forgets the page without writing it.
    void Drop(uint32_t id);
    void Clear();
    // Writes every changed page; they stay cached.
    void WriteDirty();
    // Evicts down to the capacity. Pointers handed out earlier are invalid afterwards.
    void Trim();

private:
    struct Entry {
        std::unique_ptr<uint8_t[]> bytes;
        bool dirty = false;
        std::list<uint32_t>::iterator lru;
    };
    Entry& Insert(uint32_t id);
    void Write(uint32_t id, Entry& e);
    void Recycle(Entry& e);

    BTreeFile& file_;
    uint32_t pageSize_;
    uint32_t capacity_;
    std::unordered_map<uint32_t, Entry> pages_;
    std::list<uint32_t> lru_;  // most recent first
    std::vector<std::unique_ptr<uint8_t[]>> spare_;
};

}  // namespace VantuBTree
