#include "FileCollections.h"

#include "SarStoreFiles.h"

#include <algorithm>

namespace Ostrel {

FileCollections::FileCollections(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly)
    : FileDocIDList(config, kFileName, SarStoreSize(*config, SarvaneConfig::kCollectionsInfoGrowSize),
                    SarStoreSize(*config, SarvaneConfig::kCollectionsCacheSize), true, readOnly) {}

void FileCollections::AddDocument(unsigned int documentId, unsigned short collection) {
    changes_[collection].first.push_back(documentId);
}

void FileCollections::DeleteDocument(unsigned int documentId, unsigned short collection) {
    changes_[collection].second.push_back(documentId);
}

void FileCollections::PreCommit(const bool& cancel) {
    for (auto it = changes_.begin(); it != changes_.end() && !cancel; ++it) {
        auto& [additions, removals] = it->second;
        // The transaction reader need not meet documents in id order.
        for (Ids* ids : {&additions, &removals}) {
            std::sort(ids->begin(), ids->end());
            const size_t distinct = size_t(std::unique(ids->begin(), ids->end()) - ids->begin());
            while (ids->size() > distinct) ids->pop_back();
        }
        AddInfo(it->first, additions, removals);
    }
    changes_.clear();
    if (!cancel) FileDocIDList::PreCommit(cancel);
}

void FileCollections::Rollback() {
    changes_.clear();
    FileDocIDList::Rollback();
}

void FileCollections::GetValidDocuments(const Vantu::FastVector<unsigned short>& collections,
                                        VantuAlgo::BitVector& documents) const {
    if (!collections.empty()) {
        for (unsigned short collection : collections) OrList(collection, documents);
        return;
    }
    const uint32_t lists = GetMaxListID();
    for (uint32_t listId = 0; listId < lists; ++listId) OrList(listId, documents);
}

void FileCollections::Shrink(const std::u16string& path, const Vantu::FastVector<unsigned int>& deletedDocuments,
                             const Pairs& documentPairs, const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log,
                             const bool& cancel) {
    Vantu::FastVector<unsigned int> deletedLists;
    Pairs listPairs;
    FileDocIDList::Shrink(path, deletedDocuments, documentPairs, deletedLists, listPairs, false, log, cancel);
}

void FileCollections::OrList(uint32_t listId, VantuAlgo::BitVector& documents) const {
    Vantu::RefCountToConst<VantuAlgo::BitVector> vector;
    LoadBitVector(listId, vector);
    if (vector) documents |= *vector;
}

}  // namespace Ostrel
