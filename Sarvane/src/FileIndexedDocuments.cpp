#include "FileIndexedDocuments.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "SarStoreFiles.h"
#include "SarTransactionRecords.h"
#include "SarvaneConfigLock.h"
#include "SarvaneConfigValues.h"
#include "core/Text.h"
#include "file/BinaryStreamException.h"
#include "file/FaultInjector.h"
#include "file/FileSystem.h"

namespace Ostrel {

namespace {

constexpr uint32_t kWeightChunk = 500000;
constexpr uint32_t kWeightReserveStep = 10000;
constexpr uint32_t kIndexCacheLimit = 10000;
constexpr uint32_t kLoadRound = 10000;
constexpr uint32_t kRankRound = 16384;
constexpr float kRankTolerance = 0.0001f;
// The deleted-document vector grows in whole steps of this many bits.
constexpr uint32_t kDeletedStepBits = 1u << 18;
constexpr size_t kCopyRound = Vantu::BaseBinaryStreamBuf::kCopyRound;
// Write-behind of the new files that compaction writes.
constexpr size_t kShrinkMemory = 0x200000;

template <class V>
void Store(uint8_t* out, V value) {
    std::memcpy(out, &value, sizeof value);
}

template <class V>
V Fetch(const uint8_t* in) {
    V value;
    std::memcpy(&value, in, sizeof value);
    return value;
}

// A chunk of the weight table that must hold one more entry reserves room in steps, never past a whole chunk.
void MakeRoom(Vantu::FastVector<RankingEngineDocWeight>& chunk) {
    if (chunk.size() == chunk.capacity())
        chunk.reserve(std::min<size_t>(kWeightChunk, (chunk.size() / kWeightReserveStep + 1) * kWeightReserveStep));
}

}  // namespace

float RankingEngineDocWeight::RankValue() const { return Fetch<float>(bytes.data() + kRankValueOffset); }

void RankingEngineDocWeight::SetRankValue(float value) { Store(bytes.data() + kRankValueOffset, value); }

void FileIndexedDocuments::IndexFileStruct::Encode(uint8_t* out) const {
    Store(out, offset);
    Store(out + 8, size);
    std::memcpy(out + 12, weight.bytes.data(), RankingEngineDocWeight::kSize);
}

void FileIndexedDocuments::IndexFileStruct::Decode(const uint8_t* in) {
    offset = Fetch<uint64_t>(in);
    size = Fetch<uint32_t>(in + 8);
    std::memcpy(weight.bytes.data(), in + 12, RankingEngineDocWeight::kSize);
}

FileIndexedDocuments::FileIndexedDocuments(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly)
    : config_(config),
      readOnly_(readOnly),
      basePath_(SarStorePath(*config, kFileName)),
      indexFile_(basePath_ + ".dix", SarStoreSize(*config, SarvaneConfig::kDocumentsIndexGrowSize)),
      dataFile_(basePath_ + ".din", SarStoreSize(*config, SarvaneConfig::kDocumentsInfoGrowSize)),
      emptyList_(basePath_ + ".din.pty"),
      dataInput_(dataFile_),
      inflater_(dataInput_, &zlib_),
      documentStream_(inflater_),
      fileBuffer_(kAddDocument, 0, emptyList_, 4),
      transaction_(Vantu::FromUtf8(basePath_ + ".dtr"), false) {
    for (auto* file : {static_cast<VantuFile::CFileBase*>(&indexFile_), static_cast<VantuFile::CFileBase*>(&dataFile_)})
        if (readOnly && !VantuFile::FileExists(file->Path())) {
            VantuFile::CFileT<unsigned int> create(file->Path());
            create.Open(VantuFile::CFileBase::kModeCreate);
        }
    const int mode = readOnly ? VantuFile::CFileBase::kModeRead : VantuFile::CFileBase::kModeReadWrite;
    indexFile_.Open(mode);
    dataFile_.Open(mode);
    emptyList_.Reload();
    indexEnd_ = indexFile_.Size();
    dataEnd_ = dataFile_.Size();
}

FileIndexedDocuments::~FileIndexedDocuments() = default;

void FileIndexedDocuments::BeginTransaction() {
    indexCache_ = std::make_unique<Vantu::FastVector<IndexFileStruct>>();
    indexCacheStart_ = kNoDocument;
    transaction_.Open(false);
    SarTransaction::Stream& log = transaction_.GetStream();
    {
        Lock hold(indexFile_.Section());
        indexEnd_ = indexFile_.Size();
        log << indexEnd_;
        transactionStatistics_.clear();
    }
    Lock hold(dataFile_.Section());
    dataEnd_ = dataFile_.Size();
    log << dataEnd_;
}

void FileIndexedDocuments::AddDocument(uint32_t documentId, uint16_t collection,
                                       Vantu::BinaryStreamT<unsigned int>& stream) {
    uint32_t documentSize, wordsSize;
    IndexFileStruct record;
    stream >> documentSize;
    stream.GetExact(record.weight.bytes.data(), RankingEngineDocWeight::kSize);
    stream >> record.size >> wordsSize;
    WriteDocument(record, stream, wordsSize);
    {
        Lock hold(indexFile_.Section());
        if (indexCacheStart_ == kNoDocument) indexCacheStart_ = indexEnd_ / kRecordSize;
        // Ids the writer skipped (documents added and deleted in one transaction) get blank records.
        while (indexCache_->size() < documentId - indexCacheStart_) {
            indexCache_->push_back(IndexFileStruct());
            indexEnd_ += kRecordSize;
        }
        indexCache_->push_back(record);
        indexEnd_ += kRecordSize;
        SarvaneCollectionStatistics& statistics = transactionStatistics_[collection];
        statistics.count += 1;
        statistics.size += documentSize;
    }
    if (indexCache_->size() >= kIndexCacheLimit) FlushIndexCache();
    SetWeight(documentId, record.weight);
}

void FileIndexedDocuments::WriteDocument(IndexFileStruct& record, Vantu::BinaryStreamT<unsigned int>& stream,
                                         uint32_t wordsSize) {
    // The stored unit, the repeated words' size and the word list follow in the stream as a block lies in ".din".
    uint32_t total = record.size + 4 + wordsSize;
    Lock hold(dataFile_.Section());
    fileBuffer_.Write(stream.Buffer(), total, total, record.offset, transaction_.GetStream());
    dataEnd_ = std::max(dataEnd_, record.offset + total);
}

void FileIndexedDocuments::FlushIndexCache() {
    if (!indexCache_ || indexCache_->empty()) return;
    {
        // The blocks go into the log before the records that point at them.
        Lock hold(dataFile_.Section());
        fileBuffer_.FlushAll(transaction_.GetStream());
    }
    WriteRecords(kIndexRecords, indexCacheStart_, *indexCache_);
    indexCache_->clear();
    indexCacheStart_ = kNoDocument;
}

void FileIndexedDocuments::WriteRecords(uint32_t opcode, uint32_t first,
                                        const Vantu::FastVector<IndexFileStruct>& records) {
    std::vector<uint8_t> bytes(records.size() * kRecordSize);
    for (size_t i = 0; i < records.size(); ++i) records[i].Encode(bytes.data() + i * kRecordSize);
    SarTransaction::Stream& log = transaction_.GetStream();
    log << opcode << uint32_t(first * kRecordSize) << uint32_t(bytes.size());
    log.PutExact(bytes.data(), bytes.size());
}

void FileIndexedDocuments::SetWeight(uint32_t documentId, const RankingEngineDocWeight& weight) {
    VantuThread::WriteLocker hold(weightsLock_);
    while (weightCount_ <= documentId) {
        if (weights_.empty() || weights_.back()->size() == kWeightChunk)
            weights_.push_back(std::make_unique<WeightChunk>());
        MakeRoom(*weights_.back());
        weights_.back()->push_back(RankingEngineDocWeight());
        ++weightCount_;
    }
    (*weights_[documentId / kWeightChunk])[documentId % kWeightChunk] = weight;
}

bool FileIndexedDocuments::DeleteDocument(uint32_t documentId, std::map<std::u16string, uint32_t>& words) {
    const Vantu::SmartPtrToConst<IndexedDocument> document = LoadDocument(documentId);
    if (!document) return false;
    transaction_.GetStream() << uint32_t(kDeleteDocument) << documentId << document->collection
                             << uint32_t(documentId * kRecordSize);
    {
        Lock holdIndex(indexFile_.Section());
        Lock holdData(dataFile_.Section());
        const IndexFileStruct record = ReadRecord(documentId);
        const uint32_t wordsSize = ReadWords(record, words);
        // The block is free at once; its bytes stay until a later flush reuses the place, after this deletion
        // in the log.
        emptyList_.AddMerged(uint64_t(record.size) + 4 + wordsSize, record.offset);
        SarvaneCollectionStatistics& statistics = transactionStatistics_[document->collection];
        statistics.deleted += 1;
        if (!(document->flags & IndexedDocument::kSizeNotCounted)) statistics.deletedSize += document->size;
    }
    {
        std::lock_guard<std::mutex> hold(deletedLock_);
        if (documentId >= deletedDocuments_.size())
            deletedDocuments_.resize((documentId / kDeletedStepBits + 1) * kDeletedStepBits);
        deletedDocuments_.set(documentId, true);
    }
    return !document->shingles.empty();
}

uint32_t FileIndexedDocuments::ReadWords(const IndexFileStruct& record, std::map<std::u16string, uint32_t>& words) {
    uint32_t wordsSize = 0;
    dataFile_.ReadAt(record.offset + record.size, &wordsSize, sizeof wordsSize, true);
    if (wordsSize == 0) return 0;
    ResetReader();
    dataInput_.SeekG(record.offset + record.size + 4);
    inflater_.SetLimit(wordsSize);
    ReadTransactionWords(documentStream_, words);
    ResetReader();
    return wordsSize;
}

void FileIndexedDocuments::UpdateDocumentRankValue(const std::vector<std::pair<uint32_t, float>>& ranks,
                                                   const bool& cancel) {
    if (ranks.empty()) return;
    uint32_t records;
    {
        Lock hold(indexFile_.Section());
        records = indexFile_.Size() / kRecordSize;
    }
    if (records == 0) return;
    FlushIndexCache();
    auto next = ranks.begin();
    Vantu::FastVector<IndexFileStruct> round;
    for (uint32_t first = 0; first < records && next != ranks.end() && !cancel; first += kRankRound) {
        ReadRecords(first, std::min(kRankRound, records - first), round);
        bool changed = BlankDeleted(first, round);
        for (uint32_t i = 0; i < round.size() && next != ranks.end() && !cancel; ++i) {
            IndexFileStruct& record = round[i];
            const uint32_t id = first + i;
            while (next != ranks.end() && next->first < id) ++next;
            float value = 0.0f;
            if (next != ranks.end() && next->first == id) value = (next++)->second;
            // A blank record stays blank: it has no document to rank.
            if (record.Blank() || std::fabs(record.weight.RankValue() - value) <= kRankTolerance) continue;
            record.weight.SetRankValue(value);
            changed = true;
        }
        if (!changed) continue;
        {
            Lock hold(dataFile_.Section());
            fileBuffer_.FlushAll(transaction_.GetStream());
        }
        WriteRecords(kUpdateIndex, first, round);
    }
}

bool FileIndexedDocuments::BlankDeleted(uint32_t first, Vantu::FastVector<IndexFileStruct>& round) const {
    // A document deleted earlier in this transaction still has its record in the file; the round is
    // written back after that deletion in the log, and must not bring the record back.
    bool changed = false;
    std::lock_guard<std::mutex> hold(deletedLock_);
    for (uint32_t i = 0; i < round.size(); ++i)
        if (!round[i].Blank() && deletedDocuments_[first + i]) {
            round[i] = IndexFileStruct();
            changed = true;
        }
    return changed;
}

void FileIndexedDocuments::PreCommit(const bool&) {
    FlushIndexCache();
    {
        Lock hold(dataFile_.Section());
        // No open region may survive into the committed list: its tail would be lost to the file.
        fileBuffer_.FlushAll(transaction_.GetStream());
        transaction_.GetStream() << uint32_t(kEndOfLog);
        emptyList_.Write(transaction_.GetStream());
    }
    transaction_.Close();
    indexCache_.reset();
    indexCacheStart_ = kNoDocument;
}

void FileIndexedDocuments::Commit(const bool& cancel) {
    if (!transaction_.Exists()) return;
    transaction_.Open(true);
    SarTransaction::Stream& log = transaction_.GetStream();
    uint32_t indexSize;
    uint64_t dataSize;
    log >> indexSize >> dataSize;
    {
        Lock hold(indexFile_.Section());
        if (indexFile_.Size() != indexSize) {
            indexFile_.SetSize(indexSize, false);
            LoadWeights();
        }
    }
    {
        Lock hold(dataFile_.Section());
        dataFile_.SetSize(dataSize, false);
    }
    bool ranksChanged = false;
    while (!cancel && ApplyRecord(log, ranksChanged)) VantuFile::CrashPoint("FileIndexedDocuments: record applied");
    if (cancel) return;
    {
        Lock hold(dataFile_.Section());
        emptyList_.Save();
        dataFile_.Flush();
        dataEnd_ = dataFile_.Size();
    }
    Lock hold(indexFile_.Section());
    // Both data files are durable before the log that could replay them goes.
    indexFile_.Flush();
    indexEnd_ = indexFile_.Size();
    transaction_.Clear();
    if (ranksChanged) LoadWeights();
    transactionStatistics_.clear();
}

bool FileIndexedDocuments::ApplyRecord(SarTransaction::Stream& log, bool& ranksChanged) {
    uint32_t opcode;
    log >> opcode;
    switch (opcode) {
        case kAddDocument:
            AddDocumentFromTransaction(log);
            return true;
        case kDeleteDocument: {
            uint32_t documentId, indexOffset;
            uint16_t collection;
            log >> documentId >> collection >> indexOffset;
            DeleteDocumentFromTransaction(documentId, indexOffset);
            return true;
        }
        case kUpdateIndex:
            ranksChanged = true;
            [[fallthrough]];
        case kIndexRecords:
            UpdateIndexFromTransaction(log);
            return true;
        case kEndOfLog: {
            Lock hold(dataFile_.Section());
            // The logged list replaces the one in memory, which already holds this transaction's frees.
            emptyList_.Read(log);
            return false;
        }
        default:
            SarThrowUnknownRecord(opcode, basePath_ + ".dtr");
    }
}

void FileIndexedDocuments::AddDocumentFromTransaction(SarTransaction::Stream& log) {
    uint64_t offset;
    uint32_t size;
    log >> offset >> size;
    Lock hold(dataFile_.Section());
    SarCopyLogToFile(log, dataFile_, offset, size);
}

void FileIndexedDocuments::DeleteDocumentFromTransaction(uint32_t documentId, uint32_t indexOffset) {
    Lock hold(indexFile_.Section());
    {
        VantuThread::WriteLocker holdWeights(weightsLock_);
        if (documentId < weightCount_) (*weights_[documentId / kWeightChunk])[documentId % kWeightChunk] = {};
    }
    uint8_t blank[kRecordSize];
    IndexFileStruct().Encode(blank);
    indexFile_.Seek(indexOffset);
    indexFile_.Write(blank, 1, kRecordSize);
}

void FileIndexedDocuments::UpdateIndexFromTransaction(SarTransaction::Stream& log) {
    uint32_t indexOffset, size;
    log >> indexOffset >> size;
    Lock hold(indexFile_.Section());
    SarCopyLogToFile(log, indexFile_, indexOffset, size);
}

void FileIndexedDocuments::Rollback() {
    Lock holdIndex(indexFile_.Section());
    Lock holdData(dataFile_.Section());
    emptyList_.Reload();
    fileBuffer_.Rollback();
    transaction_.Clear();
    transactionStatistics_.clear();
    indexCache_.reset();
    indexCacheStart_ = kNoDocument;
    indexEnd_ = indexFile_.Size();
    dataEnd_ = dataFile_.Size();
}

void FileIndexedDocuments::ForceQuit() {
    Lock hold(dataFile_.Section());
    emptyList_.Reload();
    fileBuffer_.Rollback();
}

void FileIndexedDocuments::RecoveryDone() { LoadWeights(); }

void FileIndexedDocuments::LoadWeights() {
    Lock hold(indexFile_.Section());
    VantuThread::WriteLocker holdWeights(weightsLock_);
    weights_.clear();
    weightCount_ = 0;
    const uint32_t records = indexFile_.Size() / kRecordSize;
    Vantu::FastVector<IndexFileStruct> round;
    for (uint32_t first = 0; first < records; first += kLoadRound) {
        ReadRecords(first, std::min(kLoadRound, records - first), round);
        for (const IndexFileStruct& record : round) {
            if (weightCount_ % kWeightChunk == 0) {
                weights_.push_back(std::make_unique<WeightChunk>());
                const uint32_t remaining = records - weightCount_;
                weights_.back()->reserve(std::min(kWeightChunk, (remaining / kLoadRound + 1) * kLoadRound));
            }
            weights_.back()->push_back(record.weight);
            ++weightCount_;
        }
    }
}

void FileIndexedDocuments::SaveInfo(SarIndexInfo& info) const {
    info.collections.clear();
    {
        Lock hold(indexFile_.Section());
        for (auto [id, stored] : collectionStatistics_) {
            auto pending = transactionStatistics_.find(id);
            if (pending != transactionStatistics_.end()) {
                const SarvaneCollectionStatistics& t = pending->second;
                stored.size += t.size - t.deletedSize;
                stored.count += t.count - t.deleted;
                stored.deletedSize += t.deletedSize;
                stored.deleted += t.deleted;
            }
            info.collections.push_back({id, stored.size, stored.deletedSize, stored.count, stored.deleted});
        }
        for (const auto& [id, t] : transactionStatistics_)
            if (!collectionStatistics_.count(id))
                info.collections.push_back(
                    {id, t.size - t.deletedSize, t.deletedSize, t.count - t.deleted, t.deleted});
        std::sort(info.collections.begin(), info.collections.end(),
                  [](const SarCollectionInfo& a, const SarCollectionInfo& b) { return a.id < b.id; });
    }
    std::lock_guard<std::mutex> hold(deletedLock_);
    info.deletedBitCount = deletedDocuments_.size();
    info.deletedBits.assign(deletedDocuments_.data(), deletedDocuments_.data() + deletedDocuments_.byteSize());
}

void FileIndexedDocuments::LoadInfo(const SarIndexInfo& info) {
    uint32_t documents = 0;
    {
        Lock hold(indexFile_.Section());
        collectionStatistics_.clear();
        for (const SarCollectionInfo& c : info.collections) {
            SarvaneCollectionStatistics& s = collectionStatistics_[c.id];
            s.size = c.documentBytes;
            s.deletedSize = c.removedDocumentBytes;
            s.count = c.documents;
            s.deleted = c.removedDocuments;
            documents += c.documents;
        }
    }
    numberOfDocuments_.store(documents, std::memory_order_relaxed);
    VantuAlgo::BitVector deleted;
    deleted.resize(info.deletedBitCount);
    if (info.deletedBitCount != 0) std::memcpy(deleted.data(), info.deletedBits.data(), deleted.byteSize());
    std::lock_guard<std::mutex> hold(deletedLock_);
    deletedDocuments_ = std::move(deleted);
}

void FileIndexedDocuments::Shrink(const std::u16string& path, Vantu::BaseBinaryStream& infoStream,
                                  const Vantu::FastVector<unsigned int>& deletedDocuments, const Pairs& documentPairs,
                                  const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log, const bool& cancel) {
    const std::string target = Vantu::ToUtf8(path) + "/" + kFileName;
    if (deletedDocuments.empty() && documentPairs.empty()) return CopyFiles(target, infoStream);
    VantuFile::PersistentEmptyListT<uint64_t> list(target + ".din.pty");
    VantuFile::CFileGrowT<unsigned int> newIndex(target + ".dix",
                                                 SarStoreSize(*config_, SarvaneConfig::kDocumentsIndexGrowSize));
    VantuFile::CFileGrowT<uint64_t> newData(target + ".din", SarStoreSize(*config_, SarvaneConfig::kDocumentsInfoGrowSize));
    newIndex.Open(VantuFile::CFileBase::kModeCreate);
    newData.Open(VantuFile::CFileBase::kModeCreate);
    VantuFile::OCFileBufferT<unsigned int, VantuFile::CFileGrowT<unsigned int>> indexOutput(newIndex, kShrinkMemory);
    VantuFile::OCFileBufferT<uint64_t, VantuFile::CFileGrowT<uint64_t>> dataOutput(newData, kShrinkMemory);
    uint32_t records;
    {
        Lock hold(indexFile_.Section());
        records = indexFile_.Size() / kRecordSize;
    }
    const uint32_t progressStep = std::max(1u, uint32_t(records * 0.05));
    const unsigned int* deleted = deletedDocuments.begin();
    Vantu::FastVector<IndexFileStruct> round;
    uint32_t roundFirst = 0;
    uint64_t dataEnd = 0;
    for (uint32_t id = 0; id < records && !cancel; ++id) {
        if (log && id % progressStep == 0) log->SetProgress(double(id) / records);
        while (deleted != deletedDocuments.end() && *deleted < id) ++deleted;
        // A deleted id takes no place: the ids above it move down.
        if (deleted != deletedDocuments.end() && *deleted == id) continue;
        if (round.empty() || id >= roundFirst + round.size()) {
            roundFirst = id;
            ReadRecords(id, std::min(kLoadRound, records - id), round);
        }
        IndexFileStruct record = round[id - roundFirst];
        if (!record.Blank()) {
            const uint64_t length = CopyBlock(record, dataOutput);
            record.offset = dataEnd;
            dataEnd += length;
        }
        uint8_t bytes[kRecordSize];
        record.Encode(bytes);
        indexOutput.PutExact(bytes, kRecordSize);
    }
    if (cancel) {
        Lock hold(dataFile_.Section());
        emptyList_.Reload();
        return;
    }
    SarIndexInfo info;
    SaveInfo(info);
    for (SarCollectionInfo& c : info.collections) c.removedDocumentBytes = c.removedDocuments = 0;
    info.deletedBitCount = 0;
    info.deletedBits.clear();
    info.WriteDocumentItems(infoStream);
    // Blocks lie back to back: the new list is the tail alone.
    if (dataEnd != 0) {
        list.Reserve(dataEnd, 0);
        list.Save();
    }
    indexOutput.Flush();
    dataOutput.Flush();
    newIndex.Close();
    newData.Close();
    VantuFile::SyncDirectoryOf(target);
    if (log) log->SetProgress(1.0);
}

uint64_t FileIndexedDocuments::CopyBlock(const IndexFileStruct& record, Vantu::BaseBinaryStreamBuf& output) {
    Lock hold(dataFile_.Section());
    uint32_t wordsSize = 0;
    dataFile_.ReadAt(record.offset + record.size, &wordsSize, sizeof wordsSize, true);
    const uint64_t length = uint64_t(record.size) + 4 + wordsSize;
    uint8_t bytes[kCopyRound];
    for (uint64_t done = 0; done < length;) {
        const size_t take = size_t(std::min<uint64_t>(length - done, sizeof bytes));
        dataFile_.ReadAt(record.offset + done, bytes, take, true);
        output.PutExact(bytes, take);
        done += take;
    }
    return length;
}

void FileIndexedDocuments::CopyFiles(const std::string& targetBase, Vantu::BaseBinaryStream& infoStream) {
    {
        Lock holdIndex(indexFile_.Section());
        Lock holdData(dataFile_.Section());
        indexFile_.Close();
        dataFile_.Close();
        const std::string folder = targetBase.substr(0, targetBase.rfind('/'));
        const std::string source = basePath_.substr(0, basePath_.rfind('/'));
        for (const std::string& file : VantuFile::ListFiles(source, std::string(kFileName) + "*"))
            VantuFile::CopyFileDurably(file, folder + file.substr(file.rfind('/')));
        const int mode = readOnly_ ? VantuFile::CFileBase::kModeRead : VantuFile::CFileBase::kModeReadWrite;
        indexFile_.Open(mode);
        dataFile_.Open(mode);
        ResetReader();
    }
    SarIndexInfo info;
    SaveInfo(info);
    info.WriteDocumentItems(infoStream);
}

FileIndexedDocuments::IndexFileStruct FileIndexedDocuments::ReadRecord(uint32_t documentId) {
    IndexFileStruct record;
    if ((uint64_t(documentId) + 1) * kRecordSize > indexFile_.Size()) return record;
    uint8_t bytes[kRecordSize];
    indexFile_.ReadAt(uint64_t(documentId) * kRecordSize, bytes, kRecordSize, true);
    record.Decode(bytes);
    return record;
}

void FileIndexedDocuments::ReadRecords(uint32_t first, uint32_t count, Vantu::FastVector<IndexFileStruct>& records) {
    std::vector<uint8_t> bytes(size_t(count) * kRecordSize);
    {
        Lock hold(indexFile_.Section());
        indexFile_.ReadAt(first * kRecordSize, bytes.data(), bytes.size(), true);
    }
    records.resize(count);
    for (uint32_t i = 0; i < count; ++i) records[i].Decode(bytes.data() + size_t(i) * kRecordSize);
}

Vantu::SmartPtrToConst<IndexedDocument> FileIndexedDocuments::LoadDocument(uint32_t documentId) {
    Vantu::SmartPtr<IndexedDocument> document(new IndexedDocument());
    document->documentId = documentId;
    {
        SarvaneConfigReadLock<SarvaneInternalConfig> hold(*config_);
        document->physical = config_->GetPhysicalID();
        document->mirror = config_->GetMirrorID();
        document->slice = config_->GetSliceID();
    }
    // The record stays valid for the whole load: a commit blanks it under this section before it writes new
    // blocks into the place it pointed at.
    Lock hold(indexFile_.Section());
    const IndexFileStruct record = ReadRecord(documentId);
    if (record.Blank()) return nullptr;
    LoadDocumentFromDisk(record, *document);
    return document;
}

void FileIndexedDocuments::LoadDocumentFromDisk(const IndexFileStruct& record, IndexedDocument& document) {
    const uint16_t physical = document.physical, mirror = document.mirror, slice = document.slice;
    const uint32_t documentId = document.documentId;
    // The stream on ".din" is shared: the section is held for the whole read and inflate.
    Lock hold(dataFile_.Section());
    ResetReader();
    dataInput_.SeekG(record.offset);
    inflater_.SetLimit(record.size);
    try {
        document.Load(documentStream_);
    } catch (...) {
        ResetReader();
        throw;
    }
    ResetReader();
    // Load leaves the placement unknown; it is this slice's.
    document.documentId = documentId;
    document.physical = physical;
    document.mirror = mirror;
    document.slice = slice;
}

void FileIndexedDocuments::LoadWCLBuffer(uint32_t documentId, Vantu::BaseBinaryStreamBuf& output) {
    Lock holdIndex(indexFile_.Section());
    const IndexFileStruct record = ReadRecord(documentId);
    if (record.Blank()) return;
    Lock holdData(dataFile_.Section());
    uint32_t wordsSize = 0;
    dataFile_.ReadAt(record.offset + record.size, &wordsSize, sizeof wordsSize, true);
    std::vector<uint8_t> bytes(wordsSize);
    dataFile_.ReadAt(record.offset + record.size + 4, bytes.data(), wordsSize, true);
    output.PutExact(bytes.data(), bytes.size());
}

void FileIndexedDocuments::ResetReader() {
    inflater_.Attach(dataInput_);
    dataInput_.Clear();
}

bool FileIndexedDocuments::IsDocumentValid(uint32_t documentId) const {
    Lock hold(indexFile_.Section());
    return uint64_t(documentId) * kRecordSize < indexFile_.Size();
}

bool FileIndexedDocuments::DocumentIsIndexed(uint32_t documentId) const {
    Lock hold(indexFile_.Section());
    if ((uint64_t(documentId) + 1) * kRecordSize > indexFile_.Size()) return true;
    uint64_t offset;
    indexFile_.ReadAt(uint64_t(documentId) * kRecordSize, &offset, sizeof offset, true);
    return offset != kNoOffset;
}

RankingEngineDocWeight FileIndexedDocuments::GetDocumentWeight(uint32_t documentId) const {
    VantuThread::ReadLocker hold(weightsLock_);
    if (documentId >= weightCount_) return {};
    return (*weights_[documentId / kWeightChunk])[documentId % kWeightChunk];
}

VantuAlgo::BitVector FileIndexedDocuments::GetDeletedDocuments() const {
    std::lock_guard<std::mutex> hold(deletedLock_);
    return deletedDocuments_;
}

void FileIndexedDocuments::GetStatistics(SarvaneSliceStatistics& statistics) const {
    for (auto& [id, entry] : statistics.collections) {
        entry.size = entry.deletedSize = 0;
        entry.count = entry.deleted = 0;
    }
    Lock hold(indexFile_.Section());
    for (const auto& [id, stored] : collectionStatistics_) {
        SarvaneCollectionStatistics& entry = statistics.collections[id];
        entry.size = stored.size;
        entry.deletedSize = stored.deletedSize;
        entry.count = stored.count;
        entry.deleted = stored.deleted;
    }
}

uint64_t FileIndexedDocuments::GetDiskSpaceUsed() const {
    // The log is measured on disk: its object belongs to the reader thread.
    uint64_t total = SarSizeOnDisk(basePath_ + ".dtr");
    {
        Lock hold(indexFile_.Section());
        total += indexFile_.Allocated();
    }
    {
        Lock hold(dataFile_.Section());
        total += dataFile_.Allocated();
    }
    for (const char* suffix : {"", ".tmp", ".new"}) total += SarSizeOnDisk(emptyList_.Path() + suffix);
    return total;
}

}  // namespace Ostrel
