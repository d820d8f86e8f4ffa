#pragma once

// A linear program as the LP formats describe it, turned into the atoms of a Problem: columns
// with bounds (default [0, +∞)) and integrality, rows with an interval of allowed values, and the
// objective. The MPS and CPLEX LP readers only parse their syntax and hand the pieces here.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"

namespace vorn::io {

class LinearProgram {
  public:
    // nullopt: −∞ for a lower bound, +∞ for an upper one.
    using Bound = std::optional<QNumber>;

    LinearProgram() : problem_(smt::NameSyntax::SmtLib) {}

    // The column called `name`, created (continuous, in [0, +∞)) at its first mention.
    int column(std::string_view name, smt::SourcePos pos);
    // The column called `name`, or 0 when there is none.
    int find_column(std::string_view name) const { return problem_.variables.find(name); }
    void set_integer(int col) { problem_.variables.set_sort(col, smt::Sort::Int); }
    void set_lower(int col, const Bound& value, smt::SourcePos pos);
    void set_upper(int col, const Bound& value, smt::SourcePos pos);
    // True until a bound statement sets the lower bound.
    bool default_lower(int col) const { return !bounds_[index(col)].lower_set; }

    // The side of a row or a column bound that a reader found written as ±∞ (`negative`: −∞),
    // one rule for every format. Beyond the side (expr ≤ +∞, expr ≥ −∞) it leaves the side open;
    // otherwise (expr ≥ +∞, expr ≤ −∞, and so expr = ±∞) no value meets it, and the problem is
    // unsatisfiable: the false atom 0 ≥ 1 at `pos` stands for the row, so that an unsat answer's
    // certificate names it. Returns the side's Bound, open in both cases.
    Bound infinite(bool lower_side, bool negative, smt::SourcePos pos);
    // lower ≤ expr ≤ upper; both infinite: no constraint.
    void add_row(const smt::LinearExpr& expr, const Bound& lower, const Bound& upper,
                 smt::SourcePos pos);
    void set_objective(const smt::LinearExpr& expr) {
        problem_.objective = problem_.add_term(expr);
    }
    void set_maximize(bool maximize) { problem_.maximize = maximize; }

    // The rows' atoms in the order they were added, then the columns' bounds.
    smt::Problem finish();

  private:
    struct ColumnBounds {
        Bound lower = QNumber(0);
        Bound upper;
        smt::SourcePos lower_pos, upper_pos;
        bool lower_set = false;
    };

    static std::size_t index(int col) { return static_cast<std::size_t>(col - 1); }
    // lower ≤ expr ≤ upper as one Eq atom or up to two inequalities.
    void add_interval(const smt::LinearExpr& expr, const Bound& lower, smt::SourcePos lower_pos,
                      const Bound& upper, smt::SourcePos upper_pos);
    void add_atom(smt::Relation relation, const smt::LinearExpr& expr, const QNumber& constant,
                  smt::SourcePos pos);

    smt::Problem problem_;
    std::vector<ColumnBounds> bounds_;
    smt::LinearExpr scratch_;
};

}  // namespace vorn::io
