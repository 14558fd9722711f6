// One slice's part of a container query: it runs on a query pool's thread and keeps the slice's answer, or what
// the slice raised, until the container collects it. Filled once by the pool thread, then read by the collector.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "IndexedDocumentWeight.h"
#include "SarvaneCallInterface.h"
#include "core/EventSemaphore.h"
#include "core/Exception.h"

namespace Ostrel {

class ThreadedQuery {
public:
    // `networkIds` must outlive the query: the container keeps them for the whole call.
    ThreadedQuery(const SarvaneCallInterface& slice, const std::vector<SarcIdentity>& networkIds, std::u16string query,
                  std::u16string extraQuery, std::vector<uint16_t> collections, unsigned count, bool filterDuplicates,
                  bool optimization, std::u16string preferredLanguage, SortCriteria sortCriteria,
                  uint32_t duplicateFactor);

    // The pool's function: the slice's records 0 to count, always ending with doneEvent set.
    void Run();
    // Until the slice answered or failed.
    void Wait() { doneEvent_.Wait(); }
    // Waits for the answer, raises what the slice raised, then appends its records to `merged`: with duplicates
    // filtered, a record similar to one that stood in `merged` before this slice's turn is dropped.
    void Collect(std::vector<IndexedDocumentWeight>& merged, QueryAnswer& answer, bool& duplicatesDropped);

private:
    const SarvaneCallInterface& slice_;
    const std::vector<SarcIdentity>& networkIds_;
    const std::u16string query_;
    const std::u16string extraQuery_;
    const std::vector<uint16_t> collections_;
    const unsigned count_;
    const bool filterDuplicates_;
    const bool optimization_;
    const std::u16string preferredLanguage_;
    const SortCriteria sortCriteria_;
    const uint32_t duplicateFactor_;

    std::vector<IndexedDocumentWeight> results_;
    QueryAnswer answer_;
    bool duplicatesDropped_ = false;
    // A copy of what the slice raised: the collector raises a copy of its own, so no exception object is shared
    // between the two threads.
    std::unique_ptr<Vantu::BaseException> failure_;
    VantuThread::EventSemaphore doneEvent_{true, false};
};

}  // namespace Ostrel
