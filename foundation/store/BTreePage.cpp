#include "store/BTreePage.h"

#include <zlib.h>

#include <vector>

namespace VantuBTree {

void BTreePage::Init(Type type) {
    std::memset(p_, 0, kHeaderSize);
    p_[4] = type;
    PutU32(p_ + 8, size_);
}

bool BTreePage::IsSound() const {
    if (GetType() != kLeaf && GetType() != kBranch) return false;
    const uint32_t n = Count();
    const uint32_t slotsEnd = kHeaderSize + n * kSlotSize;
    if (slotsEnd > CellStart() || CellStart() > size_ || Dead() > size_ - CellStart()) return false;
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t at = U16(kHeaderSize + i * kSlotSize);
        if (at < CellStart() || at + kCellHeader > size_) return false;
        const uint32_t end = at + CellSize(KeySize(i), ValueSize(i));
        if (end > size_) return false;
        if (!IsLeaf() && ValueSize(i) != kBranchValueSize) return false;
    }
    return true;
}

void BTreePage::Seal() { PutU32(p_, static_cast<uint32_t>(crc32(0, p_ + 4, size_ - 4))); }

bool BTreePage::ChecksumMatches() const { return U32(0) == static_cast<uint32_t>(crc32(0, p_ + 4, size_ - 4)); }

uint64_t BTreePage::SumChildCounts() const {
    uint64_t sum = 0;
    for (uint32_t i = 0, n = Count(); i < n; ++i) sum += ChildCount(i);
    return sum;
}

uint32_t BTreePage::UsedBytes() const { return kHeaderSize + Count() * kSlotSize + (size_ - CellStart()) - Dead(); }

bool BTreePage::Fits(uint32_t cellSize) const { return UsedBytes() + cellSize + kSlotSize <= size_; }

void BTreePage::Insert(uint32_t i, const uint8_t* key, uint32_t keySize, const uint8_t* value, uint32_t valueSize) {
    const uint32_t cell = CellSize(keySize, valueSize);
    const uint32_t n = Count();
    if (CellStart() < kHeaderSize + (n + 1) * kSlotSize + cell) Compact();
    const uint32_t at = CellStart() - cell;
    PutU16(p_ + at, keySize);
    PutU16(p_ + at + 2, valueSize);
    if (keySize) std::memcpy(p_ + at + kCellHeader, key, keySize);
    if (value) std::memcpy(p_ + at + kCellHeader + keySize, value, valueSize);
    else std::memset(p_ + at + kCellHeader + keySize, 0, valueSize);
    uint8_t* slots = p_ + kHeaderSize;
    std::memmove(slots + (i + 1) * kSlotSize, slots + i * kSlotSize, (n - i) * kSlotSize);
    PutU16(slots + i * kSlotSize, at);
    PutU16(p_ + 6, n + 1);
    PutU32(p_ + 8, at);
}

void BTreePage::Remove(uint32_t i) {
    const uint32_t n = Count();
    const uint32_t at = U16(kHeaderSize + i * kSlotSize);
    const uint32_t cell = CellSize(KeySize(i), ValueSize(i));
    uint8_t* slots = p_ + kHeaderSize;
    std::memmove(slots + i * kSlotSize, slots + (i + 1) * kSlotSize, (n - i - 1) * kSlotSize);
    PutU16(p_ + 6, n - 1);
    // A cell at the low edge of the area goes back to the gap at once; others wait for a compaction.
    if (at == CellStart()) PutU32(p_ + 8, at + cell);
    else PutU32(p_ + 12, Dead() + cell);
}

void BTreePage::MoveTail(uint32_t from, BTreePage& to) {
    for (uint32_t i = from, n = Count(); i < n; ++i)
        to.Insert(to.Count(), Key(i), KeySize(i), Value(i), ValueSize(i));
    while (Count() > from) Remove(Count() - 1);
}

// Repacks the cells against the page's end so that the dead bytes join the free gap.
void BTreePage::Compact() {
    const uint32_t n = Count();
    thread_local std::vector<uint8_t> copy;
    copy.assign(p_, p_ + size_);
    BTreePage old(copy.data(), size_);
    uint32_t at = size_;
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t cell = CellSize(old.KeySize(i), old.ValueSize(i));
        at -= cell;
        std::memcpy(p_ + at, old.Cell(i), cell);
        PutU16(p_ + kHeaderSize + i * kSlotSize, at);
    }
    PutU32(p_ + 8, at);
    PutU32(p_ + 12, 0);
}

}  // namespace VantuBTree
