#pragma once

// A test binary that links failing_new.cpp replaces the global operator new with one that can be
// told to fail: the n-th allocation from now on throws std::bad_alloc. Memory still comes from
// malloc, so AddressSanitizer keeps checking every access; the blocks not yet deleted are counted
// for the tests that look for leaks themselves.

namespace vorn::test {

// Allocation n (0 = the next one) throws; -1 disarms. Returns the count it replaces, which is
// below 0 once the failure it armed has happened.
long fail_new_in(long n);

// Blocks from operator new not yet deleted.
long live_new_blocks();

}  // namespace vorn::test
