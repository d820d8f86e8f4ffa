#pragma once

// Integer solutions of a system of linear equalities A·x = b, decided outright.
//
// Column operations that keep the lattice spanned by A's columns (adding an integer multiple of
// one column to another, swapping, negating: A·U with U unimodular) bring A, row by row, to a
// lower echelon form H = A·U whose pivots are the rows' gcds (Hermite normal form without the
// reduction above the diagonal, which solving does not need). Then A·x = b has an integer
// solution exactly when H·w = b has one, which forward substitution finds or refutes, and
// x = U·w. The solutions are x0 + Σ zᵢ·kᵢ over integers zᵢ, the kᵢ being U's columns beyond the
// pivots. A refutation comes with multipliers y: y·A is integral and y·b is not (no integer x
// can then satisfy A·x = b), or y·A = 0 and y·b ≠ 0 when not even a rational x can.
//
// Exact: GMP integers throughout; the cost is O(m·n·(m + n)) big-number operations, entries
// growing with the reductions.

#include <cstddef>
#include <utility>
#include <vector>

#include "vorn/numbers/qnumber.h"

namespace vorn::lra {

struct LatticeAnswer {
    enum class Kind { Solutions, NoIntegerSolution, NoRationalSolution } kind = Kind::Solutions;
    std::vector<QNumber> particular;           // Solutions: x0, integral
    std::vector<std::vector<QNumber>> kernel;  // Solutions: a basis of {x ∈ Zⁿ : A·x = 0}
    std::vector<QNumber> multipliers;          // otherwise: y, one per row
    // NoIntegerSolution, from solve_sparse_over_integers: y·A by column (integral) and y·b (not
    // an integer), the term and constant that refute every integer point.
    std::vector<QNumber> refuting_term;
    QNumber refuting_constant;
    // Solutions, when asked for: integer rows lₜ with lₜ·kernel[s] = 1 for s = t and 0 otherwise,
    // which read a solution's parameters as integral terms: zₜ = lₜ·(x − x0).
    std::vector<std::vector<QNumber>> coordinates;
};

struct LatticeOptions {
    // LLL-reduce the kernel basis and bring x0 near the origin (the dearest step; deciding
    // needs neither).
    bool reduce_basis = true;
    bool coordinates = false;
};

// `rows` are A's rows, each of `columns` entries; entries and `rhs` may be any rationals (each
// row is scaled to integers first; the multipliers refer to the rows as given). Without
// `reduce_basis` the kernel basis and x0 are left as the column operations make them (long
// vectors), which is enough to decide.
LatticeAnswer solve_over_integers(const std::vector<std::vector<QNumber>>& rows,
                                  const std::vector<QNumber>& rhs, std::size_t columns,
                                  bool reduce_basis = true);
LatticeAnswer solve_over_integers(const std::vector<std::vector<QNumber>>& rows,
                                  const std::vector<QNumber>& rhs, std::size_t columns,
                                  const LatticeOptions& options);

// Rows given as (column, coefficient) pairs.
using SparseRows = std::vector<std::vector<std::pair<std::size_t, QNumber>>>;
// As solve_over_integers, with the refuting term and constant when there is no integer solution.
LatticeAnswer solve_sparse_over_integers(const SparseRows& rows, const std::vector<QNumber>& rhs,
                                         std::size_t columns, const LatticeOptions& options);

}  // namespace vorn::lra
