#include "RankingEngine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <queue>

#include "language/CharsetLanguageDetection.h"

namespace Ostrel {

namespace {

using Weights = Vantu::FastVector<DocumentIDWeight>;

// The fields of a document's 15 weight bytes, little-endian as the analyser wrote them.
struct DocumentFields {
    explicit DocumentFields(const RankingEngineDocWeight& weight) {
        const uint8_t* b = weight.bytes.data();
        const uint16_t head = uint16_t(b[0] | b[1] << 8);
        titleWords = head & 0x3F;
        quality = (head >> 6) & 0x07;
        languageMask = uint8_t(head >> 9);
        length = uint32_t(std::pow(1.4, b[2] & 0x1F) * 16);
        std::memcpy(&date, b + 3, 4);
        std::memcpy(&linkRank, b + 7, 4);
        collection = uint16_t(b[11] | b[12] << 8);
        source = uint16_t(b[13] | b[14] << 8);
    }

    uint32_t titleWords, quality, length, date;
    uint8_t languageMask;
    float linkRank;
    uint16_t collection, source;
};

constexpr uint16_t kTitleFlag = 0x0001;
constexpr double kFiveYears = 157680000.0;

// The points of a posting's flags in the first pass.
uint32_t FlagPoints(const RankingEngineConfig& c, uint16_t flags) {
    uint32_t sum = 0;
    if (flags & kTitleFlag) sum += 7 * c.GetTitleMult();
    const uint32_t rank = (flags & 0x001E) >> 1;
    if (rank >= 1 && (rank - 1) * 0.0625 < 1)
        sum += uint32_t(2.0 * c.GetConceptMult() - 2.0 * c.GetConceptMult() * (rank - 1) * 0.0625);
    if (flags & 0x0020) sum += 6 * c.GetSummaryMult();
    if (flags & 0x0080) sum += 5 * c.GetURIMult();
    if (flags & 0x0100) sum += c.GetUnderlinedMult();
    if (flags & 0x0200) sum += c.GetBiggerFontMult();
    if (flags & 0x0040) sum += c.GetBoldMult();
    if (flags & 0x0400) sum += 20 * c.GetCompanyServerMult();
    if (flags & 0x0800) sum += 5 * c.GetLastDirInURIMult();
    return sum;
}

uint32_t ImportanceFactor(const TermImportance& term) { return term.importance <= 20 ? term.importance + 10 : 30; }

uint32_t PostingCount(const TermImportance& term) { return term.term ? term.term->GetNumberOfDocuments() : 0; }

// (1 - df/N)^4 + 0.01: a term in every document still weighs a little.
double Rarity(const TermImportance& term, uint32_t numberOfDocuments) {
    const double n = std::max<uint32_t>(numberOfDocuments, 1);
    const double df = std::min<double>(PostingCount(term), n);
    return std::pow(1.0 - df / n, 4) + 0.01;
}

// Points for a date: how recent within five years, and how fresh within a year.
uint32_t DatePoints(uint32_t date, uint32_t now) {
    if (date >= now) return 50 + 150;
    const double d = date, n = now, age = n - d;
    uint32_t recency = 0;
    if (d > n - kFiveYears) recency = uint32_t((d - (n - kFiveYears)) * 50 / kFiveYears);
    uint32_t fresh = 0;
    if (age < 3600) fresh = 150 - uint32_t(age / 3600 * 20);
    else if (age < 86400) fresh = 130 - uint32_t(age / 86400 * 30);
    else if (age < 604800) fresh = 100 - uint32_t(age / 604800 * 50);
    else if (age < 2678400) fresh = 50 - uint32_t(age / 2678400 * 25);
    else if (age < 31536000) fresh = 25 - uint32_t(age / 31536000 * 25);
    return recency + fresh;
}

double Log10OrZero(double value) { return value == 0 ? 0 : std::log10(value); }

const double kRefineWeight[4] = {2.0, 1.5, 1.0, 0.5};

}  // namespace

void RankingEngine::Sort(DocumentIDWeight* first, DocumentIDWeight* last) {
    std::sort(first, last, DocumentIDWeight::Before);
}

uint8_t RankingEngine::LanguageMask(const std::u16string& preferredLanguage) {
    switch (int(VantuDetection::CharsetLanguageDetection::LanguageID(preferredLanguage))) {
    case 1: return 0x01;
    case 2: return 0x02;
    case 4: return 0x08;
    case 5: return 0x04;
    case 7: return 0x20;
    case 8: return 0x40;
    case 10: return 0x10;
    default: return 0;
    }
}

void RankingEngine::Rank(Vantu::FastVector<unsigned>& documentIds, const std::vector<TermImportance>& terms,
                         const std::u16string& preferredLanguage, SortCriteria sortCriteria,
                         uint32_t numberOfDocuments, Weights& weights) const {
    if (documentIds.empty() && weights.empty()) return;
    if (sortCriteria != Relevance) {
        OrderWithoutScores(documentIds, sortCriteria, weights);
        return;
    }
    if (weights.empty()) {
        const size_t ids = documentIds.size();
        weights.reserve(ids > kBoostedDocuments ? size_t(ids * 0.25 + kBoostedDocuments) : ids);
        ComputeBaseScores(terms, documentIds, numberOfDocuments, weights);
        Sort(weights.begin(), weights.end());
    }
    const uint32_t averageLength = ApplyDocumentBoosts(weights, kBoostedDocuments, preferredLanguage);
    Sort(weights.begin(), weights.begin() + std::min(weights.size(), kResortedAfterBoost));
    if (const size_t refine = std::min<size_t>(config_.GetNumberOfResultsToRefine(), weights.size())) {
        RefineWithTermFrequency(terms, weights, refine, numberOfDocuments, averageLength);
        Sort(weights.begin(), weights.begin() + refine);
    }
    if (config_.GetAdjacencyMult() != 0 && terms.size() >= 2) {
        DocumentIDWeight* last = weights.begin() + std::min(kAdjacencyDocuments, weights.size());
        ApplyAdjacency(terms, weights.begin(), last);
        Sort(weights.begin(), last);
    }
    const float maximum = float(GetMaximumScore(terms, numberOfDocuments));
    for (DocumentIDWeight& weight : weights) {
        // A zero maximum leaves nothing to measure against: every document is as good as can be.
        const float ratio = maximum > 0 ? float(weight.score) / maximum : 1.0f;
        weight.relevancePercent = std::min(100.0f, std::sqrt(ratio) * 100.0f);
    }
}

void RankingEngine::ComputeBaseScores(const std::vector<TermImportance>& terms,
                                      const Vantu::FastVector<unsigned>& documentIds, uint32_t numberOfDocuments,
                                      Weights& weights) const {
    std::vector<TermImportance> scored(terms);
    std::stable_sort(scored.begin(), scored.end(),
                     [](const TermImportance& a, const TermImportance& b) { return a.importance > b.importance; });
    if (scored.size() > kBaseScoreTerms) scored.resize(kBaseScoreTerms);
    std::erase_if(scored, [](const TermImportance& t) { return !t.term; });

    std::vector<uint32_t> rarity;
    uint32_t sumW = 0;
    for (const TermImportance& term : scored) {
        rarity.push_back(uint32_t(Rarity(term, numberOfDocuments) * 100 + 0.5));
        sumW += rarity.back();
    }
    sumW = std::max<uint32_t>(sumW, 1);
    const bool big = uint32_t(slice_.GetNumberOfDocuments() * 0.1) < documentIds.size();
    std::vector<const DocIDWeightStruct*> hints(scored.size(), nullptr);

    uint64_t entered = 0, sum = 0;
    for (const unsigned id : documentIds) {
        uint64_t score = 0, titleScore = 0;
        uint32_t titleCount = 0;
        for (size_t i = 0; i < scored.size(); ++i) {
            const TermImportance& term = scored[i];
            const bool walk = big && term.frequent && !term.negated;
            const DocIDWeightStruct* posting;
            if (!term.term->GetDocumentWeight(id, !walk, walk ? hints[i] : nullptr, posting)) continue;
            hints[i] = posting;
            const uint16_t flags = posting->TermFlags();
            const uint32_t title = (flags & kTitleFlag) ? 7u * config_.GetTitleMult() : 0u;
            titleCount += title ? 1 : 0;
            const uint64_t f = ImportanceFactor(term);
            score += f * FlagPoints(config_, flags) * rarity[i];
            titleScore += f * title * rarity[i];
        }
        score /= sumW;
        titleScore /= sumW;
        if (entered >= kBoostedDocuments && score * entered <= sum) continue;
        ++entered;
        sum += score;
        DocumentIDWeight weight;
        weight.documentId = id;
        weight.score = uint32_t(score);
        weight.titleCount = titleCount;
        weight.titleScore = uint32_t(titleScore);
        weights.push_back(weight);
    }
}

uint32_t RankingEngine::ApplyDocumentBoosts(Weights& weights, size_t limit,
                                            const std::u16string& preferredLanguage) const {
    const uint8_t mask = LanguageMask(preferredLanguage);
    const uint32_t now = slice_.Now().Seconds();
    const size_t count = std::min(limit, weights.size());
    uint64_t lengths = 0;
    slice_.ReadLockWeights();
    for (size_t i = 0; i < count; ++i) {
        DocumentIDWeight& weight = weights[i];
        const DocumentFields document(slice_.GetDocumentWeight(weight.documentId));
        int64_t score = weight.score;
        lengths += document.length;
        if (document.linkRank >= 1e-6f) score += int64_t(float(config_.GetLinkRankMult()) * document.linkRank * 100.0f);
        if (weight.titleCount > 0 && document.titleWords > 0) {
            const double r = double(weight.titleCount) / document.titleWords;
            const double factor = (r * r + 1) * std::max(weight.titleCount / 2.0, 1.0);
            score += int64_t(weight.titleScore * factor) - weight.titleScore;
        }
        if (const RankingEngineConfigSourceInfo* source = config_.FindSourceInfo(document.collection, document.source)) {
            const uint32_t scheme = source->GetSchemeType();
            const bool site = scheme == 1 || scheme == 2;
            score += int64_t(DatePoints(document.date, now) * double(config_.GetDocDateMult()) * (site ? 0.1 : 0.75));
            if (scheme >= 3 && scheme <= 5) score += config_.GetQualityMult() * 60;
            if (site) {
                score += document.quality * config_.GetQualityMult() * 20;
                score += int64_t((150.0 - 20.0) * config_.GetDocDateMult() / 2.0);
            }
            score += source->ReputationPoints() * config_.GetSourceReputationMult();
        }
        if (document.languageMask & mask) score += config_.GetLanguageMult() * 6 * (document.languageMask == mask ? 2 : 1);
        weight.score = uint32_t(std::clamp<int64_t>(score, 0, UINT32_MAX));
    }
    slice_.ReadUnlockWeights();
    return count ? uint32_t(lengths / count) : 0;
}

void RankingEngine::RefineWithTermFrequency(const std::vector<TermImportance>& terms, Weights& weights, size_t count,
                                            uint32_t numberOfDocuments, uint32_t averageLength) const {
    const double average = averageLength ? averageLength : 1;
    const double n = numberOfDocuments;
    const uint32_t divisor = std::max<size_t>(terms.size(), 1);
    slice_.ReadLockWeights();
    for (size_t i = 0; i < count; ++i) {
        DocumentIDWeight& weight = weights[i];
        const double length = DocumentFields(slice_.GetDocumentWeight(weight.documentId)).length;
        double sum = 0;
        for (const TermImportance& term : terms) {
            const DocIDWeightStruct* posting;
            if (!term.term || !term.term->GetDocumentWeight(weight.documentId, true, nullptr, posting)) continue;
            const double df = std::min<double>(n, PostingCount(term));
            const double lg = Log10OrZero(double(uint64_t((n - df + 0.5) / (df + 0.5))));
            const double tf = posting->PositionCount() ? posting->PositionCount() : 32;
            const double k = length / average * 0.75 + 0.25;
            const double w = kRefineWeight[(posting->TermFlags() & 0x3000) >> 12];
            sum += std::min(10.0, tf * 2.2 / (k * 1.2 + tf) * w * lg);
        }
        weight.score += uint32_t(config_.GetTFIDFMult() * sum * 40.0) / divisor;
    }
    slice_.ReadUnlockWeights();
}

void RankingEngine::ApplyAdjacency(const std::vector<TermImportance>& terms, DocumentIDWeight* first,
                                   DocumentIDWeight* last) const {
    const uint32_t bonus = config_.GetAdjacencyMult() * 200u;
    const double n = double(terms.size());
    const double maxSum = (n - 1) / 2.0 * n * 10.0;
    std::priority_queue<uint32_t, std::vector<uint32_t>, std::greater<uint32_t>> best;
    size_t visited = 0;
    for (DocumentIDWeight* weight = first; weight != last; ++weight, ++visited) {
        if (visited >= 10 && uint64_t(weight->score) + bonus < best.top()) break;
        std::vector<Vantu::SmartPtr<EvaluationSlice::Occurence>> found;
        for (const TermImportance& term : terms) {
            Vantu::SmartPtr<EvaluationSlice::Occurence> occurence;
            const DocIDWeightStruct* cursor = nullptr;
            if (term.term && slice_.GetOccurencesForDocument(*term.term, weight->documentId, occurence, cursor) &&
                occurence)
                found.push_back(occurence);
        }
        if (found.size() > 1) {
            double sum = 0;
            for (size_t a = 0; a < found.size(); ++a)
                for (size_t b = a + 1; b < found.size(); ++b) {
                    const unsigned d = VantuLanguage::WordsExtractor::SmallestDistance(*found[a], *found[b]);
                    sum += std::min(std::sqrt(double(d) - 1), 10.0);
                }
            weight->score += uint32_t(int64_t((1 - sum / maxSum) * bonus));
        }
        best.push(weight->score);
        if (best.size() > 10) best.pop();
    }
}

uint32_t RankingEngine::GetMaximumScore(const std::vector<TermImportance>& terms, uint32_t numberOfDocuments) const {
    const RankingEngineConfig& c = config_;
    uint32_t s = 0;
    if (!terms.empty()) {
        double tot = 0, sw = 0;
        for (size_t i = 0; i < std::min(terms.size(), kBaseScoreTerms); ++i) {
            const uint32_t f = ImportanceFactor(terms[i]);
            const uint32_t sumF = c.GetTitleMult() * f * 14 + c.GetConceptMult() * f * 2 + c.GetSummaryMult() * f * 6 +
                                  c.GetURIMult() * f * 5 + c.GetUnderlinedMult() * f + c.GetBiggerFontMult() * f +
                                  c.GetBoldMult() * f;
            const double w = Rarity(terms[i], numberOfDocuments);
            sw += w;
            tot += uint32_t(sumF * w);
        }
        static const double kFactor[] = {0.7, 0.85, 0.8, 0.75};
        const double factor = terms.size() < 4 ? kFactor[terms.size()] : 0.7;
        const uint32_t p = uint32_t(uint32_t(tot / sw) * factor);
        const double lg = Log10OrZero(double(uint64_t((numberOfDocuments + 0.5) / 0.5)));
        const uint32_t t = std::min<uint32_t>(uint32_t(lg * 2.71), 10);
        s = p + c.GetTFIDFMult() * t * 40 + c.GetLastDirInURIMult() * ImportanceFactor(terms[0]) * 5;
    }
    uint32_t total = s + c.GetDocDateMult() * 150 + c.GetQualityMult() * 140 + c.GetSourceReputationMult() * 55 +
                     c.GetLanguageMult() * 12;
    if (terms.size() >= 2) total += c.GetAdjacencyMult() * 200;
    return uint32_t((total + c.GetLinkRankMult() * 100) * 0.9);
}

void RankingEngine::OrderWithoutScores(Vantu::FastVector<unsigned>& documentIds, SortCriteria sortCriteria,
                                       Weights& weights) const {
    std::vector<uint64_t> keys(documentIds.begin(), documentIds.end());
    if (sortCriteria == DocumentDateDescending || sortCriteria == DocumentDateAscending) {
        slice_.ReadLockWeights();
        for (uint64_t& key : keys)
            key |= uint64_t(DocumentFields(slice_.GetDocumentWeight(uint32_t(key))).date) << 32;
        slice_.ReadUnlockWeights();
    }
    if (sortCriteria == DocumentDateDescending || sortCriteria == IndexDateDescending)
        std::sort(keys.begin(), keys.end(), std::greater<uint64_t>());
    else
        std::sort(keys.begin(), keys.end());
    weights.clear();
    weights.reserve(keys.size());
    for (const uint64_t key : keys) {
        DocumentIDWeight weight;
        weight.documentId = uint32_t(key);
        weight.relevancePercent = 100.0f;
        weights.push_back(weight);
    }
}

}  // namespace Ostrel
