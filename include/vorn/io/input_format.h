#pragma once

// Which reader an input goes to (frontend/problem_reader.h reads it): the one asked for
// (--format-in), else the file name's extension, ".lin", ".smt2", ".mps", ".lp" or ".cnf" (DIMACS,
// `vorn check` only) in any case and after a compression extension
// (".mps.bz2"); standard input is SMT-LIB when its first non-blank character opens a
// parenthesis or a comment, the plain format otherwise.

#include <optional>
#include <string_view>

#include "vorn/io/source.h"

namespace vorn::io {

enum class InputFormat { Lin, Smt2, Mps, Lp, Cnf };

// The format called "lin", "smt2", "mps", "lp" or "cnf" (the names --format-in takes).
std::optional<InputFormat> format_named(std::string_view name);

// ParseError at 1:1 when the format cannot be told.
InputFormat input_format(const SourceText& source, std::optional<InputFormat> forced);

}  // namespace vorn::io
