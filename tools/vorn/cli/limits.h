#pragma once

// The process side of `vorn check`'s limits: the one util::Stop that every check polls, the
// count of the bytes the process holds, the address-space backstop and the signals.
//
// Every allocation is counted (util::count_allocation): the global operator new and delete in
// all their replaceable forms, and GMP's memory functions. --memory-limit gives the Stop that
// many bytes, so a check stops with memout while there is room to answer, and sets RLIMIT_AS a
// margin higher for the memory that is not counted. When the backstop is reached anyway,
// operator new throws std::bad_alloc; GMP's allocator must not return on failure, so it writes
// "unknown" and ends the process with kOutOfMemory.
//
// SIGINT and SIGTERM interrupt the Stop; the tool then ends with 128 + the signal's number once
// the interrupted check has answered. A second signal ends the process at once.

#include <cstdint>

#include "vorn/util/stop.h"

namespace vorn::cli {

// The exit status after running out of memory beyond the backstop.
constexpr int kOutOfMemory = 4;

util::Stop& tool_stop();

// Routes GMP's allocations through the counting functions; before any GMP number exists.
void count_gmp_allocations();

// The Stop's memory limit and the RLIMIT_AS backstop (not under AddressSanitizer, whose shadow
// memory takes terabytes of address space).
void limit_memory(std::int64_t megabytes);

// SIGINT and SIGTERM from now on, as described above.
void catch_interrupts();

// The first signal caught, 0 for none.
int caught_signal();

// From now on, running out of memory answers "unknown" (a check is what runs).
void answer_unknown_when_out_of_memory();
// Flushes stdout and, after answer_unknown_when_out_of_memory(), writes "unknown" with write(2):
// nothing is allocated.
void answer_out_of_memory() noexcept;

}  // namespace vorn::cli
