#pragma once

// `vorn solve`: the equations of an input as an exact linear system.
//
// Each equation lhs = rhs enters the tableau as a fresh slack row e = lhs − rhs, so no input
// can break the tableau's preconditions; check() builds the matrix; the chosen variables (all of
// them by default) are eliminated with eliminate_greedy. With every slack fixed to 0 the rows
// left are the system projected onto the kept variables, a row reduced to a non-zero constant
// makes it unsat, and every eliminated variable's stored equation is its definition.

#include <optional>
#include <string>
#include <vector>

#include "vorn/problem.h"

namespace vorn::cli {

struct SolveOptions {
    std::optional<std::vector<std::string>> eliminate;  // names; all variables when empty
    bool triangular = false;  // definitions as stored, each over kept and later-listed variables
};

struct ProjectedEquation {
    int basic = 0;              // a kept variable solved for, or 0 for "terms = constant"
    LinearExpr::Entries terms;  // basic = terms, or terms (with constant) = 0
};

struct Definition {
    int var;
    LinearExpr::Entries terms;  // var = terms
};

struct SolveResult {
    bool sat = true;
    std::vector<ProjectedEquation> equations;
    std::vector<Definition> definitions;
    std::size_t rounds = 0;
    double tableau_ms = 0;
    double eliminate_ms = 0;
};

// Throws InputError for an atom that is not an equality, std::invalid_argument for an unknown
// name in the elimination list.
SolveResult solve(const Problem& problem, const SolveOptions& options);

std::string solve_text(const SolveResult& result, const Symbols& names);
std::string solve_json(const SolveResult& result, const Symbols& names);

}  // namespace vorn::cli
