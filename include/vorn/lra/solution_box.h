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
// mixed_bound() is the bound for rows over Int and Real variables alike, bounding the Int ones
// (docs/certificates.md, "Boxes"): a row is measured on its term and constant scaled together to
// coprime integers (the constant of a row with a Real variable cannot be rounded); strict rows
// share one variable 0 ≤ ε ≤ 1. With m = rows + 2, N = 2n + m + 1 and a the largest
// measure, some solution has |xᵢ| ≤ (N + 1)·(m·a)^m on every Int variable xᵢ.
//
// Costs: add_row is linear in the term (a gcd and an lcm over its coefficients); bound() raises
// to the power 2m + 1 once, O(m·log(m·a)) bits; mixed_bound() to the power m + 2.

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
    // B for the rows so far, all over Int variables (0 without rows).
    QNumber bound() const;
    // B for the rows so far over Int and Real variables, on the Int ones (0 without rows).
    QNumber mixed_bound() const;

  private:
    std::set<int> variables_;
    std::size_t rows_ = 0;
    QNumber largest_;        // a: the largest measure of a row
    QNumber largest_mixed_;  // a of mixed_bound(): the largest entry of a row scaled whole
};

}  // namespace vorn::lra
