#pragma once

// The symbols the SMT-LIB front end knows. They are interned first, in this order, so that a
// symbol's number is its `Known` value and telling them apart is one comparison.

#include <cstdint>

#include "vorn/smt/name_table.h"

namespace vorn::io {

enum class Known : std::uint32_t {
    // Terms and formulas.
    And,
    Let,
    Bang,
    Eq,
    Le,
    Lt,
    Ge,
    Gt,
    Distinct,
    Plus,
    Minus,
    Times,
    Divide,
    ToReal,
    True,
    False,
    // Refused, each with its reason.
    Or,
    Not,
    Implies,
    Xor,
    Ite,
    Forall,
    Exists,
    Match,
    ToInt,
    IsInt,
    Abs,
    Div,
    Mod,
    Underscore,
    As,
    // Sorts.
    Real,
    Int,
    Bool,
    // Commands.
    Assert,
    DeclareFun,
    DeclareConst,
    DefineFun,
    SetLogic,
    SetInfo,
    SetOption,
    CheckSat,
    GetModel,
    GetInfo,
    GetValue,
    Exit,
    Push,
    Pop,
    CheckSatAssuming,
    GetUnsatCore,
    Reset,
    ResetAssertions,
    Echo,
    Minimize,
    Maximize,
    GetObjectives,
    GetOption,
    GetAssertions,
    GetAssignment,
    GetUnsatAssumptions,
    DefineSort,
    DeclareSort,
    DefineFunRec,
    DefineFunsRec,
    DefineConst,
    AssertSoft,
    Eval,
    Count
};

// Interns every known symbol into an empty table.
void intern_known_symbols(smt::NameTable& symbols);

inline bool is_known(std::uint32_t symbol) {
    return symbol < static_cast<std::uint32_t>(Known::Count);
}
// The names of terms and sorts, which a script cannot declare; command names it can, as z3
// reads `(declare-const minimize Int)`.
inline bool is_predefined(std::uint32_t symbol) {
    return symbol < static_cast<std::uint32_t>(Known::Assert);
}
inline Known known(std::uint32_t symbol) {
    return static_cast<Known>(symbol);
}
inline std::uint32_t symbol_of(Known k) {
    return static_cast<std::uint32_t>(k);
}

}  // namespace vorn::io
