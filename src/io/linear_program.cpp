#include "vorn/io/linear_program.h"

namespace vorn::io {

int LinearProgram::column(std::string_view name, smt::SourcePos pos) {
    int col = problem_.variables.intern(name, smt::Sort::Real, pos);
    if (index(col) == bounds_.size()) {
        bounds_.emplace_back();
        bounds_.back().lower_pos = bounds_.back().upper_pos = pos;
    }
    return col;
}

void LinearProgram::set_lower(int col, const Bound& value, smt::SourcePos pos) {
    ColumnBounds& b = bounds_[index(col)];
    b.lower = value;
    b.lower_pos = pos;
    b.lower_set = true;
}

void LinearProgram::set_upper(int col, const Bound& value, smt::SourcePos pos) {
    ColumnBounds& b = bounds_[index(col)];
    b.upper = value;
    b.upper_pos = pos;
}

LinearProgram::Bound LinearProgram::infinite(bool lower_side, bool negative, smt::SourcePos pos) {
    if (lower_side != negative) add_atom(smt::Relation::Ge, smt::LinearExpr(), QNumber(1), pos);
    return std::nullopt;
}

void LinearProgram::add_row(const smt::LinearExpr& expr, const Bound& lower, const Bound& upper,
                            smt::SourcePos pos) {
    add_interval(expr, lower, pos, upper, pos);
}

void LinearProgram::add_interval(const smt::LinearExpr& expr, const Bound& lower,
                                 smt::SourcePos lower_pos, const Bound& upper,
                                 smt::SourcePos upper_pos) {
    if (lower && upper && *lower == *upper)
        return add_atom(smt::Relation::Eq, expr, *lower, lower_pos);
    if (lower) add_atom(smt::Relation::Ge, expr, *lower, lower_pos);
    if (upper) add_atom(smt::Relation::Le, expr, *upper, upper_pos);
}

void LinearProgram::add_atom(smt::Relation relation, const smt::LinearExpr& expr,
                             const QNumber& constant, smt::SourcePos pos) {
    scratch_.clear();
    scratch_.add(expr, QNumber(1));
    scratch_.add_entry(0, -constant);
    problem_.atoms.push_back({relation, problem_.add_term(scratch_), 1, pos});
}

smt::Problem LinearProgram::finish() {
    smt::LinearExpr x;
    for (std::size_t i = 0; i < bounds_.size(); ++i) {
        const ColumnBounds& b = bounds_[i];
        x.set_variable(static_cast<int>(i) + 1);
        add_interval(x, b.lower, b.lower_pos, b.upper, b.upper_pos);
    }
    return std::move(problem_);
}

}  // namespace vorn::io
