#include "FileDocIDList.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "SarException.h"
#include "SarStoreFiles.h"
#include "SarvaneConfigLock.h"
#include "core/Exception.h"
#include "core/Text.h"
#include "file/BinaryStreamException.h"
#include "file/FaultInjector.h"
#include "file/FileSystem.h"

namespace Ostrel {

namespace {

constexpr unsigned int kWindow = 0x10000;
constexpr size_t kReadRound = 32768;
constexpr size_t kCopyRound = 0x10000;
// A compacted store is written with these, and committed every so many lists.
constexpr uint32_t kShrinkGrowStep = 0x40000;
constexpr uint32_t kShrinkCacheLimit = 0x400;
constexpr uint32_t kShrinkRound = 10000;
// Up to this size a new block gets twice its size in room, above it a quarter more.
constexpr uint32_t kLargeBlock = 0x100000;

using Lock = std::lock_guard<VantuThread::CriticalSection>;

void Store(uint8_t* out, uint32_t value) { std::memcpy(out, &value, sizeof value); }

uint32_t Fetch(const uint8_t* in) {
    uint32_t value;
    std::memcpy(&value, in, sizeof value);
    return value;
}

void CreateIfMissing(const std::string& path) {
    if (VantuFile::FileExists(path)) return;
    VantuFile::CFileT<unsigned int> create(path);
    create.Open(VantuFile::CFileBase::kModeCreate);
}

uint32_t Allocation(uint32_t size) {
    const double factor = size <= kLargeBlock ? 2.0 : 1.25;
    return std::max(uint32_t(std::min(double(size) * factor, double(UINT32_MAX))), FileDocIDList::kMinimumAllocation);
}

// The set bits of `vector` without the deleted documents, each moved down by the deleted ones below it:
// the rule by which compaction renumbers documents.
Vantu::FastVector<unsigned int> Renumbered(const VantuAlgo::BitVector& vector,
                                           const Vantu::FastVector<unsigned int>& deleted) {
    Vantu::FastVector<unsigned int> documents;
    size_t below = 0;
    for (auto bit = vector.findFirstSetBit(vector.begin(), vector.end()); bit != vector.end();
         bit = vector.findFirstSetBit(++bit, vector.end())) {
        const unsigned int document = bit.index();
        while (below < deleted.size() && deleted[below] < document) ++below;
        if (below < deleted.size() && deleted[below] == document) continue;
        documents.push_back(document - unsigned(below));
    }
    return documents;
}

std::string Directory(const std::string& path) { return path.substr(0, path.rfind('/')); }

// A durable copy: the new file is synced, and so is its folder.
}  // namespace

void FileDocIDList::IndexFileStruct::Encode(uint8_t* out) const {
    Store(out, maxDocId);
    Store(out + 4, blockStart);
    Store(out + 8, blockEnd);
    Store(out + 12, allocatedSize);
}

void FileDocIDList::IndexFileStruct::Decode(const uint8_t* in) {
    maxDocId = Fetch(in);
    blockStart = Fetch(in + 4);
    blockEnd = Fetch(in + 8);
    allocatedSize = Fetch(in + 12);
}

FileDocIDList::FileDocIDList(const Vantu::SmartPtr<SarvaneInternalConfig>& config, const std::string& name,
                             uint32_t growStep, uint32_t cacheLimit, bool keepRemovals, bool readOnly)
    : config_(config),
      name_(name),
      readOnly_(readOnly),
      keepRemovals_(keepRemovals),
      cacheLimit_(cacheLimit),
      basePath_(SarStorePath(*config, name)),
      indexFile_(basePath_ + ".cix"),
      dataFile_(basePath_ + ".cin", growStep),
      emptyList_(basePath_ + ".pty"),
      inflater_(readMemory_, &inflateZLib_, kWindow),
      readBits_(&readMemory_),
      writeBits_(&writeMemory_),
      deflater_(writeMemory_, &deflateZLib_, kWindow),
      transaction_(Vantu::FromUtf8(basePath_ + ".ctr"), true) {
    if (readOnly) {
        CreateIfMissing(indexFile_.Path());
        CreateIfMissing(dataFile_.Path());
    }
    OpenFiles();
    emptyList_.Reload();
    nextListId_ = indexFile_.Size() / kRecordSize;
}

void FileDocIDList::OpenFiles() {
    const int mode = readOnly_ ? VantuFile::CFileBase::kModeRead : VantuFile::CFileBase::kModeReadWrite;
    indexFile_.Open(mode);
    indexFile_.Seek(0, VantuFile::CFileBase::kEnd);
    dataFile_.Open(mode);
}

FileDocIDList::~FileDocIDList() = default;

void FileDocIDList::BeginTransaction() {
    transaction_.Open(false);
    SarTransaction::Stream& log = transaction_.GetStream();
    Lock holdIndex(indexFile_.Section());
    Lock holdData(dataFile_.Section());
    log << uint32_t(indexFile_.Size()) << uint32_t(dataFile_.Size());
    nextListId_ = indexFile_.Size() / kRecordSize;
    listsChanged_.clear();
}

void FileDocIDList::AddInfo(uint32_t listId, const Vantu::FastVector<unsigned int>& additions,
                            const Vantu::FastVector<unsigned int>& removals) {
    // A second change would start again from the committed record and lose the first.
    if (!listsChanged_.insert(listId).second)
        throw Vantu::Exception::FromText(Vantu::FromUtf8(basePath_ + ": list " + std::to_string(listId) +
                                                         " changed twice in one transaction"));
    IndexFileStruct record;
    {
        Lock hold(indexFile_.Section());
        // Every list below a used one has a record.
        for (uint32_t id = nextListId_; id < listId; ++id) LogRecord(id, IndexFileStruct());
        nextListId_ = std::max<uint32_t>(nextListId_, listId + 1);
        record = ReadRecord(listId);
    }
    if (!additions.empty()) record.maxDocId = std::max(record.maxDocId, additions.back());
    if (!removals.empty()) record.maxDocId = std::max(record.maxDocId, removals.back());
    uint32_t size = 0;
    if (record.HasBlock()) size = BuildDelta(additions, removals);
    if (!record.HasBlock() || size > record.allocatedSize - (record.blockEnd - record.blockStart) ||
        EmptiedBy(listId, additions, removals)) {
        const VantuAlgo::BitVector vector = ChangedVector(listId, record, additions, removals);
        if (vector.count() == 0)
            record = IndexFileStruct();
        else
            size = BuildBlock(vector, record);
    }
    if (record.HasBlock()) {
        SarTransaction::Stream& log = transaction_.GetStream();
        log << uint32_t(kSaveInfo) << record.blockStart << record.blockEnd << record.allocatedSize << size;
        log.PutExact(writeMemory_.Data(), size);
        record.blockEnd += size;
    }
    LogRecord(listId, record);
    writeMemory_.Clear();
}

bool FileDocIDList::EmptiedBy(uint32_t listId, const Vantu::FastVector<unsigned int>& additions,
                              const Vantu::FastVector<unsigned int>& removals) const {
    if (removals.empty()) return false;
    auto removed = [&](unsigned int id) { return std::binary_search(removals.begin(), removals.end(), id); };
    if (!std::all_of(additions.begin(), additions.end(), removed)) return false;
    Vector stored;
    LoadBitVector(listId, stored);
    if (!stored || stored->count() > removals.size()) return false;
    for (auto bit = stored->findFirstSetBit(stored->begin(), stored->end()); bit != stored->end();
         bit = stored->findFirstSetBit(++bit, stored->end()))
        if (!removed(bit.index())) return false;
    return true;
}

uint32_t FileDocIDList::BuildDelta(const Vantu::FastVector<unsigned int>& additions,
                                   const Vantu::FastVector<unsigned int>& removals) {
    writeMemory_.Clear();
    const bool writeRemovals = keepRemovals_ && !removals.empty();
    const uint8_t flags = (additions.empty() ? 0 : kAdditions) | (writeRemovals ? kRemovals : 0);
    writeMemory_.PutExact(&flags, 1);
    writeBits_.SetStream(&writeMemory_);
    if (!additions.empty()) codes_.Compress(additions, true, writeBits_, 0);
    if (writeRemovals) codes_.Compress(removals, true, writeBits_, 0);
    return uint32_t(writeMemory_.DataSize());
}

VantuAlgo::BitVector FileDocIDList::ChangedVector(uint32_t listId, const IndexFileStruct& record,
                                                  const Vantu::FastVector<unsigned int>& additions,
                                                  const Vantu::FastVector<unsigned int>& removals) {
    VantuAlgo::BitVector vector;
    if (record.HasBlock()) {
        const Vector stored = LoadBitVectorFromDisk(listId);
        vector = *stored;
        // Queries read the old block until the commit replaces the record: no block of this transaction
        // may be written over it, so the place goes back to the free list only at PreCommit.
        freedBlocks_.emplace_back(record.allocatedSize, record.blockStart);
    }
    vector.resize(record.maxDocId + 1);
    vector.setBits(additions, true);
    vector.setBits(removals, false);
    return vector;
}

uint32_t FileDocIDList::BuildBlock(const VantuAlgo::BitVector& vector, IndexFileStruct& record) {
    writeMemory_.Clear();
    const uint32_t placeholder = 0;
    writeMemory_.PutExact(&placeholder, sizeof placeholder);
    deflater_.Attach(writeMemory_);
    deflater_.PutExact(vector.data(), vector.byteSize());
    deflater_.Finish();
    const uint32_t size = uint32_t(writeMemory_.DataSize());
    Store(writeMemory_.Data(), size - 4);
    uint32_t allocation = Allocation(size), blockStart = 0;
    {
        Lock hold(dataFile_.Section());
        if (!emptyList_.Get(allocation, blockStart, allocation + kMinimumAllocation))
            throw SarNoSpaceLeft(SAR_MESSAGE(27));
    }
    record.blockStart = record.blockEnd = blockStart;
    record.allocatedSize = allocation;
    return size;
}

void FileDocIDList::LogRecord(uint32_t listId, const IndexFileStruct& record) {
    uint8_t bytes[kRecordSize];
    record.Encode(bytes);
    SarTransaction::Stream& log = transaction_.GetStream();
    log << uint32_t(kSaveIndex) << listId;
    log.PutExact(bytes, kRecordSize);
}

void FileDocIDList::PreCommit(const bool&) {
    SarTransaction::Stream& log = transaction_.GetStream();
    {
        Lock hold(dataFile_.Section());
        for (auto [size, offset] : freedBlocks_) emptyList_.AddMerged(size, offset);
        freedBlocks_.clear();
        log << uint32_t(kEndOfLog);
        emptyList_.Write(log);
    }
    transaction_.Close();
}

void FileDocIDList::Commit(const bool& cancel) {
    if (!transaction_.Exists()) return;
    transaction_.Open(true);
    SarTransaction::Stream& log = transaction_.GetStream();
    uint32_t indexSize, dataSize;
    log >> indexSize >> dataSize;
    {
        Lock hold(indexFile_.Section());
        indexFile_.SetSize(indexSize, false);
    }
    {
        Lock hold(dataFile_.Section());
        dataFile_.SetSize(dataSize, false);
    }
    while (!cancel && ApplyRecord(log)) VantuFile::CrashPoint("FileDocIDList: record applied");
    if (cancel) return;
    {
        Lock hold(dataFile_.Section());
        emptyList_.Save();
        dataFile_.Flush();
    }
    Lock hold(indexFile_.Section());
    // Both data files are durable before the log that could replay them goes.
    indexFile_.Flush();
    nextListId_ = indexFile_.Size() / kRecordSize;
    transaction_.Clear();
}

bool FileDocIDList::ApplyRecord(SarTransaction::Stream& log) {
    uint32_t opcode;
    log >> opcode;
    switch (opcode) {
        case kSaveInfo:
            SaveInfoFromTransaction(log);
            return true;
        case kSaveIndex:
            SaveIndexFromTransaction(log);
            return true;
        case kEndOfLog: {
            Lock hold(dataFile_.Section());
            // The logged list replaces the one in memory, which already holds this transaction's changes.
            emptyList_.Read(log);
            return false;
        }
        default:
            SarThrowUnknownRecord(opcode, basePath_ + ".ctr");
    }
}

void FileDocIDList::SaveInfoFromTransaction(SarTransaction::Stream& log) {
    uint32_t blockStart, blockEnd, allocatedSize, size;
    log >> blockStart >> blockEnd >> allocatedSize >> size;
    uint8_t round[Vantu::BaseBinaryStreamBuf::kCopyRound];
    Lock hold(dataFile_.Section());
    dataFile_.Seek(blockEnd);
    for (uint32_t left = size; left > 0;) {
        const uint32_t take = std::min<uint32_t>(left, sizeof round);
        log.GetExact(round, take);
        dataFile_.Write(round, 1, take);
        left -= take;
    }
    // The whole room of the block belongs to the file, so that the free list never points past its end.
    const uint64_t blockLimit = uint64_t(blockStart) + allocatedSize;
    if (dataFile_.Size() < blockLimit) {
        const uint8_t zero = 0;
        dataFile_.Seek(uint32_t(blockLimit - 1));
        dataFile_.Write(&zero, 1, 1);
    }
}

void FileDocIDList::SaveIndexFromTransaction(SarTransaction::Stream& log) {
    uint32_t listId;
    uint8_t bytes[kRecordSize];
    log >> listId;
    log.GetExact(bytes, kRecordSize);
    {
        ObjectLocker hold(locks_, listId, true);
        Lock holdIndex(indexFile_.Section());
        indexFile_.Seek(listId * kRecordSize);
        indexFile_.Write(bytes, 1, kRecordSize);
    }
    std::lock_guard<std::mutex> hold(cacheSection_);
    ++cacheGeneration_;
    auto found = cache_.find(listId);
    if (found == cache_.end()) return;
    cacheBytes_ -= found->second.vector->byteSize();
    cacheStamps_.erase(found->second.stamp);
    cache_.erase(found);
}

void FileDocIDList::Rollback() {
    transaction_.Clear();
    Lock hold(dataFile_.Section());
    freedBlocks_.clear();
    emptyList_.Reload();
}

void FileDocIDList::ForceQuit() {
    Lock hold(dataFile_.Section());
    freedBlocks_.clear();
    emptyList_.Reload();
}

void FileDocIDList::RecoveryDone() {
    Lock hold(indexFile_.Section());
    nextListId_ = indexFile_.Size() / kRecordSize;
}

FileDocIDList::IndexFileStruct FileDocIDList::ReadRecord(uint32_t listId) const {
    IndexFileStruct record;
    if (uint64_t(listId + 1) * kRecordSize > indexFile_.Size()) return record;
    uint8_t bytes[kRecordSize];
    indexFile_.ReadAt(listId * kRecordSize, bytes, kRecordSize, true);
    record.Decode(bytes);
    return record;
}

void FileDocIDList::LoadBitVector(uint32_t listId, Vector& vector) const {
    uint64_t generation;
    {
        std::lock_guard<std::mutex> hold(cacheSection_);
        auto found = cache_.find(listId);
        if (found != cache_.end()) {
            cacheStamps_.erase(found->second.stamp);
            found->second.stamp = ++stampCounter_;
            cacheStamps_[found->second.stamp] = listId;
            vector = found->second.vector;
            return;
        }
        generation = cacheGeneration_;
    }
    vector = LoadBitVectorFromDisk(listId);
    if (!vector) return;
    VantuFile::CrashPoint("FileDocIDList: list read");
    std::lock_guard<std::mutex> hold(cacheSection_);
    // A commit that wrote a record meanwhile may have replaced this list after it was read.
    if (generation != cacheGeneration_ || cache_.count(listId)) return;
    const uint32_t stamp = ++stampCounter_;
    cache_[listId] = {vector, stamp};
    cacheStamps_[stamp] = listId;
    cacheBytes_ += vector->byteSize();
    while (cacheBytes_ > cacheLimit_) {
        if (cache_.size() < 2) {
            cache_.clear();
            cacheStamps_.clear();
            cacheBytes_ = 0;
            break;
        }
        auto oldest = cacheStamps_.begin();
        auto entry = cache_.find(oldest->second);
        cacheBytes_ -= entry->second.vector->byteSize();
        cache_.erase(entry);
        cacheStamps_.erase(oldest);
    }
}

FileDocIDList::Vector FileDocIDList::LoadBitVectorFromDisk(uint32_t listId) const {
    // A commit rewrites the record only between readers, never while one reads the block it names.
    ObjectLocker hold(locks_, listId, false);
    IndexFileStruct record;
    {
        Lock holdIndex(indexFile_.Section());
        record = ReadRecord(listId);
    }
    if (!record.HasBlock()) return Vector();
    auto* vector = new VantuAlgo::BitVector();
    Vector result(vector);
    vector->resize(record.maxDocId + 1);
    ReadBlock(record, *vector);
    return result;
}

void FileDocIDList::ReadBlock(const IndexFileStruct& record, VantuAlgo::BitVector& vector) const {
    Lock hold(dataFile_.Section());
    readMemory_.Clear();
    inflater_.Attach(readMemory_);
    readBits_.SetStream(&readMemory_);
    try {
        uint8_t round[kReadRound];
        for (uint32_t offset = record.blockStart; offset < record.blockEnd;) {
            const size_t take = std::min<size_t>(record.blockEnd - offset, sizeof round);
            dataFile_.ReadAt(offset, round, take, true);
            readMemory_.PutExact(round, take);
            offset += uint32_t(take);
        }
        uint32_t compressedLength;
        readMemory_.GetExact(&compressedLength, sizeof compressedLength);
        // The unit holds the vector as it was written; deltas may since have raised maxDocId.
        inflater_.SetLimit(compressedLength);
        inflater_.Get(vector.data(), vector.byteSize());
        if (!inflater_.Finished() || inflater_.Consumed() != compressedLength)
            Vantu::ThrowStream<Vantu::BinaryStreamException>("A list's bit vector in " + basePath_ +
                                                              ".cin is longer than its list");
        while (readMemory_.TellG() < readMemory_.Size()) {
            uint8_t flags;
            readMemory_.GetExact(&flags, 1);
            if (flags & kAdditions) codes_.Uncompress(readBits_, true, vector, true, true, 0);
            if (keepRemovals_ && (flags & kRemovals)) codes_.Uncompress(readBits_, true, vector, false, true, 0);
        }
    } catch (...) {
        readMemory_.Clear();
        inflater_.Attach(readMemory_);
        throw;
    }
    readMemory_.Clear();
    inflater_.Attach(readMemory_);
}

void FileDocIDList::Shrink(const std::u16string& path, const Vantu::FastVector<unsigned int>& deletedDocuments,
                           const Pairs& documentPairs, Vantu::FastVector<unsigned int>& deletedLists, Pairs& listPairs,
                           bool renumber, const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log,
                           const bool& cancel) {
    if (deletedDocuments.empty() && documentPairs.empty()) return CopyFiles(Vantu::ToUtf8(path));
    Vantu::SmartPtr<SarvaneInternalConfig> config;
    {
        SarvaneConfigReadLock<SarvaneInternalConfig> hold(*config_);
        config = new SarvaneInternalConfig(*config_);
    }
    config->SetIndexFilesPath(path);
    FileDocIDList target(config, name_, kShrinkGrowStep, kShrinkCacheLimit, true, false);
    target.BeginTransaction();
    uint32_t lists;
    {
        Lock hold(indexFile_.Section());
        lists = indexFile_.Size() / kRecordSize;
    }
    const uint32_t progressStep = std::max(1u, uint32_t(lists * 0.05));
    uint32_t nextId = 0;
    for (uint32_t id = 0; id < lists && !cancel; ++id) {
        // Commits in rounds keep the target's log and memory small.
        if (id != 0 && id % kShrinkRound == 0) {
            target.PreCommit(cancel);
            target.Commit(cancel);
            target.BeginTransaction();
        }
        if (log && id % progressStep == 0) log->SetProgress(double(id) / lists);
        Vector vector;
        LoadBitVector(id, vector);
        if (!vector) continue;
        const Vantu::FastVector<unsigned int> documents = Renumbered(*vector, deletedDocuments);
        if (documents.empty()) {
            if (renumber) deletedLists.push_back(id);
            continue;
        }
        uint32_t newId = id;
        // Collections keep their ids; only small terms move down.
        if (renumber && (newId = nextId++) != id) listPairs.emplace_back(id, newId);
        target.AddInfo(newId, documents, {});
    }
    if (cancel) return target.Rollback();
    target.PreCommit(cancel);
    target.Commit(cancel);
    if (log) log->SetProgress(1.0);
}

void FileDocIDList::CopyFiles(const std::string& path) {
    Lock holdIndex(indexFile_.Section());
    Lock holdData(dataFile_.Section());
    indexFile_.Close();
    dataFile_.Close();
    for (const std::string& file : VantuFile::ListFiles(Directory(basePath_), name_ + "*"))
        VantuFile::CopyFileDurably(file, path + "/" + file.substr(file.rfind('/') + 1));
    OpenFiles();
}

uint64_t FileDocIDList::GetDiskSpaceUsed() const {
    uint64_t total = transaction_.GetDiskSpaceUsed();
    {
        Lock hold(indexFile_.Section());
        total += indexFile_.Size();
    }
    {
        Lock hold(dataFile_.Section());
        total += dataFile_.Allocated();
    }
    for (const char* suffix : {"", ".tmp", ".new"}) total += SarSizeOnDisk(emptyList_.Path() + suffix);
    return total;
}

}  // namespace Ostrel
