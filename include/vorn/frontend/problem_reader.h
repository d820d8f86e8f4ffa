#pragma once

// The one problem a file states, for solve and tableau (and check and optimize on .lin, MPS and
// LP files): the io readers for the plain, MPS and LP formats, and for SMT-LIB the script
// interpreter (script_interpreter.h) in its reading mode: declare-fun and declare-const of Real
// and Int constants, define-fun without parameters (of sort Real, Int or Bool) and assert build
// the problem; set-logic, set-info, set-option, check-sat, get-model, get-info and get-value are
// passed over; exit ends it. push, pop, reset and check-sat-assuming are refused: one problem per
// file. Terms and formulas are those of io/smt_terms.h, outside the fragment an error. The first
// error is thrown as an io::ParseError. Reading costs time and memory linear in the text.

#include <optional>
#include <string_view>

#include "vorn/io/input_format.h"
#include "vorn/io/source.h"
#include "vorn/smt/problem.h"
#include "vorn/util/stop.h"

namespace vorn::frontend {

// `stop` (may be null): an interrupt throws io::Interrupted (interrupted.h).
smt::Problem read_smt2(std::string_view text, const util::Stop* stop = nullptr);

// The reader of the format asked for or told by io::input_format; its ParseError names the file.
smt::Problem read_problem(const io::SourceText& source, std::optional<io::InputFormat> forced,
                          const util::Stop* stop = nullptr);

}  // namespace vorn::frontend
