// One slice's map from the container's index document ids to the slice's dense document ids (0 to 0xFFFFFE),
// and the counter that gives the next one. Any thread: one section guards the tree and the counter.
#pragma once

#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "SarvaneInternalConfig.h"
#include "core/FastVector.h"
#include "core/RefCounted.h"
#include "store/BTreeMap.h"

namespace Ostrel {

class FileDocIdIndexId : public Vantu::SPRefCounter {
public:
    static constexpr const char* kFileName = "DocIdIndexId.uri";
    // The limit of a slice, and the answer for an index document id the slice doesn't hold.
    static constexpr uint32_t kNoDocument = 0xFFFFFF;

    // Opens the tree; the counter is valid only after RecoveryDone.
    FileDocIdIndexId(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly);

    // Gives the next document id to `indexDocumentId`; past 0xFFFFFE raises SarTooManyDocuments (30).
    uint32_t AddDocument(uint32_t indexDocumentId);
    // `documents` ascending by index document id; appends (document id, collection) of those held to `resolved`.
    void DeleteDocuments(const std::vector<std::pair<uint32_t, uint16_t>>& documents,
                         std::vector<std::pair<uint32_t, uint16_t>>& resolved);
    // For each index document id in ascending order, its document id; ids not held add nothing.
    void GetDocIds(const Vantu::FastVector<uint32_t>& indexDocumentIds, Vantu::FastVector<uint32_t>& documentIds) const;
    uint32_t GetDocId(const uint32_t& indexDocumentId) const;
    uint32_t GetCurrentDocId() const;

    // PreCommit saves the counter in the tree first, so a committed tree always carries its own counter.
    void PreCommit();
    void Commit();
    void Rollback();
    // Takes the counter back from the tree: after a rollback, ids of the abandoned writes are given again.
    void RecoveryDone();
    uint64_t GetDiskSpaceUsed() const;

private:
    using Tree = VantuBTree::BTreeMap<uint32_t, uint32_t>;
    // The record that holds the counter; no index document id reaches it.
    static constexpr uint32_t kCounterKey = 0xFFFFFFFF;

    const Vantu::SmartPtr<SarvaneInternalConfig> config_;
    const bool readOnly_;
    uint32_t nextDocumentId_ = 0;
    mutable Tree tree_;
    mutable std::mutex section_;
};

}  // namespace Ostrel
