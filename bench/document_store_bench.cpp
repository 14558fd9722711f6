// The document store on real documents: stores/s (a transaction of the whole set, pre-committed and committed),
// loads/s (each document read back and inflated), and the bytes on disk per document. The documents are the
// records the transaction writer makes of analysed corpus text; the analysis isn't timed.
// Run: SARVANE_CORPUS=/path/to/corpus.jsonl build/bench/document_store_bench
#include <benchmark/benchmark.h>


#include <filesystem>

#include "BenchSlice.h"
#include "Corpus.h"
#include "DocumentAnalyser.h"
#include "FileDocIdIndexId.h"
#include "FileIndexedDocuments.h"
#include "FileTransactionsWriter.h"
#include "SarTransaction.h"
#include "SarTransactionRecords.h"
#include "core/Text.h"
#include "language/Language.h"
#include "language/StopWords.h"

namespace {

using namespace Ostrel;

Vantu::SmartPtr<SarvaneInternalConfig> ConfigIn(const std::string& dir) {
    SarvaneConfig plain = SarvaneBench::SliceConfig(dir);
    plain.SetDocumentLevelSecurity(false);
    return SarvaneBench::Internal(plain);
}

// The document records of one transaction of the corpus, as the writer makes them.
const std::vector<TransactionDocumentRecord>& Records(size_t maxBytes) {
    static std::vector<TransactionDocumentRecord> records = [maxBytes] {
        VantuLanguage::Language language(VantuLanguage::Language::kEnglish);
        VantuLanguage::StopWords stopWords;
        const DocumentAnalyser analyser(language, stopWords);
        const std::string dir = SarvaneBench::FreshDirectory();
        auto config = ConfigIn(dir);
        Vantu::SmartPtr<FileDocIdIndexId> map(new FileDocIdIndexId(config, false));
        map->RecoveryDone();
        SarvaneSliceStatistics statistics;
        std::mutex section;
        uint32_t pending = 0;
        const std::u16string path = Vantu::FromUtf8(dir) + u"/" + SarTransactionFileName(1);
        {
            Vantu::SmartPtr<FileTransactionsWriter> writer(
                new FileTransactionsWriter(config, map, path, statistics, section, pending, nullptr));
            uint32_t key = 0;
            for (const auto& text : SarvaneBench::LoadCorpus(maxBytes))
                writer->AddDocument(SarvaneBench::AnalysedDocument(analyser, text), key++);
            writer->PreCommit();
            writer->Commit();
        }
        auto contents = TransactionContents::Decode(Vantu::ToUtf8(path), false);
        std::filesystem::remove_all(dir);
        return std::move(contents.documents);
    }();
    return records;
}

void StoreAll(FileIndexedDocuments& store, const std::vector<TransactionDocumentRecord>& records) {
    VantuFile::MemoryBuffer memory(1 << 16);
    Vantu::BinaryStreamT<unsigned int> stream(memory);
    store.BeginTransaction();
    for (const TransactionDocumentRecord& record : records) {
        memory.Clear();
        record.Write(stream, false);
        uint32_t id;
        uint8_t shingles;
        uint16_t collection;
        stream >> id >> shingles >> collection;
        store.AddDocument(id, collection, stream);
    }
    store.PreCommit(false);
    store.Commit(false);
}

void BM_StoreDocuments(benchmark::State& state) {
    const auto& records = Records(size_t(state.range(0)) << 20);
    if (records.empty()) {
        state.SkipWithError("set SARVANE_CORPUS to the corpus.jsonl made by make_corpus.sh");
        return;
    }
    const std::string dir = SarvaneBench::FreshDirectory();
    uint64_t diskBytes = 0;
    for (auto _ : state) {
        Vantu::SmartPtr<FileIndexedDocuments> store(new FileIndexedDocuments(ConfigIn(dir), false));
        StoreAll(*store, records);
        state.PauseTiming();
        diskBytes = store->GetDiskSpaceUsed();
        store = nullptr;
        std::filesystem::remove_all(dir);
        std::filesystem::create_directory(dir);
        state.ResumeTiming();
    }
    std::filesystem::remove_all(dir);
    const double stored = double(records.size()) * double(state.iterations());
    state.counters["stores/s"] = benchmark::Counter(stored, benchmark::Counter::kIsRate);
    state.counters["documents"] = double(records.size());
    state.counters["disk bytes/document"] = double(diskBytes) / double(records.size());
}

void BM_LoadDocuments(benchmark::State& state) {
    const auto& records = Records(size_t(state.range(0)) << 20);
    if (records.empty()) {
        state.SkipWithError("set SARVANE_CORPUS to the corpus.jsonl made by make_corpus.sh");
        return;
    }
    const std::string dir = SarvaneBench::FreshDirectory();
    Vantu::SmartPtr<FileIndexedDocuments> store(new FileIndexedDocuments(ConfigIn(dir), false));
    StoreAll(*store, records);
    store->RecoveryDone();
    uint64_t loaded = 0;
    for (auto _ : state)
        for (const TransactionDocumentRecord& record : records) {
            benchmark::DoNotOptimize(store->LoadDocument(record.documentId));
            ++loaded;
        }
    store = nullptr;
    std::filesystem::remove_all(dir);
    state.counters["loads/s"] = benchmark::Counter(double(loaded), benchmark::Counter::kIsRate);
}

}  // namespace

// The argument is the megabytes of corpus text taken.
BENCHMARK(BM_StoreDocuments)->Arg(32)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_LoadDocuments)->Arg(32)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
