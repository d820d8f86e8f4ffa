#pragma once

// MPS files, free and fixed: the constraint system of a linear program as atoms.
//
// Sections NAME, OBJSENSE, OBJNAME, ROWS, COLUMNS (with 'MARKER' 'INTORG' / 'INTEND' for integer
// columns), RHS, RANGES, BOUNDS and ENDATA; lines starting with '*' are comments. Tokens are
// separated by blanks; a data line whose fields only make sense at the fixed columns (names with
// blanks) is read by those columns.
//
// Conventions, as the field's solvers read them: the first N row is the objective (kept as
// Problem::objective, its RHS entry being minus its constant) and the other N rows are ignored;
// a range R turns a row into an interval (E rows: [rhs, rhs + R] for R > 0, [rhs + R, rhs] for
// R < 0; L rows: [rhs − |R|, rhs]; G rows: [rhs, rhs + |R|]); columns lie in [0, +∞) unless a
// bound says otherwise; UP with a negative value on a column whose lower bound is still the
// default 0 makes the lower bound −∞; BV, LI and UI make a column integer (BV in [0, 1]); a
// number of magnitude 10^30 or more in a bound or right-hand side is infinite. Semi-continuous
// bounds (SC) and SOS sections are refused: they are not linear constraints.

#include <string_view>

#include "vorn/smt/problem.h"
#include "vorn/util/stop.h"

namespace vorn::io {

// `stop` (may be null): an interrupt throws Interrupted (interrupted.h).
smt::Problem read_mps(std::string_view text, const util::Stop* stop = nullptr);

}  // namespace vorn::io
