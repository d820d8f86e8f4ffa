#pragma once

// Where a constraint came from in its input, for messages that point at it.

namespace vorn::smt {

// 1-based line and byte column.
struct SourcePos {
    int line = 1;
    int col = 1;
};

}  // namespace vorn::smt
