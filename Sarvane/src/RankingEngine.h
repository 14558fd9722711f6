// Orders the documents a query matched: by relevance in stages of growing cost on shrinking lists, or by date or
// indexing order. Holds no state beyond a call: any query thread, under the slice's read lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "EvaluationSlice.h"
#include "RankingEngineConfig.h"
#include "SortCriteria.h"
#include "Term.h"
#include "core/FastVector.h"
#include "core/RefCounted.h"

namespace Ostrel {

// A term that ranking weighs, as evaluation found it.
struct TermImportance {
    Vantu::SmartPtrToConst<Term> term;
    uint32_t importance = 0;  // 2 below AND and NEAR, at the root and in a phrase; 1 below OR; 0 otherwise
    bool frequent = false;    // in more than 2% of the slice's documents
    bool negated = false;     // below a NOT
};

// One scored document.
struct DocumentIDWeight {
    uint32_t documentId = 0;
    uint32_t score = 0;
    float relevancePercent = 0;
    int fixedResultOrder = 0;  // 0 for an ordinary result
    uint32_t titleCount = 0;   // query terms found in the title
    uint32_t titleScore = 0;   // the part of the score the title gave
    bool isFixedResult = false;

    // The order of a relevance list: higher score first, then the newer document.
    static bool Before(const DocumentIDWeight& a, const DocumentIDWeight& b) {
        return a.score != b.score ? a.score > b.score : a.documentId > b.documentId;
    }
};

class RankingEngine : public Vantu::SPRefCounter {
public:
    // Only the first terms by importance earn points in the first pass.
    static constexpr size_t kBaseScoreTerms = 5;
    static constexpr size_t kBoostedDocuments = 50000;
    static constexpr size_t kResortedAfterBoost = 10000;
    static constexpr size_t kAdjacencyDocuments = 40;

    RankingEngine(const RankingEngineConfig& config, const EvaluationSlice& slice) : config_(config), slice_(slice) {}

    const RankingEngineConfig& GetConfig() const { return config_; }
    // The slice assigns a new configuration under its write lock, with no query running.
    void SetConfig(const RankingEngineConfig& config) { config_ = config; }

    // The whole ranking: `weights` ends sorted in the order `sortCriteria` asks for. `weights` may come filled by
    // the first pass already (a deferred position check ran on it); `numberOfDocuments` is the slice's count.
    void Rank(Vantu::FastVector<unsigned>& documentIds, const std::vector<TermImportance>& terms,
              const std::u16string& preferredLanguage, SortCriteria sortCriteria, uint32_t numberOfDocuments,
              Vantu::FastVector<DocumentIDWeight>& weights) const;
    // The first pass, from the flags of the postings. Past the first 50000 documents, only a document above the
    // running mean of those entered is kept.
    void ComputeBaseScores(const std::vector<TermImportance>& terms, const Vantu::FastVector<unsigned>& documentIds,
                           uint32_t numberOfDocuments, Vantu::FastVector<DocumentIDWeight>& weights) const;
    // What a perfect document could score: the base of the relevance percent.
    uint32_t GetMaximumScore(const std::vector<TermImportance>& terms, uint32_t numberOfDocuments) const;

    static void Sort(DocumentIDWeight* first, DocumentIDWeight* last);
    // The language bit of a document's weight for the language id of a preferred language; 0 for none.
    static uint8_t LanguageMask(const std::u16string& preferredLanguage);

private:
    // Boosts the first `limit` records from their documents' weights; returns their average length in words.
    uint32_t ApplyDocumentBoosts(Vantu::FastVector<DocumentIDWeight>& weights, size_t limit,
                                 const std::u16string& preferredLanguage) const;
    void RefineWithTermFrequency(const std::vector<TermImportance>& terms, Vantu::FastVector<DocumentIDWeight>& weights,
                                 size_t count, uint32_t numberOfDocuments, uint32_t averageLength) const;
    void ApplyAdjacency(const std::vector<TermImportance>& terms, DocumentIDWeight* first, DocumentIDWeight* last) const;
    void OrderWithoutScores(Vantu::FastVector<unsigned>& documentIds, SortCriteria sortCriteria,
                            Vantu::FastVector<DocumentIDWeight>& weights) const;

    RankingEngineConfig config_;
    const EvaluationSlice& slice_;
};

}  // namespace Ostrel
