#pragma once

// `vorn check`: an SMT-LIB script runs command by command (vorn/frontend/script_interpreter.h); a
// .lin, MPS or CPLEX LP file is one feasibility question, answered sat (with the model under
// --model), unsat or unknown. The objective of an LP file counts only through --objective-bound,
// which adds "objective ⋈ V" as one more constraint.

#include <iosfwd>
#include <optional>
#include <string>

#include "vorn/frontend/script_interpreter.h"
#include "vorn/io/input_format.h"
#include "vorn/io/source.h"

namespace vorn::cli {

struct CheckRequest {
    std::optional<io::InputFormat> format;
    std::optional<std::string> objective_bound;  // "<= 5", ">= -1.5e3", "< 0", "> 2", "= 1"
    frontend::CheckOptions options;
};

// Throws ParseError for input that cannot be read, UsageError (cli/usage_error.h) for a bad
// --objective-bound, VerificationFailure when --verify rejects an answer, io::Interrupted when
// request.options.decide.stop is interrupted while a script or an input is read. Returns, when
// a .lin, MPS, LP or DIMACS input is answered unknown, why ("timeout", "memout", "interrupted",
// "conflict limit", ...); empty otherwise. The answer is flushed as soon as it is known.
std::string run_check(const io::SourceText& source, const CheckRequest& request, std::ostream& out,
                      smt::CheckStats& stats);

}  // namespace vorn::cli
