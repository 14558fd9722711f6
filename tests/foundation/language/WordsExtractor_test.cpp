#include "language/WordsExtractor.h"

#include <gtest/gtest.h>

#include <iterator>
#include <random>

#include "SarQueryPreprocessor.h"
#include "core/Text.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "language/Language.h"
#include "language/StopWords.h"

using VantuLanguage::Language;
using VantuLanguage::StopWords;
using VantuLanguage::WordsExtractor;
using Occurence = WordsExtractor::Occurence;
using Vantu::SmartPtr;

namespace {

SmartPtr<Occurence> At(std::initializer_list<unsigned int> positions) { return new Occurence(positions); }

std::vector<uint32_t> Positions(const Occurence& occurence) {
    return {occurence.positions.begin(), occurence.positions.end()};
}

}  // namespace

TEST(Occurence, NearAndSmallestDistance) {
    const SmartPtr<Occurence> empty = At({}), a = At({1, 20}), b = At({3, 40}), c = At({2});
    EXPECT_FALSE(Occurence::IsNear(*empty, *a, 100));
    EXPECT_FALSE(Occurence::IsNear(*a, *empty, 100));
    EXPECT_TRUE(Occurence::IsNear(*a, *b, 2));  // inclusive
    EXPECT_FALSE(Occurence::IsNear(*a, *b, 1));
    EXPECT_TRUE(Occurence::IsNear(*b, *a, 2));  // either order
    EXPECT_TRUE(Occurence::IsNear(*a, *a, 0));
    EXPECT_EQ(WordsExtractor::SmallestDistance(*a, *c), 1u);  // adjacent words
    EXPECT_EQ(WordsExtractor::SmallestDistance(*a, *a), 1u);  // never below 1
    EXPECT_EQ(WordsExtractor::SmallestDistance(*b, *a), 2u);
    EXPECT_EQ(WordsExtractor::SmallestDistance(*At({100}), *At({3, 50, 97})), 3u);
}

TEST(Occurence, ExactPhrase) {
    // "war and peace" with "and" a stop word: (war, 0), (peace, 2).
    const SmartPtr<Occurence> war = At({5, 9, 30}), peace = At({7, 12}), empty = At({});
    EXPECT_TRUE(Occurence::IsExactPhrase({{war, 0}, {peace, 2}}));
    EXPECT_FALSE(Occurence::IsExactPhrase({{war, 0}, {peace, 4}}));
    EXPECT_TRUE(Occurence::IsExactPhrase({{war, 0}, {peace, 3}, {war, 18}}));  // 9, 12, 30
    EXPECT_FALSE(Occurence::IsExactPhrase({{war, 0}, {empty, 2}}));
    EXPECT_FALSE(Occurence::IsExactPhrase({{war, 0}, {nullptr, 2}}));
    EXPECT_FALSE(Occurence::IsExactPhrase({}));
    // The words ahead of the first term must fit in front of it.
    EXPECT_TRUE(Occurence::IsExactPhrase({{At({1}), 1}}));
    EXPECT_FALSE(Occurence::IsExactPhrase({{At({0}), 1}, {At({1}), 1}}));
}

TEST(Occurence, ExactPhrasePositionsCoverTheWholePhrase) {
    const SmartPtr<Occurence> a = At({3, 7, 40}), b = At({4, 8, 50});
    Occurence out({99});
    Occurence::GetExactPhrasePositions({{a, 0}, {b, 1}}, out, 1, 2);
    // Matches at 3-4 and 7-8, widened by one leading and two trailing stop words, merged where they meet.
    EXPECT_EQ(Positions(out), (std::vector<uint32_t>{2, 3, 4, 5, 6, 7, 8, 9, 10}));
    Occurence::GetExactPhrasePositions({{a, 0}, {b, 1}}, out, 5, 0);
    EXPECT_EQ(Positions(out), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
    Occurence::GetExactPhrasePositions({{a, 0}, {b, 2}}, out, 0, 0);
    EXPECT_TRUE(out.positions.empty());
    EXPECT_TRUE(Occurence::IsNear(*At({12}), *At({3, 4, 5}), 7));
}

TEST(WordsExtractor, WordsPositionsAndNormalForms) {
    const Language english(Language::kEnglish);
    const StopWords stopWords;
    const WordsExtractor extractor(english, stopWords);
    std::vector<WordsExtractor::Word> words;
    const std::u16string text = u"The \u0152uvres of \u00c9lise, re-use;";
    EXPECT_EQ(extractor.Extract(text, words, 10), 16u);
    ASSERT_EQ(words.size(), 6u);
    const std::u16string normals[] = {u"the", u"oeuvr", u"of", u"elis", u"re", u"use"};
    const bool stops[] = {true, false, true, false, false, false};
    for (size_t i = 0; i < words.size(); ++i) {
        EXPECT_EQ(words[i].normal, normals[i]) << i;
        EXPECT_EQ(words[i].stopWord, stops[i]) << i;
        EXPECT_EQ(words[i].position, 10 + i);
        EXPECT_EQ(text.substr(words[i].offset, words[i].text.size()), words[i].text);
    }
    EXPECT_EQ(words[1].text, u"\u0152uvres");

    // A second stretch goes on numbering behind the first.
    EXPECT_EQ(extractor.Extract(u"use again", words, 16), 18u);
    std::map<std::u16string, SmartPtr<Occurence>> terms;
    WordsExtractor::CollectTerms(words, terms);
    EXPECT_EQ(Positions(*terms.at(u"use")), (std::vector<uint32_t>{15, 16}));
    EXPECT_EQ(Positions(*terms.at(u"the")), (std::vector<uint32_t>{10}));
    EXPECT_EQ(terms.size(), 7u);
}

// What a document stores under a word must be what a query looks up: the query's text goes through the
// preprocessor, then each of its words through ToLowerBase, the stop test and the stemmer.
// Checked with stemming off and on, over a fixed text and a fixed-seed list of generated words.
TEST(WordsExtractor, AgreesWithTheQuerySide) {
    std::mt19937 random(7);
    static const char16_t kLetters[] = u"aeiouybcdfgklmnprstzAEIOUéèàçñüßœæﬁİ";
    std::u16string generated;
    for (int w = 0; w < 2000; ++w) {
        for (int n = 1 + random() % 12; n > 0; --n) generated += kLetters[random() % (std::size(kLetters) - 1)];
        generated += random() % 5 ? u" " : u"-";
    }
    for (Language::StemmingType type : {Language::kNoStemming, Language::kEnglish, Language::kFrench}) {
        SCOPED_TRACE(int(type));
        const Language language(type);
        StopWords stopWords(false);
        stopWords.AddStopWord(u"\u00c9t\u00e9");
        const WordsExtractor extractor(language, stopWords);
        const std::u16string text =
            u"\u0152uvres \ufb01nancing STRA\u00dfE re-use 3.14 \u0130stanbul \u0386\u039b\u03a6\u0391 caf\u00e9's "
            u"\u00c6sthetic x_y foo@bar \u65e5\u672c\u8a9e \u00e9t\u00e9 ETE \uff21\uff22 \u01c4ungla a\u00d7b Cafe\u0301";

        std::vector<WordsExtractor::Word> words;
        extractor.Extract(text, words);

        std::u16string preprocessed;
        Ostrel::SarQueryPreprocessor::Preprocess(text, language, preprocessed);
        std::vector<std::u16string> queryNormals;
        const char16_t* cursor = preprocessed.data();
        const char16_t* const end = cursor + preprocessed.size();
        std::u16string word, normal;
        while (language.FindWord(cursor, end, word)) {
            language.NormalForm(word, stopWords, normal);
            queryNormals.push_back(normal);
        }
        ASSERT_EQ(queryNormals.size(), words.size());
        for (size_t i = 0; i < words.size(); ++i)
            EXPECT_EQ(Vantu::ToUtf8(words[i].normal), Vantu::ToUtf8(queryNormals[i])) << Vantu::ToUtf8(words[i].text);
        EXPECT_TRUE(words[17].stopWord);  // été
        EXPECT_TRUE(words[18].stopWord);  // ETE

        words.clear();
        extractor.Extract(generated, words);
        preprocessed.clear();
        Ostrel::SarQueryPreprocessor::Preprocess(generated, language, preprocessed);
        cursor = preprocessed.data();
        const char16_t* const generatedEnd = cursor + preprocessed.size();
        size_t i = 0;
        for (; language.FindWord(cursor, generatedEnd, word); ++i) {
            language.NormalForm(word, stopWords, normal);
            ASSERT_LT(i, words.size());
            EXPECT_EQ(Vantu::ToUtf8(words[i].normal), Vantu::ToUtf8(normal)) << Vantu::ToUtf8(words[i].text);
        }
        EXPECT_EQ(i, words.size());
    }
}

// The stored form: u32 count, then each position as a u32.
TEST(Occurence, StreamForm) {
    VantuFile::MemoryBuffer memory;
    Vantu::BinaryStreamT<unsigned int> stream(memory);
    stream << *At({1, 0x01020304}) << *At({});
    const std::vector<uint8_t> expected = {2, 0, 0, 0, 1, 0, 0, 0, 4, 3, 2, 1, 0, 0, 0, 0};
    ASSERT_EQ(std::vector<uint8_t>(memory.Data(), memory.Data() + memory.Size()), expected);
    Occurence first, second({7});
    stream >> first >> second;
    EXPECT_EQ(Positions(first), (std::vector<uint32_t>{1, 0x01020304}));
    EXPECT_TRUE(second.positions.empty());

    // A count that claims more than the data holds fails at the end of the data.
    const uint8_t corrupt[] = {0xff, 0xff, 0xff, 0x7f, 1, 0, 0, 0};
    VantuFile::StaticMemoryBuffer corruptData(const_cast<uint8_t*>(corrupt), sizeof corrupt);
    Vantu::BinaryStreamT<unsigned int> corruptStream(corruptData);
    EXPECT_THROW(corruptStream >> first, Vantu::BinaryStreamException);
}
