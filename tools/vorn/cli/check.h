#pragma once

// `vorn check`: an SMT-LIB script runs command by command (cli/script_engine.h); a .lin, MPS or
// CPLEX LP file is one feasibility question, answered sat (with the model under --model), unsat
// or unknown. The objective of an LP file counts only through --objective-bound, which adds
// "objective ⋈ V" as one more constraint.

#include <iosfwd>
#include <optional>
#include <string>

#include "cli/input_format.h"
#include "cli/script_engine.h"
#include "cli/source.h"

namespace vorn::cli {

struct CheckRequest {
    std::optional<InputFormat> format;
    std::optional<std::string> objective_bound;  // "<= 5", ">= -1.5e3", "< 0", "> 2", "= 1"
    CheckOptions options;
};

// Throws InputError for input that cannot be read, UsageError (cli/solve.h) for a bad
// --objective-bound, VerificationFailure when --verify rejects an answer.
void run_check(const SourceText& source, const CheckRequest& request, std::ostream& out,
               CheckStats& stats);

// The --stats line.
std::string check_stats(double read_ms, const CheckStats& stats);

}  // namespace vorn::cli
