#pragma once

// A parsed input: its variables and the atoms asserted over them. An atom relates one term to
// 0 (lhs − rhs ⋈ 0), except `distinct`, which keeps its n argument terms and stands for the
// n(n−1)/2 disequalities between them without building them. Every term is a normalized entry
// list (sorted by variable, no repeats, no zeros, variable 0 the constant), stored back to back
// in one array, so a problem costs a few large allocations however many atoms it has.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "vorn/lra/relation.h"
#include "vorn/smt/boolean_structure.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/source_pos.h"
#include "vorn/smt/variables.h"

namespace vorn::smt {

// Ne: term ≠ 0, a negated equality.
using lra::Relation;

// Whether  t ⋈ 0  holds for a value t of sign `sign` (−1, 0, 1); Distinct reads as Ne.
bool relation_holds(Relation relation, int sign);
// ¬(t ⋈ 0) as  t ⋈' 0: = and ≠ swap, ≤ becomes >, < becomes ≥ and so on. Not for Distinct (its
// negation is a disjunction).
Relation negation(Relation relation);

struct Atom {
    Relation relation;
    std::uint32_t first_term;  // Distinct: `terms` argument terms; otherwise one, lhs − rhs
    std::uint32_t terms;
    SourcePos pos;
};

class Problem {
  public:
    using Entry = LinearExpr::Entry;

    explicit Problem(NameSyntax syntax) : variables(syntax) {}

    Variables variables;
    // Atoms that must all hold.
    std::vector<Atom> atoms;
    // Clauses that must all hold; empty for a conjunction of atoms.
    BooleanStructure boolean;
    // The term of an objective the input states (LP formats); feasibility ignores it.
    std::optional<std::uint32_t> objective;
    bool maximize = false;  // the direction the input states for it

    // Appends the term held by `expr` (normalized on the way) and returns its index.
    std::uint32_t add_term(const LinearExpr& expr);
    std::span<const Entry> term(std::uint32_t index) const {
        return {entries_.data() + term_begin_[index], entries_.data() + term_begin_[index + 1]};
    }
    // The disequality  term ≠ c  that an Ne atom states, or a Distinct atom between its terms
    // `first` and `second` (first − second): appends the term without its constant to `term`
    // and returns c.
    QNumber disequality(const Atom& atom, std::uint32_t first, std::uint32_t second,
                        LinearExpr::Entries& term) const;
    std::uint32_t term_count() const { return static_cast<std::uint32_t>(term_begin_.size() - 1); }
    void reserve(std::size_t atoms, std::size_t entries);
    // Forgets the terms from index n on (a pop: no atom refers to them any more).
    void truncate_terms(std::uint32_t n);
    // Frees the atoms and their terms once a command has taken what it needs; the variables
    // stay.
    void release_atoms();

  private:
    std::vector<Entry> entries_;
    std::vector<std::uint32_t> term_begin_{0};  // term i is entries_[begin[i], begin[i + 1])
};

}  // namespace vorn::smt
