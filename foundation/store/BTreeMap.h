// A disk map from K to V over BTree, with one record per key unless Duplicates is 1.
// Not synchronised: one thread at a time, under the owning store's lock.
#pragma once

#include "store/BTreeTyped.h"

namespace VantuBTree {

template <class K, class V, class Order = FastLess<K>, int Duplicates = 0, class KeyTraits = BTreeTraitsT<K>,
          class ValueTraits = BTreeTraitsT<V>>
class BTreeMap : public BTreeKeyed<BTreeMap<K, V, Order, Duplicates, KeyTraits, ValueTraits>, K, Order, KeyTraits> {
    using Base = BTreeKeyed<BTreeMap, K, Order, KeyTraits>;

public:
    using key_type = K;
    using mapped_type = V;
    using value_type = std::pair<K, V>;
    using typename Base::iterator;
    using typename Base::const_iterator;

    BTreeMap(const std::string& path, uint32_t pageSize, uint32_t cacheSize, bool readOnly = false,
             bool reserved = false)
        : Base(path, Duplicates != 0, true, ValueTraits::kFixedSize != 0, pageSize, cacheSize, readOnly, reserved) {}

    static void Decode(const Record& r, value_type& out) {
        KeyTraits::Read(r.key, r.keySize, out.first);
        ValueTraits::Read(r.value, r.valueSize, out.second);
    }

    std::pair<iterator, bool> Insert(const K& key, const V& value) {
        auto [it, inserted] = BTree::Insert(this->template FullRecord<V, ValueTraits>(key, value));
        return {iterator(it), inserted};
    }
    std::pair<iterator, bool> Insert(const value_type& record) { return Insert(record.first, record.second); }

    // Replaces the value of the record at `at`; its key stays.
    iterator Update(const iterator& at, const V& value) {
        return BTree::Update(at, this->template FullRecord<V, ValueTraits>(at->first, value));
    }
};

}  // namespace VantuBTree
