// What the typed trees share: the key order on stored bytes, key and value scratch buffers, and an
// iterator that holds its record decoded. Used like BTree: one thread at a time.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "store/BTree.h"
#include "store/BTreeOrder.h"

namespace VantuBTree {

// An iterator of a typed tree: `Tree::Decode` turns the held record into `value_type`.
template <class Tree>
class BTreeTypedIterator : public BTreeIterator {
public:
    using value_type = typename Tree::value_type;

    BTreeTypedIterator() = default;
    BTreeTypedIterator(const BTreeIterator& it) : BTreeIterator(it) { Decode(); }  // NOLINT: implicit by design

    const value_type& operator*() const { return value_; }
    const value_type* operator->() const { return &value_; }
    BTreeTypedIterator& operator++() {
        BTreeIterator::operator++();
        Decode();
        return *this;
    }

private:
    void Decode() {
        if (tree_ && path_.depth) Tree::Decode(GetRecord(), value_);
    }
    value_type value_{};
};

// The key-only operations of a typed tree `Tree` (a map or a set) with keys K.
template <class Tree, class K, class Order, class KeyTraits>
class BTreeKeyed : public BTree {
public:
    using iterator = BTreeTypedIterator<Tree>;
    using const_iterator = iterator;

    bool Compare(const Record& a, const Record& b) const override {
        return BTreeKeyOrder<K, Order, KeyTraits>::Less(a.key, a.keySize, b.key, b.keySize);
    }

    iterator Find(const K& key) { return BTree::Find(KeyRecord(key)); }
    iterator FindEx(const iterator& hint, const K& key) { return BTree::FindEx(hint, KeyRecord(key)); }
    iterator LowerBound(const K& key) { return BTree::LowerBound(KeyRecord(key)); }
    iterator UpperBound(const K& key) { return BTree::UpperBound(KeyRecord(key)); }
    iterator Begin() { return BTree::Begin(); }
    iterator end() const { return BTree::end(); }

    bool Erase(const iterator& at, bool& nextValid, iterator& next) {
        BTreeIterator following;
        const bool erased = BTree::Erase(at, nextValid, following);
        if (nextValid) next = following;
        return erased;
    }
    uint32_t Erase(const K& key) { return BTree::Erase(KeyRecord(key)); }

protected:
    BTreeKeyed(const std::string& path, bool duplicates, bool hasValue, bool fixedValue, uint32_t pageSize,
               uint32_t cacheSize, bool readOnly, bool reserved)
        : BTree(path, duplicates, KeyTraits::kFixedSize != 0, hasValue, fixedValue, pageSize, cacheSize, readOnly,
                reserved) {
        key_.reserve(RecordLimit());
    }

    // The key's bytes in the scratch buffer. A key over the limit is refused when it would be stored;
    // a search for it simply finds nothing.
    Record KeyRecord(const K& key) {
        key_.resize(KeyTraits::Size(key));
        KeyTraits::Write(key, key_.data());
        return {key_.data(), static_cast<uint32_t>(key_.size()), nullptr, 0};
    }

    // The key and value as a record to store, checked against the limit before any byte is built.
    template <class V, class ValueTraits>
    Record FullRecord(const K& key, const V& value) {
        const uint64_t size = uint64_t(KeyTraits::Size(key)) + ValueTraits::Size(value);
        if (size > RecordLimit()) ThrowRecordTooLargeException(Path());
        Record r = KeyRecord(key);
        value_.resize(ValueTraits::Size(value));
        ValueTraits::Write(value, value_.data());
        r.value = value_.data();
        r.valueSize = static_cast<uint32_t>(value_.size());
        return r;
    }

private:
    std::vector<uint8_t> key_;
    std::vector<uint8_t> value_;
};

}  // namespace VantuBTree
