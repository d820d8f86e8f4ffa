#pragma once

// Linear expressions over named variables while an input is read: Σ coeff·var + constant, the
// constant kept as variable 0 like the library's equations.

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "vorn/la/equation.h"

namespace vorn::cli {

// Names to variable numbers, from 1 in order of first appearance.
class Symbols {
  public:
    Symbols() = default;
    Symbols(const Symbols& other) { *this = other; }
    Symbols& operator=(const Symbols& other);
    Symbols(Symbols&&) noexcept = default;
    Symbols& operator=(Symbols&&) noexcept = default;

    void reserve(std::size_t n) { ids_.reserve(n); }
    int intern(std::string_view name);
    int find(std::string_view name) const;  // 0 when unknown
    const std::string& name(int id) const { return names_[id - 1]; }
    int size() const { return static_cast<int>(names_.size()); }

  private:
    // The keys view the strings of `names_`, whose elements never move.
    std::unordered_map<std::string_view, int> ids_;
    std::deque<std::string> names_;
};

class LinearExpr {
  public:
    using Entries = std::vector<la::Equation::VarCoeff>;

    LinearExpr() = default;
    static LinearExpr constant(const QNumber& value);
    static LinearExpr variable(int id);
    // Any entries; merged and sorted when first read.
    static LinearExpr from_entries(Entries entries);

    void add(const LinearExpr& other, const QNumber& scale);
    void scale(const QNumber& factor);
    // Sorted by variable, merged, without zero coefficients; variable 0 is the constant.
    const Entries& entries() const;
    bool is_constant() const;
    QNumber constant_value() const;

  private:
    mutable Entries terms_;
    mutable bool normalized_ = true;
};

}  // namespace vorn::cli
