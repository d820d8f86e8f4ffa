#include "vorn/io/smt_symbols.h"

#include <array>
#include <cassert>
#include <string_view>

namespace vorn::io {

namespace {

constexpr std::array<std::string_view, static_cast<std::size_t>(Known::Count)> kNames = {
    "and",
    "let",
    "!",
    "=",
    "<=",
    "<",
    ">=",
    ">",
    "distinct",
    "+",
    "-",
    "*",
    "/",
    "to_real",
    "true",
    "false",
    "or",
    "not",
    "=>",
    "xor",
    "ite",
    "forall",
    "exists",
    "match",
    "to_int",
    "is_int",
    "abs",
    "div",
    "mod",
    "_",
    "as",
    "Real",
    "Int",
    "Bool",
    "assert",
    "declare-fun",
    "declare-const",
    "define-fun",
    "set-logic",
    "set-info",
    "set-option",
    "check-sat",
    "get-model",
    "get-info",
    "get-value",
    "exit",
    "push",
    "pop",
    "check-sat-assuming",
    "get-unsat-core",
    "reset",
    "reset-assertions",
    "echo",
    "minimize",
    "maximize",
    "get-objectives",
    "get-option",
    "get-assertions",
    "get-assignment",
    "get-unsat-assumptions",
    "define-sort",
    "declare-sort",
    "define-fun-rec",
    "define-funs-rec",
    "define-const",
    "assert-soft",
    "eval"};

static_assert(!kNames.back().empty(), "a name for every known symbol");

}  // namespace

void intern_known_symbols(smt::NameTable& symbols) {
    assert(symbols.size() == 0);
    for (std::string_view name : kNames)
        symbols.intern(name);
}

}  // namespace vorn::io
