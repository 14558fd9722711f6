// The term dictionary with a real vocabulary: inserts/s of every distinct term of the corpus (with its document
// count choosing the tree) and one commit, then lookups/s of terms drawn by their frequency in the text.
// Run: SARVANE_CORPUS=/path/to/corpus.jsonl build/bench/lexicon_bench
#include <benchmark/benchmark.h>


#include <filesystem>
#include <map>
#include <random>
#include <set>

#include "BenchSlice.h"
#include "Corpus.h"
#include "Lexicon.h"
#include "core/Text.h"
#include "language/Language.h"
#include "language/StopWords.h"
#include "language/WordsExtractor.h"

namespace {

using namespace Ostrel;

struct Vocabulary {
    std::vector<std::pair<std::string, uint32_t>> terms;  // distinct terms with their document counts
    std::vector<std::string> occurrences;                // terms as the text uses them, for lookups
};

const Vocabulary& Words() {
    static const Vocabulary vocabulary = [] {
        VantuLanguage::Language language(VantuLanguage::Language::kEnglish);
        VantuLanguage::StopWords stopWords;
        VantuLanguage::WordsExtractor extractor(language, stopWords);
        std::map<std::string, uint32_t> documents;
        Vocabulary v;
        std::vector<VantuLanguage::WordsExtractor::Word> words;
        for (const auto& document : SarvaneBench::LoadCorpus(size_t(200) << 20)) {
            words.clear();
            extractor.Extract(Vantu::FromUtf8(document.text), words);
            std::set<std::string> seen;
            for (const auto& word : words) {
                if (word.stopWord) continue;
                std::string term = Vantu::ToUtf8(word.normal);
                if (term.size() > Lexicon::kMaxTermSize) continue;
                if (v.occurrences.size() < 2000000) v.occurrences.push_back(term);
                if (seen.insert(term).second) ++documents[term];
            }
        }
        v.terms.assign(documents.begin(), documents.end());
        std::shuffle(v.terms.begin(), v.terms.end(), std::mt19937(7));  // the order a reader meets them in
        return v;
    }();
    return vocabulary;
}

void BM_LexiconInsert(benchmark::State& state) {
    const Vocabulary& v = Words();
    if (v.terms.empty()) return state.SkipWithError("set SARVANE_CORPUS to the corpus.jsonl made by make_corpus.sh");
    for (auto _ : state) {
        state.PauseTiming();
        const std::string dir = SarvaneBench::FreshDirectory();
        state.ResumeTiming();
        {
            Lexicon lexicon(SarvaneBench::Internal(SarvaneBench::SliceConfig(dir)), nullptr, nullptr, false);
            for (const auto& [term, documents] : v.terms) lexicon.AddTerm(term, documents, false);
            lexicon.PreCommit(false);
            lexicon.Commit(false, nullptr);
        }
        state.PauseTiming();
        std::filesystem::remove_all(dir);
        state.ResumeTiming();
    }
    state.counters["terms"] = double(v.terms.size());
    state.counters["inserts/s"] = benchmark::Counter(double(v.terms.size()) * state.iterations(), benchmark::Counter::kIsRate);
}

void BM_LexiconLookup(benchmark::State& state) {
    const Vocabulary& v = Words();
    if (v.terms.empty()) return state.SkipWithError("set SARVANE_CORPUS to the corpus.jsonl made by make_corpus.sh");
    const std::string dir = SarvaneBench::FreshDirectory();
    Lexicon lexicon(SarvaneBench::Internal(SarvaneBench::SliceConfig(dir)), nullptr, nullptr, false);
    for (const auto& [term, documents] : v.terms) lexicon.AddTerm(term, documents, false);
    lexicon.PreCommit(false);
    lexicon.Commit(false, nullptr);
    size_t next = 0, found = 0;
    for (auto _ : state) {
        found += lexicon.FindTerm(v.occurrences[next]) != Term::kNoTermId;
        next = next + 1 == v.occurrences.size() ? 0 : next + 1;
    }
    benchmark::DoNotOptimize(found);
    state.counters["lookups/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    std::filesystem::remove_all(dir);
}

}  // namespace

BENCHMARK(BM_LexiconInsert)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LexiconLookup);
