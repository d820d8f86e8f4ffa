// Bound propagation of the arithmetic theory on small random rows against a brute-force
// reference. After every propagation fixpoint, each unassigned atom that the assigned atoms imply
// through one row (the row's sum bounded by its summands' bounds, a summand by the row's bound
// and the other summands' bounds, or a bound on the atom's own term) must have been implied; and
// every implied literal's explanation must be a valid lemma: its premises false under the
// assignment, and the premises with the literal's negation without a common solution (decided by
// the conjunctive decider).

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "../src/smt/arith_theory.h"
#include "vorn/lra/delta_rational.h"
#include "vorn/smt/decision.h"

namespace {

using vorn::QNumber;
using vorn::lra::DeltaRational;
using vorn::smt::LinearExpr;
using vorn::smt::Relation;
namespace sat = vorn::sat;

constexpr int kVars = 3;

struct Atom {
    std::vector<LinearExpr::Entry> term;  // over problem variables 1..kVars
    int row = -1;                         // the row it bounds; −1: one variable
    Relation relation;                    // Le or Ge
    int c;
};

// A bound on a variable or a row: the side, and its value with δ for strictness.
struct Bound {
    bool upper;
    DeltaRational value;
};

// The bound that atom `a` with truth value `truth` puts on its subject (its variable, with the
// coefficient divided out, or its row).
Bound reading(const Atom& a, bool truth) {
    bool upper = (a.relation == Relation::Le) == truth;
    DeltaRational v(QNumber(a.c), QNumber(truth ? 0 : upper ? -1 : 1));
    if (a.row >= 0) return {upper, v};
    const QNumber& k = a.term[0].coeff;
    v /= k;
    return {upper != (k.sign() < 0), v};
}

bool tighter(const Bound& b, const std::optional<DeltaRational>& than) {
    return !than || (b.upper ? b.value < *than : b.value > *than);
}

class Case {
  public:
    explicit Case(unsigned seed) : rng_(seed) {
        for (int v = 1; v <= kVars; ++v)
            problem_.variables.add("x" + std::to_string(v), vorn::smt::Sort::Real, {});
        for (int r = 0; r < 2; ++r) {
            std::vector<LinearExpr::Entry> term;
            for (int v = 1; v <= kVars; ++v)
                if (v != pick(1, kVars) || term.empty()) term.push_back({v, QNumber(coeff())});
            if (term.size() < 2) term.push_back({term[0].var % kVars + 1, QNumber(coeff())});
            std::sort(term.begin(), term.end(), [](auto& a, auto& b) { return a.var < b.var; });
            rows_.push_back(term);
            for (int i = 0; i < 3; ++i)
                atoms_.push_back({term, r, relation(), pick(-4, 4)});
        }
        for (int v = 1; v <= kVars; ++v)
            for (int i = 0; i < 2; ++i)
                atoms_.push_back(
                    {{{v, QNumber(pick(0, 1) ? 1 : -2)}}, -1, relation(), pick(-4, 4)});
    }

    // Assigns the atoms in a random order with random values, the theory's implications
    // included, until all are assigned or the theory finds a conflict.
    void run() {
        sat::Solver solver;
        vorn::smt::ArithTheory theory(problem_, solver, true, nullptr);
        for (const Atom& a : atoms_)
            theory.add_atom(solver.new_var(), a.term, a.relation, QNumber(a.c));
        theory.begin_check(0);
        theory.new_level();
        value_.assign(atoms_.size(), 0);
        std::vector<std::size_t> order(atoms_.size());
        for (std::size_t i = 0; i < order.size(); ++i)
            order[i] = i;
        std::shuffle(order.begin(), order.end(), rng_);
        std::vector<sat::Lit> implied, all_implied, conflict;
        for (std::size_t i : order) {
            if (value_[i] != 0) continue;
            assign(theory, sat::Lit(static_cast<sat::Var>(i), pick(0, 1) == 1));
            for (bool more = true; more;) {
                implied.clear();
                theory.propagate(implied);
                more = false;
                for (sat::Lit l : implied) {
                    int want = l.negative() ? -1 : 1;
                    if (value_[l.var()] == want) continue;
                    expect_explained(theory, l);
                    if (value_[l.var()] != 0) return;  // implied false: a conflict
                    assign(theory, l);
                    all_implied.push_back(l);
                    more = true;
                }
            }
            if (!theory.check(false, conflict)) return;
            expect_complete();
        }
        for (sat::Lit l : all_implied)
            expect_explained(theory, l);
    }

  private:
    int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
    int coeff() { return (pick(0, 1) ? 1 : -1) * pick(1, 3); }
    Relation relation() { return pick(0, 1) ? Relation::Le : Relation::Ge; }

    void assign(vorn::smt::ArithTheory& theory, sat::Lit l) {
        value_[l.var()] = l.negative() ? -1 : 1;
        theory.assign(l);
    }

    // The explanation of `l`: l with literals false now, which with ¬l have no solution.
    void expect_explained(vorn::smt::ArithTheory& theory, sat::Lit l) {
        std::vector<sat::Lit> clause;
        theory.explain(l, clause);
        ASSERT_NE(std::find(clause.begin(), clause.end(), l), clause.end());
        vorn::smt::Problem refutation(vorn::smt::NameSyntax::SmtLib);
        for (int v = 1; v <= kVars; ++v)
            refutation.variables.add("x" + std::to_string(v), vorn::smt::Sort::Real, {});
        for (sat::Lit m : clause) {
            if (m != l) {
                ASSERT_EQ(value_[m.var()], m.negative() ? 1 : -1) << "a premise is not false";
            }
            const Atom& a = atoms_[m.var()];
            LinearExpr e;
            for (const auto& entry : a.term)
                e.add_entry(entry.var, entry.coeff);
            e.add_entry(0, QNumber(-a.c));
            // m is false: the atom holds when m is its negation.
            Relation r = m.negative() ? a.relation : vorn::smt::negation(a.relation);
            refutation.atoms.push_back({r, refutation.add_term(e), 1, {}});
        }
        EXPECT_EQ(vorn::smt::decide(refutation, {}).result, vorn::lra::Result::Unsat)
            << "the explanation of atom " << l.var() << " is no lemma";
    }

    // Every unassigned atom that one row implies from the assigned atoms' bounds is assigned.
    void expect_complete() {
        // Tightest bounds by variable (1..kVars) and by row (kVars+1..), [0] lower, [1] upper.
        std::vector<std::optional<DeltaRational>> bound[2];
        bound[0].resize(kVars + 1 + rows_.size());
        bound[1] = bound[0];
        auto subject = [&](const Atom& a) {
            return a.row >= 0 ? kVars + 1 + a.row : a.term[0].var;
        };
        for (std::size_t i = 0; i < atoms_.size(); ++i) {
            if (value_[i] == 0) continue;
            Bound b = reading(atoms_[i], value_[i] > 0);
            auto& slot = bound[b.upper][static_cast<std::size_t>(subject(atoms_[i]))];
            if (tighter(b, slot)) slot = b.value;
        }
        std::vector<std::vector<Bound>> derived(bound[0].size());
        for (std::size_t s = 0; s < bound[0].size(); ++s)
            for (int side = 0; side < 2; ++side)
                if (bound[side][s]) derived[s].push_back({side == 1, *bound[side][s]});
        for (std::size_t r = 0; r < rows_.size(); ++r) {
            const auto& term = rows_[r];
            std::size_t row = kVars + 1 + r;
            for (int side = 0; side < 2; ++side) {
                bool upper = side == 1;
                // The row from its summands.
                DeltaRational sum;
                bool all = true;
                for (const auto& e : term) {
                    const auto& b = bound[upper == (e.coeff.sign() > 0)][e.var];
                    if (!b) all = false;
                    if (b) sum.add_product(e.coeff, *b);
                }
                if (all) derived[row].push_back({upper, sum});
                // A summand from the row and the others.
                if (!bound[side][row]) continue;
                for (const auto& k : term) {
                    DeltaRational rest = *bound[side][row];
                    bool others = true;
                    for (const auto& e : term) {
                        if (e.var == k.var) continue;
                        const auto& b = bound[upper != (e.coeff.sign() > 0)][e.var];
                        if (!b) others = false;
                        if (b) rest.add_product(-e.coeff, *b);
                    }
                    if (!others) continue;
                    rest /= k.coeff;
                    derived[static_cast<std::size_t>(k.var)].push_back(
                        {upper == (k.coeff.sign() > 0), rest});
                }
            }
        }
        for (std::size_t i = 0; i < atoms_.size(); ++i) {
            if (value_[i] != 0) continue;
            for (const Bound& d : derived[static_cast<std::size_t>(subject(atoms_[i]))])
                for (bool truth : {true, false}) {
                    Bound r = reading(atoms_[i], truth);
                    bool implies =
                        d.upper == r.upper && (d.upper ? d.value <= r.value : d.value >= r.value);
                    EXPECT_FALSE(implies)
                        << "atom " << i << " is implied but unassigned" << describe();
                }
        }
    }

    std::string describe() const {
        std::string s;
        for (std::size_t i = 0; i < atoms_.size(); ++i) {
            s += "\n" + std::to_string(i) + ": ";
            for (const auto& e : atoms_[i].term)
                s += e.coeff.to_string() + "*x" + std::to_string(e.var) + " ";
            s += (atoms_[i].relation == Relation::Le ? "<= " : ">= ") +
                 std::to_string(atoms_[i].c) + "  value " + std::to_string(value_[i]);
        }
        return s;
    }

    std::mt19937 rng_;
    vorn::smt::Problem problem_{vorn::smt::NameSyntax::SmtLib};
    std::vector<std::vector<LinearExpr::Entry>> rows_;
    std::vector<Atom> atoms_;
    std::vector<int> value_;  // by atom (= SAT variable): 1 true, −1 false, 0 unassigned
};

TEST(RowPropagation, RandomRowsAgainstBruteForce) {
    for (unsigned seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Case(seed).run();
        if (HasFailure()) return;
    }
}

}  // namespace
