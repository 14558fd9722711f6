#include <gtest/gtest.h>

#include <vector>

#include "MessageIdOf.h"
#include "RankingEngineConfig.h"
#include "SarException.h"
#include "StreamRoundTrip.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

std::vector<uint8_t> Bytes(const RankingEngineConfig& config) {
    VantuFile::MemoryBuffer memory;
    Vantu::BinaryStreamT<unsigned int> out(memory);
    out << config;
    return std::vector<uint8_t>(memory.Data(), memory.Data() + memory.DataSize());
}

}  // namespace

TEST(RankingEngineConfig, StreamFormIsTheFieldsInOrderThenTheSourceMapByKey) {
    RankingEngineConfig config;
    config.SetTitleMult(1);
    config.SetLanguageMult(2);
    config.SetNumberOfResultsToRefine(0x0102);
    config.SetTFIDFMult(3);
    config.SetSourceReputationMult(9);
    config.AddRankingEngineConfigSourceInfo(2, 1, RankingEngineConfigSourceInfo(5, 6));
    config.AddRankingEngineConfigSourceInfo(1, 7, RankingEngineConfigSourceInfo(1, 2));
    std::vector<uint8_t> expected = {1, 0};
    for (int i = 0; i < 11; ++i) expected.insert(expected.end(), {5, 0});
    expected.insert(expected.end(), {2, 0, 0x02, 0x01, 0, 0, 3, 0, 5, 0, 9, 0, 2, 0, 0, 0});
    expected.insert(expected.end(), {1, 0, 7, 0, 1, 0, 0, 0, 2, 0, 0, 0});
    expected.insert(expected.end(), {2, 0, 1, 0, 5, 0, 0, 0, 6, 0, 0, 0});
    EXPECT_EQ(Bytes(config), expected);
    EXPECT_EQ(RoundTrip(config), config);
}

TEST(RankingEngineConfig, LimitsAreEnforcedOnEveryChangeAndOnRead) {
    RankingEngineConfig config;
    EXPECT_EQ(config.GetNumberOfResultsToRefine(), 5000u);
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { config.SetAdjacencyMult(10); }), 18);
    EXPECT_EQ(config.GetAdjacencyMult(), 5u) << "a refused value leaves the record as it was";
    config.SetAdjacencyMult(9);
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { config.SetNumberOfResultsToRefine(10001); }), 21);
    EXPECT_EQ(config.GetNumberOfResultsToRefine(), 5000u);
    config.SetNumberOfResultsToRefine(10000);

    // A stored record beyond the limits is refused as a whole.
    std::vector<uint8_t> bytes = Bytes(config);
    bytes[0] = 10;
    VantuFile::StaticMemoryBuffer memory(bytes.data(), bytes.size());
    Vantu::BinaryStreamT<unsigned int> in(memory);
    RankingEngineConfig read;
    EXPECT_EQ(MessageIdOf<SarInvalidConfiguration>([&] { in >> read; }), 18);
    EXPECT_EQ(read, RankingEngineConfig());
}

TEST(RankingEngineConfig, AddKeepsUpdateReplacesRemoveErases) {
    RankingEngineConfig config;
    config.AddRankingEngineConfigSourceInfo(1, 2, RankingEngineConfigSourceInfo(3, 4));
    config.AddRankingEngineConfigSourceInfo(1, 2, RankingEngineConfigSourceInfo(5, 5));
    EXPECT_EQ(config.FindSourceInfo(1, 2)->GetSchemeType(), 3u);
    config.UpdateRankingEngineConfigSourceInfo(1, 2, RankingEngineConfigSourceInfo(5, 5));
    EXPECT_EQ(config.FindSourceInfo(1, 2)->GetReputation(), 5u);
    EXPECT_EQ(config.FindSourceInfo(1, 2)->ReputationPoints(), 150u);
    EXPECT_EQ(RankingEngineConfigSourceInfo(0, 8).ReputationPoints(), 0u);
    config.RemoveRankingEngineConfigSourceInfo(1, 2);
    EXPECT_EQ(config.FindSourceInfo(1, 2), nullptr);
}
