#include "vorn/smt/decision.h"

#include "decider.h"
#include "float_start.h"
#include "simplex_vars.h"

#include <algorithm>
#include <limits>
#include <new>
#include <optional>

#include "vorn/smt/model_check.h"

namespace vorn::smt {

namespace {

bool is_disequality(const Atom& atom) {
    return atom.relation == Relation::Ne || atom.relation == Relation::Distinct;
}

// The half of a false constant atom 0 ⋈ c that is a contradiction on its own.
bool false_half_is_upper(Relation r, const QNumber& c) {
    return r == Relation::Le || r == Relation::Lt || (r == Relation::Eq && c.sign() < 0);
}

}  // namespace

int Decider::simplex_var(int v) {
    bool integral = problem_.variables.sort(v) == Sort::Int;
    return map_simplex_var(simplex_, v, integral, simplex_var_, &problem_var_, &free_vars_,
                           [&](int s) {
                               if (integral) branch_.set_integer(s);
                           });
}

void Decider::truncate_variables(int n) {
    forget_simplex_vars(n, simplex_var_, nullptr, free_vars_,
                        [&](int v) { return problem_.variables.sort(v) == Sort::Int; });
}

const lra::TermEntries& Decider::simplex_term(std::span<const Entry> entries) {
    scratch_.clear();
    for (const Entry& e : entries)
        if (e.var != 0) scratch_.push_back({simplex_var(e.var), e.coeff});
    return scratch_;
}

Decider::Decider(const Problem& problem, const DecideOptions& options)
    : problem_(problem),
      options_(options),
      branch_(simplex_, lra::BranchOptions{options.bb_limit}) {
    simplex_.set_stop(options.stop);
}

void Decider::set_options(const DecideOptions& options) {
    options_ = options;
    simplex_.set_stop(options.stop);
}

void Decider::push() {
    push(problem_.atoms.size());
}

void Decider::push(std::size_t atoms) {
    for (; entered_ < atoms; ++entered_)
        enter_atom(entered_);
    levels_.push_back({entered_, diseqs_.size(), integral_atoms_});
    simplex_.push();
}

void Decider::pop(std::size_t n) {
    if (n == 0) return;
    Level level = levels_[levels_.size() - n];
    levels_.resize(levels_.size() - n);
    simplex_.pop(n);
    entered_ = level.atoms;
    diseqs_.resize(level.disequalities);
    integral_atoms_ = level.integral_atoms;
    if (false_atom_ && *false_atom_ >= entered_) false_atom_.reset();
}

void Decider::enter_atoms() {
    for (; entered_ < problem_.atoms.size(); ++entered_)
        enter_atom(entered_);
}

// A bound for an atom that is not a disequality. After a conflict the simplex ignores further
// bounds until the conflict's level is popped, and so do the atoms entered meanwhile: they lie
// on that level or above it.
void Decider::enter_atom(std::size_t i) {
    const Atom& atom = problem_.atoms[i];
    bool integral = false;
    for (std::uint32_t t = 0; t < atom.terms; ++t)
        for (const Entry& e : problem_.term(atom.first_term + t))
            if (e.var != 0) {
                simplex_var(e.var);
                integral = integral || problem_.variables.sort(e.var) == Sort::Int;
            }
    if (integral) ++integral_atoms_;
    if (is_disequality(atom)) {
        diseqs_.push_back(i);
        return;
    }
    auto term = problem_.term(atom.first_term);
    QNumber c = !term.empty() && term[0].var == 0 ? -term[0].coeff : QNumber();
    const lra::TermEntries& entries = simplex_term(term);
    if (entries.empty()) {
        if (!relation_holds(atom.relation, -c.sign()) && !false_atom_) false_atom_ = i;
        return;
    }
    lra::TermVar tv = simplex_.term_variable(entries);
    branch_.assert_term(tv, atom.relation, c, static_cast<lra::Reason>(i));
}

Decision Decider::check() {
    enter_atoms();
    DecideStats before = stats();
    proof_.clear();
    stack_.clear();
    split_vars_.clear();
    model_.clear();
    Decision d;
    bool integral = integral_atoms_ > 0;
    budget_ =
        options_.bb_limit == 0 ? std::numeric_limits<std::uint64_t>::max() : options_.bb_limit;
    if (false_atom_) {
        const Atom& atom = problem_.atoms[*false_atom_];
        auto term = problem_.term(atom.first_term);
        QNumber c = !term.empty() && term[0].var == 0 ? -term[0].coeff : QNumber();
        proof_.assign(1, ProofStep{});
        proof_[0].farkas.push_back(
            {false, *false_atom_, false_half_is_upper(atom.relation, c), QNumber(1)});
        d.result = Result::Unsat;
    } else if (integral && lattice_decides(d.result)) {
        // Decided by the integer equalities alone.
    } else {
        std::size_t base = simplex_.level();
        if (integral || !float_start(d.result)) d.result = integral ? search() : search_convex();
        simplex_.pop(simplex_.level() - base);  // the splits' levels
    }
    if (d.result == Result::Sat) d.model = std::move(model_);
    if (d.result == Result::Unsat) d.proof = std::move(proof_);
    if (d.result == Result::Unknown)
        d.reason_unknown = stopped()  ? std::string(util::to_string(options_.stop->reason()))
                           : integral ? "branch and bound node limit"
                                      : "disequalities: no repair step found";
    d.stats = stats() - before;
    return d;
}

bool Decider::float_start(Result& result) {
    // Below this many atoms the exact simplex is as fast as the floating-point solve.
    constexpr std::size_t kFloatStartAtoms = 100;
    if (!options_.float_start || simplex_.stats().checks != 0 || !diseqs_.empty() ||
        problem_.atoms.size() < kFloatStartAtoms)
        return false;
    auto lp = lp_form(problem_, std::nullopt, false);
    if (!lp || lp->rows.empty()) return false;
    auto basis = float_basis(problem_, *lp, options_.stop, true);
    if (!basis) return false;
    std::string why;
    if (auto answer = decide_by_basis(problem_, *lp, *basis, options_.stop, why)) {
        ++float_decided_;
        if (answer->feasible) {
            model_ = std::move(answer->model);
            result = Result::Sat;
        } else {
            proof_.assign(1, ProofStep{});
            proof_[0].farkas = std::move(answer->farkas);
            result = Result::Unsat;
        }
        return true;
    }
    if (stopped()) return false;
    warm_start(simplex_, problem_, *lp, *basis, simplex_var_, {});
    return false;
}

Decider::Result Decider::search() {
    std::size_t node = new_node();
    bool unknown = false;
    for (;;) {
        Result r = check_node(node);
        if (r == Result::Sat) {
            std::vector<QNumber> model = current_model();
            std::optional<SplitTerm> s = violated_disequality(model);
            if (!s) {
                model_ = std::move(model);
                return Result::Sat;
            }
            if (make_split(node, std::move(*s))) {
                stack_.push_back({node, false});
                simplex_.push();
                node = new_node();
                proof_[stack_.back().node].low = node;
                assert_split(stack_.back().node, false);
                continue;
            }
        }
        // A vertex that only a split on a term cuts off goes to the Boolean search at once.
        if (r == Result::Unknown && (stopped() || branch_.wants_term_split())) return r;
        if (r == Result::Unknown) unknown = true;
        for (;;) {  // backtrack to the next open high side
            if (stack_.empty()) return unknown ? Result::Unknown : Result::Unsat;
            Frame& f = stack_.back();
            simplex_.pop();
            if (!f.high) {
                f.high = true;
                simplex_.push();
                node = new_node();
                proof_[f.node].high = node;
                assert_split(f.node, true);
                break;
            }
            stack_.pop_back();
        }
    }
}

// Branch and bound gets what is left of the check's node budget, so that the limit bounds the
// whole check however many disequality splits it makes.
Decider::Result Decider::check_node(std::size_t node) {
    if (integral_atoms_ > 0) {
        if (budget_ == 0) return Result::Unknown;
        branch_.set_options(lra::BranchOptions{budget_, hand_off_});
        std::uint64_t before = branch_.stats().nodes;
        Result r = branch_.check();
        budget_ -= std::min(budget_, branch_.stats().nodes - before);
        if (r == Result::Unsat) copy_branch_proof(node);
        return r;
    }
    Result r = simplex_.check();
    if (r == Result::Unsat)
        for (const lra::Explanation& e : simplex_.conflict())
            proof_[node].farkas.push_back(translate(e, {}));
    return r;
}

// Without Int variables the other atoms describe a convex set P, and each disequality t ≠ c
// removes one hyperplane. A finite union of hyperplanes, none containing P, cannot cover P; so
// the atoms are satisfiable exactly when P meets a side (t < c or t > c) of every disequality
// (P is convex with strict bounds too). The search repairs a point q of P one violated disequality
// at a time: it finds a point p of P with t ≠ c and moves q a step s toward p, s chosen so that no
// satisfied disequality breaks (each forbids at most one s). Every step satisfies one more, so each
// step decides one split instead of exploring a tree of them.
Decider::Result Decider::search_convex() {
    std::size_t root = new_node();
    Result r = check_node(root);
    if (r != Result::Sat) return r;
    std::vector<QNumber> q = current_model(), p;
    for (;;) {
        std::optional<SplitTerm> s = violated_disequality(q);
        if (!s) {
            model_ = std::move(q);
            return Result::Sat;
        }
        proof_.assign(1, ProofStep{});
        if (!make_split(root, std::move(*s))) return Result::Unsat;
        if (Result side = point_beside(root, p); side != Result::Sat) return side;
        if (!move_toward(q, p)) return Result::Unknown;
    }
}

Decider::Result Decider::point_beside(std::size_t root, std::vector<QNumber>& point) {
    stack_.assign(1, {root, false});
    for (bool high : {false, true}) {
        simplex_.push();
        std::size_t side = new_node();
        (high ? proof_[root].high : proof_[root].low) = side;
        stack_.back().high = high;
        assert_split(root, high);
        Result r = check_node(side);
        if (r == Result::Sat) point = current_model();
        simplex_.pop();
        if (r != Result::Unsat) return r;
    }
    return Result::Unsat;
}

bool Decider::move_toward(std::vector<QNumber>& q, const std::vector<QNumber>& p) {
    constexpr int kTries = 1000;
    std::size_t before = violations(q);
    std::vector<QNumber> next(q.size());
    for (int k = 1; k <= kTries; ++k) {
        QNumber step(1, k);
        for (std::size_t v = 1; v < q.size(); ++v) {
            next[v] = q[v];
            next[v].add_product(step, p[v] - q[v]);
        }
        if (violations(next) < before) {
            q.swap(next);
            return true;
        }
    }
    return false;
}

// Violated disequalities, a distinct counting its terms minus its distinct values.
std::size_t Decider::violations(const std::vector<QNumber>& point) const {
    std::size_t count = 0;
    std::vector<QNumber> values;
    for (std::size_t i : diseqs_) {
        const Atom& atom = problem_.atoms[i];
        if (atom.relation == Relation::Ne) {
            count += evaluate(problem_.term(atom.first_term), point).is_zero() ? 1 : 0;
            continue;
        }
        values.clear();
        for (std::uint32_t t = 0; t < atom.terms; ++t)
            values.push_back(evaluate(problem_.term(atom.first_term + t), point));
        std::sort(values.begin(), values.end());
        count += static_cast<std::size_t>(values.end() - std::unique(values.begin(), values.end()));
    }
    return count;
}

// The first disequality (in the order of the atoms) that the model makes an equality.
std::optional<Decider::SplitTerm> Decider::violated_disequality(
    const std::vector<QNumber>& point) const {
    std::vector<std::pair<QNumber, std::uint32_t>> values;
    for (std::size_t i : diseqs_) {
        const Atom& atom = problem_.atoms[i];
        if (atom.relation == Relation::Ne) {
            auto term = problem_.term(atom.first_term);
            if (!evaluate(term, point).is_zero()) continue;
            SplitTerm s{i, 0, 0, {}, QNumber()};
            s.constant = problem_.disequality(atom, 0, 0, s.term);
            return s;
        }
        values.clear();
        for (std::uint32_t t = 0; t < atom.terms; ++t)
            values.emplace_back(evaluate(problem_.term(atom.first_term + t), point), t);
        std::sort(values.begin(), values.end());
        for (std::size_t k = 0; k + 1 < values.size(); ++k) {
            if (values[k].first != values[k + 1].first) continue;
            std::uint32_t a = std::min(values[k].second, values[k + 1].second);
            std::uint32_t b = std::max(values[k].second, values[k + 1].second);
            SplitTerm s{i, a, b, {}, QNumber()};
            s.constant = problem_.disequality(atom, a, b, s.term);
            return s;
        }
    }
    return std::nullopt;
}

bool Decider::make_split(std::size_t node, SplitTerm s) {
    ++splits_;
    ProofStep& step = proof_[node];
    step.kind = ProofStep::Kind::SplitNe;
    step.atom = s.atom;
    step.first = s.first;
    step.second = s.second;
    step.term = std::move(s.term);
    step.constant = std::move(s.constant);
    if (split_vars_.size() <= node) split_vars_.resize(node + 1);
    if (!step.term.empty()) {
        split_vars_[node] = simplex_.term_variable(simplex_term(step.term));
        return true;
    }
    // 0 ≠ 0: each side, 0 < 0 and 0 > 0, contradicts itself.
    for (bool high : {false, true}) {
        std::size_t leaf = new_node();
        (high ? proof_[node].high : proof_[node].low) = leaf;
        proof_[leaf].farkas.push_back({true, node, !high, QNumber(1)});
    }
    return false;
}

// The bound of split `node` on one side; its reason names the split by its depth on the stack.
void Decider::assert_split(std::size_t node, bool high) {
    lra::Reason reason = static_cast<lra::Reason>(problem_.atoms.size() + stack_.size() - 1);
    // Over Int variables the side is rounded (t < c to t ≤ ⌈c⌉ − 1), as bounds of atoms are.
    branch_.assert_term(split_vars_[node], high ? lra::Relation::Gt : lra::Relation::Lt,
                        proof_[node].constant, reason);
}

FarkasEntry Decider::translate(const lra::Explanation& e,
                               const std::vector<std::size_t>& branch_path) {
    FarkasEntry out{false, 0, e.upper, e.multiplier};
    const auto atoms = static_cast<lra::Reason>(problem_.atoms.size());
    if (e.reason < 0) {
        out.from_split = true;
        out.index = branch_path[static_cast<std::size_t>(-e.reason - 1)];
    } else if (e.reason >= atoms) {
        out.from_split = true;
        out.index = stack_[static_cast<std::size_t>(e.reason - atoms)].node;
    } else {
        out.index = static_cast<std::size_t>(e.reason);
    }
    return out;
}

// Grafts the proof of BranchAndBound at `node`; its branch bounds are named by their depth on the
// branch path, which the walk keeps.
void Decider::copy_branch_proof(std::size_t node) {
    const std::vector<lra::ProofNode>& from = branch_.proof();
    struct Todo {
        std::size_t from, to, depth;
    };
    std::vector<Todo> todo{{0, node, 0}};
    std::vector<std::size_t> path;  // the split nodes above the current one, by depth
    while (!todo.empty()) {
        Todo t = todo.back();
        todo.pop_back();
        path.resize(t.depth);
        const lra::ProofNode& p = from[t.from];
        switch (p.kind) {
            case lra::ProofNode::Kind::Split: {
                std::size_t low = new_node(), high = new_node();
                ProofStep& step = proof_[t.to];
                step.kind = ProofStep::Kind::SplitInt;
                step.var = problem_var_[p.var];
                step.below = p.below;
                step.low = low;
                step.high = high;
                path.push_back(t.to);
                todo.push_back({p.high, high, t.depth + 1});
                todo.push_back({p.low, low, t.depth + 1});
                break;
            }
            case lra::ProofNode::Kind::Farkas:
                for (const lra::Explanation& e : p.farkas)
                    proof_[t.to].farkas.push_back(translate(e, path));
                break;
            case lra::ProofNode::Kind::Gcd:
                proof_[t.to].kind = ProofStep::Kind::Gcd;
                proof_[t.to].atom = static_cast<std::size_t>(p.reason);
                proof_[t.to].gcd = p.gcd;
                break;
        }
    }
}

// Without atoms over Int variables nothing branched, and an Int variable that only popped atoms
// mentioned may hold a fraction; no atom constrains it now, so 0 does as well.
std::vector<QNumber> Decider::current_model() const {
    std::vector<QNumber> model(static_cast<std::size_t>(problem_.variables.size()) + 1);
    bool integral = integral_atoms_ > 0;
    for (std::size_t v = 1; v < simplex_var_.size(); ++v)
        if (simplex_var_[v] != 0 &&
            (integral || problem_.variables.sort(static_cast<int>(v)) != Sort::Int))
            model[v] = simplex_.value(simplex_var_[v]);
    return model;
}

namespace {

// apply(a.c, b.c) for each of the `counters` of a Stats struct.
template <typename Stats, typename Apply, typename... Counter>
void apply_each(Stats& a, const Stats& b, Apply& apply, Counter Stats::*... counters) {
    (apply(a.*counters, b.*counters), ...);
}

// Every counter of DecideStats that adds up, each paired with the same counter of `b`: a counter
// added to DecideStats, or to the engine stats it holds, is named here and nowhere else.
// branch.max_depth and sat.learned_max are maxima, not sums, and stay out.
template <typename Apply>
void for_each_sum(DecideStats& a, const DecideStats& b, Apply apply) {
    using S = lra::SimplexStats;
    using B = lra::BranchStats;
    using T = sat::Stats;
    using D = DecideStats;
    apply_each(a.simplex, b.simplex, apply, &S::checks, &S::pivots, &S::bland_switches,
               &S::conflicts, &S::eliminated, &S::restored, &S::check_seconds);
    apply_each(a.branch, b.branch, apply, &B::nodes, &B::gcd_conflicts, &B::cube_models,
               &B::seconds);
    apply_each(a, b, apply, &D::splits, &D::cuts, &D::lattice_splits, &D::float_decided,
               &D::relaxed_literals);
    apply_each(a.sat, b.sat, apply, &T::decisions, &T::propagations, &T::theory_propagations,
               &T::conflicts, &T::restarts, &T::learned, &T::learned_literals, &T::deleted);
}

}  // namespace

DecideStats& DecideStats::operator+=(const DecideStats& o) {
    for_each_sum(*this, o, [](auto& x, const auto& y) { x += y; });
    branch.max_depth = std::max(branch.max_depth, o.branch.max_depth);
    sat.learned_max = std::max(sat.learned_max, o.sat.learned_max);
    return *this;
}

DecideStats DecideStats::operator-(const DecideStats& o) const {
    DecideStats d = *this;
    for_each_sum(d, o, [](auto& x, const auto& y) { x -= y; });
    return d;
}

static bool is_unknown(const Decision& d) {
    return d.result == lra::Result::Unknown;
}

Decision decide(const Problem& problem, const DecideOptions& options) {
    return under_stop(options, [&](const DecideOptions& o) { return Decider(problem, o).check(); });
}

}  // namespace vorn::smt
