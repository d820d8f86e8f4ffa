// Gomory mixed-integer cuts from the exact tableau, certified by two Farkas lemmas.
//
// The row of a basic Int variable x_b reads x_b = Σ aⱼ·xⱼ over non-basic xⱼ, each at a bound βⱼ
// of a true literal. With tⱼ = σⱼ·(xⱼ − βⱼ) ≥ 0 (σⱼ = 1 at a lower bound, −1 at an upper one)
// and a'ⱼ = σⱼ·aⱼ it is x_b = x* + Σ a'ⱼ·tⱼ, x* the current value, f₀ = x* − ⌊x*⌋ > 0. Over the
// integral tⱼ (I) take rⱼ = ⌊a'ⱼ⌋ when frac(a'ⱼ) ≤ f₀, else ⌈a'ⱼ⌉, and gⱼ = a'ⱼ − rⱼ; over the
// others gⱼ = a'ⱼ. Then s = x_b − Σ_I rⱼ·tⱼ is an integer and s − ⌊x*⌋ = f₀ + Σ gⱼ·tⱼ, so either
//   s ≤ ⌊x*⌋:      Σ (−gⱼ/f₀)·tⱼ ≥ 1, or
//   s ≥ ⌊x*⌋ + 1:  Σ (gⱼ/(1 − f₀))·tⱼ ≥ 1,
// and both give the cut Σ cⱼ·tⱼ ≥ 1 with cⱼ = max(gⱼ/(1 − f₀), −gⱼ/f₀), which the current
// vertex (every tⱼ zero) violates. Each side is a Farkas lemma: (1/f₀)·(k − s) plus the cut's
// negation plus (cⱼ + gⱼ/f₀)·tⱼ cancels to 0 with the strict cut negation; likewise
// (1/(1 − f₀))·(s − k − 1) with (cⱼ − gⱼ/(1 − f₀))·tⱼ. The row identity itself needs no
// multiplier: both atoms are written over problem variables, slacks expanded.

#include <algorithm>
#include <cassert>

#include "arith_theory.h"
#include "gomory_rounding.h"
#include "vorn/lra/integer_bounds.h"

namespace vorn::smt {

// Whether `var` takes integer values only: an Int variable, or a slack whose term has integer
// coefficients over Int variables.
bool ArithTheory::integral_var(int var) const {
    if (!over_integers(var)) return false;
    if (!simplex_.is_slack(var)) return true;
    auto term = simplex_.slack_term(var);
    return std::all_of(term.begin(), term.end(),
                       [](const auto& e) { return e.coeff.is_integer(); });
}

// Adds factor·var, a slack written out over its problem variables, to `into`.
void ArithTheory::expand(int var, const QNumber& factor, std::vector<QNumber>& into) {
    if (!simplex_.is_slack(var)) {
        into[static_cast<std::size_t>(problem_var_[static_cast<std::size_t>(var)])] += factor;
        return;
    }
    for (const auto& e : simplex_.slack_term(var))
        into[static_cast<std::size_t>(problem_var_[static_cast<std::size_t>(e.var)])] +=
            factor * e.coeff;
}

// A cut at this full assignment, if the budget and the depth allow one and some fractional
// basic Int variable has a usable row; the row of the value nearest to a half is tried first.
bool ArithTheory::cut() {
    if (!cuts_ || cuts_used_ >= kCutsPerCheck || level_start_.size() > kCutLevels) return false;
    std::vector<std::pair<QNumber, int>> candidates;
    for (int s : integer_vars_) {
        const lra::DeltaRational& v = simplex_.delta_value(s);
        if (v.real().is_integer() || !simplex_.tableau().rows().contains(s)) continue;
        QNumber f = v.real() - floor_q(v.real()) - QNumber(1, 2);
        candidates.emplace_back(f.sign() < 0 ? -f : f, s);
    }
    std::sort(candidates.begin(), candidates.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    // Rows are tried until one is usable; a few at most, since every try walks a row.
    for (std::size_t i = 0; i < candidates.size() && i < kCutRowsTried; ++i)
        if (cut_row(candidates[i].second)) return true;
    return false;
}

bool ArithTheory::cut_row(int basic) {
    struct Entry {
        sat::Lit lit;
        QNumber scale;  // the bound's caller scale
        int var;
        int sigma;
        QNumber beta;  // the bound's real part
        bool integral;
        QNumber a;  // σⱼ·aⱼ
        QNumber g, c;
    };
    const la::Equation& row = *simplex_.tableau().rows().at(basic);
    QNumber basic_coeff = *row.coeff_of(basic);
    std::vector<Entry> entries;
    for (const auto& e : row.entries()) {
        if (e.var == basic) continue;
        // A non-basic variable strictly inside its bounds, or bounded by no true literal,
        // leaves no cut to certify from this row.
        EntryAtBound at = entry_at_bound(simplex_, e.var, e.coeff, basic_coeff);
        if (at.sigma == 0) return false;
        const lra::BoundRecord& b = *at.bound;
        auto lit = sat::Lit::from_code(static_cast<std::uint32_t>(b.reason));
        if (lit.var() >= value_.size() || value_[lit.var()] != (lit.negative() ? -1 : 1))
            return false;
        bool integral = b.value.delta().is_zero() && b.value.real().is_integer();
        entries.push_back({lit,
                           b.caller_scale,
                           e.var,
                           at.sigma,
                           b.value.real(),
                           integral && integral_var(e.var),
                           std::move(at.a),
                           {},
                           {}});
    }

    const QNumber& x = simplex_.delta_value(basic).real();
    QNumber k = floor_q(x);
    QNumber f0 = x - k;
    QNumber f1 = QNumber(1) - f0;
    std::size_t n = static_cast<std::size_t>(problem_.variables.size()) + 1;
    split_coeffs_.assign(n, QNumber());
    cut_coeffs_.assign(n, QNumber());
    expand(basic, QNumber(1), split_coeffs_);
    QNumber split_constant = k;
    QNumber cut_constant(1);
    std::size_t used = 0;  // entries with a non-zero gⱼ, moved to the front
    for (Entry& en : entries) {
        int sigma = en.sigma;
        GomoryTerm t = gomory_term(en.a, en.integral, f0, f1);
        if (!t.r.is_zero()) {  // s = x_b − Σ rⱼ·σⱼ·(xⱼ − βⱼ)
            QNumber rs = sigma > 0 ? -t.r : t.r;
            expand(en.var, rs, split_coeffs_);
            split_constant += rs * en.beta;
        }
        en.g = std::move(t.g);
        en.c = std::move(t.c);
        if (en.g.is_zero()) continue;
        QNumber cs = sigma > 0 ? en.c : -en.c;
        expand(en.var, cs, cut_coeffs_);
        cut_constant += cs * en.beta;
        if (&entries[used] != &en) std::swap(entries[used], en);
        ++used;
    }
    entries.resize(used);
    // The atoms, over problem variables; none with numbers beyond machine words.
    LinearExpr::Entries split, cut_term;
    auto collect = [](const std::vector<QNumber>& coeffs, LinearExpr::Entries& out) {
        for (std::size_t v = 1; v < coeffs.size(); ++v) {
            if (coeffs[v].is_zero()) continue;
            if (coeffs[v].is_big()) return false;
            out.push_back({static_cast<int>(v), coeffs[v]});
        }
        return !out.empty();
    };
    if (entries.empty() || !collect(split_coeffs_, split) || !collect(cut_coeffs_, cut_term) ||
        split_constant.is_big() || cut_constant.is_big())
        return false;

    ++cuts_used_;
    ++cuts_made_;
    sat::Var p = new_search_atom(split, Relation::Le, split_constant);
    sat::Var q = new_search_atom(cut_term, Relation::Ge, cut_constant);
    sat_.set_phase(q, false);
    sat_.set_phase(p, f0 > QNumber(1, 2));

    for (bool high : {false, true}) {
        std::vector<sat::Lit> clause{sat::Lit(p, !high), sat::Lit(q, false)};
        std::vector<QNumber> multipliers{high ? QNumber(1) / f1 : QNumber(1) / f0, QNumber(1)};
        for (const Entry& en : entries) {
            QNumber m = high ? en.c - en.g / f1 : en.c + en.g / f0;
            if (m.is_zero()) continue;
            clause.push_back(~en.lit);
            multipliers.push_back(m / en.scale);
        }
        assert(lemma_is_valid(clause, multipliers));
        log_lemma(clause, multipliers);
        sat_.add_lemma(clause);
    }
    return true;
}

// After a pop: the atoms whose slacks it took out are left without a row until a literal of
// theirs is assigned (make_slacks_again). Made again at once, every split of the search would
// sit in the tableau for good after the first restart, and each pivot would rewrite those dense
// rows (a mixed script of the hunt: 300 rows, 270 of them splits, 69 % of its time). A slack
// that survives the pop to level 0 is permanent. The rowless atoms stay listed on their old
// slack, so that they come back together and imply one another again.
void ArithTheory::forget_reclaimed_slacks(bool at_level_zero) {
    std::size_t kept = 0;
    for (std::uint32_t index : transient_) {
        Atom& a = atom_data_[index];
        if (simplex_.is_slack(a.term.var)) {
            if (!at_level_zero) transient_[kept++] = index;
            continue;
        }
        a.rowless = true;
        transient_[kept++] = index;
    }
    transient_.resize(kept);
}

// The slack of a rowless atom, made at the current level (for good at level 0), for it and the
// other atoms that were on its old slack.
void ArithTheory::make_slacks_again(std::uint32_t index) {
    std::vector<std::uint32_t> group;
    group.swap(atoms_on_[static_cast<std::size_t>(atom_data_[index].term.var)]);
    for (std::uint32_t member : group) {
        Atom& a = atom_data_[member];
        const TheoryAtom& atom = atoms_[member];
        scratch_.clear();
        bool integral = true;
        for (const auto& e : atom.term) {
            scratch_.push_back({simplex_var(e.var), e.coeff});
            integral = integral && problem_.variables.sort(e.var) == Sort::Int;
        }
        a.term = simplex_.term_variable(scratch_);
        a.unit = QNumber(1) / (a.term.scale.sign() < 0 ? -a.term.scale : a.term.scale);
        a.reading[0] = read(a.term, atom.term, atom.relation, atom.constant, integral);
        a.reading[1] = read(a.term, atom.term, negation(atom.relation), atom.constant, integral);
        a.rowless = false;
        if (atoms_on_.size() <= static_cast<std::size_t>(a.term.var))
            atoms_on_.resize(static_cast<std::size_t>(a.term.var) + 1);
        atoms_on_[static_cast<std::size_t>(a.term.var)].push_back(member);
        index_slack(a.term.var);
    }
}

// Debug builds: the lemma's negated literals, with its multipliers, add up to a contradiction
// (the rule of the certificate checkers, on the rounded readings the simplex asserts).
bool ArithTheory::lemma_is_valid(const std::vector<sat::Lit>& clause,
                                 const std::vector<QNumber>& multipliers) const {
    std::vector<QNumber> sum(static_cast<std::size_t>(problem_.variables.size()) + 1);
    QNumber k;
    bool strict = false;
    for (std::size_t i = 0; i < clause.size(); ++i) {
        const QNumber& m = multipliers[i];
        if (m.sign() < 0) return false;
        if (m.is_zero()) continue;
        auto index = static_cast<std::size_t>(atom_of_[clause[i].var()]);
        const Reading& r = atom_data_[index].reading[clause[i].negative() ? 0 : 1];
        bool upper = r.relation == Relation::Le || r.relation == Relation::Lt;
        strict = strict || r.relation == Relation::Lt || r.relation == Relation::Gt;
        // upper: m·(c − t) ≥ 0; lower: m·(t − c) ≥ 0
        QNumber sign(upper ? -1 : 1);
        for (const auto& e : atoms_[index].term)
            sum[static_cast<std::size_t>(e.var)] += sign * m * e.coeff;
        k -= sign * m * r.constant;
    }
    return std::all_of(sum.begin(), sum.end(), [](const QNumber& q) { return q.is_zero(); }) &&
           (k.sign() < 0 || (k.is_zero() && strict));
}

}  // namespace vorn::smt
