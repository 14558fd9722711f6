#include <gtest/gtest.h>

#include <cstring>

#include "DocumentAnalyser.h"
#include "language/Language.h"
#include "language/StopWords.h"

using namespace Ostrel;
using VantuLanguage::Language;
using VantuLanguage::StopWords;

namespace {

using Term = DocumentWordStream::Term;

Term MakeTerm(std::string text, uint16_t flags, std::initializer_list<unsigned int> positions) {
    return Term{std::move(text), flags, VantuLanguage::WordsExtractor::Occurence(positions)};
}

class DocumentAnalyserTest : public ::testing::Test {
protected:
    Language language{Language::kEnglish};
    StopWords stopWords{true};
    DocumentAnalyser analyser{language, stopWords};
};

template <class V>
V At(const DocumentWordStream& stream, size_t offset) {
    V value;
    std::memcpy(&value, stream.signature.data() + offset, sizeof value);
    return value;
}

}  // namespace

// Title words come first and flag their terms; body words follow one position behind; stop words hold a place
// but give no term; the word list counts the written words, lower-cased.
TEST_F(DocumentAnalyserTest, TermsPositionsAndWordCounts) {
    Document document;
    document.title = u"  River Mill ";
    document.checkDate = Vantu::DateTime::FromSeconds(1'700'000'000);
    document.collection = 0x1234;
    document.source = 0xBEEF;
    const std::u16string body = u"The river runs north.\nPast the mill, the river bends!";
    const DocumentAnalyser::Extras extras{2.5f, 5, 0x21, {}};
    analyser.Analyse(document, body, extras);
    const DocumentWordStream stream = DocumentWordStream::Read(document.wordStream);

    const DocumentWordStream::TermList expected = {
        MakeTerm("bend", 0, {12}), MakeTerm("mill", 0x0001, {1, 9}),  MakeTerm("north", 0, {6}),
        MakeTerm("past", 0, {7}),  MakeTerm("river", 0x0001, {0, 4, 11}), MakeTerm("run", 0, {5})};
    EXPECT_EQ(expected, stream.terms);
    EXPECT_TRUE(stream.lastTerms.empty());
    EXPECT_EQ(0u, stream.leading);
    const std::vector<DocumentWordStream::WordCount> words = {{u"bends", 1}, {u"mill", 2}, {u"north", 1},
                                                              {u"past", 1},  {u"river", 3}, {u"runs", 1},
                                                              {u"the", 3}};
    EXPECT_EQ(words, stream.words);
    EXPECT_EQ(VantuAlgo::ShingleBag({u"the", u"river", u"run", u"north", u"past", u"the", u"mill", u"the",
                                     u"river", u"bend"}),
              stream.shingles);
    const std::vector<SummarySentence> sentences = {{u"The river runs north."}, {u"Past the mill, the river bends!"}};
    EXPECT_EQ(sentences, stream.sentences);

    // 2 title words, quality 5, languages 0x21; 13 words in all; the check date stands for the unknown content
    // date; the rank at offset 7; collection and source.
    EXPECT_EQ(uint16_t(2 | 5 << 6 | 0x21 << 9), At<uint16_t>(stream, 0));
    EXPECT_EQ(0, stream.signature[2]);
    EXPECT_EQ(1'700'000'000u, At<uint32_t>(stream, 3));
    EXPECT_EQ(2.5f, At<float>(stream, 7));
    EXPECT_EQ(0x1234, At<uint16_t>(stream, 11));
    EXPECT_EQ(0xBEEF, At<uint16_t>(stream, 13));
}

// The length exponent steps where trunc(1.4^e * 16) words are reached; the content date wins when known;
// sentences are capped in number and length, and pieces without a word are dropped.
TEST_F(DocumentAnalyserTest, SignatureAndSentenceLimits) {
    Document document;
    document.checkDate = Vantu::DateTime::FromSeconds(5);
    document.contentDate = Vantu::DateTime::FromSeconds(7);
    std::u16string words;
    for (int i = 0; i < 21; ++i) words += u"word ";
    EXPECT_EQ(0, analyser.Build(document, words, {}).signature[2]);
    EXPECT_EQ(1, analyser.Build(document, words + u"word", {}).signature[2]);  // trunc(22.4)
    EXPECT_EQ(7u, At<uint32_t>(analyser.Build(document, words, {}), 3));

    std::u16string body = u"... ?! \r\n" + std::u16string(600, u'a') + u".";
    for (size_t i = 0; i < DocumentAnalyser::kMaxSentences + 10; ++i) body += u" Next one.";
    const DocumentWordStream stream = analyser.Build(document, body, {});
    ASSERT_EQ(DocumentAnalyser::kMaxSentences, stream.sentences.size());
    EXPECT_EQ(std::u16string(DocumentAnalyser::kMaxSentenceLength, u'a'), stream.sentences[0].text);
    EXPECT_EQ(u"Next one.", stream.sentences[1].text);
}

// An indexed text field carries its words from position 0 and "!" behind the last; other fields carry none.
TEST_F(DocumentAnalyserTest, FieldsCarryTheirTerms) {
    Document document;
    DocumentAnalyser::Extras extras;
    extras.fields = {CustomField("@author", CustomFieldValue("Ann the Lee"), CustomField::kIndexed),
                     CustomField("@pages", CustomFieldValue(int32_t(12)), CustomField::kIndexed),
                     CustomField("@note", CustomFieldValue("kept aside"), CustomField::kTravels)};
    analyser.Analyse(document, u"Body text", extras);
    const DocumentWordStream stream = DocumentWordStream::Read(document.wordStream);

    ASSERT_EQ(3u, stream.fields.size());
    const DocumentWordStream::TermList values = {MakeTerm("ann", 0, {0}), MakeTerm("lee", 0, {2})};
    EXPECT_EQ(values, stream.fields[0].valueTerms);
    EXPECT_EQ(DocumentWordStream::TermList{MakeTerm("!", 0, {3})}, stream.fields[0].endTerms);
    for (size_t i = 1; i < 3; ++i) {
        EXPECT_EQ(extras.fields[i], stream.fields[i].field);
        EXPECT_TRUE(stream.fields[i].valueTerms.empty() && stream.fields[i].endTerms.empty());
    }
}

// A title and body with no word leave the stream empty, even where it held an earlier analysis; stop words
// alone are words, and the stream then has no term but is written.
TEST_F(DocumentAnalyserTest, TextWithoutWordsLeavesTheStreamEmpty) {
    Document document;
    analyser.Analyse(document, u"Something to index");
    ASSERT_GT(document.wordStream.DataSize(), 0u);
    document.title = u" - ";
    analyser.Analyse(document, u"  ... , ;\n");
    EXPECT_EQ(0u, document.wordStream.DataSize());

    analyser.Analyse(document, u"the");
    const DocumentWordStream stream = DocumentWordStream::Read(document.wordStream);
    EXPECT_TRUE(stream.terms.empty());
    EXPECT_EQ((std::vector<DocumentWordStream::WordCount>{{u"the", 1}}), stream.words);
}
