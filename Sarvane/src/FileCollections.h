// The documents of each collection: list N of "Collections" is collection N. Changes gather in memory and
// reach the list file at PreCommit. Queries call GetValidDocuments from any thread; the rest comes from one.
#pragma once

#include <map>
#include <utility>

#include "FileDocIDList.h"

namespace Ostrel {

class FileCollections : public FileDocIDList, public Vantu::SPRefCounter {
public:
    static constexpr const char* kFileName = "Collections";

    FileCollections(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly);

    void AddDocument(unsigned int documentId, unsigned short collection);
    void DeleteDocument(unsigned int documentId, unsigned short collection);
    void PreCommit(const bool& cancel);
    void Rollback();
    // ORs into `documents` the lists named, or every list when `collections` is empty.
    void GetValidDocuments(const Vantu::FastVector<unsigned short>& collections, VantuAlgo::BitVector& documents) const;
    // Compaction: every collection keeps its id.
    void Shrink(const std::u16string& path, const Vantu::FastVector<unsigned int>& deletedDocuments,
                const Pairs& documentPairs, const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log,
                const bool& cancel);

private:
    using Ids = Vantu::FastVector<unsigned int>;

    void OrList(uint32_t listId, VantuAlgo::BitVector& documents) const;

    std::map<unsigned short, std::pair<Ids, Ids>> changes_;  // additions, removals
};

}  // namespace Ostrel
