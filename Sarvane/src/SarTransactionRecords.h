// The forms a slice transaction carries, shared by its writer, its reader and the tools: document records and
// the sections inside the compressed body, and the plain trailer behind it. Values only; one thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "CustomField.h"
#include "SarvaneContainerAccess.h"
#include "TransactionTermOperation.h"
#include "core/FastVector.h"
#include "file/BinaryStream.h"

namespace Ostrel {

inline constexpr uint8_t kTransactionDocumentOpcode = 0xAD;
inline constexpr uint8_t kTransactionEndOfDocuments = 0xED;

// One added document, opcode excepted.
struct TransactionDocumentRecord {
    uint32_t documentId = 0;
    bool hasShingles = false;
    uint16_t collection = 0;
    uint32_t size = 0;
    std::array<uint8_t, 15> signature{};
    std::vector<uint8_t> stored;  // one zlib unit: the IndexedDocument
    std::vector<uint8_t> words;   // one zlib unit: u32 n, then n times a wide word and a u8 (frequency - 1)
    std::vector<CustomField> customFields;
    // Only on a slice whose documents carry access lists.
    std::vector<SarcIdentity> allowed;
    std::vector<SarcIdentity> denied;

    void Write(Vantu::BaseBinaryStream& stream, bool securityEnabled) const;
    void Read(Vantu::BaseBinaryStream& stream, bool securityEnabled);
    bool operator==(const TransactionDocumentRecord&) const = default;
};

// A document's word list, the unit of a document record's `words`: u32 n, then n times a wide word and a u8 that
// is its frequency minus 1, at most 255. So a frequency above 256 counts as 256, and a reader takes out exactly
// what the writer put in. Writing one word returns what its byte tells (1 to 256); reading adds that to `words`.
uint32_t WriteTransactionWord(Vantu::BaseBinaryStream& stream, const std::u16string& word, uint32_t frequency);
void ReadTransactionWords(Vantu::BaseBinaryStream& stream, std::map<std::u16string, uint32_t>& words);

// One operation of a term table with its position data, as read back.
struct TransactionTermEntry {
    TransactionTermOperation operation;
    std::vector<uint8_t> data;

    // The positions that the data codes, ascending.
    Vantu::FastVector<unsigned int> Positions() const;
};
using TransactionTermTable = std::map<std::string, std::vector<TransactionTermEntry>>;

// A term table is a u32 term count, then for each term in ascending byte order: the term, a u32 operation
// count, and each operation's file form followed by its position data. The writer streams the table from its
// own memory: the count, then one call per term.
void WriteTransactionTerm(Vantu::BaseBinaryStream& stream, const std::string& term,
                          const std::vector<TransactionTermOperation*>& operations);
void ReadTransactionTermTable(Vantu::BaseBinaryStream& stream, TransactionTermTable& table);

// What follows the end-of-documents opcode, in file order.
struct TransactionSections {
    uint32_t operationCount = 0;
    uint32_t operationBytes = 0;
    TransactionTermTable terms;
    uint32_t customFieldOperationCount = 0;
    uint32_t customFieldOperationBytes = 0;
    std::map<std::string, TransactionTermTable> fields;
    std::map<std::string, std::vector<uint32_t>> fieldDocuments;
    std::map<std::u16string, uint32_t> words;
    std::vector<std::pair<uint32_t, float>> ranks;
    std::vector<std::pair<uint32_t, uint16_t>> deletions;

    void Read(Vantu::BaseBinaryStream& stream);
};

// Per collection (added, deleted), and the documents both added and deleted by the transaction. It ends with
// its own size, so a reader finds it from the end of the file without decompressing anything.
struct TransactionTrailer {
    std::map<uint16_t, std::pair<uint32_t, uint32_t>> collections;
    std::vector<uint32_t> removed;  // ascending

    void Write(Vantu::BaseBinaryStream& stream) const;
    static TransactionTrailer Read(const std::string& path);
    bool operator==(const TransactionTrailer&) const = default;
};

// A whole transaction file, decoded: for tests and tools. Documents are read up to the end-of-documents opcode.
struct TransactionContents {
    std::vector<TransactionDocumentRecord> documents;
    TransactionSections sections;
    TransactionTrailer trailer;

    static TransactionContents Decode(const std::string& path, bool securityEnabled);
};

}  // namespace Ostrel
