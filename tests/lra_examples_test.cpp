// Worked examples of the simplex's contracts: strict bounds, exact certificates over the atoms
// as the caller wrote them, elimination and restoration, and termination on a cycling example.

#include <gtest/gtest.h>

#include <tuple>

#include "vorn/lra/simplex.h"

using vorn::QNumber;
using vorn::lra::Relation;
using vorn::lra::Result;
using vorn::lra::Simplex;
using vorn::lra::TermEntries;

namespace {

using Entry = std::tuple<vorn::lra::Reason, bool, QNumber>;

std::vector<Entry> entries_of(const Simplex& s) {
    std::vector<Entry> out;
    for (const auto& e : s.conflict())
        out.emplace_back(e.reason, e.upper, e.multiplier);
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

TEST(SimplexExamples, StrictBoundsAreInfinitesimallyInside) {
    Simplex s;
    int x = s.new_variable(), y = s.new_variable();
    auto sum = s.term_variable({{x, 1}, {y, 1}});
    ASSERT_TRUE(s.assert_lower(x, 1, false, 0) && s.assert_lower(y, 1, false, 1));
    s.push();
    ASSERT_TRUE(s.assert_term(sum, Relation::Le, 2, 2));
    ASSERT_EQ(s.check(), Result::Sat);
    EXPECT_EQ(s.value(x), 1);
    EXPECT_EQ(s.value(y), 1);
    ASSERT_TRUE(s.assert_term(sum, Relation::Lt, 2, 3));
    ASSERT_EQ(s.check(), Result::Unsat);  // x + y < 2 with x, y ≥ 1: 0 < 0
    EXPECT_EQ(entries_of(s), (std::vector<Entry>{{0, false, 1}, {1, false, 1}, {3, true, 1}}));
    s.pop();

    ASSERT_TRUE(s.assert_upper(x, 2, true, 4));
    ASSERT_TRUE(s.assert_lower(y, 0, true, 5));
    ASSERT_TRUE(s.assert_upper(y, 3, false, 6));
    s.push();
    ASSERT_EQ(s.assert_upper(x, 1, true, 7), vorn::lra::Asserted::Conflict);  // crosses x ≥ 1
    EXPECT_EQ(entries_of(s), (std::vector<Entry>{{0, false, 1}, {7, true, 1}}));
    EXPECT_EQ(s.assert_upper(y, 9, false, 9), vorn::lra::Asserted::Ignored);  // pending
    EXPECT_EQ(s.check(), Result::Unsat);
    s.pop();
    EXPECT_EQ(s.assert_upper(y, 9, false, 9), vorn::lra::Asserted::Ok);
    ASSERT_TRUE(s.assert_term(sum, Relation::Gt, 4, 8));
    ASSERT_EQ(s.check(), Result::Sat);  // x < 2, y ≤ 3, x + y > 4
    EXPECT_TRUE(s.value(x) < 2 && s.value(x) + s.value(y) > 4);
}

TEST(SimplexExamples, MovedAndResetSimplexes) {
    Simplex s;
    int x = s.new_variable();
    ASSERT_TRUE(s.assert_lower(x, 3, false, 0));
    s.push();
    Simplex moved(std::move(s));
    ASSERT_EQ(moved.check(), Result::Sat);
    EXPECT_EQ(moved.value(x), 3);
    EXPECT_EQ(moved.level(), 1u);
    EXPECT_FALSE(moved.assert_upper(x, 2, false, 1));
    moved.reset();
    EXPECT_EQ(moved.num_variables(), 0);
    EXPECT_EQ(moved.level(), 0u);
    int y = moved.new_variable();
    ASSERT_TRUE(moved.assert_upper(y, 2, false, 0));
    EXPECT_EQ(moved.check(), Result::Sat);
    EXPECT_THROW(moved.assert_term({y, 1}, Relation::Ne, 0, 1), std::invalid_argument);
}

TEST(SimplexExamples, PoppedTermsLeaveTheTableau) {
    Simplex s;
    int x = s.new_variable(), y = s.new_variable(), z = s.new_variable();
    ASSERT_TRUE(s.assert_term(s.term_variable({{x, 1}, {y, 1}}), Relation::Le, 4, 0));
    ASSERT_EQ(s.check(), Result::Sat);
    std::size_t rows = s.tableau().rows().size();
    for (int round = 0; round < 3; ++round) {
        s.push();
        auto t = s.term_variable({{x, 1}, {z, -2}});
        auto u = s.term_variable({{y, 1}, {z, 1}, {x, round + 1}});
        ASSERT_TRUE(s.assert_term(t, Relation::Ge, 5, 1) && s.assert_term(u, Relation::Le, -3, 2));
        ASSERT_TRUE(s.assert_lower(x, 1, false, 3) && s.assert_upper(y, 0, false, 4));
        ASSERT_EQ(s.check(), Result::Sat);  // pivots the new slacks out of the basis
        s.pop();
        EXPECT_EQ(s.tableau().rows().size(), rows);
        EXPECT_THROW(s.value(x), std::logic_error);  // the pop voided the model
        ASSERT_EQ(s.check(), Result::Sat);
        EXPECT_TRUE(s.model_is_valid());
    }
    auto again = s.term_variable({{x, 1}, {z, -2}});  // a new slack: the old one is gone
    EXPECT_EQ(again.var, s.num_variables());
    ASSERT_TRUE(s.assert_term(again, Relation::Ge, 5, 5));
    EXPECT_EQ(s.check(), Result::Sat);
    EXPECT_TRUE(s.model_is_valid());
}

TEST(SimplexExamples, CertificatesUseTheCallersAtoms) {
    Simplex s;
    int x = s.new_variable(), y = s.new_variable();
    // 2x + 3y ≤ 6, x − y ≥ 4, y ≥ 0: 1·(6 − 2x − 3y) + 2·(x − y − 4) + 5·y = −2.
    ASSERT_TRUE(s.assert_term(s.term_variable({{x, 2}, {y, 3}}), Relation::Le, 6, 10));
    ASSERT_TRUE(s.assert_term(s.term_variable({{x, 1}, {y, -1}}), Relation::Ge, 4, 11));
    ASSERT_TRUE(s.assert_lower(y, 0, false, 12));
    ASSERT_EQ(s.check(), Result::Unsat);
    EXPECT_EQ(entries_of(s),
              (std::vector<Entry>{
                  {10, true, QNumber(1, 2)}, {11, false, 1}, {12, false, QNumber(5, 2)}}));
}

TEST(SimplexExamples, BealesCyclingExampleTerminates) {
    // Beale's LP, on which the textbook largest-coefficient rule cycles, as feasibility
    // problems at its optimum −5/4 and just beyond it.
    for (unsigned bland_after : {1u, 2u, 16u, 1000u}) {
        for (bool beyond : {false, true}) {
            Simplex s({.bland_after = bland_after});
            int x4 = s.new_variable(), x5 = s.new_variable(), x6 = s.new_variable(),
                x7 = s.new_variable();
            for (int v : {x4, x5, x6, x7})
                s.assert_lower(v, 0, false, v);
            s.assert_upper(x6, 1, false, 5);
            TermEntries rows[] = {{{x4, QNumber(1, 4)}, {x5, -8}, {x6, -1}, {x7, 9}},
                                  {{x4, QNumber(1, 2)}, {x5, -12}, {x6, QNumber(-1, 2)}, {x7, 3}}};
            s.assert_term(s.term_variable(rows[0]), Relation::Le, 0, 6);
            s.assert_term(s.term_variable(rows[1]), Relation::Le, 0, 7);
            auto objective =
                s.term_variable({{x4, QNumber(-3, 4)}, {x5, 20}, {x6, QNumber(-1, 2)}, {x7, 6}});
            s.assert_term(objective, beyond ? Relation::Lt : Relation::Le, QNumber(-5, 4), 8);
            EXPECT_EQ(s.check(), beyond ? Result::Unsat : Result::Sat) << bland_after;
            EXPECT_LT(s.stats().pivots, 100u);
        }
    }
}
