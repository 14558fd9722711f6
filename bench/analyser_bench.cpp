// The document analyser on real text: MB/s of UTF-8 text turned into words with positions and normal forms.
// Run: SARVANE_CORPUS=/path/to/corpus.jsonl build/bench/analyser_bench
#include <benchmark/benchmark.h>

#include "Corpus.h"
#include "core/Text.h"
#include "language/Language.h"
#include "language/StopWords.h"
#include "language/WordsExtractor.h"

namespace {

void BM_AnalyseCorpus(benchmark::State& state) {
    static const std::vector<SarvaneBench::CorpusDocument> docs = SarvaneBench::LoadCorpus(32u << 20);
    if (docs.empty()) {
        state.SkipWithError("set SARVANE_CORPUS to the corpus.jsonl made by make_corpus.sh");
        return;
    }
    std::vector<std::u16string> texts;
    size_t bytes = 0;
    for (const auto& d : docs) {
        texts.push_back(Vantu::FromUtf8(d.text));
        bytes += d.text.size();
    }
    VantuLanguage::Language language(static_cast<VantuLanguage::Language::StemmingType>(state.range(0)));
    VantuLanguage::StopWords stopWords;
    VantuLanguage::WordsExtractor extractor(language, stopWords);
    std::vector<VantuLanguage::WordsExtractor::Word> words;
    size_t count = 0;
    for (auto _ : state) {
        count = 0;
        for (const auto& t : texts) {
            words.clear();
            extractor.Extract(t, words);
            count += words.size();
        }
        benchmark::DoNotOptimize(count);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
    state.counters["words/s"] = benchmark::Counter(double(count) * double(state.iterations()), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_AnalyseCorpus)->Arg(VantuLanguage::Language::kNoStemming)->Arg(VantuLanguage::Language::kEnglish)
    ->Unit(benchmark::kMillisecond)->MinTime(2.0);
