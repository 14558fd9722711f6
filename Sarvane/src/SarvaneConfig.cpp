#include "SarvaneConfig.h"

#include <algorithm>

#include "SarException.h"
#include "SarvaneConfigValues.h"
#include "file/BinaryStream.h"

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
           enableWordCorrectorLexicon_ == n.enableWordCorrectorLexicon_ && stemmingType_ == n.stemmingType_ &&
           stopWords_ == n.stopWords_;
}

namespace {

using Stream = Vantu::BinaryStreamT<unsigned int>;

void PutSizes(Stream& stream, const uint32_t* sizes, uint32_t first, uint32_t end) {
    for (uint32_t i = first; i < end; ++i) stream << sizes[i];
}

void GetSizes(Stream& stream, uint32_t* sizes, uint32_t first, uint32_t end) {
    for (uint32_t i = first; i < end; ++i) stream >> sizes[i];
}

void PutFieldSet(Stream& stream, const std::set<std::string>& fields) {
    stream << uint32_t(fields.size());
    for (const std::string& field : fields) stream << field;
}

void GetFieldSet(Stream& stream, std::set<std::string>& fields) {
    uint32_t count;
    stream >> count;
    fields.clear();
    for (std::string field; count > 0; --count) {
        stream >> field;
        fields.insert(field);
    }
}

}  // namespace

Stream& operator<<(Stream& stream, const SarvaneConfig& c) {
    stream << c.physicalID_ << c.mirrorID_ << c.sliceID_ << c.indexFilesPath_ << c.idString_;
    stream << uint32_t(c.indexingPriority_) << uint32_t(c.queryPriority_) << c.documentDuplicateFactor_;
    PutSizes(stream, c.sizes_, 0, SarvaneConfig::kFirstSecondGroup);
    stream << c.transactionsKeep_;
    PutSizes(stream, c.sizes_, SarvaneConfig::kFirstSecondGroup, SarvaneConfig::kFirstThirdGroup);
    stream << c.documentLevelSecurity_;
    PutSizes(stream, c.sizes_, SarvaneConfig::kFirstThirdGroup, SarvaneConfig::kSizeCount);
    stream << c.enableWordCorrectorLexicon_ << uint32_t(c.stemmingType_);
    stream << c.stopWords_;
    stream << c.highlightStopWords_ << c.maximumTermsPerQuery_;
    PutFieldSet(stream, c.rankingIgnoredField_);
    PutFieldSet(stream, c.stemmingIgnoredField_);
    stream << uint32_t(c.fixedResults_.size());
    for (const auto& [query, ids] : c.fixedResults_) {
        stream << query << uint32_t(ids.size());
        for (uint32_t id : ids) stream << id;
    }
    return stream;
}

Stream& operator>>(Stream& stream, SarvaneConfig& c) {
    uint32_t indexing, query, stemming, count;
    stream >> c.physicalID_ >> c.mirrorID_ >> c.sliceID_ >> c.indexFilesPath_ >> c.idString_;
    stream >> indexing >> query >> c.documentDuplicateFactor_;
    c.indexingPriority_ = VantuThread::Priority(int32_t(indexing));
    c.queryPriority_ = VantuThread::Priority(int32_t(query));
    GetSizes(stream, c.sizes_, 0, SarvaneConfig::kFirstSecondGroup);
    stream >> c.transactionsKeep_;
    GetSizes(stream, c.sizes_, SarvaneConfig::kFirstSecondGroup, SarvaneConfig::kFirstThirdGroup);
    stream >> c.documentLevelSecurity_;
    GetSizes(stream, c.sizes_, SarvaneConfig::kFirstThirdGroup, SarvaneConfig::kSizeCount);
    stream >> c.enableWordCorrectorLexicon_ >> stemming;
    c.stemmingType_ = VantuLanguage::Language::StemmingType(int32_t(stemming));
    stream >> c.stopWords_;
    stream >> c.highlightStopWords_ >> c.maximumTermsPerQuery_;
    GetFieldSet(stream, c.rankingIgnoredField_);
    GetFieldSet(stream, c.stemmingIgnoredField_);
    stream >> count;
    c.fixedResults_.clear();
    for (std::u16string query; count > 0; --count) {
        uint32_t n;
        stream >> query >> n;
        // Grown one id at a time: a damaged count ends the stream, never the memory.
        std::vector<uint32_t>& ids = c.fixedResults_[query];
        for (uint32_t id; n > 0; --n) {
            stream >> id;
            ids.push_back(id);
        }
    }
    c.ValidateConfig();
    return stream;
}

}  // namespace Ostrel
