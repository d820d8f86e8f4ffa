// Branch and bound: Gomory mixed-integer cuts at the root, each stated in the proof tree as a cut
// split (the cut's negation | the cut) whose negated side is its derivation.
//
// The row of a basic Int variable x_b reads x_b = Σ aⱼ·xⱼ over non-basic xⱼ, each at a bound βⱼ
// (of an atom or an earlier cut). With tⱼ = σⱼ·(xⱼ − βⱼ) ≥ 0 (σⱼ = 1 at a lower bound, −1 at an
// upper one) and a'ⱼ = σⱼ·aⱼ it is x_b = x* + Σ a'ⱼ·tⱼ, f₀ = x* − ⌊x*⌋ > 0. Over the integral tⱼ
// take rⱼ = ⌊a'ⱼ⌋ (⌈a'ⱼ⌉ when frac(a'ⱼ) > f₀) and gⱼ = a'ⱼ − rⱼ, over the others gⱼ = a'ⱼ; then
// s = x_b − Σ rⱼ·tⱼ has integer coefficients over Int variables and s − ⌊x*⌋ = f₀ + Σ gⱼ·tⱼ.
// The cut Σ cⱼ·tⱼ ≥ 1, cⱼ = max(gⱼ/(1 − f₀), −gⱼ/f₀), cuts the vertex (every tⱼ = 0) off.
// Its derivation is a split on s ≤ ⌊x*⌋ (the other side, s > ⌊x*⌋, counts rounded: s ≥ ⌊x*⌋ + 1)
// with a Farkas leaf on each side: (1/f₀)·(⌊x*⌋ − s) or (1/(1 − f₀))·(s − ⌊x*⌋ − 1), the negated
// cut, and (cⱼ ± gⱼ/f)·tⱼ cancel to 0 < 0 (src/smt/gomory_cut.cpp does the same in the CDCL
// search, as lemmas). The cuts then stay asserted at level 0: every node's relaxation carries
// them, and a leaf that uses one names the cut split, its ancestor.
//
// Rounds: cuts from the rows of the most fractional basic Int variables, the relaxation solved
// again, while the bound moves. Cuts with big numbers or long rows are left out: every node pays
// for each row the relaxation carries.

#include <algorithm>

#include "vorn/lra/integer_bounds.h"

#include "gomory_rounding.h"
#include "milp_search.h"

namespace vorn::smt {

bool MilpSearch::integral_simplex_var(int var) const {
    auto integral_structural = [&](int s) {
        std::size_t v = s < static_cast<int>(problem_var_.size())
                            ? static_cast<std::size_t>(problem_var_[static_cast<std::size_t>(s)])
                            : 0;
        return v != 0 && is_int(static_cast<int>(v));
    };
    if (!simplex_.is_slack(var)) return integral_structural(var);
    auto term = simplex_.slack_term(var);
    return std::all_of(term.begin(), term.end(), [&](const auto& e) {
        return e.coeff.is_integer() && integral_structural(e.var);
    });
}

void MilpSearch::expand(int var, const QNumber& factor, std::vector<QNumber>& into) const {
    if (!simplex_.is_slack(var)) {
        into[static_cast<std::size_t>(problem_var_[static_cast<std::size_t>(var)])] += factor;
        return;
    }
    for (const auto& e : simplex_.slack_term(var))
        into[static_cast<std::size_t>(problem_var_[static_cast<std::size_t>(e.var)])] +=
            factor * e.coeff;
}

FarkasEntry MilpSearch::bound_entry(const lra::BoundRecord& b, const QNumber& multiplier) const {
    FarkasEntry e{false, static_cast<std::size_t>(b.reason), b.caller_upper,
                  multiplier / b.caller_scale};
    if (b.reason >= kCutReason) {
        e.from_split = true;
        e.index = cut_steps_[static_cast<std::size_t>(b.reason - kCutReason)];
    }
    return e;
}

bool MilpSearch::gomory_cut(int basic, RootCut& out) const {
    struct Entry {
        const lra::BoundRecord* bound;
        int var;
        int sigma;
        bool integral;
        QNumber a, g, c;
    };
    const la::Equation& row = *simplex_.tableau().rows().at(basic);
    QNumber basic_coeff = *row.coeff_of(basic);
    std::vector<Entry> entries;
    for (const auto& e : row.entries()) {
        if (e.var == basic) continue;
        EntryAtBound at = entry_at_bound(simplex_, e.var, e.coeff, basic_coeff);
        if (at.sigma == 0) return false;
        const lra::BoundRecord& b = *at.bound;
        bool from_atom = b.reason < static_cast<lra::Reason>(p_.atoms.size());
        if ((!from_atom && b.reason < kCutReason) || !b.value.delta().is_zero() ||
            (!simplex_.is_slack(e.var) && (static_cast<std::size_t>(e.var) >= problem_var_.size() ||
                                           problem_var_[static_cast<std::size_t>(e.var)] == 0)))
            return false;
        bool integral = b.value.real().is_integer() && integral_simplex_var(e.var);
        entries.push_back({&b, e.var, at.sigma, integral, std::move(at.a), {}, {}});
    }
    if (entries.size() > kCutRowLimit) return false;
    const QNumber& x = simplex_.delta_value(basic).real();
    QNumber k = floor_q(x);
    QNumber f0 = x - k, f1 = QNumber(1) - f0;
    std::size_t n = static_cast<std::size_t>(p_.variables.size()) + 1;
    std::vector<QNumber> split(n), cut(n);
    expand(basic, QNumber(1), split);
    QNumber split_constant = k, cut_constant(1);
    for (Entry& en : entries) {
        const QNumber& beta = en.bound->value.real();
        GomoryTerm t = gomory_term(en.a, en.integral, f0, f1);
        if (!t.r.is_zero()) {  // s = x_b − Σ rⱼ·σⱼ·(xⱼ − βⱼ)
            QNumber rs = en.sigma > 0 ? -t.r : t.r;
            expand(en.var, rs, split);
            split_constant += rs * beta;
        }
        en.g = std::move(t.g);
        en.c = std::move(t.c);
        if (en.g.is_zero()) continue;
        QNumber cs = en.sigma > 0 ? en.c : -en.c;
        expand(en.var, cs, cut);
        cut_constant += cs * beta;
    }
    auto collect = [&](const std::vector<QNumber>& coeffs, LinearExpr::Entries& into) {
        for (std::size_t v = 1; v < coeffs.size(); ++v) {
            if (coeffs[v].is_zero()) continue;
            if (coeffs[v].is_big()) return false;
            into.push_back({static_cast<int>(v), coeffs[v]});
        }
        return !into.empty();
    };
    out = RootCut();
    if (!collect(split, out.split) || !collect(cut, out.cut) || split_constant.is_big() ||
        cut_constant.is_big())
        return false;
    out.split_constant = std::move(split_constant);
    out.cut_constant = std::move(cut_constant);
    // Both sides: s ≤ k with 1/f₀ and (cⱼ + gⱼ/f₀)·tⱼ; s ≥ k + 1 with 1/f₀ and (cⱼ − gⱼ/f₁)·tⱼ.
    out.split_low = QNumber(1) / f0;
    out.split_high = QNumber(1) / f1;
    for (const Entry& en : entries) {
        if (en.g.is_zero() && en.c.is_zero()) continue;
        QNumber low = en.c + en.g / f0, high = en.c - en.g / f1;
        if (!low.is_zero()) out.low_side.push_back(bound_entry(*en.bound, low));
        if (!high.is_zero()) out.high_side.push_back(bound_entry(*en.bound, high));
    }
    return true;
}

// The cut into the proof, at the bottom of the chain of cut splits above the search's root.
void MilpSearch::add_root_cut(RootCut& c) {
    std::size_t at = steps_.size();
    steps_.resize(at + 4);
    ProofStep& cut = steps_[at];
    cut.kind = ProofStep::Kind::SplitCut;
    cut.relation = Relation::Ge;
    cut.term = c.cut;
    cut.constant = c.cut_constant;
    cut.low = at + 1;
    cut.high = 0;  // the search's root
    if (cut_steps_.empty())
        proof_root_ = at;
    else
        steps_[cut_steps_.back()].high = at;
    cut_steps_.push_back(at);
    ProofStep& split = steps_[at + 1];
    split.kind = ProofStep::Kind::SplitCut;
    split.relation = Relation::Le;
    split.term = c.split;
    split.constant = c.split_constant;
    split.low = at + 2;                               // s > k, rounded to s ≥ k + 1
    split.high = at + 3;                              // s ≤ k
    FarkasEntry negated{true, at, true, c.negation};  // the cut's negation: term < constant
    steps_[at + 2].farkas = std::move(c.high_side);
    steps_[at + 2].farkas.push_back(negated);
    steps_[at + 2].farkas.push_back({true, at + 1, false, c.split_high});
    steps_[at + 3].farkas = std::move(c.low_side);
    steps_[at + 3].farkas.push_back(negated);
    steps_[at + 3].farkas.push_back({true, at + 1, true, c.split_low});
}

// The relaxation at the root (at push level 1) solved again after new cuts: Branched, or how the
// search ends.
MilpSearch::Outcome MilpSearch::resolve_root(lra::Optimum& best) {
    bool least = maximize_ == (objective_var_->scale.sign() < 0);
    lra::Result feasible = simplex_.check();
    if (feasible == lra::Result::Unknown) return Outcome::Stopped;
    if (feasible == lra::Result::Unsat) {
        close_with_conflict(0);
        return Outcome::Closed;
    }
    best = simplex_.minimize(objective_var_->var, !least);
    if (best.kind == lra::Optimum::Kind::Stopped) return Outcome::Stopped;
    if (best.kind == lra::Optimum::Kind::Unbounded) return Outcome::Unbounded;
    if (simplex_.check() != lra::Result::Sat) {
        failure_ = "the optimal vertex does not check";
        return Outcome::Failed;
    }
    return Outcome::Branched;
}

// Rounds of cuts at the root, whose relaxation `best` is solved again after each, while the bound
// moves. The cuts are tried at the root's push level; those binding at the last optimum are then
// made again at level 0, for every node, and the others leave the tableau (they would only make
// every pivot dearer). None is kept when the bound moved by 1 % of itself or less (bell5: 0.8 %,
// then 14 s instead of over 60 s with them). Branched to go on with the search (best then the
// optimum with the cuts kept), or how the search ends.
MilpSearch::Outcome MilpSearch::cut_root(lra::Optimum& best) {
    const lra::DeltaRational initial = best.value;
    std::vector<lra::TermVar> made;  // by cut
    for (int round = 0; round < options_.root_cut_rounds; ++round) {
        std::vector<std::pair<QNumber, int>> candidates;
        for (std::size_t v = 1; v < var_of_.size(); ++v) {
            int s = var_of_[v];
            if (s == 0 || !is_int(static_cast<int>(v)) || !simplex_.tableau().rows().contains(s))
                continue;
            const lra::DeltaRational& x = simplex_.delta_value(s);
            if (!x.delta().is_zero() || x.real().is_integer()) continue;
            QNumber f = x.real() - floor_q(x.real()) - QNumber(1, 2);
            candidates.emplace_back(f.sign() < 0 ? -f : f, s);
        }
        std::sort(candidates.begin(), candidates.end(),
                  [](const auto& a, const auto& b) { return a.first < b.first; });
        std::vector<RootCut> cuts;
        mir_cuts(cuts);
        for (const auto& [distance, s] : candidates) {
            if (cuts.size() >= kCutsPerRound) break;
            RootCut c;
            if (gomory_cut(s, c)) cuts.push_back(std::move(c));
        }
        if (cuts.empty()) break;
        for (RootCut& c : cuts) {
            add_root_cut(c);
            made.push_back(term_var(c.cut));
            rounding_.assert_term(made.back(), Relation::Ge, c.cut_constant,
                                  kCutReason + static_cast<lra::Reason>(made.size() - 1));
        }
        lra::DeltaRational before = best.value;
        if (Outcome o = resolve_root(best); o != Outcome::Branched) return o;
        if (best.value == before) break;  // the bound does not move
    }
    if (made.empty()) return Outcome::Branched;
    std::vector<std::size_t> kept;
    // Kept only when the bound moved by more than kCutGainPercent of itself.
    QNumber gain = best.value.real() - initial.real(), bound = initial.real();
    if (gain.sign() < 0) gain = -gain;
    if (bound.sign() < 0) bound = -bound;
    bool moved = gain * QNumber(100) > bound * QNumber(kCutGainPercent);
    for (std::size_t i = 0; i < made.size() && moved; ++i)
        if (bound_side(simplex_, made[i].var) != 0) kept.push_back(i);  // binding
    simplex_.pop(simplex_.level());
    for (std::size_t i : kept) {
        const ProofStep& cut = steps_[cut_steps_[i]];
        rounding_.assert_term(term_var(cut.term), Relation::Ge, cut.constant,
                              kCutReason + static_cast<lra::Reason>(i));
    }
    simplex_.push();
    return resolve_root(best);
}

}  // namespace vorn::smt
