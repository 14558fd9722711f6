// Doc-id lists: documents/s through a collections transaction and its commit (with disk bytes per document),
// lists/s ORed from the cache for "all collections", and cold loads/s of small-term lists that miss the cache.
// Run: build/bench/doclists_bench
#include <benchmark/benchmark.h>

#include "BenchSlice.h"


#include <filesystem>
#include <random>

#include "FileCollections.h"
#include "FileSmallTerms.h"
#include "core/Text.h"

namespace {

using namespace Ostrel;

constexpr unsigned kCollections = 16;
constexpr unsigned kDocuments = 1000000;
constexpr unsigned kTerms = 64;

Vantu::SmartPtr<SarvaneInternalConfig> ConfigIn(const std::string& dir) {
    SarvaneConfig config = SarvaneBench::SliceConfig(dir);
    // Room for every collection's vector, so that "all collections" reads from the cache.
    config.SetCollectionsCacheSize(4096);
    return SarvaneBench::Internal(config);
}

// Documents first..last-1 spread over the collections by a fixed draw.
void AddRange(FileCollections& store, unsigned first, unsigned last) {
    std::mt19937 draw(first);
    store.BeginTransaction();
    for (unsigned id = first; id < last; ++id) store.AddDocument(id, uint16_t(draw() % kCollections));
    store.PreCommit(false);
    store.Commit(false);
}

void BM_CollectionsCommit(benchmark::State& state) {
    const unsigned perTransaction = unsigned(state.range(0));
    const std::string dir = SarvaneBench::FreshDirectory();
    Vantu::SmartPtr<FileCollections> store(new FileCollections(ConfigIn(dir), false));
    unsigned next = 0;
    for (auto _ : state) {
        AddRange(*store, next, next + perTransaction);
        next += perTransaction;
    }
    state.counters["documents/s"] = benchmark::Counter(double(next), benchmark::Counter::kIsRate);
    state.counters["disk bytes/document"] = double(store->GetDiskSpaceUsed()) / next;
    std::filesystem::remove_all(dir);
}

void BM_CollectionsAllDocuments(benchmark::State& state) {
    const std::string dir = SarvaneBench::FreshDirectory();
    Vantu::SmartPtr<FileCollections> store(new FileCollections(ConfigIn(dir), false));
    AddRange(*store, 0, kDocuments);
    for (auto _ : state) {
        VantuAlgo::BitVector documents;
        store->GetValidDocuments({}, documents);
        benchmark::DoNotOptimize(documents.data());
    }
    state.counters["lists/s"] = benchmark::Counter(double(kCollections) * state.iterations(), benchmark::Counter::kIsRate);
    std::filesystem::remove_all(dir);
}

void BM_SmallTermsColdLoad(benchmark::State& state) {
    const std::string dir = SarvaneBench::FreshDirectory();
    Vantu::SmartPtr<FileSmallTerms> store(new FileSmallTerms(ConfigIn(dir), false));
    std::mt19937 draw(5);
    store->BeginTransaction();
    // Every term holds a tenth of the documents: its vector is larger than a cache's share, so a walk
    // over all terms misses every time.
    for (unsigned term = 0; term < kTerms; ++term) {
        Vantu::FastVector<unsigned int> documents;
        for (unsigned id = 0; id < kDocuments; ++id)
            if (draw() % 10 == 0) documents.push_back(id);
        store->AddDocuments(FileSmallTerms::kFirstSmallTerm + term, documents);
    }
    store->PreCommit(false);
    store->Commit(false);
    unsigned term = 0;
    for (auto _ : state) {
        VantuAlgo::BitVector documents;
        store->GetValidDocuments(FileSmallTerms::kFirstSmallTerm + term, documents);
        benchmark::DoNotOptimize(documents.data());
        term = (term + 1) % kTerms;
    }
    state.counters["loads/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    std::filesystem::remove_all(dir);
}

}  // namespace

BENCHMARK(BM_CollectionsCommit)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CollectionsAllDocuments)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SmallTermsColdLoad)->Unit(benchmark::kMicrosecond);
