// Limits and interruption through the embedding API: a stopped check answers Unknown with its
// reason and leaves the solver as it was, so the check after it answers right. The conflict
// limit is deterministic; the interrupt comes from a second thread at random moments.

#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <random>
#include <thread>
#include <vector>

#include "vorn/smt/solver.h"
#include "vorn/util/stop.h"

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
        // The first interrupt comes at once, so that at least one check is stopped however fast
        // the machine solves the rest.
        auto delay = std::chrono::microseconds(
            round == 0 ? 0 : std::uniform_int_distribution<int>(0, 30000)(rng));
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

// The wrapper every check runs under (decide, optimize, Context, the tool's DIMACS check): an
// interrupt is consumed only by the check it stopped, and running out of memory is an answer.
TEST(RunChecked, MemoutAnswersAndOnlyAStoppedCheckConsumesTheInterrupt) {
    using vorn::util::StopReason;
    struct Answer {
        Result result = Result::Unknown;
        std::string reason;
    };
    struct Row {
        const char* name;
        bool interrupted_before, throws;
        Result answer;
        const char* reason;  // of the answer
        StopReason left;     // the stop's reason after the check
    } rows[] = {
        {"known answer", false, false, Result::Sat, "", StopReason::None},
        {"interrupt before, answered", true, false, Result::Unsat, "", StopReason::Interrupted},
        {"interrupt before, stopped", true, false, Result::Unknown, "", StopReason::None},
        {"out of memory", false, true, Result::Unknown, "memout", StopReason::None},
        {"out of memory, interrupted", true, true, Result::Unknown, "memout", StopReason::None},
    };
    for (const Row& row : rows) {
        vorn::util::Stop stop;
        if (row.interrupted_before) stop.interrupt();
        Answer a = vorn::util::run_checked(
            stop, std::chrono::milliseconds(0),
            [&] {
                if (row.throws) throw std::bad_alloc();
                return Answer{row.answer, ""};
            },
            [] {
                return Answer{Result::Unknown, "memout"};
            },
            [](const Answer& x) { return x.result == Result::Unknown; });
        EXPECT_EQ(a.result, row.answer) << row.name;
        EXPECT_EQ(a.reason, row.reason) << row.name;
        EXPECT_EQ(stop.reason(), row.left) << row.name;
    }
}
