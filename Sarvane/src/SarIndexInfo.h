// The counters of a slice kept in "Index.info": a plain version, then one zlib unit with the stores' counters.
// Replacing the file leaves a complete "Index.info" or "Index.info.new" at every instant. One thread per slice.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "file/BinaryStream.h"

namespace Ostrel {

struct SarCollectionInfo {
    uint16_t id = 0;
    uint64_t documentBytes = 0;
    uint64_t removedDocumentBytes = 0;
    uint32_t documents = 0;
    uint32_t removedDocuments = 0;
    bool operator==(const SarCollectionInfo&) const = default;
};

struct SarFieldInfo {
    std::string name;
    uint8_t type = 0;
    uint32_t highestDocumentId = 0;
    bool operator==(const SarFieldInfo&) const = default;
};

// The body of the file. The document store fills `collections` and the deleted-document bits, the lexicon
// the term ids and the fields, the word corrector the word total: each reads back what it wrote.
struct SarIndexInfo {
    static constexpr uint32_t kVersion = 0x0BF1E8A7;
    static constexpr const char* kFileName = "Index.info";

    int32_t documentsWithShingles = 0;
    std::vector<SarCollectionInfo> collections;
    uint32_t deletedBitCount = 0;
    std::vector<uint8_t> deletedBits;  // (deletedBitCount + 7) / 8 bytes
    uint32_t nextTermId = 0;
    uint32_t nextSmallTermId = 3000000000u;  // small term ids begin here
    std::vector<SarFieldInfo> fields;
    uint64_t wordTotal = 0;

    bool operator==(const SarIndexInfo&) const = default;

    // The file a load reads in `directory`: "Index.info", else "Index.info.new" when only that one exists (a
    // crash between the two steps of Commit). The plain file wins when both exist (D1): the ".new" one is
    // a pre-committed state that recovery may still roll back. Empty when neither exists.
    static std::string LoadPath(const std::string& directory);

    // Reads the version of `path`; any other than kVersion raises SarInvalidIndexVersionException (16).
    static void CheckVersion(const std::string& path);
    // Reads the whole file. The word total is read only when `withWordTotal`, and a file that ends before it
    // (as one written without it does) leaves it as it was.
    void Load(const std::string& path, bool withWordTotal);

    // Writes "Index.info.tmp" durably, then puts it in the place of "Index.info" (`direct`) or
    // "Index.info.new". The word total is written only when `withWordTotal`.
    void Save(const std::string& directory, bool direct, bool withWordTotal) const;
    // Makes a pre-committed "Index.info.new" the "Index.info".
    static void Commit(const std::string& directory);
    // Items 2 to 5 of the body, the document store's part: compaction writes them into the new file's body.
    void WriteDocumentItems(Vantu::BaseBinaryStream& out) const;
};

}  // namespace Ostrel
