#pragma once

// Everything the tool prints: the answer of `solve` as text or JSON, the report of `tableau`,
// the lines of `replay`, the legend of variable names, relation names and the --stats lines.
// The commands compute; this module writes. Sums are printed by one function, append_sum, on
// top of the library's la::append_sum_term, so every sum reads the same.

#include <iosfwd>
#include <span>
#include <string>

#include "cli/solve.h"
#include "cli/tableau_summary.h"
#include "vorn/la/tableau.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"
#include "vorn/smt/problem_text.h"

namespace vorn::cli {

// sat / unsat, then the projected equations and the definitions.
void print_solve_text(std::ostream& out, const SolveResult& result, const smt::Variables& vars);
// One JSON object; each equation and definition is an object on a line of its own, with the
// exact text, a "terms" object from names to coefficients and the "constant", numbers as
// exact rationals in strings.
void print_solve_json(std::ostream& out, const SolveResult& result, const smt::Variables& vars);
// The --stats line of solve, phase times in milliseconds.
std::string solve_stats(double read_ms, const SolveResult& result);

// The --dump text (rows, columns and names) and/or the statistics of `vorn tableau`.
void print_tableau(std::ostream& out, const TableauSummary& summary, const smt::Variables& vars,
                   double read_ms, bool dump, bool stats);

// "NAMES:" then "v name" for every variable.
std::string names_legend(const smt::Variables& vars);
// The `stats` lines of a replay: rows, columns, eliminated variables, equations.
std::string tableau_counts(const la::Tableau& t);

}  // namespace vorn::cli
