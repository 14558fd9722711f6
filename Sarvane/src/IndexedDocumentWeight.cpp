#include "IndexedDocumentWeight.h"

#include <algorithm>
#include <utility>

namespace Ostrel {

namespace {

constexpr int32_t kFixedKeyFloor = 0x7FFF0000;
constexpr uint32_t kRankLimit = 0xFFFEFFFF;  // int32(kRankLimit - 2^31) lies just below kFixedKeyFloor

}  // namespace

IndexedDocumentWeight::IndexedDocumentWeight(Vantu::SmartPtrToConst<IndexedDocument> document,
                                             SortCriteria sortCriteria, uint32_t score, float relevancePercent,
                                             int fixedResultOrder, Vantu::DateTime firstDate,
                                             Vantu::DateTime secondDate, std::vector<Sentence> sentences,
                                             bool isFixedResult, Vantu::FastVector<Highlight> titleHighlights,
                                             Vantu::FastVector<Highlight> uriHighlights)
    : document_(std::move(document)),
      sortCriteria_(sortCriteria),
      score_(score),
      relevancePercent_(relevancePercent),
      fixedResultOrder_(fixedResultOrder),
      firstDate_(firstDate),
      secondDate_(secondDate),
      sentences_(std::move(sentences)),
      isFixedResult_(isFixedResult),
      titleHighlights_(std::move(titleHighlights)),
      uriHighlights_(std::move(uriHighlights)) {}

int32_t IndexedDocumentWeight::GetSortKey() const {
    if (isFixedResult_) return std::max(fixedResultOrder_, kFixedKeyFloor);
    return int32_t(int64_t(GetOrdinaryRank()) - (int64_t(1) << 31));
}

uint32_t IndexedDocumentWeight::GetOrdinaryRank() const {
    const uint32_t documentId = document_ ? document_->documentId : 0;
    switch (sortCriteria_) {
    case DocumentDateDescending: return std::min(firstDate_.Seconds(), kRankLimit);
    case DocumentDateAscending: return kRankLimit - std::min(firstDate_.Seconds(), kRankLimit);
    case IndexDateDescending: return std::min(documentId, kRankLimit);
    case IndexDateAscending: return kRankLimit - std::min(documentId, kRankLimit);
    case Relevance: break;
    }
    return std::min(score_, kRankLimit);
}

std::vector<Sentence> IndexedDocumentWeight::GetBestSentences(size_t count) const {
    std::vector<Sentence> best = sentences_;
    std::stable_sort(best.begin(), best.end(),
                     [](const Sentence& a, const Sentence& b) { return a.weight > b.weight; });
    if (best.size() > count) best.resize(count);
    return best;
}

void IndexedDocumentWeight::SetSummary(std::vector<Sentence> sentences, Vantu::FastVector<Highlight> titleHighlights,
                                       Vantu::FastVector<Highlight> uriHighlights) {
    sentences_ = std::move(sentences);
    titleHighlights_ = std::move(titleHighlights);
    uriHighlights_ = std::move(uriHighlights);
}

}  // namespace Ostrel
