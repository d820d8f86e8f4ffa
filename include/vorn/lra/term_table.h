#pragma once

// TermTable: one entry per distinct linear term, terms equal up to a non-zero factor sharing one.
//
// A solver gives each linear term of its atoms one slack variable s with the row s = term, so
// that every atom over the term becomes a bound on s. Terms that differ only by a factor (t,
// 2t, −t/3) must share the slack: otherwise the solver would keep parallel rows whose bounds
// it could only relate through pivots. `normalize_term` brings a term to its normal form,
// the coefficient list sorted by variable, merged, without zeros, scaled so that the first
// coefficient is 1, and returns the factor it divided by: term = factor · normal form.
//
// Entries. The normal forms are stored back to back in one array; entry k's coefficients are
// `term(k)`. Indices are dense from 0 in order of first interning. A hash of the normal form
// leads to its candidates, which are compared exactly, coefficient by coefficient.
//
// Costs: interning is linear in the term's length plus one hash lookup; only the latest entries
// can be removed (truncate), each at the cost of one hash lookup.

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

#include "vorn/la/equation.h"

namespace vorn::lra {

using TermEntries = std::vector<la::Equation::VarCoeff>;

// Normalizes `entries` in place (sorted, merged, zero-free, first coefficient 1) and returns the
// factor f with original term = f · normal form. An empty or all-zero term gives f = 0 and
// leaves no entries.
QNumber normalize_term(TermEntries& entries);

class TermTable {
  public:
    struct Interned {
        int index;   // the entry's index, dense from 0
        bool fresh;  // true when this call created the entry
    };

    // The entry of a normal form (as `normalize_term` leaves it), created when it is new.
    Interned intern(std::span<const la::Equation::VarCoeff> normal);
    // The normal form of entry `index`.
    std::span<const la::Equation::VarCoeff> term(int index) const {
        return {entries_.data() + starts_[index], entries_.data() + starts_[index + 1]};
    }
    std::size_t size() const { return starts_.size() - 1; }
    // Forgets the entries from index n on (the latest ones), so that their terms are new again.
    void truncate(std::size_t n);

  private:
    static std::uint64_t hash_of(std::span<const la::Equation::VarCoeff> normal);

    TermEntries entries_;
    std::vector<std::size_t> starts_{0};
    std::unordered_multimap<std::uint64_t, int> by_hash_;
};

}  // namespace vorn::lra
