#include "FileTransactionsWriter.h"

#include <algorithm>
#include <cstring>

#include "DocumentWordStream.h"
#include "IndexedDocument.h"
#include "Lexicon.h"
#include "SarException.h"
#include "SarStoreFiles.h"
#include "SarTransactionRecords.h"
#include "SarvaneConfigLock.h"
#include "SarvaneConfigValues.h"
#include "SummarySentence.h"
#include "core/LogEntry.h"
#include "core/Text.h"
#include "file/FileSystem.h"
#include "store/EliasDeltaCodes.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

namespace Ostrel {

namespace {

using ConfigRead = SarvaneConfigReadLock<SarvaneInternalConfig>;

constexpr uint32_t kDataBlockSize = 0x20000;
constexpr uint32_t kMaxDataLength = 0xFFFF;
constexpr uint32_t kNoDocumentId = 0xFFFFFFFF;
// What a map node with its key and list costs beyond the key's bytes, roughly, for MemoryInUse.
constexpr uint64_t kTermNodeBytes = 96;

std::string Narrow(const std::u16string& path) { return SarNarrowPath(path); }

bool SecurityEnabled(const SarvaneInternalConfig& config) {
    ConfigRead hold(config);
    return config.GetDocumentLevelSecurity();
}

std::u16string IndexPath(const SarvaneInternalConfig& config) {
    ConfigRead hold(config);
    return config.GetIndexFilesPath();
}

// Runs `body` on a stream whose bytes become one zlib unit in `out`.
template <class Body>
void WriteUnit(VantuFile::MemoryBuffer& out, Body&& body) {
    out.Clear();
    VantuCompression::ZLib zlib(1, 5, 15);
    VantuCompression::OCompressedBufferT<unsigned int> deflater(out, &zlib);
    Vantu::BaseBinaryStream stream(&deflater);
    body(stream);
    deflater.Finish();
}

// A term longer than the dictionary takes refuses the whole document, so that every committed transaction can be
// applied; the text names the term's beginning, cut at a character's start.
void CheckTermSizes(const DocumentWordStream::TermList& terms) {
    for (const DocumentWordStream::Term& term : terms) {
        if (term.term.size() <= Lexicon::kMaxTermSize) continue;
        size_t shown = 40;
        while (shown > 0 && (uint8_t(term.term[shown]) & 0xC0) == 0x80) --shown;
        throw SarException(u"Document cannot be added to the index because a term is longer than " +
                           Vantu::FromUtf8(std::to_string(Lexicon::kMaxTermSize)) + u" bytes: " +
                           Vantu::FromUtf8(term.term.substr(0, shown)) + u"...");
    }
}

std::vector<uint8_t> BytesOf(VantuFile::MemoryBuffer& buffer) {
    return std::vector<uint8_t>(buffer.Data(), buffer.Data() + buffer.Size());
}

}  // namespace

FileTransactionsWriter::FileTransactionsWriter(const Vantu::SmartPtr<SarvaneInternalConfig>& config,
                                               const Vantu::SmartPtr<FileDocIdIndexId>& documentIdMap,
                                               const std::u16string& path, SarvaneSliceStatistics& statistics,
                                               std::mutex& statisticsSection, uint32_t& pendingTransactions,
                                               const Vantu::SmartPtr<Vantu::LogCallInterface>& log)
    : config_(config),
      documentIdMap_(documentIdMap),
      path_(path),
      statistics_(statistics),
      statisticsSection_(statisticsSection),
      pendingTransactions_(pendingTransactions),
      log_(log),
      transaction_(path + kTransactionBeingWritten, true),
      securityEnabled_(SecurityEnabled(*config)) {
    transaction_.Open(false);
}

FileTransactionsWriter::~FileTransactionsWriter() = default;

uint32_t FileTransactionsWriter::AddDocument(const Vantu::SmartPtrToConst<Document>& document,
                                             uint32_t indexDocumentId) {
    if (document->wordStream.DataSize() == 0) return kNoDocumentId;
    // Everything that can refuse the document comes before its id is taken and before the term maps change
    // (D2): the stream is read whole, and the fields and terms are checked.
    DocumentWordStream stream = DocumentWordStream::Read(document->wordStream);
    CheckTermSizes(stream.terms);
    CheckTermSizes(stream.lastTerms);
    for (const DocumentWordStream::Field& field : stream.fields) {
        if (field.field.IsIndexed() && CustomField::MakeKey(field.field.Name()).size() > Lexicon::kMaxTermSize)
            throw SarInvalidCustomField(SAR_MESSAGE(13, field.field.Name().substr(1)));
        CheckTermSizes(field.valueTerms);
        CheckTermSizes(field.endTerms);
    }

    std::lock_guard<std::mutex> hold(statisticsSection_);
    SarvaneCollectionStatistics collection = statistics_.collections[document->collection];
    const uint32_t id = documentIdMap_->AddDocument(indexDocumentId);
    ++documentsToAdd_;
    addedDocuments_.insert(id);

    IndexedDocument indexed(*document, id);
    indexed.shingles = std::move(stream.shingles);
    indexed.signature = stream.signature;
    indexed.summarySentences = std::move(stream.sentences);
    indexed.strings = std::move(stream.strings);
    TransactionDocumentRecord record;
    AddTermOperations(stream.terms, id, termOperations_, operationCount_, operationBytes_);
    AddCustomFields(stream.fields, id, indexed, record.customFields);
    AddWordCorrectorWords(stream.words);
    AddTermOperations(stream.lastTerms, id, termOperations_, operationCount_, operationBytes_);
    WriteUnit(storedOutput_, [&](Vantu::BaseBinaryStream& out) { indexed.Save(out); });

    record.documentId = id;
    record.hasShingles = !indexed.shingles.empty();
    record.collection = document->collection;
    record.size = (document->flags & Document::kSizeNotCounted) ? 0 : document->size;
    record.signature = indexed.signature;
    record.stored = BytesOf(storedOutput_);
    record.words = BytesOf(wordsOutput_);
    if (securityEnabled_) {
        record.allowed.assign(document->securityAccess.allowed.begin(), document->securityAccess.allowed.end());
        record.denied.assign(document->securityAccess.denied.begin(), document->securityAccess.denied.end());
    }
    Vantu::BaseBinaryStream& out = transaction_.GetStream();
    out << kTransactionDocumentOpcode;
    record.Write(out, securityEnabled_);

    ++collection.pendingAdded;
    ++transactionCollections_[document->collection].first;
    statistics_.collections[document->collection] = collection;
    return id;
}

void FileTransactionsWriter::AddTermOperations(DocumentWordStream::TermList& terms, uint32_t id, TermMap& map,
                                               uint32_t& count, uint32_t& bytes) {
    if (terms.empty()) return;
    TransactionTermOperation* operations =
        operationBlocks_.emplace_back(new TransactionTermOperation[terms.size()]).get();
    operationsHeld_ += terms.size();
    for (size_t i = 0; i < terms.size(); ++i) {
        DocumentWordStream::Term& term = terms[i];
        Vantu::FastVector<unsigned int>& positions = term.occurence.positions;
        TransactionTermOperation& operation = operations[i];
        operation = TransactionTermOperation(id, uint32_t(positions.size()), term.flags);
        CodePositions(positions);
        const uint32_t size = positionBuffer_.Size();
        operation.SetData(KeepPositionData(size), uint16_t(size));
        bytes += size;
        auto [at, inserted] = map.try_emplace(std::move(term.term));
        if (inserted) termBytes_ += kTermNodeBytes + at->first.size();
        at->second.push_back(&operation);
        ++count;
    }
}

void FileTransactionsWriter::CodePositions(Vantu::FastVector<unsigned int>& positions) {
    positionBuffer_.Clear();
    if (positions.empty()) return;
    const VantuCompression::EliasDeltaCodes codes;
    codes.Compress(positions, true, positionBits_, 0);
    uint32_t size = positionBuffer_.Size();
    // A list that can't be told in a u16 of bytes loses positions from its end; the document stays.
    const double bytesPerPosition = std::max(1.0, double(size) / positions.size());
    while (size > kMaxDataLength) {
        const size_t drop = std::max<size_t>(1, size_t((size - kMaxDataLength) / bytesPerPosition));
        positions.resize(positions.size() - std::min(drop, positions.size() - 1));
        positionBuffer_.Clear();
        codes.Compress(positions, true, positionBits_, 0);
        size = positionBuffer_.Size();
    }
}

const uint8_t* FileTransactionsWriter::KeepPositionData(uint32_t size) {
    if (size == 0) return nullptr;
    if (dataBlocks_.empty() || kDataBlockSize - dataBlockUsed_ < size) {
        dataBlocks_.emplace_back(new uint8_t[kDataBlockSize]);
        dataBlockUsed_ = 0;
    }
    uint8_t* data = dataBlocks_.back().get() + dataBlockUsed_;
    std::memcpy(data, positionBuffer_.Data(), size);
    dataBlockUsed_ += size;
    return data;
}

void FileTransactionsWriter::AddCustomFields(std::vector<DocumentWordStream::Field>& fields, uint32_t id,
                                             IndexedDocument& indexed, std::vector<CustomField>& recorded) {
    for (DocumentWordStream::Field& entry : fields) {
        const CustomField& field = entry.field;
        if (field.Travels())
            (CustomField::GetIsSystemField(field.Name()) ? indexed.systemFields : indexed.userFields).push_back(field);
        if (!field.IsIndexed()) continue;
        const std::string key = CustomField::MakeKey(field.Name());
        if (field.GetType() == CustomField::kString) {
            // Text reaches the index through the term tables; other values through the record.
            TermMap& terms = customFieldOperations_[key];
            AddTermOperations(entry.valueTerms, id, terms, customFieldOperationCount_, customFieldOperationBytes_);
            AddTermOperations(entry.endTerms, id, terms, customFieldOperationCount_, customFieldOperationBytes_);
        } else {
            recorded.push_back(field);
        }
        // Every indexed field, text or not, lists the documents that have it.
        fieldDocuments_[key].push_back(id);
    }
}

void FileTransactionsWriter::AddWordCorrectorWords(const std::vector<DocumentWordStream::WordCount>& words) {
    WriteUnit(wordsOutput_, [&](Vantu::BaseBinaryStream& out) {
        out << uint32_t(words.size());
        for (const auto& [word, frequency] : words)
            wordCorrectorWords_[word] += WriteTransactionWord(out, word, frequency);
    });
}

void FileTransactionsWriter::DeleteDocuments(const std::vector<std::pair<uint32_t, uint16_t>>& documents) {
    std::vector<std::pair<uint32_t, uint16_t>> resolved;
    documentIdMap_->DeleteDocuments(documents, resolved);
    documentsToDelete_.insert(documentsToDelete_.end(), resolved.begin(), resolved.end());
    std::lock_guard<std::mutex> hold(statisticsSection_);
    for (const auto& [id, collectionId] : resolved) {
        SarvaneCollectionStatistics& collection = statistics_.collections[collectionId];
        auto& [added, deleted] = transactionCollections_[collectionId];
        if (addedDocuments_.count(id) == 0) {
            ++collection.pendingDeleted;
            ++deleted;
        } else {
            // Added and deleted by this transaction: as if it had never come.
            --collection.pendingAdded;
            --added;
            removedDocuments_.insert(id);
        }
    }
}

void FileTransactionsWriter::UpdateDocumentsRank(const std::vector<std::pair<uint32_t, float>>& ranks) {
    std::vector<std::pair<uint32_t, float>> known;
    for (const auto& [indexDocumentId, rank] : ranks) {
        const uint32_t id = documentIdMap_->GetDocId(indexDocumentId);
        if (id != FileDocIdIndexId::kNoDocument) known.emplace_back(id, rank);
    }
    // Document ids needn't ascend with index document ids (D3); a stable sort keeps a later rank behind.
    std::stable_sort(known.begin(), known.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::pair<uint32_t, float>> merged;
    merged.reserve(documentRanks_.size() + known.size());
    auto older = documentRanks_.begin();
    for (const auto& entry : known) {
        while (older != documentRanks_.end() && older->first < entry.first) merged.push_back(*older++);
        if (older != documentRanks_.end() && older->first == entry.first) ++older;  // the new rank wins
        if (!merged.empty() && merged.back().first == entry.first)
            merged.back() = entry;  // within one call too
        else
            merged.push_back(entry);
    }
    merged.insert(merged.end(), older, documentRanks_.end());
    documentRanks_ = std::move(merged);
}

void FileTransactionsWriter::PreCommit() {
    if (documentsToAdd_ == 0 && documentsToDelete_.empty() && documentRanks_.empty()) {
        transaction_.Clear();
        FreeOperations();
        return;
    }
    deletionCount_ = uint32_t(documentsToDelete_.size());
    Vantu::BaseBinaryStream& out = transaction_.GetStream();
    out << kTransactionEndOfDocuments;
    if (!removedDocuments_.empty()) {
        UpdateTermOperations(termOperations_, operationCount_, operationBytes_);
        for (auto field = customFieldOperations_.begin(); field != customFieldOperations_.end();) {
            UpdateTermOperations(field->second, customFieldOperationCount_, customFieldOperationBytes_);
            field = field->second.empty() ? customFieldOperations_.erase(field) : std::next(field);
        }
        UpdateSmallTerms();
    }
    WriteSections(out);
    WriteDeletions(out);
    documentIdMap_->PreCommit();
    transaction_.Close();
    WriteTrailer();
    VantuFile::RenameDurably(Narrow(path_ + kTransactionBeingWritten), Narrow(path_ + kTransactionComplete));
    FreeOperations();
}

void FileTransactionsWriter::WriteTermTable(Vantu::BaseBinaryStream& stream, TermMap& map) {
    stream << uint32_t(map.size());
    // The table frees itself as it goes: the memory of a large transaction shrinks while it is written.
    for (auto at = map.begin(); at != map.end(); at = map.erase(at))
        WriteTransactionTerm(stream, at->first, at->second);
}

void FileTransactionsWriter::WriteSections(Vantu::BaseBinaryStream& stream) {
    stream << operationCount_ << operationBytes_;
    WriteTermTable(stream, termOperations_);
    stream << customFieldOperationCount_ << customFieldOperationBytes_ << uint32_t(customFieldOperations_.size());
    for (auto& [field, terms] : customFieldOperations_) {
        stream << std::string_view(field);
        WriteTermTable(stream, terms);
    }
    customFieldOperations_.clear();
    stream << uint32_t(fieldDocuments_.size());
    for (const auto& [field, documents] : fieldDocuments_) {
        stream << std::string_view(field) << uint32_t(documents.size());
        for (const uint32_t id : documents) stream << id;
    }
    fieldDocuments_.clear();
    stream << uint32_t(wordCorrectorWords_.size());
    for (const auto& [word, total] : wordCorrectorWords_) stream << std::u16string_view(word) << total;
    wordCorrectorWords_.clear();
    dataBlocks_.clear();
    stream << uint32_t(documentRanks_.size());
    for (const auto& [id, rank] : documentRanks_) stream << id << rank;
    documentRanks_.clear();
}

void FileTransactionsWriter::WriteDeletions(Vantu::BaseBinaryStream& stream) {
    std::sort(documentsToDelete_.begin(), documentsToDelete_.end());
    documentsToDelete_.erase(std::unique(documentsToDelete_.begin(), documentsToDelete_.end()),
                             documentsToDelete_.end());
    // A document that this transaction both added and deleted never reaches the stores: nothing to delete.
    std::erase_if(documentsToDelete_, [&](const auto& entry) { return removedDocuments_.count(entry.first) != 0; });
    stream << uint32_t(documentsToDelete_.size());
    for (const auto& [id, collection] : documentsToDelete_) stream << id << collection << uint16_t(0);
    documentsToDelete_.clear();
}

void FileTransactionsWriter::WriteTrailer() {
    TransactionTrailer trailer;
    trailer.collections = transactionCollections_;
    trailer.removed.assign(removedDocuments_.begin(), removedDocuments_.end());
    SarTransaction::File& file = transaction_.GetTransactionFile();
    file.Open(SarTransaction::File::kModeReadWrite);
    file.Seek(0, SarTransaction::File::kEnd);
    {
        VantuFile::OCFileBufferT<unsigned int, SarTransaction::File> buffer(file);
        Vantu::BaseBinaryStream stream(&buffer);
        trailer.Write(stream);
        buffer.Flush();
    }
    // The trailer is on disk before the name says that the transaction is whole.
    file.Flush();
    file.Close();
}

void FileTransactionsWriter::UpdateTermOperations(TermMap& map, uint32_t& count, uint32_t& bytes) {
    for (auto term = map.begin(); term != map.end();) {
        std::erase_if(term->second, [&](const TransactionTermOperation* operation) {
            if (removedDocuments_.count(operation->DocumentId()) == 0) return false;
            bytes -= operation->DataLength();
            --count;
            return true;
        });
        term = term->second.empty() ? map.erase(term) : std::next(term);
    }
}

void FileTransactionsWriter::UpdateSmallTerms() {
    for (auto field = fieldDocuments_.begin(); field != fieldDocuments_.end();) {
        std::erase_if(field->second, [&](uint32_t id) { return removedDocuments_.count(id) != 0; });
        field = field->second.empty() ? fieldDocuments_.erase(field) : std::next(field);
    }
}

void FileTransactionsWriter::FreeOperations() {
    termOperations_.clear();
    customFieldOperations_.clear();
    fieldDocuments_.clear();
    wordCorrectorWords_.clear();
    operationBlocks_.clear();
    dataBlocks_.clear();
    operationsHeld_ = termBytes_ = 0;
}

void FileTransactionsWriter::Commit() {
    const std::string complete = Narrow(path_ + kTransactionComplete);
    if (!VantuFile::FileExists(complete)) return;
    documentIdMap_->Commit();
    VantuFile::RenameDurably(complete, Narrow(path_));
    if (log_) {
        const std::u16string name = path_.substr(path_.find_last_of(u'/') + 1);
        log_->AddEntry(SarLogPrefix(*config_) + SAR_MESSAGE(40, name, documentsToAdd_, deletionCount_)->GetMsg(),
                       Vantu::LogEntryCallInterface::Normal);
    }
    std::lock_guard<std::mutex> hold(statisticsSection_);
    ++pendingTransactions_;
}

uint64_t FileTransactionsWriter::MemoryInUse() const {
    uint64_t pointers = 0;
    for (const auto& [term, operations] : termOperations_) pointers += operations.capacity();
    for (const auto& [field, terms] : customFieldOperations_)
        for (const auto& [term, operations] : terms) pointers += operations.capacity();
    return operationsHeld_ * sizeof(TransactionTermOperation) + dataBlocks_.size() * uint64_t(kDataBlockSize) +
           pointers * sizeof(TransactionTermOperation*) + termBytes_;
}

bool FileTransactionsWriter::CheckForRecovery(const SarvaneInternalConfig& config) {
    return !VantuFile::ListFiles(Narrow(IndexPath(config)), "*.trc").empty();
}

void FileTransactionsWriter::DoRecovery(const Vantu::SmartPtr<SarvaneInternalConfig>& config,
                                        FileDocIdIndexId& documentIdMap, bool recover,
                                        const Vantu::SmartPtr<Vantu::LogCallInterface>& log) {
    const std::string directory = Narrow(IndexPath(*config));
    const std::u16string prefix = SarLogPrefix(*config);
    const std::vector<std::string> unfinished = VantuFile::ListFiles(directory, "*.ttp");
    for (const std::string& path : unfinished) VantuFile::DeleteDurably(path);
    const std::vector<std::string> complete = VantuFile::ListFiles(directory, "*.trc");
    Vantu::SmartPtr<Vantu::LogEntry> entry;
    const auto open = [&](int message) {
        entry = new Vantu::LogEntry(log, prefix + SAR_MESSAGE(message)->GetMsg(), Vantu::LogEntryCallInterface::Normal);
        entry->SetProgress(0.2);
    };
    if (!complete.empty() && recover) {
        // The container decided to keep the transaction: finish its commit.
        open(36);
        documentIdMap.Commit();
        const std::string& transaction = complete.front();
        VantuFile::RenameDurably(transaction, Narrow(SarRemoveTransactionState(Vantu::FromUtf8(transaction))));
        entry->SetProgress(0.8);
    } else {
        if (!unfinished.empty() || !complete.empty()) open(37);
        documentIdMap.Rollback();
        for (const std::string& path : complete) VantuFile::DeleteDurably(path);
        if (entry) entry->SetProgress(0.8);
    }
    if (entry) entry->Close();
    documentIdMap.RecoveryDone();
}

}  // namespace Ostrel
