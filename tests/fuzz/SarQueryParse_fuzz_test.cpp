// A bounded, fixed-seed run of the query fuzz target: the seed corpus, then random inputs biased towards the
// characters the grammar cares about. The open-ended run is scripts/fuzz.sh.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<uint8_t> Utf16Bytes(const std::u16string& text) {
    std::vector<uint8_t> bytes;
    for (char16_t c : text) {
        bytes.push_back(c & 0xFF);
        bytes.push_back(c >> 8);
    }
    return bytes;
}

}  // namespace

TEST(SarQueryParseFuzz, SeedCorpusAndBoundedRandomRun) {
    std::filesystem::path corpus = std::filesystem::path(SARVANE_SOURCE_DIR) / "tests/fuzz/corpus/SarQueryParse";
    size_t seeds = 0;
    for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
        std::ifstream in(entry.path(), std::ios::binary);
        std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++seeds;
    }
    EXPECT_GT(seeds, 10u);

    static const char16_t kAlphabet[] = u"aAnNdDoOrReEtT \"()@:=<>-+/,'._*0123459\t\u00e9\u00c6\uFB01\u4e2d";
    std::mt19937 random(20261123);
    for (int round = 0; round < 20000; ++round) {
        std::u16string query(random() % 40, u' ');
        for (char16_t& c : query)
            c = random() % 8 ? kAlphabet[random() % (std::size(kAlphabet) - 1)] : char16_t(random());
        std::vector<uint8_t> bytes = Utf16Bytes(query);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
}
