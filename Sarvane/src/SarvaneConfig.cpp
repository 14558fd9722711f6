#include "SarvaneConfig.h"

#include <algorithm>

#include "SarException.h"
#include "SarvaneConfigValues.h"

namespace Ostrel {

namespace {

struct SizeRule {
    uint32_t defaultBytes;
    uint32_t maxBytes;
    bool zeroRefused;
};

constexpr SizeRule kSizeRules[SarvaneConfig::kSizeCount] = {
#define SARVANE_CONFIG_SIZE_RULE(name, def, max, refused) {def, max, refused},
    SARVANE_CONFIG_SIZES(SARVANE_CONFIG_SIZE_RULE)
#undef SARVANE_CONFIG_SIZE_RULE
};

}  // namespace

SarvaneConfig::SarvaneConfig() {
    for (uint32_t i = 0; i < kSizeCount; ++i) sizes_[i] = kSizeRules[i].defaultBytes;
    ValidateUnderReadLock();
}

SarvaneConfig::SarvaneConfig(uint16_t physical, uint16_t mirror, uint16_t slice)
    : physicalID_(physical), mirrorID_(mirror), sliceID_(slice) {
    for (uint32_t i = 0; i < kSizeCount; ++i) sizes_[i] = kSizeRules[i].defaultBytes;
    sizes_[kSecurityInfoCacheSize] = 0x40000;
    ValidateUnderReadLock();
}

void SarvaneConfig::ValidateUnderReadLock() {
    SarvaneConfigReadLock<SarvaneConfig> hold(*this);
    ValidateConfig();
}

void SarvaneConfig::ValidateConfig() {
    for (uint32_t i = 0; i < kSizeCount; ++i) sizes_[i] = std::min(sizes_[i], kSizeRules[i].maxBytes);
    documentDuplicateFactor_ = std::min<uint32_t>(documentDuplicateFactor_, 100);
    bool refused = maximumTermsPerQuery_ == 0;
    for (uint32_t i = 0; i < kSizeCount; ++i) refused = refused || (kSizeRules[i].zeroRefused && sizes_[i] == 0);
    if (refused) throw SarInvalidConfiguration(SAR_MESSAGE(12));
}

void SarvaneConfig::SetSize(Size size, uint32_t kilobytes) {
    sizes_[size] = SarKilobytesToBytes(kilobytes);
    ValidateConfig();
}

void SarvaneConfig::SetDocumentDuplicateFactor(uint32_t percent) {
    documentDuplicateFactor_ = percent;
    ValidateConfig();
}

std::string SarvaneConfig::GetIndexFilesPathAsString() const { return SarNarrowPath(indexFilesPath_); }

void SarvaneConfig::SetIndexFilesPath(const std::u16string& path) {
    indexFilesPath_ = path;
    SarCheckIndexPath(path);
}

VantuThread::Priority SarvaneConfig::ToThreadPriority(Priority priority) {
    static constexpr VantuThread::Priority kMap[] = {
        VantuThread::Priority::Lowest, VantuThread::Priority::BelowNormal, VantuThread::Priority::Normal,
        VantuThread::Priority::AboveNormal, VantuThread::Priority::Highest, VantuThread::Priority::TimeCritical};
    auto index = static_cast<uint32_t>(priority);
    if (index >= std::size(kMap)) throw SarInvalidConfiguration(SAR_MESSAGE(12));
    return kMap[index];
}

bool SarvaneConfig::ValidRunningModifications(const SarvaneConfig& n) const {
    return physicalID_ == n.physicalID_ && mirrorID_ == n.mirrorID_ && sliceID_ == n.sliceID_ &&
           std::equal(std::begin(sizes_), std::end(sizes_), std::begin(n.sizes_)) &&
           transactionsKeep_ == n.transactionsKeep_ && documentLevelSecurity_ == n.documentLevelSecurity_ &&
           indexFilesPath_ == n.indexFilesPath_ && idString_ == n.idString_ &&
           enableWordCorrectorLexicon_ == n.enableWordCorrectorLexicon_ && stemmingType_ == n.stemmingType_;
}

}  // namespace Ostrel
