#pragma once

// MemoryPool: fixed-size blocks of `Size` bytes carved from malloc'd chunks.
//
// A chunk is an 8-byte link to the previously made chunk followed by n blocks, n being
// `chunk_blocks_` when the chunk was made: 16, 32, 64, ... up to `max_chunk_blocks_` (8192),
// the growth factor applied in 32-bit float. Free blocks form a LIFO list threaded through their
// first word; a fresh chunk's blocks are threaded in address order. Chunks go back to the system
// only when the pool dies.
//
// Costs: allocate/deallocate are O(1) and touch the block and the list head; malloc is called
// once per chunk. A failed malloc throws std::bad_alloc and leaves the pool unchanged.
//
// The bool parameter is reserved; both instantiations pass false.

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace vorn {

template <std::size_t Size, bool kReserved = false>
class MemoryPool {
    static_assert(Size >= sizeof(void*), "a free block must hold the free-list link");

  public:
    MemoryPool() = default;
    MemoryPool(const MemoryPool&) = delete;
    MemoryPool& operator=(const MemoryPool&) = delete;
    ~MemoryPool() {
        while (chunks_ != nullptr) {
            void* next = link_of(chunks_);
            std::free(chunks_);
            chunks_ = next;
        }
    }

    void* allocate() {
        if (free_list_ == nullptr) make_chunk();
        void* block = free_list_;
        free_list_ = link_of(block);
        return block;
    }

    // The block's contents must already have been destroyed.
    void deallocate(void* block) {
        set_link(block, free_list_);
        free_list_ = block;
    }

    std::size_t chunk_blocks() const { return chunk_blocks_; }
    std::size_t max_chunk_blocks() const { return max_chunk_blocks_; }
    // 0 lifts the bound on the chunk size.
    void set_max_chunk_blocks(std::size_t n) { max_chunk_blocks_ = n; }
    const void* chunks() const { return chunks_; }
    const void* free_list() const { return free_list_; }

  private:
    static void* link_of(const void* p) {
        void* link;
        std::memcpy(&link, p, sizeof link);
        return link;
    }
    static void set_link(void* p, void* link) { std::memcpy(p, &link, sizeof link); }

    void make_chunk() {
        std::size_t n = chunk_blocks_;
        auto* chunk = static_cast<char*>(std::malloc(Size * n + sizeof(void*)));
        if (chunk == nullptr) throw std::bad_alloc();
        set_link(chunk, chunks_);
        chunks_ = chunk;
        auto next = static_cast<std::size_t>(static_cast<float>(n) * growth_);
        if (max_chunk_blocks_ != 0 && next > max_chunk_blocks_) next = max_chunk_blocks_;
        chunk_blocks_ = next;
        char* first = chunk + sizeof(void*);
        for (std::size_t i = 0; i + 1 < n; ++i)
            set_link(first + i * Size, first + (i + 1) * Size);
        set_link(first + (n - 1) * Size, nullptr);
        free_list_ = first;
    }

    std::size_t chunk_blocks_ = 16;
    float growth_ = 2.0f;
    std::size_t max_chunk_blocks_ = 8192;
    void* chunks_ = nullptr;
    void* free_list_ = nullptr;
};

}  // namespace vorn
