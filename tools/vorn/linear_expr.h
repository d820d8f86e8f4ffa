#pragma once

// Linear expressions over named variables while an input is read: Σ coeff·var + constant, the
// constant kept as variable 0 like the library's equations.

#include <string>
#include <unordered_map>
#include <vector>

#include "vorn/la/equation.h"

namespace vorn::cli {

// Names to variable numbers, from 1 in order of first appearance.
class Symbols {
  public:
    int intern(const std::string& name);
    int find(const std::string& name) const;  // 0 when unknown
    const std::string& name(int id) const { return names_[id - 1]; }
    int size() const { return static_cast<int>(names_.size()); }

  private:
    std::unordered_map<std::string, int> ids_;
    std::vector<std::string> names_;
};

class LinearExpr {
  public:
    using Entries = std::vector<la::Equation::VarCoeff>;

    LinearExpr() = default;
    static LinearExpr constant(const QNumber& value);
    static LinearExpr variable(int id);

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
