// One page of a B-tree file as a slotted byte array: cells sorted by slot, packed from the page's end.
// A view over bytes the caller owns; used by one thread at a time, under the tree's own caller.
#pragma once

#include <cstdint>
#include <cstring>

namespace VantuBTree {

// Page layout (all little-endian):
//   0  u32 checksum of bytes 4 .. end of the slots and of the cells (set when the page goes to disk)
//   4  u8  type (1 leaf, 2 branch)
//   5  u8  0
//   6  u16 cell count
//   8  u32 cellStart: offset of the lowest cell byte (pageSize when empty)
//  12  u32 dead: bytes of removed cells still inside the cell area
//  16  u16 offset of each cell, in key order
// A cell is u16 key size, u16 value size, the key, the value. A branch cell's value is u32 child page and
// u32 number of records below it; the key of a branch's first cell is empty and never read.
class BTreePage {
public:
    enum Type : uint8_t { kLeaf = 1, kBranch = 2 };
    static constexpr uint32_t kHeaderSize = 16;
    static constexpr uint32_t kSlotSize = 2;
    static constexpr uint32_t kCellHeader = 4;
    static constexpr uint32_t kBranchValueSize = 8;

    BTreePage(uint8_t* bytes, uint32_t pageSize) : p_(bytes), size_(pageSize) {}

    void Init(Type type);
    // Checks every offset against the page bounds; false when the bytes can't be a page of this type set.
    bool IsSound() const;
    void Seal();                 // stores the checksum
    bool ChecksumMatches() const;

    Type GetType() const { return static_cast<Type>(p_[4]); }
    bool IsLeaf() const { return GetType() == kLeaf; }
    uint32_t Count() const { return U16(6); }

    const uint8_t* Key(uint32_t i) const { return Cell(i) + kCellHeader; }
    uint32_t KeySize(uint32_t i) const { return U16At(Cell(i)); }
    const uint8_t* Value(uint32_t i) const { return Key(i) + KeySize(i); }
    uint32_t ValueSize(uint32_t i) const { return U16At(Cell(i) + 2); }
    uint8_t* MutableValue(uint32_t i) { return const_cast<uint8_t*>(Value(i)); }

    uint32_t Child(uint32_t i) const { return U32At(Value(i)); }
    uint32_t ChildCount(uint32_t i) const { return U32At(Value(i) + 4); }
    void SetChild(uint32_t i, uint32_t page) { PutU32(MutableValue(i), page); }
    void SetChildCount(uint32_t i, uint32_t n) { PutU32(MutableValue(i) + 4, n); }
    uint64_t SumChildCounts() const;

    static uint32_t CellSize(uint32_t keySize, uint32_t valueSize) { return kCellHeader + keySize + valueSize; }
    // Room a cell takes once compacted, its slot included.
    uint32_t UsedBytes() const;
    bool Fits(uint32_t cellSize) const;

    // Inserts a cell at slot i; the caller has checked Fits. The value may be null (zero-filled).
    void Insert(uint32_t i, const uint8_t* key, uint32_t keySize, const uint8_t* value, uint32_t valueSize);
    void Remove(uint32_t i);

    // Moves cells [from, Count()) of this page to the end of `to`, which must have room.
    void MoveTail(uint32_t from, BTreePage& to);

private:
    const uint8_t* Cell(uint32_t i) const { return p_ + U16(kHeaderSize + i * kSlotSize); }
    uint32_t CellStart() const { return U32(8); }
    uint32_t Dead() const { return U32(12); }
    void Compact();
    uint32_t Checksum() const;

    uint32_t U16(uint32_t at) const { return U16At(p_ + at); }
    uint32_t U32(uint32_t at) const { return U32At(p_ + at); }
    static uint32_t U16At(const uint8_t* b) { return b[0] | (b[1] << 8); }
    static uint32_t U32At(const uint8_t* b) { return b[0] | (b[1] << 8) | (b[2] << 16) | (uint32_t(b[3]) << 24); }
    static void PutU16(uint8_t* b, uint32_t v) { b[0] = uint8_t(v); b[1] = uint8_t(v >> 8); }
    static void PutU32(uint8_t* b, uint32_t v) {
        b[0] = uint8_t(v); b[1] = uint8_t(v >> 8); b[2] = uint8_t(v >> 16); b[3] = uint8_t(v >> 24);
    }

    uint8_t* p_;
    uint32_t size_;
};

}  // namespace VantuBTree
