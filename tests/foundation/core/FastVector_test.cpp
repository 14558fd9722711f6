#include <gtest/gtest.h>

#include "core/FastVector.h"
#include "core/RefCountVector.h"

using namespace Vantu;

TEST(FastVector, GrowsByTheDoublingThenQuarterRule) {
    FastVector<uint32_t> v;
    EXPECT_EQ(v.capacity(), 0u);
    v.push_back(0);
    EXPECT_EQ(v.capacity(), 16u);
    while (v.size() < 256) v.push_back(uint32_t(v.size()));
    EXPECT_EQ(v.capacity(), 256u);
    v.push_back(256);
    EXPECT_EQ(v.capacity(), 512u);

    FastVector<uint32_t> w;
    w.reserve(257);
    for (uint32_t i = 0; i < 257; ++i) w.push_back(i);
    w.push_back(257);
    EXPECT_EQ(w.capacity(), 321u);  // 257 * 1.25, truncated
    w.reserve(10);
    EXPECT_EQ(w.capacity(), 321u);
    for (uint32_t i = 0; i < w.size(); ++i) ASSERT_EQ(w[i], i);
}

TEST(FastVector, CopiesInsertsErasesAndAppendsItsOwnElements) {
    FastVector<int> v{1, 2, 3};
    for (int i = 0; i < 13; ++i) v.push_back(v[0]);  // the 17th append reads the block it replaces
    v.push_back(v[1]);
    EXPECT_EQ(v.size(), 17u);
    EXPECT_EQ(v.back(), 2);
    FastVector<int> copy = v;
    copy.insert(copy.begin() + 1, 9);
    copy.erase(copy.begin());
    EXPECT_EQ(copy[0], 9);
    EXPECT_EQ(copy[1], 2);
    EXPECT_EQ(copy.size(), 17u);
    EXPECT_EQ(v[0], 1);
    copy.resize(20, 7);
    EXPECT_EQ(copy[19], 7);
    size_t capacity = copy.capacity();
    copy.clear();
    EXPECT_TRUE(copy.empty());
    EXPECT_EQ(copy.capacity(), capacity);
}

namespace {
struct Counted : SPRefCounter {};
}  // namespace

TEST(RefCountVector, SharesItsObjects) {
    RefCountVector<Counted> v;
    v.push_back(new Counted);
    v.push_back(new Counted);
    {
        RefCountVector<Counted> copy = v;
        EXPECT_EQ(v.front()->NbRef(), 2);
    }
    EXPECT_EQ(v.back()->NbRef(), 1);
    PointerVector<int> pointers;
    int x = 5;
    pointers.push_back(&x);
    EXPECT_EQ(*pointers[0], 5);
}
