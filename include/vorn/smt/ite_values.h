#pragma once

// IteValues: the values a lifted term ite can take when every leaf of its ite tree is a constant
// (a program counter's next value: `(ite (= pc 3) 7 (ite (= pc 5) 9 pc))` over an earlier such
// ite). Such a term equals one of finitely many constants, so an equality between it and a
// constant is a Boolean formula over the ites' conditions: (= (ite c a b) k) is
// (ite c (= a k) (= b k)), false for a k outside the set. Folding equalities so leaves the search
// no arithmetic to decide where the input only tests which constant a chain selected.
//
// The certificate checker reads the input by the same rule (docs/certificates.md), so a clause
// proof over the folded formulas matches the input. A set of more than kMaxValues values counts
// as infinite. Value sets are computed on demand, once per lifted variable, each in O(n log n)
// for its n values; each equality formula (ite, value) is built once per evaluation (a command's
// formulas may be dropped after it). Lifted variables are recognised against the FormulaDag:
// one whose lift was popped is unknown until it is lifted again.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "vorn/smt/formula_dag.h"
#include "vorn/smt/linear_expr.h"

namespace vorn::smt {

class IteValues {
  public:
    static constexpr std::size_t kMaxValues = 256;

    // Records the term ite that `var` was lifted for (its definition's reference, condition and
    // branches), replacing what an earlier variable of that number held.
    void lifted(int var, FormulaRef definition, FormulaRef condition, const LinearExpr& then,
                const LinearExpr& otherwise);
    // Formulas built before may be gone: the equality formulas are built anew from here.
    void new_evaluation() { ++evaluation_; }
    // `term` = 0 as a formula over the ites' conditions, when `term` is a·v + b for a lifted
    // ite v with finitely many values; nothing otherwise.
    std::optional<FormulaRef> equality(FormulaDag& dag, std::span<const LinearExpr::Entry> term,
                                       SourcePos pos);

    // Whether `term` is a constant or a·v + b for a lifted ite v with finitely many values.
    bool finite_term(const FormulaDag& dag, std::span<const LinearExpr::Entry> term);

  private:
    // scale · var + offset; var 0 for the constant offset, −1 for a term with other variables.
    struct Branch {
        int var = -1;
        QNumber scale, offset;
    };
    struct Ite {
        enum State : std::uint8_t { Unknown, Infinite, Finite };
        FormulaRef definition = 0;  // 0: none recorded
        FormulaRef condition = 0;
        Branch branches[2];
        State state = Unknown;
        std::vector<QNumber> values;    // sorted, when Finite
        std::vector<FormulaRef> equal;  // by value: the formula var = value, or kNone
        std::uint64_t evaluation = 0;   // of `equal`
    };
    static constexpr FormulaRef kNone = ~FormulaRef{0};

    bool known(const FormulaDag& dag, int var) const;
    // Whether `var` has finitely many values (computing them once).
    bool finite(const FormulaDag& dag, int var);
    // The index of `value` in the values of `var`, or −1.
    std::int64_t value_index(int var, const QNumber& value) const;
    std::vector<FormulaRef>& equal_formulas(Ite& ite);

    std::vector<Ite> ites_;  // by variable
    std::uint64_t evaluation_ = 1;
};

}  // namespace vorn::smt
