#pragma once

// CanonicalAtoms: one formula per atom up to normalisation, read as the certificate checker
// reads atoms (docs/certificates.md), so that both fold the same conditions. A bound t ≤ c or
// t ≥ c over Int variables only is rounded to the integers; then its term is divided by its
// first coefficient (the relation turned round when that is negative). t < c and t > c are the
// negations of t ≥ c and t ≤ c, an equality is the pair of its two bounds, a disequality and a
// distinct of two terms its negation, and a distinct of more terms the set of its pairwise
// disequalities that have variables. Atoms with one key are one node of the FormulaDag (or its
// negation), so (=> (< y 1) (> 1 y)) folds to true as it is read, and x − y ≤ 3 and −y + x ≤ 3
// are one literal before encoding.
//
// Keys are kept in the order of their nodes: truncating to a dag's mark forgets the later ones
// in O(forgotten). A lookup normalises the term once and hashes it (a distinct of n terms: n²/2
// terms); the normal terms stay after a truncation, as keys only.

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "vorn/lra/term_table.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

class CanonicalAtoms {
  public:
    using Ref = std::uint32_t;  // a FormulaRef: node · 2 + negation

    // The formula of an earlier atom (or its negation) that states what `atom` states; else
    // nothing, and add() records the node made for `atom`. `atom` must have variables.
    std::optional<Ref> find(const Problem& problem, const Atom& atom);
    // `ref` is the formula of the atom that the last find() did not find; it is the newest node.
    void add(Ref ref);
    // Forgets the atoms of nodes from `nodes` on.
    void truncate(std::size_t nodes);

  private:
    // normal term ⋈ value: an upper bound, a lower bound, or both (an equality).
    struct Key {
        int term = -1;  // in terms_
        bool has_upper = false, has_lower = false;
        QNumber upper, lower;
        bool operator==(const Key& o) const {
            return term == o.term && has_upper == o.has_upper && has_lower == o.has_lower &&
                   upper == o.upper && lower == o.lower;
        }
    };
    struct Known {
        Key key;
        Ref positive;  // the formula of the key as it reads
    };

    // The key of `entries` ⋈ 0 (a constant entry of variable 0 included) for ⋈ one of ≤ ≥ =.
    Key key_of(const Problem& problem, std::span<const Problem::Entry> entries, Relation r);
    std::optional<Ref> lookup(const Key& key, bool negated);
    std::optional<Ref> find_distinct(const Problem& problem, const Atom& atom);

    lra::TermTable terms_;
    std::vector<std::vector<Known>> by_term_;
    std::unordered_map<std::string, Ref> distincts_;
    // The keys in the order of their nodes: a term index, or −1 for the next of distinct_log_.
    std::vector<int> log_;
    std::vector<std::string> distinct_log_;
    // What the last find() did not find.
    Key pending_;
    bool pending_negated_ = false;
    std::string pending_distinct_;
    lra::TermEntries normal_;
};

}  // namespace vorn::smt
