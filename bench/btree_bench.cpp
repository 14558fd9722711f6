// B-tree inserts and lookups of one million random keys, u32 and short strings, on 64 KiB pages with a
// cache of 10 MiB (smaller than the tree: lookups read pages) or 64 MiB (the whole tree stays in memory);
// reports records/s and bytes on disk.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "store/BTreeMap.h"

using namespace VantuBTree;

namespace {

constexpr unsigned kRecords = 1000000;
constexpr uint32_t kPage = 0x10000;

std::string FreshPath(const char* name) {
    const auto dir = std::filesystem::temp_directory_path() / ("btree_bench." + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const auto path = dir / name;
    return path.string();
}

std::vector<unsigned> U32Keys() {
    std::mt19937 rng(1);
    std::vector<unsigned> keys(kRecords);
    for (auto& k : keys) k = rng();
    return keys;
}

// Words of 4 to 12 letters, like the terms of a lexicon.
std::vector<std::string> StringKeys() {
    std::mt19937 rng(2);
    std::vector<std::string> keys(kRecords);
    for (auto& k : keys) {
        k.resize(4 + rng() % 9);
        for (auto& c : k) c = char('a' + rng() % 26);
    }
    return keys;
}

// Times either the million inserts and the Commit, or (`find`) a million lookups of random present keys
// in the tree so built.
template <class Tree, class Key>
void Run(benchmark::State& state, const std::vector<Key>& keys, const char* name, bool find) {
    const std::string path = FreshPath(name);
    for (auto _ : state) {
        if (find) state.PauseTiming();
        Tree tree(path, kPage, uint32_t(state.range(0)) << 20);
        for (unsigned i = 0; i < keys.size(); ++i) tree.Insert(keys[i], i);
        tree.Commit();
        if (find) {
            state.ResumeTiming();
            std::mt19937 rng(3);
            unsigned found = 0;
            for (unsigned i = 0; i < keys.size(); ++i) found += !(tree.Find(keys[rng() % keys.size()]) == tree.end());
            benchmark::DoNotOptimize(found);
        }
        state.counters["bytes_on_disk"] = double(tree.GetSizeInBytes());
        state.counters["records"] = tree.GetRecordCount();
        state.PauseTiming();
        std::filesystem::remove(path);
        std::filesystem::remove(BTreeFile::SideFileName(path, "head"));
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

void BM_U32Insert(benchmark::State& s) { Run<BTreeMap<unsigned, unsigned>>(s, U32Keys(), "u32.uri", false); }
void BM_U32Find(benchmark::State& s) { Run<BTreeMap<unsigned, unsigned>>(s, U32Keys(), "u32.uri", true); }
void BM_StringInsert(benchmark::State& s) {
    Run<BTreeMap<std::string, unsigned>>(s, StringKeys(), "terms.ltr", false);
}
void BM_StringFind(benchmark::State& s) {
    Run<BTreeMap<std::string, unsigned>>(s, StringKeys(), "terms.ltr", true);
}

}  // namespace

BENCHMARK(BM_U32Insert)->Arg(10)->Arg(64)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_U32Find)->Arg(10)->Arg(64)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StringInsert)->Arg(10)->Arg(64)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StringFind)->Arg(10)->Arg(64)->Iterations(1)->Unit(benchmark::kMillisecond);
