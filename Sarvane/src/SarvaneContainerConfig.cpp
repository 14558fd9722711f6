#include "SarvaneContainerConfig.h"

#include <algorithm>

#include "SarException.h"
#include "SarvaneConfigValues.h"

namespace Ostrel {

SarvaneContainerConfig::SarvaneContainerConfig(const std::u16string& configPath, const std::u16string& indexFilesPath,
                                               uint32_t numberOfQueryThreads, uint32_t documentDuplicateFactor,
                                               VantuThread::Priority queryPriority,
                                               VantuThread::Priority indexingPriority,
                                               const std::u16string& mapiProfile)
    : configPath_(configPath),
      indexFilesPath_(indexFilesPath),
      queryPriority_(queryPriority),
      indexingPriority_(indexingPriority),
      mapiProfile_(mapiProfile),
      numberOfQueryThreads_(numberOfQueryThreads),
      documentDuplicateFactor_(documentDuplicateFactor) {
    SarCheckIndexPath(indexFilesPath);
    ValidateConfig();
}

void SarvaneContainerConfig::ValidateConfig() {
    numberOfQueryThreads_ = std::min<uint32_t>(numberOfQueryThreads_, 20);
    documentDuplicateFactor_ = std::min<uint32_t>(documentDuplicateFactor_, 100);
    uriCacheSize_ = std::min<uint32_t>(uriCacheSize_, 0x40000000);
    uriInfoGrowSize_ = std::min<uint32_t>(uriInfoGrowSize_, 0x1900000);
    uriInfoCacheSize_ = std::min<uint32_t>(uriInfoCacheSize_, 0xA00000);
    transactionsUpdateFrequency_ = std::max<uint32_t>(transactionsUpdateFrequency_, 10);
    transactionsMaxDocumentsSize_ = std::min<uint32_t>(transactionsMaxDocumentsSize_, 0x40000000);
    if (configPath_.empty() || indexFilesPath_.empty() || numberOfQueryThreads_ == 0 || uriCacheSize_ == 0 ||
        uriInfoGrowSize_ == 0 || uriInfoCacheSize_ == 0 || transactionsMaxDocumentsSize_ == 0)
        throw SarInvalidConfiguration(SAR_MESSAGE(12));
}

bool SarvaneContainerConfig::ValidRunningModifications(const SarvaneContainerConfig& n) const {
    return configPath_ == n.configPath_ && indexFilesPath_ == n.indexFilesPath_ && uriCacheSize_ == n.uriCacheSize_ &&
           uriInfoGrowSize_ == n.uriInfoGrowSize_ && uriInfoCacheSize_ == n.uriInfoCacheSize_;
}

std::string SarvaneContainerConfig::GetConfigPathAsString() const { return SarNarrowPath(configPath_); }
std::string SarvaneContainerConfig::GetIndexFilesPathAsString() const { return SarNarrowPath(indexFilesPath_); }

void SarvaneContainerConfig::SetIndexFilesPath(const std::u16string& path) {
    indexFilesPath_ = path;
    SarCheckIndexPath(path);
}

void SarvaneContainerConfig::SetNumberOfQueryThreads(uint32_t threads) {
    numberOfQueryThreads_ = threads;
    ValidateConfig();
}

void SarvaneContainerConfig::SetDocumentDuplicateFactor(uint32_t percent) {
    documentDuplicateFactor_ = percent;
    ValidateConfig();
}

void SarvaneContainerConfig::SetURICacheSize(uint32_t kilobytes) {
    uriCacheSize_ = SarKilobytesToBytes(kilobytes);
    ValidateConfig();
}

void SarvaneContainerConfig::SetURIInfoGrowSize(uint32_t kilobytes) {
    uriInfoGrowSize_ = SarKilobytesToBytes(kilobytes);
    ValidateConfig();
}

void SarvaneContainerConfig::SetURIInfoCacheSize(uint32_t kilobytes) {
    uriInfoCacheSize_ = SarKilobytesToBytes(kilobytes);
    ValidateConfig();
}

void SarvaneContainerConfig::SetTransactionsMaxDocumentsSize(uint32_t kilobytes) {
    transactionsMaxDocumentsSize_ = SarKilobytesToBytes(kilobytes);
    ValidateConfig();
}

void SarvaneContainerConfig::SetTransactionsUpdateFrequency(uint32_t seconds) {
    transactionsUpdateFrequency_ = seconds;
    ValidateConfig();
}

}  // namespace Ostrel
