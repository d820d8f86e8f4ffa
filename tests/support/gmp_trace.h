#pragma once

// Records, in order, the GMP integer functions that a number's lifecycle calls, and the QNumber
// blocks allocated and freed, while a GmpTrace is alive. The library is linked statically, and
// the test binary routes its calls to mpz_init, mpz_init_set, mpz_set, mpz_set_si, mpz_clear and
// mpz_cmp_ui through wrappers (the linker's --wrap), so the record is exact.

#include <string>
#include <vector>

namespace vorn::test {

struct GmpRecord {
    std::vector<std::string> calls;  // "init", "init_set", "set", "set_si", "clear", "cmp_ui"
    int blocks_allocated = 0;        // allocations of one GMP rational's size
    int blocks_freed = 0;
};

class GmpTrace {
  public:
    GmpTrace();
    GmpTrace(const GmpTrace&) = delete;
    GmpTrace& operator=(const GmpTrace&) = delete;
    ~GmpTrace();
    // Ends the recording (nothing the caller does afterwards is counted) and returns it.
    GmpRecord stop();
};

}  // namespace vorn::test
