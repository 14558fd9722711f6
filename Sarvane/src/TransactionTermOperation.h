// One occurrence record of one term in one document, as a slice transaction carries it: an 8-byte file form
// (document id, position count, term flags, length of the position data) and, in memory, the position data.
// A plain value: one thread at a time.
#pragma once

#include <cstdint>

namespace Ostrel {

class TransactionTermOperation {
public:
    static constexpr uint32_t kFileSize = 8;
    static constexpr uint32_t kDocumentIdMask = 0xFFFFFF;
    // Counts from this on are stored as 0: the reader learns them from the positions.
    static constexpr uint32_t kPositionCountLimit = 32;

    TransactionTermOperation() = default;
    TransactionTermOperation(uint32_t documentId, uint32_t positionCount, uint16_t termFlags);

    uint32_t DocumentId() const { return head_ & kDocumentIdMask; }
    uint32_t PositionCount() const { return (head_ >> 25) & 0x1F; }
    // The flags that reach the file: 0x0001 to 0x2000; 0x4000 and 0x8000 have no place there.
    uint16_t TermFlags() const;
    uint16_t DataLength() const { return dataLength_; }
    const uint8_t* Data() const { return data_; }
    void SetData(const uint8_t* data, uint16_t length) {
        data_ = data;
        dataLength_ = length;
    }

    // The file form, little-endian: u32 head, u8, u8, u16 data length.
    void ToFile(uint8_t out[kFileSize]) const;
    static TransactionTermOperation FromFile(const uint8_t in[kFileSize]);

    bool operator<(const TransactionTermOperation& o) const { return DocumentId() < o.DocumentId(); }
    bool operator==(const TransactionTermOperation& o) const { return DocumentId() == o.DocumentId(); }

private:
    // Bits 0-23 document id, 25-29 position count, 30 flag 0x0001, 31 flag 0x0020.
    uint32_t head_ = 0;
    // Flags 0x001E (shifted down by one) in bits 0-3, then 0x0040, 0x0080, 0x0100, 0x0200.
    uint8_t flagsLow_ = 0;
    // Flags 0x0400, 0x0800, 0x1000, 0x2000 in bits 0-3.
    uint8_t flagsHigh_ = 0;
    uint16_t dataLength_ = 0;
    const uint8_t* data_ = nullptr;
};

}  // namespace Ostrel
