#pragma once

// Equation: one linear equation  Σ coeff·var = 0  over its entries, where variable 0 stands for
// the constant 1. It is the record the tableau keeps as a row.
//
// `basic_` is a tagged word. Variable form (bit 0 clear): 2·(v + 1) for the basic variable v,
// so the word 0 means "no basic variable" (v = -1). Number form (bit 0 set): the address of a
// heap QNumber owned by this equation, plus 1; such an equation carries a constant instead of a
// basic variable and is never entered into a tableau.
//
// `coeffs_` holds the entries, the basic variable's own entry included. The operations below keep
// three properties, and the constructors establish them: entries are sorted by ascending
// variable, no variable has two entries, and no coefficient is zero (a zero entry would still
// count as a mention in the tableau's column index). Equations assembled by hand through the
// public fields may be unsorted; the operations sort them before use.
//
// Normalization: `change_basic_var(v)` scales the equation so that v's coefficient is -1, which
// makes the row read  v = Σ (other coeff)·other.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "vorn/numbers/qnumber.h"

namespace vorn::la {

class Equation {
  public:
    struct VarCoeff {
        int var;
        QNumber coeff;
    };

    std::uint64_t basic_;
    std::vector<VarCoeff> coeffs_;

    Equation() noexcept : basic_(0) {}
    // Entries are sorted, duplicate variables summed and zero coefficients dropped.
    Equation(int basic, std::vector<VarCoeff> entries);
    // The number form: no basic variable, `value` kept beside the entries.
    static Equation with_number(const QNumber& value, std::vector<VarCoeff> entries = {});

    Equation(const Equation& other);
    Equation(Equation&& other) noexcept : basic_(other.basic_), coeffs_(std::move(other.coeffs_)) {
        other.basic_ = 0;
    }
    Equation& operator=(const Equation& other);
    Equation& operator=(Equation&& other) noexcept;
    ~Equation();

    static constexpr std::uint64_t encode_var(int v) {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(v) + 1) << 1;
    }
    int get_basic_var() const {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(basic_ >> 1)) - 1;
    }
    bool has_number() const { return (basic_ & 1) != 0; }
    // The number of the number form, or null in the variable form.
    const QNumber* number() const {
        return has_number() ? reinterpret_cast<const QNumber*>(basic_ - 1) : nullptr;
    }
    // The coefficient of `var`, or null when the equation has no entry for it.
    const QNumber* coeff_of(int var) const;
    // The entries as stored (sorted by variable in every row of a tableau): read access for the
    // layers above, which never write an equation's fields.
    const std::vector<VarCoeff>& entries() const { return coeffs_; }

    // Solves the equation for `v` (which it mentions): v becomes the basic variable with
    // coefficient -1.
    void change_basic_var(int v);
    // row ← row − (row[x] / def[x])·def, with cancelled entries removed. Appends to `dropped`
    // (when not null) every variable other than x that def mentions and the row no longer does.
    // `scratch` is a work buffer the caller lends; the merge works in the row's own storage and
    // leaves it untouched. Nothing is allocated unless the row outgrows its capacity.
    void substitute_var(int x, const Equation& def, std::vector<int>* dropped,
                        std::vector<VarCoeff>& scratch);
    void substitute_var(int x, const Equation& def, std::vector<int>* dropped);
    // raw == false: the solved form "x3 = 2*x1 - 1/3*x4 + 5" (other variables ascending, the
    // constant last; "x3 = 0" when nothing else remains). raw == true, or an equation without a
    // usable basic variable: the stored entries as "2*x1 - x3 + 5 = 0", prefixed by "[number] "
    // in the number form.
    std::string to_str(bool raw) const;

    // Sorts the entries by variable when they are not sorted already.
    void sort_entries();

  private:
    QNumber* owned_number() const { return reinterpret_cast<QNumber*>(basic_ - 1); }
};

// Sorts entries by variable, sums the coefficients of repeated variables and drops zero
// coefficients: the normal form of a coefficient list. Equations built from entries and callers
// assembling linear forms of their own share it.
void normalize_entries(std::vector<Equation::VarCoeff>& entries);

// Appends "coeff*name" as the next term of a sum ("2*x", " - 1/3*y", " + z"); an empty name
// writes the constant. The library's one printer of sums: the equations' own text uses it, and
// callers that name variables their way use it so that every sum reads the same.
void append_sum_term(std::string& out, const QNumber& coeff, std::string_view name, bool first);

}  // namespace vorn::la
