// Turns a parsed query tree into the documents of one slice it matches, with the terms ranking weighs, the words
// the highlighter marks and the position checks put off. One object per query node, on the query's thread.
#pragma once

#include <antlr/AST.hpp>

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "EvaluationSlice.h"
#include "RankingEngine.h"
#include "Term.h"
#include "core/FastVector.h"
#include "core/RefCounted.h"
#include "store/BitVector.h"

namespace Ostrel {

// One position test put off until the best-scored documents are known: a phrase or a NEAR.
class PositionCheck {
public:
    virtual ~PositionCheck() = default;
    virtual bool IsDocumentAccepted(uint32_t documentId) const = 0;
};

// The checks a query put off; a document must pass them all. Operands hand theirs up by merging.
class DeferredPositionFilter {
public:
    void Add(const Vantu::RefCount<const PositionCheck>& check) { checks_.push_back(check); }
    void Merge(const DeferredPositionFilter& other) { checks_.insert(checks_.end(), other.checks_.begin(), other.checks_.end()); }
    bool Empty() const { return checks_.empty(); }
    // The first check that fails rejects the document.
    bool IsDocumentAccepted(uint32_t documentId) const;

private:
    std::vector<Vantu::RefCount<const PositionCheck>> checks_;
};

// Words are exact dictionary keys after normalisation: lower-case base form, then the stem unless a stop word.
// A stop word sets no condition, which is not the same as matching nothing: beside another operand of AND, OR or
// NEAR it leaves that operand's documents as they are.
//
// Not yet positional: an exact phrase matches the documents holding all its words, and NEAR matches as AND. Their
// terms are loaded with positions and stand in positionTerms, so that the position tests can be added in
// ExactPhrase and Near, immediately or through DeferCheck. A field condition (FIELDNAME_) matches no document
// until custom-field values are evaluated.
class TermDocumentEvaluator {
public:
    using Documents = VantuAlgo::BitVector;
    using WordSet = std::set<std::u16string>;

    static const Documents m_sEmptyBitVector;

    // `allowedDocuments` is and-ed into every result; `restriction` (the left operand's result, for the right
    // operand of an AND or NEAR) bounds position work; `termCount` is shared by all evaluators of one query.
    TermDocumentEvaluator(const Documents& allowedDocuments, const antlr::RefAST& node, const EvaluationSlice& slice,
                          bool deferPositions, bool loadPositions, unsigned maximumTerms, unsigned& termCount,
                          const Documents& restriction = m_sEmptyBitVector);

    // True when the query holds more words than maximumTerms; the words past the limit aren't loaded. Stop words
    // as the user wrote them go to `stopTerms`, those inside phrases to `stopPhraseTerms`. A tree of a shape the
    // parser never makes matches nothing.
    bool EvaluateNode(WordSet& stopTerms, WordSet& stopPhraseTerms);

    // In `terms` the terms to weigh, each term once, and the matches: with no check put off, their ids ascending
    // in `documentIds`; otherwise the documents are scored by `ranking`'s first pass and checked best first until
    // max(100, 2 * limit) pass, and those stand in `weights`, best first, `documentIds` left empty. True when
    // that many passed and more may exist.
    bool GetResultingDocuments(Vantu::FastVector<unsigned>& documentIds, std::vector<TermImportance>& terms,
                               const RankingEngine& ranking, Vantu::FastVector<DocumentIDWeight>& weights,
                               unsigned limit);

    // Puts a position check off to GetResultingDocuments.
    void DeferCheck(const Vantu::RefCount<const PositionCheck>& check);

    const Documents& GetDocuments() const { return documents_; }
    bool IsStopWord() const { return stopWord_; }
    const std::vector<std::u16string>& GetTermsForHighlighting() const { return highlightTerms_; }
    const std::vector<std::vector<std::u16string>>& GetExactPhraseForHighlighting() const { return highlightPhrases_; }

    // 2 below AND and NEAR, 1 below OR, 0 below anything else.
    static uint32_t GetTermType(int tokenType);
    // A term in strictly more than 2% of the slice's documents.
    static bool IsFrequent(const Term& term, uint32_t numberOfDocuments);

private:
    struct Word {
        std::u16string written;
        Vantu::SmartPtrToConst<Term> term;  // null for a stop word, an unknown word, or one past maximumTerms
        bool stopWord = false;
    };

    static bool ValidateTree(const antlr::RefAST& root);
    // Normalises the word and loads its term.
    Word LoadWord(const std::string& text, bool withPositions);
    // Counts the word and, unless it lies past maximumTerms, loads it into this object with the importance of the
    // operator above it.
    void ConstructFromTerm(const antlr::RefAST& word, uint32_t importance, WordSet& stopTerms);
    void EvaluateOperand(const antlr::RefAST& child, const Documents& restriction, WordSet& stopTerms,
                         WordSet& stopPhraseTerms);
    void Binary(int type, WordSet& stopTerms, WordSet& stopPhraseTerms);
    void Copy(TermDocumentEvaluator& other);
    void AppendFound(const TermDocumentEvaluator& other);
    void PerformBinaryOperation(TermDocumentEvaluator& right, int type);
    void And(const TermDocumentEvaluator& right);
    void Or(const TermDocumentEvaluator& right);
    void Near(const TermDocumentEvaluator& right);
    void Not();
    // Returns the number of words read.
    unsigned ExactPhrase(WordSet& stopPhraseTerms);
    void MergeFilter(const TermDocumentEvaluator& other);

    antlr::RefAST node_;
    const EvaluationSlice& slice_;
    const Documents* allowedDocuments_;
    const Documents* restriction_;
    Documents documents_;
    bool stopWord_ = false;
    bool deferPositions_;
    bool hasDeferred_ = false;
    bool loadPositions_;
    unsigned maximumTerms_;
    unsigned& termCount_;
    DeferredPositionFilter deferredFilter_;
    // Terms that carry positions, each with its word number in the phrase, counted from 1 with stop words.
    std::vector<std::pair<Vantu::SmartPtrToConst<Term>, unsigned>> positionTerms_;
    unsigned trailingStopWords_ = 0;
    std::vector<TermImportance> terms_;
    std::vector<std::u16string> highlightTerms_;
    std::vector<std::vector<std::u16string>> highlightPhrases_;
};

}  // namespace Ostrel
