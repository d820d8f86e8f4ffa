#pragma once

// `vorn optimize`: the exact optimum of an LP file's objective (smt::optimize). Prints
// "optimal", "infeasible", "unbounded" or "unknown", then for an optimum "objective P/Q" (exact,
// lowest terms) and "objective ≈ D" (17 significant digits); --model prints the model,
// --certificate the proof that nothing better exists (or that nothing is feasible).

#include <iosfwd>
#include <optional>
#include <string>

#include "vorn/frontend/script_interpreter.h"
#include "vorn/io/input_format.h"
#include "vorn/io/source.h"

namespace vorn::cli {

struct OptimizeRequest {
    std::optional<io::InputFormat> format;
    bool maximize = false;  // besides what the file says
    frontend::CheckOptions options;
    bool stats = false;  // `note` also says how the floating-point start went
};

// Throws ParseError for unreadable input, UsageError (cli/usage_error.h) for an input without an
// objective or an SMT-LIB script, VerificationFailure when --verify rejects the answer. Returns
// the reason of an unknown answer (empty otherwise) and, through `note`, how the floating-point
// start went (with `stats`).
std::string run_optimize(const io::SourceText& source, const OptimizeRequest& request,
                         std::ostream& out, smt::CheckStats& stats, std::string& note);

}  // namespace vorn::cli
