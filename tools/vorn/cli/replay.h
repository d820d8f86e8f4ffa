#pragma once

// `vorn replay`: a line-oriented script of tableau operations, for reproducing and profiling.
//
//   add NAME = TERM [now]   store NAME = TERM; before check it waits for check, after check it
//                           must say "now" and enters at once
//   check                   build the initial matrix
//   pivot LEAVING ENTERING
//   eliminate V...          (after check)
//   uneliminate V
//   remove V
//   dump                    the tableau's own text and the names of its variables
//   stats                   rows, columns, eliminated variables, equations
//
// "#" starts a comment; TERM is a sum of the plain format (io/lin_reader.h). Every line is
// checked against the preconditions of its operation before it runs; the first violation is an
// ParseError and no output is produced.

#include <string>
#include <string_view>

namespace vorn::cli {

std::string replay(std::string_view text);

}  // namespace vorn::cli
