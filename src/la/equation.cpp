// Equation lifecycle: building, deep copies and destruction.

#include "vorn/la/equation.h"

#include <memory>
#include <utility>

#include "entries.h"

namespace vorn::la {

void normalize_entries(std::vector<Equation::VarCoeff>& list) {
    entries::sort_by_var(list);
    std::size_t out = 0;
    for (std::size_t i = 0; i < list.size();) {
        if (out != i) entries::relocate(list[out], list[i]);
        for (++i; i < list.size() && list[i].var == list[out].var; ++i)
            list[out].coeff += list[i].coeff;
        if (!list[out].coeff.is_zero()) ++out;
    }
    list.resize(out);
}

Equation::Equation(int basic, std::vector<VarCoeff> entries)
    : basic_(encode_var(basic)), coeffs_(std::move(entries)) {
    normalize_entries(coeffs_);
}

Equation Equation::with_number(const QNumber& value, std::vector<VarCoeff> entries) {
    Equation eq(-1, std::move(entries));
    auto number = std::make_unique<QNumber>(value);
    eq.basic_ = reinterpret_cast<std::uint64_t>(number.release()) + 1;
    return eq;
}

Equation::Equation(const Equation& other) : basic_(other.basic_), coeffs_(other.coeffs_) {
    // The member list is destroyed by the compiler if this allocation throws.
    if (other.has_number())
        basic_ = reinterpret_cast<std::uint64_t>(new QNumber(*other.number())) + 1;
}

Equation& Equation::operator=(const Equation& other) {
    if (this != &other) {
        Equation copy(other);
        *this = std::move(copy);
    }
    return *this;
}

Equation& Equation::operator=(Equation&& other) noexcept {
    if (this != &other) {
        std::swap(basic_, other.basic_);
        std::swap(coeffs_, other.coeffs_);
    }
    return *this;
}

Equation::~Equation() {
    if (has_number()) delete owned_number();
    // Entries go from the last to the first.
    while (!coeffs_.empty())
        coeffs_.pop_back();
}

const QNumber* Equation::coeff_of(int var) const {
    for (const VarCoeff& entry : coeffs_)
        if (entry.var == var) return &entry.coeff;
    return nullptr;
}

void Equation::sort_entries() {
    entries::sort_by_var(coeffs_);
}

}  // namespace vorn::la
