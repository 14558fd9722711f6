#include "SarTransactionRecords.h"

#include <algorithm>

#include "SarStoreFiles.h"
#include "SarTransaction.h"
#include "file/BinaryStreamException.h"
#include "file/BinaryStreamFileBuffer.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "file/CFileT.h"
#include "store/EliasDeltaCodes.h"

namespace Ostrel {

namespace {

void WriteBytes(Vantu::BaseBinaryStream& stream, const std::vector<uint8_t>& bytes) {
    stream << uint32_t(bytes.size());
    stream.PutExact(bytes.data(), bytes.size());
}

void ReadBytes(Vantu::BaseBinaryStream& stream, uint32_t size, std::vector<uint8_t>& bytes) {
    bytes.resize(size);
    stream.GetExact(bytes.data(), size);
}

template <class T>
void WriteList(Vantu::BaseBinaryStream& stream, const std::vector<T>& list) {
    stream << uint32_t(list.size());
    for (const T& item : list) stream << item;
}

template <class T>
void ReadList(Vantu::BaseBinaryStream& stream, std::vector<T>& list) {
    uint32_t count;
    stream >> count;
    list.resize(count);
    for (T& item : list) stream >> item;
}

// The smallest trailer: no collection, no removed document, and the size itself.
constexpr uint32_t kEmptyTrailerSize = 12;

}  // namespace

void TransactionDocumentRecord::Write(Vantu::BaseBinaryStream& stream, bool securityEnabled) const {
    stream << documentId << uint8_t(hasShingles) << collection << size;
    stream.PutExact(signature.data(), signature.size());
    // The words' size stands before both units and again before the words, where a reader that skips the
    // stored document finds it.
    stream << uint32_t(stored.size()) << uint32_t(words.size());
    stream.PutExact(stored.data(), stored.size());
    WriteBytes(stream, words);
    WriteList(stream, customFields);
    if (!securityEnabled) return;
    for (const auto* list : {&allowed, &denied}) {
        stream << uint32_t(list->size());
        for (const SarcIdentity& identity : *list) stream << std::u16string_view(identity);
    }
}

void TransactionDocumentRecord::Read(Vantu::BaseBinaryStream& stream, bool securityEnabled) {
    uint8_t shingles;
    uint32_t storedSize, wordsSize;
    stream >> documentId >> shingles >> collection >> size;
    hasShingles = shingles != 0;
    stream.GetExact(signature.data(), signature.size());
    stream >> storedSize >> wordsSize;
    ReadBytes(stream, storedSize, stored);
    stream >> wordsSize;
    ReadBytes(stream, wordsSize, words);
    ReadList(stream, customFields);
    allowed.clear();
    denied.clear();
    if (securityEnabled)
        for (auto* list : {&allowed, &denied}) ReadList(stream, *list);
}

uint32_t WriteTransactionWord(Vantu::BaseBinaryStream& stream, const std::u16string& word, uint32_t frequency) {
    // A frequency is at least 1: a word that occurs does so once at the least.
    const uint8_t told = uint8_t(std::min<uint32_t>(std::max<uint32_t>(frequency, 1) - 1, 255));
    stream << std::u16string_view(word) << told;
    return told + 1u;
}

void ReadTransactionWords(Vantu::BaseBinaryStream& stream, std::map<std::u16string, uint32_t>& words) {
    uint32_t count;
    stream >> count;
    for (uint32_t i = 0; i < count; ++i) {
        std::u16string word;
        uint8_t told;
        stream >> word >> told;
        words[word] += uint32_t(told) + 1;
    }
}

Vantu::FastVector<unsigned int> TransactionTermEntry::Positions() const {
    Vantu::FastVector<unsigned int> positions;
    if (data.empty()) return positions;
    VantuFile::StaticMemoryBuffer buffer(data.data(), data.size());
    VantuCompression::BitsReaderWriter bits(&buffer);
    VantuCompression::EliasDeltaCodes().Uncompress(bits, true, positions, 0);
    return positions;
}

void WriteTransactionTerm(Vantu::BaseBinaryStream& stream, const std::string& term,
                          const std::vector<TransactionTermOperation*>& operations) {
    stream << std::string_view(term) << uint32_t(operations.size());
    uint8_t head[TransactionTermOperation::kFileSize];
    for (const TransactionTermOperation* operation : operations) {
        operation->ToFile(head);
        stream.PutExact(head, sizeof head);
        stream.PutExact(operation->Data(), operation->DataLength());
    }
}

void ReadTransactionTermTable(Vantu::BaseBinaryStream& stream, TransactionTermTable& table) {
    uint32_t terms;
    stream >> terms;
    for (uint32_t t = 0; t < terms; ++t) {
        std::string term;
        uint32_t count;
        stream >> term >> count;
        std::vector<TransactionTermEntry>& entries = table[term];
        for (uint32_t i = 0; i < count; ++i) {
            uint8_t head[TransactionTermOperation::kFileSize];
            stream.GetExact(head, sizeof head);
            TransactionTermEntry& entry = entries.emplace_back();
            entry.operation = TransactionTermOperation::FromFile(head);
            ReadBytes(stream, entry.operation.DataLength(), entry.data);
        }
    }
}

void TransactionSections::Read(Vantu::BaseBinaryStream& stream) {
    stream >> operationCount >> operationBytes;
    ReadTransactionTermTable(stream, terms);
    uint32_t count;
    stream >> customFieldOperationCount >> customFieldOperationBytes >> count;
    for (uint32_t i = 0; i < count; ++i) {
        std::string field;
        stream >> field;
        ReadTransactionTermTable(stream, fields[field]);
    }
    stream >> count;
    for (uint32_t i = 0; i < count; ++i) {
        std::string field;
        stream >> field;
        ReadList(stream, fieldDocuments[field]);
    }
    stream >> count;
    for (uint32_t i = 0; i < count; ++i) {
        std::u16string word;
        uint32_t total;
        stream >> word >> total;
        words[word] = total;
    }
    stream >> count;
    ranks.resize(count);
    for (auto& [id, rank] : ranks) stream >> id >> rank;
    stream >> count;
    deletions.resize(count);
    for (auto& [id, collection] : deletions) {
        uint16_t unused;
        stream >> id >> collection >> unused;
    }
}

void TransactionTrailer::Write(Vantu::BaseBinaryStream& stream) const {
    stream << uint32_t(collections.size());
    for (const auto& [collection, counts] : collections) stream << collection << counts.first << counts.second;
    WriteList(stream, removed);
    stream << uint32_t(kEmptyTrailerSize + collections.size() * 10 + removed.size() * 4);
}

TransactionTrailer TransactionTrailer::Read(const std::string& path) {
    VantuFile::CFileT<unsigned int> file(path);
    file.Open(VantuFile::CFileT<unsigned int>::kModeRead);
    const unsigned int fileSize = file.Size();
    uint32_t trailerSize = 0;
    if (fileSize >= SarTransaction::kHeaderSize + kEmptyTrailerSize) file.ReadAt(fileSize - 4, &trailerSize, 4, true);
    if (trailerSize < kEmptyTrailerSize || trailerSize > fileSize - SarTransaction::kHeaderSize)
        Vantu::ThrowStream<Vantu::BinaryStreamException>("Transaction file without a valid trailer: " + path);
    std::vector<uint8_t> bytes(trailerSize);
    file.ReadAt(fileSize - trailerSize, bytes.data(), trailerSize, true);
    VantuFile::StaticMemoryBuffer buffer(static_cast<const void*>(bytes.data()), bytes.size());
    Vantu::BaseBinaryStream stream(&buffer);
    TransactionTrailer trailer;
    uint32_t count;
    stream >> count;
    for (uint32_t i = 0; i < count; ++i) {
        uint16_t collection;
        stream >> collection;
        auto& [added, deleted] = trailer.collections[collection];
        stream >> added >> deleted;
    }
    ReadList(stream, trailer.removed);
    return trailer;
}

TransactionContents TransactionContents::Decode(const std::string& path, bool securityEnabled) {
    TransactionContents contents;
    contents.trailer = TransactionTrailer::Read(path);
    SarTransaction transaction(Vantu::FromUtf8(path), true);
    transaction.Open(true);
    Vantu::BaseBinaryStream& stream = transaction.GetStream();
    for (;;) {
        uint8_t opcode;
        stream >> opcode;
        if (opcode == kTransactionEndOfDocuments) break;
        if (opcode != kTransactionDocumentOpcode)
            SarThrowUnknownRecord(opcode, path);
        contents.documents.emplace_back().Read(stream, securityEnabled);
    }
    contents.sections.Read(stream);
    transaction.Close();
    return contents;
}

}  // namespace Ostrel
