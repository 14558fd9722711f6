#include "Term.h"

#include <algorithm>

namespace Ostrel {

bool Term::GetDocumentWeight(uint32_t documentId, bool binarySearch, const DocIDWeightStruct* start,
                             const DocIDWeightStruct*& found) const {
    const DocIDWeightStruct* begin = documentWeights_.begin();
    const DocIDWeightStruct* end = documentWeights_.end();
    if (start == nullptr || start < begin || start >= end) start = begin;
    if (!binarySearch) {
        for (const DocIDWeightStruct* at = start; at != end && at->DocumentId() <= documentId; ++at)
            if (at->DocumentId() == documentId) {
                found = at;
                return true;
            }
        return false;
    }
    const auto before = [](const DocIDWeightStruct& posting, uint32_t id) { return posting.DocumentId() < id; };
    const DocIDWeightStruct* at = std::lower_bound(start, end, documentId, before);
    if (at == end || at->DocumentId() != documentId) return false;
    found = at;
    return true;
}

Vantu::RefCountToConst<VantuAlgo::BitVector> Term::GetDocumentList() const {
    auto* list = new VantuAlgo::BitVector;
    if (!documentWeights_.empty()) {
        list->resize(documentWeights_.end()[-1].DocumentId() + 1);
        for (const DocIDWeightStruct& posting : documentWeights_) list->set(posting.DocumentId(), true);
    }
    return Vantu::RefCountToConst<VantuAlgo::BitVector>(list);
}

}  // namespace Ostrel
