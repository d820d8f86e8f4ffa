#pragma once

// Chooses the parser by file name: ".lin" or ".smt2"; standard input is SMT-LIB when its first
// non-blank character opens a parenthesis or a comment, the plain format otherwise.

#include "vorn/problem.h"
#include "vorn/source.h"

namespace vorn::cli {

Problem parse_input(const SourceText& source);

}  // namespace vorn::cli
