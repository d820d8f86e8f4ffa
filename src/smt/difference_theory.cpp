#include "difference_theory.h"

#include <algorithm>
#include <cassert>
#include <functional>
#include <numeric>
#include <queue>
#include <type_traits>

#include "vorn/lra/integer_bounds.h"

namespace vorn::smt {

namespace {

template <class W, class E>
const W& weight_of(const E& edge) {
    if constexpr (std::is_same_v<W, SmallWeight>)
        return edge.small;
    else
        return edge.weight;
}

}  // namespace

DifferenceTheory::DifferenceTheory(const Problem& problem, bool record)
    : LinearTheory(record), problem_(problem), var_of_{0}, pi_(1), small_pi_(1) {
    out_.emplace_back();
    drop_.emplace_back();
    small_drop_.emplace_back();
    via_.push_back(-1);
}

bool DifferenceTheory::is_difference(std::span<const LinearExpr::Entry> term) {
    std::size_t vars = 0;
    for (const auto& e : term)
        vars += e.var != 0 ? 1 : 0;
    if (vars == 1) return true;
    if (vars != 2) return false;
    const auto& a = term[term.size() - 2];
    const auto& b = term[term.size() - 1];
    return a.coeff == -b.coeff;
}

int DifferenceTheory::node(int v) {
    auto i = static_cast<std::size_t>(v);
    if (node_of_.size() <= i) node_of_.resize(i + 1, 0);
    if (node_of_[i] == 0 && !free_nodes_.empty()) {
        node_of_[i] = free_nodes_.back();
        free_nodes_.pop_back();
        var_of_[static_cast<std::size_t>(node_of_[i])] = v;
    } else if (node_of_[i] == 0) {
        node_of_[i] = static_cast<int>(var_of_.size());
        var_of_.push_back(v);
        pi_.emplace_back();
        small_pi_.emplace_back();
        out_.emplace_back();
        drop_.emplace_back();
        small_drop_.emplace_back();
        via_.push_back(-1);
    }
    return node_of_[i];
}

// term ⋈ c with term = a·(x − y) (y the zero node for a single variable) as an edge.
DifferenceTheory::Edge DifferenceTheory::read(std::span<const LinearExpr::Entry> term,
                                              Relation relation, const QNumber& c, bool integral) {
    QNumber bound = c;
    if (integral)
        if (auto rounded = lra::round_integral_bound(term, relation, c)) {
            relation = rounded->relation;
            bound = rounded->constant;
        }
    const auto& first = term[0];
    int x = node(first.var), y = term.size() == 2 ? node(term[1].var) : 0;
    bool upper = (relation == Relation::Le || relation == Relation::Lt) != (first.coeff.sign() < 0);
    bool strict = relation == Relation::Lt || relation == Relation::Gt;
    QNumber b = bound / first.coeff;  // x − y ≤ b (upper) or x − y ≥ b
    Weight w(upper ? b : -b, QNumber(strict ? -1 : 0));
    return upper ? Edge{y, x, w, {}} : Edge{x, y, w, {}};
}

// The atom's edges as SmallWeights, the graph rescaled first when their denominator is new; π
// exact from now on when they do not fit.
void DifferenceTheory::set_small_weights(Atom& atom) {
    for (const Edge& e : atom.edge) {
        const QNumber& r = e.weight.real();
        if (!small_ || r.is_big() || scale_ % r.den_word() == 0) continue;
        std::int64_t d = r.den_word(), factor = d / std::gcd(scale_, d), scale;
        if (__builtin_mul_overflow(scale_, factor, &scale) || !rescale(factor))
            leave_small();
        else
            scale_ = scale;
    }
    for (Edge& e : atom.edge) {
        if (!small_) return;
        if (auto small = SmallWeight::from(e.weight, scale_))
            e.small = *small;
        else
            leave_small();
    }
}

// Every SmallWeight of the graph `factor` times larger; false, with nothing changed, when one
// would not fit.
bool DifferenceTheory::rescale(std::int64_t factor) {
    auto fits = [&](SmallWeight w) { return w.rescale(factor); };
    for (const SmallWeight& p : small_pi_)
        if (!fits(p)) return false;
    for (const Atom& a : atom_data_)
        if (!fits(a.edge[0].small) || !fits(a.edge[1].small)) return false;
    for (const Active& a : active_)
        if (!fits(a.edge.small)) return false;
    for (SmallWeight& p : small_pi_)
        (void)p.rescale(factor);
    for (Atom& a : atom_data_)
        for (Edge& e : a.edge)
            (void)e.small.rescale(factor);
    for (Active& a : active_)
        (void)a.edge.small.rescale(factor);
    return true;
}

// π moves to exact weights for good: a weight or a sum does not fit in machine integers.
void DifferenceTheory::leave_small() {
    if (!small_) return;
    small_ = false;
    for (std::size_t n = 0; n < small_pi_.size(); ++n)
        pi_[n] = small_pi_[n].exact(scale_);
}

DifferenceTheory::Weight DifferenceTheory::potential(std::size_t n) const {
    return small_ ? small_pi_[n].exact(scale_) : pi_[n];
}

void DifferenceTheory::add_atom(sat::Var var, std::span<const LinearExpr::Entry> term,
                                Relation relation, const QNumber& c) {
    bool integral = true;
    for (const auto& e : term)
        integral = integral && problem_.variables.sort(e.var) == Sort::Int;
    atoms_.push_back({var, relation, {term.begin(), term.end()}, c});
    const QNumber& a = term[0].coeff;
    Atom atom{{read(term, relation, c, integral), read(term, negation(relation), c, integral)},
              QNumber(1) / (a.sign() < 0 ? -a : a),
              0};
    set_small_weights(atom);
    int lo = std::min(atom.edge[0].from, atom.edge[0].to);
    int hi = std::max(atom.edge[0].from, atom.edge[0].to);
    std::uint64_t key = (static_cast<std::uint64_t>(lo) << 32) | static_cast<std::uint32_t>(hi);
    auto [at, made] = pair_index_.try_emplace(key, static_cast<int>(pairs_.size()));
    if (made) pairs_.emplace_back();
    atom.pair = at->second;
    pairs_[static_cast<std::size_t>(atom.pair)].push_back(
        static_cast<std::uint32_t>(atom_data_.size()));
    if (atom_of_.size() <= var) {
        atom_of_.resize(var + 1, -1);
        value_.resize(var + 1, 0);
        position_.resize(var + 1, 0);
        implied_by_.resize(var + 1);
    }
    atom_of_[var] = static_cast<int>(atom_data_.size());
    atom_data_.push_back(std::move(atom));
}

void DifferenceTheory::truncate(sat::Var first) {
    if (atom_of_.size() <= first) return;
    std::size_t kept = atom_data_.size();
    for (sat::Var v = first; v < atom_of_.size(); ++v)
        if (atom_of_[v] >= 0) kept = std::min(kept, static_cast<std::size_t>(atom_of_[v]));
    for (std::size_t i = kept; i < atom_data_.size(); ++i)
        std::erase_if(pairs_[static_cast<std::size_t>(atom_data_[i].pair)],
                      [&](std::uint32_t index) { return index >= kept; });
    atom_data_.resize(kept);
    atoms_.resize(kept);
    for (Active& a : active_)
        if (a.lit != kFact && a.lit.var() >= first) a.lit = kFact;
    atom_of_.resize(first);
    value_.resize(first);
    position_.resize(first);
    implied_by_.resize(first);
}

void DifferenceTheory::truncate_variables(int n) {
    std::vector<char> reached(var_of_.size(), 0);
    for (const Active& a : active_)
        reached[static_cast<std::size_t>(a.edge.from)] =
            reached[static_cast<std::size_t>(a.edge.to)] = 1;
    for (std::size_t i = static_cast<std::size_t>(n) + 1; i < node_of_.size(); ++i) {
        auto x = static_cast<std::size_t>(node_of_[i]);
        if (x == 0) continue;
        var_of_[x] = 0;
        if (!reached[x]) free_nodes_.push_back(static_cast<int>(x));
    }
    node_of_.resize(std::min(node_of_.size(), static_cast<std::size_t>(n) + 1));
}

void DifferenceTheory::retire(sat::Var var) {
    if (is_atom(var)) atom_data_[static_cast<std::size_t>(atom_of_[var])].alive = false;
}

DecideStats DifferenceTheory::stats() const {
    DecideStats s;
    s.simplex.conflicts = conflicts_;
    s.simplex.pivots = relaxations_;
    s.relaxed_literals = relaxed_;
    return s;
}

void DifferenceTheory::new_level() {
    level_start_.push_back(active_.size());
}

void DifferenceTheory::backtrack(int level) {
    auto target = static_cast<std::size_t>(level);
    if (level_start_.size() <= target) return;
    std::size_t keep = level_start_[target];
    while (active_.size() > keep) {
        const Active& a = active_.back();
        value_[a.lit.var()] = 0;
        out_[static_cast<std::size_t>(a.edge.from)].pop_back();
        active_.pop_back();
    }
    level_start_.resize(target);
    propagated_ = std::min(propagated_, keep);
    conflict_ = false;
}

// An atom is decided the way the potential has it: its edge true when π satisfies it.
bool DifferenceTheory::phase(sat::Var v, bool saved) {
    if (!theory_phase_ || !is_atom(v)) return saved;
    const Atom& a = atom_data_[static_cast<std::size_t>(atom_of_[v])];
    if (!a.alive) return saved;
    const Edge& e = a.edge[0];
    auto from = static_cast<std::size_t>(e.from), to = static_cast<std::size_t>(e.to);
    if (small_) {
        SmallWeight slack = small_pi_[from];
        if (slack.add(e.small) && slack.subtract(small_pi_[to])) return slack < SmallWeight();
    }
    Weight slack = potential(from);
    slack += e.weight;
    slack -= potential(to);
    return slack < Weight();
}

void DifferenceTheory::assign(sat::Lit lit) {
    sat::Var v = lit.var();
    if (!is_atom(v)) return;
    const Atom& a = atom_data_[static_cast<std::size_t>(atom_of_[v])];
    if (!a.alive) return;
    value_[v] = lit.negative() ? -1 : 1;
    position_[v] = static_cast<std::uint32_t>(active_.size());
    const Edge& e = a.edge[lit.negative() ? 1 : 0];
    active_.push_back({lit, e});
    out_[static_cast<std::size_t>(e.from)].push_back(
        static_cast<std::uint32_t>(active_.size() - 1));
    if (!conflict_ && !add_edge(lit, e)) {
        conflict_ = true;
        ++conflicts_;
    }
}

// Restores π(to) ≤ π(from) + w for the newest edge by lowering π along shortest paths from
// `to`; false, with the conflict in pending_, when that would lower π(from): a negative cycle.
bool DifferenceTheory::add_edge(sat::Lit, const Edge& e) {
    Search result = Search::Overflow;
    if (small_) result = search(e, small_pi_, small_drop_);
    if (result == Search::Overflow) {
        leave_small();
        result = search(e, pi_, drop_);
    }
    if (result == Search::Cycle) explain_cycle();
    return result != Search::Cycle;
}

// The search of add_edge over potentials `pi` with weights of type W: the cycle, if any, in
// cycle_; Overflow, with `pi` untouched, when a sum does not fit in W.
template <class W>
DifferenceTheory::Search DifferenceTheory::search(const Edge& e, std::vector<W>& pi,
                                                  std::vector<W>& drop) {
    auto from = static_cast<std::size_t>(e.from), to = static_cast<std::size_t>(e.to);
    W start = pi[from];
    if (!add(start, weight_of<W>(e)) || !subtract(start, pi[to])) return Search::Overflow;
    if (start >= W()) return Search::Consistent;
    using Item = std::pair<W, int>;
    auto later = [](const Item& a, const Item& b) { return a.first > b.first; };
    std::priority_queue<Item, std::vector<Item>, decltype(later)> queue(later);
    auto newest = static_cast<int>(active_.size() - 1);
    drop[to] = start;
    via_[to] = newest;
    touched_.assign(1, e.to);
    queue.push({start, e.to});
    W cand;
    bool cycle = false, overflow = false;
    int closing = -1;
    while (!queue.empty() && !cycle && !overflow) {
        auto [d, x] = queue.top();
        queue.pop();
        auto xs = static_cast<std::size_t>(x);
        if (d != drop[xs]) continue;
        ++relaxations_;
        for (std::uint32_t j : out_[xs]) {
            const Edge& f = active_[j].edge;
            auto y = static_cast<std::size_t>(f.to);
            cand = pi[xs];
            if (!add(cand, drop[xs]) || !add(cand, weight_of<W>(f)) || !subtract(cand, pi[y])) {
                overflow = true;
                break;
            }
            if (cand >= W()) continue;
            if (via_[y] >= 0 && !(cand < drop[y])) continue;
            if (y == from) {
                cycle = true;
                closing = static_cast<int>(j);
                break;
            }
            if (via_[y] < 0) touched_.push_back(f.to);
            drop[y] = cand;
            via_[y] = static_cast<int>(j);
            queue.push({cand, f.to});
        }
    }
    if (cycle) {
        cycle_.assign(1, closing);
        for (int j = via_[static_cast<std::size_t>(
                 active_[static_cast<std::size_t>(closing)].edge.from)];
             j != newest;) {
            cycle_.push_back(j);
            j = via_[static_cast<std::size_t>(active_[static_cast<std::size_t>(j)].edge.from)];
        }
        cycle_.push_back(newest);
    } else if (!overflow) {
        // π(n) + drop(n) is π(x) + drop(x) + w of the edge that set drop(n), a sum that fit.
        for (int n : touched_) {
            [[maybe_unused]] bool fits =
                add(pi[static_cast<std::size_t>(n)], drop[static_cast<std::size_t>(n)]);
            assert(fits);
        }
    }
    for (int n : touched_)
        via_[static_cast<std::size_t>(n)] = -1;
    return cycle ? Search::Cycle : overflow ? Search::Overflow : Search::Consistent;
}

// The conflict of the negative cycle in cycle_ (indices into active_). With relax_, an edge's
// literal gives way to the earliest true atom with the same edge direction whose weight, larger
// by less than the cycle's excess (−its weight), keeps the cycle negative: newest edges first.
void DifferenceTheory::explain_cycle() {
    pending_.clear();
    pending_multipliers_.clear();
    Weight excess, loss;
    for (int j : cycle_)
        excess -= active_[static_cast<std::size_t>(j)].edge.weight;
    std::sort(cycle_.begin(), cycle_.end(), std::greater<>());
    for (int j : cycle_) {
        const Active& a = active_[static_cast<std::size_t>(j)];
        if (a.lit == kFact) continue;
        sat::Lit best = a.lit;
        Weight best_loss;
        const Atom& atom = atom_data_[static_cast<std::size_t>(atom_of_[a.lit.var()])];
        for (std::uint32_t other : pairs_[static_cast<std::size_t>(atom.pair)]) {
            if (!relax_) break;
            const Atom& o = atom_data_[other];
            sat::Var ov = atoms_[other].var;
            if (!o.alive || value_[ov] == 0 || position_[ov] >= position_[best.var()]) continue;
            const Edge& e = o.edge[value_[ov] < 0 ? 1 : 0];
            if (e.from != a.edge.from || e.to != a.edge.to) continue;
            loss = e.weight;
            loss -= a.edge.weight;
            if (!(loss < excess)) continue;
            best = sat::Lit(ov, value_[ov] < 0);
            best_loss = loss;
        }
        if (best != a.lit) {
            excess -= best_loss;
            ++relaxed_;
        }
        pending_.push_back(~best);
        pending_multipliers_.push_back(
            atom_data_[static_cast<std::size_t>(atom_of_[best.var()])].unit);
    }
}

void DifferenceTheory::propagate(std::vector<sat::Lit>& implied) {
    if (conflict_) return;
    for (; propagated_ < active_.size(); ++propagated_) {
        const Active& a = active_[propagated_];
        if (a.lit == kFact) continue;
        const Atom& atom = atom_data_[static_cast<std::size_t>(atom_of_[a.lit.var()])];
        for (std::uint32_t other : pairs_[static_cast<std::size_t>(atom.pair)]) {
            const Atom& o = atom_data_[other];
            sat::Var ov = atoms_[other].var;
            if (!o.alive || value_[ov] != 0) continue;
            for (int side = 0; side < 2; ++side) {
                const Edge& f = o.edge[side];
                if (f.from != a.edge.from || f.to != a.edge.to ||
                    (small_ ? f.small < a.edge.small : f.weight < a.edge.weight))
                    continue;
                implied_by_[ov] = a.lit;
                implied.push_back(sat::Lit(ov, side == 1));
                break;
            }
        }
    }
}

void DifferenceTheory::explain(sat::Lit lit, std::vector<sat::Lit>& clause) {
    sat::Lit by = implied_by_[lit.var()];
    clause.assign({lit, ~by});
    if (record_)
        log_lemma(clause, {atom_data_[static_cast<std::size_t>(atom_of_[lit.var()])].unit,
                           atom_data_[static_cast<std::size_t>(atom_of_[by.var()])].unit});
}

bool DifferenceTheory::check(bool full, std::vector<sat::Lit>& conflict) {
    if (conflict_) {
        conflict = pending_;
        log_lemma(conflict, pending_multipliers_);
        return false;
    }
    if (full) take_model();
    return true;
}

// x = π(x) − π(zero) with δ replaced by a rational small enough for every edge: an edge whose
// slack w − (π(to) − π(from)) = r + kδ has r > 0 and k < 0 needs δ ≤ r/−k.
void DifferenceTheory::take_model() {
    QNumber delta(1);
    Weight slack;
    for (const Active& a : active_) {
        slack = a.edge.weight;
        slack -= potential(static_cast<std::size_t>(a.edge.to));
        slack += potential(static_cast<std::size_t>(a.edge.from));
        if (slack.real().sign() > 0 && slack.delta().sign() < 0) {
            QNumber limit = slack.real() / -slack.delta();
            if (limit < delta) delta = limit;
        }
    }
    model_.assign(static_cast<std::size_t>(problem_.variables.size()) + 1, QNumber());
    for (std::size_t n = 1; n < var_of_.size(); ++n) {
        Weight v = potential(n);
        v -= potential(0);
        QNumber value = v.real();
        value.add_product(v.delta(), delta);
        if (var_of_[n] != 0) model_[static_cast<std::size_t>(var_of_[n])] = value;
    }
}

}  // namespace vorn::smt
