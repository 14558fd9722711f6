// A disk set of keys (no values), with one record per key unless Duplicates is 1.
// Not synchronised: one thread at a time, under the owning store's lock.
#pragma once

#include "store/BTreeTyped.h"

namespace VantuBTree {

template <class K, class Order = FastLess<K>, int Duplicates = 0, class KeyTraits = BTreeTraitsT<K>>
class BTreeSet : public BTreeKeyed<BTreeSet<K, Order, Duplicates, KeyTraits>, K, Order, KeyTraits> {
    using Base = BTreeKeyed<BTreeSet, K, Order, KeyTraits>;

public:
    using key_type = K;
    using value_type = K;
    using typename Base::iterator;
    using typename Base::const_iterator;

    BTreeSet(const std::string& path, uint32_t pageSize, uint32_t cacheSize, bool readOnly = false,
             bool reserved = false)
        : Base(path, Duplicates != 0, false, true, pageSize, cacheSize, readOnly, reserved) {}

    static void Decode(const Record& r, value_type& out) { KeyTraits::Read(r.key, r.keySize, out); }

    std::pair<iterator, bool> Insert(const K& key) {
        if (KeyTraits::Size(key) > this->RecordLimit()) BTree::ThrowRecordTooLargeException(this->Path());
        auto [it, inserted] = BTree::Insert(this->KeyRecord(key));
        return {iterator(it), inserted};
    }
};

}  // namespace VantuBTree
