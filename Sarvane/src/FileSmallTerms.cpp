#include "FileSmallTerms.h"

namespace Ostrel {

FileSmallTerms::FileSmallTerms(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly)
    : FileDocIDList(config, kFileName, ConfigSize(*config, SarvaneConfig::kSmallTermsIndexGrowSize),
                    ConfigSize(*config, SarvaneConfig::kSmallTermsCacheSize), true, readOnly) {}

void FileSmallTerms::AddDocuments(const uint32_t& termId, const Vantu::FastVector<unsigned int>& documents) {
    AddInfo(termId - kFirstSmallTerm, documents, {});
}

void FileSmallTerms::GetValidDocuments(const uint32_t& termId, VantuAlgo::BitVector& documents) const {
    Vantu::RefCountToConst<VantuAlgo::BitVector> vector;
    LoadBitVector(termId - kFirstSmallTerm, vector);
    if (vector) documents |= *vector;
}

}  // namespace Ostrel
