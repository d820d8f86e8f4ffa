#include "vorn/smt/milp.h"

#include <algorithm>

#include <gmp.h>

#include "vorn/lra/integer_bounds.h"
#include "vorn/smt/model_check.h"

#include "../numbers/gmp_holder.h"
#include "decider.h"
#include "gomory_rounding.h"
#include "milp_search.h"
#include "optimum_atoms.h"

namespace vorn::smt {

namespace {

using Entry = LinearExpr::Entry;
constexpr std::size_t kNone = kNoMilpNode;

QNumber denominator(const QNumber& q) {
    detail::LocalMpq x;
    q.get_mpq(x.get());
    mpz_set(mpq_numref(x.get()), mpq_denref(x.get()));
    mpz_set_ui(mpq_denref(x.get()), 1);
    return QNumber(x.get());
}

}  // namespace

void MilpSearch::enter_atoms() {
    for (int v = 1; v <= p_.variables.size(); ++v)
        if (is_int(v)) rounding_.set_integer(simplex_var(v));
    for (std::size_t i = 0; i < p_.atoms.size(); ++i) {
        const Atom& a = p_.atoms[i];
        auto term = p_.term(a.first_term);
        QNumber c = !term.empty() && term[0].var == 0 ? -term[0].coeff : QNumber();
        if (std::none_of(term.begin(), term.end(), [](const Entry& e) { return e.var != 0; }))
            continue;  // no variable: true, as run() has made sure
        lra::TermVar row = term_var(term);
        if (simplex_.is_slack(row.var)) atom_rows_.push_back(row.var);
        rounding_.assert_term(row, a.relation, c, static_cast<lra::Reason>(i));
    }
    lra::TermEntries entries;
    for (const Entry& e : p_.term(objective_))
        if (e.var == 0)
            objective_constant_ = e.coeff;
        else
            entries.push_back({simplex_var(e.var), e.coeff});
    // The objective's row exists before the first check, which a new row would undo.
    objective_var_ = simplex_.term_variable(entries);
    if (simplex_.is_slack(objective_var_->var)) atom_rows_.push_back(objective_var_->var);
    for (int v = 1; v <= p_.variables.size(); ++v)
        if (is_int(v)) integer_vars_.push_back(simplex_var(v));
    // Pure integer problems: every check repairs as the dual simplex, each node from its parent's
    // basis (milp.h says why not with Real columns).
    dual_ = true;
    for (int v = 1; v <= p_.variables.size(); ++v)
        dual_ = dual_ && is_int(v);
    if (dual_) simplex_.set_dual_guide(objective_var_->var);
    problem_var_.assign(static_cast<std::size_t>(simplex_.num_variables()) + 1, 0);
    for (std::size_t v = 1; v < var_of_.size(); ++v)
        if (var_of_[v] != 0)
            problem_var_[static_cast<std::size_t>(var_of_[v])] = static_cast<int>(v);
    integral_objective_ = std::all_of(entries.begin(), entries.end(),
                                      [&](const auto& e) { return rounding_.is_integer(e.var); });
    // The spacing of an integral objective's values: minus the largest of them below 0.
    if (integral_objective_)
        objective_step_ = -lra::round_integral_bound(entries, Relation::Lt, QNumber())->constant;
}

// The branch bounds from the root to `node`, each named by its depth (reason past the cutoff's).
void MilpSearch::collect_path(std::size_t node) {
    path_.clear();
    for (std::size_t n = node; nodes_[n].parent != kNone; n = nodes_[n].parent)
        path_.push_back(n);
    std::reverse(path_.begin(), path_.end());
}

bool MilpSearch::assert_path(std::size_t node) {
    collect_path(node);
    for (std::size_t d = 0; d < path_.size(); ++d) {
        const Node& n = nodes_[path_[d]];
        auto reason = static_cast<lra::Reason>(cutoff_reason_ + 1 + static_cast<lra::Reason>(d));
        QNumber bound = n.high ? n.below + QNumber(1) : n.below;
        lra::Asserted done = lra::Asserted::Ok;
        if (!n.term.empty()) {  // its row, made again: rows made above level 0 leave on pop
            done = rounding_.assert_term(term_var(n.term), n.high ? Relation::Ge : Relation::Le,
                                         bound, reason);
        } else {
            int s = var_of_[static_cast<std::size_t>(n.var)];
            done = n.high ? simplex_.assert_lower(s, bound, false, reason)
                          : simplex_.assert_upper(s, bound, false, reason);
        }
        if (done != lra::Asserted::Ok) return false;
    }
    return true;
}

lra::Asserted MilpSearch::assert_cutoff() {
    Relation better = incumbent_approached_ ? (maximize_ ? Relation::Ge : Relation::Le)
                                            : (maximize_ ? Relation::Gt : Relation::Lt);
    return rounding_.assert_term(*objective_var_, better, incumbent_ - objective_constant_,
                                 cutoff_reason_);
}

void MilpSearch::close_with_conflict(std::size_t node) {
    close_with_conflict(node, simplex_.conflict());
}

void MilpSearch::close_with_conflict(std::size_t node, std::span<const lra::Explanation> conflict) {
    std::vector<FarkasEntry>& leaf = steps_[nodes_[node].step].farkas;
    for (const lra::Explanation& x : conflict) {
        FarkasEntry e{false, static_cast<std::size_t>(x.reason), x.upper, x.multiplier};
        if (x.reason >= kCutReason) {  // a root cut: its split, above the search's root
            e.from_split = true;
            e.index = cut_steps_[static_cast<std::size_t>(x.reason - kCutReason)];
        } else if (x.reason > cutoff_reason_) {
            // A branch bound: the split above the node at that depth asserts it.
            const Node& at = nodes_[path_[static_cast<std::size_t>(x.reason - cutoff_reason_ - 1)]];
            e.from_split = true;
            e.index = nodes_[at.parent].step;
        }
        leaf.push_back(std::move(e));
    }
}

// The node's relaxation is integral: a better solution. Its leaf is the relaxation with the
// new incumbent's bound, which the relaxation's optimum (the incumbent itself) cannot beat.
MilpSearch::Outcome MilpSearch::accept_incumbent(std::size_t node) {
    incumbent_model_.assign(static_cast<std::size_t>(p_.variables.size()) + 1, QNumber());
    for (std::size_t v = 1; v < var_of_.size(); ++v)
        if (var_of_[v] != 0) incumbent_model_[v] = simplex_.value(var_of_[v]);
    // Strict bounds keep the relaxation's optimum δ away: the incumbent is then its infimum
    // (supremum), which only reaching it exactly beats.
    incumbent_approached_ = approached_here_;
    incumbent_ = incumbent_approached_ ? minimizing(last_value_)
                                       : evaluate(p_.term(objective_), incumbent_model_);
    has_incumbent_ = true;
    lra::Asserted done = assert_cutoff();
    if (done == lra::Asserted::Ok && simplex_.check() != lra::Result::Unsat) {
        failure_ = "the incumbent's bound does not close its node";
        return Outcome::Failed;
    }
    close_with_conflict(node);
    return Outcome::Closed;
}

std::size_t MilpSearch::add_node(std::size_t parent, int var, const QNumber& below, bool high,
                                 const QNumber& value, const QNumber& distance) {
    steps_.emplace_back();
    Node n;
    n.parent = parent;
    n.var = var;
    n.below = below;
    n.high = high;
    n.step = steps_.size() - 1;
    n.parent_value = value;
    n.distance = distance;
    nodes_.push_back(std::move(n));
    return nodes_.size() - 1;
}

MilpSearch::Outcome MilpSearch::branch(std::size_t node, const QNumber& value) {
    collect_fractional();
    if (fractional_.empty()) return accept_incumbent(node);
    std::optional<lra::TermSplit> on_term = unbounded_split();  // of this vertex, before rounding
    // Rounding while there is no incumbent (the first thousand nodes), then now and then.
    if ((!has_incumbent_ && visited_ <= 1000) || (visited_ & (visited_ - 1)) == 0) {
        try_rounding(false);
        try_rounding(true);
    }
    QNumber x;
    int var = 0;
    if (!on_term) {
        measure_by_strong_branching(value);
        var = choose_branch_variable(x);
    }
    node = fix_by_reduced_cost(node, value);
    if (on_term) return branch_on_term(node, value, *on_term);
    QNumber below;
    for (const Fractional& c : fractional_)
        if (c.var == var) below = lra::floor_of(c.value);
    QNumber down = x - below, up = below + QNumber(1) - x;
    std::size_t low = add_node(node, var, below, false, value, down);
    std::size_t high = add_node(node, var, below, true, value, up);
    ProofStep& split = steps_[nodes_[node].step];
    split.kind = ProofStep::Kind::SplitInt;
    split.var = var;
    split.below = below;
    split.low = nodes_[low].step;
    split.high = nodes_[high].step;
    nodes_[node].value = value;
    nodes_[node].branched = true;
    preferred_child_ = up < down ? high : low;
    last_value_ = value;
    return Outcome::Branched;
}

// Whether a relaxation optimum (minimizing) shows that nothing below it beats the incumbent:
// "objective < incumbent", rounded when integral, excludes it.
bool MilpSearch::cannot_beat_incumbent(const QNumber& value) const {
    if (!has_incumbent_) return false;
    if (incumbent_approached_) return minimizing(incumbent_) < value;
    if (!(value < minimizing(incumbent_))) return true;
    if (!integral_objective_) return false;
    // The objective's values lie on a lattice of spacing `objective_step_`.
    return minimizing(incumbent_) - objective_step_ < value;
}

bool MilpSearch::below_closed_node(std::size_t node) const {
    for (std::size_t n = node; n != kNone; n = nodes_[n].parent)
        if (nodes_[n].closed) return true;
    return false;
}

// An open node that cannot beat the incumbent, as its parent's optimum shows: the highest
// ancestor that shows it too becomes a leaf (its relaxation refuted with the incumbent's bound),
// which closes every node below it: by the objective's row saved at its optimum where it has one
// (no pivot: bell5 of MIPLIB 3 spent half its time in these checks), else at the cost of one
// check. False when the check disagrees.
bool MilpSearch::close_by_bound(std::size_t node) {
    std::size_t top = kNone, proven = kNone;
    for (std::size_t n = nodes_[node].parent; n != kNone; n = nodes_[n].parent)
        if (nodes_[n].branched && cannot_beat_incumbent(nodes_[n].value)) {
            top = n;
            if (!nodes_[n].bound_proof.empty()) proven = n;
        }
    if (top == kNone) return false;
    ++visited_;
    simplex_.pop(simplex_.level());
    simplex_.push();
    if (proven != kNone) {
        if (close_by_row(proven)) return true;
        simplex_.pop(simplex_.level());
        simplex_.push();
    }
    bool refuted = !assert_path(top) || assert_cutoff() != lra::Asserted::Ok;
    if (!refuted && dual_) restore_basis(top, false);
    refuted = refuted || simplex_.check() == lra::Result::Unsat;
    if (!refuted) return false;
    ProofStep& step = steps_[nodes_[top].step];
    step = ProofStep();
    close_with_conflict(top);
    nodes_[top].closed = true;
    return true;
}

void MilpSearch::save_basis(Node& n) const {
    int vars = simplex_.num_variables();
    n.basis.clear();
    n.sides.assign(static_cast<std::size_t>(vars) + 1, 0);
    for (int v = 1; v <= vars; ++v)
        if (simplex_.tableau().rows().contains(v))
            n.basis.push_back(v);
        else
            n.sides[static_cast<std::size_t>(v)] = static_cast<signed char>(saved_side(v));
}

// The bound a non-basic variable is to be restored at: the one it sits at, else its lower one
// (else upper). One strictly inside (a strong-branching bound popped under it) would otherwise
// keep whatever value the last node left, and the children's vertices would depend on the order
// of the nodes: on gt2 of MIPLIB 3 a node closed without an exact check (milp_float.cpp) moved
// the next node's vertex and grew the tree from 111 nodes to 1471.
int MilpSearch::saved_side(int var) const {
    if (int side = bound_side(simplex_, var); side != 0) return side;
    if (simplex_.bounds().has_lower(var)) return 1;
    return simplex_.bounds().has_upper(var) ? -1 : 0;
}

// A node starts from the basis of its nearest ancestor that kept one (its parent's, or the
// branched node above reduced-cost fixing's splits): from the previous node's, the bounds of
// another subtree cost hundreds of repairing pivots (mod008 of MIPLIB 3), from the parent's a
// few. Freed once both children have used it; a node closed by bound starts from its own, and
// does not count.
void MilpSearch::restore_basis(std::size_t from, bool child, bool warm) {
    while (from != kNone && nodes_[from].basis.empty())
        from = nodes_[from].parent;
    if (from == kNone) return;
    Node& owner = nodes_[from];
    std::vector<std::pair<int, bool>> at_bound;
    for (std::size_t v = 1; v < owner.sides.size() && warm; ++v)
        if (owner.sides[v] != 0) at_bound.emplace_back(static_cast<int>(v), owner.sides[v] < 0);
    if (warm) simplex_.warm_start(owner.basis, at_bound);
    if (child && ++owner.basis_uses == 2) {
        owner.basis = {};
        owner.sides = {};
    }
}

MilpSearch::Outcome MilpSearch::visit(std::size_t node) {
    ++visited_;
    simplex_.pop(simplex_.level());
    simplex_.push();
    cutoff_asserted_ = has_incumbent_;
    if (!assert_path(node) || (has_incumbent_ && assert_cutoff() != lra::Asserted::Ok)) {
        close_with_conflict(node);
        return Outcome::Closed;
    }
    if (options_.float_nodes && close_by_float_bound(node)) {
        if (dual_) restore_basis(nodes_[node].parent, true, false);  // only counts the use
        return Outcome::Closed;
    }
    if (dual_) restore_basis(nodes_[node].parent, true);
    lra::Result feasible = simplex_.check();
    if (feasible == lra::Result::Unknown) return Outcome::Stopped;
    if (feasible == lra::Result::Unsat) {
        close_with_conflict(node);
        return Outcome::Closed;
    }
    // objective = scale·var + constant: minimizing it minimizes var when the scale is positive.
    bool least = maximize_ == (objective_var_->scale.sign() < 0);
    lra::Optimum best = simplex_.minimize(objective_var_->var, !least);
    if (best.kind == lra::Optimum::Kind::Stopped) return Outcome::Stopped;
    if (best.kind == lra::Optimum::Kind::Unbounded) return Outcome::Unbounded;
    if (simplex_.check() != lra::Result::Sat) {
        failure_ = "the optimal vertex does not check";
        return Outcome::Failed;
    }
    if (node == 0 && options_.root_cut_rounds > 0)
        if (Outcome o = cut_root(best); o != Outcome::Branched) return o;
    QNumber value = minimizing(best.value.real() * objective_var_->scale + objective_constant_);
    approached_here_ = !best.value.delta().is_zero();
    last_value_ = value;
    learn_pseudo_cost(nodes_[node], value);
    collect_fixings();
    save_bound_proof(nodes_[node]);
    if (dual_) save_basis(nodes_[node]);
    return branch(node, value);
}

// A constant objective, or an atom false by itself: the decision procedure answers, with its
// proof when infeasible; any solution is optimal.
Optimization MilpSearch::answer_by_decision() {
    Optimization out;
    Decision d = Decider(p_, options_).check();
    out.stats = d.stats;
    if (d.result == lra::Result::Unsat) {
        out.kind = Optimization::Kind::Infeasible;
        out.proof = std::move(d.proof);
    } else if (d.result == lra::Result::Sat) {
        out.kind = Optimization::Kind::Optimal;
        out.model = std::move(d.model);
        out.optimum = evaluate(p_.term(objective_), out.model);
        copy_atoms(p_, out.bounded, false);
        std::size_t better =
            append_better_atom(p_, objective_, maximize_, out.optimum, out.bounded);
        ProofStep leaf;  // "objective < optimum" is the false constant atom 0 < 0 by itself
        leaf.farkas.push_back({false, better, !maximize_, QNumber(1)});
        out.proof.push_back(std::move(leaf));
    } else {
        out.reason_unknown = d.reason_unknown;
    }
    return out;
}

namespace {

// The proof nodes reachable from the root, renumbered in that order: a split turned into a leaf
// leaves its former children behind.
std::vector<ProofStep> reachable_tree(std::vector<ProofStep>& steps, std::size_t root) {
    std::vector<std::size_t> renumbered(steps.size(), kNone);
    std::vector<std::size_t> order, todo{root};
    while (!todo.empty()) {
        std::size_t n = todo.back();
        todo.pop_back();
        renumbered[n] = order.size();
        order.push_back(n);
        if (steps[n].kind == ProofStep::Kind::SplitInt ||
            steps[n].kind == ProofStep::Kind::SplitCut) {
            todo.push_back(steps[n].high);
            todo.push_back(steps[n].low);
        }
    }
    std::vector<ProofStep> out;
    out.reserve(order.size());
    for (std::size_t n : order) {
        ProofStep& step = out.emplace_back(std::move(steps[n]));
        if (step.kind == ProofStep::Kind::SplitInt || step.kind == ProofStep::Kind::SplitCut) {
            step.low = renumbered[step.low];
            step.high = renumbered[step.high];
        }
        for (FarkasEntry& e : step.farkas)
            if (e.from_split) e.index = renumbered[e.index];
    }
    return out;
}

}  // namespace

// Some relaxation is unbounded, so the root's is, along a rational ray. With rational data the
// integer points have the same recession cone (Meyer): the problem is unbounded as soon as it has
// an integer point, and that point plus any multiple of the ray scaled to integers on the Int
// variables stays integral and feasible.
Optimization MilpSearch::answer_unbounded() {
    Optimization out = answer_by_decision();
    if (out.kind != Optimization::Kind::Optimal) return out;
    Problem relaxed(p_.variables.syntax());
    copy_atoms(p_, relaxed, true);
    LinearExpr e;
    for (const Entry& x : p_.term(objective_))
        e.add_entry(x.var, x.coeff);
    std::uint32_t objective = relaxed.add_term(e);
    Optimization ray = optimize(relaxed, objective, maximize_, options_);
    if (ray.kind != Optimization::Kind::Unbounded) {
        out = Optimization();
        out.reason_unknown = "the relaxation is unbounded, but no ray was found";
        return out;
    }
    QNumber scale(1);
    for (std::size_t v = 1; v < ray.ray.size(); ++v)
        if (is_int(static_cast<int>(v)) && !(ray.ray[v] * scale).is_integer())
            scale *= denominator(ray.ray[v] * scale);
    out.kind = Optimization::Kind::Unbounded;
    out.ray = std::move(ray.ray);
    for (QNumber& r : out.ray)
        r *= scale;
    out.proof.clear();  // the model and the ray are the certificate
    return out;
}

Optimization MilpSearch::finish(Outcome last) {
    Optimization out;
    out.stats.simplex = simplex_.stats();
    out.stats.branch.nodes = visited_;
    out.stats.float_decided = float_closed_;
    if (last == Outcome::Stopped || last == Outcome::Failed) {
        out.reason_unknown = last == Outcome::Failed ? failure_
                             : options_.stop->reason() != util::StopReason::None
                                 ? std::string(util::to_string(options_.stop->reason()))
                                 : std::string("stopped");
        out.incumbent = has_incumbent_ && !incumbent_approached_;
        if (out.incumbent) {
            out.optimum = incumbent_;
            out.model = incumbent_model_;
        }
        // The least bound of the open nodes; none while the root is open.
        std::optional<QNumber> bound;
        for (; !open_.empty(); open_.pop())
            if (!bound || open_.top().key < *bound) bound = open_.top().key;
        if (root_open_) bound.reset();
        if (has_incumbent_ && (!bound || minimizing(incumbent_) < *bound))
            bound = minimizing(incumbent_);
        if (bound) out.bound = minimizing(*bound);
        return out;
    }
    out.proof = reachable_tree(steps_, proof_root_);
    if (!has_incumbent_) {
        out.kind = Optimization::Kind::Infeasible;
        return out;
    }
    if (incumbent_approached_) {
        out.proof.clear();
        out.reason_unknown = "the optimum is approached but not attained (strict bounds)";
        out.approached = true;
        out.optimum = incumbent_;
        out.model = std::move(incumbent_model_);
        return out;
    }
    out.kind = Optimization::Kind::Optimal;
    out.optimum = incumbent_;
    out.model = std::move(incumbent_model_);
    copy_atoms(p_, out.bounded, false);
    append_better_atom(p_, objective_, maximize_, out.optimum, out.bounded);
    return out;
}

Optimization MilpSearch::run() {
    bool constant_objective = true;
    for (const Entry& e : p_.term(objective_))
        constant_objective = constant_objective && e.var == 0;
    const std::vector<QNumber> zero;
    bool constant_false = false;
    for (const Atom& a : p_.atoms) {
        bool any = false;
        for (const Entry& e : p_.term(a.first_term))
            any = any || e.var != 0;
        constant_false = constant_false || (!any && !atom_holds(p_, a, zero));
    }
    if (constant_objective || constant_false) return answer_by_decision();
    simplex_.set_stop(options_.stop);
    cutoff_reason_ = static_cast<lra::Reason>(p_.atoms.size());
    enter_atoms();
    pseudo_.resize(static_cast<std::size_t>(p_.variables.size()) + 1);
    steps_.emplace_back();
    nodes_.emplace_back();
    std::size_t next = 0;
    while (true) {
        if (next == kNone) {
            if (open_.empty()) break;
            next = open_.top().node;
            open_.pop();
        }
        std::size_t node = next;
        next = kNone;
        if (below_closed_node(node)) continue;
        if (cannot_beat_incumbent(nodes_[node].parent_value) && close_by_bound(node)) continue;
        Outcome o = options_.stop->requested() ? Outcome::Stopped : visit(node);
        if (o == Outcome::Unbounded) return answer_unbounded();
        if (o == Outcome::Stopped || o == Outcome::Failed) {
            if (o == Outcome::Stopped) {
                root_open_ = node == 0;
                open_.push({nodes_[node].parent_value, 0, node});
            }
            return finish(o);
        }
        if (o != Outcome::Branched) continue;
        std::size_t depth = path_.size() + 1;
        std::size_t other =
            nodes_[preferred_child_].high ? preferred_child_ - 1 : preferred_child_ + 1;
        open_.push({last_value_, depth, other});
        // Dive while there is nothing to beat or the child is among the best open nodes.
        if (!has_incumbent_ || !(open_.top().key < last_value_))
            next = preferred_child_;
        else
            open_.push({last_value_, depth, preferred_child_});
    }
    return finish(Outcome::Closed);
}

Optimization optimize_integer(const Problem& problem, std::uint32_t objective, bool maximize,
                              const DecideOptions& options) {
    return MilpSearch(problem, objective, maximize, options).run();
}

}  // namespace vorn::smt
