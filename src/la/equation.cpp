// Equation lifecycle: building, deep copies and destruction.

#include "vorn/la/equation.h"

#include <algorithm>
#include <cassert>
#include <memory>
#include <utility>

namespace vorn::la {

namespace {

bool by_var(const Equation::VarCoeff& a, const Equation::VarCoeff& b) {
    return a.var < b.var;
}

}  // namespace

void normalize_entries(std::vector<Equation::VarCoeff>& entries) {
    if (!std::is_sorted(entries.begin(), entries.end(), by_var))
        std::sort(entries.begin(), entries.end(), by_var);
    std::size_t out = 0;
    for (std::size_t i = 0; i < entries.size();) {
        Equation::VarCoeff current = std::move(entries[i]);
        for (++i; i < entries.size() && entries[i].var == current.var; ++i)
            current.coeff += entries[i].coeff;
        if (!current.coeff.is_zero()) entries[out++] = std::move(current);
    }
    entries.resize(out);
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
    if (!std::is_sorted(coeffs_.begin(), coeffs_.end(), by_var))
        std::sort(coeffs_.begin(), coeffs_.end(), by_var);
}

}  // namespace vorn::la
