#include "TermDocumentEvaluator.h"

#include <algorithm>

#include "SarQueryParserTokenTypes.hpp"
#include "core/Text.h"

namespace Ostrel {

namespace {

using T = SarQueryParserTokenTypes;

bool IsType(const antlr::RefAST& node, std::initializer_list<int> types) {
    return node && std::find(types.begin(), types.end(), node->getType()) != types.end();
}

bool IsBinary(int type) { return type == T::AND_ || type == T::OR_ || type == T::NEAR_ || type == T::WEIGHTEDNEAR_; }

// Keyword tokens inside a phrase keep the blank that follows them.
std::string PhraseWordText(const antlr::RefAST& node) {
    std::string text = node->getText();
    const size_t blank = text.find_last_of(' ');
    if (blank != std::string::npos) text.resize(blank);
    return text;
}

}  // namespace

const VantuAlgo::BitVector TermDocumentEvaluator::m_sEmptyBitVector;

bool DeferredPositionFilter::IsDocumentAccepted(uint32_t documentId) const {
    return std::all_of(checks_.begin(), checks_.end(),
                       [documentId](const auto& check) { return check->IsDocumentAccepted(documentId); });
}

TermDocumentEvaluator::TermDocumentEvaluator(const Documents& allowedDocuments, const antlr::RefAST& node,
                                             const EvaluationSlice& slice, bool deferPositions, bool loadPositions,
                                             unsigned maximumTerms, unsigned& termCount, const Documents& restriction)
    : node_(node),
      slice_(slice),
      allowedDocuments_(&allowedDocuments),
      restriction_(&restriction),
      deferPositions_(deferPositions),
      loadPositions_(loadPositions),
      maximumTerms_(maximumTerms),
      termCount_(termCount) {}

uint32_t TermDocumentEvaluator::GetTermType(int tokenType) {
    if (tokenType == T::AND_ || tokenType == T::NEAR_ || tokenType == T::WEIGHTEDNEAR_) return 2;
    return tokenType == T::OR_ ? 1 : 0;
}

bool TermDocumentEvaluator::IsFrequent(const Term& term, uint32_t numberOfDocuments) {
    return numberOfDocuments * 0.02 < double(term.GetNumberOfDocuments());
}

bool TermDocumentEvaluator::ValidateTree(const antlr::RefAST& root) {
    if (!root) return true;
    const antlr::RefAST first = root->getFirstChild();
    const antlr::RefAST second = first ? antlr::RefAST(first->getNextSibling()) : antlr::RefAST();
    switch (root->getType()) {
    case T::AND_: case T::OR_: case T::NEAR_: case T::WEIGHTEDNEAR_:
        return first && second;
    case T::NOT_:
        return first && !second;
    case T::WORD_:
        return !first;
    case T::DQUOTE_:
        return IsType(first, {T::WORD_, T::DQUOTE_}) && IsType(second, {T::WORD_, T::DQUOTE_});
    case T::FIELDNAME_:
        return !second || (first->getType() >= T::EQUAL_ && first->getType() <= T::GREATEREQUAL_ &&
                           IsType(second, {T::WORD_, T::LPAREN_, T::DQUOTE_, T::MINUS_, T::DATE_}));
    default:
        return true;
    }
}

bool TermDocumentEvaluator::EvaluateNode(WordSet& stopTerms, WordSet& stopPhraseTerms) {
    if (!ValidateTree(node_)) {
        documents_.clear();
        return false;
    }
    if (node_ && termCount_ <= maximumTerms_) {
        const int type = node_->getType();
        if (type == T::WORD_) {
            ConstructFromTerm(node_, 2, stopTerms);
        } else if (IsBinary(type)) {
            Binary(type, stopTerms, stopPhraseTerms);
        } else if (type == T::NOT_) {
            antlr::RefAST child = node_->getFirstChild();
            if (child->getType() == T::WORD_) ConstructFromTerm(child, GetTermType(type), stopTerms);
            else EvaluateOperand(child, *restriction_, stopTerms, stopPhraseTerms);
            Not();
        } else if (type == T::DQUOTE_) {
            termCount_ += ExactPhrase(stopPhraseTerms);
        } else if (type == T::FIELDNAME_) {
            documents_.clear();  // field conditions: see the class comment
        }
    }
    return termCount_ > maximumTerms_;
}

TermDocumentEvaluator::Word TermDocumentEvaluator::LoadWord(const std::string& text, bool withPositions) {
    Word word;
    word.written = Vantu::FromUtf8(text);
    std::u16string key;
    word.stopWord = slice_.GetLanguage().NormalForm(word.written, slice_.GetStopWords(), key);
    if (!word.stopWord) word.term = slice_.LoadTerm(Vantu::ToUtf8(key), withPositions);
    return word;
}

void TermDocumentEvaluator::ConstructFromTerm(const antlr::RefAST& node, uint32_t importance, WordSet& stopTerms) {
    documents_.clear();
    stopWord_ = false;
    if (++termCount_ > maximumTerms_) return;
    const Word word = LoadWord(node->getText(), loadPositions_);
    stopWord_ = word.stopWord;
    if (word.stopWord) {
        stopTerms.insert(word.written);
        return;
    }
    if (!word.term) return;
    positionTerms_.emplace_back(word.term, 1);
    documents_ = *word.term->GetDocumentList();
    documents_ &= *allowedDocuments_;
    terms_.push_back({word.term, importance, IsFrequent(*word.term, slice_.GetNumberOfDocuments()), false});
    highlightTerms_.push_back(word.written);
}

void TermDocumentEvaluator::EvaluateOperand(const antlr::RefAST& child, const Documents& restriction,
                                            WordSet& stopTerms, WordSet& stopPhraseTerms) {
    TermDocumentEvaluator operand(*allowedDocuments_, child, slice_, deferPositions_, loadPositions_, maximumTerms_,
                                  termCount_, restriction);
    operand.EvaluateNode(stopTerms, stopPhraseTerms);
    Copy(operand);
}

void TermDocumentEvaluator::Binary(int type, WordSet& stopTerms, WordSet& stopPhraseTerms) {
    if (type == T::NEAR_ || type == T::WEIGHTEDNEAR_) loadPositions_ = true;
    const antlr::RefAST left = node_->getFirstChild();
    const antlr::RefAST right = left->getNextSibling();
    const uint32_t importance = GetTermType(type);
    if (left->getType() == T::WORD_) ConstructFromTerm(left, importance, stopTerms);
    else EvaluateOperand(left, *restriction_, stopTerms, stopPhraseTerms);

    const Documents& restriction = type == T::OR_ ? m_sEmptyBitVector : documents_;
    TermDocumentEvaluator operand(*allowedDocuments_, antlr::RefAST(), slice_, deferPositions_, loadPositions_,
                                  maximumTerms_, termCount_, restriction);
    if (right->getType() == T::WORD_) {
        operand.ConstructFromTerm(right, importance, stopTerms);
    } else {
        operand.node_ = right;
        operand.EvaluateNode(stopTerms, stopPhraseTerms);
    }
    AppendFound(operand);
    PerformBinaryOperation(operand, type);
}

void TermDocumentEvaluator::AppendFound(const TermDocumentEvaluator& other) {
    terms_.insert(terms_.end(), other.terms_.begin(), other.terms_.end());
    highlightTerms_.insert(highlightTerms_.end(), other.highlightTerms_.begin(), other.highlightTerms_.end());
    highlightPhrases_.insert(highlightPhrases_.end(), other.highlightPhrases_.begin(), other.highlightPhrases_.end());
}

void TermDocumentEvaluator::Copy(TermDocumentEvaluator& other) {
    if (other.stopWord_) {
        stopWord_ = true;
    } else {
        documents_ = std::move(other.documents_);
        stopWord_ = false;
        AppendFound(other);
    }
    deferPositions_ = other.deferPositions_;
    hasDeferred_ = other.hasDeferred_;
    deferredFilter_ = std::move(other.deferredFilter_);
    positionTerms_ = std::move(other.positionTerms_);
    trailingStopWords_ = other.trailingStopWords_;
}

void TermDocumentEvaluator::PerformBinaryOperation(TermDocumentEvaluator& right, int type) {
    if (stopWord_ && right.stopWord_) {
        documents_.clear();
    } else if (right.stopWord_) {
        return;
    } else if (stopWord_) {
        // A stop word beside a phrase keeps the phrase's position checks.
        documents_ = right.documents_;
        stopWord_ = false;
        MergeFilter(right);
    } else if (type == T::AND_) {
        And(right);
    } else if (type == T::OR_) {
        Or(right);
    } else if (!positionTerms_.empty() && !right.positionTerms_.empty()) {
        Near(right);
    } else {
        documents_.clear();
    }
}

void TermDocumentEvaluator::MergeFilter(const TermDocumentEvaluator& other) {
    deferredFilter_.Merge(other.deferredFilter_);
    hasDeferred_ = hasDeferred_ || other.hasDeferred_ || !deferredFilter_.Empty();
}

void TermDocumentEvaluator::And(const TermDocumentEvaluator& right) {
    MergeFilter(right);
    documents_ &= right.documents_;
}

// A tree with an OR never defers its position checks, so there is no filter to carry.
void TermDocumentEvaluator::Or(const TermDocumentEvaluator& right) { documents_ |= right.documents_; }

void TermDocumentEvaluator::Near(const TermDocumentEvaluator& right) {
    MergeFilter(right);
    documents_ &= right.documents_;
    if (!restriction_->empty()) documents_ &= *restriction_;
}

void TermDocumentEvaluator::Not() {
    for (TermImportance& term : terms_) term.negated = true;
    if (stopWord_) {
        documents_.clear();
        stopWord_ = false;
        return;
    }
    documents_.invert();
    const uint32_t current = slice_.GetCurrentDocumentID();
    if (documents_.size() < current) documents_.resize(current, true);
    documents_ &= *allowedDocuments_;
}

unsigned TermDocumentEvaluator::ExactPhrase(WordSet& stopPhraseTerms) {
    highlightPhrases_.emplace_back();
    unsigned position = 1;
    for (antlr::RefAST child = node_->getFirstChild(); child && child->getType() != T::DQUOTE_;
         child = child->getNextSibling(), ++position) {
        const Word word = LoadWord(PhraseWordText(child), true);
        if (word.stopWord) {
            ++trailingStopWords_;
            stopPhraseTerms.insert(word.written);
        } else if (word.term) {
            trailingStopWords_ = 0;
            positionTerms_.emplace_back(word.term, position);
        } else {
            positionTerms_.clear();
            documents_.clear();
            highlightPhrases_.pop_back();
            return position - 1;
        }
        highlightPhrases_.back().push_back(word.written);
    }
    const unsigned read = position - 1;
    if (positionTerms_.empty()) {
        stopWord_ = true;
        return read;
    }
    documents_ = *allowedDocuments_;
    if (positionTerms_.size() > 1 && !restriction_->empty()) documents_ &= *restriction_;
    for (const auto& [term, number] : positionTerms_) {
        documents_ &= *term->GetDocumentList();
        terms_.push_back({term, 2, false, false});
    }
    return read;
}

void TermDocumentEvaluator::DeferCheck(const Vantu::RefCount<const PositionCheck>& check) {
    deferredFilter_.Add(check);
    hasDeferred_ = true;
}

bool TermDocumentEvaluator::GetResultingDocuments(Vantu::FastVector<unsigned>& documentIds,
                                                  std::vector<TermImportance>& terms, const RankingEngine& ranking,
                                                  Vantu::FastVector<DocumentIDWeight>& weights, unsigned limit) {
    bool anyFrequent = false;
    for (const TermImportance& term : terms_) {
        const bool seen = std::any_of(terms.begin(), terms.end(),
                                      [&term](const TermImportance& t) { return t.term == term.term; });
        if (seen) continue;
        terms.push_back(term);
        anyFrequent = anyFrequent || term.frequent;
    }
    documentIds.reserve(anyFrequent ? 0x80000 : 16384);
    // With checks put off only the documents that pass them are matches, so the candidates stay here.
    const bool check = deferPositions_ && hasDeferred_;
    Vantu::FastVector<unsigned> candidates;
    Vantu::FastVector<unsigned>& ids = check ? candidates : documentIds;
    if (check) candidates.reserve(10000);
    for (auto it = documents_.findFirstSetBit(documents_.begin(), documents_.end()); it != documents_.end();
         it = documents_.findFirstSetBit(++it, documents_.end()))
        ids.push_back(it.index());
    if (!check || candidates.empty()) return false;

    ranking.ComputeBaseScores(terms, candidates, slice_.GetNumberOfDocuments(), weights);
    const size_t target = limit < 50 ? 100 : size_t(limit) * 2;
    RankingEngine::Sort(weights.begin(), weights.end());
    size_t accepted = 0;
    for (size_t i = 0; i < weights.size() && accepted < target; ++i)
        if (deferredFilter_.IsDocumentAccepted(weights[i].documentId)) weights[accepted++] = weights[i];
    weights.resize(accepted);
    return accepted == target;
}

}  // namespace Ostrel
