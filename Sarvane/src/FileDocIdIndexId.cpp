#include "FileDocIdIndexId.h"

#include <algorithm>

#include "SarException.h"
#include "SarStoreFiles.h"

namespace Ostrel {

namespace {

constexpr uint32_t kPageSize = 0x10000;

}  // namespace

FileDocIdIndexId::FileDocIdIndexId(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly)
    : config_(config),
      readOnly_(readOnly),
      tree_(SarStorePath(*config, kFileName), kPageSize, SarStoreSize(*config, SarvaneConfig::kDocIdIndexIdCacheSize),
            readOnly) {}

uint32_t FileDocIdIndexId::AddDocument(uint32_t indexDocumentId) {
    std::lock_guard<std::mutex> hold(section_);
    if (nextDocumentId_ == kNoDocument) throw SarTooManyDocuments(SAR_MESSAGE(30));
    const uint32_t id = nextDocumentId_;
    tree_.Insert(indexDocumentId, id);
    ++nextDocumentId_;
    return id;
}

void FileDocIdIndexId::DeleteDocuments(const std::vector<std::pair<uint32_t, uint16_t>>& documents,
                                       std::vector<std::pair<uint32_t, uint16_t>>& resolved) {
    std::lock_guard<std::mutex> hold(section_);
    // The batch is sorted, so after an erase the next record is often the next key: no search for a run.
    Tree::iterator at = tree_.end();
    for (const auto& [indexDocumentId, collection] : documents) {
        if (at == tree_.end() || at->first != indexDocumentId) at = tree_.Find(indexDocumentId);
        if (at == tree_.end()) continue;
        resolved.emplace_back(at->second, collection);
        bool nextValid = false;
        Tree::iterator next;
        tree_.Erase(at, nextValid, next);
        at = nextValid ? next : tree_.end();
    }
}

void FileDocIdIndexId::GetDocIds(const Vantu::FastVector<uint32_t>& indexDocumentIds,
                                 Vantu::FastVector<uint32_t>& documentIds) const {
    std::lock_guard<std::mutex> hold(section_);
    for (const uint32_t key : indexDocumentIds) {
        const Tree::iterator found = tree_.Find(key);
        if (found != tree_.end()) documentIds.push_back(found->second);
    }
}

uint32_t FileDocIdIndexId::GetDocId(const uint32_t& indexDocumentId) const {
    std::lock_guard<std::mutex> hold(section_);
    const Tree::iterator found = tree_.Find(indexDocumentId);
    return found == tree_.end() ? kNoDocument : found->second;
}

uint32_t FileDocIdIndexId::GetCurrentDocId() const {
    std::lock_guard<std::mutex> hold(section_);
    return nextDocumentId_;
}

void FileDocIdIndexId::PreCommit() {
    std::lock_guard<std::mutex> hold(section_);
    const Tree::iterator counter = tree_.Find(kCounterKey);
    if (counter == tree_.end())
        tree_.Insert(kCounterKey, nextDocumentId_);
    else
        tree_.Update(counter, nextDocumentId_);
    tree_.PreCommit();
}

void FileDocIdIndexId::Commit() {
    std::lock_guard<std::mutex> hold(section_);
    tree_.Commit();
}

void FileDocIdIndexId::Rollback() {
    std::lock_guard<std::mutex> hold(section_);
    tree_.Rollback();
}

void FileDocIdIndexId::RecoveryDone() {
    std::lock_guard<std::mutex> hold(section_);
    if (tree_.GetRecordCount() == 0) {
        nextDocumentId_ = 0;
        if (!readOnly_) tree_.Insert(kCounterKey, 0u);
        return;
    }
    const Tree::iterator counter = tree_.Find(kCounterKey);
    if (counter != tree_.end()) {
        nextDocumentId_ = counter->second;
        return;
    }
    // Every committed tree carries its counter; one that doesn't must at least not give out an id twice.
    nextDocumentId_ = 0;
    for (Tree::iterator at = tree_.Begin(); at != tree_.end(); ++at)
        nextDocumentId_ = std::max(nextDocumentId_, at->second + 1);
}

uint64_t FileDocIdIndexId::GetDiskSpaceUsed() const {
    std::lock_guard<std::mutex> hold(section_);
    return tree_.GetSizeInBytes();
}

}  // namespace Ostrel
