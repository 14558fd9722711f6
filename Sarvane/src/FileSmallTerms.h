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
};

}  // namespace Ostrel
