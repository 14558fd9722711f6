#include "SarvaneContainerConfig.h"

#include <algorithm>

#include "SarException.h"
#include "SarvaneConfigValues.h"
#include "file/BinaryStream.h"

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

namespace {

using Stream = Vantu::BinaryStreamT<unsigned int>;

void PutQueries(Stream& stream, const std::vector<std::u16string>& queries) {
    stream << uint32_t(queries.size());
    for (const std::u16string& query : queries) stream << query;
}

void GetQueries(Stream& stream, std::vector<std::u16string>& queries) {
    uint32_t count;
    stream >> count;
    for (std::u16string query; count > 0; --count) {
        stream >> query;
        queries.push_back(query);
    }
}

void PutKeys(Stream& stream, const std::vector<FixedResultDocumentKey>& keys) {
    stream << uint32_t(keys.size());
    for (const FixedResultDocumentKey& key : keys)
        stream << key.uri << key.order << key.collection << key.source << key.caseSensitive;
}

void GetKeys(Stream& stream, std::vector<FixedResultDocumentKey>& keys) {
    uint32_t count;
    stream >> count;
    for (FixedResultDocumentKey key; count > 0; --count) {
        stream >> key.uri >> key.order >> key.collection >> key.source >> key.caseSensitive;
        keys.push_back(key);
    }
}

}  // namespace

Stream& operator<<(Stream& stream, const SarvaneContainerConfig& c) {
    stream << c.configPath_ << c.indexFilesPath_ << uint32_t(c.queryPriority_) << uint32_t(c.indexingPriority_);
    stream << c.mapiProfile_ << c.numberOfQueryThreads_ << c.documentDuplicateFactor_ << c.flag_;
    stream << c.uriCacheSize_ << c.uriInfoGrowSize_ << c.uriInfoCacheSize_ << c.transactionsUpdateFrequency_
           << c.transactionsMaxDocumentsSize_;
    stream << uint32_t(c.fixedResults_.size());
    for (const auto& [physical, pins] : c.fixedResults_) {
        stream << physical << uint32_t(pins.size());
        for (const auto& [queries, keys] : pins) {
            PutQueries(stream, queries);
            PutKeys(stream, keys);
        }
    }
    stream << c.enableNetrova_ << c.reserved_ << c.minimumDiskSpace_;
    return stream;
}

Stream& operator>>(Stream& stream, SarvaneContainerConfig& c) {
    uint32_t query, indexing, count;
    stream >> c.configPath_ >> c.indexFilesPath_ >> query >> indexing;
    c.queryPriority_ = VantuThread::Priority(int32_t(query));
    c.indexingPriority_ = VantuThread::Priority(int32_t(indexing));
    stream >> c.mapiProfile_ >> c.numberOfQueryThreads_ >> c.documentDuplicateFactor_ >> c.flag_;
    stream >> c.uriCacheSize_ >> c.uriInfoGrowSize_ >> c.uriInfoCacheSize_ >> c.transactionsUpdateFrequency_ >>
        c.transactionsMaxDocumentsSize_;
    stream >> count;
    c.fixedResults_.clear();
    for (uint16_t physical; count > 0; --count) {
        uint32_t n;
        stream >> physical >> n;
        auto& pins = c.fixedResults_[physical];
        for (; n > 0; --n) {
            pins.emplace_back();
            GetQueries(stream, pins.back().first);
            GetKeys(stream, pins.back().second);
        }
    }
    stream >> c.enableNetrova_ >> c.reserved_ >> c.minimumDiskSpace_;
    return stream;
}

}  // namespace Ostrel
