#include "FileIndexedTerms.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "SarException.h"
#include "SarStoreFiles.h"
#include "SarvaneConfigLock.h"
#include "core/Text.h"
#include "file/BinaryStreamException.h"
#include "file/FaultInjector.h"
#include "file/FileSystem.h"
#include "store/EliasDeltaCodes.h"

namespace Ostrel {

namespace {

using Lock = std::lock_guard<VantuThread::CriticalSection>;
// A position file sends its gathered records to the log once they would reach this size.
constexpr uint32_t kPositionMemory = 0x80000;
constexpr uint32_t kEntryBytes = sizeof(DocIDWeightStruct) + sizeof(uint32_t);
// A new block keeps at least this much room behind a first chunk of a rare term.
constexpr uint32_t kRareRoom = 24;
constexpr uint32_t kFrequentRoom = 128;
// The zero bytes a region leaves between blocks go back to the block that would leave less than this.
constexpr uint32_t kMinimumRemainder = 24;

template <class File>
void OpenFile(File& file, bool readOnly) {
    if (readOnly && !VantuFile::FileExists(file.Path())) {
        VantuFile::CFileT<unsigned int> create(file.Path());
        create.Open(VantuFile::CFileBase::kModeCreate);
    }
    file.Open(readOnly ? VantuFile::CFileBase::kModeRead : VantuFile::CFileBase::kModeReadWrite);
}

[[noreturn]] void ThrowDamaged(const std::string& what) {
    Vantu::ThrowStream<Vantu::BinaryStreamGetEOFException>(what);
}

template <class V>
void Append(Vantu::FastVector<V>& to, const void* bytes, size_t count) {
    const size_t at = to.size();
    to.resize(at + count);
    std::memcpy(static_cast<void*>(to.data() + at), bytes, count * sizeof(V));
}

// Puts `front` ahead of what `values` holds.
template <class V>
void Prepend(Vantu::FastVector<V>& values, const Vantu::FastVector<V>& front) {
    if (front.empty()) return;
    const size_t count = values.size();
    values.resize(count + front.size());
    std::memmove(static_cast<void*>(values.data() + front.size()), values.data(), count * sizeof(V));
    std::memcpy(static_cast<void*>(values.data()), front.data(), front.size() * sizeof(V));
}

}  // namespace

void FileIndexedTerms::IndexFileStruct::Reset() {
    // The bytes behind the block fields mean nothing here; zeros keep every replay of a record byte-identical.
    bytes.fill(0);
    SetBlock(kNoBlock, kNoBlock, 0);
}

// One "Terms.N.tps": position records gathered in memory during a transaction, sent to the log in rounds.
class FileIndexedTerms::PositionFile {
public:
    PositionFile(uint32_t number, const std::string& path, uint32_t growStep)
        : fileNumber(number), file(path, growStep) {}

    // The offset at which the `size` bytes of `source` will stand once the log is replayed.
    uint32_t WriteTermPositions(const uint8_t* source, uint32_t size, Stream& stream) {
        if (memory.DataSize() != 0 && memory.DataSize() + size >= kPositionMemory) Flush(stream);
        // Position words are 32-bit offsets: the file may never pass them.
        const uint64_t end = uint64_t(baseSize) + memory.DataSize() + size;
        if (end > VantuFile::LockingCFileGrowT<unsigned int>::kLimit) file.ThrowSeekOutOfRange(end);
        const uint32_t result = uint32_t(baseSize + memory.DataSize());
        memory.PutExact(source, size);
        return result;
    }

    void Flush(Stream& stream) {
        const uint32_t size = uint32_t(memory.DataSize());
        if (size == 0) return;
        stream << uint32_t(kPositions) << fileNumber << baseSize << size;
        stream.PutExact(memory.Data(), size);
        baseSize += size;
        memory.Clear();
    }

    // The coded list of the record at `offset`.
    void ReadRecord(uint32_t offset, std::vector<uint8_t>& codes) {
        Lock hold(file.Section());
        uint16_t length;
        file.ReadAt(offset, &length, sizeof length, true);
        codes.resize(length);
        file.ReadAt(offset + sizeof length, codes.data(), length, true);
    }

    const uint32_t fileNumber;
    // The file's size at BeginTransaction plus what earlier flushes sent: where `memory` will land.
    uint32_t baseSize = 0;
    VantuFile::LockingCFileGrowT<unsigned int> file;
    VantuFile::MemoryBuffer memory;
};

FileIndexedTerms::FileIndexedTerms(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly)
    : basePath_(SarStorePath(*config, kFileName)),
      indexFile_(basePath_ + ".tix", SarStoreSize(*config, SarvaneConfig::kTermsIndexGrowSize), 2),
      infoFile_(basePath_ + ".tin", SarStoreSize(*config, SarvaneConfig::kTermsInfoGrowSize), 2),
      emptyList_(basePath_ + ".tin.pty"),
      fileBuffer_(kRegion, kMinimumRemainder, emptyList_, 4),
      transaction_(Vantu::FromUtf8(basePath_ + ".ttr"), true),
      deflater_(writeMemory_, &compression_),
      recordBatch_(kBatchRecords) {
    const uint32_t positionsGrow = SarStoreSize(*config, SarvaneConfig::kTermsPositionsGrowSize);
    for (uint32_t n = 0; n < kPositionFiles; ++n)
        positionFiles_.push_back(
            std::make_unique<PositionFile>(n, basePath_ + "." + std::to_string(n) + ".tps", positionsGrow));
    OpenFile(indexFile_, readOnly);
    OpenFile(infoFile_, readOnly);
    for (auto& positions : positionFiles_) OpenFile(positions->file, readOnly);
    emptyList_.Reload();
}

FileIndexedTerms::~FileIndexedTerms() = default;

void FileIndexedTerms::SetDeletedDocumentsVector(const VantuAlgo::BitVector& deleted) {
    deletedDocuments_ = &deleted;
    firstDeleted_ = 0;
    while (firstDeleted_ < deleted.size() && !deleted[firstDeleted_]) ++firstDeleted_;
}

void FileIndexedTerms::BeginTransaction() {
    positionMemory_.Clear();
    transaction_.Open(false);
    Stream& log = transaction_.GetStream();
    {
        Lock hold(indexFile_.Section());
        log << indexFile_.Size();
        indexRecords_ = indexFile_.Size() / IndexFileStruct::kSize;
    }
    {
        Lock hold(infoFile_.Section());
        log << infoFile_.Size();
    }
    for (auto& positions : positionFiles_) {
        Lock hold(positions->file.Section());
        log << positions->file.Size();
        positions->baseSize = positions->file.Size();
        positions->memory.Clear();
    }
    batchStart_ = batchLoaded_ = batchLast_ = batchLimit_ = 0;
}

bool FileIndexedTerms::AddDocumentsForTerm(uint32_t termId, const Operations& operations) {
    // The batch of records only moves forward: an id at or below the last one would land outside it.
    if (batchLimit_ != 0 && termId <= batchLast_)
        throw SarException(u"The postings of term " + Vantu::FromUtf8(std::to_string(termId)) +
                           u" come after those of term " + Vantu::FromUtf8(std::to_string(batchLast_)) +
                           u" in one transaction.");
    const size_t count = operations.size();
    newPostings_.resize(count);
    newPositions_.resize(count);
    positionMemory_.Clear();
    for (size_t i = 0; i < count; ++i) {
        const TransactionTermOperation& operation = *operations[i];
        DocIDWeightStruct& posting = newPostings_[i] = operation.Weight();
        uint32_t& word = newPositions_[i];
        const uint16_t length = operation.DataLength();
        posting.SetPositionsInline(length != 0 && length <= kInlinePositionBytes);
        if (length == 0) {
            word = kNoPositions;
        } else if (posting.PositionsInline()) {
            word = 0;
            std::memcpy(&word, operation.Data(), length);
        } else {
            word = uint32_t(positionMemory_.DataSize());
            positionMemory_.PutExact(&length, sizeof length);
            positionMemory_.PutExact(operation.Data(), length);
        }
    }
    if (positionMemory_.DataSize() != 0) {
        const uint32_t base = positionFiles_[termId & 3]->WriteTermPositions(
            positionMemory_.Data(), uint32_t(positionMemory_.DataSize()), transaction_.GetStream());
        for (size_t i = 0; i < count; ++i)
            if (!newPostings_[i].PositionsInline() && newPositions_[i] != kNoPositions) newPositions_[i] += base;
    }
    positionMemory_.Clear();
    return SaveTermInfo(termId);
}

bool FileIndexedTerms::SaveTermInfo(uint32_t termId) {
    if (termId >= batchLimit_) {
        SaveIndexStruct();
        StartBatch(termId);
    }
    batchLast_ = termId;
    // Every slot up to the id gets a fresh record: ids the Lexicon gave to terms without postings included.
    while (termId >= batchLoaded_) recordBatch_[batchLoaded_++ - batchStart_].Reset();
    IndexFileStruct& record = recordBatch_[termId - batchStart_];
    const uint32_t before = record.NumberOfDocuments();
    const bool passes = before <= kFrequentLimit && before + newPostings_.size() > kFrequentLimit;
    SaveInfoInInfoFile(record);
    return passes;
}

void FileIndexedTerms::StartBatch(uint32_t termId) {
    // A batch never starts past the last record: a zeroed gap in ".tix" would read as a block at offset 0.
    while (termId >= indexRecords_ + kBatchRecords) {
        batchStart_ = indexRecords_;
        batchLimit_ = batchLoaded_ = batchStart_ + kBatchRecords;
        batchLast_ = batchLimit_ - 1;
        for (IndexFileStruct& record : recordBatch_) record.Reset();
        SaveIndexStruct();
    }
    batchStart_ = batchLoaded_ = std::min(termId, indexRecords_);
    batchLimit_ = batchStart_ + kBatchRecords;
    Lock hold(indexFile_.Section());
    const uint32_t inFile = indexFile_.Size() / IndexFileStruct::kSize;
    if (batchStart_ >= inFile) return;
    const uint32_t count = std::min(batchLimit_, inFile) - batchStart_;
    std::vector<uint8_t> bytes(size_t(count) * IndexFileStruct::kSize);
    indexFile_.ReadAt(batchStart_ * IndexFileStruct::kSize, bytes.data(), bytes.size(), true);
    for (uint32_t i = 0; i < count; ++i)
        std::memcpy(recordBatch_[i].bytes.data(), bytes.data() + size_t(i) * IndexFileStruct::kSize,
                    IndexFileStruct::kSize);
    batchLoaded_ = batchStart_ + count;
}

void FileIndexedTerms::SaveInfoInInfoFile(IndexFileStruct& record) {
    const uint32_t added = uint32_t(newPostings_.size());
    while (!newPostings_.empty()) {
        const uint32_t documents = record.NumberOfDocuments();
        if (documents + newPostings_.size() <= kInlinePostings) {
            // A fresh record names no block with all ones; inline entries past the count are zeros instead.
            if (documents == 0) std::fill(record.bytes.begin() + 5, record.bytes.end(), uint8_t(0));
            for (size_t i = 0; i < newPostings_.size(); ++i)
                record.SetInline(uint32_t(documents + i), newPostings_[i], newPositions_[i]);
            record.SetNumberOfDocuments(uint32_t(documents + newPostings_.size()));
            newPostings_.clear();
            newPositions_.clear();
            return;
        }
        if (documents >= 1 && documents <= kInlinePostings) {
            Postings postings;
            Positions positions;
            for (uint32_t i = 0; i < documents; ++i) {
                postings.push_back(record.InlinePosting(i));
                positions.push_back(record.InlinePosition(i));
            }
            Prepend(newPostings_, postings);
            Prepend(newPositions_, positions);
            record.Reset();
        } else {
            if (record.HasPendingPosting()) {
                Prepend(newPostings_, Postings{record.PendingPosting()});
                Prepend(newPositions_, Positions{record.PendingPosition()});
                record.SetHasPendingPosting(false);
                record.SetNumberOfDocuments(documents - 1);
            } else if (newPostings_.size() == 1) {
                // A single new posting waits in the record and costs no write of ".tin".
                record.SetPending(newPostings_[0], newPositions_[0]);
                record.SetHasPendingPosting(true);
                record.SetNumberOfDocuments(documents + 1);
                newPostings_.clear();
                newPositions_.clear();
            }
            if (!newPostings_.empty()) SaveChunk(record, added);
        }
        if (deletedDocuments_ && !newPostings_.empty() && record.NumberOfDocuments() == 0) DropDeletedDocuments();
    }
}

bool FileIndexedTerms::SaveChunk(IndexFileStruct& record, uint32_t added) {
    const uint32_t count = uint32_t(newPostings_.size());
    const uint64_t raw = uint64_t(count) * kEntryBytes;
    const uint64_t estimate = count < kCompressedChunk ? raw : uint64_t(raw * (count <= 100 ? 0.9 : 0.7)) + 4;
    if (!CheckRoom(record, estimate + 4)) return false;
    const uint32_t size = BuildChunk();
    if (!CheckRoom(record, size)) return false;
    const uint32_t total = record.NumberOfDocuments() + count;
    record.SetNumberOfDocuments(total);
    Stream& log = transaction_.GetStream();
    if (!record.HasBlock()) {
        uint32_t allocation = Allocation(total, size, added);
        uint64_t start;
        {
            Lock hold(infoFile_.Section());
            fileBuffer_.Write(writeMemory_, size, allocation, start, log);
        }
        record.SetBlock(start, start, allocation);
    } else {
        log << uint32_t(kAppendChunk) << record.BlockStart() << record.BlockEnd() << record.AllocatedSize() << size;
        log.PutExact(writeMemory_.Data(), size);
    }
    record.SetBlock(record.BlockStart(), record.BlockEnd() + size, record.AllocatedSize());
    writeMemory_.Clear();
    newPostings_.clear();
    newPositions_.clear();
    return true;
}

bool FileIndexedTerms::CheckRoom(IndexFileStruct& record, uint64_t need) {
    if (!record.HasBlock()) return true;
    const uint64_t used = record.BlockEnd() - record.BlockStart();
    if (used <= record.AllocatedSize() && need <= record.AllocatedSize() - used) return true;
    // The term is rewritten whole into a new block; the old one is free once this record is logged.
    Postings postings;
    Positions positions;
    ReadBlock(record, postings, &positions);
    Prepend(newPostings_, postings);
    Prepend(newPositions_, positions);
    pendingFree_.emplace_back(record.AllocatedSize(), record.BlockStart());
    record.Reset();
    return false;
}

uint32_t FileIndexedTerms::BuildChunk() {
    const uint32_t count = uint32_t(newPostings_.size());
    writeMemory_.Clear();
    writeMemory_.PutExact(&count, sizeof count);
    if (count < kCompressedChunk) {
        writeMemory_.PutExact(newPostings_.data(), count * sizeof(DocIDWeightStruct));
        writeMemory_.PutExact(newPositions_.data(), count * sizeof(uint32_t));
        return uint32_t(writeMemory_.DataSize());
    }
    const uint32_t placeholder = 0;
    writeMemory_.PutExact(&placeholder, sizeof placeholder);
    deflater_.PutExact(newPostings_.data(), count * sizeof(DocIDWeightStruct));
    deflater_.PutExact(newPositions_.data(), count * sizeof(uint32_t));
    deflater_.Finish();
    const uint32_t compressed = uint32_t(writeMemory_.DataSize() - 8);
    std::memcpy(writeMemory_.Data() + 4, &compressed, sizeof compressed);
    return uint32_t(writeMemory_.DataSize());
}

uint32_t FileIndexedTerms::Allocation(uint32_t total, uint32_t size, uint32_t added) const {
    // A rare term gets up to 70% of room to grow, a term of nearly every document 5%.
    const double growth =
        totalDocuments_ == 0 ? 1.05 : std::max(1.7 - double(total) / double(totalDocuments_), 1.05);
    const uint64_t grown = uint64_t(size * growth);
    if (total < kCompressedChunk) return uint32_t(std::max<uint64_t>(grown, size + kRareRoom));
    // And room for at least five more batches of the size it just received.
    const uint64_t batch = uint64_t((uint64_t(added) * 10 + 8) * (added <= 100 ? 0.9 : 0.7));
    return uint32_t(std::max({grown, size + 5 * batch, uint64_t(size) + kFrequentRoom}));
}

void FileIndexedTerms::DropDeletedDocuments() {
    const VantuAlgo::BitVector& deleted = *deletedDocuments_;
    size_t kept = std::lower_bound(newPostings_.begin(), newPostings_.end(), firstDeleted_,
                                   [](const DocIDWeightStruct& p, uint32_t id) { return p.DocumentId() < id; }) -
                  newPostings_.begin();
    for (size_t i = kept; i < newPostings_.size(); ++i) {
        if (deleted[newPostings_[i].DocumentId()]) continue;
        newPostings_[kept] = newPostings_[i];
        newPositions_[kept++] = newPositions_[i];
    }
    newPostings_.resize(kept);
    newPositions_.resize(kept);
}

void FileIndexedTerms::SaveIndexStruct() {
    if (batchLimit_ == 0) return;
    Stream& log = transaction_.GetStream();
    // Positions and chunks stand in the log ahead of the records that point at them.
    for (auto& positions : positionFiles_) positions->Flush(log);
    {
        Lock hold(infoFile_.Section());
        fileBuffer_.FlushAll(log);
        ReleasePendingFree();
    }
    const uint32_t count = batchLast_ - batchStart_ + 1;
    const uint64_t end = uint64_t(batchLast_ + 1) * IndexFileStruct::kSize;
    if (end > IndexFile::kLimit) indexFile_.ThrowSeekOutOfRange(end);
    log << uint32_t(kIndexRecords) << uint32_t(batchStart_ * IndexFileStruct::kSize) << count;
    for (uint32_t i = 0; i < count; ++i) log.PutExact(recordBatch_[i].bytes.data(), IndexFileStruct::kSize);
    indexRecords_ = std::max(indexRecords_, batchLast_ + 1);
    batchStart_ = batchLoaded_ = batchLast_ = batchLimit_ = 0;
}

void FileIndexedTerms::ReleasePendingFree() {
    // Regions are flushed first, so a block freed here can only be handed out behind the records that left it.
    for (const auto& [size, offset] : pendingFree_) emptyList_.AddMerged(size, offset);
    pendingFree_.clear();
}

void FileIndexedTerms::PreCommit() {
    SaveIndexStruct();
    Stream& log = transaction_.GetStream();
    {
        Lock hold(infoFile_.Section());
        // No open region may survive into the committed list: its tail would be lost to the file.
        fileBuffer_.FlushAll(log);
        ReleasePendingFree();
        log << uint32_t(kEndOfLog);
        emptyList_.Write(log);
    }
    transaction_.Close();
}

void FileIndexedTerms::Commit(const bool& cancel, const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& progress) {
    if (!transaction_.Exists()) return ClearWork();
    transaction_.Open(true);
    Stream& log = transaction_.GetStream();
    uint32_t indexSize;
    uint64_t infoSize;
    log >> indexSize >> infoSize;
    {
        Lock hold(indexFile_.Section());
        indexFile_.SetSize(indexSize, false);
    }
    {
        Lock hold(infoFile_.Section());
        infoFile_.SetSize(infoSize, false);
    }
    for (auto& positions : positionFiles_) {
        uint32_t size;
        log >> size;
        Lock hold(positions->file.Section());
        positions->file.SetSize(size, false);
    }
    {
        Lock hold(infoFile_.Section());
        pendingFree_.clear();
        writeMemory_.Clear();
    }
    const double start = progress ? progress->GetProgress() : 0.0;
    double reported = 0.0;
    bool more = true;
    while (more && !cancel) {
        uint32_t opcode;
        log >> opcode;
        if (progress) {
            const double share = transaction_.GetBytesReadPct();
            if (share - reported > 0.05) {
                progress->SetProgress(start + share * (1.0 - start));
                reported = share;
            }
        }
        more = ApplyRecord(opcode, log);
        VantuFile::CrashPoint("FileIndexedTerms: record applied");
    }
    // Cancelled: the log stays, and a later Commit replays it whole.
    if (more) return;
    {
        Lock hold(infoFile_.Section());
        emptyList_.Save();
        infoFile_.Flush();
    }
    for (auto& positions : positionFiles_) {
        Lock hold(positions->file.Section());
        positions->file.Flush();
    }
    {
        Lock hold(indexFile_.Section());
        indexFile_.Flush();
    }
    // Every file it replayed into is durable before the log that could replay them goes.
    transaction_.Clear();
    ClearWork();
}

bool FileIndexedTerms::ApplyRecord(uint32_t opcode, Stream& log) {
    switch (opcode) {
        case kPositions:
            SavePositionsFromTransaction(log);
            return true;
        case kIndexRecords:
            SaveTermIndexFromTransaction(log);
            return true;
        case kAppendChunk:
            SaveTermInfoChunkFromTransaction(log);
            return true;
        case kRegion:
            SaveTermInfoFromTransaction(log);
            return true;
        case kEndOfLog: {
            Lock hold(infoFile_.Section());
            // The logged list replaces the one in memory, which already holds this transaction's changes.
            emptyList_.Read(log);
            return false;
        }
        default:
            ThrowDamaged("Unknown record " + std::to_string(opcode) + " in " + basePath_ + ".ttr");
    }
}

void FileIndexedTerms::SavePositionsFromTransaction(Stream& log) {
    uint32_t fileNumber, offset, size;
    log >> fileNumber >> offset >> size;
    if (fileNumber >= kPositionFiles) ThrowDamaged("No position file " + std::to_string(fileNumber));
    PositionFile& positions = *positionFiles_[fileNumber];
    Lock hold(positions.file.Section());
    SarCopyLogToFile(log, positions.file, offset, size);
}

void FileIndexedTerms::SaveTermIndexFromTransaction(Stream& log) {
    uint32_t offset, count;
    log >> offset >> count;
    if (count == 0) return;
    const uint32_t first = offset / IndexFileStruct::kSize;
    // A query holds the read lock of its term across the record and the block: it sees old or new, never a mix.
    ObjectLocker holdTerms(locks_, first, first + count - 1, true);
    Lock hold(indexFile_.Section());
    SarCopyLogToFile(log, indexFile_, offset, uint64_t(count) * IndexFileStruct::kSize);
}

void FileIndexedTerms::SaveTermInfoChunkFromTransaction(Stream& log) {
    uint64_t blockStart, blockEnd;
    uint32_t allocatedSize, size;
    log >> blockStart >> blockEnd >> allocatedSize >> size;
    Lock hold(infoFile_.Section());
    SarCopyLogToFile(log, infoFile_, blockEnd, size);
    // The file covers the whole block, as it does for a block written with its region.
    const uint64_t blockLimit = blockStart + allocatedSize;
    if (infoFile_.Size() < blockLimit) {
        const uint8_t zero = 0;
        infoFile_.Seek(blockLimit - 1);
        infoFile_.Write(&zero, 1, 1);
    }
}

void FileIndexedTerms::SaveTermInfoFromTransaction(Stream& log) {
    uint64_t offset;
    uint32_t size;
    log >> offset >> size;
    Lock hold(infoFile_.Section());
    SarCopyLogToFile(log, infoFile_, offset, size);
}

void FileIndexedTerms::Rollback() {
    ForceQuit();
    for (auto& positions : positionFiles_) positions->memory.Clear();
    transaction_.Clear();
    batchStart_ = batchLoaded_ = batchLast_ = batchLimit_ = 0;
    ClearWork();
}

void FileIndexedTerms::ForceQuit() {
    Lock hold(infoFile_.Section());
    emptyList_.Reload();
    fileBuffer_.Rollback();
    pendingFree_.clear();
    writeMemory_.Clear();
    deflater_.Attach(writeMemory_);
}

void FileIndexedTerms::ClearWork() {
    deletedDocuments_ = nullptr;
    totalDocuments_ = 0;
    newPostings_ = Postings();
    newPositions_ = Positions();
    positionMemory_.Clear();
}

Vantu::SmartPtr<Term> FileIndexedTerms::LoadTerm(uint32_t termId, bool withPositions) const {
    Vantu::SmartPtr<Term> term(new Term(termId));
    LoadTermFromDisk(termId, term->GetDocumentWeights(), term->GetDocumentPositions(), withPositions);
    return term;
}

void FileIndexedTerms::LoadTermFromDisk(uint32_t termId, Postings& postings, Positions& positions,
                                        bool withPositions) const {
    ObjectLocker holdTerm(locks_, termId, false);
    IndexFileStruct record;
    {
        Lock hold(indexFile_.Section());
        const uint64_t offset = uint64_t(termId) * IndexFileStruct::kSize;
        if (offset + IndexFileStruct::kSize <= indexFile_.Size())
            indexFile_.ReadAt(unsigned(offset), record.bytes.data(), IndexFileStruct::kSize, true);
    }
    const uint32_t documents = record.NumberOfDocuments();
    postings.clear();
    positions.clear();
    postings.reserve(documents);
    if (withPositions) positions.reserve(documents);
    if (documents <= kInlinePostings) {
        for (uint32_t i = 0; i < documents; ++i) {
            postings.push_back(record.InlinePosting(i));
            if (withPositions) positions.push_back(record.InlinePosition(i));
        }
        return;
    }
    ReadBlock(record, postings, withPositions ? &positions : nullptr);
    if (record.HasPendingPosting()) {
        postings.push_back(record.PendingPosting());
        if (withPositions) positions.push_back(record.PendingPosition());
    }
}

void FileIndexedTerms::ReadBlock(const IndexFileStruct& record, Postings& postings, Positions* positions) const {
    if (!record.HasBlock()) return;
    const uint64_t bytes = std::min<uint64_t>(record.BlockEnd() - record.BlockStart(), record.AllocatedSize());
    std::vector<uint8_t> block(bytes);
    {
        Lock hold(infoFile_.Section());
        infoFile_.ReadAt(record.BlockStart(), block.data(), block.size(), true);
    }
    // Each reader inflates with its own state: queries read blocks on many threads at once.
    std::optional<VantuCompression::ZLib> zlib;
    std::optional<VantuCompression::ICompressedBufferT<unsigned int>> inflater;
    VantuFile::StaticMemoryBuffer source(static_cast<const void*>(block.data()), block.size());
    auto take = [&](size_t at, size_t size) {
        if (size > bytes - at) ThrowDamaged("A chunk runs past its block in " + basePath_ + ".tin");
        return block.data() + at;
    };
    for (size_t at = 0; at < bytes;) {
        uint32_t count;
        std::memcpy(&count, take(at, 4), 4);
        at += 4;
        const size_t postingBytes = size_t(count) * sizeof(DocIDWeightStruct), wordBytes = size_t(count) * 4;
        if (count < kCompressedChunk) {
            Append(postings, take(at, postingBytes), count);
            at += postingBytes;
            if (positions) Append(*positions, take(at, wordBytes), count);
            at += wordBytes;
            continue;
        }
        uint32_t compressed;
        std::memcpy(&compressed, take(at, 4), 4);
        at += 4;
        take(at, compressed);
        if (!inflater) {
            zlib.emplace(1, 6, 15);
            inflater.emplace(source, &*zlib);
        }
        source.SeekG(unsigned(at));
        inflater->Attach(source);
        inflater->SetLimit(compressed);
        const size_t first = postings.size();
        postings.resize(first + count);
        inflater->GetExact(postings.data() + first, postingBytes);
        if (positions) {
            const size_t firstWord = positions->size();
            positions->resize(firstWord + count);
            inflater->GetExact(positions->data() + firstWord, wordBytes);
        }
        at += compressed;
    }
}

uint32_t FileIndexedTerms::GetNumberOfDocuments(uint32_t termId) const {
    uint32_t documents = 0;
    Lock hold(indexFile_.Section());
    const uint64_t offset = uint64_t(termId) * IndexFileStruct::kSize;
    if (offset + IndexFileStruct::kSize <= indexFile_.Size())
        indexFile_.ReadAt(unsigned(offset), &documents, sizeof documents, true);
    return documents;
}

bool FileIndexedTerms::GetOccurencesForDocument(const Term& term, uint32_t documentId,
                                                Vantu::SmartPtr<Occurence>& occurence,
                                                const DocIDWeightStruct*& cursor) const {
    const DocIDWeightStruct* begin = term.GetDocumentWeights().begin();
    const DocIDWeightStruct* end = term.GetDocumentWeights().end();
    const DocIDWeightStruct* from = cursor && cursor >= begin && cursor <= end ? cursor : begin;
    const DocIDWeightStruct* found = std::lower_bound(
        from, end, documentId, [](const DocIDWeightStruct& p, uint32_t id) { return p.DocumentId() < id; });
    if (found == end || found->DocumentId() != documentId) {
        cursor = end;
        return false;
    }
    if (!occurence) occurence = new Occurence();
    occurence->positions.clear();
    if (!term.GetDocumentPositions().empty())
        LoadTermPositions(term.GetTermID(), *found, term.GetDocumentPositions(found), *occurence);
    cursor = found + 1;
    return true;
}

void FileIndexedTerms::LoadTermPositions(uint32_t termId, const DocIDWeightStruct& posting, uint32_t positionWord,
                                         Occurence& occurence) const {
    if (!posting.PositionsInline() && positionWord == kNoPositions) return;
    std::vector<uint8_t> codes;
    if (posting.PositionsInline()) {
        codes.resize(sizeof positionWord);
        std::memcpy(codes.data(), &positionWord, sizeof positionWord);
    } else {
        positionFiles_[termId & 3]->ReadRecord(positionWord, codes);
    }
    VantuFile::StaticMemoryBuffer view(static_cast<const void*>(codes.data()), codes.size());
    VantuCompression::BitsReaderWriter bits(&view);
    VantuCompression::EliasDeltaCodes().Uncompress(bits, true, occurence.positions, 0);
}

uint64_t FileIndexedTerms::GetDiskSpaceUsed() const {
    uint64_t total = transaction_.GetDiskSpaceUsed();
    {
        Lock hold(indexFile_.Section());
        total += indexFile_.Allocated();
    }
    {
        Lock hold(infoFile_.Section());
        total += infoFile_.Allocated();
    }
    for (const auto& positions : positionFiles_) {
        Lock hold(positions->file.Section());
        total += positions->file.Allocated();
    }
    for (const char* suffix : {"", ".tmp", ".new"}) total += SarSizeOnDisk(emptyList_.Path() + suffix);
    return total;
}

}  // namespace Ostrel
