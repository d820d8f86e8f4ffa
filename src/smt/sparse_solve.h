#pragma once

// Exact solution of a sparse square system M·x = b over the rationals, by Gaussian elimination
// with a Markowitz-style pivot order (the column with the fewest entries, in it the shortest
// row), so that the nearly triangular bases of real LPs fill in little.

#include <optional>
#include <utility>
#include <vector>

#include "vorn/numbers/qnumber.h"
#include "vorn/util/stop.h"

namespace vorn::smt {

// One row of M: (column, coefficient) pairs, columns distinct, in any order.
using SparseRow = std::vector<std::pair<int, QNumber>>;

// x with M·x = b, M given by its rows (as many as columns); nothing when M is singular or `stop`
// (may be null) is requested.
std::optional<std::vector<QNumber>> solve_square(std::vector<SparseRow> rows,
                                                 std::vector<QNumber> b, util::Stop* stop);

// The rows of Mᵀ from the rows of M (n columns).
std::vector<SparseRow> transpose(const std::vector<SparseRow>& rows, int n);

}  // namespace vorn::smt
