#pragma once

// A test binary that links failing_new.cpp replaces the global operator new with one that can be
// told to fail: the n-th allocation from now on throws std::bad_alloc. Memory still comes from
// malloc, so AddressSanitizer keeps checking every access.

namespace vorn::test {

// Allocation n (0 = the next one) throws; -1 disarms.
void fail_new_in(long n);

}  // namespace vorn::test
