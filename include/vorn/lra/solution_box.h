#pragma once

// SolutionBox: a box that holds an integer solution of a system of integer bounds whenever the
// system has one (Papadimitriou, "On the complexity of integer programming", J. ACM 28(4),
// 1981: if Ax = b, x ≥ 0, A an m×n integer matrix with |entries of A and b| ≤ a, has an integer
// solution, it has one with every component ≤ n·(m·a)^(2m+1)).
//
// Rows are bounds  term ≤ c  or  term ≥ c  over integer variables, each counted once whichever
// way it is later read (the bound, or its rounded negation term ≥ ⌊c⌋ + 1). A row is measured on
// its term scaled to coprime integers (the scale s of integer_bounds.h): its coefficients and
// ⌈|s·c|⌉ + 1, which covers the rounded constant of the bound and of its negation (and the slack's
// coefficient 1). With m rows over n variables and a the largest measure, writing each free
// variable as x⁺ − x⁻ and giving each row a slack makes m equations in 2n + m columns, so some
// solution has |xᵢ| ≤ B = (2n + m)·(m·a)^(2m+1). Any set of rows that contains a system's rows
// gives a B at least as large, so a caller may count generously.
//
// Costs: add_row is linear in the term (a gcd and an lcm over its coefficients); bound() raises
// to the power 2m + 1 once, O(m·log(m·a)) bits.

#include <cstddef>
#include <set>
#include <span>

#include "vorn/la/equation.h"
#include "vorn/numbers/qnumber.h"

namespace vorn::lra {

class SolutionBox {
  public:
    // One row  term ⋈ c  (entries of variable 0 are ignored; a term without variables adds no
    // row).
    void add_row(std::span<const la::Equation::VarCoeff> term, const QNumber& c);
    // B for the rows so far (0 without rows).
    QNumber bound() const;

  private:
    std::set<int> variables_;
    std::size_t rows_ = 0;
    QNumber largest_;  // a: the largest measure of a row
};

}  // namespace vorn::lra
