#include "SarCheckFiles.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "SarTransactionRecords.h"
#include "core/Exception.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamFileBuffer.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "file/FileSystem.h"
#include "store/BTreeFile.h"
#include "store/BTreePage.h"
#include "store/BitsReaderWriter.h"
#include "store/EliasDeltaCodes.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

namespace Ostrel {

namespace {

// The largest document id plus one: postings and lists keep 24 bits of it.
constexpr uint64_t kDocumentIdRange = uint64_t(DocIDWeightStruct::kDocumentIdMask) + 1;
// What a file reads ahead for small reads.
constexpr size_t kWindow = 1 << 16;
// Deflate never shrinks data by more than this much, so a unit of n bytes gives at most n * 1032 + 64.
constexpr uint64_t kInflateRatio = 1032;

uint32_t U32(const uint8_t* b) { return b[0] | (b[1] << 8) | (b[2] << 16) | (uint32_t(b[3]) << 24); }

std::string What(const Vantu::BaseException& e) { return e.WhatUtf8(); }

// Inflates one zlib unit of `size` bytes at `data` into exactly `out.size()` bytes.
void InflateExact(const std::string& file, uint64_t offset, const uint8_t* data, uint32_t size,
                  std::vector<uint8_t>& out) {
    VantuFile::StaticMemoryBuffer source(static_cast<const void*>(data), size);
    VantuCompression::ZLib zlib(1, 6, 15);
    VantuCompression::ICompressedBufferT<unsigned int> inflater(source, &zlib);
    inflater.SetLimit(size);
    try {
        inflater.GetExact(out.data(), out.size());
    } catch (const Vantu::BaseException& e) {
        SarThrowDamage(file, offset, "zlib-unit", What(e));
    }
}

// Decodes one coded list (gaps from base 0) that starts at `data`; `used` receives the bytes it took.
Vantu::FastVector<unsigned int> DecodeList(const std::string& file, uint64_t offset, const uint8_t* data,
                                           size_t size, const std::string& rule, size_t* used = nullptr) {
    VantuFile::StaticMemoryBuffer view(static_cast<const void*>(data), size);
    VantuCompression::BitsReaderWriter bits(&view);
    Vantu::FastVector<unsigned int> list;
    try {
        VantuCompression::EliasDeltaCodes().Uncompress(bits, true, list, 0);
    } catch (const Vantu::BaseException& e) {
        SarThrowDamage(file, offset, rule, What(e));
    }
    bits.EndRead();
    if (used) *used = view.TellG();
    return list;
}

}  // namespace

std::string SarCheckFinding::ToString() const {
    return (information ? "info " : "fault ") + file + " @" + std::to_string(offset) + " [" + rule + "] " + detail;
}

void SarThrowDamage(const std::string& file, uint64_t offset, const std::string& rule, const std::string& detail) {
    throw SarCheckDamage{SarCheckFinding{file, offset, rule, detail, false}};
}

SarCheckFile::SarCheckFile(const std::string& directory, const std::string& name)
    : name_(name), path_(directory + "/" + name), exists_(VantuFile::FileExists(path_)), file_(path_) {
    if (exists_) file_.Open(VantuFile::CFileBase::kModeRead);
}

void SarCheckFile::Read(uint64_t offset, void* out, size_t size, const std::string& rule) const {
    if (offset > Size() || size > Size() - offset)
        SarThrowDamage(name_, offset, rule,
                       "reads " + std::to_string(size) + " bytes past the end at " + std::to_string(Size()));
    if (size > kWindow / 4) {
        file_.ReadAt(offset, out, size, true);
        return;
    }
    if (offset < windowStart_ || offset + size > windowStart_ + window_.size()) {
        windowStart_ = offset;
        window_.resize(size_t(std::min<uint64_t>(kWindow, Size() - offset)));
        file_.ReadAt(offset, window_.data(), window_.size(), true);
    }
    std::memcpy(out, window_.data() + (offset - windowStart_), size);
}

std::string SarCheckFile::ReadAll() const {
    std::string bytes(Size(), '\0');
    Read(0, bytes.data(), bytes.size(), "file-read");
    return bytes;
}

SarTermFiles::SarTermFiles(const std::string& directory)
    : index(directory, std::string(FileIndexedTerms::kFileName) + ".tix"),
      data(directory, std::string(FileIndexedTerms::kFileName) + ".tin") {
    for (uint32_t n = 0; n < FileIndexedTerms::kPositionFiles; ++n)
        positions.push_back(std::make_unique<SarCheckFile>(
            directory, std::string(FileIndexedTerms::kFileName) + "." + std::to_string(n) + ".tps"));
}

FileIndexedTerms::IndexFileStruct SarTermFiles::ReadRecord(uint32_t termId) const {
    FileIndexedTerms::IndexFileStruct record;
    index.Read(uint64_t(termId) * record.kSize, record.bytes.data(), record.kSize, "term-record");
    return record;
}

std::vector<SarTermPosting> SarTermFiles::ReadPostings(uint32_t termId,
                                                       const FileIndexedTerms::IndexFileStruct& record) const {
    const uint64_t at = uint64_t(termId) * record.kSize;
    const uint32_t documents = record.NumberOfDocuments();
    std::vector<SarTermPosting> postings;
    if (documents <= FileIndexedTerms::kInlinePostings) {
        for (uint32_t i = 0; i < documents; ++i) postings.push_back({record.InlinePosting(i), record.InlinePosition(i)});
        return postings;
    }
    if (!record.HasBlock()) SarThrowDamage(index.Name(), at, "term-block", "more than 3 postings and no block");
    const uint64_t start = record.BlockStart(), end = record.BlockEnd();
    if (end < start || end - start > record.AllocatedSize() || start + record.AllocatedSize() > data.Size())
        SarThrowDamage(index.Name(), at, "term-block",
                       "block " + std::to_string(start) + ".." + std::to_string(end) + " of " +
                           std::to_string(record.AllocatedSize()) + " bytes doesn't fit " + data.Name());
    std::vector<uint8_t> block(end - start);
    data.Read(start, block.data(), block.size(), "term-block");
    auto chunkFault = [&](uint64_t offset, const std::string& why) {
        SarThrowDamage(data.Name(), start + offset, "term-chunk", "term " + std::to_string(termId) + ": " + why);
    };
    for (size_t offset = 0; offset < block.size();) {
        if (block.size() - offset < 4) chunkFault(offset, "a chunk count is cut");
        const uint32_t count = U32(&block[offset]);
        if (count == 0 || count > documents || postings.size() + count > kDocumentIdRange)
            chunkFault(offset, "a chunk of " + std::to_string(count) + " postings");
        const size_t bytes = size_t(count) * (sizeof(DocIDWeightStruct) + 4);
        std::vector<uint8_t> plain(bytes);
        size_t next = offset + 4;
        if (count < FileIndexedTerms::kCompressedChunk) {
            if (block.size() - next < bytes) chunkFault(offset, "the chunk runs past its block");
            std::memcpy(plain.data(), &block[next], bytes);
            next += bytes;
        } else {
            if (block.size() - next < 4) chunkFault(offset, "a compressed size is cut");
            const uint32_t compressed = U32(&block[next]);
            next += 4;
            if (block.size() - next < compressed || bytes > uint64_t(compressed) * kInflateRatio + 64)
                chunkFault(offset, "a unit of " + std::to_string(compressed) + " bytes doesn't hold its postings");
            InflateExact(data.Name(), start + next, &block[next], compressed, plain);
            next += compressed;
        }
        for (uint32_t i = 0; i < count; ++i) {
            SarTermPosting posting;
            std::memcpy(static_cast<void*>(&posting.posting), &plain[i * sizeof(DocIDWeightStruct)],
                        sizeof(DocIDWeightStruct));
            std::memcpy(&posting.positionWord, &plain[count * sizeof(DocIDWeightStruct) + i * 4], 4);
            postings.push_back(posting);
        }
        offset = next;
    }
    if (record.HasPendingPosting()) postings.push_back({record.PendingPosting(), record.PendingPosition()});
    return postings;
}

Vantu::FastVector<unsigned int> SarTermFiles::ReadPositions(uint32_t termId, const SarTermPosting& posting) const {
    if (posting.posting.PositionsInline()) {
        uint8_t word[4];
        std::memcpy(word, &posting.positionWord, 4);
        return DecodeList(index.Name(), 0, word, 4, "positions-inline");
    }
    if (posting.positionWord == FileIndexedTerms::kNoPositions) return {};
    const SarCheckFile& file = *positions[termId & 3];
    uint16_t length = 0;
    file.Read(posting.positionWord, &length, 2, "positions-record");
    if (uint64_t(posting.positionWord) + 2 + length > file.Size())
        SarThrowDamage(file.Name(), posting.positionWord, "positions-record",
                       "a record of " + std::to_string(length) + " bytes passes the end at " + std::to_string(file.Size()));
    std::vector<uint8_t> codes(length);
    file.Read(uint64_t(posting.positionWord) + 2, codes.data(), length, "positions-record");
    return DecodeList(file.Name(), posting.positionWord, codes.data(), codes.size(), "positions-record");
}

SarDocumentFiles::SarDocumentFiles(const std::string& directory)
    : index(directory, std::string(FileIndexedDocuments::kFileName) + ".dix"),
      data(directory, std::string(FileIndexedDocuments::kFileName) + ".din"),
      input_(data.File()),
      inflater_(input_, &zlib_),
      stream_(inflater_) {}

Vantu::BinaryStreamT<uint64_t>& SarDocumentFiles::Unit(uint64_t offset, uint32_t size) const {
    inflater_.Attach(input_);
    input_.Clear();
    input_.SeekG(offset);
    inflater_.SetLimit(size);
    return stream_;
}

FileIndexedDocuments::IndexFileStruct SarDocumentFiles::ReadRecord(uint32_t documentId) const {
    uint8_t bytes[FileIndexedDocuments::kRecordSize];
    index.Read(uint64_t(documentId) * sizeof bytes, bytes, sizeof bytes, "document-record");
    FileIndexedDocuments::IndexFileStruct record;
    record.Decode(bytes);
    return record;
}

uint64_t SarDocumentFiles::ReadBlock(uint32_t documentId, const FileIndexedDocuments::IndexFileStruct& record,
                                     IndexedDocument& document, std::map<std::u16string, uint32_t>& words) const {
    const uint64_t at = uint64_t(documentId) * FileIndexedDocuments::kRecordSize;
    if (record.offset > data.Size() || uint64_t(record.size) + 4 > data.Size() - record.offset)
        SarThrowDamage(index.Name(), at, "document-block", "the block passes the end of " + data.Name());
    uint32_t wordsSize = 0;
    data.Read(record.offset + record.size, &wordsSize, 4, "document-block");
    const uint64_t length = uint64_t(record.size) + 4 + wordsSize;
    if (length > data.Size() - record.offset)
        SarThrowDamage(index.Name(), at, "document-block", "the word list passes the end of " + data.Name());
    try {
        document.Load(Unit(record.offset, record.size));
    } catch (const Vantu::BaseException& e) {
        SarThrowDamage(data.Name(), record.offset, "document-stored", What(e));
    }
    if (wordsSize == 0) return length;
    try {
        ReadTransactionWords(Unit(record.offset + record.size + 4, wordsSize), words);
    } catch (const Vantu::BaseException& e) {
        SarThrowDamage(data.Name(), record.offset + record.size + 4, "document-words", What(e));
    }
    return length;
}

SarListFiles::SarListFiles(const std::string& directory, const std::string& base)
    : index(directory, base + ".cix"), data(directory, base + ".cin") {}

FileDocIDList::IndexFileStruct SarListFiles::ReadRecord(uint32_t listId) const {
    uint8_t bytes[FileDocIDList::kRecordSize];
    index.Read(uint64_t(listId) * sizeof bytes, bytes, sizeof bytes, "list-record");
    FileDocIDList::IndexFileStruct record;
    record.Decode(bytes);
    return record;
}

VantuAlgo::BitVector SarListFiles::ReadList(uint32_t listId, const FileDocIDList::IndexFileStruct& record) const {
    const uint64_t at = uint64_t(listId) * FileDocIDList::kRecordSize;
    VantuAlgo::BitVector vector;
    if (!record.HasBlock()) return vector;
    const uint64_t start = record.blockStart, end = record.blockEnd;
    if (record.maxDocId >= kDocumentIdRange)
        SarThrowDamage(index.Name(), at, "list-record", "maxDocId " + std::to_string(record.maxDocId));
    if (end < start + 4 || end - start > record.allocatedSize || start + record.allocatedSize > data.Size())
        SarThrowDamage(index.Name(), at, "list-block",
                       "block " + std::to_string(start) + ".." + std::to_string(end) + " of " +
                           std::to_string(record.allocatedSize) + " bytes doesn't fit " + data.Name());
    std::vector<uint8_t> block(end - start);
    data.Read(start, block.data(), block.size(), "list-block");
    const uint32_t compressed = U32(block.data());
    if (compressed > block.size() - 4) SarThrowDamage(data.Name(), start, "list-unit", "the unit passes blockEnd");
    vector.resize(record.maxDocId + 1);
    {
        VantuFile::StaticMemoryBuffer source(static_cast<const void*>(block.data() + 4), compressed);
        VantuCompression::ZLib zlib(1, 8, 15);
        VantuCompression::ICompressedBufferT<unsigned int> inflater(source, &zlib);
        inflater.SetLimit(compressed);
        try {
            inflater.Get(vector.data(), vector.byteSize());
        } catch (const Vantu::BaseException& e) {
            SarThrowDamage(data.Name(), start + 4, "list-unit", What(e));
        }
        if (!inflater.Finished() || inflater.Consumed() != compressed)
            SarThrowDamage(data.Name(), start + 4, "list-unit", "the unit is longer than its list or cut short");
    }
    vector.resize(record.maxDocId + 1);  // clears bits a damaged last byte set past the list
    for (size_t offset = 4 + compressed; offset < block.size();) {
        const uint8_t flags = block[offset];
        if (flags == 0 || flags > (FileDocIDList::kAdditions | FileDocIDList::kRemovals))
            SarThrowDamage(data.Name(), start + offset, "list-delta", "flags " + std::to_string(flags));
        ++offset;
        for (uint8_t kind : {FileDocIDList::kAdditions, FileDocIDList::kRemovals}) {
            if (!(flags & kind)) continue;
            size_t used = 0;
            const auto ids = DecodeList(data.Name(), start + offset, &block[offset], block.size() - offset,
                                        "list-delta", &used);
            for (unsigned int id : ids) {
                if (id > record.maxDocId)
                    SarThrowDamage(data.Name(), start + offset, "list-delta",
                                   "document " + std::to_string(id) + " above maxDocId");
                vector.set(id, kind == FileDocIDList::kAdditions);
            }
            offset += used;
        }
    }
    return vector;
}

bool SarStringKeyBefore(const std::string& a, const std::string& b) { return SarStringKey(a) < SarStringKey(b); }

bool SarU32KeyBefore(const std::string& a, const std::string& b) { return SarU32Value(a) < SarU32Value(b); }

std::string SarStringKey(const std::string& key) { return key.size() < 2 ? std::string() : key.substr(2); }

uint32_t SarU32Value(const std::string& bytes) {
    uint8_t b[4] = {};
    std::memcpy(b, bytes.data(), std::min<size_t>(bytes.size(), 4));
    return U32(b);
}

namespace {

// The walk of one tree state: every page once, leaves in key order, counts that add up.
class TreeWalk {
public:
    TreeWalk(VantuBTree::BTreeFile& file, const std::string& name, uint32_t pageSize, bool duplicates,
             const SarTreeOrder& compare, const SarTreeVisitor& visit)
        : file_(file), name_(name), pageSize_(pageSize), duplicates_(duplicates), compare_(compare), visit_(visit),
          page_(pageSize) {}

    // Returns the records under `id`.
    uint64_t Walk(uint32_t id, uint32_t level) {
        const uint64_t at = uint64_t(id) * pageSize_;
        if (id >= file_.PageCount()) SarThrowDamage(name_, at, "tree-link", "page " + std::to_string(id) + " past the end");
        if (!seen_.insert(id).second) SarThrowDamage(name_, at, "tree-link", "page " + std::to_string(id) + " used twice");
        file_.ReadPage(id, page_.data());
        VantuBTree::BTreePage page(page_.data(), pageSize_);
        if (!page.IsSound() || !page.ChecksumMatches())
            SarThrowDamage(name_, at, "tree-page", "page " + std::to_string(id) + " is damaged");
        if (page.IsLeaf() != (level == 0))
            SarThrowDamage(name_, at, "tree-shape", "page " + std::to_string(id) + " at the wrong level");
        const uint32_t count = page.Count();
        if (page.IsLeaf()) {
            for (uint32_t i = 0; i < count; ++i) {
                std::string key(reinterpret_cast<const char*>(page.Key(i)), page.KeySize(i));
                std::string value(reinterpret_cast<const char*>(page.Value(i)), page.ValueSize(i));
                if (any_ && (compare_(key, last_) || (!duplicates_ && !compare_(last_, key))))
                    SarThrowDamage(name_, at, "tree-order", "record " + std::to_string(i) + " of page " +
                                                                std::to_string(id) + " is out of key order");
                any_ = true;
                last_ = key;
                visit_(key, value);
            }
            return count;
        }
        if (count == 0) SarThrowDamage(name_, at, "tree-shape", "an empty branch page " + std::to_string(id));
        std::vector<std::pair<uint32_t, uint32_t>> children;
        for (uint32_t i = 0; i < count; ++i) children.emplace_back(page.Child(i), page.ChildCount(i));
        uint64_t total = 0;
        for (const auto& [child, expected] : children) {
            const uint64_t under = Walk(child, level - 1);
            if (under != expected)
                SarThrowDamage(name_, at, "tree-count", "page " + std::to_string(id) + " counts " +
                                                            std::to_string(expected) + " records under page " +
                                                            std::to_string(child) + ", which holds " +
                                                            std::to_string(under));
            total += under;
        }
        return total;
    }

private:
    VantuBTree::BTreeFile& file_;
    const std::string& name_;
    const uint32_t pageSize_;
    const bool duplicates_;
    const SarTreeOrder& compare_;
    const SarTreeVisitor& visit_;
    std::vector<uint8_t> page_;
    std::set<uint32_t> seen_;
    bool any_ = false;
    std::string last_;
};

constexpr uint32_t kStateRecordSize = 40;
constexpr uint32_t kMaxTreeHeight = 32;

}  // namespace

bool SarWalkTree(const std::string& directory, const std::string& name, bool pending, const SarTreeOrder& compare,
                 const SarTreeVisitor& visit) {
    const std::string path = directory + "/" + name;
    std::string stateName = VantuBTree::BTreeFile::SideFileName(name, pending ? "pending" : "head");
    // A reopened tree reads a ".new" left by an interrupted replacement first.
    if (VantuFile::FileExists(directory + "/" + stateName + ".new")) stateName += ".new";
    SarCheckFile state(directory, stateName);
    if (!state.Exists()) return false;
    if (state.Size() != kStateRecordSize) SarThrowDamage(stateName, 0, "tree-state", "not a 40-byte state record");
    const std::string bytes = state.ReadAll();
    const auto* b = reinterpret_cast<const uint8_t*>(bytes.data());
    const uint32_t pageSize = U32(b + 8), flags = U32(b + 12);
    if (pageSize < 1024 || pageSize > 0x10000 || (pageSize & (pageSize - 1)))
        SarThrowDamage(stateName, 8, "tree-state", "page size " + std::to_string(pageSize));
    if (!VantuFile::FileExists(path)) SarThrowDamage(name, 0, "tree-missing", "a state record without its pages");
    VantuBTree::BTreeState tree;
    std::unique_ptr<VantuBTree::BTreeFile> file;
    try {
        file = std::make_unique<VantuBTree::BTreeFile>(path, pageSize, flags, true);
        if (!file->ReadState(pending ? VantuBTree::BTreeFile::kPending : VantuBTree::BTreeFile::kCommitted, tree))
            return false;
    } catch (const Vantu::BaseException& e) {
        SarThrowDamage(stateName, 0, "tree-state", What(e));
    }
    if (tree.root == VantuBTree::kNoPage) {
        if (tree.height != 0 || tree.count != 0)
            SarThrowDamage(stateName, 24, "tree-state", "an empty tree with a height or records");
        return true;
    }
    if (tree.height == 0 || tree.height > kMaxTreeHeight)
        SarThrowDamage(stateName, 28, "tree-state", "height " + std::to_string(tree.height));
    TreeWalk walk(*file, name, pageSize, flags & 1, compare, visit);
    uint64_t records = 0;
    try {
        records = walk.Walk(tree.root, tree.height - 1);
    } catch (const Vantu::BaseException& e) {
        SarThrowDamage(name, 0, "tree-page", What(e));
    }
    if (records != tree.count)
        SarThrowDamage(stateName, 32, "tree-count",
                       "the state counts " + std::to_string(tree.count) + " records, the pages hold " +
                           std::to_string(records));
    return true;
}

}  // namespace Ostrel
