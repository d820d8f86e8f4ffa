#pragma once

// Everything the tool prints: the answer of `solve` as text or JSON, the answers of `check` and
// `optimize` with their models and certificates, the report of `tableau`, the lines of
// `replay`, the legend of variable names, relation names and the --stats lines.
// The commands compute; this module writes. Sums are printed by one function, append_sum, on
// top of the library's la::append_sum_term, so every sum reads the same.

#include <iosfwd>
#include <span>
#include <string>
#include <vector>

#include "cli/solve.h"
#include "cli/tableau_summary.h"
#include "vorn/la/tableau.h"
#include "vorn/sat/solver.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/engine.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/optimize.h"
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

// sat (the model of every variable under `model`), unsat (the certificate under `certificate`)
// or unknown: the answer of `check` on a .lin, MPS or LP input.
void print_decision(std::ostream& out, const smt::Problem& problem, const smt::Decision& d,
                    bool model, bool certificate);
// The answer of `check` on a DIMACS input; with `model` (the DIMACS literal of every variable,
// in order) a Sat answer's "v ... 0" line, as SAT solvers print it.
void print_cnf_answer(std::ostream& out, sat::Result r, const std::vector<int>* model);
// optimal (the optimum exact and approximate), infeasible, unbounded or unknown, with the model
// and the certificate when asked.
void print_optimization(std::ostream& out, const smt::Problem& problem,
                        const smt::Optimization& answer, bool maximize, bool model,
                        bool certificate);
// The --stats line of check and optimize.
std::string check_stats(double read_ms, const smt::CheckStats& stats);

// The --dump text (rows, columns and names) and/or the statistics of `vorn tableau`.
void print_tableau(std::ostream& out, const TableauSummary& summary, const smt::Variables& vars,
                   double read_ms, bool dump, bool stats);

// "NAMES:" then "v name" for every variable.
std::string names_legend(const smt::Variables& vars);
// The `stats` lines of a replay: rows, columns, eliminated variables, equations.
std::string tableau_counts(const la::Tableau& t);

}  // namespace vorn::cli
