// The transaction writer on analysed real text: documents/s and MB/s (of the documents' text) into one transaction
// file, the size of that file, and the peak memory of the term groups held until PreCommit. The analysis is done
// before the clock starts, as the application does it before handing documents in.
// Run: SARVANE_CORPUS=/path/to/corpus.jsonl build/bench/transaction_writer_bench
#include <benchmark/benchmark.h>


#include <filesystem>

#include "BenchSlice.h"
#include "Corpus.h"
#include "DocumentAnalyser.h"
#include "FileDocIdIndexId.h"
#include "FileTransactionsWriter.h"
#include "SarTransaction.h"
#include "core/Text.h"
#include "language/Language.h"
#include "language/StopWords.h"

namespace {

using namespace Ostrel;

struct AnalysedCorpus {
    std::vector<Vantu::SmartPtr<Document>> documents;
    uint64_t textBytes = 0;
};

const AnalysedCorpus& Analysed(size_t maxBytes) {
    static AnalysedCorpus corpus = [maxBytes] {
        AnalysedCorpus analysed;
        VantuLanguage::Language language(VantuLanguage::Language::kEnglish);
        VantuLanguage::StopWords stopWords;
        const DocumentAnalyser analyser(language, stopWords);
        for (const auto& text : SarvaneBench::LoadCorpus(maxBytes)) {
            analysed.textBytes += text.text.size();
            analysed.documents.push_back(SarvaneBench::AnalysedDocument(analyser, text));
        }
        return analysed;
    }();
    return corpus;
}

void BM_WriteTransaction(benchmark::State& state) {
    const AnalysedCorpus& corpus = Analysed(size_t(state.range(0)) << 20);
    if (corpus.documents.empty()) {
        state.SkipWithError("set SARVANE_CORPUS to the corpus.jsonl made by make_corpus.sh");
        return;
    }
    const std::string dir = SarvaneBench::FreshDirectory();
    SarvaneConfig plain = SarvaneBench::SliceConfig(dir);
    plain.SetDocumentLevelSecurity(false);
    const Vantu::SmartPtr<SarvaneInternalConfig> config = SarvaneBench::Internal(plain);
    uint64_t peakMemory = 0, fileBytes = 0, number = 0;
    for (auto _ : state) {
        Vantu::SmartPtr<FileDocIdIndexId> map(new FileDocIdIndexId(config, false));
        map->RecoveryDone();
        SarvaneSliceStatistics statistics;
        std::mutex section;
        uint32_t pending = 0;
        const std::u16string path = Vantu::FromUtf8(dir) + u"/" + SarTransactionFileName(++number);
        Vantu::SmartPtr<FileTransactionsWriter> writer(
            new FileTransactionsWriter(config, map, path, statistics, section, pending, nullptr));
        uint32_t key = 0;
        for (const auto& document : corpus.documents) writer->AddDocument(Vantu::SmartPtrToConst<Document>(document), key++);
        peakMemory = std::max(peakMemory, writer->MemoryInUse());
        writer->PreCommit();
        writer->Commit();
        state.PauseTiming();
        fileBytes = std::filesystem::file_size(Vantu::ToUtf8(path));
        std::filesystem::remove_all(dir);
        std::filesystem::create_directory(dir);
        state.ResumeTiming();
    }
    std::filesystem::remove_all(dir);
    const double documents = double(corpus.documents.size()) * double(state.iterations());
    state.SetBytesProcessed(int64_t(corpus.textBytes) * int64_t(state.iterations()));
    state.counters["documents/s"] = benchmark::Counter(documents, benchmark::Counter::kIsRate);
    state.counters["documents"] = double(corpus.documents.size());
    state.counters["text MB"] = double(corpus.textBytes) / (1 << 20);
    state.counters["file MB"] = double(fileBytes) / (1 << 20);
    state.counters["peak term memory MB"] = double(peakMemory) / (1 << 20);
}

}  // namespace

// The argument is the megabytes of corpus text taken.
BENCHMARK(BM_WriteTransaction)->Arg(32)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
