// Randomized differential test of the tableau against a row-space reference model.
//
// The reference tracks R, the span of the rows, and the equation recorded for each eliminated
// variable. Entering an equation adds it (and every restored equation) to R; eliminating x or
// removing it for good intersects R with {forms without x}; pivots change nothing. After every
// step the tableau's invariants hold, its rows span exactly R (rows in solved form are
// independent, so "each row in R and as many rows as rank R" suffices), and every stored
// equation is untouched.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include "support/random_rational.h"
#include "support/row_space.h"
#include "support/tableau_checker.h"

using vorn::QNumber;
using vorn::la::Equation;
using vorn::la::Tableau;
using vorn::la::VarSet;
using vorn::test::Form;
using vorn::test::form_of;
using vorn::test::RowSpace;

namespace {

class Driver {
  public:
    Driver(unsigned seed, bool big_coefficients) : rng_(seed), big_(big_coefficients) {}

    void run(int steps) {
        for (int step = 0; step < steps && !::testing::Test::HasFatalFailure(); ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            if (!t_.initialized()) {
                if (step > 8 && rng_() % 6 == 0) {
                    t_.check();
                    for (Form& f : pending_)
                        reference_.add(f);
                    pending_.clear();
                } else {
                    add(rng_() % 2 == 0);
                }
            } else {
                unsigned op = rng_() % 100;
                if (op < 30)
                    add(true);
                else if (op < 60)
                    pivot();
                else if (op < 75)
                    eliminate();
                else if (op < 88)
                    uneliminate();
                else if (op < 96)
                    remove();
                else
                    (void)t_.to_str();
            }
            verify();
        }
        restore_everything();
    }

  private:
    QNumber coefficient() {
        if (big_ && rng_() % 4 == 0) return vorn::test::random_rational(rng_, false);
        std::int64_t num = static_cast<std::int64_t>(rng_() % 9) - 4;
        if (num == 0) num = 1;
        return QNumber(num, static_cast<std::int64_t>(rng_() % 3) + 1);
    }

    int some_variable() {
        if (!seen_.empty() && rng_() % 3 == 0) {
            auto it = seen_.begin();
            std::advance(it, static_cast<long>(rng_() % seen_.size()));
            return *it;
        }
        return 1 + static_cast<int>(rng_() % 14);
    }

    void add(bool enter_now) {
        int basic = next_slack_++;
        std::vector<Equation::VarCoeff> entries{{basic, coefficient()}};
        if (rng_() % 3 == 0) entries.push_back({0, coefficient()});
        int n = 1 + static_cast<int>(rng_() % 4);
        for (int i = 0; i < n; ++i) {
            // Before check(), only structural variables: pending equations must not mention
            // each other's basic variables.
            int v = t_.initialized() ? some_variable() : 1 + static_cast<int>(rng_() % 14);
            entries.push_back({v, coefficient()});
        }
        Equation eq(basic, std::move(entries));
        if (eq.coeff_of(basic) == nullptr) return;
        for (const auto& e : eq.coeffs_)
            if (e.var >= 1) seen_.insert(e.var);
        std::vector<int> out;
        std::set<int> eliminated_before = eliminated();
        t_.add_equation(eq, enter_now, &out);
        if (!enter_now) {
            pending_.push_back(form_of(eq));
            return;
        }
        if (!t_.initialized()) {
            reference_.add(form_of(eq));
            EXPECT_TRUE(out.empty());
            return;
        }
        absorb_restored(out, eliminated_before);
        reference_.add(form_of(eq));
    }

    void absorb_restored(const std::vector<int>& out, const std::set<int>& eliminated_before) {
        std::set<int> unique(out.begin(), out.end());
        ASSERT_EQ(unique.size(), out.size()) << "a variable restored twice";
        for (int v : out) {
            ASSERT_TRUE(eliminated_before.count(v)) << v << " was not eliminated";
            ASSERT_TRUE(t_.rows().contains(v));
            reference_.add(stored_[v]);
            stored_.erase(v);
        }
    }

    void pivot() {
        std::vector<int> basics;
        for (auto it = t_.rows().begin(); it != t_.rows().end(); ++it)
            basics.push_back(it.index());
        if (basics.empty()) return;
        int leaving = basics[rng_() % basics.size()];
        std::vector<int> candidates;
        for (const auto& e : t_.rows().at(leaving)->coeffs_)
            if (e.var >= 1 && e.var != leaving) candidates.push_back(e.var);
        if (candidates.empty()) return;
        t_.pivot(leaving, candidates[rng_() % candidates.size()]);
    }

    void eliminate() {
        VarSet vars;
        int n = rng_() % 2 == 0 ? 1 : 1 + static_cast<int>(rng_() % 5);
        for (int i = 0; i < n; ++i)
            vars.insert(some_variable());
        std::set<int> basic_before;
        for (int v : vars)
            if (t_.rows().contains(v)) basic_before.insert(v);
        std::set<int> before = eliminated();
        std::size_t positions = t_.elim_eqs().size();
        t_.eliminate_variables(vars);
        for (int x : vars) {
            bool now = t_.elim_index().find(x) != nullptr;
            if (before.count(x) || !now) continue;
            const Equation* stored = t_.get_eliminated_equation(x);
            ASSERT_NE(stored, nullptr);
            ASSERT_EQ(stored->get_basic_var(), x);
            ASSERT_GE(t_.elim_index().find(x)->value.second, positions);
            Form f = form_of(*stored);
            ASSERT_TRUE(reference_.contains(f)) << "stored equation of " << x << " not implied";
            if (vars.size() == 1) {
                for (const auto& [v, c] : f) {
                    ASSERT_FALSE(v != x && t_.rows().contains(v)) << "mentions basic " << v;
                }
            }
            stored_[x] = f;
            reference_.intersect_without(x);
        }
    }

    void uneliminate() {
        std::set<int> before = eliminated();
        if (before.empty()) return;
        auto it = before.begin();
        std::advance(it, static_cast<long>(rng_() % before.size()));
        int x = *it;
        std::vector<int> out;
        t_.uneliminate(x, rng_() % 4 == 0 ? nullptr : &out);
        if (t_.elim_index().find(x) == nullptr && !out.empty()) {
            ASSERT_EQ(std::count(out.begin(), out.end(), x), 0) << "restored variable reported";
        }
        // With a null list the restored set is read off the state.
        std::set<int> after = eliminated();
        reference_.add(stored_[x]);
        stored_.erase(x);
        for (int v : before)
            if (v != x && !after.count(v)) {
                reference_.add(stored_[v]);
                stored_.erase(v);
            }
    }

    void remove() {
        int x = some_variable();
        bool in_tableau = t_.rows().contains(x) || t_.cols().find(x) != nullptr;
        std::size_t equations = t_.equations().size();
        t_.remove_variable(x);
        EXPECT_EQ(t_.equations().size(), equations - (in_tableau ? 1 : 0));
        if (in_tableau) reference_.intersect_without(x);
        EXPECT_FALSE(t_.rows().contains(x));
        EXPECT_EQ(t_.cols().find(x), nullptr);
    }

    std::set<int> eliminated() const {
        std::set<int> out;
        for (const auto& [v, pos] : t_.elim_index())
            out.insert(v);
        return out;
    }

    void verify() {
        ASSERT_TRUE(vorn::test::tableau_is_valid(t_));
        std::size_t rows = 0;
        for (auto it = t_.rows().begin(); it != t_.rows().end(); ++it, ++rows)
            ASSERT_TRUE(reference_.contains(form_of(*it.value())))
                << "row " << it.index() << " not implied: " << it.value()->to_str(false);
        ASSERT_EQ(rows, reference_.rank()) << "rows do not span the reference";
        ASSERT_EQ(eliminated().size(), stored_.size());
        for (const auto& [v, f] : stored_)
            ASSERT_EQ(form_of(*t_.get_eliminated_equation(v)), f);
        std::vector<int> all = t_.get_all_variables();
        ASSERT_EQ(all.size(), t_.get_num_variables());
        ASSERT_EQ(std::set<int>(all.begin(), all.end()).size(), all.size());
    }

    void restore_everything() {
        if (!t_.initialized() || ::testing::Test::HasFatalFailure()) return;
        while (!stored_.empty()) {
            uneliminate();
            verify();
            if (::testing::Test::HasFatalFailure()) return;
        }
        EXPECT_TRUE(t_.elim_index().empty());
    }

    std::mt19937_64 rng_;
    bool big_;
    Tableau t_{0};
    RowSpace reference_;
    std::vector<Form> pending_;
    std::map<int, Form> stored_;
    std::set<int> seen_;
    int next_slack_ = 20;
};

}  // namespace

TEST(TableauRandom, SmallCoefficientsMatchTheReference) {
    for (unsigned seed = 1; seed <= 24; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Driver(seed, false).run(250);
        if (HasFatalFailure()) return;
    }
}

TEST(TableauRandom, BigCoefficientsMatchTheReference) {
    for (unsigned seed = 100; seed <= 112; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Driver(seed, true).run(150);
        if (HasFatalFailure()) return;
    }
}
