// MemoryPool: chunk sizes and their growth, block layout, free-list order and reuse.

#include <gtest/gtest.h>

#include <set>

#include "vorn/util/memory_pool.h"

using Pool = vorn::MemoryPool<48, false>;

namespace {

std::size_t free_blocks(const void* head) {
    std::size_t n = 0;
    for (const void* p = head; p != nullptr; p = *static_cast<void* const*>(p))
        ++n;
    return n;
}

}  // namespace

TEST(MemoryPool, FirstChunkHoldsSixteenBlocksAfterTheLink) {
    Pool pool;
    EXPECT_EQ(pool.chunk_blocks(), 16u);
    void* block = pool.allocate();
    EXPECT_EQ(static_cast<char*>(block), static_cast<const char*>(pool.chunks()) + 8);
    EXPECT_EQ(free_blocks(pool.free_list()), 15u);
    EXPECT_EQ(pool.chunk_blocks(), 32u);
    // Threaded in address order.
    EXPECT_EQ(pool.free_list(), static_cast<char*>(block) + 48);
}

TEST(MemoryPool, ChunkSizesDoubleUpTo8192) {
    Pool pool;
    std::vector<std::size_t> after_chunk;
    std::size_t handed = 0;
    for (std::size_t chunk = 0; chunk < 11; ++chunk) {
        std::size_t n = pool.chunk_blocks();
        for (std::size_t i = 0; i < n; ++i)
            pool.allocate();
        handed += n;
        after_chunk.push_back(pool.chunk_blocks());
        if (chunk == 8) {
            EXPECT_EQ(handed, 8176u);
        }
    }
    EXPECT_EQ(after_chunk, (std::vector<std::size_t>{32, 64, 128, 256, 512, 1024, 2048, 4096, 8192,
                                                     8192, 8192}));
}

TEST(MemoryPool, SeventeenthAllocationMakesASecondChunk) {
    Pool pool;
    for (int i = 0; i < 16; ++i)
        pool.allocate();
    const void* first_chunk = pool.chunks();
    EXPECT_EQ(pool.free_list(), nullptr);
    pool.allocate();
    EXPECT_NE(pool.chunks(), first_chunk);
    EXPECT_EQ(*static_cast<void* const*>(pool.chunks()), first_chunk);  // newest first
    EXPECT_EQ(pool.chunk_blocks(), 64u);
    EXPECT_EQ(free_blocks(pool.free_list()), 31u);
}

TEST(MemoryPool, UnboundedWhenMaxIsZero) {
    vorn::MemoryPool<24, false> pool;
    pool.set_max_chunk_blocks(0);
    for (int chunk = 0; chunk < 11; ++chunk) {
        std::size_t n = pool.chunk_blocks();
        for (std::size_t i = 0; i < n; ++i)
            pool.allocate();
    }
    EXPECT_EQ(pool.chunk_blocks(), std::size_t{16} << 11);
}

TEST(MemoryPool, ReuseIsLastInFirstOut) {
    Pool pool;
    void* a = pool.allocate();
    void* b = pool.allocate();
    const void* chunk = pool.chunks();
    pool.deallocate(a);
    pool.deallocate(b);
    EXPECT_EQ(pool.allocate(), b);
    EXPECT_EQ(pool.allocate(), a);
    EXPECT_EQ(pool.chunks(), chunk);
}

TEST(MemoryPool, BlocksAreDistinctAndAligned) {
    Pool pool;
    std::set<void*> seen;
    for (int i = 0; i < 5000; ++i) {
        void* p = pool.allocate();
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 8, 0u);
        EXPECT_TRUE(seen.insert(p).second);
        std::memset(p, 0xab, 48);
    }
}
