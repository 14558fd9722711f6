// Read-only access to the files of a slice for the index checker and the dump tool: opening never creates,
// replays or renames anything, and every decoder bounds what it reads by the file's size. One thread per object.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "DocIDWeightStruct.h"
#include "FileDocIDList.h"
#include "FileIndexedDocuments.h"
#include "FileIndexedTerms.h"
#include "IndexedDocument.h"
#include "core/FastVector.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamFileBuffer.h"
#include "file/CFileT.h"
#include "store/BitVector.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

namespace Ostrel {

// One fault, or one state worth knowing, found in a file of the slice.
struct SarCheckFinding {
    std::string file;  // relative to the slice's directory
    uint64_t offset = 0;
    std::string rule;  // a short stable id, e.g. "free-list-overlap"
    std::string detail;
    bool information = false;  // a state that recovery accepts, not a fault

    std::string ToString() const;
};

// Raised by the readers below when bytes break a rule of their format.
struct SarCheckDamage {
    SarCheckFinding finding;
};
[[noreturn]] void SarThrowDamage(const std::string& file, uint64_t offset, const std::string& rule,
                                 const std::string& detail);

// One file of the slice, opened for reading when it exists.
class SarCheckFile {
public:
    SarCheckFile(const std::string& directory, const std::string& name);
    bool Exists() const { return exists_; }
    uint64_t Size() const { return exists_ ? file_.Size() : 0; }
    const std::string& Name() const { return name_; }
    const std::string& Path() const { return path_; }
    // Exactly `size` bytes at `offset`; a file that ends before raises damage under `rule`. Small reads come
    // from a window read ahead, since the checker walks records in file order.
    void Read(uint64_t offset, void* out, size_t size, const std::string& rule) const;
    // The whole file; only for files whose size the caller has bounded.
    std::string ReadAll() const;
    VantuFile::CFileT<uint64_t>& File() const { return file_; }

private:
    std::string name_;
    std::string path_;
    bool exists_;
    mutable VantuFile::CFileT<uint64_t> file_;
    mutable std::vector<uint8_t> window_;
    mutable uint64_t windowStart_ = 0;
};

// A posting of a large term and its position word.
struct SarTermPosting {
    DocIDWeightStruct posting;
    uint32_t positionWord = 0;
};

// The files of the large-term postings.
struct SarTermFiles {
    explicit SarTermFiles(const std::string& directory);

    SarCheckFile index;  // ".tix"
    SarCheckFile data;   // ".tin"
    std::vector<std::unique_ptr<SarCheckFile>> positions;  // ".0.tps" to ".3.tps"

    uint32_t RecordCount() const { return uint32_t(index.Size() / FileIndexedTerms::IndexFileStruct::kSize); }
    FileIndexedTerms::IndexFileStruct ReadRecord(uint32_t termId) const;
    // Every posting of the term, the pending one last; raises damage when a chunk breaks its frame.
    std::vector<SarTermPosting> ReadPostings(uint32_t termId, const FileIndexedTerms::IndexFileStruct& record) const;
    // The posting's positions; empty when it has none. Raises damage when the codes can't be read.
    Vantu::FastVector<unsigned int> ReadPositions(uint32_t termId, const SarTermPosting& posting) const;
};

// The files of the document store.
struct SarDocumentFiles {
    explicit SarDocumentFiles(const std::string& directory);

    SarCheckFile index;  // ".dix"
    SarCheckFile data;   // ".din"

    uint32_t RecordCount() const { return uint32_t(index.Size() / FileIndexedDocuments::kRecordSize); }
    FileIndexedDocuments::IndexFileStruct ReadRecord(uint32_t documentId) const;
    // Decodes the record's block: the stored document, then the word list into `words`. Returns the block's
    // length; raises damage when it passes the file or a unit doesn't decode.
    uint64_t ReadBlock(uint32_t documentId, const FileIndexedDocuments::IndexFileStruct& record,
                       IndexedDocument& document, std::map<std::u16string, uint32_t>& words) const;

private:
    // Starts reading the unit of `size` bytes at `offset` of ".din".
    Vantu::BinaryStreamT<uint64_t>& Unit(uint64_t offset, uint32_t size) const;

    mutable VantuFile::ICFileBufferT<uint64_t> input_;
    mutable VantuCompression::ZLib zlib_{1, 6, 15};
    mutable VantuCompression::ICompressedBufferT<uint64_t> inflater_;
    mutable Vantu::BinaryStreamT<uint64_t> stream_;
};

// The files of a doc-id list store ("Collections", "SmallTerms").
struct SarListFiles {
    SarListFiles(const std::string& directory, const std::string& base);

    SarCheckFile index;  // ".cix"
    SarCheckFile data;   // ".cin"

    uint32_t RecordCount() const { return uint32_t(index.Size() / FileDocIDList::kRecordSize); }
    FileDocIDList::IndexFileStruct ReadRecord(uint32_t listId) const;
    // The list as a vector of maxDocId + 1 bits; raises damage when its block can't be read.
    VantuAlgo::BitVector ReadList(uint32_t listId, const FileDocIDList::IndexFileStruct& record) const;
};

// Walks the records of a B-tree in key order, through the state a reopened tree would show (the pending one
// when `pending`). `compare(a, b)` orders two keys. Returns false when the tree has no such state record;
// raises damage on a page, link, count or order that is wrong.
using SarTreeVisitor = std::function<void(const std::string& key, const std::string& value)>;
using SarTreeOrder = std::function<bool(const std::string& a, const std::string& b)>;
bool SarWalkTree(const std::string& directory, const std::string& name, bool pending, const SarTreeOrder& compare,
                 const SarTreeVisitor& visit);

// The key orders of the engine's trees: a string key (u16 length, then bytes) and a u32 key.
bool SarStringKeyBefore(const std::string& a, const std::string& b);
bool SarU32KeyBefore(const std::string& a, const std::string& b);
std::string SarStringKey(const std::string& key);  // the bytes of a string key
uint32_t SarU32Value(const std::string& bytes);

}  // namespace Ostrel
