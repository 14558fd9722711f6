// Throughput of the stream layer: zlib units at the stores' levels, and scalars and strings through a
// plain memory stream.
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "file/BinaryStream.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

using namespace Vantu;
using namespace VantuCompression;
using VantuFile::MemoryBuffer;

namespace {

constexpr size_t kPayload = 2 << 20;

// Text-like content: words from a small vocabulary with numbers between them, from a fixed seed.
const std::string& Payload() {
    static const std::string text = [] {
        std::mt19937 random(42);
        std::string out;
        while (out.size() < kPayload) {
            out += "term" + std::to_string(random() % 5000) + ' ';
            if (random() % 4 == 0) out += std::to_string(random() % 100000) + '\n';
        }
        out.resize(kPayload);
        return out;
    }();
    return text;
}

void Compress(benchmark::State& state) {
    ZLib zlib(1, int(state.range(0)), 15);
    MemoryBuffer memory(kPayload);
    OCompressedBufferT<unsigned int> output(memory, &zlib);
    for (auto _ : state) {
        memory.Clear();
        output.PutExact(Payload().data(), Payload().size());
        output.Finish();
    }
    state.SetBytesProcessed(int64_t(state.iterations() * kPayload));
    state.counters["MB/s out"] = benchmark::Counter(double(state.iterations() * memory.Size()) / 1e6,
                                                    benchmark::Counter::kIsRate);
    state.counters["ratio"] = double(kPayload) / memory.Size();
}

void Decompress(benchmark::State& state) {
    ZLib zlib(1, int(state.range(0)), 15);
    MemoryBuffer memory(kPayload);
    OCompressedBufferT<unsigned int> output(memory, &zlib);
    output.PutExact(Payload().data(), Payload().size());
    output.Finish();
    ICompressedBufferT<unsigned int> input(memory, &zlib);
    std::string back(kPayload, '\0');
    for (auto _ : state) {
        memory.SeekG(0);
        input.Clear();
        input.GetExact(back.data(), back.size());
        benchmark::DoNotOptimize(back.data());
    }
    state.counters["MB/s in"] = benchmark::Counter(double(state.iterations() * memory.Size()) / 1e6,
                                                   benchmark::Counter::kIsRate);
    state.SetBytesProcessed(int64_t(state.iterations() * kPayload));
}

void Scalars(benchmark::State& state) {
    constexpr int kCount = 1 << 16;
    MemoryBuffer memory(kCount * 15);
    BinaryStreamT<unsigned int> stream(memory);
    const bool reading = state.range(0) == 1;
    for (int i = 0; i < kCount; ++i) stream << uint8_t(i) << uint16_t(i) << uint32_t(i) << uint64_t(i);
    uint8_t a; uint16_t b; uint32_t c; uint64_t d;
    for (auto _ : state) {
        if (reading) {
            memory.SeekG(0);
            for (int i = 0; i < kCount; ++i) stream >> a >> b >> c >> d;
            benchmark::DoNotOptimize(d);
        } else {
            memory.Clear();
            for (int i = 0; i < kCount; ++i) stream << uint8_t(i) << uint16_t(i) << uint32_t(i) << uint64_t(i);
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kCount * 4);
    state.SetBytesProcessed(int64_t(state.iterations()) * kCount * 15);
}

void Strings(benchmark::State& state) {
    constexpr int kCount = 1 << 14;
    const std::u16string word = u"document-term";
    MemoryBuffer memory(kCount * 32);
    BinaryStreamT<unsigned int> stream(memory);
    const bool reading = state.range(0) == 1;
    for (int i = 0; i < kCount; ++i) stream << word;
    std::u16string back;
    for (auto _ : state) {
        if (reading) {
            memory.SeekG(0);
            for (int i = 0; i < kCount; ++i) stream >> back;
            benchmark::DoNotOptimize(back.data());
        } else {
            memory.Clear();
            for (int i = 0; i < kCount; ++i) stream << word;
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kCount);
    state.SetBytesProcessed(int64_t(state.iterations()) * memory.Size());
}

}  // namespace

BENCHMARK(Compress)->Arg(5)->Arg(6)->Arg(8)->Unit(benchmark::kMillisecond);
BENCHMARK(Decompress)->Arg(5)->Arg(6)->Arg(8)->Unit(benchmark::kMillisecond);
BENCHMARK(Scalars)->ArgName("read")->Arg(0)->Arg(1);
BENCHMARK(Strings)->ArgName("read")->Arg(0)->Arg(1);
