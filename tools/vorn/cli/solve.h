#pragma once

// `vorn solve`: the equations of an input as an exact linear system over the rationals.
//
// Each equation lhs = rhs enters the tableau as a fresh slack row s = lhs − rhs, so no input
// can break the tableau's preconditions; check() builds the matrix and the chosen variables (all
// of them by default) are eliminated with eliminate_greedy. With every slack fixed to 0, the rows
// left are the system projected onto the kept variables and every eliminated variable's stored
// equation is its definition. Whether the system has a solution does not depend on the
// projection: after the projection and the definitions are read, the kept variables are
// eliminated too, and the system is unsat exactly when a row reduces to a non-zero constant.

#include <optional>
#include <string>
#include <vector>

#include "cli/definitions.h"
#include "cli/usage_error.h"
#include "vorn/smt/problem.h"

namespace vorn::cli {

struct SolveOptions {
    std::optional<std::vector<std::string>> eliminate;  // names; every variable when absent
    bool triangular = false;  // definitions as stored, each over kept and earlier-listed variables
};

struct SolveTimes {
    double tableau_ms = 0;      // building the slack rows and check()
    double eliminate_ms = 0;    // eliminating the chosen variables
    double definitions_ms = 0;  // reading (and, unless triangular, resolving) the definitions
    double decide_ms = 0;       // eliminating the kept variables to decide satisfiability
};

struct SolveResult {
    bool sat = true;
    // Σ terms = 0 over kept variables (variable 0 the constant), scaled to a leading coefficient
    // of 1; in the order of the tableau's rows.
    std::vector<smt::LinearExpr::Entries> equations;
    std::vector<Definition> definitions;
    std::size_t rounds = 0;  // elimination rounds of eliminate_greedy
    SolveTimes times;
};

// Throws ParseError, before any work, for an atom that is not an equality or that mentions an
// Int variable (at that variable's declaration), and UsageError for an unknown name in
// options.eliminate. Consumes the problem's atoms: they are released once they are rows, so that
// the elimination reuses their memory; the variables stay, for printing.
SolveResult solve(smt::Problem& problem, const SolveOptions& options);

}  // namespace vorn::cli
