// The free space of one data file: blocks by offset and by size, taken whole (or split) by Get and given
// back by Add. Not synchronised: each store guards it with the section of the file it describes.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "file/BinaryStream.h"
#include "file/FileException.h"

namespace VantuFile {

template <class T>
class EmptyListT {
public:
    static constexpr T kAll = std::numeric_limits<T>::max();

    // The engine passes kAll for both: a fresh data file is one free block over the width's whole range.
    explicit EmptyListT(T maxBlockSize = kAll, T initialSize = kAll) : maxBlockSize_(maxBlockSize), initialSize_(initialSize) {
        EmptyListT::Clear();
    }
    virtual ~EmptyListT() = default;

    // Takes the smallest block of at least `size` bytes; `offset` receives its place. A block not above
    // `wholeBlockLimit` is taken whole and `size` receives its size; a larger one is split. False when none fits.
    virtual bool Get(T& size, T& offset, T wholeBlockLimit) {
        auto it = bySize_.lower_bound({size, 0});
        if (it == bySize_.end()) return false;
        auto [blockSize, blockOffset] = *it;
        Remove(blockOffset);
        offset = blockOffset;
        if (blockSize <= wholeBlockLimit) {
            size = blockSize;
            return true;
        }
        AddMerged(blockSize - size, blockOffset + size);
        return true;
    }

    // Inserts a free block as it is; callers that free space use AddMerged.
    virtual void Add(T size, T offset) {
        byOffset_[offset] = size;
        bySize_.insert({size, offset});
    }

    // Cuts the range out of the free block that holds it whole; raises EmptyListInvalidBlock otherwise.
    virtual void Reserve(T size, T offset) {
        auto it = byOffset_.upper_bound(offset);
        if (it == byOffset_.begin() || size == 0) ThrowInvalid(size, offset);
        --it;
        auto [blockOffset, blockSize] = *it;
        uint64_t end = uint64_t(offset) + size, blockEnd = uint64_t(blockOffset) + blockSize;
        if (end > blockEnd) ThrowInvalid(size, offset);
        Remove(blockOffset);
        if (offset > blockOffset) Add(offset - blockOffset, blockOffset);
        if (end < blockEnd) AddMerged(T(blockEnd - end), T(end));
    }

    // Empties the list; a list with an initial size starts again as the block (0, initialSize).
    virtual void Clear() {
        byOffset_.clear();
        bySize_.clear();
        if (initialSize_) AddMerged(initialSize_, 0);
    }

    // Frees a block: merged first with a free block that follows directly, then with one that precedes,
    // each only while the merged size stays within maxBlockSize.
    void AddMerged(T size, T offset) {
        if (size <= maxBlockSize_) {
            auto next = byOffset_.find(T(offset + size));
            if (next != byOffset_.end() && uint64_t(size) + next->second <= maxBlockSize_) {
                size = T(size + next->second);
                Remove(next->first);
            }
            auto previous = byOffset_.lower_bound(offset);
            if (previous != byOffset_.begin()) {
                --previous;
                if (uint64_t(previous->first) + previous->second == offset &&
                    uint64_t(size) + previous->second <= maxBlockSize_) {
                    offset = previous->first;
                    size = T(size + previous->second);
                    Remove(offset);
                }
            }
        }
        Add(size, offset);
    }

    // Free blocks by offset.
    const std::map<T, T>& Blocks() const { return byOffset_; }

    // The stored form, also written inside commit records: u32 count, then (offset, size) pairs in
    // ascending offset, each field of the width T.
    void Write(Vantu::BaseBinaryStream& out) const {
        out.PutScalar(uint32_t(byOffset_.size()));
        for (const auto& [offset, size] : byOffset_) {
            out.PutScalar(offset);
            out.PutScalar(size);
        }
    }

    // Replaces the whole list by the stored form in `in` (never merges into what is held).
    void Read(Vantu::BaseBinaryStream& in) {
        uint32_t count = 0;
        in.GetScalar(count);
        byOffset_.clear();
        bySize_.clear();
        for (uint32_t i = 0; i < count; ++i) {
            T offset = 0, size = 0;
            in.GetScalar(offset);
            in.GetScalar(size);
            Add(size, offset);
        }
    }

    static constexpr size_t kRecordSize = 2 * sizeof(T);

protected:
    // What the list is called in messages.
    virtual std::string Name() const { return "(in memory)"; }

private:
    void Remove(T offset) {
        auto it = byOffset_.find(offset);
        bySize_.erase({it->second, offset});
        byOffset_.erase(it);
    }

    [[noreturn]] void ThrowInvalid(T size, T offset) const {
        RegisterFileMessages();
        throw EmptyListInvalidBlock(VANTU_MESSAGE(kFileMessageDomain, kMessageInvalidBlock, Name(), size, offset));
    }

    T maxBlockSize_;
    T initialSize_;
    std::map<T, T> byOffset_;
    std::set<std::pair<T, T>> bySize_;
};

}  // namespace VantuFile
