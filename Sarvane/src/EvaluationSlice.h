// What term evaluation and ranking read of one slice: its counters, language, stop words, terms, positions and
// document weights. Called from query threads while the slice's read lock is held; implementations are const-safe.
#pragma once

#include <cstdint>
#include <string>

#include "FileIndexedDocuments.h"
#include "FileIndexedTerms.h"
#include "Term.h"
#include "core/DateTime.h"
#include "core/RefCounted.h"
#include "language/Language.h"
#include "language/StopWords.h"

namespace Ostrel {

struct SarSliceStores;

class EvaluationSlice {
public:
    using Occurence = FileIndexedTerms::Occurence;

    virtual ~EvaluationSlice() = default;

    // The documents of the committed counters.
    virtual uint32_t GetNumberOfDocuments() const = 0;
    // The next document id the slice will give: a NOT extends its result up to it.
    virtual uint32_t GetCurrentDocumentID() const = 0;
    virtual const VantuLanguage::Language& GetLanguage() const = 0;
    virtual const VantuLanguage::StopWords& GetStopWords() const = 0;

    // Null for a term the slice doesn't know.
    virtual Vantu::SmartPtrToConst<Term> LoadTerm(const std::string& key, bool withPositions) const = 0;
    virtual bool GetOccurencesForDocument(const Term& term, uint32_t documentId, Vantu::SmartPtr<Occurence>& occurence,
                                          const DocIDWeightStruct*& cursor) const = 0;

    // A walk over many weights holds the read side of the weights' lock around it; no document is loaded meanwhile.
    virtual void ReadLockWeights() const = 0;
    virtual void ReadUnlockWeights() const = 0;
    // All zero for an id past the weights.
    virtual RankingEngineDocWeight GetDocumentWeight(uint32_t documentId) const = 0;

    // The moment the age of a document is measured from.
    virtual Vantu::DateTime Now() const { return Vantu::DateTime::GetCurrentDateTime(); }
};

// The slice as its open stores answer; the language and stop words are the slice configuration's.
class StoresEvaluationSlice : public EvaluationSlice {
public:
    StoresEvaluationSlice(const SarSliceStores& stores, const VantuLanguage::Language& language,
                          const VantuLanguage::StopWords& stopWords)
        : stores_(stores), language_(language), stopWords_(stopWords) {}

    uint32_t GetNumberOfDocuments() const override;
    uint32_t GetCurrentDocumentID() const override;
    const VantuLanguage::Language& GetLanguage() const override { return language_; }
    const VantuLanguage::StopWords& GetStopWords() const override { return stopWords_; }
    Vantu::SmartPtrToConst<Term> LoadTerm(const std::string& key, bool withPositions) const override;
    bool GetOccurencesForDocument(const Term& term, uint32_t documentId, Vantu::SmartPtr<Occurence>& occurence,
                                  const DocIDWeightStruct*& cursor) const override;
    void ReadLockWeights() const override;
    void ReadUnlockWeights() const override;
    RankingEngineDocWeight GetDocumentWeight(uint32_t documentId) const override;

private:
    const SarSliceStores& stores_;
    const VantuLanguage::Language& language_;
    const VantuLanguage::StopWords& stopWords_;
};

}  // namespace Ostrel
