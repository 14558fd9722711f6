// What the container asks of a slice; the container reaches its slices through nothing else.
// The container calls it from its own threads and the operation pool's workers; each slice guards itself.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "IndexedDocument.h"
#include "IndexedDocumentWeight.h"
#include "QueryException.h"
#include "SarvaneContainerAccess.h"
#include "SortCriteria.h"
#include "core/RefCounted.h"

namespace Vantu {
class LogCallInterface;
}

namespace Ostrel {

class SarvaneConfig;
struct SarvaneStatistics;

// What a query answers beside its records.
struct QueryAnswer {
    // The matches, less those deleted since; the second also less the duplicates dropped.
    unsigned total = 0;
    unsigned totalWithoutDuplicates = 0;
    double seconds = 0;
    // The query's stop words, as the user wrote them.
    std::vector<std::u16string> ignoredTerms;
    // A bad query text: what the parser built is still answered.
    QueryException exception;
    // The deferred checks stopped at their limit: more documents may match.
    bool more = false;
};

class SarvaneCallInterface {
public:
    virtual ~SarvaneCallInterface() = default;

    virtual void Start(bool readOnly) = 0;
    virtual void Stop(bool abortTransaction) = 0;
    virtual void DeleteIndex() = 0;
    virtual void Initialize(Vantu::LogCallInterface* log) = 0;
    virtual void PreCommit() = 0;
    virtual void Commit() = 0;
    virtual void DoRecovery(bool recover) = 0;
    // Pairs of (document id, collection).
    virtual void DeleteDocuments(const std::vector<std::pair<unsigned int, uint16_t>>& documents) = 0;
    virtual unsigned int GetPendingTransactions() const = 0;
    // Puts this slice's numbers into `out` under its (physical, mirror, slice) ids; needs a started slice.
    virtual void GetStatistics(SarvaneStatistics& out) const = 0;
    virtual void ApplyShrink() = 0;
    virtual void CancelShrink() = 0;
    virtual void DeleteShrink() = 0;
    virtual void SetSarvaneConfig(const SarvaneConfig& config) = 0;
    virtual void AddFixedResult(const std::u16string& query, const std::u16string& uri, uint16_t order,
                                unsigned int documentId, uint16_t collection, uint16_t source) = 0;
    virtual void ClearFixedResults() = 0;
    virtual void Flush() = 0;
    virtual void ClearFieldAliases() = 0;
    virtual void AddFieldAlias(const std::u16string& alias, const std::u16string& field) = 0;
    // 0xFF when the slice does not know the field.
    virtual unsigned char GetCustomFieldType(const std::string& field) const = 0;
    virtual bool IsCustomFieldRankable(const std::string& field) const = 0;
    virtual void AddSupportedCollection(uint16_t collection) = 0;
    virtual void RemoveSupportedCollection(uint16_t collection) = 0;
    virtual void CheckForRecovery() const = 0;
    virtual std::u16string GetHostName() const = 0;
    virtual uint64_t GetDiskSpaceUsed() const = 0;
    virtual bool HasEnoughFreeSpaceToShrink() const = 0;
    virtual std::u16string GetIndexFilesPath() const = 0;

    // The records `first` to first + count of the slice's answer to a query, within `collections` (all when
    // empty); true when a duplicate was dropped.
    virtual bool PerformQuery(const std::u16string& query, const std::u16string& extraQuery,
                              const std::vector<SarcIdentity>& networkIds, const std::vector<uint16_t>& collections,
                              std::vector<IndexedDocumentWeight>& results, unsigned first, unsigned count,
                              bool filterDuplicates, bool optimization, SortCriteria sortCriteria,
                              const std::u16string& preferredLanguage, QueryAnswer& answer) const = 0;
    // The stored document of `id`, the slice's own when `idIsInternal`, else an index document id; null for none.
    virtual Vantu::SmartPtrToConst<IndexedDocument> LoadDocument(unsigned int id,
                                                                 const std::vector<SarcIdentity>& networkIds,
                                                                 bool idIsInternal) const = 0;
};

}  // namespace Ostrel
