// Elias-delta lists and bit-vector combinations at the sizes the index store meets.
#include <benchmark/benchmark.h>

#include <random>

#include "file/BinaryStreamMemoryBuffer.h"
#include "store/BitVector.h"
#include "store/EliasDeltaCodes.h"

using VantuAlgo::BitVector;
using VantuCompression::BitsReaderWriter;
using VantuCompression::EliasDeltaCodes;

namespace {

// An ascending list of `count` entries whose gaps average `meanGap` (geometric, as word positions of a
// term and doc ids of a posting list roughly are).
Vantu::FastVector<unsigned int> Ascending(unsigned int count, double meanGap, unsigned int seed) {
    std::mt19937 random(seed);
    std::geometric_distribution<unsigned int> gap(1.0 / meanGap);
    Vantu::FastVector<unsigned int> list;
    list.resize(count);
    unsigned int value = 0;
    for (auto& entry : list) entry = value += 1 + gap(random);
    return list;
}

// Lists of `length` entries, as positions (length 8) or doc-id deltas (length 1000) are coded.
void Encode(benchmark::State& state, unsigned int length, double meanGap) {
    auto list = Ascending(length, meanGap, 1);
    VantuFile::MemoryBuffer memory(1 << 20);
    BitsReaderWriter bits(&memory);
    EliasDeltaCodes codes;
    for (auto _ : state) {
        memory.Clear();
        codes.Compress(list, true, bits, 0);
        benchmark::DoNotOptimize(memory.Data());
    }
    state.SetItemsProcessed(state.iterations() * length);
    state.counters["bytes/entry"] = double(memory.Size()) / length;
}

void Decode(benchmark::State& state, unsigned int length, double meanGap) {
    auto list = Ascending(length, meanGap, 1);
    VantuFile::MemoryBuffer memory(1 << 20);
    BitsReaderWriter bits(&memory);
    EliasDeltaCodes codes;
    codes.Compress(list, true, bits, 0);
    Vantu::FastVector<unsigned int> decoded;
    decoded.reserve(length);
    for (auto _ : state) {
        memory.SeekG(0);
        decoded.clear();
        codes.Uncompress(bits, true, decoded, 0);
        benchmark::DoNotOptimize(decoded.data());
    }
    state.SetItemsProcessed(state.iterations() * length);
}

void DecodeIntoVector(benchmark::State& state) {
    auto list = Ascending(100000, 8, 2);
    VantuFile::MemoryBuffer memory(1 << 20);
    BitsReaderWriter bits(&memory);
    EliasDeltaCodes codes;
    codes.Compress(list, true, bits, 0);
    BitVector vector;
    vector.resize(list.back() + 1);
    for (auto _ : state) {
        memory.SeekG(0);
        codes.Uncompress(bits, true, vector, true, false, 0);
    }
    state.SetItemsProcessed(state.iterations() * list.size());
}

BitVector RandomVector(unsigned int bits, unsigned int seed) {
    std::mt19937 random(seed);
    BitVector vector;
    vector.resize(bits);
    for (unsigned int i = 0; i < bits / 4; ++i) vector.set(random() % bits, true);
    return vector;
}

// Ten million documents: the largest slice the 24-bit ids allow is 16.7 million.
template <class Combine>
void CombineVectors(benchmark::State& state, Combine combine) {
    const unsigned int bits = 10'000'000;
    BitVector left = RandomVector(bits, 3), right = RandomVector(bits, 4);
    for (auto _ : state) {
        combine(left, right);
        benchmark::DoNotOptimize(left.data());
    }
    state.SetBytesProcessed(state.iterations() * int64_t{left.byteSize()});
}

}  // namespace

BENCHMARK_CAPTURE(Encode, PositionGaps, 8, 40.0);
BENCHMARK_CAPTURE(Encode, DenseDocIdGaps, 1000, 2.0);
BENCHMARK_CAPTURE(Encode, SparseDocIdGaps, 1000, 1000.0);
BENCHMARK_CAPTURE(Decode, PositionGaps, 8, 40.0);
BENCHMARK_CAPTURE(Decode, DenseDocIdGaps, 1000, 2.0);
BENCHMARK_CAPTURE(Decode, SparseDocIdGaps, 1000, 1000.0);
BENCHMARK(DecodeIntoVector);
BENCHMARK_CAPTURE(CombineVectors, And, [](BitVector& a, const BitVector& b) { a &= b; });
BENCHMARK_CAPTURE(CombineVectors, Or, [](BitVector& a, const BitVector& b) { a |= b; });
BENCHMARK_CAPTURE(CombineVectors, FindEverySetBit, [](BitVector& a, const BitVector&) {
    unsigned int found = 0;
    for (auto it = a.findFirstSetBit(a.begin(), a.end()); it != a.end(); it = a.findFirstSetBit(++it, a.end()))
        ++found;
    benchmark::DoNotOptimize(found);
});
