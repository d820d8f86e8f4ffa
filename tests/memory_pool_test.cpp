// MemoryPool: chunk sizes and their growth, block layout, free-list order and reuse.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vorn/util/memory_pool.h"

using Pool = vorn::MemoryPool<48, false>;

namespace {

std::size_t free_blocks(const void* head) {
    std::size_t n = 0;
    for (const void* p = head; p != nullptr; p = *static_cast<void* const*>(p))
        ++n;
    return n;
}

// A pool's chunks, made one after the other by allocating every block: how many blocks each
// chunk holds, for a bound on the chunk size (0: none).
struct ChunkSteps {
    std::size_t max_chunk_blocks;
    std::vector<std::size_t> blocks;
};

const ChunkSteps kChunkSteps[] = {
    {8192, {16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 8192, 8192}},
    {0, {16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 16384, 32768}},
    {40, {16, 32, 40, 40}},
};

}  // namespace

TEST(MemoryPool, ChunksGrowByTheirStepsAndThreadTheirBlocks) {
    for (const ChunkSteps& steps : kChunkSteps) {
        SCOPED_TRACE("max_chunk_blocks " + std::to_string(steps.max_chunk_blocks));
        Pool pool;
        pool.set_max_chunk_blocks(steps.max_chunk_blocks);
        const void* previous = nullptr;
        for (std::size_t n : steps.blocks) {
            ASSERT_EQ(pool.chunk_blocks(), n);
            EXPECT_EQ(pool.free_list(), nullptr);
            char* first = static_cast<char*>(pool.allocate());
            const char* chunk = static_cast<const char*>(pool.chunks());
            EXPECT_EQ(first, chunk + 8);  // after the link to the chunk made before
            EXPECT_EQ(*reinterpret_cast<void* const*>(chunk), previous);
            EXPECT_EQ(free_blocks(pool.free_list()), n - 1);
            EXPECT_EQ(pool.free_list(), n > 1 ? first + 48 : nullptr);  // in address order
            for (std::size_t i = 1; i < n; ++i)
                pool.allocate();
            previous = chunk;
        }
    }
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
