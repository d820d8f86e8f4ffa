// Text of an equation: the solved form for people, the raw entry list for debugging.

#include <string>

#include "vorn/la/equation.h"

namespace vorn::la {

namespace {

// Appends "c*x<v>" (or the constant c for v == 0) as the next term of a sum.
void append_term(std::string& out, const QNumber& c, int var, bool first) {
    append_sum_term(out, c, var == 0 ? std::string_view() : "x" + std::to_string(var), first);
}

std::string raw_text(const Equation& eq) {
    std::string out;
    if (const QNumber* n = eq.number()) out += '[' + n->to_string() + "] ";
    bool first = true;
    for (const auto& e : eq.coeffs_) {
        append_term(out, e.coeff, e.var, first);
        first = false;
    }
    if (first) out += '0';
    out += " = 0";
    return out;
}

}  // namespace

void append_sum_term(std::string& out, const QNumber& coeff, std::string_view name, bool first) {
    bool negative = coeff.sign() < 0;
    if (first)
        out += negative ? "-" : "";
    else
        out += negative ? " - " : " + ";
    QNumber magnitude = negative ? -coeff : coeff;
    if (name.empty()) {
        out += magnitude.to_string();
        return;
    }
    if (!magnitude.is_one()) {
        out += magnitude.to_string();
        out += '*';
    }
    out += name;
}

std::string Equation::to_str(bool raw) const {
    int basic = get_basic_var();
    const QNumber* basic_coeff = has_number() ? nullptr : coeff_of(basic);
    if (raw || basic_coeff == nullptr || basic_coeff->is_zero()) return raw_text(*this);

    // basic·cb + Σ c·v = 0  ⇔  basic = Σ (−c/cb)·v; the constant is printed last.
    QNumber scale = QNumber(-1) / *basic_coeff;
    std::string out = "x" + std::to_string(basic) + " = ";
    bool first = true;
    const VarCoeff* constant = nullptr;
    for (const auto& e : coeffs_) {
        if (e.var == basic) continue;
        if (e.var == 0) {
            constant = &e;
            continue;
        }
        append_term(out, e.coeff * scale, e.var, first);
        first = false;
    }
    if (constant != nullptr) {
        append_term(out, constant->coeff * scale, 0, first);
        first = false;
    }
    if (first) out += '0';
    return out;
}

}  // namespace vorn::la
