#include "ThreadedQuery.h"

#include <algorithm>

#include "SarException.h"
#include "core/Text.h"

namespace Ostrel {

ThreadedQuery::ThreadedQuery(const SarvaneCallInterface& slice, const std::vector<SarcIdentity>& networkIds,
                             std::u16string query, std::u16string extraQuery, std::vector<uint16_t> collections,
                             unsigned count, bool filterDuplicates, bool optimization, std::u16string preferredLanguage,
                             SortCriteria sortCriteria, uint32_t duplicateFactor)
    : slice_(slice),
      networkIds_(networkIds),
      query_(std::move(query)),
      extraQuery_(std::move(extraQuery)),
      collections_(std::move(collections)),
      count_(count),
      filterDuplicates_(filterDuplicates),
      optimization_(optimization),
      preferredLanguage_(std::move(preferredLanguage)),
      sortCriteria_(sortCriteria),
      duplicateFactor_(duplicateFactor) {}

void ThreadedQuery::Run() {
    try {
        duplicatesDropped_ = slice_.PerformQuery(query_, extraQuery_, networkIds_, collections_, results_, 0, count_,
                                                 filterDuplicates_, optimization_, sortCriteria_, preferredLanguage_,
                                                 answer_);
    } catch (const Vantu::BaseException& e) {
        failure_.reset(e.Clone());
    } catch (const std::exception& e) {
        failure_ = std::make_unique<SarQueryException>(Vantu::MessageInfo::FromText(Vantu::FromUtf8(e.what())));
    } catch (...) {
        failure_ = std::make_unique<SarException>(u"UNEXPECTED ERROR");
    }
    doneEvent_.Post();
}

void ThreadedQuery::Collect(std::vector<IndexedDocumentWeight>& merged, QueryAnswer& answer, bool& duplicatesDropped) {
    const bool checkDuplicates = filterDuplicates_ && answer.total > 0;
    doneEvent_.Wait();
    if (failure_) failure_->Rethrow();
    const size_t before = merged.size();
    merged.reserve(before + results_.size());
    for (IndexedDocumentWeight& record : results_) {
        const auto& bag = record.GetDocument()->shingles;
        if (checkDuplicates && !bag.empty() &&
            std::any_of(merged.begin(), merged.begin() + before, [&](const IndexedDocumentWeight& other) {
                const auto& otherBag = other.GetDocument()->shingles;
                return !otherBag.empty() && bag.IsSimilar(otherBag, duplicateFactor_);
            })) {
            --answer_.totalWithoutDuplicates;
            duplicatesDropped_ = true;
            continue;
        }
        merged.push_back(std::move(record));
    }
    answer.total += answer_.total;
    answer.totalWithoutDuplicates += answer_.totalWithoutDuplicates;
    if (answer.ignoredTerms.empty()) answer.ignoredTerms = answer_.ignoredTerms;
    duplicatesDropped = duplicatesDropped || duplicatesDropped_;
    answer.more = answer.more || answer_.more;
    // The last slice decides.
    answer.exception = answer_.exception;
}

}  // namespace Ostrel
