#pragma once

// Heap allocations made by this process so far: every malloc, calloc and realloc call that
// returned storage, whoever made it (operator new, GMP, the node pools). Benchmarks read it
// before and after their timed loop to report allocations per operation.

#include <cstdint>

namespace vorn::bench {

std::uint64_t allocation_count();

}  // namespace vorn::bench
