#include "vorn/smt/problem_text.h"

#include <algorithm>
#include <string_view>

namespace vorn::smt {

namespace {

bool smt_symbol_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("~!@$%^&*_-+=<>.?/").find(c) != std::string_view::npos;
}

// Words that read as syntax, not as a symbol, when written without bars.
bool reserved_word(std::string_view name) {
    static constexpr std::string_view kReserved[] = {"!",
                                                     "_",
                                                     "as",
                                                     "BINARY",
                                                     "DECIMAL",
                                                     "exists",
                                                     "HEXADECIMAL",
                                                     "forall",
                                                     "let",
                                                     "match",
                                                     "NUMERAL",
                                                     "par",
                                                     "STRING",
                                                     "assert",
                                                     "check-sat",
                                                     "check-sat-assuming",
                                                     "declare-const",
                                                     "declare-datatype",
                                                     "declare-datatypes",
                                                     "declare-fun",
                                                     "declare-sort",
                                                     "define-fun",
                                                     "define-fun-rec",
                                                     "define-funs-rec",
                                                     "define-sort",
                                                     "echo",
                                                     "exit",
                                                     "get-assertions",
                                                     "get-assignment",
                                                     "get-info",
                                                     "get-model",
                                                     "get-option",
                                                     "get-proof",
                                                     "get-unsat-assumptions",
                                                     "get-unsat-core",
                                                     "get-value",
                                                     "pop",
                                                     "push",
                                                     "reset",
                                                     "reset-assertions",
                                                     "set-info",
                                                     "set-logic",
                                                     "set-option"};
    return std::find(std::begin(kReserved), std::end(kReserved), name) != std::end(kReserved);
}

bool reads_back_plain(std::string_view name) {
    return !name.empty() && !(name[0] >= '0' && name[0] <= '9') &&
           std::all_of(name.begin(), name.end(), smt_symbol_char) && !reserved_word(name);
}

}  // namespace

const char* relation_text(Relation r) {
    switch (r) {
        case Relation::Eq:
            return "=";
        case Relation::Le:
            return "<=";
        case Relation::Lt:
            return "<";
        case Relation::Ge:
            return ">=";
        case Relation::Gt:
            return ">";
        case Relation::Distinct:
            return "distinct";
        case Relation::Ne:
            return "!=";
    }
    return "?";
}

void append_symbol(std::string& out, std::string_view name) {
    if (reads_back_plain(name)) {
        out += name;
        return;
    }
    out += '|';
    out += name;
    out += '|';
}

void append_name(std::string& out, const Variables& vars, int v) {
    if (vars.syntax() == NameSyntax::Plain) {
        out += vars.name(v);
        return;
    }
    append_symbol(out, vars.name(v));
}

void append_sum(std::string& out, std::span<const LinearExpr::Entry> terms, const Variables& vars) {
    bool first = true;
    const QNumber* constant = nullptr;
    std::string name;
    for (const auto& t : terms) {
        if (t.var == 0) {
            constant = &t.coeff;
            continue;
        }
        name.clear();
        append_name(name, vars, t.var);
        la::append_sum_term(out, t.coeff, name, first);
        first = false;
    }
    if (constant != nullptr) {
        la::append_sum_term(out, *constant, {}, first);
        first = false;
    }
    if (first) out += '0';
}

}  // namespace vorn::smt
