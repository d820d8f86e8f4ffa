// Limits and interruption through the embedding API: a stopped check answers Unknown with its
// reason and leaves the solver as it was, so the check after it answers right. The conflict
// limit is deterministic; the interrupt comes from a second thread at random moments.

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "vorn/smt/solver.h"

using vorn::smt::Formula;
using vorn::smt::Result;
using vorn::smt::Solver;
using vorn::smt::Term;

namespace {

// Pigeons into holes, one hole each, no two in one hole: unsat for pigeons > holes, and hard
// for resolution. Half of the pigeons choose by Boolean variables, half by an Int position, so
// that the simplex works too.
void add_pigeonhole(Solver& s, int pigeons, int holes) {
    std::vector<std::vector<Formula>> in(pigeons);
    for (int p = 0; p < pigeons; ++p) {
        Term at = s.integer("at" + std::to_string(p));
        Formula some = false;
        for (int h = 0; h < holes; ++h) {
            Formula f =
                p % 2 == 0 ? s.boolean("p" + std::to_string(p) + "h" + std::to_string(h)) : at == h;
            in[p].push_back(f);
            some = some || f;
        }
        s.add(some);
    }
    for (int h = 0; h < holes; ++h)
        for (int p = 0; p < pigeons; ++p)
            for (int q = p + 1; q < pigeons; ++q)
                s.add(!in[p][h] || !in[q][h]);
}

}  // namespace

TEST(SolverLimits, ConflictLimitIsDeterministicAndLeavesTheSolverRight) {
    Solver s;
    add_pigeonhole(s, 6, 5);
    s.set_conflict_limit(3);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(s.check(), Result::Unknown);
        EXPECT_EQ(s.reason_unknown(), "conflict limit");
    }
    s.set_conflict_limit(0);
    EXPECT_EQ(s.check(), Result::Unsat);
    EXPECT_EQ(s.reason_unknown(), "");
}

TEST(SolverLimits, InterruptFromAnotherThreadAtRandomMoments) {
    const unsigned seed = 20261125;
    std::mt19937 rng(seed);
    Solver s;
    add_pigeonhole(s, 8, 7);
    int stopped = 0;
    for (int round = 0; round < 12; ++round) {
        auto delay = std::chrono::microseconds(std::uniform_int_distribution<int>(0, 30000)(rng));
        std::thread t([&s, delay] {
            std::this_thread::sleep_for(delay);
            s.interrupt();
        });
        Result r = s.check();
        t.join();
        SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round));
        if (r == Result::Unknown) {
            EXPECT_EQ(s.reason_unknown(), "interrupted");
            ++stopped;
        } else {
            EXPECT_EQ(r, Result::Unsat);
            // The interrupt came after the answer: it stops the next check instead.
            EXPECT_EQ(s.check(), Result::Unknown);
        }
    }
    EXPECT_GT(stopped, 0);
    // Nothing of the stopped checks is left behind.
    EXPECT_EQ(s.check(), Result::Unsat);
}
