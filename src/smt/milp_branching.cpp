// Branch and bound: the choice of the branching variable and the rounding heuristic.

#include <algorithm>
#include <cmath>

#include <gmp.h>

#include "vorn/lra/integer_bounds.h"
#include "vorn/smt/model_check.h"

#include "milp_search.h"

namespace vorn::smt {

namespace {

// Branching scores only: rounding does not matter.
double to_double(const QNumber& q) {
    mpq_t x;
    mpq_init(x);
    q.get_mpq(x);
    double d = mpq_get_d(x);
    mpq_clear(x);
    return d;
}

}  // namespace

void MilpSearch::learn_pseudo_cost(const Node& n, const QNumber& value) {
    if (n.parent == kNoMilpNode || n.distance.sign() <= 0) return;
    PseudoCost& pc = pseudo_[static_cast<std::size_t>(n.var)];
    int side = n.high ? 1 : 0;
    pc.sum[side] += to_double((value - n.parent_value) / n.distance);
    ++pc.count[side];
}

// The fractional Int variable to branch on (0: none) and its value. Pseudo-cost product where
// both directions are measured (the averages over all variables stand in for a side not yet
// measured), fractionality while nothing is.
void MilpSearch::collect_fractional() {
    fractional_.clear();
    for (std::size_t v = 1; v < var_of_.size(); ++v) {
        if (var_of_[v] == 0 || !is_int(static_cast<int>(v))) continue;
        const lra::DeltaRational& x = simplex_.delta_value(var_of_[v]);
        if (!lra::is_integral(x)) fractional_.push_back({static_cast<int>(v), x});
    }
    // Where some are bounded on both sides, only those: their branches are finitely many, and a
    // split on the term of an unbounded one (unbounded_split) is a dense row in every node
    // below. A div's quotient has no bounds of its own; with its splits a conjunction of the
    // hunt (h400285) took 20 640 nodes and 70 s, without them 0.04 s.
    auto unbounded = [&](const Fractional& f) { return !has_both_bounds(f.var); };
    if (!std::all_of(fractional_.begin(), fractional_.end(), unbounded))
        std::erase_if(fractional_, unbounded);
}

bool MilpSearch::has_both_bounds(int var) const {
    int s = var_of_[static_cast<std::size_t>(var)];
    return simplex_.bounds().is_boxed(s);
}

// A primal heuristic: every Int variable fixed at its relaxation value rounded (to the nearest
// integer, or up), the Real ones left to a relaxation of their own under a push. Its optimum, when
// integral and better, is an incumbent; the tree still proves nothing better exists, so no node
// has to stand for it.
void MilpSearch::try_rounding(bool up) {
    std::vector<std::pair<int, QNumber>> fixed;
    for (std::size_t v = 1; v < var_of_.size(); ++v) {
        if (var_of_[v] == 0 || !is_int(static_cast<int>(v))) continue;
        const lra::DeltaRational& x = simplex_.delta_value(var_of_[v]);
        QNumber r = lra::floor_of(x);
        if (!lra::is_integral(x) && (up || (x.real() - r) * QNumber(2) >= QNumber(1)))
            r += QNumber(1);
        fixed.push_back({var_of_[v], std::move(r)});
    }
    simplex_.push();
    bool ok = true;
    for (const auto& [s, r] : fixed)
        ok = ok && simplex_.assert_lower(s, r, false, 0) == lra::Asserted::Ok &&
             simplex_.assert_upper(s, r, false, 0) == lra::Asserted::Ok;
    bool least = maximize_ == (objective_var_->scale.sign() < 0);
    if (ok && simplex_.check() == lra::Result::Sat) {
        lra::Optimum o = simplex_.minimize(objective_var_->var, !least);
        if (o.kind == lra::Optimum::Kind::Optimal && o.value.delta().is_zero() &&
            simplex_.check() == lra::Result::Sat) {
            std::vector<QNumber> model(static_cast<std::size_t>(p_.variables.size()) + 1);
            for (std::size_t v = 1; v < var_of_.size(); ++v)
                if (var_of_[v] != 0) model[v] = simplex_.value(var_of_[v]);
            QNumber value = evaluate(p_.term(objective_), model);
            if (!has_incumbent_ || incumbent_approached_ ||
                minimizing(value) < minimizing(incumbent_)) {
                has_incumbent_ = true;
                incumbent_approached_ = false;
                incumbent_ = std::move(value);
                incumbent_model_ = std::move(model);
            }
        }
    }
    simplex_.pop();
}

// Strong branching where pseudo-costs know nothing yet (the start of reliability branching):
// each side of the most fractional unmeasured candidates solved under a push, its gain learned.
// A side found infeasible counts as a very large gain, so that the variable is branched on and
// that child closes at once.
void MilpSearch::measure_by_strong_branching(const QNumber& value) {
    constexpr std::size_t kCandidates = 8;
    constexpr double kInfeasibleGain = 1e12;
    std::vector<const Fractional*> order;
    for (const Fractional& c : fractional_) {
        const PseudoCost& pc = pseudo_[static_cast<std::size_t>(c.var)];
        if (!pc.known(0) || !pc.known(1)) order.push_back(&c);
    }
    auto distance_to_half = [](const Fractional* c) {
        return std::abs(to_double(c->value.real() - lra::floor_of(c->value)) - 0.5);
    };
    std::sort(order.begin(), order.end(), [&](const Fractional* a, const Fractional* b) {
        return distance_to_half(a) < distance_to_half(b);
    });
    // Four with the dual repair (pure integer problems): enigma 7.4 → 2.2 s, lseu 4.1 → 3.4 s,
    // mod008, gt2 and stein27 within noise.
    std::size_t candidates = dual_ ? kCandidates / 2 : kCandidates;
    if (order.size() > candidates) order.resize(candidates);
    bool least = maximize_ == (objective_var_->scale.sign() < 0);
    for (const Fractional* c : order) {
        QNumber below = lra::floor_of(c->value);
        int s = var_of_[static_cast<std::size_t>(c->var)];
        PseudoCost& pc = pseudo_[static_cast<std::size_t>(c->var)];
        for (int side = 0; side < 2; ++side) {
            if (pc.known(side)) continue;
            QNumber distance =
                side == 1 ? below + QNumber(1) - c->value.real() : c->value.real() - below;
            if (std::optional<double> change = float_child_change(s, below, side == 1)) {
                pc.sum[side] += std::isinf(*change) ? kInfeasibleGain
                                                    : *change / std::max(to_double(distance), 1e-6);
                ++pc.count[side];
                continue;
            }
            simplex_.push();
            lra::Asserted done = side == 1 ? simplex_.assert_lower(s, below + QNumber(1), false, 0)
                                           : simplex_.assert_upper(s, below, false, 0);
            lra::Result r = done == lra::Asserted::Ok ? simplex_.check() : lra::Result::Unsat;
            double gain = kInfeasibleGain;
            if (r == lra::Result::Sat) {
                lra::Optimum o = simplex_.minimize(objective_var_->var, !least);
                // A value δ from an integer moves by δ: the distance counts as tiny.
                if (o.kind == lra::Optimum::Kind::Optimal)
                    gain = to_double(minimizing(o.value.real() * objective_var_->scale +
                                                objective_constant_) -
                                     value) /
                           std::max(to_double(distance), 1e-6);
                else
                    r = lra::Result::Unknown;
            }
            simplex_.pop();
            if (r == lra::Result::Unknown) return;  // stopped, or unbounded: measure no more
            pc.sum[side] += gain;
            ++pc.count[side];
        }
    }
}

// The fractional Int variable to branch on (0: none) and its value. Pseudo-cost product where
// both directions are measured (the averages over all variables stand in for a side not yet
// measured), fractionality while nothing is.
int MilpSearch::choose_branch_variable(QNumber& value) const {
    double known_sum[2] = {0, 0};
    std::uint32_t known_count[2] = {0, 0};
    for (const PseudoCost& pc : pseudo_)
        for (int side = 0; side < 2; ++side)
            if (pc.known(side)) {
                known_sum[side] += pc.average(side);
                ++known_count[side];
            }
    auto mean = [&](const PseudoCost& pc, int side) {
        if (pc.known(side)) return pc.average(side);
        return known_count[side] > 0 ? known_sum[side] / known_count[side] : 1.0;
    };
    bool measured = known_count[0] > 0 && known_count[1] > 0;
    const Fractional* best = nullptr;
    double best_score = -1;
    for (const Fractional& c : fractional_) {
        double f = to_double(c.value.real() - lra::floor_of(c.value));
        double down = std::max(f, 1e-6), up = std::max(1 - f, 1e-6);
        double score = std::min(down, up);
        if (measured) {
            const PseudoCost& pc = pseudo_[static_cast<std::size_t>(c.var)];
            score = std::max(down * mean(pc, 0), 1e-6) * std::max(up * mean(pc, 1), 1e-6);
        }
        if (score > best_score) {
            best_score = score;
            best = &c;
        }
    }
    if (best == nullptr) return 0;
    value = best->value.real();
    return best->var;
}

}  // namespace vorn::smt
