#pragma once

// Splits from the tight constraints of a fractional vertex (cuts from proofs: Dillig, Dillig,
// Aiken; Christ, Hoenicke). The integral terms that sit at one of their bounds define the vertex.
// Taken as equalities they may have no integer solution although every bound alone is rounded:
// 2x − 2y + z ≥ 1 with z = 0 holds x − y at ½, and branching on x or y alone moves the vertex
// along x − y = ½ without end. Solved over the integers (lattice.h), such a system yields
// multipliers y with T = Σ yᵢ·tᵢ integral and C = Σ yᵢ·cᵢ no integer; the vertex has T = C, so
// the split T ≤ ⌊C⌋ | T ≥ ⌊C⌋ + 1 cuts it off on both sides, and the side that contradicts the
// tight bounds is the gcd-tightening of their combination (a plain Farkas conflict once the
// split's bound is asserted).
// Mixed rows: the tight rows may hold Real variables (and a Real variable at a bound is a tight
// row itself); they are eliminated first, since the integral combinations without them are what
// the rows say about the integers (5n − k < −1/3 through x and y). Strict bounds are tight too:
// a row left with a δ pins an integral term T to c + k·δ, and T ≤ ⌊c + k·δ⌋ splits there even
// when c is an integer.
//
// Costs: a scan of the given variables, then a dense solve over the integers of the tight rows
// (O(m·n·(m + n)) big-number operations); nothing when the rows exceed `max_entries`.

#include <optional>
#include <span>

#include "vorn/la/equation.h"
#include "vorn/lra/simplex.h"

namespace vorn::lra {

struct TermSplit {
    std::vector<la::Equation::VarCoeff> term;  // over structural simplex variables, integral
    QNumber below;             // ⌊C⌋: the sides are term ≤ below, ≥ below + 1
    QNumber value;             // C, the term's value at the vertex
    std::vector<int> sources;  // the slacks (of those given) whose rows the term combines
};

// `integers`: the structural integer variables (other structural variables are rational);
// `slacks`: the candidate rows, over any variables. Tried in turn: the tight rows with the
// integer variables at a single bound left free; then with those bounds as rows after them; then,
// with `free_as_fixed`, every integer variable at a bound put in as a value.
// With `free_as_fixed`, non-basic integer variables between their bounds (free ones, at an
// integral value the simplex chose) are put in as values too: the vertex is then defined by the
// non-basic variables alone, and a fractional vertex always yields a split. That is the split
// for a vertex that moves off along an unbounded direction as branches on single variables push
// it (x₂ − x₁ = 5/2 over free x₁, x₂ beside a free x₄ the simplex holds at 0), where the bounds
// alone define no fractional point.
std::optional<TermSplit> tight_term_split(const Simplex& simplex, std::span<const int> integers,
                                          std::span<const int> slacks, std::size_t max_entries,
                                          bool free_as_fixed = false);

// Whether a coefficient of the split's term lies beyond ±100. Each split's term is a tight row of
// the next vertex, so splits that combine earlier splits' rows compound their terms; both
// searches take such a split only when it stays within this bound.
bool has_compound_coefficient(const TermSplit& split);

// Whether some integer variable of `integers` is fractional and lacks a bound on a side: the
// direction along which branching may never end.
bool fractional_unbounded(const Simplex& simplex, std::span<const int> integers);

}  // namespace vorn::lra
