// sarvane-driver: indexes a corpus into one or more slices with the project's analyser, then runs a file of
// queries against them and prints indexing throughput, index size, peak memory and query latency per query type.
#include <sys/resource.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchSlice.h"
#include "Corpus.h"
#include "DocumentAnalyser.h"
#include "Sarvane.h"
#include "core/Exception.h"
#include "core/Text.h"
#include "language/Language.h"
#include "language/StopWords.h"

namespace {

using namespace Ostrel;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

const char kUsage[] =
    "usage: sarvane-driver [options] CORPUS QUERIES\n"
    "  CORPUS     a JSON-lines file ({\"uri\": ..., \"text\": ...} per line) or a directory of text files\n"
    "             (every regular file below it, its path as URI)\n"
    "  QUERIES    one query per line, optionally \"type<TAB>query\"; without a type it is derived from the\n"
    "             query: \"phrase\" when quoted, else N-or / N-and / N-term by its N words and operator\n"
    "  --dir PATH     where the index goes (default: a fresh directory under /tmp, removed at the end)\n"
    "  --reuse        skip indexing when PATH already holds a built index, with the slices it was built with\n"
    "  --slices N     deal the documents round-robin over N slices, one directory each; every query runs on\n"
    "                 each slice in turn and its time is the sum over the slices (default 1)\n"
    "  --batch N      documents per transaction (default 1000)\n"
    "  --limit N      index at most N documents\n"
    "  --runs N       runs of each query; the first warms the files and is not counted (default 5)\n"
    "  --cache        keep the slices' query cache on and run each query's runs back to back, so that the\n"
    "                 counted runs are cache hits\n";

struct Options {
    std::string corpus, queries, dir;
    bool reuse = false, cache = false, ownDir = false;
    unsigned slices = 1, batch = 1000, runs = 5;
    uint64_t limit = ~uint64_t(0);
};

double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

// Calls `take` on every corpus document in turn, reading one at a time so that the corpus is never held whole.
void ForEachDocument(const std::string& path, const std::function<bool(SarvaneBench::CorpusDocument&&)>& take) {
    if (fs::is_directory(path)) {
        std::vector<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(path))
            if (entry.is_regular_file()) files.push_back(entry.path().string());
        std::sort(files.begin(), files.end());
        for (const auto& file : files) {
            std::ifstream in(file, std::ios::binary);
            std::ostringstream text;
            text << in.rdbuf();
            if (!take({file, text.str()})) return;
        }
        return;
    }
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read " + path);
    for (std::string line; std::getline(in, line);)
        if (!take(SarvaneBench::ParseCorpusLine(line))) return;
}

std::string SliceDirectory(const Options& options, unsigned slice) {
    return options.dir + "/slice" + std::to_string(slice + 1);
}

SarvaneConfig DriverConfig(const Options& options, unsigned slice) {
    SarvaneConfig config(1, 1, uint16_t(slice + 1));
    config.SetIndexFilesPath(Vantu::FromUtf8(SliceDirectory(options, slice)));
    // Every query comes from nobody in particular: with security on it would match nothing.
    config.SetDocumentLevelSecurity(false);
    // Without the cache nearly every run evaluates its query: see the run order in RunQueries.
    if (!options.cache) config.SetQueryCacheSize(0);
    return config;
}

uint64_t DirectoryBytes(const std::string& dir) {
    uint64_t total = 0;
    for (const auto& entry : fs::recursive_directory_iterator(dir))
        if (entry.is_regular_file()) total += entry.file_size();
    return total;
}

void Index(const Options& options) {
    VantuLanguage::Language language(VantuLanguage::Language::kEnglish);
    VantuLanguage::StopWords stopWords;
    const DocumentAnalyser analyser(language, stopWords);
    std::vector<std::unique_ptr<Sarvane>> slices;
    for (unsigned i = 0; i < options.slices; ++i) {
        fs::remove_all(SliceDirectory(options, i));
        slices.push_back(std::make_unique<Sarvane>(DriverConfig(options, i)));
        slices.back()->AddSupportedCollection(1);
        slices.back()->Start(false);
    }
    uint64_t documents = 0, textBytes = 0;
    double analysis = 0;
    const auto start = Clock::now();
    ForEachDocument(options.corpus, [&](SarvaneBench::CorpusDocument&& text) {
        const auto analysed = Clock::now();
        auto document = SarvaneBench::AnalysedDocument(analyser, text);
        analysis += Seconds(analysed);
        Sarvane& slice = *slices[documents % options.slices];
        slice.AddDocument(document, uint32_t(documents));
        textBytes += text.text.size();
        // Each slice commits after its own share of a batch.
        if (++documents % (uint64_t(options.batch) * options.slices) == 0)
            for (auto& each : slices) {
                each->PreCommit();
                each->Commit();
            }
        return documents < options.limit;
    });
    for (auto& slice : slices) {
        slice->PreCommit();
        slice->Commit();
    }
    for (auto& slice : slices) slice->Flush();
    const double seconds = Seconds(start);
    uint64_t inIndex = 0;
    for (auto& slice : slices) {
        inIndex += slice->GetNumberOfDocuments();
        slice->Stop(false);
    }
    std::ofstream(options.dir + "/built") << options.slices << " " << documents << "\n";
    const double megabytes = double(textBytes) / (1 << 20);
    std::printf("documents          %llu (%llu in the index)\n", (unsigned long long)documents,
                (unsigned long long)inIndex);
    std::printf("text MB            %.1f\n", megabytes);
    std::printf("seconds            %.1f (analysis %.1f)\n", seconds, analysis);
    std::printf("documents/s        %.0f\n", double(documents) / seconds);
    std::printf("MB/s               %.2f\n", megabytes / seconds);
}

struct Query {
    std::string type, text;
};

std::string Lower(std::string text) {
    for (char& c : text) c = char(std::tolower((unsigned char)c));
    return text;
}

std::string DerivedType(const std::string& text) {
    if (text.find('"') != std::string::npos) return "phrase";
    std::istringstream words(Lower(text));
    unsigned count = 0;
    std::string op = "term";
    for (std::string word; words >> word;) {
        if (word == "and" || word == "or") op = word;
        else ++count;
    }
    return std::to_string(count) + "-" + op;
}

std::vector<Query> ReadQueries(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read " + path);
    std::vector<Query> queries;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        const size_t tab = line.find('\t');
        if (tab == std::string::npos) queries.push_back({DerivedType(line), line});
        else queries.push_back({line.substr(0, tab), line.substr(tab + 1)});
    }
    return queries;
}

double Percentile(std::vector<double> samples, double p) {
    std::sort(samples.begin(), samples.end());
    return samples[std::min(samples.size() - 1, size_t(p * double(samples.size())))];
}

void RunQueries(const Options& options) {
    const std::vector<Query> queries = ReadQueries(options.queries);
    std::vector<std::unique_ptr<Sarvane>> slices;
    for (unsigned i = 0; i < options.slices; ++i) {
        slices.push_back(std::make_unique<Sarvane>(DriverConfig(options, i)));
        slices.back()->AddSupportedCollection(1);
        slices.back()->Start(true);
    }
    struct Samples {
        std::vector<double> millis;
        double results = 0;
    };
    std::map<std::string, Samples> byType;
    // Without the cache the runs go round the whole file: a zero cache still keeps the last answer, which a
    // query's next run would hit. With it each query's runs go back to back, so that the counted runs are hits.
    for (size_t pass = 0; pass < queries.size() * options.runs; ++pass) {
        const size_t run = options.cache ? pass % options.runs : pass / queries.size();
        const Query& query = queries[options.cache ? pass / options.runs : pass % queries.size()];
        const std::u16string text = Vantu::FromUtf8(query.text);
        double millis = 0;
        unsigned matches = 0;
        for (auto& slice : slices) {
            std::vector<IndexedDocumentWeight> results;
            QueryAnswer answer;
            const auto start = Clock::now();
            slice->PerformQuery(text, u"", {}, {}, results, 0, 10, false, true, Relevance, u"", answer);
            millis += Seconds(start) * 1000;
            matches += answer.total;
        }
        if (run == 0) continue;
        Samples& samples = byType[query.type];
        samples.millis.push_back(millis);
        samples.results += matches;
    }
    for (auto& slice : slices) slice->Stop(false);
    if (options.runs < 2) return;
    std::printf("\n%-10s %8s %10s %10s %14s\n", "type", "queries", "p50 ms", "p99 ms", "mean results");
    for (const auto& [type, samples] : byType)
        std::printf("%-10s %8zu %10.3f %10.3f %14.0f\n", type.c_str(), samples.millis.size() / (options.runs - 1),
                    Percentile(samples.millis, 0.5), Percentile(samples.millis, 0.99),
                    samples.results / double(samples.millis.size()));
}

void PrintPeakResident(const char* format) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf(format, double(usage.ru_maxrss) / 1024);
}

bool ParseOptions(int argc, char** argv, Options& options) {
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--reuse") options.reuse = true;
        else if (arg == "--cache") options.cache = true;
        else if (arg == "--dir" && hasValue) options.dir = argv[++i];
        else if (arg == "--slices" && hasValue) options.slices = unsigned(std::stoul(argv[++i]));
        else if (arg == "--batch" && hasValue) options.batch = unsigned(std::stoul(argv[++i]));
        else if (arg == "--limit" && hasValue) options.limit = std::stoull(argv[++i]);
        else if (arg == "--runs" && hasValue) options.runs = unsigned(std::stoul(argv[++i]));
        else if (arg.rfind("--", 0) == 0) return false;
        else positional.push_back(arg);
    }
    if (positional.size() != 2 || options.slices == 0 || options.batch == 0 || options.limit == 0) return false;
    options.corpus = positional[0];
    options.queries = positional[1];
    if (options.dir.empty()) {
        options.dir = SarvaneBench::FreshDirectory();
        options.ownDir = true;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    try {
        if (!ParseOptions(argc, argv, options)) {
            std::fputs(kUsage, stderr);
            return 2;
        }
        fs::create_directories(options.dir);
        std::ifstream built(options.dir + "/built");
        if (options.reuse && built >> options.slices)
            std::printf("index              reused from %s (%u slices)\n", options.dir.c_str(), options.slices);
        else
            Index(options);
        uint64_t indexBytes = 0;
        for (unsigned i = 0; i < options.slices; ++i) indexBytes += DirectoryBytes(SliceDirectory(options, i));
        std::printf("index MB           %.1f\n", double(indexBytes) / (1 << 20));
        PrintPeakResident("peak resident MB   %.1f\n");
        RunQueries(options);
        PrintPeakResident("\npeak resident MB   %.1f after the queries\n");
    } catch (const Vantu::BaseException& error) {
        std::fprintf(stderr, "sarvane-driver: %s\n", Vantu::ToUtf8(error.What()).c_str());
        return 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "sarvane-driver: %s\n", error.what());
        return 1;
    }
    if (options.ownDir) fs::remove_all(options.dir);
    return 0;
}
