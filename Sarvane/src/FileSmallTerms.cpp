#include "FileSmallTerms.h"

#include "SarStoreFiles.h"

namespace Ostrel {

FileSmallTerms::FileSmallTerms(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly)
    : FileDocIDList(config, kFileName, SarStoreSize(*config, SarvaneConfig::kSmallTermsIndexGrowSize),
                    SarStoreSize(*config, SarvaneConfig::kSmallTermsCacheSize), true, readOnly) {}

void FileSmallTerms::AddDocuments(const uint32_t& termId, const Vantu::FastVector<unsigned int>& documents) {
    AddInfo(termId - kFirstSmallTerm, documents, {});
}

void FileSmallTerms::GetValidDocuments(const uint32_t& termId, VantuAlgo::BitVector& documents) const {
    Vantu::RefCountToConst<VantuAlgo::BitVector> vector;
    LoadBitVector(termId - kFirstSmallTerm, vector);
    if (vector) documents |= *vector;
}

void FileSmallTerms::Shrink(const std::u16string& path, const Vantu::FastVector<unsigned int>& deletedDocuments,
                            const Pairs& documentPairs, Vantu::FastVector<unsigned int>& deletedTerms,
                            Pairs& termPairs, const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log,
                            const bool& cancel) {
    Vantu::FastVector<unsigned int> deletedLists;
    Pairs listPairs;
    FileDocIDList::Shrink(path, deletedDocuments, documentPairs, deletedLists, listPairs, true, log, cancel);
    if (cancel) return;
    for (unsigned int list : deletedLists) deletedTerms.push_back(list + kFirstSmallTerm);
    for (auto [from, to] : listPairs) termPairs.emplace_back(from + kFirstSmallTerm, to + kFirstSmallTerm);
}

}  // namespace Ostrel
