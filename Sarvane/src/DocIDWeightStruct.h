// One posting of one term: the document id, the number of positions, the term flags and whether the positions
// live in the posting's own position word; six packed bytes, stored as they are. A plain value.
#pragma once

#include <cstdint>

namespace Ostrel {

#pragma pack(push, 1)
class DocIDWeightStruct {
public:
    static constexpr uint32_t kDocumentIdMask = 0xFFFFFF;
    // Counts from this on are stored as 0: the reader learns them from the positions.
    static constexpr uint32_t kPositionCountLimit = 32;

    DocIDWeightStruct() = default;
    DocIDWeightStruct(uint32_t documentId, uint32_t positionCount, uint16_t termFlags);

    uint32_t DocumentId() const { return head_ & kDocumentIdMask; }
    uint32_t PositionCount() const { return (head_ >> 25) & 0x1F; }
    // The flags a posting keeps: 0x0001 to 0x2000; 0x4000 and 0x8000 have no place in it.
    uint16_t TermFlags() const;
    // Set only by the posting store: the position word holds the coded positions themselves.
    bool PositionsInline() const { return (head_ >> 24) & 1; }
    void SetPositionsInline(bool inline_) { head_ = (head_ & ~(1u << 24)) | (uint32_t(inline_) << 24); }

    // Postings compare by document id alone.
    bool operator<(const DocIDWeightStruct& o) const { return DocumentId() < o.DocumentId(); }
    bool operator==(const DocIDWeightStruct& o) const { return DocumentId() == o.DocumentId(); }

private:
    // Bits 0-23 document id, 24 positions inline, 25-29 position count, 30 flag 0x0001, 31 flag 0x0020.
    uint32_t head_ = 0;
    // Flags 0x001E (shifted down by one) in bits 0-3, then 0x0040, 0x0080, 0x0100, 0x0200.
    uint8_t flagsLow_ = 0;
    // Flags 0x0400, 0x0800, 0x1000, 0x2000 in bits 0-3.
    uint8_t flagsHigh_ = 0;
};
#pragma pack(pop)

static_assert(sizeof(DocIDWeightStruct) == 6, "a posting is six bytes on disk and in memory");

}  // namespace Ostrel
