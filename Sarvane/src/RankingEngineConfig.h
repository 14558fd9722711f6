// The weights of relevance ranking: the multipliers, the number of results to refine, and what is known of each
// (collection, source). Validated on every change; a plain value, not synchronised: copy it to share it.
#pragma once

#include <cstdint>
#include <map>
#include <utility>

namespace Vantu {
template <class T>
class BinaryStreamT;
}

namespace Ostrel {

// What ranking knows of one source: how its URIs are reached and how far it is trusted.
class RankingEngineConfigSourceInfo {
public:
    enum Reputation : uint32_t { kReputationLevels = 8 };

    RankingEngineConfigSourceInfo() = default;
    RankingEngineConfigSourceInfo(uint32_t schemeType, uint32_t reputation)
        : schemeType_(schemeType), reputation_(reputation) {}

    uint32_t GetSchemeType() const { return schemeType_; }
    void SetSchemeType(uint32_t schemeType) { schemeType_ = schemeType; }
    uint32_t GetReputation() const { return reputation_; }
    void SetReputation(uint32_t reputation) { reputation_ = reputation; }
    // The points a document of the source earns, times SourceReputationMult; 0 past the table.
    uint32_t ReputationPoints() const;

    bool operator==(const RankingEngineConfigSourceInfo&) const = default;

private:
    uint32_t schemeType_ = 0;
    uint32_t reputation_ = 0;
};

// The multipliers in their stream order, NumberOfResultsToRefine standing between LanguageMult and TFIDFMult.
#define RANKING_MULTIPLIERS_BEFORE_REFINE(X) \
    X(TitleMult) X(ConceptMult) X(SummaryMult) X(URIMult) X(UnderlinedMult) X(BiggerFontMult) X(BoldMult) \
    X(CompanyServerMult) X(LastDirInURIMult) X(QualityMult) X(DocDateMult) X(LinkRankMult) X(LanguageMult)
#define RANKING_MULTIPLIERS_AFTER_REFINE(X) X(TFIDFMult) X(AdjacencyMult) X(SourceReputationMult)

class RankingEngineConfig {
public:
    using SourceKey = std::pair<uint16_t, uint16_t>;  // collection, source
    using SourceInfoMap = std::map<SourceKey, RankingEngineConfigSourceInfo>;

    static constexpr uint16_t kDefaultMultiplier = 5;
    static constexpr uint16_t kMaximumMultiplier = 9;
    static constexpr uint32_t kDefaultResultsToRefine = 5000;
    static constexpr uint32_t kMaximumResultsToRefine = 10000;

    RankingEngineConfig() { ValidateConfig(); }

#define RANKING_ACCESSORS(name)                               \
    uint16_t Get##name() const { return name##_; }            \
    void Set##name(uint16_t value) {                          \
        const uint16_t old = name##_;                         \
        name##_ = value;                                      \
        Revalidate([&] { name##_ = old; });                   \
    }
    RANKING_MULTIPLIERS_BEFORE_REFINE(RANKING_ACCESSORS)
    RANKING_MULTIPLIERS_AFTER_REFINE(RANKING_ACCESSORS)
#undef RANKING_ACCESSORS

    uint32_t GetNumberOfResultsToRefine() const { return NumberOfResultsToRefine_; }
    void SetNumberOfResultsToRefine(uint32_t value);

    const SourceInfoMap& GetSourceInfoMap() const { return sourceInfo_; }
    void SetSourceInfoMap(const SourceInfoMap& map) { sourceInfo_ = map; }
    // Leaves an entry that exists as it is.
    void AddRankingEngineConfigSourceInfo(uint16_t collection, uint16_t source, const RankingEngineConfigSourceInfo& info);
    void UpdateRankingEngineConfigSourceInfo(uint16_t collection, uint16_t source, const RankingEngineConfigSourceInfo& info);
    void RemoveRankingEngineConfigSourceInfo(uint16_t collection, uint16_t source);
    // Null when the source has no entry.
    const RankingEngineConfigSourceInfo* FindSourceInfo(uint16_t collection, uint16_t source) const;

    // Throws SarInvalidConfiguration (message 18 or 21) for a value beyond its limit.
    void ValidateConfig() const;

    bool operator==(const RankingEngineConfig&) const = default;

    friend Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>&, const RankingEngineConfig&);
    friend Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>&, RankingEngineConfig&);

private:
    // A refused value leaves the record as it was.
    template <class Undo>
    void Revalidate(Undo undo) {
        try {
            ValidateConfig();
        } catch (...) {
            undo();
            throw;
        }
    }

#define RANKING_FIELD(name) uint16_t name##_ = kDefaultMultiplier;
    RANKING_MULTIPLIERS_BEFORE_REFINE(RANKING_FIELD)
    uint32_t NumberOfResultsToRefine_ = kDefaultResultsToRefine;
    RANKING_MULTIPLIERS_AFTER_REFINE(RANKING_FIELD)
#undef RANKING_FIELD
    SourceInfoMap sourceInfo_;
};

Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>& stream,
                                               const RankingEngineConfig& config);
// A stream whose values break the limits raises SarInvalidConfiguration and leaves `config` as it was.
Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>& stream, RankingEngineConfig& config);

}  // namespace Ostrel
