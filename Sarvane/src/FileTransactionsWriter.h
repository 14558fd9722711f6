// Turns a slice's incoming changes into one transaction file: document records go to the compressed body at
// once, term operations wait in memory, grouped by term, until PreCommit writes them in term order.
// Called only under the slice's writer lock; the statistics it shares are guarded by their own section.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CustomField.h"
#include "Document.h"
#include "DocumentWordStream.h"
#include "IndexedDocument.h"
#include "FileDocIdIndexId.h"
#include "SarTransaction.h"
#include "SarvaneInternalConfig.h"
#include "SarvaneStatistics.h"
#include "TransactionTermOperation.h"
#include "core/LogCallInterface.h"
#include "core/RefCounted.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "store/BitsReaderWriter.h"

namespace Ostrel {

class FileTransactionsWriter : public Vantu::SPRefCounter {
public:
    // Creates "<path>.ttp": from here on a crash leaves a file that recovery deletes.
    FileTransactionsWriter(const Vantu::SmartPtr<SarvaneInternalConfig>& config,
                           const Vantu::SmartPtr<FileDocIdIndexId>& documentIdMap, const std::u16string& path,
                           SarvaneSliceStatistics& statistics, std::mutex& statisticsSection,
                           uint32_t& pendingTransactions, const Vantu::SmartPtr<Vantu::LogCallInterface>& log);
    ~FileTransactionsWriter() override;

    // The slice's document id, or 0xFFFFFFFF for a document whose word stream is empty (no id is used). A
    // document refused for its stream or its fields takes no id and leaves no trace.
    uint32_t AddDocument(const Vantu::SmartPtrToConst<Document>& document, uint32_t indexDocumentId);
    // Pairs of (index document id, collection), ascending; ids the slice doesn't hold are dropped.
    void DeleteDocuments(const std::vector<std::pair<uint32_t, uint16_t>>& documents);
    // Pairs of (index document id, rank), ascending; a later rank of a document replaces an earlier one.
    void UpdateDocumentsRank(const std::vector<std::pair<uint32_t, float>>& ranks);
    // Writes the sections and the trailer and makes the file "<path>.trc"; with nothing to say, no file stays.
    void PreCommit();
    // Makes "<path>.trc" the transaction "<path>", which the reader may take from then on.
    void Commit();

    // Settles what a crash left, by file names alone: ".ttp" files go and the id map rolls back; a ".trc" is
    // finished when `recover`, else removed with the others.
    static void DoRecovery(const Vantu::SmartPtr<SarvaneInternalConfig>& config, FileDocIdIndexId& documentIdMap,
                           bool recover, const Vantu::SmartPtr<Vantu::LogCallInterface>& log);
    // Whether a pre-committed transaction waits for the container's decision.
    static bool CheckForRecovery(const SarvaneInternalConfig& config);
    static const char* GetTransactionFileExtension() { return ".trn"; }

    // Bytes held for the term operations until PreCommit: operations, position data and the term maps.
    uint64_t MemoryInUse() const;

private:
    using OperationList = std::vector<TransactionTermOperation*>;
    using TermMap = std::map<std::string, OperationList>;

    // Files the operations of one term list of document `id` under their terms.
    void AddTermOperations(DocumentWordStream::TermList& terms, uint32_t id, TermMap& map, uint32_t& count,
                           uint32_t& bytes);
    void CodePositions(Vantu::FastVector<unsigned int>& positions);
    const uint8_t* KeepPositionData(uint32_t size);
    void AddCustomFields(std::vector<DocumentWordStream::Field>& fields, uint32_t id, IndexedDocument& indexed,
                         std::vector<CustomField>& recorded);
    void AddWordCorrectorWords(const std::vector<DocumentWordStream::WordCount>& words);
    void WriteTermTable(Vantu::BaseBinaryStream& stream, TermMap& map);
    void WriteSections(Vantu::BaseBinaryStream& stream);
    void WriteDeletions(Vantu::BaseBinaryStream& stream);
    void WriteTrailer();
    void UpdateTermOperations(TermMap& map, uint32_t& count, uint32_t& bytes);
    void UpdateSmallTerms();
    void FreeOperations();

    const Vantu::SmartPtr<SarvaneInternalConfig> config_;
    const Vantu::SmartPtr<FileDocIdIndexId> documentIdMap_;
    const std::u16string path_;
    std::vector<std::pair<uint32_t, uint16_t>> documentsToDelete_;
    std::vector<std::pair<uint32_t, float>> documentRanks_;
    TermMap termOperations_;
    std::map<std::string, TermMap> customFieldOperations_;
    std::map<std::string, std::vector<uint32_t>> fieldDocuments_;
    // The operations live in one array per term list of a document; the maps only point at them.
    std::vector<std::unique_ptr<TransactionTermOperation[]>> operationBlocks_;
    uint64_t operationsHeld_ = 0;
    // Position data lives in large blocks that never move.
    std::vector<std::unique_ptr<uint8_t[]>> dataBlocks_;
    uint32_t dataBlockUsed_ = 0;
    uint32_t operationCount_ = 0;
    uint32_t customFieldOperationCount_ = 0;
    uint32_t operationBytes_ = 0;
    uint32_t customFieldOperationBytes_ = 0;
    uint64_t termBytes_ = 0;  // of the maps' keys and nodes, for MemoryInUse
    SarvaneSliceStatistics& statistics_;
    std::mutex& statisticsSection_;
    uint32_t& pendingTransactions_;  // of the slice, under statisticsSection_
    // (added, deleted) per collection: the trailer.
    std::map<uint16_t, std::pair<uint32_t, uint32_t>> transactionCollections_;
    VantuFile::MemoryBuffer positionBuffer_{0x10000};
    VantuCompression::BitsReaderWriter positionBits_{&positionBuffer_};
    const Vantu::SmartPtr<Vantu::LogCallInterface> log_;
    SarTransaction transaction_;
    std::map<std::u16string, uint32_t> wordCorrectorWords_;
    uint32_t documentsToAdd_ = 0;
    uint32_t deletionCount_ = 0;
    const bool securityEnabled_;
    std::set<uint32_t> addedDocuments_;
    std::set<uint32_t> removedDocuments_;
    // The stored document and its word list, each one zlib unit in memory.
    VantuFile::MemoryBuffer storedOutput_{32768};
    VantuFile::MemoryBuffer wordsOutput_{32768};
};

}  // namespace Ostrel
