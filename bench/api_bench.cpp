// The C++ side of bench/python_bench.py: the same 10^4 small constraints (two-variable
// inequalities, or binary clauses of bounds), from the same generator, built and checked through
// vorn::smt::Solver. Prints "build SECONDS check SECONDS
// ANSWER" per workload.
//
//   api_bench conjunction|disjunction [count]

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "vorn/smt/solver.h"

namespace {

using Clock = std::chrono::steady_clock;

// The generator of python_bench.py: a 64-bit LCG, its high bits.
struct Generator {
    std::uint64_t state = 1;
    int below(int n) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<int>((state >> 33) % static_cast<std::uint64_t>(n));
    }
};

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    using namespace vorn::smt;
    std::string workload = argc > 1 ? argv[1] : "conjunction";
    int count = argc > 2 ? std::stoi(argv[2]) : 10000;
    auto start = Clock::now();
    Solver s;
    Generator g;
    std::vector<Term> x;
    for (int i = 0; i < 200; ++i) {
        x.push_back(s.real("x" + std::to_string(i)));
        s.add(x.back() >= 0 && x.back() <= 1000000);
    }
    for (int k = 0; k < count; ++k) {
        int i = g.below(200), j = g.below(200), a = g.below(5) + 1, b = g.below(5) + 1;
        int c = g.below(1000);
        if (workload == "conjunction")
            s.add(a * x[i] + b * x[j] <= c + 1000);
        else
            s.add(x[i] <= c * a || x[j] >= c * b);
    }
    double build = seconds_since(start);
    start = Clock::now();
    Result r = s.check();
    double check = seconds_since(start);
    std::printf("build %.4f check %.4f %s\n", build, check,
                r == Result::Sat     ? "sat"
                : r == Result::Unsat ? "unsat"
                                     : "unknown");
}
