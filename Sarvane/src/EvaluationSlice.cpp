#include "EvaluationSlice.h"

#include "SarSliceStores.h"

namespace Ostrel {

uint32_t StoresEvaluationSlice::GetNumberOfDocuments() const { return stores_.documents->GetNumberOfDocuments(); }

uint32_t StoresEvaluationSlice::GetCurrentDocumentID() const { return stores_.documentIdMap->GetCurrentDocId(); }

Vantu::SmartPtrToConst<Term> StoresEvaluationSlice::LoadTerm(const std::string& key, bool withPositions) const {
    return stores_.lexicon->LoadTerm(key, withPositions);
}

bool StoresEvaluationSlice::GetOccurencesForDocument(const Term& term, uint32_t documentId,
                                                     Vantu::SmartPtr<Occurence>& occurence,
                                                     const DocIDWeightStruct*& cursor) const {
    return stores_.lexicon->GetOccurencesForDocument(term, documentId, occurence, cursor);
}

void StoresEvaluationSlice::ReadLockWeights() const { stores_.documents->ReadLockCache(); }

void StoresEvaluationSlice::ReadUnlockWeights() const { stores_.documents->ReadUnlockCache(); }

RankingEngineDocWeight StoresEvaluationSlice::GetDocumentWeight(uint32_t documentId) const {
    return stores_.documents->GetDocumentWeight(documentId);
}

}  // namespace Ostrel
