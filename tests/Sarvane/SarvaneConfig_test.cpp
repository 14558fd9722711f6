#include <gtest/gtest.h>

#include <fstream>

#include "MessageIdOf.h"
#include "SarException.h"
#include "SarvaneConfig.h"
#include "SarvaneInternalConfig.h"
#include "StreamRoundTrip.h"
#include "TempDir.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "core/Text.h"

using namespace Ostrel;

TEST(SarvaneConfig, DefaultsAndTheThreeIdConstructor) {
    SarvaneConfig plain;
    EXPECT_EQ(plain.GetSecurityInfoCacheSize(), 0x100000u);
    EXPECT_EQ(plain.GetQueryCacheSize(), 0x200000u);
    EXPECT_EQ(plain.GetSmallTermsCacheSize(), 0x80000u);
    EXPECT_EQ(plain.GetDocumentDuplicateFactor(), 85u);
    EXPECT_EQ(plain.GetMaximumTermsPerQuery(), 16u);
    EXPECT_EQ(plain.GetQueryPriority(), VantuThread::Priority::Highest);
    EXPECT_EQ(plain.GetIndexingPriority(), VantuThread::Priority::Normal);
    EXPECT_TRUE(plain.GetDocumentLevelSecurity());
    EXPECT_TRUE(plain.GetHighlightStopWords());
    EXPECT_EQ(plain.GetStemmingType(), VantuLanguage::Language::kEnglish);
    EXPECT_TRUE(plain.GetStopWords().IsDefault());

    SarvaneConfig slice(1, 2, 3);
    EXPECT_EQ(slice.GetSecurityInfoCacheSize(), 0x40000u);
    EXPECT_EQ(slice.GetPhysicalID(), 1);
    EXPECT_EQ(slice.GetMirrorID(), 2);
    EXPECT_EQ(slice.GetSliceID(), 3);
    EXPECT_FALSE(slice == plain);
}

TEST(SarvaneConfig, KilobyteSettersShiftClampAndNeverWrap) {  // C1
    SarvaneConfig c;
    c.SetLexiconFreqCacheSize(64);
    EXPECT_EQ(c.GetLexiconFreqCacheSize(), 65536u);
    c.SetLexiconFreqCacheSize(2097152);
    EXPECT_EQ(c.GetLexiconFreqCacheSize(), 0x40000000u);
    c.SetLexiconDateCFCacheSize(2097152);
    EXPECT_EQ(c.GetLexiconDateCFCacheSize(), 0x80000000u);
    // 4 GB in kilobytes would wrap to 0 in 32 bits; the size without a bound stops at the largest value.
    c.SetLexiconDateCFCacheSize(0x400000);
    EXPECT_EQ(c.GetLexiconDateCFCacheSize(), 0xFFFFFFFFu);
    c.SetSmallTermsCacheSize(0xFFFFFFFF);
    EXPECT_EQ(c.GetSmallTermsCacheSize(), 0x500000u);
    c.SetDocumentDuplicateFactor(150);
    EXPECT_EQ(c.GetDocumentDuplicateFactor(), 100u);
}

TEST(SarvaneConfig, ZerosAreRefusedOnlyWhereTheyCannotWork) {
    SarvaneConfig c;
    c.SetQueryCacheSize(0);
    c.SetCollectionsCacheSize(0);
    c.SetDocumentDuplicateFactor(0);
    EXPECT_EQ(c.GetQueryCacheSize(), 0u);
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { c.SetSecurityIndexCacheSize(0); }), 12);
    // The refused value stays stored until it is set again.
    EXPECT_EQ(c.GetSecurityIndexCacheSize(), 0u);
    c.SetSecurityIndexCacheSize(8);
    c.SetMaximumTermsPerQuery(0);
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { c.ValidateConfig(); }), 12);
}

TEST(SarvaneConfig, RecordPrioritiesMapToThreadPriorities) {
    SarvaneConfig c;
    c.SetIndexingPriority(SarvaneConfig::Priority::Lowest);
    EXPECT_EQ(c.GetIndexingPriority(), VantuThread::Priority::Lowest);
    c.SetQueryPriority(SarvaneConfig::Priority::TimeCritical);
    EXPECT_EQ(static_cast<int32_t>(c.GetQueryPriority()), 15);
    c.SetQueryPriority(SarvaneConfig::Priority::AboveNormal);
    EXPECT_EQ(static_cast<int32_t>(c.GetQueryPriority()), 1);
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>(
                  [&] { c.SetQueryPriority(static_cast<SarvaneConfig::Priority>(6)); }),
              12);
}

TEST(SarvaneConfig, IndexPathMustNotBeAFile) {
    SarvaneTest::TempDir dir;
    std::ofstream(dir / "plain") << "x";
    SarvaneConfig c;
    EXPECT_EQ(MessageIdOf<SarInvalidIndexPath>([&] { c.SetIndexFilesPath(Vantu::FromUtf8(dir / "plain")); }), 15);
    c.SetIndexFilesPath(Vantu::FromUtf8(dir / "not-yet"));
    c.SetIndexFilesPath(Vantu::FromUtf8(dir.Path()));
    EXPECT_EQ(c.GetIndexFilesPathAsString(), dir.Path());
}

TEST(SarvaneConfig, RunningModificationsAndEquality) {
    SarvaneConfig running(1, 1, 1);
    SarvaneConfig next(running);
    EXPECT_TRUE(next == running);
    next.SetMaximumTermsPerQuery(40);
    next.SetIndexingPriority(VantuThread::Priority::Lowest);
    next.GetRankingIgnoredField().insert("title");
    next.GetFixedResults()[u"query"] = {1, 2};
    EXPECT_FALSE(next == running);
    EXPECT_TRUE(running.ValidRunningModifications(next));

    SarvaneConfig cache(running);
    cache.SetQueryCacheSize(1);
    EXPECT_FALSE(running.ValidRunningModifications(cache));
    SarvaneConfig ids(1, 1, 2);
    EXPECT_FALSE(running.ValidRunningModifications(ids));
    SarvaneConfig stem(running);
    stem.SetStemmingType(VantuLanguage::Language::kNoStemming);
    EXPECT_FALSE(running.ValidRunningModifications(stem));
}

TEST(SarvaneInternalConfig, AssignmentCopiesValuesAndKeepsTheCount) {
    Vantu::SmartPtr<SarvaneInternalConfig> shared(new SarvaneInternalConfig(SarvaneConfig(4, 5, 6)));
    Vantu::SmartPtr<SarvaneInternalConfig> second(shared);
    EXPECT_EQ(shared->NbRef(), 2);
    SarvaneConfig changed(4, 5, 6);
    changed.SetQueryCacheSize(0);
    *shared = changed;
    EXPECT_EQ(shared->NbRef(), 2);
    EXPECT_EQ(second->GetQueryCacheSize(), 0u);
    SarvaneInternalConfig copy(*shared);
    EXPECT_EQ(copy.NbRef(), 0);
    EXPECT_TRUE(static_cast<const SarvaneConfig&>(copy) == changed);
}

TEST(SarvaneConfig, StreamFormRoundTripsAndValidatesOnReading) {
    SarvaneConfig c(7, 8, 9);
    c.SetIndexFilesPath(u"/index/\u00e9");
    c.SetIDString(u"slice 9");
    c.SetQueryPriority(VantuThread::Priority::Lowest);
    c.SetWCLexiconGrowSize(100);
    c.SetEnableWordCorrectorLexicon(true);
    c.SetStemmingType(VantuLanguage::Language::kFrench);
    VantuLanguage::StopWords own(false);
    own.AddStopWord(u"le");
    c.SetStopWords(own);
    c.GetRankingIgnoredField().insert("size");
    c.GetStemmingIgnoredField().insert("author");
    c.GetFixedResults()[u"report"] = {4, 5, 6};
    EXPECT_TRUE(SarvaneTest::RoundTrip(c) == c);

    // The byte form of a default record with empty paths: ids, two empty strings, 25 u32 and 3 u8
    // values, the stop words (u8 default, u32 0), two u32 and three empty counts.
    VantuFile::MemoryBuffer plain;
    Vantu::BinaryStreamT<unsigned int> plainOut(plain);
    plainOut << SarvaneConfig(1, 2, 3);
    ASSERT_EQ(plain.Size(), 139u);
    const uint8_t* bytes = plain.Data();
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 10), (std::vector<uint8_t>{1, 0, 2, 0, 3, 0, 0, 0, 0, 0}));
    EXPECT_EQ(bytes[14], 2);   // QueryPriority
    EXPECT_EQ(bytes[18], 85);  // DocumentDuplicateFactor
    EXPECT_EQ(bytes[24], 1);   // LexiconFreqCacheSize 0x10000

    // A stored size out of range is clamped on reading, a refused zero throws.
    plain.Data()[22] = plain.Data()[23] = plain.Data()[24] = plain.Data()[25] = 0xFF;
    Vantu::BinaryStreamT<unsigned int> clampIn(plain);
    SarvaneConfig back;
    clampIn >> back;
    EXPECT_EQ(back.GetLexiconFreqCacheSize(), 0x40000000u);
    plain.Data()[22] = plain.Data()[23] = plain.Data()[24] = plain.Data()[25] = 0;
    VantuFile::StaticMemoryBuffer zero(static_cast<const void*>(plain.Data()), plain.Size());
    Vantu::BinaryStreamT<unsigned int> zeroIn(zero);
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { zeroIn >> back; }), 12);
    VantuFile::StaticMemoryBuffer cut(static_cast<const void*>(plain.Data()), 100);
    Vantu::BinaryStreamT<unsigned int> cutIn(cut);
    EXPECT_THROW(cutIn >> back, Vantu::BaseException);
}
