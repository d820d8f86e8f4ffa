// Running out of memory inside a check: operator new fails at its k-th call during the check,
// for every k up to the check's total. Each run must end in the right answer or in Unknown with
// reason "memout", the check after it must be right, and nothing may leak.
//
// Only operator new is replaced (support/failing_new.cpp, its memory from malloc), so this binary
// also runs under AddressSanitizer, whose leak checker then looks too.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "support/failing_new.h"
#include "vorn/smt/solver.h"

using vorn::smt::Formula;
using vorn::smt::Result;
using vorn::smt::Solver;
using vorn::smt::Term;

namespace {

// A problem is built in a solver and returns the formulas that every model must satisfy and the
// assumptions to check under.
struct Built {
    std::vector<Formula> asserted, assumed;
};
using Scenario = std::function<Built(Solver&)>;

Built conjunction_with_integers(Solver& s) {
    Term x = s.real("x"), n = s.integer("n"), m = s.integer("m");
    std::vector<Formula> f = {3 * n + 5 * m == 7 * x, x >= 1, x <= 9, n - m != 1, 2 * n >= m};
    for (const Formula& g : f)
        s.add(g);
    return {f, {}};
}

Built boolean_structure(Solver& s) {
    Term x = s.real("x"), y = s.real("y"), n = s.integer("n");
    Formula b = s.boolean("b");
    std::vector<Formula> f = {b || x + n >= 3,           !b || x <= 1, n <= 1, implies(y > x, b),
                              y == ite(b, x + 2, x - 2), x + y != 4};
    s.push();
    for (const Formula& g : f)
        s.add(g);
    return {f, {}};
}

Built unsat_under_assumptions(Solver& s) {
    Term x = s.real("x"), n = s.integer("n");
    Formula a = s.boolean("a");
    std::vector<Formula> f = {implies(a, 2 * n == x), x >= 1, x <= 1 || a};
    for (const Formula& g : f)
        s.add(g);
    return {f, {a, x < 2, n >= 1}};
}

// Whether the answer is `expected`, with a model of every formula when it is Sat.
::testing::AssertionResult right(Solver& s, Result r, Result expected, const Built& b) {
    if (r != expected)
        return ::testing::AssertionFailure()
               << "answer " << static_cast<int>(r) << ", expected " << static_cast<int>(expected);
    if (r != Result::Sat) return ::testing::AssertionSuccess();
    for (const auto* list : {&b.asserted, &b.assumed})
        for (std::size_t i = 0; i < list->size(); ++i)
            if (!s.value((*list)[i]))
                return ::testing::AssertionFailure() << "the model violates formula " << i;
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(SolverMemout, EveryFailingAllocationOfACheckEndsRightOrInMemout) {
    const std::pair<const char*, Scenario> scenarios[] = {
        {"conjunction with integers", conjunction_with_integers},
        {"Boolean structure", boolean_structure},
        {"unsat under assumptions", unsat_under_assumptions},
    };
    for (const auto& [name, scenario] : scenarios) {
        Result expected;
        {
            Solver s;
            Built b = scenario(s);
            expected = s.check(b.assumed);
        }
        long points = 0;
        for (long k = 0;; ++k) {
            SCOPED_TRACE(std::string(name) + ", allocation " + std::to_string(k) + " fails");
            long live = vorn::test::live_new_blocks();
            bool reached;
            {
                Solver s;
                Built b = scenario(s);
                vorn::test::fail_new_in(k);
                Result r = s.check(b.assumed);
                reached = vorn::test::fail_new_in(-1) < 0;
                if (r == Result::Unknown && expected != Result::Unknown)
                    EXPECT_EQ(s.reason_unknown(), "memout");
                else
                    EXPECT_TRUE(right(s, r, expected, b));
                EXPECT_TRUE(right(s, s.check(b.assumed), expected, b)) << "the check after";
            }
            EXPECT_EQ(vorn::test::live_new_blocks(), live) << "leak";
            if (!reached) break;
            ++points;
        }
        EXPECT_GT(points, 20) << name;
        std::printf("%s: %ld failure points\n", name, points);
    }
}
