#pragma once

// The one problem an SMT-LIB file states, for solve and tableau, read by the script engine of
// `vorn check` (script_engine.h) in its reading mode: declare-fun and declare-const of Real and
// Int constants, define-fun without parameters (of sort Real, Int or Bool) and assert build the
// problem; set-logic, set-info, set-option, check-sat, get-model, get-info and get-value are
// passed over; exit ends it. push, pop, reset and check-sat-assuming are refused: one problem per
// file. Terms and formulas are those of smt_terms.h, outside the fragment an error. The first
// error is thrown as a ParseError.

#include <string_view>

#include "vorn/smt/problem.h"
#include "vorn/util/stop.h"

namespace vorn::io {

// `stop` (may be null): an interrupt throws Interrupted (interrupted.h).
smt::Problem read_smt2(std::string_view text, const util::Stop* stop = nullptr);

}  // namespace vorn::io
