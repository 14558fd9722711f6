#include "store/ShingleBag.h"

#include <gtest/gtest.h>

#include <random>

#include "file/BinaryStreamException.h"
#include "file/BinaryStreamMemoryBuffer.h"

using VantuAlgo::ShingleBag;
using Words = std::vector<std::u16string>;

namespace {

Words RandomText(std::mt19937& random, size_t count) {
    Words words(count);
    for (auto& word : words)
        for (unsigned int i = 1 + random() % 7; i > 0; --i) word += static_cast<char16_t>(u'a' + random() % 26);
    return words;
}

}  // namespace

TEST(ShingleBagTest, NearCopiesAreSimilarOthersAreNot) {
    std::mt19937 random(5);
    Words text = RandomText(random, 2000);
    Words edited = text;
    for (int i = 0; i < 10; ++i) edited[random() % edited.size()] = u"changed";
    Words other = RandomText(random, 2000);

    ShingleBag bag(text), copy(text), near(edited), far(other);
    EXPECT_TRUE(bag.IsSimilar(copy, 100));
    EXPECT_TRUE(bag.IsSimilar(near, 85));
    EXPECT_TRUE(near.IsSimilar(bag, 85));
    EXPECT_FALSE(bag.IsSimilar(far, 10));
    EXPECT_TRUE(bag.IsSimilar(far, 0));

    // Half of the text in common is well below the default factor.
    Words half(text.begin(), text.begin() + 1000);
    half.insert(half.end(), other.begin(), other.begin() + 1000);
    EXPECT_FALSE(bag.IsSimilar(ShingleBag(half), 85));

    // Short texts keep every shingle and compare exactly; an empty bag matches nothing.
    ShingleBag two({u"hello", u"world"});
    EXPECT_TRUE(two.IsSimilar(ShingleBag({u"hello", u"world"}), 100));
    EXPECT_FALSE(two.IsSimilar(ShingleBag({u"hello", u"there"}), 1));
    EXPECT_FALSE(ShingleBag().IsSimilar(ShingleBag(), 0));
    EXPECT_FALSE(ShingleBag(Words{}).IsSimilar(two, 0));
}

// Stored in every document record: u8 count, then that many u32 hashes, ascending.
TEST(ShingleBagTest, StreamFormReadsBackAndRefusesBadBytes) {
    std::mt19937 random(6);
    ShingleBag bag(RandomText(random, 300));
    VantuFile::MemoryBuffer memory;
    Vantu::BinaryStreamT<unsigned int> stream(memory);
    stream << bag << ShingleBag();
    ASSERT_EQ(memory.Size(), 1u + 4u * ShingleBag::kBagSize + 1u);
    EXPECT_EQ(memory.Data()[0], ShingleBag::kBagSize);
    ShingleBag read, empty(RandomText(random, 10));
    stream >> read >> empty;
    EXPECT_EQ(read, bag);
    EXPECT_TRUE(empty.empty());

    const uint8_t tooMany[] = {65};
    VantuFile::StaticMemoryBuffer tooManyBuffer(tooMany, sizeof tooMany);
    Vantu::BinaryStreamT<unsigned int> tooManyStream(tooManyBuffer);
    EXPECT_THROW(tooManyStream >> read, Vantu::BinaryStreamException);
    const uint8_t unordered[] = {2, 5, 0, 0, 0, 4, 0, 0, 0};
    VantuFile::StaticMemoryBuffer unorderedBuffer(unordered, sizeof unordered);
    Vantu::BinaryStreamT<unsigned int> unorderedStream(unorderedBuffer);
    EXPECT_THROW(unorderedStream >> read, Vantu::BinaryStreamException);
    EXPECT_EQ(read, bag);
}
