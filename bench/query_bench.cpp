// Query time on a slice of real text: term evaluation plus relevance ranking per query, for one word, two words
// joined by AND and two words joined by OR, with the median and the 99th percentile over the query set. The slice
// is built once from the whole corpus (about 40,000 documents: every one of them is indexed) into
// SARVANE_QUERY_SLICE (default /tmp/sarvane-query-slice) and reused; delete the directory to rebuild it.
// The query words are 200 of the 1000 words found in most documents of the corpus's first 3000, every fifth.
// Run: SARVANE_CORPUS=/path/to/corpus.jsonl build/bench/query_bench
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>

#include "BenchSlice.h"
#include "Corpus.h"
#include "DocumentAnalyser.h"
#include "SarQueryParse.h"
#include "SarSliceStores.h"
#include "Sarvane.h"
#include "TermDocumentEvaluator.h"
#include "core/Text.h"
#include "language/Language.h"
#include "language/StopWords.h"
#include "language/WordsExtractor.h"

namespace {

using namespace Ostrel;

constexpr size_t kSampleDocuments = 3000;
constexpr size_t kCandidateWords = 1000;
constexpr size_t kWordStep = 5;

std::string SliceDirectory() {
    const char* dir = std::getenv("SARVANE_QUERY_SLICE");
    return dir ? dir : "/tmp/sarvane-query-slice";
}

// What the benchmarks share: the open stores of the built slice and the query words.
struct QuerySlice {
    VantuLanguage::Language language{VantuLanguage::Language::kEnglish};
    VantuLanguage::StopWords stopWords;
    std::unique_ptr<SarSliceStores> stores;
    std::unique_ptr<StoresEvaluationSlice> evaluation;
    VantuAlgo::BitVector allowed;
    std::vector<std::string> words;
    std::string error;

    QuerySlice() {
        const auto corpus = SarvaneBench::LoadCorpus(~size_t(0));
        if (corpus.empty()) {
            error = "set SARVANE_CORPUS to the corpus.jsonl made by make_corpus.sh";
            return;
        }
        const std::string dir = SliceDirectory();
        if (!std::filesystem::exists(dir + "/built")) Build(corpus, dir);
        Open(dir);
        ChooseWords(corpus);
    }

    void Build(const std::vector<SarvaneBench::CorpusDocument>& corpus, const std::string& dir) {
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
        const DocumentAnalyser analyser(language, stopWords);
        Sarvane slice(SarvaneBench::SliceConfig(dir));
        slice.AddSupportedCollection(1);
        slice.Start(false);
        uint32_t key = 0;
        for (const auto& text : corpus) {
            slice.AddDocument(SarvaneBench::AnalysedDocument(analyser, text), key);
            if (++key % 2000 == 0) {
                slice.PreCommit();
                slice.Commit();
            }
        }
        slice.PreCommit();
        slice.Commit();
        slice.Flush();
        slice.Stop(false);
        std::ofstream(dir + "/built") << key << "\n";
    }

    void Open(const std::string& dir) {
        Ostrel::SarvaneConfig config = SarvaneBench::SliceConfig(dir);
        stores = SarSliceStores::OpenStopped(SarvaneBench::Internal(config));
        evaluation = std::make_unique<StoresEvaluationSlice>(*stores, language, stopWords);
        allowed.resize(evaluation->GetCurrentDocumentID(), true);
    }

    // Words by the number of sample documents holding them, each under the first form it was written in.
    void ChooseWords(const std::vector<SarvaneBench::CorpusDocument>& corpus) {
        const VantuLanguage::WordsExtractor extractor(language, stopWords);
        std::map<std::u16string, std::pair<size_t, std::u16string>> found;
        for (size_t i = 0; i < std::min(kSampleDocuments, corpus.size()); ++i) {
            std::vector<VantuLanguage::WordsExtractor::Word> list;
            extractor.Extract(Vantu::FromUtf8(corpus[i].text), list);
            std::set<std::u16string> seen;
            for (const auto& word : list) {
                if (word.stopWord || word.normal.empty() || !seen.insert(word.normal).second) continue;
                auto& entry = found[word.normal];
                if (entry.first++ == 0) VantuLanguage::Language::ToLowerBase(word.text, entry.second);
            }
        }
        std::vector<std::pair<size_t, std::u16string>> ranked;
        for (const auto& [normal, entry] : found) ranked.emplace_back(entry.first, entry.second);
        std::sort(ranked.begin(), ranked.end(), std::greater<>());
        for (size_t i = 0; i < std::min(kCandidateWords, ranked.size()); i += kWordStep)
            words.push_back(Vantu::ToUtf8(ranked[i].second));
    }
};

QuerySlice& Shared() {
    static QuerySlice slice;
    return slice;
}

// One query's evaluation and ranking, as the slice runs them; returns the number of matches.
size_t RunQuery(const QuerySlice& slice, const RankingEngine& ranking, const antlr::RefAST& tree) {
    unsigned termCount = 0;
    std::set<std::u16string> stopTerms, stopPhraseTerms;
    TermDocumentEvaluator evaluator(slice.allowed, tree, *slice.evaluation, false, true, 64, termCount);
    evaluator.EvaluateNode(stopTerms, stopPhraseTerms);
    Vantu::FastVector<unsigned> ids;
    std::vector<TermImportance> terms;
    Vantu::FastVector<DocumentIDWeight> weights;
    evaluator.GetResultingDocuments(ids, terms, ranking, weights, 10);
    ranking.Rank(ids, terms, u"en", Relevance, slice.evaluation->GetNumberOfDocuments(), weights);
    return weights.size();
}

double Percentile(std::vector<double> samples, double p) {
    std::sort(samples.begin(), samples.end());
    return samples[std::min(samples.size() - 1, size_t(p * samples.size()))];
}

// range(0): 0 one word, 1 two words with AND, 2 two words with OR.
void BM_EvaluateAndRank(benchmark::State& state) {
    QuerySlice& slice = Shared();
    if (!slice.error.empty()) {
        state.SkipWithError(slice.error.c_str());
        return;
    }
    static const char* const kJoin[] = {"", " and ", " or "};
    std::vector<SarQueryParse> queries;
    for (size_t i = 0; i < slice.words.size(); ++i) {
        std::string text = slice.words[i];
        if (state.range(0) > 0) text += kJoin[state.range(0)] + slice.words[(i + 37) % slice.words.size()];
        queries.push_back(SarQueryParse::ParsePreprocessed(Vantu::FromUtf8(text)));
    }
    const RankingEngine ranking(RankingEngineConfig(), *slice.evaluation);
    std::vector<double> micros;
    size_t next = 0, matches = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        matches += RunQuery(slice, ranking, queries[next].tree);
        micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
        next = (next + 1) % queries.size();
    }
    state.counters["p50 us"] = Percentile(micros, 0.5);
    state.counters["p99 us"] = Percentile(micros, 0.99);
    state.counters["matches/query"] = double(matches) / double(micros.size());
    state.counters["documents"] = double(slice.evaluation->GetNumberOfDocuments());
    state.counters["queries"] = double(queries.size());
}

BENCHMARK(BM_EvaluateAndRank)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond)->MinTime(3.0);

}  // namespace
