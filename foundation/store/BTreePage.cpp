#include "store/BTreePage.h"

#include <algorithm>
#include <bit>
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

namespace {

static_assert(std::endian::native == std::endian::little, "page words are read as little-endian");

uint64_t Load64(const uint8_t* b) {
    uint64_t v;
    std::memcpy(&v, b, sizeof v);
    return v;
}

// Four independent multiply-xor lanes over 64-bit little-endian words: each step is a bijection of the
// lane, so any one changed word changes the sum, and the lanes keep the processor busy at several GB/s
// (pages are summed on every read from disk, where a byte-serial CRC was the cost of a cache miss).
struct PageSum {
    static constexpr uint64_t kMul = 0x9E3779B97F4A7C15ull;
    uint64_t lane[4] = {1, 2, 3, 4};

    void Add(const uint8_t* p, uint32_t n) {
        uint64_t a = lane[0], b = lane[1], c = lane[2], d = lane[3];
        uint32_t i = 0;
        for (; i + 32 <= n; i += 32) {
            a = (a ^ Load64(p + i)) * kMul;
            b = (b ^ Load64(p + i + 8)) * kMul;
            c = (c ^ Load64(p + i + 16)) * kMul;
            d = (d ^ Load64(p + i + 24)) * kMul;
        }
        for (; i < n; ++i) a = (a ^ p[i]) * kMul;
        lane[0] = a;
        lane[1] = (b ^ n) * kMul;
        lane[2] = c;
        lane[3] = d;
    }
    uint32_t Value() const {
        uint64_t h = lane[0];
        for (int l = 1; l < 4; ++l) h = (h ^ lane[l]) * kMul;
        return static_cast<uint32_t>(h ^ (h >> 32));
    }
};

}  // namespace

// The free gap between the slots and the cells isn't covered: its bytes mean nothing. A cellStart that
// has been damaged makes the sum cover other bytes, and so fail too.
uint32_t BTreePage::Checksum() const {
    const uint32_t slotsEnd = std::min(size_, kHeaderSize + Count() * kSlotSize);
    const uint32_t cells = std::max(slotsEnd, std::min(size_, CellStart()));
    PageSum sum;
    sum.Add(p_ + 4, slotsEnd - 4);
    sum.Add(p_ + cells, size_ - cells);
    return sum.Value();
}

void BTreePage::Seal() { PutU32(p_, Checksum()); }

bool BTreePage::ChecksumMatches() const { return U32(0) == Checksum(); }

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
