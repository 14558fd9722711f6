#include "SliceCheck.h"

#include <gtest/gtest.h>

#include "FileCollections.h"
#include "FileDocIdIndexId.h"
#include "FileIndexedDocuments.h"
#include "FileIndexedTerms.h"
#include "FileSmallTerms.h"
#include "Lexicon.h"
#include "SarIndexChecker.h"
#include "SarIndexInfo.h"
#include "SarSliceStores.h"
#include "SarTransaction.h"
#include "SarTransactionRecords.h"
#include "Sarvane.h"
#include "SliceFiles.h"
#include "core/Text.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "file/FileSystem.h"
#include "store/BitsReaderWriter.h"
#include "store/EliasDeltaCodes.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

using namespace Ostrel;

namespace SarvaneTest {

std::string SliceFaults(const std::string& dir) {
    SarCheckReport report;
    CheckSlice(dir, report);
    return report.Sound() ? "" : report.ToString();
}

void ExpectSliceSound(const std::string& dir) {
    const std::string faults = SliceFaults(dir);
    EXPECT_EQ(faults, "") << "the checker finds faults in " << dir;
}

SampleSlice SampleContents() {
    SampleSlice sample;
    for (uint32_t d = 0; d < SampleSlice::kDocuments; ++d) {
        // In every document, with positions far apart so that most codes need a record of their own.
        sample.postings["all"][d] = {d, 300 + d, 70000 + 3 * d};
        if (d % 2 == 0 && d < 40) sample.postings["even"][d] = {1};
        if (d % 13 == 0) sample.postings["rare" + std::to_string(d % 3)][d] = {2, 3};
        if (d >= 40) sample.postings["late"][d] = {};
        sample.documentMap[1000 + d] = d;
    }
    return sample;
}

namespace {

using Vector = Vantu::FastVector<unsigned int>;

std::vector<uint8_t> Unit(const std::function<void(Vantu::BaseBinaryStream&)>& write) {
    VantuFile::MemoryBuffer memory(256);
    VantuCompression::ZLib zlib(1, 5, 15);
    VantuCompression::OCompressedBufferT<unsigned int> deflater(memory, &zlib);
    Vantu::BinaryStreamT<unsigned int> out(deflater);
    write(out);
    deflater.Finish();
    return {memory.Data(), memory.Data() + memory.DataSize()};
}

std::vector<uint8_t> Codes(const std::vector<uint32_t>& positions) {
    VantuFile::MemoryBuffer memory(64);
    VantuCompression::BitsReaderWriter bits(&memory);
    Vector list;
    for (uint32_t position : positions) list.push_back(position);
    VantuCompression::EliasDeltaCodes().Compress(list, true, bits, 0);
    bits.EndWrite();
    return {memory.Data(), memory.Data() + memory.DataSize()};
}

// A document record as the reader hands it to the store: the stream stands behind the collection field.
void AddRecord(FileIndexedDocuments& documents, const TransactionDocumentRecord& record) {
    VantuFile::MemoryBuffer memory(256);
    Vantu::BinaryStreamT<unsigned int> stream(memory);
    record.Write(stream, false);
    uint32_t documentId;
    uint8_t shingles;
    uint16_t collection;
    stream >> documentId >> shingles >> collection;
    documents.AddDocument(documentId, collection, stream);
}

void AddDocument(FileIndexedDocuments& documents, uint32_t id) {
    IndexedDocument indexed;
    indexed.uri = "file://sample/" + std::to_string(id);
    indexed.title = u"Sample";
    indexed.documentId = id;
    indexed.collection = SampleSlice::Collection(id);
    indexed.signature.fill(uint8_t(id));
    TransactionDocumentRecord record;
    record.documentId = id;
    record.collection = indexed.collection;
    record.signature = indexed.signature;
    record.stored = Unit([&](Vantu::BaseBinaryStream& out) { indexed.Save(out); });
    record.words = Unit([&](Vantu::BaseBinaryStream& out) {
        out << uint32_t(1);
        WriteTransactionWord(out, u"sample", 2);
    });
    AddRecord(documents, record);
}

// The stores of the sample, opened on one directory, committed together.
struct Stores {
    explicit Stores(const std::string& dir) : opened(SarSliceStores::OpenStopped(SliceConfigIn(dir), false)) {}

    void Begin() {
        documents->BeginTransaction();
        collections->BeginTransaction();
        lexicon->BeginTransaction();
    }

    void Commit(const std::string& dir) {
        const bool go = false;
        documents->PreCommit(go);
        collections->PreCommit(go);
        map->PreCommit();
        lexicon->PreCommit(go);
        SarIndexInfo info;
        documents->SaveInfo(info);
        lexicon->SaveInfo(info);
        info.Save(dir, true, false);
        documents->Commit(go);
        collections->Commit(go);
        map->Commit();
        lexicon->Commit(go, nullptr);
    }

    const std::unique_ptr<SarSliceStores> opened;
    FileIndexedDocuments* const documents = opened->documents.Get();
    FileCollections* const collections = opened->collections.Get();
    Lexicon* const lexicon = opened->lexicon.Get();
    FileDocIdIndexId* const map = opened->documentIdMap.Get();
};

// Adds the postings of documents [first, end) of every sample term.
void AddPostings(Lexicon& lexicon, const SampleSlice& sample, uint32_t first, uint32_t end) {
    for (const auto& [term, documents] : sample.postings) {
        std::vector<TransactionTermOperation> operations;
        std::vector<std::vector<uint8_t>> codes;
        for (auto at = documents.lower_bound(first); at != documents.end() && at->first < end; ++at) {
            operations.emplace_back(at->first, uint32_t(at->second.size()), 0);
            codes.push_back(at->second.empty() ? std::vector<uint8_t>() : Codes(at->second));
        }
        if (operations.empty()) continue;
        FileIndexedTerms::Operations pointers;
        for (size_t i = 0; i < operations.size(); ++i) {
            operations[i].SetData(codes[i].data(), uint16_t(codes[i].size()));
            pointers.push_back(&operations[i]);
        }
        lexicon.AddDocumentsForTerm(term, pointers);
    }
}

void AddDocuments(Stores& stores, const SampleSlice& sample, uint32_t first, uint32_t end) {
    for (uint32_t d = first; d < end; ++d) {
        AddDocument(*stores.documents, d);
        stores.collections->AddDocument(d, SampleSlice::Collection(d));
        stores.map->AddDocument(1000 + d);
    }
    AddPostings(*stores.lexicon, sample, first, end);
}

}  // namespace

void BuildSampleSlice(const std::string& dir) {
    const SampleSlice sample = SampleContents();
    {
        Stores stores(dir);
        stores.Begin();
        AddDocuments(stores, sample, 0, 40);
        stores.Commit(dir);
    }
    Stores stores(dir);
    stores.Begin();
    std::map<std::u16string, uint32_t> words;
    stores.documents->DeleteDocument(SampleSlice::kDeleted, words);
    stores.collections->DeleteDocument(SampleSlice::kDeleted, SampleSlice::Collection(SampleSlice::kDeleted));
    AddDocuments(stores, sample, 40, SampleSlice::kDocuments);
    stores.Commit(dir);
}

}  // namespace SarvaneTest

namespace SarvaneTest {

void ApplyAsTransaction(const std::string& dir, const std::vector<Vantu::SmartPtr<Document>>& documents,
                        uint32_t firstIndexId) {
    SarvaneConfig config(1, 1, 1);
    config.SetIndexFilesPath(Vantu::FromUtf8(dir));
    Sarvane slice(config);
    for (const auto& document : documents) slice.AddSupportedCollection(document->collection);
    slice.Start(false);
    for (size_t i = 0; i < documents.size(); ++i) slice.AddDocument(documents[i], firstIndexId + uint32_t(i));
    slice.PreCommit();
    slice.Commit();
    slice.Flush();
    slice.Stop(false);
}

}  // namespace SarvaneTest
