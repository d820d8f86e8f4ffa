// Splits on integral terms (lra/tight_split.h) in branch and bound. Where a fractional Int
// variable is unbounded on a side, branching on single variables may never end: with x2 = 30 at
// its bound, 7 ≤ −3·x0 − 3·x1 − 13·x2 ≤ 8 holds x0 + x1 at −397/3, and each branch on x0 moves
// x1 along x0 + x1 = −397/3 without an end. The tight rows of the vertex, solved over the
// integers, give the term (x0 + x1) to split on instead: T ≤ ⌊C⌋ | T ≥ ⌊C⌋ + 1 cuts the vertex
// off on both sides, and here both close at once. Any split on an integral term is valid, so the
// proof's node is a `split-cut` on T ≤ ⌊C⌋ whose sides the Farkas leaves below use, the negation
// rounded as over Int variables; no new derivation. With the non-basic free Int variables put in
// at their values (as the CDCL integer search does there), a fractional vertex always gives one.

#include <algorithm>

#include "milp_search.h"

namespace vorn::smt {

// The rows of the atoms and the objective, and those of the term splits on the path: a vertex
// that a split moved sits on the split's row. A split that combines split rows is taken only
// with coefficients within ±100 (lra::has_compound_coefficient), as in the CDCL search
// (tight_split.cpp there says why): else splits on splits compound their terms.
std::optional<lra::TermSplit> MilpSearch::unbounded_split() {
    // collect_fractional keeps the unbounded ones only when no other is fractional.
    if (fractional_.empty() || has_both_bounds(fractional_.front().var)) return std::nullopt;
    std::vector<int> rows = atom_rows_;
    std::size_t own = rows.size();
    for (std::size_t n : path_)
        if (!nodes_[n].term.empty())
            if (int row = term_var(nodes_[n].term).var; simplex_.is_slack(row)) rows.push_back(row);
    auto split = lra::tight_term_split(simplex_, integer_vars_, rows, kMaxTightEntries, true);
    if (!split) return std::nullopt;
    auto on_split_row = [&](int s) {
        return std::find(rows.begin() + static_cast<std::ptrdiff_t>(own), rows.end(), s) !=
               rows.end();
    };
    if (std::any_of(split->sources.begin(), split->sources.end(), on_split_row) &&
        lra::has_compound_coefficient(*split))
        return std::nullopt;
    return split;
}

// Two children as branch() makes them; pseudo-costs learn
// nothing from them (no variable moved), so their distance is 0.
MilpSearch::Outcome MilpSearch::branch_on_term(std::size_t node, const QNumber& value,
                                               const lra::TermSplit& split) {
    LinearExpr::Entries term;
    for (const auto& e : split.term)
        term.push_back({problem_var_[static_cast<std::size_t>(e.var)], e.coeff});
    std::size_t low = add_node(node, 0, split.below, false, value, QNumber());
    std::size_t high = add_node(node, 0, split.below, true, value, QNumber());
    nodes_[low].term = nodes_[high].term = term;
    ProofStep& step = steps_[nodes_[node].step];
    step.kind = ProofStep::Kind::SplitCut;
    step.relation = Relation::Le;
    step.term = std::move(term);
    step.constant = split.below;
    step.low = nodes_[high].step;  // the negation, T > ⌊C⌋, rounded to T ≥ ⌊C⌋ + 1
    step.high = nodes_[low].step;
    nodes_[node].value = value;
    nodes_[node].branched = true;
    preferred_child_ = split.value - split.below > QNumber(1, 2) ? high : low;
    last_value_ = value;
    return Outcome::Branched;
}

}  // namespace vorn::smt
