// A disk set of keys (no values), with one record per key unless Duplicates is 1.
// Not synchronised: one thread at a time, under the owning store's lock.
#pragma once

#include "store/BTreeTyped.h"

namespace VantuBTree {

template <class K, class Order = FastLess<K>, int Duplicates = 0, class KeyTraits = BTreeTraitsT<K>>
class BTreeSet : public BTreeKeyed<K, Order, KeyTraits> {
    using Base = BTreeKeyed<K, Order, KeyTraits>;

public:
    using key_type = K;
    using value_type = K;
    using iterator = BTreeTypedIterator<BTreeSet>;
    using const_iterator = iterator;

    BTreeSet(const std::string& path, uint32_t pageSize, uint32_t cacheSize, bool readOnly = false,
             bool reserved = false)
        : Base(path, Duplicates != 0, false, true, pageSize, cacheSize, readOnly, reserved) {}

    static void Decode(const Record& r, value_type& out) { KeyTraits::Read(r.key, r.keySize, out); }

    std::pair<iterator, bool> Insert(const K& key) {
        if (KeyTraits::Size(key) > this->RecordLimit()) BTree::ThrowRecordTooLargeException(this->Path());
        auto [it, inserted] = BTree::Insert(this->KeyRecord(key));
        return {iterator(it), inserted};
    }

    iterator Find(const K& key) { return BTree::Find(this->KeyRecord(key)); }
    iterator FindEx(const iterator& hint, const K& key) { return BTree::FindEx(hint, this->KeyRecord(key)); }
    iterator LowerBound(const K& key) { return BTree::LowerBound(this->KeyRecord(key)); }
    iterator UpperBound(const K& key) { return BTree::UpperBound(this->KeyRecord(key)); }
    iterator Begin() { return BTree::Begin(); }
    iterator end() const { return BTree::end(); }

    bool Erase(const iterator& at, bool& nextValid, iterator& next) {
        BTreeIterator following;
        const bool erased = BTree::Erase(at, nextValid, following);
        if (nextValid) next = following;
        return erased;
    }
    uint32_t Erase(const K& key) { return BTree::Erase(this->KeyRecord(key)); }
};

}  // namespace VantuBTree
