// A disk map with many records for a key; records of one key stay in the order they were inserted.
// Not synchronised: one thread at a time, under the owning store's lock.
#pragma once

#include "store/BTreeMap.h"

namespace VantuBTree {

template <class K, class V, class Order = FastLess<K>, class KeyTraits = BTreeTraitsT<K>,
          class ValueTraits = BTreeTraitsT<V>>
class BTreeMultiMap : public BTreeMap<K, V, Order, 1, KeyTraits, ValueTraits> {
public:
    using BTreeMap<K, V, Order, 1, KeyTraits, ValueTraits>::BTreeMap;
};

}  // namespace VantuBTree
