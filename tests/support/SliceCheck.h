// What tests share around the index checker: the verdict on a directory, and a small slice of known content
// built through the stores themselves. Test thread only.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Document.h"

namespace SarvaneTest {

// "" for a sound directory, else the checker's findings, one a line.
std::string SliceFaults(const std::string& dir);
// A gtest expectation that the directory is sound, the findings printed when it isn't.
void ExpectSliceSound(const std::string& dir);

// What BuildSampleSlice puts in a slice: documents 0 to 44 in collections id % 3, document 5 deleted again,
// and the terms below with their positions per document.
struct SampleSlice {
    static constexpr uint32_t kDocuments = 45;
    static constexpr uint32_t kDeleted = 5;
    static uint16_t Collection(uint32_t documentId) { return uint16_t(documentId % 3); }
    // term, document, positions (ascending)
    std::map<std::string, std::map<uint32_t, std::vector<uint32_t>>> postings;
    // Index document id to document id, in the document-id map.
    std::map<uint32_t, uint32_t> documentMap;
};

// The content, the same at every call.
SampleSlice SampleContents();
// Builds the sample in `dir` (empty) in two committed transactions: documents, postings through the dictionary,
// collections, the document-id map and "Index.info".
void BuildSampleSlice(const std::string& dir);

// Adds the analysed documents to the slice in `dir` as one transaction, with index document ids from
// `firstIndexId`, and waits until the slice's reader applied it.
void ApplyAsTransaction(const std::string& dir, const std::vector<Vantu::SmartPtr<Ostrel::Document>>& documents,
                        uint32_t firstIndexId);

}  // namespace SarvaneTest
