#pragma once

// `vorn replay`: a line-oriented script of tableau operations, for reproducing and profiling.
//
//   add NAME = TERM [now]   store NAME = TERM; enter it now with the trailing word "now"
//   check                   build the initial matrix
//   pivot LEAVING ENTERING
//   eliminate V...          (after check)
//   uneliminate V
//   remove V
//   dump                    the tableau's own text
//   stats                   rows, columns, eliminated variables, equations
//
// "#" starts a comment. Every line is checked against the operation's preconditions before it is
// applied; the first violation is an InputError and no output is produced.

#include <string>

namespace vorn::cli {

std::string replay(const std::string& text);

}  // namespace vorn::cli
