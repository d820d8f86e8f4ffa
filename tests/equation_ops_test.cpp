// Substitution and change of basic variable against a reference: a map from variable to GMP
// rational, with the exact list of dropped variables.

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "support/gmp_reference.h"
#include "support/random_rational.h"
#include "vorn/la/equation.h"

using vorn::QNumber;
using vorn::la::Equation;

namespace {

using vorn::test::Form;
using vorn::test::form_of;

// The record's properties: sorted, distinct variables, no zero coefficient.
void expect_well_formed(const Equation& e) {
    for (std::size_t i = 0; i < e.coeffs_.size(); ++i) {
        EXPECT_FALSE(e.coeffs_[i].coeff.is_zero());
        if (i > 0) {
            EXPECT_LT(e.coeffs_[i - 1].var, e.coeffs_[i].var);
        }
    }
}

Equation random_equation(std::mt19937_64& rng, int basic, int vars, bool small_only) {
    std::vector<Equation::VarCoeff> entries;
    entries.push_back({basic, small_only ? QNumber(static_cast<std::int64_t>(rng() % 5) + 1)
                                         : vorn::test::random_rational(rng, false)});
    int n = 1 + static_cast<int>(rng() % 6);
    for (int i = 0; i < n; ++i) {
        int v = static_cast<int>(rng() % vars);
        QNumber c = small_only ? QNumber(static_cast<std::int64_t>(rng() % 7) - 3,
                                         static_cast<std::int64_t>(rng() % 3) + 1)
                               : vorn::test::random_rational(rng);
        entries.push_back({v, c});
    }
    return Equation(basic, std::move(entries));
}

}  // namespace

TEST(EquationSubstitute, RandomSubstitutionsMatchTheReference) {
    const unsigned seed = 77;
    std::mt19937_64 rng(seed);
    std::vector<Equation::VarCoeff> scratch;
    for (int round = 0; round < 6000; ++round) {
        SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round));
        bool small_only = round % 2 == 0;
        const int vars = 8;
        Equation def =
            random_equation(rng, 1 + static_cast<int>(rng() % (vars - 1)), vars, small_only);
        int x = def.get_basic_var();
        if (def.coeff_of(x) == nullptr) continue;  // its entries summed to zero
        Equation row = random_equation(rng, vars + 1, vars, small_only);
        Form want = form_of(row);
        Form d = form_of(def);
        std::set<int> want_dropped;
        vorn::test::substitute(want, x, d);
        for (const auto& [v, c] : d)
            if (v != x && want.count(v) == 0) want_dropped.insert(v);

        std::vector<int> dropped;
        if (round % 3 == 0)
            row.substitute_var(x, def, &dropped);
        else
            row.substitute_var(x, def, &dropped, scratch);
        expect_well_formed(row);
        ASSERT_EQ(form_of(row), want);
        EXPECT_EQ(form_of(row).count(x), 0u);
        std::set<int> got_dropped(dropped.begin(), dropped.end());
        ASSERT_EQ(got_dropped.size(), dropped.size()) << "a variable reported twice";
        ASSERT_EQ(got_dropped, want_dropped);
    }
}

TEST(EquationSubstitute, HandBuiltUnsortedEquationsAreHandled) {
    Equation row;
    row.basic_ = Equation::encode_var(5);
    row.coeffs_.push_back({3, QNumber(2)});
    row.coeffs_.push_back({5, QNumber(-1)});
    row.coeffs_.push_back({1, QNumber(1)});
    Equation def;  // x3 = x1 + x2, unsorted
    def.basic_ = Equation::encode_var(3);
    def.coeffs_.push_back({2, QNumber(1)});
    def.coeffs_.push_back({3, QNumber(-1)});
    def.coeffs_.push_back({1, QNumber(1)});
    std::vector<int> dropped;
    row.substitute_var(3, def, &dropped);
    EXPECT_EQ(row.to_str(false), "x5 = 3*x1 + 2*x2");
    EXPECT_TRUE(dropped.empty());
}

TEST(EquationChangeBasic, SolvesForTheNewVariableWithCoefficientMinusOne) {
    std::mt19937_64 rng(5);
    for (int round = 0; round < 2000; ++round) {
        Equation e = random_equation(rng, 9, 8, round % 2 == 0);
        std::vector<int> candidates;
        for (const auto& entry : e.coeffs_)
            if (entry.var != 9) candidates.push_back(entry.var);
        if (candidates.empty()) continue;
        int v = candidates[rng() % candidates.size()];
        Form before = form_of(e);
        e.change_basic_var(v);
        EXPECT_EQ(e.get_basic_var(), v);
        Form after = form_of(e);
        ASSERT_EQ(after[v], -1);
        // Same equation: every coefficient scaled by the same non-zero factor.
        mpq_class factor = after[v] / before[v];
        ASSERT_EQ(before.size(), after.size());
        for (const auto& [var, c] : before)
            ASSERT_EQ(after[var], factor * c);
    }
}
