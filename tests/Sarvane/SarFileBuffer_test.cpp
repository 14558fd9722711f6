#include "SarFileBuffer.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "MessageIdOf.h"
#include "SarException.h"
#include "TempDir.h"
#include "file/BinaryStreamMemoryBuffer.h"

using namespace Ostrel;

namespace {

using List = VantuFile::EmptyListT<uint64_t>;

// A list with exactly these free blocks (offset -> size).
void SetBlocks(List& list, const std::map<uint64_t, uint64_t>& blocks) {
    list.Clear();
    list.Reserve(List::kAll, 0);
    for (auto [offset, size] : blocks) list.AddMerged(size, offset);
}

struct Region {
    uint32_t code;
    uint64_t start;
    std::string data;
};

// The region records of a log, in order.
std::vector<Region> Regions(VantuFile::MemoryBuffer& log) {
    std::vector<Region> regions;
    Vantu::BinaryStreamT<unsigned int> in(log);
    log.SeekG(0);
    while (!log.EndOfFile()) {
        Region r;
        uint32_t length;
        in >> r.code >> r.start >> length;
        r.data.resize(length);
        in.GetExact(r.data.data(), length);
        regions.push_back(r);
    }
    return regions;
}

struct Writer {
    List list;
    VantuFile::MemoryBuffer log{64};
    Vantu::BinaryStreamT<unsigned int> stream{log};
    SarFileBuffer buffer;

    Writer(uint32_t code, uint32_t minimumRemainder) : buffer(code, minimumRemainder, list, 4) {}

    // Writes `count` bytes of `fill`; returns the block's (offset, size).
    std::pair<uint64_t, uint32_t> Write(uint32_t count, char fill, uint32_t size = 0) {
        std::string bytes(count, fill);
        VantuFile::StaticMemoryBuffer source(static_cast<const void*>(bytes.data()), bytes.size());
        uint64_t offset = 0;
        size = std::max(size, count);
        buffer.Write(source, count, size, offset, stream);
        return {offset, size};
    }
};

}  // namespace

TEST(SarFileBuffer, RegionsAreWholeFreeBlocksAndTheirTailsGoBackAtFlush) {
    Writer w(3, 24);
    SetBlocks(w.list, {{100, 50}, {1000, List::kAll - 1000}});
    // The smallest block that fits is the 50 at 100: a block of exactly what remains fits it.
    EXPECT_EQ(w.Write(20, 'a'), std::make_pair(uint64_t(100), 20u));
    EXPECT_EQ(w.Write(30, 'b'), std::make_pair(uint64_t(120), 30u));
    // The region is full, so it is flushed and the next block takes a region in the big tail.
    auto [offset, size] = w.Write(10, 'c');
    EXPECT_EQ(offset, 1000u);
    EXPECT_EQ(size, 10u);
    // Leaving 23 bytes would be too little: the block swallows them. Leaving 24 keeps the size.
    w.buffer.Rollback();
    SetBlocks(w.list, {{5000, 57}, {9000, 58}});
    EXPECT_EQ(w.Write(34, 'd'), std::make_pair(uint64_t(5000), 57u));
    w.buffer.Rollback();
    SetBlocks(w.list, {{9000, 58}});
    EXPECT_EQ(w.Write(34, 'e'), std::make_pair(uint64_t(9000), 34u));
    w.log.Clear();
    w.buffer.FlushAll(w.stream);
    const auto regions = Regions(w.log);
    ASSERT_EQ(regions.size(), 1u);
    EXPECT_EQ(regions[0].code, 3u);
    EXPECT_EQ(regions[0].start, 9000u);
    EXPECT_EQ(regions[0].data, std::string(34, 'e'));
    // The unused 24 bytes are free again, and a second FlushAll writes nothing.
    EXPECT_EQ(w.list.Blocks(), (std::map<uint64_t, uint64_t>{{9034, 24}}));
    w.buffer.FlushAll(w.stream);
    EXPECT_EQ(Regions(w.log).size(), 1u);
}

TEST(SarFileBuffer, BlocksOfDifferentSizesShareOpenRegionsAndSlackIsZero) {
    Writer w(0, 0);
    SetBlocks(w.list, {{0, 64}, {200, 1000}});
    // The first block takes the small free block; the second doesn't fit there and, with 14 bytes left
    // (under 128) in the only region, takes that region over after flushing it.
    EXPECT_EQ(w.Write(50, 'a').first, 0u);
    EXPECT_EQ(w.Write(300, 'b').first, 200u);
    EXPECT_EQ(w.Write(10, 'c', 16).first, 500u);
    w.buffer.FlushAll(w.stream);
    const auto regions = Regions(w.log);
    ASSERT_EQ(regions.size(), 2u);
    EXPECT_EQ(regions[0].start, 0u);
    EXPECT_EQ(regions[0].data, std::string(50, 'a'));
    EXPECT_EQ(regions[1].start, 200u);
    EXPECT_EQ(regions[1].data, std::string(300, 'b') + std::string(10, 'c') + std::string(6, '\0'));
    // Every byte is in a block or in the list.
    EXPECT_EQ(w.list.Blocks(), (std::map<uint64_t, uint64_t>{{50, 14}, {516, 684}}));

    // A region with room left beside a full one: a small block goes to the first that fits, in creation order.
    Writer v(0, 0);
    SetBlocks(v.list, {{0, 1000}, {4000, 600}});
    EXPECT_EQ(v.Write(700, 'x').first, 0u);
    EXPECT_EQ(v.Write(500, 'y').first, 4000u);  // 300 left in the first: a second region opens
    EXPECT_EQ(v.Write(200, 'z').first, 700u);
}

TEST(SarFileBuffer, NoFittingBlockIsMessage27AndDirectModeWritesAtTheOffsets) {
    Writer w(0, 0);
    SetBlocks(w.list, {{0, 10}});
    EXPECT_EQ(MessageIdOf<SarNoSpaceLeft>([&] { w.Write(11, 'a'); }), 27);

    SarvaneTest::TempDir dir;
    SarFileBuffer::DataFile file(dir.Path() + "/data");
    file.Open(VantuFile::CFileBase::kModeCreate);
    Writer d(0, 0);
    d.buffer.SetDirectFile(&file);
    EXPECT_EQ(d.Write(3, 'a').first, 0u);
    EXPECT_EQ(d.Write(2, 'b').first, 3u);
    d.buffer.FlushAll(d.stream);
    EXPECT_EQ(d.log.DataSize(), 0u);
    std::string bytes(5, '?');
    file.ReadAt(0, bytes.data(), 5, true);
    EXPECT_EQ(bytes, "aaabb");
}
