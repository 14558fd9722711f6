// One result of a query: the stored document, its score or dates, its summary sentences with their marks,
// and the key by which the answers of several slices are merged. A value: one thread at a time per object;
// copies share the read-only document, so they may go to other threads.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "Highlight.h"
#include "IndexedDocument.h"
#include "Sentence.h"
#include "SortCriteria.h"
#include "core/DateTime.h"
#include "core/FastVector.h"
#include "core/RefCounted.h"

namespace Ostrel {

// The sort key is a signed 32-bit value, greatest first; equal keys keep their order under a stable sort,
// and each slice hands its records over already in their order, so only the order between slices rests on
// the key. The range is split in two:
//   - fixed results take [0x7FFF0000, 0x7FFFFFFF]: the key is the fixed-result order held within that band.
//     A slice numbers its pins from 0x7FFFFFFF down, so the first pin comes first; past 65536 pins the
//     key stays at the floor and the slice's own order decides.
//   - every other record takes int32(r - 2^31), with a rank r in [0, 0xFFFEFFFF], so at most 0x7FFEFFFF:
//       relevance (and an unknown criterion): r = score;
//       document date, newest first:          r = first date in seconds;
//       document date, oldest first:          r = 0xFFFEFFFF - first date in seconds;
//       indexed, newest first:                r = the document's slice id (ids rise as documents arrive);
//       indexed, oldest first:                r = 0xFFFEFFFF - the document's slice id.
//     Values above 0xFFFEFFFF (scores that high, dates in the last hours of 2106) count as 0xFFFEFFFF.
// Nothing in either formula can overflow, and an unknown date (0) sorts last when newest come first and
// first when oldest come first, as a slice orders them.
class IndexedDocumentWeight {
public:
    IndexedDocumentWeight() = default;
    IndexedDocumentWeight(Vantu::SmartPtrToConst<IndexedDocument> document, SortCriteria sortCriteria, uint32_t score,
                          float relevancePercent, int fixedResultOrder, Vantu::DateTime firstDate,
                          Vantu::DateTime secondDate, std::vector<Sentence> sentences, bool isFixedResult,
                          Vantu::FastVector<Highlight> titleHighlights, Vantu::FastVector<Highlight> uriHighlights);

    int32_t GetSortKey() const;
    // The order of a merged result list, for a stable sort.
    static bool ComesBefore(const IndexedDocumentWeight& a, const IndexedDocumentWeight& b) {
        return a.GetSortKey() > b.GetSortKey();
    }

    const Vantu::SmartPtrToConst<IndexedDocument>& GetDocument() const { return document_; }
    SortCriteria GetSortCriteria() const { return sortCriteria_; }
    uint32_t GetScore() const { return score_; }
    float GetRelevancePercent() const { return relevancePercent_; }
    int GetFixedResultOrder() const { return fixedResultOrder_; }
    Vantu::DateTime GetFirstDate() const { return firstDate_; }
    Vantu::DateTime GetSecondDate() const { return secondDate_; }
    bool IsFixedResult() const { return isFixedResult_; }
    // All sentences of the summary, in the document's order.
    const std::vector<Sentence>& GetSentences() const { return sentences_; }
    // The `count` sentences of most weight, heaviest first; equal weights keep the document's order.
    std::vector<Sentence> GetBestSentences(size_t count) const;
    const Vantu::FastVector<Highlight>& GetTitleHighlights() const { return titleHighlights_; }
    const Vantu::FastVector<Highlight>& GetUriHighlights() const { return uriHighlights_; }

    // For a record filled in steps, one document loaded on demand: the document, then its marks.
    void SetDocument(Vantu::SmartPtrToConst<IndexedDocument> document) { document_ = std::move(document); }
    void SetSummary(std::vector<Sentence> sentences, Vantu::FastVector<Highlight> titleHighlights,
                    Vantu::FastVector<Highlight> uriHighlights);

private:
    uint32_t GetOrdinaryRank() const;

    Vantu::SmartPtrToConst<IndexedDocument> document_;
    SortCriteria sortCriteria_ = Relevance;
    uint32_t score_ = 0;
    float relevancePercent_ = 0;
    int fixedResultOrder_ = 0;
    Vantu::DateTime firstDate_;
    Vantu::DateTime secondDate_;
    std::vector<Sentence> sentences_;
    bool isFixedResult_ = false;
    Vantu::FastVector<Highlight> titleHighlights_;
    Vantu::FastVector<Highlight> uriHighlights_;
};

}  // namespace Ostrel
