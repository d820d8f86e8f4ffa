#pragma once

// CPLEX LP files: the constraint system of a linear program as atoms.
//
// Sections, recognised at the start of a line in any case: the objective (MINIMIZE, MAXIMIZE and
// their short forms, an optional "name:" and a linear expression, kept as Problem::objective),
// SUBJECT TO (also SUCH THAT, ST, S.T.), BOUNDS, GENERAL(S)/GEN/INTEGER(S), BINARY/BINARIES/BIN
// and END; '\' starts a comment. A constraint is "[name:] expr rel constant" or the range
// "[name:] constant rel expr rel constant", where rel is <=, =<, <, >=, =>, > or = (the format
// reads < as <= and > as >=); constants may also stand among the terms. A bound is
// "x rel value", "value rel x", "value rel x rel value" or "x free", with "inf"/"infinity" for
// ±∞; columns lie in [0, +∞) unless bounded otherwise; binaries are integers in [0, 1].
// Quadratic terms, semi-continuous and SOS sections are refused: they are not linear.

#include <string_view>

#include "vorn/smt/problem.h"
#include "vorn/util/stop.h"

namespace vorn::io {

// `stop` (may be null): an interrupt throws Interrupted (interrupted.h).
smt::Problem read_lp(std::string_view text, const util::Stop* stop = nullptr);

}  // namespace vorn::io
