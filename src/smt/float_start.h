#pragma once

// The floating-point start of optimization: a double-precision LP solver (COIN-OR CLP) finds an
// optimal basis fast, and that basis is then checked exactly — its primal values solved from the
// exact constraints, its dual values from the exact objective, both sides' signs and bounds
// compared exactly. Nothing of the floating-point answer but the choice of basis is used, so a
// wrong basis can only cost time: the exact simplex then starts from it instead.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vorn/smt/decision.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// The problem as an LP: each variable a column with the tightest bounds its one-variable atoms
// give, every other atom a row (its term without constant, between bounds). Strict atoms,
// disequalities and Boolean structure have no such form.
struct LpForm {
    struct Bound {
        QNumber value;
        std::size_t atom;  // the atom that states it
    };
    struct Column {
        std::optional<Bound> lower, upper;
    };
    struct Row {
        std::size_t atom;
        std::optional<QNumber> lower, upper;
    };
    std::vector<Column> columns;  // by problem variable, index 0 unused
    std::vector<Row> rows;
    std::vector<QNumber> cost;  // by problem variable: the objective to minimize
    bool negated = false;       // cost is the objective negated (maximizing)
};

// The nearest double (CLP's input).
double to_double(const QNumber& value);

// Without an objective: a cost of zero (feasibility).
std::optional<LpForm> lp_form(const Problem& problem, std::optional<std::uint32_t> objective,
                              bool maximize);

// A basis: which columns and rows are basic; a non-basic one sits at the bound `at_upper`
// says (a column without bounds at 0).
struct Basis {
    std::vector<char> column_basic, column_at_upper;  // by problem variable
    std::vector<char> row_basic, row_at_upper;        // by LpForm row
};

// CLP's optimal basis; with `infeasible_too` also the one where it finds the LP infeasible.
// Nothing when CLP finds the LP unbounded, fails or is stopped.
std::optional<Basis> float_basis(const Problem& problem, const LpForm& lp, util::Stop* stop,
                                 bool infeasible_too = false);

// Brings `basis` into `simplex`, which holds the problem's atoms as bounds (lra::Simplex::
// warm_start): `simplex_var` maps problem variables to simplex variables (0: none), `keep_basic`
// lists simplex variables to stay basic besides.
void warm_start(lra::Simplex& simplex, const Problem& problem, const LpForm& lp, const Basis& basis,
                std::span<const int> simplex_var, std::span<const int> keep_basic);

// An optimum proved by a basis: the model attains it, and the Farkas entries over the problem's
// atoms (the optimal dual values), added to "objective < optimum" ("> " when maximizing) with
// multiplier 1, cancel every variable and leave 0 < 0.
struct BasisOptimum {
    std::vector<QNumber> model;  // by problem variable, index 0 unused
    QNumber optimum;             // of the objective term, its constant included
    std::vector<FarkasEntry> farkas;
};

// The basis checked exactly: nothing when it is singular, primal infeasible or not dual
// feasible (`why` says which).
std::optional<BasisOptimum> check_basis(const Problem& problem, std::uint32_t objective,
                                        const LpForm& lp, const Basis& basis, util::Stop* stop,
                                        std::string& why);

// A feasibility question decided by a basis, exactly: feasible with the basis's values as the
// model when they meet every bound; infeasible with Farkas entries over the problem's atoms
// (summing to 0 < 0 or 0 ≤ −c) when the basis minimizes the sum of the bounds its values break.
struct BasisAnswer {
    bool feasible = false;
    std::vector<QNumber> model;  // by problem variable, index 0 unused
    std::vector<FarkasEntry> farkas;
};

// Nothing when the basis is singular or proves neither (`why` says which).
std::optional<BasisAnswer> decide_by_basis(const Problem& problem, const LpForm& lp,
                                           const Basis& basis, util::Stop* stop, std::string& why);

}  // namespace vorn::smt
