#pragma once

// A linear expression while an input is read: Σ coeff·var + constant, the constant kept as
// variable 0 like the library's equations. Sums append and normalize lazily (sorted by variable,
// repeats summed, zeros dropped, la::normalize_entries), so a long sum costs one sort. Clearing
// keeps the capacity: the readers reuse a few of these as scratch instead of allocating per term.

#include <utility>
#include <vector>

#include "vorn/la/equation.h"

namespace vorn::smt {

class LinearExpr {
  public:
    using Entry = la::Equation::VarCoeff;
    using Entries = std::vector<Entry>;

    LinearExpr() = default;
    static LinearExpr constant(const QNumber& value);
    static LinearExpr variable(int id);

    void clear() {
        terms_.clear();
        normalized_ = true;
    }
    void set_constant(const QNumber& value);
    void set_variable(int id);
    // this += scale · other.
    void add(const LinearExpr& other, const QNumber& scale);
    void add_entry(int var, const QNumber& coeff) {
        terms_.push_back({var, coeff});
        normalized_ = false;
    }
    void scale(const QNumber& factor);
    void swap(LinearExpr& other) noexcept {
        terms_.swap(other.terms_);
        std::swap(normalized_, other.normalized_);
    }

    // Sorted by variable, merged, without zero coefficients; variable 0 is the constant.
    const Entries& entries() const;
    // Appends entries() to `out` without normalizing this expression in place: a short list is
    // ordered through its variable numbers and each entry copied once.
    void append_normalized_to(Entries& out) const;
    bool is_constant() const;
    // Whether any coefficient is in QNumber's big form; does not normalize.
    bool has_big_coefficient() const;
    // Meaningful when is_constant().
    QNumber constant_value() const;

  private:
    mutable Entries terms_;
    mutable bool normalized_ = true;
};

}  // namespace vorn::smt
