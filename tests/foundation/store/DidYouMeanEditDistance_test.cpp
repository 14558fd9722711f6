#include "store/DidYouMeanEditDistance.h"

#include <gtest/gtest.h>

#include <random>

using VantuAlgo::DidYouMeanEditDistance;

// Two units are one whole step; the slips of typing cost half a step.
TEST(DidYouMeanEditDistanceTest, CostsInHalfSteps) {
    DidYouMeanEditDistance distance;
    EXPECT_EQ(distance.GetEditDistance(u"search", u"search"), 0u);
    EXPECT_EQ(distance.GetEditDistance(u"", u"abc"), 6u);
    EXPECT_EQ(distance.GetEditDistance(u"cat", u"cut"), 2u);
    EXPECT_EQ(distance.GetEditDistance(u"cat", u"cats"), 2u);
    EXPECT_EQ(distance.GetEditDistance(u"form", u"from"), 2u);
    EXPECT_EQ(distance.GetEditDistance(u"cafe", u"café"), 1u);
    EXPECT_EQ(distance.GetEditDistance(u"Paris", u"paris"), 1u);
    EXPECT_EQ(distance.GetEditDistance(u"adress", u"address"), 1u);
    EXPECT_EQ(distance.GetEditDistance(u"aa", u""), 3u);  // a whole pair is more than one step
    EXPECT_EQ(distance.GetEditDistance(u"receive", u"recieve"), 2u);
    EXPECT_EQ(distance.GetEditDistance(std::string("café"), std::string("cafe")), 1u);  // UTF-8 words
    EXPECT_EQ(distance.GetEditDistance(std::string("naïve"), std::string("naïve")), 0u);
}

TEST(DidYouMeanEditDistanceTest, SymmetricAndBounded) {
    DidYouMeanEditDistance distance;
    std::mt19937 random(99);
    const std::u16string alphabet = u"aabeéEst";
    for (int round = 0; round < 500; ++round) {
        std::u16string a, b;
        for (unsigned int i = random() % 8; i > 0; --i) a += alphabet[random() % alphabet.size()];
        for (unsigned int i = random() % 8; i > 0; --i) b += alphabet[random() % alphabet.size()];
        unsigned int d = distance.GetEditDistance(a, b);
        ASSERT_EQ(d, distance.GetEditDistance(b, a)) << round;
        ASSERT_LE(d, 2 * std::max(a.size(), b.size()));
        ASSERT_EQ(d == 0, a == b);
    }
}

TEST(DidYouMeanEditDistanceTest, CompatibleCharactersShareTheBaseLetter) {
    DidYouMeanEditDistance distance;
    std::set<unsigned short> result{u'x'};
    distance.GetCompatibleChar(u'e', result);
    EXPECT_TRUE(result.count(u'é') && result.count(u'E') && result.count(u'Ê') && result.count(u'ě'));
    EXPECT_FALSE(result.count(u'e') || result.count(u'x') || result.count(u'a'));
    distance.GetCompatibleChar(u'Ö', result);
    EXPECT_TRUE(result.count(u'o') && result.count(u'ó') && result.count(u'O'));
    distance.GetCompatibleChar(u'語', result);
    EXPECT_TRUE(result.empty());
}
