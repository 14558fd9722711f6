#include "SarIndexChecker.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "../../bench/BenchSlice.h"
#include "SarCheckDump.h"
#include "SarTransaction.h"
#include "SliceCheck.h"
#include "SliceFiles.h"
#include "TempDir.h"
#include "core/Text.h"
#include "file/FileSystem.h"

using namespace Ostrel;
using namespace SarvaneTest;

namespace {

std::map<std::string, std::string> Snapshot(const std::string& dir) {
    std::map<std::string, std::string> files;
    for (const std::string& path : VantuFile::ListFiles(dir, "*")) files[path] = FileBytes(path);
    return files;
}

// The sample is built once; each case damages a copy.
const std::string& SampleDir() {
    static TempDir dir;
    static const bool built = (BuildSampleSlice(dir.Path()), true);
    (void)built;
    return dir.Path();
}

void CopySample(const std::string& to) {
    for (const auto& entry : std::filesystem::directory_iterator(SampleDir()))
        std::filesystem::copy_file(entry.path(), std::filesystem::path(to) / entry.path().filename());
}

uint64_t U64At(const std::string& bytes, size_t at) {
    uint64_t v = 0;
    for (size_t i = 8; i-- > 0;) v = v << 8 | uint8_t(bytes[at + i]);
    return v;
}

void Patch(const std::string& path, uint64_t offset, const std::string& bytes) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(std::streamoff(offset));
    file.write(bytes.data(), std::streamsize(bytes.size()));
}

std::string U32Bytes(uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; }

struct Damage {
    const char* what;
    std::function<uint64_t(const std::string& dir)> plant;  // returns the offset the finding must name
    const char* file;
    const char* rule;
};

// The first free block of "Documents.din.pty", the room document 5 left.
uint64_t FirstFreeOffset(const std::string& dir) { return U64At(FileBytes(dir + "/Documents.din.pty"), 4); }

const Damage kDamages[] = {
    {"a flipped byte in a record",
     [](const std::string& dir) {
         Patch(dir + "/Documents.dix", 7 * 27 + 5, "\x7F");  // the offset of document 7 goes far past the file
         return uint64_t(7 * 27);
     },
     "Documents.dix", "document-block"},
    {"a truncated record file",
     [](const std::string& dir) {
         std::filesystem::resize_file(dir + "/Terms.tix", 3 * 35 + 10);
         return uint64_t(3 * 35);
     },
     "Terms.tix", "file-size"},
    {"a truncated data file",
     [](const std::string& dir) {
         const std::string dix = FileBytes(dir + "/Documents.dix");
         std::filesystem::resize_file(dir + "/Documents.din", U64At(dix, 44 * 27) + 3);
         return uint64_t(44 * 27);
     },
     "Documents.dix", "document-block"},
    {"a block overlapping a free block",
     [](const std::string& dir) {
         // Document 0 stands at offset 0; a free block over its first bytes goes in front of the list.
         std::string list = FileBytes(dir + "/Documents.din.pty");
         const uint32_t count = uint8_t(list[0]) + 1;
         list = U32Bytes(count) + std::string(8, '\0') + U32Bytes(16) + std::string(4, '\0') + list.substr(4);
         std::ofstream(dir + "/Documents.din.pty", std::ios::binary) << list;
         return uint64_t(0);
     },
     "Documents.din.pty", "free-list-overlap"},
    {"a leaked block",
     [](const std::string& dir) {
         const uint64_t hole = FirstFreeOffset(dir);
         std::string list = FileBytes(dir + "/Documents.din.pty");
         list = U32Bytes(uint8_t(list[0]) - 1) + list.substr(20);
         std::ofstream(dir + "/Documents.din.pty", std::ios::binary) << list;
         return hole;
     },
     "Documents.din", "leaked-block"},
    {"a posting list out of order",
     [](const std::string& dir) {
         // Term 1 ("even") holds 20 postings in one plain chunk: swap its first two.
         const uint64_t block = U64At(FileBytes(dir + "/Terms.tix"), 35 + 5);
         const std::string chunk = FileBytes(dir + "/Terms.tin").substr(block + 4, 12);
         Patch(dir + "/Terms.tin", block + 4, chunk.substr(6, 6) + chunk.substr(0, 6));
         return uint64_t(35);
     },
     "Terms.tix", "posting-order"},
    {"a position record cut by its length",
     [](const std::string& dir) {
         Patch(dir + "/Terms.0.tps", 0, "\xFF\x7F");  // term 0's records are in file 0
         return uint64_t(0);
     },
     "Terms.0.tps", "positions-record"},
    {"a commit log without its end",
     [](const std::string& dir) {
         SarTransaction log(Vantu::FromUtf8(dir + "/Terms.ttr"), true);
         log.Open(false);
         const std::string head = std::string(28, '\0') + U32Bytes(1) + U32Bytes(0) + U32Bytes(0);
         log.GetStream().PutExact(head.data(), head.size());
         log.Close();
         return uint64_t(40);
     },
     "Terms.ttr", "log-unended"},
    {"a damaged tree page",
     [](const std::string& dir) {
         Patch(dir + "/Lexicon-Freq.ltr", 0x10000 - 3, "\x55");
         return uint64_t(0);
     },
     "Lexicon-Freq.ltr", "tree-page"},
};

bool Reported(const SarCheckReport& report, const Damage& damage, uint64_t offset) {
    for (const SarCheckFinding& f : report.findings)
        if (!f.information && f.file == damage.file && f.rule == damage.rule && f.offset == offset) return true;
    return false;
}

// The raw value of `name` in a JSON line: a number, a string with its quotes, or an array with its brackets.
std::string Field(const std::string& line, const std::string& name) {
    const size_t at = line.find("\"" + name + "\":");
    if (at == std::string::npos) return "";
    const size_t begin = at + name.size() + 3;
    const size_t end = line[begin] == '[' ? line.find(']', begin) + 1 : line.find_first_of(",}", begin);
    return line.substr(begin, end - begin);
}

std::vector<std::string> Lines(const std::function<void(std::ostream&)>& dump) {
    std::stringstream out;
    dump(out);
    std::vector<std::string> lines;
    for (std::string line; std::getline(out, line);) lines.push_back(line);
    return lines;
}

std::string PositionsJson(const std::vector<uint32_t>& positions) {
    std::string text = "[";
    for (uint32_t p : positions) text += (text.size() > 1 ? "," : "") + std::to_string(p);
    return text + "]";
}

}  // namespace

TEST(SarIndexChecker, ASoundSliceHasNoFaultAndNoByteChanges) {
    const auto before = Snapshot(SampleDir());
    SarCheckReport report;
    uint64_t progressCalls = 0;
    report.progress = [&](uint64_t, uint64_t) { ++progressCalls; };
    CheckSlice(SampleDir(), report);
    EXPECT_TRUE(report.Sound()) << report.ToString();
    EXPECT_TRUE(report.findings.empty()) << report.ToString();
    EXPECT_GT(report.bytesChecked, 0u);
    EXPECT_GT(progressCalls, 0u);
    EXPECT_EQ(Snapshot(SampleDir()), before);
}

TEST(SarIndexChecker, EachPlantedDamageIsReportedWithItsFileOffsetAndRule) {
    for (const Damage& damage : kDamages) {
        TempDir dir;
        CopySample(dir.Path());
        const uint64_t offset = damage.plant(dir.Path());
        const auto before = Snapshot(dir.Path());
        SarCheckReport report;
        CheckSlice(dir.Path(), report);
        EXPECT_TRUE(Reported(report, damage, offset))
            << damage.what << ": expected " << damage.file << " @" << offset << " [" << damage.rule << "], found\n"
            << report.ToString();
        EXPECT_EQ(Snapshot(dir.Path()), before) << damage.what;
    }
}

TEST(SarCheckDump, ListsExactlyTheTermsPositionsAndRecordsOfTheSample) {
    const SampleSlice sample = SampleContents();
    const SarCheckDump dump(SampleDir());

    std::set<std::string> terms;
    for (const std::string& line : Lines([&](std::ostream& out) { dump.Terms(out); })) {
        const std::string term = Field(line, "term");
        terms.insert(term.substr(1, term.size() - 2));
        EXPECT_EQ(Field(line, "documents"), std::to_string(sample.postings.at(term.substr(1, term.size() - 2)).size()));
    }
    std::set<std::string> expected;
    for (const auto& [term, postings] : sample.postings) expected.insert(term);
    EXPECT_EQ(terms, expected);

    for (const auto& [name, postings] : sample.postings) {
        const std::string term = name;  // clang 14 can't capture a structured binding in a lambda
        std::map<uint32_t, std::string> found;
        for (const std::string& line : Lines([&](std::ostream& out) { dump.Term(term, out); }))
            found[uint32_t(std::stoul(Field(line, "document")))] = Field(line, "positions");
        std::map<uint32_t, std::string> wanted;
        for (const auto& [document, positions] : postings) wanted[document] = PositionsJson(positions);
        EXPECT_EQ(found, wanted) << term;
    }
    EXPECT_TRUE(Lines([&](std::ostream& out) { dump.Term("absent", out); }).empty());

    for (uint32_t d = 0; d < SampleSlice::kDocuments; ++d) {
        const auto lines = Lines([&](std::ostream& out) { dump.Document(d, out); });
        ASSERT_EQ(lines.size(), 1u);
        if (d == SampleSlice::kDeleted) {
            EXPECT_EQ(Field(lines[0], "blank"), "true");
            continue;
        }
        EXPECT_EQ(Field(lines[0], "uri"), "\"file://sample/" + std::to_string(d) + "\"");
        EXPECT_EQ(Field(lines[0], "collection"), std::to_string(SampleSlice::Collection(d)));
        EXPECT_EQ(Field(lines[0], "words"), "{\"sample\":2");
    }

    std::map<std::string, std::string> lists;
    for (const std::string& line : Lines([&](std::ostream& out) { dump.Lists(out); }))
        lists[Field(line, "store") + Field(line, "list")] = Field(line, "documents");
    std::map<std::string, std::string> wantedLists;
    for (uint16_t c = 0; c < 3; ++c) {
        std::vector<uint32_t> documents;
        for (uint32_t d = c; d < SampleSlice::kDocuments; d += 3)
            if (d != SampleSlice::kDeleted) documents.push_back(d);
        wantedLists["\"Collections\"" + std::to_string(c)] = PositionsJson(documents);
    }
    EXPECT_EQ(lists, wantedLists);
}

// The slice of the shared corpus: SARVANE_CORPUS names it, SARVANE_CHECK_CORPUS_MB the text to take (none by
// default) and SARVANE_CHECK_KEEP a directory to build the slice in and leave for sarvane-check.
TEST(SarIndexChecker, TheSliceOfTheSharedCorpusIsSound) {
    const char* megabytes = std::getenv("SARVANE_CHECK_CORPUS_MB");
    const auto corpus = SarvaneBench::LoadCorpus(megabytes ? size_t(std::stoul(megabytes)) << 20 : 0);
    if (corpus.empty()) GTEST_SKIP() << "set SARVANE_CORPUS and SARVANE_CHECK_CORPUS_MB";
    TempDir temporary;
    const std::string dir = std::getenv("SARVANE_CHECK_KEEP") ? std::getenv("SARVANE_CHECK_KEEP") : temporary.Path();
    VantuLanguage::Language language(VantuLanguage::Language::kEnglish);
    VantuLanguage::StopWords stopWords;
    const DocumentAnalyser analyser(language, stopWords);
    constexpr size_t kBatch = 5000;
    for (size_t first = 0; first < corpus.size(); first += kBatch) {
        std::vector<Vantu::SmartPtr<Document>> documents;
        for (size_t i = first; i < std::min(first + kBatch, corpus.size()); ++i)
            documents.push_back(SarvaneBench::AnalysedDocument(analyser, corpus[i]));
        try {
            ApplyAsTransaction(dir, documents, uint32_t(first + 1));
        } catch (const Vantu::BaseException& e) {
            FAIL() << e.WhatUtf8();
        }
    }
    ExpectSliceSound(dir);
}
