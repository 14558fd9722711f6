#include "RankingEngineConfig.h"

#include "SarException.h"
#include "file/BinaryStream.h"

namespace Ostrel {

namespace {

using Stream = Vantu::BinaryStreamT<unsigned int>;

constexpr uint32_t kReputationPoints[RankingEngineConfigSourceInfo::kReputationLevels] = {0,   25,  60,  100,
                                                                                          125, 150, 175, 200};

}  // namespace

uint32_t RankingEngineConfigSourceInfo::ReputationPoints() const {
    return reputation_ < kReputationLevels ? kReputationPoints[reputation_] : 0;
}

void RankingEngineConfig::SetNumberOfResultsToRefine(uint32_t value) {
    const uint32_t old = NumberOfResultsToRefine_;
    NumberOfResultsToRefine_ = value;
    Revalidate([&] { NumberOfResultsToRefine_ = old; });
}

void RankingEngineConfig::AddRankingEngineConfigSourceInfo(uint16_t collection, uint16_t source,
                                                           const RankingEngineConfigSourceInfo& info) {
    sourceInfo_.emplace(SourceKey(collection, source), info);
}

void RankingEngineConfig::UpdateRankingEngineConfigSourceInfo(uint16_t collection, uint16_t source,
                                                              const RankingEngineConfigSourceInfo& info) {
    sourceInfo_[SourceKey(collection, source)] = info;
}

void RankingEngineConfig::RemoveRankingEngineConfigSourceInfo(uint16_t collection, uint16_t source) {
    sourceInfo_.erase(SourceKey(collection, source));
}

const RankingEngineConfigSourceInfo* RankingEngineConfig::FindSourceInfo(uint16_t collection, uint16_t source) const {
    const auto it = sourceInfo_.find(SourceKey(collection, source));
    return it == sourceInfo_.end() ? nullptr : &it->second;
}

void RankingEngineConfig::ValidateConfig() const {
#define RANKING_CHECK(name) \
    if (name##_ > kMaximumMultiplier) throw SarInvalidConfiguration(SAR_MESSAGE(18, kMaximumMultiplier));
    RANKING_MULTIPLIERS_BEFORE_REFINE(RANKING_CHECK)
    RANKING_MULTIPLIERS_AFTER_REFINE(RANKING_CHECK)
#undef RANKING_CHECK
    if (NumberOfResultsToRefine_ > kMaximumResultsToRefine)
        throw SarInvalidConfiguration(SAR_MESSAGE(21, kMaximumResultsToRefine));
}

Stream& operator<<(Stream& stream, const RankingEngineConfig& c) {
#define RANKING_PUT(name) stream << c.name##_;
    RANKING_MULTIPLIERS_BEFORE_REFINE(RANKING_PUT)
    stream << c.NumberOfResultsToRefine_;
    RANKING_MULTIPLIERS_AFTER_REFINE(RANKING_PUT)
#undef RANKING_PUT
    stream << uint32_t(c.sourceInfo_.size());
    for (const auto& [key, info] : c.sourceInfo_)
        stream << key.first << key.second << info.GetSchemeType() << info.GetReputation();
    return stream;
}

Stream& operator>>(Stream& stream, RankingEngineConfig& config) {
    RankingEngineConfig c;
#define RANKING_GET(name) stream >> c.name##_;
    RANKING_MULTIPLIERS_BEFORE_REFINE(RANKING_GET)
    stream >> c.NumberOfResultsToRefine_;
    RANKING_MULTIPLIERS_AFTER_REFINE(RANKING_GET)
#undef RANKING_GET
    uint32_t count;
    stream >> count;
    for (; count > 0; --count) {
        uint16_t collection, source;
        uint32_t scheme, reputation;
        stream >> collection >> source >> scheme >> reputation;
        c.sourceInfo_[RankingEngineConfig::SourceKey(collection, source)] =
            RankingEngineConfigSourceInfo(scheme, reputation);
    }
    c.ValidateConfig();
    config = std::move(c);
    return stream;
}

}  // namespace Ostrel
