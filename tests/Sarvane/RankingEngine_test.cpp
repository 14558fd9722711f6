#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>

#include "RankingEngine.h"

using namespace Ostrel;

namespace {

constexpr uint32_t kNow = 1700000000;
constexpr uint16_t kTitle = 0x0001, kSummary = 0x0020;

struct DocumentRecord {
    uint8_t titleWords = 0, quality = 0, languageMask = 0, lengthExponent = 0;
    uint32_t date = 0;
    float linkRank = 0;
    uint16_t collection = 1, source = 0;
};

RankingEngineDocWeight Encode(const DocumentRecord& d) {
    RankingEngineDocWeight weight;
    uint8_t* b = weight.bytes.data();
    const uint16_t head = uint16_t(d.titleWords | d.quality << 6 | d.languageMask << 9);
    b[0] = uint8_t(head), b[1] = uint8_t(head >> 8), b[2] = d.lengthExponent;
    std::memcpy(b + 3, &d.date, 4);
    std::memcpy(b + 7, &d.linkRank, 4);
    b[11] = uint8_t(d.collection), b[12] = uint8_t(d.collection >> 8);
    b[13] = uint8_t(d.source), b[14] = uint8_t(d.source >> 8);
    return weight;
}

// A slice held in memory: weights by id, positions by (term, id), a fixed clock.
class MemorySlice : public EvaluationSlice {
public:
    uint32_t documents = 4;
    std::map<uint32_t, DocumentRecord> records;
    std::map<std::pair<const Term*, uint32_t>, Vantu::FastVector<unsigned>> positions;

    uint32_t GetNumberOfDocuments() const override { return documents; }
    uint32_t GetCurrentDocumentID() const override { return documents; }
    const VantuLanguage::Language& GetLanguage() const override { return language_; }
    const VantuLanguage::StopWords& GetStopWords() const override { return stopWords_; }
    Vantu::SmartPtrToConst<Term> LoadTerm(const std::string&, bool) const override { return nullptr; }
    bool GetOccurencesForDocument(const Term& term, uint32_t id, Vantu::SmartPtr<Occurence>& occurence,
                                  const DocIDWeightStruct*&) const override {
        const auto it = positions.find({&term, id});
        if (it == positions.end()) return false;
        occurence = new Occurence;
        occurence->positions = it->second;
        return true;
    }
    void ReadLockWeights() const override { ++locks; }
    void ReadUnlockWeights() const override { --locks; }
    RankingEngineDocWeight GetDocumentWeight(uint32_t id) const override {
        EXPECT_GT(locks, 0) << "weights read outside the weights' lock";
        const auto it = records.find(id);
        return it == records.end() ? RankingEngineDocWeight{} : Encode(it->second);
    }
    Vantu::DateTime Now() const override { return Vantu::DateTime::FromSeconds(kNow); }

    mutable int locks = 0;

private:
    VantuLanguage::Language language_;
    VantuLanguage::StopWords stopWords_;
};

// A term with one posting of `flags` (and `count` positions) in each listed document.
TermImportance MakeTerm(std::initializer_list<uint32_t> ids, uint16_t flags, uint32_t importance = 2,
                        uint32_t count = 1) {
    Vantu::SmartPtr<Term> term(new Term(7));
    for (uint32_t id : ids) term->GetDocumentWeights().push_back(DocIDWeightStruct(id, count, flags));
    return {term, importance, false, false};
}

Vantu::FastVector<DocumentIDWeight> BaseScores(const MemorySlice& slice, const std::vector<TermImportance>& terms,
                                               Vantu::FastVector<unsigned> ids) {
    RankingEngine ranking(RankingEngineConfig(), slice);
    Vantu::FastVector<DocumentIDWeight> weights;
    ranking.ComputeBaseScores(terms, ids, slice.documents, weights);
    return weights;
}

// Rank's scores by document id.
std::map<uint32_t, uint32_t> Scores(const MemorySlice& slice, const RankingEngineConfig& config,
                                    const std::vector<TermImportance>& terms, Vantu::FastVector<unsigned> ids,
                                    const std::u16string& language = u"") {
    RankingEngine ranking(config, slice);
    Vantu::FastVector<DocumentIDWeight> weights;
    ranking.Rank(ids, terms, language, Relevance, slice.documents, weights);
    std::map<uint32_t, uint32_t> scores;
    for (const DocumentIDWeight& weight : weights) scores[weight.documentId] = weight.score;
    return scores;
}

RankingEngineConfig NoRefinement() {
    RankingEngineConfig config;
    config.SetNumberOfResultsToRefine(0);
    return config;
}

}  // namespace

TEST(RankingEngine, FirstPassWeighsFlagsByImportanceAndRarity) {
    MemorySlice slice;
    // A term in every document weighs trunc(0.01 * 100 + 0.5) = 1: 12 * 35 * 1 / 1.
    Vantu::FastVector<DocumentIDWeight> all = BaseScores(slice, {MakeTerm({0, 1, 2, 3}, kTitle)}, {0, 1, 2, 3});
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0].score, 420u);
    EXPECT_EQ(all[0].titleScore, 420u);
    EXPECT_EQ(all[0].titleCount, 1u);

    // With a rarer term (1 of 4: w = 33) beside it the sum of weights is 34.
    auto both = BaseScores(slice, {MakeTerm({0, 1, 2, 3}, kSummary), MakeTerm({2}, kTitle)}, {1, 2});
    EXPECT_EQ(both[0].score, (12u * 30 * 1) / 34);
    EXPECT_EQ(both[1].score, (12u * 30 * 1 + 12u * 35 * 33) / 34);
    EXPECT_EQ(both[1].titleScore, 12u * 35 * 33 / 34);

    // Concept ranks: 1 earns 2 * ConceptMult, 15 earns trunc(10 - 10 * 0.875), 0 nothing; importance 1 is f = 11.
    EXPECT_EQ(BaseScores(slice, {MakeTerm({0, 1, 2, 3}, 0x0002)}, {0})[0].score, 120u);
    EXPECT_EQ(BaseScores(slice, {MakeTerm({0, 1, 2, 3}, 0x001E)}, {0})[0].score, 12u);
    EXPECT_EQ(BaseScores(slice, {MakeTerm({0, 1, 2, 3}, 0x0100, 1)}, {0})[0].score, 0u + 11 * 5);
    EXPECT_EQ(BaseScores(slice, {MakeTerm({0, 1, 2, 3}, 0)}, {0})[0].score, 0u);

    // Only the 5 most important terms count: a sixth of importance 0 adds nothing.
    std::vector<TermImportance> six(5, MakeTerm({0, 1, 2, 3}, kSummary));
    six.insert(six.begin(), MakeTerm({0, 1, 2, 3}, kTitle, 0));
    EXPECT_EQ(BaseScores(slice, six, {0})[0].score, 360u);
}

TEST(RankingEngine, PastTheFirst50000OnlyDocumentsAboveTheRunningMeanEnter) {
    MemorySlice slice;
    slice.documents = 50003;
    Vantu::SmartPtr<Term> term(new Term(1));
    for (uint32_t id = 0; id < 50003; ++id)
        term->GetDocumentWeights().push_back(DocIDWeightStruct(id, 1, id == 50001 ? kTitle : kSummary));
    Vantu::FastVector<unsigned> ids;
    for (uint32_t id = 0; id < 50003; ++id) ids.push_back(id);
    // Document 50000 only equals the mean, 50001 beats it, 50002 no longer does.
    const auto weights = BaseScores(slice, {{term, 2, true, false}}, ids);
    ASSERT_EQ(weights.size(), 50001u);
    EXPECT_EQ(weights[50000].documentId, 50001u);
}

TEST(RankingEngine, DocumentBoostsNeedASourceEntryForDateQualityAndReputation) {
    MemorySlice slice;
    const std::vector<TermImportance> terms = {MakeTerm({0, 1, 2, 3}, kTitle)};
    slice.records[0] = {.date = kNow};
    slice.records[1] = {.date = kNow - 7200, .collection = 2, .source = 3};
    slice.records[2] = {.quality = 3, .date = kNow, .collection = 2, .source = 4};
    slice.records[3] = {.titleWords = 2, .languageMask = 0x01, .linkRank = 0.5f};
    RankingEngineConfig config = NoRefinement();
    config.AddRankingEngineConfigSourceInfo(2, 3, RankingEngineConfigSourceInfo(3, 2));
    config.AddRankingEngineConfigSourceInfo(2, 4, RankingEngineConfigSourceInfo(1, 7));
    const auto scores = Scores(slice, config, terms, {0, 1, 2, 3}, u"en");
    // No entry: no date bonus at all, even for a document of this very moment.
    EXPECT_EQ(scores.at(0), 420u);
    // Two hours old: fresh 128, recent 49, times 5 * 0.75; quality 5 * 60; reputation 60 * 5.
    EXPECT_EQ(scores.at(1), 420u + 663 + 300 + 300);
    // Scheme 1: 200 * 5 * 0.1; quality 3 * 5 * 20; 65 * 5; reputation 200 * 5.
    EXPECT_EQ(scores.at(2), 420u + 100 + 300 + 325 + 1000);
    // Link rank 5 * 0.5 * 100; one title word of two: 420 * 1.25 - 420; the same language: 5 * 6 * 2.
    EXPECT_EQ(scores.at(3), 420u + 250 + 105 + 60);
}

TEST(RankingEngine, RefinementAndAdjacencyAddTheirBonuses) {
    MemorySlice slice;
    slice.documents = 1000;
    const TermImportance rare = MakeTerm({5, 6, 7, 8, 9, 10, 11, 12, 13, 14}, kSummary, 2, 3);
    // idf trunc(990.5 / 10.5) = 94; tf 3, K 1: 3 * 2.2 / 4.2 * 2.0 * log10(94), times 5 * 40.
    RankingEngineConfig refine;
    refine.SetAdjacencyMult(0);
    EXPECT_EQ(Scores(slice, refine, {rare}, {5}).at(5) - Scores(slice, NoRefinement(), {rare}, {5}).at(5), 1240u);

    // Two terms side by side earn the whole 5 * 200; 101 words apart nothing.
    const TermImportance a = MakeTerm({1, 2}, kSummary), b = MakeTerm({1, 2}, kSummary);
    slice.positions[{a.term.Get(), 1}] = {3};
    slice.positions[{b.term.Get(), 1}] = {4};
    slice.positions[{a.term.Get(), 2}] = {3};
    slice.positions[{b.term.Get(), 2}] = {104};
    RankingEngineConfig still = NoRefinement();
    still.SetAdjacencyMult(0);
    const auto without = Scores(slice, still, {a, b}, {1, 2});
    const auto with = Scores(slice, NoRefinement(), {a, b}, {1, 2});
    EXPECT_EQ(with.at(1) - without.at(1), 1000u);
    EXPECT_EQ(with.at(2), without.at(2));
}

TEST(RankingEngine, PercentIsMeasuredAgainstAPerfectDocumentAndNeverPasses100) {
    MemorySlice slice;
    RankingEngine ranking(NoRefinement(), slice);
    // One term in 2 of 4: w 0.0725, sumF 1800, base trunc(130 / 0.0725) * 0.85 = 1524; lg log10(9): t = 2;
    // 1524 + 400 + 300 + 750 + 700 + 275 + 60, plus 500 for the link, times 0.9.
    const TermImportance half = MakeTerm({0, 1}, kTitle);
    EXPECT_EQ(ranking.GetMaximumScore({half}, 4), 4058u);
    EXPECT_EQ(ranking.GetMaximumScore({}, 4), uint32_t((750 + 700 + 275 + 60 + 500) * 0.9));

    slice.records[1] = {.linkRank = 1000.0f};
    Vantu::FastVector<unsigned> ids = {0, 1};
    Vantu::FastVector<DocumentIDWeight> weights;
    ranking.Rank(ids, {half}, u"", Relevance, 4, weights);
    ASSERT_EQ(weights.size(), 2u);
    EXPECT_EQ(weights[0].documentId, 1u);
    EXPECT_EQ(weights[0].relevancePercent, 100.0f);
    EXPECT_NEAR(weights[1].relevancePercent, std::sqrt(420.0f / 4058.0f) * 100.0f, 1e-3);

    // With every multiplier 0 nothing scores and the best possible is 0: every match is as good as can be.
    RankingEngineConfig zero;
    zero.SetNumberOfResultsToRefine(0);
#define ZERO(name) zero.Set##name(0);
    RANKING_MULTIPLIERS_BEFORE_REFINE(ZERO)
    RANKING_MULTIPLIERS_AFTER_REFINE(ZERO)
#undef ZERO
    RankingEngine flat(zero, slice);
    weights.clear();
    flat.Rank(ids, {half}, u"", Relevance, 4, weights);
    EXPECT_EQ(weights[0].score, 0u);
    EXPECT_EQ(weights[0].relevancePercent, 100.0f);
}

TEST(RankingEngine, EqualScoresPutTheNewerDocumentFirst) {
    MemorySlice slice;
    Vantu::FastVector<unsigned> ids = {0, 1, 2, 3};
    Vantu::FastVector<DocumentIDWeight> weights;
    RankingEngine(NoRefinement(), slice).Rank(ids, {MakeTerm({0, 1, 2, 3}, kSummary)}, u"", Relevance, 4, weights);
    ASSERT_EQ(weights.size(), 4u);
    for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(weights[i].documentId, 3 - i);
}

TEST(RankingEngine, DateAndIndexingOrdersNeedNoScores) {
    MemorySlice slice;
    slice.records[0] = {.date = 300};
    slice.records[1] = {.date = 100};
    slice.records[2] = {.date = 300};
    slice.records[3] = {.date = 200};
    RankingEngine ranking(RankingEngineConfig(), slice);
    const auto order = [&](SortCriteria criteria) {
        Vantu::FastVector<unsigned> ids = {2, 0, 3, 1};
        Vantu::FastVector<DocumentIDWeight> weights;
        ranking.Rank(ids, {MakeTerm({0, 1, 2, 3}, kTitle)}, u"", criteria, 4, weights);
        std::vector<uint32_t> out;
        for (const DocumentIDWeight& w : weights) {
            EXPECT_EQ(w.score, 0u);
            EXPECT_EQ(w.relevancePercent, 100.0f);
            out.push_back(w.documentId);
        }
        return out;
    };
    // Equal dates fall back on the id, in the same direction.
    EXPECT_EQ(order(DocumentDateDescending), (std::vector<uint32_t>{2, 0, 3, 1}));
    EXPECT_EQ(order(DocumentDateAscending), (std::vector<uint32_t>{1, 3, 0, 2}));
    EXPECT_EQ(order(IndexDateDescending), (std::vector<uint32_t>{3, 2, 1, 0}));
    EXPECT_EQ(order(IndexDateAscending), (std::vector<uint32_t>{0, 1, 2, 3}));
    EXPECT_EQ(slice.locks, 0);
}
