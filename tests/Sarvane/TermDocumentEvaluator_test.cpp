#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>

#include "DocumentAnalyser.h"
#include "SarQueryParse.h"
#include "SarSliceStores.h"
#include "Sarvane.h"
#include "SliceFiles.h"
#include "TempDir.h"
#include "TermDocumentEvaluator.h"
#include "core/Text.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

using Ids = std::set<uint32_t>;

// Each word enters a document with its own chance, so that AND, OR and NOT all meet sets of every size.
const char* const kWords[] = {"river", "mill", "stone", "bridge", "harbour", "lantern", "meadow", "copper"};
const double kChance[] = {0.6, 0.4, 0.3, 0.2, 0.1, 0.05, 0.5, 0.02};
constexpr uint32_t kDocuments = 400;

// A slice of generated documents, built once for all tests; the last document holds only "zephyr", so no
// query word's list reaches it.
class EvaluatorSlice {
public:
    EvaluatorSlice() {
        std::mt19937 random(20261123);
        std::vector<std::u16string> bodies;
        for (uint32_t key = 0; key + 1 < kDocuments; ++key) {
            std::u16string body = u"the ";
            for (size_t w = 0; w < std::size(kWords); ++w)
                if (std::uniform_real_distribution<>(0, 1)(random) < kChance[w]) {
                    body += Vantu::FromUtf8(kWords[w]) + u" ";
                    words[key].insert(kWords[w]);
                }
            bodies.push_back(body + u"zephyr");
        }
        bodies.push_back(u"zephyr");
        const std::string dir = temp / "slice";
        {
            SarvaneConfig config(1, 1, 1);
            config.SetIndexFilesPath(Vantu::FromUtf8(dir));
            Sarvane slice(config);
            slice.AddSupportedCollection(1);
            slice.Start(false);
            const DocumentAnalyser analyser(language, stopWords);
            for (uint32_t key = 0; key < kDocuments; ++key) {
                Vantu::SmartPtr<Document> document(new Document);
                document->URI(u"doc:" + Vantu::FromUtf8(std::to_string(key)));
                document->collection = 1;
                analyser.Analyse(*document, bodies[key]);
                EXPECT_EQ(slice.AddDocument(document, key), key);
            }
            slice.PreCommit();
            slice.Commit();
            slice.Flush();
            slice.Stop(false);
        }
        stores = SarSliceStores::OpenStopped(SliceConfigIn(dir));
        evaluation = std::make_unique<StoresEvaluationSlice>(*stores, language, stopWords);
        all.resize(kDocuments, true);
    }

    Ids With(const std::string& word) const {
        Ids ids;
        for (const auto& [key, set] : words)
            if (set.count(word)) ids.insert(key);
        return ids;
    }

    TempDir temp;
    VantuLanguage::Language language{VantuLanguage::Language::kEnglish};
    VantuLanguage::StopWords stopWords{true};
    std::map<uint32_t, std::set<std::string>> words;
    std::unique_ptr<SarSliceStores> stores;
    std::unique_ptr<StoresEvaluationSlice> evaluation;
    VantuAlgo::BitVector all;
};

const EvaluatorSlice& Slice() {
    static const EvaluatorSlice slice;
    return slice;
}

Ids SetBits(const VantuAlgo::BitVector& bits) {
    Ids ids;
    for (uint32_t i = 0; i < bits.size(); ++i)
        if (bits[i]) ids.insert(i);
    return ids;
}

// One query over the slice, with what it reports.
struct Evaluation {
    explicit Evaluation(const std::string& text, unsigned maximumTerms = 64, bool defer = false,
                        const VantuAlgo::BitVector& allowed = Slice().all)
        : parse(SarQueryParse::ParsePreprocessed(Vantu::FromUtf8(text))),
          evaluator(allowed, parse.tree, *Slice().evaluation, defer, false, maximumTerms, termCount) {
        EXPECT_TRUE(parse.IsValid()) << text;
        tooMany = evaluator.EvaluateNode(stopTerms, stopPhraseTerms);
    }
    Ids Documents() const { return SetBits(evaluator.GetDocuments()); }

    SarQueryParse parse;
    unsigned termCount = 0;
    TermDocumentEvaluator evaluator;
    std::set<std::u16string> stopTerms, stopPhraseTerms;
    bool tooMany = false;
};

Ids Complement(const Ids& ids) {
    Ids out;
    for (uint32_t id = 0; id < kDocuments; ++id)
        if (!ids.count(id)) out.insert(id);
    return out;
}

// A random AND/OR/NOT tree as query text, with its documents computed from the generated word sets.
std::string RandomQuery(std::mt19937& random, int depth, Ids& expected) {
    if (depth == 0 || random() % 4 == 0) {
        const std::string word = kWords[random() % std::size(kWords)];
        expected = Slice().With(word);
        return word;
    }
    Ids left, right;
    switch (random() % 3) {
    case 0: {
        const std::string text = "not (" + RandomQuery(random, depth - 1, left) + ")";
        expected = Complement(left);
        return text;
    }
    case 1: {
        const std::string text = "(" + RandomQuery(random, depth - 1, left) + " and " +
                                 RandomQuery(random, depth - 1, right) + ")";
        std::set_intersection(left.begin(), left.end(), right.begin(), right.end(),
                              std::inserter(expected, expected.end()));
        return text;
    }
    default: {
        const std::string text = "(" + RandomQuery(random, depth - 1, left) + " or " +
                                 RandomQuery(random, depth - 1, right) + ")";
        std::set_union(left.begin(), left.end(), right.begin(), right.end(), std::inserter(expected, expected.end()));
        return text;
    }
    }
}

// Accepts the documents `accept` likes, counting the calls.
class CountingCheck : public PositionCheck {
public:
    explicit CountingCheck(bool (*accept)(uint32_t)) : accept_(accept) {}
    bool IsDocumentAccepted(uint32_t documentId) const override {
        ++calls;
        return accept_(documentId);
    }
    mutable unsigned calls = 0;

private:
    bool (*accept_)(uint32_t);
};

}  // namespace

TEST(TermDocumentEvaluator, RandomBooleanTreesMatchTheDocumentsWordSets) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        Ids expected;
        const std::string query = RandomQuery(random, 4, expected);
        Evaluation evaluation(query);
        EXPECT_FALSE(evaluation.tooMany) << query;
        ASSERT_EQ(evaluation.Documents(), expected) << query;

        Vantu::FastVector<unsigned> ids;
        std::vector<TermImportance> terms;
        Vantu::FastVector<DocumentIDWeight> weights;
        RankingEngine ranking(RankingEngineConfig(), *Slice().evaluation);
        EXPECT_FALSE(evaluation.evaluator.GetResultingDocuments(ids, terms, ranking, weights, 10));
        EXPECT_EQ(Ids(ids.begin(), ids.end()), expected) << query;
        EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
        EXPECT_TRUE(weights.empty());
    }
}

TEST(TermDocumentEvaluator, StopWordsSetNoConditionAndNotReachesTheNewestDocument) {
    const Ids river = Slice().With("river");
    Evaluation alone("the");
    EXPECT_TRUE(alone.evaluator.IsStopWord());
    EXPECT_TRUE(alone.Documents().empty());
    EXPECT_EQ(alone.stopTerms, std::set<std::u16string>{u"the"});
    EXPECT_EQ(Evaluation("river and the").Documents(), river);
    EXPECT_EQ(Evaluation("the and river").Documents(), river);
    EXPECT_EQ(Evaluation("the near river").Documents(), river);
    EXPECT_TRUE(Evaluation("the or the").Documents().empty());
    EXPECT_TRUE(Evaluation("not the").Documents().empty());

    // No word's list reaches the last document; NOT extends to the slice's next id, within the allowed ones.
    EXPECT_TRUE(Evaluation("not harbour").Documents().count(kDocuments - 1));
    VantuAlgo::BitVector even;
    for (uint32_t id = 0; id < kDocuments; id += 2) even.set(id, true);
    for (uint32_t id : Evaluation("not harbour", 64, false, even).Documents()) EXPECT_EQ(id % 2, 0u);
    EXPECT_TRUE(Evaluation("zephyr", 64, false, even).Documents().count(kDocuments - 2));
}

TEST(TermDocumentEvaluator, TermsToWeighAndWordsToHighlight) {
    Evaluation either("River or not mill");
    EXPECT_EQ(either.evaluator.GetTermsForHighlighting(), (std::vector<std::u16string>{u"River", u"mill"}));
    Vantu::FastVector<unsigned> ids;
    std::vector<TermImportance> terms;
    Vantu::FastVector<DocumentIDWeight> weights;
    RankingEngine ranking(RankingEngineConfig(), *Slice().evaluation);
    either.evaluator.GetResultingDocuments(ids, terms, ranking, weights, 10);
    ASSERT_EQ(terms.size(), 2u);
    EXPECT_EQ(terms[0].importance, 1u);
    EXPECT_FALSE(terms[0].negated);
    EXPECT_EQ(terms[1].importance, 0u);
    EXPECT_TRUE(terms[1].negated);
    // "river" is in far more than 2% of the documents.
    EXPECT_TRUE(terms[0].frequent);

    Term term;
    for (uint32_t id = 0; id < 3; ++id) term.GetDocumentWeights().push_back(DocIDWeightStruct(id, 1, 0));
    EXPECT_TRUE(TermDocumentEvaluator::IsFrequent(term, 100));
    term.GetDocumentWeights().resize(2);
    EXPECT_FALSE(TermDocumentEvaluator::IsFrequent(term, 100)) << "exactly 2% isn't frequent";
}

TEST(TermDocumentEvaluator, TermLimitPhrasesAndFieldsForNow) {
    Ids both;
    const Ids river = Slice().With("river"), mill = Slice().With("mill");
    std::set_intersection(river.begin(), river.end(), mill.begin(), mill.end(), std::inserter(both, both.end()));
    EXPECT_FALSE(Evaluation("river and mill and stone", 3).tooMany);
    Evaluation cut("river and mill and stone", 2);
    EXPECT_TRUE(cut.tooMany);
    EXPECT_TRUE(cut.Documents().empty()) << "the word past the limit isn't loaded";

    // Phrases match as the AND of their words; a stop word in them is noted, an unknown word matches nothing.
    Evaluation phrase("\"river the mill\"");
    EXPECT_EQ(phrase.Documents(), both);
    EXPECT_EQ(phrase.stopPhraseTerms, std::set<std::u16string>{u"the"});
    EXPECT_EQ(phrase.evaluator.GetExactPhraseForHighlighting(),
              (std::vector<std::vector<std::u16string>>{{u"river", u"the", u"mill"}}));
    EXPECT_EQ(phrase.termCount, 3u);
    Evaluation unknown("\"river nowhere\"");
    EXPECT_TRUE(unknown.Documents().empty());
    EXPECT_TRUE(unknown.evaluator.GetExactPhraseForHighlighting().empty());
    EXPECT_EQ(Evaluation("river near mill").Documents(), both);
    EXPECT_EQ(Evaluation("river near:3 \"mill\"").Documents(), both);
    EXPECT_TRUE(Evaluation("@pages = 3").Documents().empty());
    // A keyword as the first or second word of a phrase makes a tree shape that matches nothing.
    EXPECT_TRUE(Evaluation("\"river and mill\"").Documents().empty());
    EXPECT_EQ(Evaluation("\"river mill and\"").Documents(), both);
}

TEST(TermDocumentEvaluator, DeferredChecksRunBestFirstAndStopAtTwiceTheLimit) {
    const Ids river = Slice().With("river");
    ASSERT_GT(river.size(), 240u);
    RankingEngine ranking(RankingEngineConfig(), *Slice().evaluation);
    const auto run = [&](unsigned limit, bool (*accept)(uint32_t), Vantu::FastVector<DocumentIDWeight>& weights,
                         unsigned& calls) {
        Evaluation evaluation("river", 64, true);
        auto* check = new CountingCheck(accept);
        evaluation.evaluator.DeferCheck(Vantu::RefCount<const PositionCheck>(check));
        Vantu::FastVector<unsigned> ids;
        std::vector<TermImportance> terms;
        const bool more = evaluation.evaluator.GetResultingDocuments(ids, terms, ranking, weights, limit);
        EXPECT_TRUE(ids.empty()) << "only the checked documents are matches";
        calls = check->calls;
        return more;
    };
    Vantu::FastVector<DocumentIDWeight> weights;
    unsigned calls;
    EXPECT_TRUE(run(10, [](uint32_t) { return true; }, weights, calls));
    EXPECT_EQ(weights.size(), 100u);
    EXPECT_EQ(calls, 100u);
    EXPECT_TRUE(std::is_sorted(weights.begin(), weights.end(), DocumentIDWeight::Before));

    weights.clear();
    EXPECT_TRUE(run(60, [](uint32_t id) { return id % 2 == 0; }, weights, calls));
    EXPECT_EQ(weights.size(), 120u);
    for (const DocumentIDWeight& weight : weights) EXPECT_EQ(weight.documentId % 2, 0u);
    EXPECT_TRUE(std::is_sorted(weights.begin(), weights.end(), DocumentIDWeight::Before));

    weights.clear();
    EXPECT_FALSE(run(1000, [](uint32_t) { return true; }, weights, calls)) << "fewer than the target passed";
    EXPECT_EQ(weights.size(), river.size());
}
