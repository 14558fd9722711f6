// The settings of a container: paths, pools, the URI store's sizes and the commit's limits, clamped when set.
// The record does not lock by itself: whoever shares one takes its ReadLock/WriteLock around the whole access.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "FixedResultDocumentKey.h"
#include "SarvaneConfigLock.h"
#include "core/Thread.h"

namespace Vantu {
template <class T>
class BinaryStreamT;
}

namespace Ostrel {

class SarvaneContainerConfig {
public:
    // By physical index: pairs of (queries, documents pinned to all of those queries).
    using FixedResultsMap =
        std::map<uint16_t, std::vector<std::pair<std::vector<std::u16string>, std::vector<FixedResultDocumentKey>>>>;

    // Does not validate: the paths are still empty.
    SarvaneContainerConfig() = default;
    // Refuses an existing index path that is no directory (message 15), then validates.
    SarvaneContainerConfig(const std::u16string& configPath, const std::u16string& indexFilesPath,
                           uint32_t numberOfQueryThreads, uint32_t documentDuplicateFactor,
                           VantuThread::Priority queryPriority, VantuThread::Priority indexingPriority,
                           const std::u16string& mapiProfile);
    SarvaneContainerConfig(const SarvaneContainerConfig&) = default;
    SarvaneContainerConfig& operator=(const SarvaneContainerConfig&) = default;

    bool operator==(const SarvaneContainerConfig&) const = default;
    // Whether `newConfig` may replace this record on a started container: the paths and the URI store's
    // sizes must stay; everything else may change.
    bool ValidRunningModifications(const SarvaneContainerConfig& newConfig) const;

    // Clamps, raises TransactionsUpdateFrequency to 10, then refuses empty paths and zeros (message 12).
    void ValidateConfig();

    void ReadLock() const { lock_.ReadLock(); }
    void ReadUnlock() const { lock_.ReadUnlock(); }
    void WriteLock() const { lock_.WriteLock(); }
    void WriteUnlock() const { lock_.WriteUnlock(); }

    const std::u16string& GetConfigPath() const { return configPath_; }
    std::string GetConfigPathAsString() const;
    void SetConfigPath(const std::u16string& path) { configPath_ = path; }
    const std::u16string& GetIndexFilesPath() const { return indexFilesPath_; }
    std::string GetIndexFilesPathAsString() const;
    // Stores the path, then refuses one that exists and is no directory (message 15).
    void SetIndexFilesPath(const std::u16string& path);

    VantuThread::Priority GetQueryPriority() const { return queryPriority_; }
    void SetQueryPriority(VantuThread::Priority priority) { queryPriority_ = priority; }
    VantuThread::Priority GetIndexingPriority() const { return indexingPriority_; }
    void SetIndexingPriority(VantuThread::Priority priority) { indexingPriority_ = priority; }
    const std::u16string& GetMapiProfile() const { return mapiProfile_; }
    void SetMapiProfile(const std::u16string& profile) { mapiProfile_ = profile; }

    uint32_t GetNumberOfQueryThreads() const { return numberOfQueryThreads_; }
    void SetNumberOfQueryThreads(uint32_t threads);
    uint32_t GetDocumentDuplicateFactor() const { return documentDuplicateFactor_; }
    void SetDocumentDuplicateFactor(uint32_t percent);

    // Sizes in bytes; the setters take kilobytes.
    uint32_t GetURICacheSize() const { return uriCacheSize_; }
    void SetURICacheSize(uint32_t kilobytes);
    uint32_t GetURIInfoGrowSize() const { return uriInfoGrowSize_; }
    void SetURIInfoGrowSize(uint32_t kilobytes);
    uint32_t GetURIInfoCacheSize() const { return uriInfoCacheSize_; }
    void SetURIInfoCacheSize(uint32_t kilobytes);
    uint32_t GetTransactionsMaxDocumentsSize() const { return transactionsMaxDocumentsSize_; }
    void SetTransactionsMaxDocumentsSize(uint32_t kilobytes);
    // Seconds.
    uint32_t GetTransactionsUpdateFrequency() const { return transactionsUpdateFrequency_; }
    void SetTransactionsUpdateFrequency(uint32_t seconds);

    const FixedResultsMap& GetFixedResults() const { return fixedResults_; }
    FixedResultsMap& GetFixedResults() { return fixedResults_; }

    bool GetEnableNetrova() const { return enableNetrova_; }
    void SetEnableNetrova(bool value) { enableNetrova_ = value; }
    // Bytes, as they stand.
    uint64_t GetMinimumDiskSpace() const { return minimumDiskSpace_; }
    void SetMinimumDiskSpace(uint64_t bytes) { minimumDiskSpace_ = bytes; }

private:
    // The stream form has no version: a change of its field list breaks stored records. Reading does not validate.
    friend Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>&,
                                                          const SarvaneContainerConfig&);
    friend Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>&, SarvaneContainerConfig&);

    std::u16string configPath_;
    std::u16string indexFilesPath_;
    VantuThread::Priority queryPriority_ = VantuThread::Priority::AboveNormal;
    VantuThread::Priority indexingPriority_ = VantuThread::Priority::Normal;
    std::u16string mapiProfile_;
    uint32_t numberOfQueryThreads_ = 5;
    uint32_t documentDuplicateFactor_ = 85;
    // Has no accessor and no effect; it is streamed and compared only.
    bool flag_ = true;
    uint32_t uriCacheSize_ = 0x10000;
    uint32_t uriInfoGrowSize_ = 0x40000;
    uint32_t uriInfoCacheSize_ = 0x100000;
    uint32_t transactionsUpdateFrequency_ = 600;
    uint32_t transactionsMaxDocumentsSize_ = 0x1400000;
    FixedResultsMap fixedResults_;
    bool enableNetrova_ = false;
    // Streamed and compared; nothing reads it.
    uint32_t reserved_ = 1;
    uint64_t minimumDiskSpace_ = 0;
    SarvaneConfigLock lock_;
};

Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>& stream,
                                               const SarvaneContainerConfig& config);
Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>& stream,
                                               SarvaneContainerConfig& config);

}  // namespace Ostrel
