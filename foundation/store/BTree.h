// A disk B-tree of byte records ordered by Compare, with two-phase transactions that survive a crash:
// committed pages are never overwritten, and a PreCommit stays pending until Commit or Rollback.
// Not synchronised: one thread at a time, under the owning store's lock.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/Exception.h"
#include "store/BTreeFile.h"
#include "store/BTreeIterator.h"
#include "store/BTreePageCache.h"

namespace VantuBTree {

VANTU_DECLARE_EXCEPTION(RecordTooLargeException, ::Vantu::Exception);
VANTU_DECLARE_EXCEPTION(ReadOnlyException, ::Vantu::Exception);

class BTreePage;

class BTree {
public:
    // `pageSize` is a power of two from 1024 to 0x10000; `cacheSize` counts bytes of pages kept in memory.
    // The last flag is reserved (the engine always passes false).
    BTree(const std::string& path, bool duplicates, bool fixedKey, bool hasValue, bool fixedValue,
          uint32_t pageSize, uint32_t cacheSize, bool readOnly, bool reserved = false);
    virtual ~BTree();
    BTree(const BTree&) = delete;
    BTree& operator=(const BTree&) = delete;

    // The strict order of two keys: true when a's key comes first. Only the key parts are read.
    virtual bool Compare(const Record& a, const Record& b) const = 0;

    std::pair<BTreeIterator, bool> Insert(const Record& record);
    BTreeIterator Find(const Record& key);
    BTreeIterator FindEx(const BTreeIterator& hint, const Record& key);
    BTreeIterator LowerBound(const Record& key);
    BTreeIterator UpperBound(const Record& key);
    BTreeIterator Begin();
    const BTreeIterator& end() const { return end_; }
    BTreeIterator Update(const BTreeIterator& at, const Record& record);
    bool Erase(const BTreeIterator& at, bool& nextValid, BTreeIterator& next);
    uint32_t Erase(const Record& key);

    void PreCommit();
    void Commit();
    void Rollback();
    void ReadOnly(bool readOnly);

    uint32_t GetRecordCount() const { return work_.count; }
    uint64_t GetSizeInBytes() const { return file_.SizeOnDisk(); }
    // Largest key plus value that a record may have: a quarter of a page's room, less cell overheads.
    uint32_t RecordLimit() const { return recordLimit_; }
    const std::string& Path() const { return file_.Path(); }
    bool HasDuplicates() const { return duplicates_; }

    [[noreturn]] static void ThrowRecordTooLargeException(const std::string& path);

private:
    friend class BTreeIterator;
    enum Owner : uint8_t { kCommitted = 1, kPending = 2, kWorking = 4 };

    void Open();
    void MarkPages(uint32_t root, uint32_t height, uint8_t owner);
    BTreePage Load(uint32_t id, uint32_t level) const;
    BTreePage LoadAt(const BTreePath& path, uint32_t index) const;
    Record RecordAt(const BTreePath& path) const;

    BTreePath Search(const Record& key, bool upper) const;
    // The first record not before `key` (or, with `upper`, after it).
    BTreeIterator Bound(const Record& key, bool upper);
    bool Normalize(BTreePath& path) const;
    bool Advance(BTreePath& path) const;
    BTreePath SeekRank(uint32_t rank) const;
    uint32_t RankOf(const BTreePath& path) const;
    BTreeIterator MakeIterator(const BTreePath& path) const;
    void Refresh(const BTreeIterator& it) const;
    bool KeyEquals(const Record& a, const Record& b) const { return !Compare(a, b) && !Compare(b, a); }

    void CheckWritable() const;
    void CheckSize(const Record& record) const;
    uint32_t Allocate();
    void Release(uint32_t id);
    void SetOwner(uint32_t id, uint8_t owners);
    uint32_t Writable(uint32_t id);
    void MakeWritable(BTreePath& path, int32_t countDelta);
    void InsertCell(BTreePath& path, uint32_t level, const Record& cell);
    void Split(BTreePath& path, uint32_t level, const Record& cell);
    void RemoveCell(BTreePath& path, uint32_t level);
    void TryMerge(BTreePath& path, uint32_t level);
    void EraseAt(BTreePath& path);
    void Changed();
    void TruncateTail();

    BTreeFile file_;
    mutable BTreePageCache cache_;
    uint32_t pageSize_;
    uint32_t recordLimit_;
    bool duplicates_;
    bool readOnly_;

    BTreeState committed_;
    BTreeState pending_;
    BTreeState work_;
    bool hasPending_ = false;
    bool dirty_ = false;  // work_ differs from the last PreCommit (or Commit)
    uint64_t version_ = 1;
    std::vector<uint8_t> owners_;  // per page id: which versions of the tree use it
    std::set<uint32_t> freeIds_;
    uint32_t pageCount_ = 0;
    BTreeIterator end_;
};

}  // namespace VantuBTree
