#pragma once

// Which reader an input goes to: the one asked for (--format-in), else the file name's
// extension, ".lin" or ".smt2" in any case; standard input is SMT-LIB when its first non-blank
// character opens a parenthesis or a comment, the plain format otherwise.

#include <optional>

#include "cli/problem.h"
#include "cli/source.h"

namespace vorn::cli {

enum class InputFormat { Lin, Smt2 };

// InputError at 1:1 when the format cannot be told.
InputFormat input_format(const SourceText& source, std::optional<InputFormat> forced);

Problem read_problem(const SourceText& source, std::optional<InputFormat> forced);

}  // namespace vorn::cli
