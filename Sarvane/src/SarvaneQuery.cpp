// The query path of a slice: the allowed documents, the cache, evaluation and ranking, and the result loop.
#include <algorithm>
#include <chrono>
#include <fstream>

#include "EvaluationSlice.h"
#include "RankingEngine.h"
#include "SarException.h"
#include "SarLog.h"
#include "SarQueryParse.h"
#include "SarQueryParserTokenTypes.hpp"
#include "Sarvane.h"
#include "SarvaneConfigLock.h"
#include "TermDocumentEvaluator.h"
#include "core/Text.h"

namespace Ostrel {

namespace {

using ConfigRead = SarvaneConfigReadLock<SarvaneInternalConfig>;

constexpr unsigned kResultsPerCall = 1000;
constexpr unsigned kDuplicatesBeforeGivingUp = 1000;

// Checks may be put off to the best-ranked documents only when no operand can take documents away from a
// larger set afterwards: no OR, no NOT, and NEAR only between plain words.
bool AllowsDeferring(const antlr::RefAST& node) {
    for (antlr::RefAST at = node; at; at = at->getNextSibling()) {
        const int type = at->getType();
        if (type == SarQueryParserTokenTypes::OR_ || type == SarQueryParserTokenTypes::NOT_ ||
            type == SarQueryParserTokenTypes::NOTEQUAL_)
            return false;
        if (type == SarQueryParserTokenTypes::NEAR_ || type == SarQueryParserTokenTypes::WEIGHTEDNEAR_)
            for (antlr::RefAST operand = at->getFirstChild(); operand; operand = operand->getNextSibling())
                if (operand->getType() != SarQueryParserTokenTypes::WORD_) return false;
        if (!AllowsDeferring(at->getFirstChild())) return false;
    }
    return true;
}

}  // namespace

void Sarvane::WriteCacheDump() const {
    const std::u16string text = queryCache_.DumpText();
    std::ofstream out(Directory() + "/DumpCache.txt", std::ios::binary | std::ios::trunc);
    for (char16_t c : text) out.put(char(c & 0xFF)).put(char(c >> 8));
}

bool Sarvane::PerformQuery(const std::u16string& query, const std::u16string& extraQuery,
                           const std::vector<SarcIdentity>& networkIds, const std::vector<uint16_t>& collections,
                           std::vector<IndexedDocumentWeight>& results, unsigned first, unsigned count,
                           bool filterDuplicates, bool optimization, SortCriteria sortCriteria,
                           const std::u16string& preferredLanguage, QueryAnswer& answer) const {
    const bool useDuplicateFilter = filterDuplicates && documentsWithShingles_ != 0;
    count = std::min(count, kResultsPerCall);
    first = std::min(first, kResultsPerCall - count);
    uint32_t duplicateFactor, maximumTerms;
    bool security;
    {
        ConfigRead hold(*config_);
        duplicateFactor = config_->GetDocumentDuplicateFactor();
        security = config_->GetDocumentLevelSecurity();
        maximumTerms = config_->GetMaximumTermsPerQuery();
    }
    VantuThread::ReadLocker files(filesLock_);
    if (!started_) throw SarIndexNotStarted();
    return SarLogged(log_, SarvaneSuffix::PerformQuery, [&] {
        if (query == u"@dumpcache") WriteCacheDump();
        const auto start = std::chrono::steady_clock::now();
        VantuAlgo::BitVector allowed;
        Vantu::FastVector<unsigned short> wanted;
        for (uint16_t id : collections) wanted.push_back(id);
        stores_->collections->GetValidDocuments(wanted, allowed);
        // The access lists of documents have no store yet: a slice that must check them shows nothing.
        if (security) allowed.clear();
        const QueryCacheKey key = QueryCacheKey::Make(query, extraQuery, sortCriteria, optimization,
                                                      preferredLanguage, collections, networkIds);
        uint64_t generation;
        std::optional<QueryCacheEntry> entry = queryCache_.Lookup(key, first + count, generation);
        const bool computed = !entry;
        try {
            if (computed) entry = ComputeAnswer(query + u" " + extraQuery, allowed, optimization, sortCriteria,
                                                preferredLanguage, maximumTerms, first + count);
            const bool dropped = CollectResults(*entry, useDuplicateFilter, duplicateFactor, first, count,
                                                sortCriteria, results, answer);
            answer.total = std::min(answer.total, stores_->documents->GetNumberOfDocuments());
            answer.seconds = std::max(0.0, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
            if (computed) queryCache_.Store(key, std::move(*entry), generation);
            return dropped;
        } catch (...) {
            if (computed) queryCache_.Abandon(key);
            throw;
        }
    });
}

QueryCacheEntry Sarvane::ComputeAnswer(const std::u16string& text, const VantuAlgo::BitVector& allowed,
                                       bool optimization, SortCriteria sortCriteria,
                                       const std::u16string& preferredLanguage, unsigned maximumTerms,
                                       unsigned wanted) const {
    QueryCacheEntry entry;
    entry.computedFor = wanted;
    const SarQueryParse parsed = SarQueryParse::Parse(text, *language_);
    entry.exception = parsed.exception;
    if (!parsed.tree) return entry;
    optimization = optimization && sortCriteria == Relevance && AllowsDeferring(parsed.tree);
    const StoresEvaluationSlice slice(*stores_, *language_, stopWords_);
    const RankingEngine ranking(rankingConfig_, slice);
    unsigned termCount = 0;
    TermDocumentEvaluator evaluator(allowed, parsed.tree, slice, optimization,
                                    rankingConfig_.GetAdjacencyMult() > 0, maximumTerms, termCount);
    TermDocumentEvaluator::WordSet stopTerms, stopPhraseTerms;
    if (evaluator.EvaluateNode(stopTerms, stopPhraseTerms)) entry.exception = QueryException(QueryTooManyTerms, "");
    entry.highlightTerms = evaluator.GetTermsForHighlighting();
    entry.highlightPhrases = evaluator.GetExactPhraseForHighlighting();
    entry.ignoredTerms.assign(stopTerms.begin(), stopTerms.end());
    for (const std::u16string& word : stopPhraseTerms)
        if (!stopTerms.count(word)) entry.ignoredTerms.push_back(word);
    Vantu::FastVector<unsigned> documentIds;
    std::vector<TermImportance> terms;
    Vantu::FastVector<DocumentIDWeight> weights;
    entry.more = evaluator.GetResultingDocuments(documentIds, terms, ranking, weights, wanted);
    ranking.Rank(documentIds, terms, preferredLanguage, sortCriteria, stores_->documents->GetNumberOfDocuments(),
                 weights);
    entry.total = uint32_t(std::max(documentIds.size(), weights.size()));
    entry.weights.assign(weights.begin(), weights.end());
    return entry;
}

bool Sarvane::CollectResults(const QueryCacheEntry& entry, bool useDuplicateFilter, uint32_t duplicateFactor,
                             unsigned first, unsigned count, SortCriteria sortCriteria,
                             std::vector<IndexedDocumentWeight>& results, QueryAnswer& answer) const {
    answer.total = answer.totalWithoutDuplicates = entry.total;
    answer.ignoredTerms = entry.ignoredTerms;
    answer.exception = entry.exception;
    answer.more = entry.more;
    results.reserve(count);
    std::vector<Vantu::SmartPtrToConst<IndexedDocument>> kept;
    bool dropped = false;
    unsigned index = useDuplicateFilter ? 0 : first, duplicates = 0;
    for (size_t at = index, accepted = 0; at < entry.weights.size() && accepted < count; ++at) {
        const DocumentIDWeight& weight = entry.weights[at];
        const Vantu::SmartPtrToConst<IndexedDocument> document = stores_->documents->LoadDocument(weight.documentId);
        if (!document) {  // deleted since the postings were read
            --answer.total;
            --answer.totalWithoutDuplicates;
            continue;
        }
        if (useDuplicateFilter && !document->shingles.empty() &&
            std::any_of(kept.rbegin(), kept.rend(), [&](const auto& other) {
                return document->shingles.IsSimilar(other->shingles, duplicateFactor);
            })) {
            --answer.totalWithoutDuplicates;
            dropped = true;
            if (++duplicates < kDuplicatesBeforeGivingUp) continue;
            if (results.size() < count) answer.total = answer.totalWithoutDuplicates = uint32_t(results.size());
            break;
        }
        duplicates = 0;
        kept.push_back(document);
        ++accepted;
        // Summaries and highlights come with the contextual summaries; the record carries none yet.
        if (index >= first && results.size() < count)
            results.emplace_back(document, sortCriteria, weight.score, weight.relevancePercent,
                                 weight.fixedResultOrder, document->firstDate, document->secondDate,
                                 std::vector<Sentence>{}, weight.isFixedResult, Vantu::FastVector<Highlight>{},
                                 Vantu::FastVector<Highlight>{});
        ++index;
    }
    return dropped;
}

Vantu::SmartPtrToConst<IndexedDocument> Sarvane::LoadDocument(unsigned int id, const std::vector<SarcIdentity>&,
                                                              bool idIsInternal) const {
    VantuThread::ReadLocker files(filesLock_);
    if (!started_) throw SarIndexNotStarted();
    {
        ConfigRead hold(*config_);
        // Without the store of access lists no document can be shown to a slice that must check them.
        if (config_->GetDocumentLevelSecurity()) return nullptr;
    }
    const uint32_t documentId = idIsInternal ? id : stores_->documentIdMap->GetDocId(id);
    if (documentId == FileDocIdIndexId::kNoDocument) return nullptr;
    return stores_->documents->LoadDocument(documentId);
}

}  // namespace Ostrel
