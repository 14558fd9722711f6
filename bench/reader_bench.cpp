// A slice end to end on analysed real text: from the first AddDocument to the last transaction applied by the
// reader (Flush), in transactions of a fixed number of documents. Reports documents/s, MB/s of text, the size
// of the index, and the process's peak resident memory beside what it was with the analysed corpus held. Run
// one transaction size per process: the peak is the process's. The analysis is
// done before the clock starts, as the application does it before handing documents in.
// Run: SARVANE_CORPUS=/path/to/corpus.jsonl build/bench/reader_bench [--benchmark_filter=/1000]
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <filesystem>

#include "BenchSlice.h"
#include "Corpus.h"
#include "DocumentAnalyser.h"
#include "Sarvane.h"
#include "language/Language.h"
#include "language/StopWords.h"

namespace {

using namespace Ostrel;

uint64_t PeakResidentBytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return uint64_t(usage.ru_maxrss) << 10;
}

uint64_t DirectoryBytes(const std::string& dir) {
    uint64_t total = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir))
        if (entry.is_regular_file()) total += entry.file_size();
    return total;
}

// range(0): documents per transaction.
void BM_AddCommitApply(benchmark::State& state) {
    VantuLanguage::Language language(VantuLanguage::Language::kEnglish);
    VantuLanguage::StopWords stopWords;
    const DocumentAnalyser analyser(language, stopWords);
    std::vector<Vantu::SmartPtr<Document>> documents;
    uint64_t textBytes = 0;
    for (const auto& text : SarvaneBench::LoadCorpus(~size_t(0))) {
        textBytes += text.text.size();
        documents.push_back(SarvaneBench::AnalysedDocument(analyser, text));
    }
    if (documents.empty()) {
        state.SkipWithError("set SARVANE_CORPUS to the corpus.jsonl made by make_corpus.sh");
        return;
    }
    const uint64_t baseline = PeakResidentBytes();
    const std::string dir = SarvaneBench::FreshDirectory();
    const uint32_t perTransaction = uint32_t(state.range(0));
    for (auto _ : state) {
        Sarvane slice(SarvaneBench::SliceConfig(dir));
        slice.AddSupportedCollection(1);
        slice.Start(false);
        uint32_t key = 0;
        for (const auto& document : documents) {
            slice.AddDocument(document, key++);
            if (key % perTransaction == 0) {
                slice.PreCommit();
                slice.Commit();
            }
        }
        slice.PreCommit();
        slice.Commit();
        slice.Flush();
        state.PauseTiming();
        state.counters["documents in index"] = double(slice.GetNumberOfDocuments());
        slice.Stop(false);
        state.counters["index MB"] = double(DirectoryBytes(dir)) / (1 << 20);
        state.ResumeTiming();
    }
    std::filesystem::remove_all(dir);
    state.SetBytesProcessed(int64_t(textBytes) * int64_t(state.iterations()));
    state.counters["documents/s"] =
        benchmark::Counter(double(documents.size()) * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["documents"] = double(documents.size());
    state.counters["text MB"] = double(textBytes) / (1 << 20);
    state.counters["peak resident MB"] = double(PeakResidentBytes()) / (1 << 20);
    state.counters["resident MB before"] = double(baseline) / (1 << 20);
}

// One run each: the documents' streams go once a transaction holds them.
BENCHMARK(BM_AddCommitApply)->Arg(1000)->Arg(10000)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace
