// The postings of one term in memory, ascending by document id, each with its position word when the term was
// loaded with positions. Shared read-only between query threads once built; built by one thread.
#pragma once

#include <cstdint>

#include "DocIDWeightStruct.h"
#include "core/FastVector.h"
#include "core/RefCounted.h"
#include "store/BitVector.h"

namespace Ostrel {

class Term : public Vantu::SPRefCounter {
public:
    static constexpr uint32_t kNoTermId = 0xFFFFFFFF;

    Term() = default;
    explicit Term(uint32_t termId) : termId_(termId) {}

    uint32_t GetTermID() const { return termId_; }
    void SetTermID(uint32_t termId) { termId_ = termId; }
    Vantu::FastVector<DocIDWeightStruct>& GetDocumentWeights() { return documentWeights_; }
    const Vantu::FastVector<DocIDWeightStruct>& GetDocumentWeights() const { return documentWeights_; }
    // One position word per posting, at the posting's index; empty when loaded without positions.
    Vantu::FastVector<uint32_t>& GetDocumentPositions() { return documentPositions_; }
    const Vantu::FastVector<uint32_t>& GetDocumentPositions() const { return documentPositions_; }
    uint32_t GetNumberOfDocuments() const { return uint32_t(documentWeights_.size()); }
    // The position word of `posting`, which points into this term's postings.
    uint32_t GetDocumentPositions(const DocIDWeightStruct* posting) const {
        return documentPositions_[size_t(posting - documentWeights_.begin())];
    }

    // Looks for `documentId` from `start` (from the first posting when `start` is null or past the end), walking
    // or by binary search; `found` is the first posting of the id. A caller that walks ascending ids passes the
    // last result back as `start`.
    bool GetDocumentWeight(uint32_t documentId, bool binarySearch, const DocIDWeightStruct* start,
                           const DocIDWeightStruct*& found) const;
    // A vector of last document id + 1 bits with the bit of every posting set; empty for no posting.
    Vantu::RefCountToConst<VantuAlgo::BitVector> GetDocumentList() const;

private:
    uint32_t termId_ = kNoTermId;
    Vantu::FastVector<DocIDWeightStruct> documentWeights_;
    Vantu::FastVector<uint32_t> documentPositions_;
};

}  // namespace Ostrel
