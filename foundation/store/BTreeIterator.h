// A place in a B-tree that holds a copy of its record until it moves; stays usable across changes of the
// tree (it finds its record again by key). Used on the thread that uses its tree.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

namespace VantuBTree {

class BTree;

// The bytes of one tree record as handed to the tree or read from it.
struct Record {
    const uint8_t* key = nullptr;
    uint32_t keySize = 0;
    const uint8_t* value = nullptr;
    uint32_t valueSize = 0;
};

// Page ids and slots from the root (index 0) down to a leaf; depth 0 is the end of the tree.
struct BTreePath {
    static constexpr uint32_t kMaxDepth = 16;
    uint32_t depth = 0;
    uint32_t page[kMaxDepth];
    uint32_t slot[kMaxDepth];
};

// A record's key and value bytes, kept inline when small so that copying an iterator rarely allocates.
class RecordCopy {
public:
    void Assign(const Record& r);
    Record Get() const {
        const uint8_t* d = Data();
        return {d, keySize_, d + keySize_, size_ - keySize_};
    }

private:
    static constexpr uint32_t kInline = 48;
    const uint8_t* Data() const { return size_ <= kInline ? inline_ : heap_.data(); }

    uint32_t size_ = 0;
    uint32_t keySize_ = 0;
    uint8_t inline_[kInline];
    std::vector<uint8_t> heap_;
};

class BTreeIterator {
public:
    BTreeIterator() = default;

    bool operator==(const BTreeIterator& other) const;
    BTreeIterator& operator++();
    // Number of records from `other` to this one.
    int64_t operator-(const BTreeIterator& other) const;

    bool IsNull() const { return tree_ == nullptr; }
    bool IsEnd() const;
    // The record as it was when the iterator last moved; empty at the end.
    Record GetRecord() const { return record_.Get(); }

protected:
    friend class BTree;
    BTree* tree_ = nullptr;
    mutable BTreePath path_;
    mutable uint64_t version_ = 0;
    RecordCopy record_;
};

// The read-only face of an iterator.
class BTreeConstIterator : public BTreeIterator {
public:
    BTreeConstIterator() = default;
    BTreeConstIterator(const BTreeIterator& it) : BTreeIterator(it) {}  // NOLINT: converts like std iterators
};

}  // namespace VantuBTree
