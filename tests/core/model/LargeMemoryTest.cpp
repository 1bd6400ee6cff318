#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "model/ScanData.h"
#include "model/LargeMemory.h"

using namespace tarnbridge;

TEST(LargeMemory, BlocksAreAlignedUsableAndReleased)
{
    for (std::size_t size : {std::size_t(1), kHugePage - 1, kHugePage, std::size_t(5) << 20}) {
        auto* block = static_cast<unsigned char*>(allocateLarge(size, size > 1));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % kHugePage, 0u);
        std::memset(block, 0xA5, size);
        EXPECT_EQ(block[size - 1], 0xA5);
        freeLarge(block, size);
    }
    // A vector handed the allocator crosses from the heap to huge pages and back as it grows
    // and shrinks, keeping its contents; its big blocks are the aligned ones.
    LargeVector<std::uint64_t> big(1000, 7);
    big.resize(3 << 20, 9);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(big.data()) % kHugePage, 0u);
    EXPECT_EQ(big.front(), 7u);
    EXPECT_EQ(big[999], 7u);
    EXPECT_EQ(big.back(), 9u);
    big.resize(10);
    big.shrink_to_fit();
    EXPECT_EQ(big.back(), 7u);
    LargeVector<std::uint64_t> copy = big;
    EXPECT_EQ(copy, big);
}

TEST(LargeMemory, ArenaSpansChunksWithoutMovingRecords)
{
    ScanData data;
    NodeRecord root;
    root.flags = NodeRecord::directory;
    data.addRoot("/r", root);
    const std::size_t count = ChunkedArray<NodeRecord>::perChunk * 2 + 17;
    const NodeRecord* first = nullptr;
    std::string name;
    for (std::size_t i = 0; i < count; ++i) {
        NodeRecord r;
        r.logicalSize = std::int64_t(i);
        name = "n" + std::to_string(i) + std::string(i % 200, 'x'); // crosses name chunks too
        const NodeId id = data.append(ScanData::rootId, r, name);
        if (i == 0)
            first = &data[id];
    }
    EXPECT_EQ(first, &data[1]) << "records never move";
    EXPECT_EQ(data.size(), count + 1);
    for (std::size_t i : {std::size_t(0), ChunkedArray<NodeRecord>::perChunk - 2, ChunkedArray<NodeRecord>::perChunk - 1,
                          ChunkedArray<NodeRecord>::perChunk, count - 1}) {
        const NodeId id = NodeId(i + 1);
        EXPECT_EQ(data[id].logicalSize, std::int64_t(i));
        EXPECT_EQ(data.name(id), "n" + std::to_string(i) + std::string(i % 200, 'x'));
    }
    data.seal();
    EXPECT_EQ(data.find("/r/n60001" + std::string(60001 % 200, 'x')), NodeId(60002));
    EXPECT_EQ(data.find("/r/n60001"), kNoNode);
}
