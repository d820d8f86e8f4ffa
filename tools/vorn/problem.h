#pragma once

// A parsed input: named variables and atoms  expr ⋈ 0.

#include <string>
#include <vector>

#include "vorn/linear_expr.h"
#include "vorn/source.h"

namespace vorn::cli {

enum class Relation { Eq, Le, Lt, Ge, Gt, Distinct };

const char* relation_text(Relation r);

struct Atom {
    Relation relation;
    LinearExpr expr;  // lhs − rhs
    SourcePos pos;
};

struct Problem {
    Symbols symbols;
    std::vector<Atom> atoms;
};

}  // namespace vorn::cli
