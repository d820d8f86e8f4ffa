#pragma once

// All-different reasoning on a `distinct` of Int terms x + c (the Hall-interval test): when k of
// the terms take their values in [a, b] and k > b − a + 1, two of them are equal (pigeonhole), so
// the distinct is false. Pairwise disequalities alone make this a pigeonhole formula, which
// resolution refutes only in exponentially many steps; one lemma answers it
// (ClauseProof::Hall, docs/certificates.md).

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "vorn/numbers/qnumber.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// The term x + offset: x an Int variable, offset an integer.
struct OffsetTerm {
    int var;
    QNumber offset;
};

// The terms of a distinct atom as OffsetTerms over pairwise different variables; nothing when
// one is not of that shape.
std::optional<std::vector<OffsetTerm>> offset_terms(const Problem& problem, const Atom& atom);

// x ≤ value (upper) or x ≥ value, x an Int variable, value an integer.
struct IntegerBound {
    int var;
    bool upper;
    QNumber value;
};

// The bound that  a·x + k ⋈ 0  (⋈ one of ≤ < ≥ >) states on the Int variable x, rounded to the
// integers; nothing for another relation or another term.
std::optional<IntegerBound> integer_bound(const Problem& problem, std::uint32_t term,
                                          Relation relation);

// Integer ranges [low, high] of terms, each end absent when unknown.
struct TermRange {
    std::optional<QNumber> low, high;
};

// An interval [low, high] that holds the ranges of more terms (`members`, by index) than it
// has integers; nothing when there is none.
struct HallInterval {
    QNumber low, high;
    std::vector<std::size_t> members;
};
std::optional<HallInterval> overfull_interval(std::span<const TermRange> ranges);

// Whether the asserted atoms refute themselves by an overfull interval of one of their
// distincts, with the bounds that their atoms over one Int variable state.
bool hall_refutes(const Problem& problem);

}  // namespace vorn::smt
