// The settings of one slice: every value is clamped when it is set, and a value that cannot work is refused.
// The record does not lock by itself: whoever shares one takes its ReadLock/WriteLock around the whole access.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "SarvaneConfigLock.h"
#include "core/Thread.h"
#include "language/Language.h"
#include "language/StopWords.h"

namespace Vantu {
template <class T>
class BinaryStreamT;
}

namespace Ostrel {

// Every size of the record, in the order of its stream form: name, default in bytes, upper clamp in bytes,
// and whether 0 is refused. LexiconDateCFCacheSize alone has no upper clamp.
#define SARVANE_CONFIG_SIZES(X)                                  \
    X(LexiconFreqCacheSize, 0x10000, 0x40000000, true)           \
    X(LexiconNonFreqCacheSize, 0x10000, 0x40000000, true)        \
    X(LexiconStringCFCacheSize, 0x10000, 0x40000000, true)       \
    X(LexiconDoubleCFCacheSize, 0x10000, 0x40000000, true)       \
    X(LexiconLongCFCacheSize, 0x10000, 0x40000000, true)         \
    X(LexiconDateCFCacheSize, 0x10000, UINT32_MAX, true)         \
    X(WCLexiconCacheSize, 0x10000, 0x40000000, true)             \
    X(WCLexiconGrowSize, 0x10000, 0x1900000, true)               \
    X(DocumentsIndexGrowSize, 0x40000, 0x1900000, true)          \
    X(DocumentsInfoGrowSize, 0x40000, 0x1900000, true)           \
    X(TermsIndexGrowSize, 0x40000, 0x1900000, true)              \
    X(TermsPositionsGrowSize, 0x40000, 0x1900000, true)          \
    X(TermsInfoGrowSize, 0x40000, 0x1900000, true)               \
    X(SmallTermsCacheSize, 0x80000, 0x500000, true)              \
    X(SmallTermsIndexGrowSize, 0x40000, 0x1900000, true)         \
    X(DocIdIndexIdCacheSize, 0x10000, 0x500000, true)            \
    X(CollectionsInfoGrowSize, 0x40000, 0x1900000, true)         \
    X(CollectionsCacheSize, 0x100000, 0x1400000, false)          \
    X(SecurityIndexCacheSize, 0x10000, 0x500000, true)           \
    X(SecurityInfoGrowSize, 0x40000, 0x1900000, true)            \
    X(SecurityInfoCacheSize, 0x100000, 0x1400000, true)          \
    X(QueryCacheSize, 0x200000, 0x10000000, false)

class SarvaneConfig {
public:
    // The record's own scale of priorities, 0 to 5, mapped onto thread priorities by the setters.
    enum class Priority : int32_t { Lowest, BelowNormal, Normal, AboveNormal, Highest, TimeCritical };

    enum Size : uint32_t {
#define SARVANE_CONFIG_SIZE_ENUM(name, def, max, refused) k##name,
        SARVANE_CONFIG_SIZES(SARVANE_CONFIG_SIZE_ENUM)
#undef SARVANE_CONFIG_SIZE_ENUM
        kSizeCount
    };
    // Stream groups: the sizes up to SmallTermsIndexGrowSize, then up to CollectionsCacheSize, then the rest.
    static constexpr uint32_t kFirstSecondGroup = kDocIdIndexIdCacheSize;
    static constexpr uint32_t kFirstThirdGroup = kSecurityIndexCacheSize;

    using FixedResultsMap = std::map<std::u16string, std::vector<uint32_t>>;

    SarvaneConfig();
    // A slice's identity; its SecurityInfoCacheSize starts at 0x40000 in place of 0x100000.
    SarvaneConfig(uint16_t physical, uint16_t mirror, uint16_t slice);
    virtual ~SarvaneConfig() = default;
    SarvaneConfig(const SarvaneConfig&) = default;
    SarvaneConfig& operator=(const SarvaneConfig&) = default;

    bool operator==(const SarvaneConfig& other) const = default;
    // Whether `newConfig` may replace this record on a started slice: only priorities, the duplicate
    // factor, HighlightStopWords, the field sets, the fixed results and MaximumTermsPerQuery may differ.
    bool ValidRunningModifications(const SarvaneConfig& newConfig) const;

    // Clamps every size to its bound, then refuses a zero where one cannot work (message 12).
    void ValidateConfig();

    void ReadLock() const { lock_.ReadLock(); }
    void ReadUnlock() const { lock_.ReadUnlock(); }
    void WriteLock() const { lock_.WriteLock(); }
    void WriteUnlock() const { lock_.WriteUnlock(); }

    uint16_t GetPhysicalID() const { return physicalID_; }
    uint16_t GetMirrorID() const { return mirrorID_; }
    uint16_t GetSliceID() const { return sliceID_; }

    // Sizes are held in bytes; setters take kilobytes, so a getter's value must not go back to a setter.
    uint32_t GetSize(Size size) const { return sizes_[size]; }
    void SetSize(Size size, uint32_t kilobytes);
#define SARVANE_CONFIG_SIZE_ACCESSORS(name, def, max, refused)          \
    uint32_t Get##name() const { return sizes_[k##name]; }              \
    void Set##name(uint32_t kilobytes) { SetSize(k##name, kilobytes); }
    SARVANE_CONFIG_SIZES(SARVANE_CONFIG_SIZE_ACCESSORS)
#undef SARVANE_CONFIG_SIZE_ACCESSORS

    VantuThread::Priority GetIndexingPriority() const { return indexingPriority_; }
    void SetIndexingPriority(VantuThread::Priority priority) { indexingPriority_ = priority; }
    void SetIndexingPriority(Priority priority) { indexingPriority_ = ToThreadPriority(priority); }
    VantuThread::Priority GetQueryPriority() const { return queryPriority_; }
    void SetQueryPriority(VantuThread::Priority priority) { queryPriority_ = priority; }
    void SetQueryPriority(Priority priority) { queryPriority_ = ToThreadPriority(priority); }

    // A percent, taken as it stands.
    uint32_t GetDocumentDuplicateFactor() const { return documentDuplicateFactor_; }
    void SetDocumentDuplicateFactor(uint32_t percent);

    // Applied transactions move to the folder "Transactions" instead of going.
    bool GetTransactionsKeep() const { return transactionsKeep_; }
    void SetTransactionsKeep(bool keep) { transactionsKeep_ = keep; }
    bool GetDocumentLevelSecurity() const { return documentLevelSecurity_; }
    void SetDocumentLevelSecurity(bool value) { documentLevelSecurity_ = value; }

    const std::u16string& GetIndexFilesPath() const { return indexFilesPath_; }
    std::string GetIndexFilesPathAsString() const;
    // Stores the path, then refuses one that exists and is no directory (message 15).
    void SetIndexFilesPath(const std::u16string& path);
    const std::u16string& GetIDString() const { return idString_; }
    void SetIDString(const std::u16string& id) { idString_ = id; }

    bool GetEnableWordCorrectorLexicon() const { return enableWordCorrectorLexicon_; }
    void SetEnableWordCorrectorLexicon(bool value) { enableWordCorrectorLexicon_ = value; }
    VantuLanguage::Language::StemmingType GetStemmingType() const { return stemmingType_; }
    void SetStemmingType(VantuLanguage::Language::StemmingType type) { stemmingType_ = type; }
    const VantuLanguage::StopWords& GetStopWords() const { return stopWords_; }
    void SetStopWords(const VantuLanguage::StopWords& stopWords) { stopWords_ = stopWords; }
    bool GetHighlightStopWords() const { return highlightStopWords_; }
    void SetHighlightStopWords(bool value) { highlightStopWords_ = value; }

    const std::set<std::string>& GetRankingIgnoredField() const { return rankingIgnoredField_; }
    std::set<std::string>& GetRankingIgnoredField() { return rankingIgnoredField_; }
    const std::set<std::string>& GetStemmingIgnoredField() const { return stemmingIgnoredField_; }
    std::set<std::string>& GetStemmingIgnoredField() { return stemmingIgnoredField_; }
    const FixedResultsMap& GetFixedResults() const { return fixedResults_; }
    FixedResultsMap& GetFixedResults() { return fixedResults_; }

    uint32_t GetMaximumTermsPerQuery() const { return maximumTermsPerQuery_; }
    // Stored as it stands; the next ValidateConfig refuses a zero.
    void SetMaximumTermsPerQuery(uint32_t terms) { maximumTermsPerQuery_ = terms; }

private:
    // The stream form has no version: a change of its field list breaks stored records. Reading validates.
    friend Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>&, const SarvaneConfig&);
    friend Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>&, SarvaneConfig&);

    static VantuThread::Priority ToThreadPriority(Priority priority);
    void ValidateUnderReadLock();

    uint16_t physicalID_ = 0;
    uint16_t mirrorID_ = 0;
    uint16_t sliceID_ = 0;
    VantuThread::Priority indexingPriority_ = VantuThread::Priority::Normal;
    VantuThread::Priority queryPriority_ = VantuThread::Priority::Highest;
    uint32_t documentDuplicateFactor_ = 85;
    uint32_t sizes_[kSizeCount];
    bool transactionsKeep_ = false;
    bool documentLevelSecurity_ = true;
    std::u16string indexFilesPath_;
    std::u16string idString_;
    bool enableWordCorrectorLexicon_ = false;
    VantuLanguage::Language::StemmingType stemmingType_ = VantuLanguage::Language::kEnglish;
    VantuLanguage::StopWords stopWords_;
    bool highlightStopWords_ = true;
    std::set<std::string> rankingIgnoredField_;
    std::set<std::string> stemmingIgnoredField_;
    FixedResultsMap fixedResults_;
    uint32_t maximumTermsPerQuery_ = 16;
    SarvaneConfigLock lock_;
};

Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>& stream, const SarvaneConfig& config);
Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>& stream, SarvaneConfig& config);

}  // namespace Ostrel
