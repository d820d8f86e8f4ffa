// Branch and bound: reduced-cost fixing. At a node's optimum the objective's row reads
// o = Σ d·x over non-basic variables, each at the bound its reduced cost d pushes it to, and the
// incumbent's bound caps o. An Int variable moved k units away from its bound moves o by |d|·k;
// once that passes the cap, the node becomes a split on the variable whose far side is a leaf.
// Its Farkas conflict is the row's own (as the simplex explains a row): the cap, every other
// variable's bound and the far bound, weighted by |d|. So the certificate needs nothing but
// split-int nodes and Farkas leaves, and no check is run: the near side is branched on.

#include "vorn/lra/integer_bounds.h"

#include "milp_search.h"

namespace vorn::smt {

namespace {

QNumber magnitude(const QNumber& q) {
    return q.sign() < 0 ? -q : q;
}

}  // namespace

// From the objective's row right after the node's minimize, before anything pivots.
void MilpSearch::collect_fixings() {
    fixings_.clear();
    int o = objective_var_->var;
    if (!cutoff_asserted_ || incumbent_approached_ || approached_here_ ||
        !simplex_.tableau().rows().contains(o))
        return;
    // Minimizing o (the cap an upper bound on it) or maximizing it (a lower bound).
    bool least = maximize_ == (objective_var_->scale.sign() < 0);
    const lra::BoundTrail& bounds = simplex_.bounds();
    if (least ? !bounds.has_upper(o) : !bounds.has_lower(o)) return;
    const lra::BoundRecord& cap = least ? bounds.upper(o) : bounds.lower(o);
    std::vector<lra::Explanation> row_conflict{
        {cap.reason, cap.caller_upper, QNumber(1) / cap.caller_scale}};
    std::vector<const lra::BoundRecord*> at;  // by entry of row_conflict past the cap
    std::vector<QNumber> weight;
    lra::DeltaRational reached;  // o with every variable at its bound
    for (const auto& e : simplex_.tableau().rows().at(o)->entries()) {
        if (e.var == o) continue;
        bool upper = least == (e.coeff.sign() < 0);
        if (upper ? !bounds.has_upper(e.var) : !bounds.has_lower(e.var)) return;
        const lra::BoundRecord& b = upper ? bounds.upper(e.var) : bounds.lower(e.var);
        QNumber w = magnitude(e.coeff);
        row_conflict.push_back({b.reason, b.caller_upper, w / b.caller_scale});
        at.push_back(&b);
        weight.push_back(w);
        lra::DeltaRational term = b.value;
        term *= e.coeff;
        reached += term;
    }
    // How far o may still move towards the cap: any move of |d|·k beyond it is refuted.
    lra::DeltaRational room = cap.value;
    room -= reached;
    if (!least) room *= QNumber(-1);
    if (room.real().sign() < 0) return;
    for (std::size_t i = 0; i < at.size(); ++i) {
        const lra::BoundRecord& b = *at[i];
        std::size_t v =
            b.var < static_cast<int>(problem_var_.size())
                ? static_cast<std::size_t>(problem_var_[static_cast<std::size_t>(b.var)])
                : 0;
        if (v == 0 || !is_int(static_cast<int>(v)) || !lra::is_integral(b.value)) continue;
        QNumber k = lra::floor_of(lra::DeltaRational(room.real() / weight[i])) + QNumber(1);
        if (!(lra::DeltaRational(weight[i] * k) > room)) k += QNumber(1);
        const QNumber& x = b.value.real();
        Fixing f{
            static_cast<int>(v), b.upper ? x - k : x + k - QNumber(1), !b.upper, {}, weight[i]};
        // Worth a split only when the far side is not excluded by the bounds already.
        if (b.upper ? !bounds.has_lower(b.var) || f.below < bounds.lower_value(b.var).real()
                    : !bounds.has_upper(b.var) || !(f.below < bounds.upper_value(b.var).real()))
            continue;
        f.conflict.reserve(row_conflict.size());
        for (std::size_t j = 0; j < row_conflict.size(); ++j)
            if (j != i + 1) f.conflict.push_back(row_conflict[j]);
        fixings_.push_back(std::move(f));
    }
}

// The node (or the last near side of the splits made here) to branch under.
std::size_t MilpSearch::fix_by_reduced_cost(std::size_t node, const QNumber& value) {
    std::size_t current = node;
    for (Fixing& f : fixings_) {
        auto reason = static_cast<lra::Reason>(cutoff_reason_ + 1 + path_.size());
        std::size_t low = add_node(current, f.var, f.below, false, value, QNumber());
        std::size_t high = add_node(current, f.var, f.below, true, value, QNumber());
        ProofStep& split = steps_[nodes_[current].step];
        split.kind = ProofStep::Kind::SplitInt;
        split.var = f.var;
        split.below = f.below;
        split.low = nodes_[low].step;
        split.high = nodes_[high].step;
        nodes_[current].value = value;
        nodes_[current].branched = true;
        path_.push_back(f.far_high ? high : low);
        f.conflict.push_back({reason, !f.far_high, f.far_multiplier});
        close_with_conflict(path_.back(), f.conflict);
        current = f.far_high ? low : high;
        path_.back() = current;
    }
    fixings_.clear();
    return current;
}

}  // namespace vorn::smt

namespace vorn::smt {

// The objective's row at the node's optimum, right after its minimize: o = Σ d·x over non-basic
// variables, each at the bound that its reduced cost pushes it to, so the bounds weighted by |d|
// give o ≥ reached (≤ when maximizing o). With the incumbent's bound that is the leaf of the
// node once the incumbent beats `reached`: closing it later needs no check.
void MilpSearch::save_bound_proof(Node& n) const {
    n.bound_proof.clear();
    int o = objective_var_->var;
    if (approached_here_ || !simplex_.tableau().rows().contains(o)) return;
    bool least = maximize_ == (objective_var_->scale.sign() < 0);
    const lra::BoundTrail& bounds = simplex_.bounds();
    lra::DeltaRational reached;
    std::vector<lra::Explanation> proof;
    for (const auto& e : simplex_.tableau().rows().at(o)->entries()) {
        if (e.var == o) continue;
        bool upper = least == (e.coeff.sign() < 0);
        if (upper ? !bounds.has_upper(e.var) : !bounds.has_lower(e.var)) return;
        const lra::BoundRecord& b = upper ? bounds.upper(e.var) : bounds.lower(e.var);
        proof.push_back({b.reason, b.caller_upper, magnitude(e.coeff) / b.caller_scale});
        lra::DeltaRational term = b.value;
        term *= e.coeff;
        reached += term;
    }
    n.bound_proof = std::move(proof);
    n.reached = reached;
}

// A branched node that cannot beat the incumbent closed by its saved row and the incumbent's
// bound, asserted alone: false when that bound does not refute `reached` (the caller checks).
bool MilpSearch::close_by_row(std::size_t node) {
    Node& n = nodes_[node];
    collect_path(node);
    if (assert_cutoff() != lra::Asserted::Ok) {  // the atoms refute the bound by themselves
        steps_[n.step] = ProofStep();
        close_with_conflict(node);
        n.closed = true;
        return true;
    }
    int o = objective_var_->var;
    bool least = maximize_ == (objective_var_->scale.sign() < 0);
    const lra::BoundTrail& bounds = simplex_.bounds();
    if (least ? !bounds.has_upper(o) : !bounds.has_lower(o)) return false;
    const lra::BoundRecord& cap = least ? bounds.upper(o) : bounds.lower(o);
    if (least ? !(cap.value < n.reached) : !(n.reached < cap.value)) return false;
    std::vector<lra::Explanation> conflict{
        {cap.reason, cap.caller_upper, QNumber(1) / cap.caller_scale}};
    conflict.insert(conflict.end(), n.bound_proof.begin(), n.bound_proof.end());
    steps_[n.step] = ProofStep();
    close_with_conflict(node, conflict);
    n.closed = true;
    n.bound_proof = {};
    return true;
}

}  // namespace vorn::smt
