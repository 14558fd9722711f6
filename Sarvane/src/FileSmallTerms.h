// The documents that have each custom field: list N of "SmallTerms" is the small term 3000000000 + N of the
// Lexicon. Queries call GetValidDocuments from any thread; AddDocuments and the transaction calls come from one.
#pragma once

#include "FileDocIDList.h"

namespace Ostrel {

class FileSmallTerms : public FileDocIDList, public Vantu::SPRefCounter {
public:
    static constexpr const char* kFileName = "SmallTerms";
    static constexpr uint32_t kFirstSmallTerm = 3000000000u;

    FileSmallTerms(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly);

    // `documents` ascending; one call per term in a transaction.
    void AddDocuments(const uint32_t& termId, const Vantu::FastVector<unsigned int>& documents);
    // ORs the term's documents into `documents`; a term without documents changes nothing.
    void GetValidDocuments(const uint32_t& termId, VantuAlgo::BitVector& documents) const;
    // Compaction with the small terms renumbered from 3000000000 up: appends the terms left empty to
    // `deletedTerms` and the moves to `termPairs`, behind the large terms' entries, so both stay ascending.
    void Shrink(const std::u16string& path, const Vantu::FastVector<unsigned int>& deletedDocuments,
                const Pairs& documentPairs, Vantu::FastVector<unsigned int>& deletedTerms, Pairs& termPairs,
                const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log, const bool& cancel);
};

}  // namespace Ostrel
