// Postings of the large terms: postings decoded/s for a term of 1M documents (with and without position words),
// bytes per posting on disk, and the time to apply 100k documents' terms in one transaction and commit it.
// Synthetic: 30 distinct terms per document drawn by a Zipf law over 100k terms, 1 to 6 positions each.
// Run: build/bench/postings_bench
#include <benchmark/benchmark.h>

#include "BenchSlice.h"


#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>

#include "FileIndexedTerms.h"
#include "core/Text.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "store/EliasDeltaCodes.h"

namespace {

using namespace Ostrel;

constexpr uint32_t kFrequentPostings = 1000000;
constexpr uint32_t kDocuments = 100000;
constexpr uint32_t kVocabulary = 100000;
constexpr uint32_t kTermsPerDocument = 30;

uint64_t DirectoryBytes(const std::string& dir) {
    uint64_t total = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        if (entry.is_regular_file()) total += entry.file_size();
    return total;
}

// Operations of many terms with their coded positions, kept in one arena.
struct Transaction {
    std::vector<uint8_t> arena;
    std::map<uint32_t, std::vector<TransactionTermOperation>> terms;
    std::map<uint32_t, std::vector<size_t>> offsets;
    uint64_t postings = 0;

    void Add(uint32_t term, uint32_t document, std::mt19937& random) {
        Vantu::FastVector<unsigned int> positions;
        unsigned at = random() % 50;
        for (uint32_t i = 0, n = 1 + random() % 6; i < n; ++i) positions.push_back(at += 1 + random() % 30);
        VantuFile::MemoryBuffer memory(32);
        VantuCompression::BitsReaderWriter bits(&memory);
        VantuCompression::EliasDeltaCodes().Compress(positions, true, bits, 0);
        offsets[term].push_back(arena.size());
        arena.insert(arena.end(), memory.Data(), memory.Data() + memory.DataSize());
        TransactionTermOperation operation(document, uint32_t(positions.size()), 1);
        operation.SetData(nullptr, uint16_t(memory.DataSize()));
        terms[term].push_back(operation);
        ++postings;
    }

    // Points the operations at the arena, which no longer moves.
    void Seal() {
        for (auto& [term, operations] : terms)
            for (size_t i = 0; i < operations.size(); ++i)
                operations[i].SetData(arena.data() + offsets[term][i], operations[i].DataLength());
    }

    void Apply(FileIndexedTerms& store) {
        store.BeginTransaction();
        FileIndexedTerms::Operations pointers;
        for (auto& [term, operations] : terms) {
            pointers.clear();
            for (TransactionTermOperation& operation : operations) pointers.push_back(&operation);
            store.AddDocumentsForTerm(term, pointers);
        }
        store.PreCommit();
        store.Commit(false, nullptr);
    }
};

const Transaction& HundredThousandDocuments() {
    static const Transaction transaction = [] {
        Transaction t;
        std::vector<double> weights(kVocabulary);
        for (uint32_t r = 0; r < kVocabulary; ++r) weights[r] = 1.0 / (r + 1);
        std::discrete_distribution<uint32_t> zipf(weights.begin(), weights.end());
        std::mt19937 random(11);
        for (uint32_t document = 0; document < kDocuments; ++document) {
            std::set<uint32_t> chosen;
            while (chosen.size() < kTermsPerDocument) chosen.insert(zipf(random));
            for (uint32_t term : chosen) t.Add(term, document, random);
        }
        t.Seal();
        return t;
    }();
    return transaction;
}

void BM_ApplyHundredThousandDocuments(benchmark::State& state) {
    Transaction transaction = HundredThousandDocuments();
    transaction.Seal();
    uint64_t bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const std::string dir = SarvaneBench::FreshDirectory();
        state.ResumeTiming();
        {
            Vantu::SmartPtr<FileIndexedTerms> store(new FileIndexedTerms(SarvaneBench::Internal(SarvaneBench::SliceConfig(dir)), false));
            transaction.Apply(*store);
        }
        state.PauseTiming();
        bytes = DirectoryBytes(dir);
        std::filesystem::remove_all(dir);
        state.ResumeTiming();
    }
    state.counters["documents/s"] =
        benchmark::Counter(double(kDocuments) * state.iterations(), benchmark::Counter::kIsRate);
    state.counters["postings"] = double(transaction.postings);
    state.counters["bytes/posting"] = double(bytes) / double(transaction.postings);
}

void BM_DecodeFrequentTerm(benchmark::State& state) {
    const bool withPositions = state.range(0) != 0;
    const std::string dir = SarvaneBench::FreshDirectory();
    Vantu::SmartPtr<FileIndexedTerms> store(new FileIndexedTerms(SarvaneBench::Internal(SarvaneBench::SliceConfig(dir)), false));
    std::mt19937 random(5);
    // Ten transactions of 100k documents: one chunk each, appended to the term's block.
    for (uint32_t first = 0; first < kFrequentPostings; first += kFrequentPostings / 10) {
        Transaction t;
        for (uint32_t document = first; document < first + kFrequentPostings / 10; ++document) t.Add(0, document, random);
        t.Seal();
        t.Apply(*store);
    }
    uint64_t decoded = 0;
    for (auto _ : state) {
        Vantu::SmartPtr<Term> term = store->LoadTerm(0, withPositions);
        decoded += term->GetNumberOfDocuments();
        benchmark::DoNotOptimize(term->GetDocumentWeights().data());
    }
    state.counters["postings/s"] = benchmark::Counter(double(decoded), benchmark::Counter::kIsRate);
    state.counters["bytes/posting"] = double(DirectoryBytes(dir)) / kFrequentPostings;
    std::filesystem::remove_all(dir);
}

}  // namespace

BENCHMARK(BM_DecodeFrequentTerm)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ApplyHundredThousandDocuments)->Unit(benchmark::kMillisecond)->Iterations(3);
