// Branch and bound: mixed-integer rounding (MIR) cuts at the root, from single atoms over bounded
// Int variables (Marchand, Wolsey: complemented MIR).
//
// One side of such an atom reads Σ wⱼ·xⱼ ≤ r. Each xⱼ is moved to its nearer bound at the
// root's vertex: zⱼ = xⱼ − lⱼ or uⱼ − xⱼ, an integer ≥ 0, so Σ αⱼ·zⱼ ≤ γ with the row divided
// by δ > 0; fⱼ = frac(αⱼ), F = frac(γ) > 0, k = ⌊γ⌋. The MIR cut
//     Σ (⌊αⱼ⌋ + max(0, fⱼ − F)/(1 − F))·zⱼ ≤ k
// is derived by the split on s = Σ ⌊αⱼ⌋·zⱼ (⌈αⱼ⌉ where fⱼ > F), an integer:
//   s ≤ k: the cut is s minus terms ((1 − fⱼ)/(1 − F))·zⱼ ≥ 0;
//   s ≥ k + 1: the row weighted 1/(1 − F), s ≥ k + 1 weighted F/(1 − F) and fⱼ/(1 − F)·zⱼ ≥ 0
//   where fⱼ ≤ F leave s − Σ ((1 − fⱼ)/(1 − F))·zⱼ ≤ k.
// Each side is one Farkas leaf with the cut's negation weighted 1, as milp_cuts.cpp states it.
//
// δ is chosen in floating point among the |wⱼ| of the variables strictly between their bounds
// (and halves of the best), by the cut's violation over its norm; the cut is then computed
// exactly. Costs: per row side a pass over its entries for each δ tried.

#include <algorithm>
#include <cmath>

#include <gmp.h>

#include "vorn/lra/integer_bounds.h"

#include "../numbers/gmp_holder.h"
#include "gomory_rounding.h"
#include "milp_search.h"

namespace vorn::smt {

namespace {

double approximate(const QNumber& q) {
    detail::LocalMpq x;
    q.get_mpq(x.get());
    return mpq_get_d(x.get());
}

struct MirItem {
    int var;                        // problem variable
    QNumber w;                      // of zⱼ in the row
    QNumber shift;                  // zⱼ = σ·xⱼ + shift
    bool complemented;              // σ = −1: zⱼ = uⱼ − xⱼ
    const lra::BoundRecord* bound;  // zⱼ ≥ 0 in the problem's terms
    double z, weight;               // at the vertex; w in floating point
};

constexpr double kMinEfficacy = 1e-3;  // violation over the norm, for the cut to be worth a row
constexpr std::size_t kDeltasTried = 8;
// The cut's coefficients are rounded down to multiples of 1/kMirDenominator (weaker, still valid):
// exact ones carry the products of the row's denominators into every node's tableau.
constexpr int kMirDenominator = 32;

// Violation over norm of the MIR cut with divisor δ, in floating point (−1: none).
double efficacy(const std::vector<MirItem>& items, double r, double delta) {
    double gamma = r / delta, k = std::floor(gamma), f = gamma - k;
    if (f < 0.01 || f > 0.99) return -1;
    double lhs = 0, norm = 0;
    for (const MirItem& it : items) {
        double a = it.weight / delta, fa = a - std::floor(a);
        double c = std::floor(a) +
                   std::floor(std::max(0.0, fa - f) / (1 - f) * kMirDenominator) / kMirDenominator;
        lhs += c * it.z;
        norm += c * c;
    }
    return norm > 0 ? (lhs - k) / std::sqrt(norm) : -1;
}

}  // namespace

bool MilpSearch::mir_cut(std::size_t atom, bool upper, RootCut& out) const {
    const Atom& a = p_.atoms[atom];
    auto term = p_.term(a.first_term);
    const lra::BoundTrail& bounds = simplex_.bounds();
    LinearExpr::Entries entries;
    QNumber c = !term.empty() && term[0].var == 0 ? -term[0].coeff : QNumber();
    std::vector<MirItem> items;
    for (const LinearExpr::Entry& e : term) {
        if (e.var == 0) continue;
        int s = var_of_[static_cast<std::size_t>(e.var)];
        if (!is_int(e.var)) return false;
        bool low = bounds.has_lower(s) && lra::is_integral(bounds.lower_value(s));
        bool high = bounds.has_upper(s) && lra::is_integral(bounds.upper_value(s));
        if (!low && !high) return false;
        const QNumber& x = simplex_.value(s);
        bool complemented =
            !low || (high && bounds.upper_value(s).real() - x < x - bounds.lower_value(s).real());
        const lra::BoundRecord& b = complemented ? bounds.upper(s) : bounds.lower(s);
        const QNumber& beta = b.value.real();
        entries.push_back(e);
        QNumber z = complemented ? beta - x : x - beta;
        items.push_back(
            {e.var, e.coeff, complemented ? beta : -beta, complemented, &b, approximate(z), 0});
    }
    if (items.size() < 2) return false;
    if (a.relation != Relation::Eq) {
        auto rounded = lra::round_integral_bound(entries, a.relation, c);
        if (!rounded) return false;
        c = rounded->constant;
    }
    // Σ wⱼ·xⱼ ≤ r, then in zⱼ: wⱼ·xⱼ = σ·wⱼ·zⱼ − σ·wⱼ·shift, the constant moved right.
    QNumber r = upper ? c : -c;
    for (MirItem& it : items) {
        if (!upper) it.w = -it.w;
        if (it.complemented) it.w = -it.w;
        r += it.w * it.shift;
        it.weight = approximate(it.w);
    }
    double rd = approximate(r), best = kMinEfficacy;
    QNumber delta;
    std::vector<QNumber> tried;
    for (const MirItem& it : items) {
        if (tried.size() >= kDeltasTried) break;
        QNumber d = it.w.sign() < 0 ? -it.w : it.w;
        if (it.z < 1e-6 || std::find(tried.begin(), tried.end(), d) != tried.end()) continue;
        tried.push_back(d);
        if (double e = efficacy(items, rd, approximate(d)); e > best) {
            best = e;
            delta = d;
        }
    }
    if (delta.is_zero()) return false;
    for (QNumber d = delta / QNumber(2); tried.size() < kDeltasTried + 3; d /= QNumber(2)) {
        tried.push_back(d);
        if (double e = efficacy(items, rd, approximate(d)); e > best) {
            best = e;
            delta = d;
        }
    }
    QNumber gamma = r / delta, k = floor_q(gamma), f = gamma - k, g = QNumber(1) - f;
    // The split s and the cut in zⱼ, then in xⱼ (zⱼ = σ·xⱼ + shift).
    out = RootCut();
    out.split_constant = k;
    out.cut_constant = -k;  // the cut as −Σ cⱼ·zⱼ ≥ −k
    for (const MirItem& it : items) {
        QNumber alpha = it.w / delta, floor = floor_q(alpha), fa = alpha - floor;
        bool rounded_up = f < fa;
        QNumber split = rounded_up ? floor + QNumber(1) : floor;
        QNumber cut = floor,
                kept;  // the part of the rounded-up term kept: down to 1/kMirDenominator
        if (rounded_up) {
            QNumber exact = (fa - f) / g;
            kept = floor_q(exact * QNumber(kMirDenominator)) / QNumber(kMirDenominator);
            cut += kept;
        }
        QNumber sigma(it.complemented ? -1 : 1);
        if (!split.is_zero()) {
            out.split.push_back({it.var, sigma * split});
            out.split_constant -= split * it.shift;
        }
        if (!cut.is_zero()) {
            out.cut.push_back({it.var, -sigma * cut});
            out.cut_constant += cut * it.shift;
        }
        // zⱼ ≥ 0: on the low side where fⱼ > F, on the high side where 0 < fⱼ ≤ F; and on both
        // what the coefficient's rounding down left out.
        if (rounded_up) {
            out.low_side.push_back(bound_entry(*it.bound, QNumber(1) - kept));
            QNumber dropped = (fa - f) / g - kept;
            if (!dropped.is_zero()) out.high_side.push_back(bound_entry(*it.bound, dropped));
        } else if (!fa.is_zero()) {
            out.high_side.push_back(bound_entry(*it.bound, fa / g));
        }
    }
    if (out.split.empty() || out.cut.empty() || out.split_constant.is_big() ||
        out.cut_constant.is_big() ||
        std::any_of(out.cut.begin(), out.cut.end(), [](const auto& e) { return e.coeff.is_big(); }))
        return false;
    auto by_var = [](const LinearExpr::Entry& l, const LinearExpr::Entry& r) {
        return l.var < r.var;
    };
    std::sort(out.split.begin(), out.split.end(), by_var);
    std::sort(out.cut.begin(), out.cut.end(), by_var);
    out.high_side.push_back({false, atom, upper, QNumber(1) / (delta * g)});
    out.split_low = QNumber(1);
    out.split_high = f / g;
    return true;
}

// The MIR cuts of every atom side over bounded Int variables, at most one per side.
void MilpSearch::mir_cuts(std::vector<RootCut>& into) const {
    for (std::size_t i = 0; i < p_.atoms.size(); ++i) {
        Relation r = p_.atoms[i].relation;
        for (bool upper : {false, true}) {
            bool side = r == Relation::Eq || (upper ? r == Relation::Le || r == Relation::Lt
                                                    : r == Relation::Ge || r == Relation::Gt);
            RootCut c;
            if (side && mir_cut(i, upper, c)) into.push_back(std::move(c));
        }
    }
}

}  // namespace vorn::smt
