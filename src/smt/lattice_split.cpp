// Lattice splits: the equalities that a full assignment fixes (a simplex variable over Int
// variables only, held between equal bounds) may have rational solutions but no integer one.
// When they are unbounded, branching on single variables never ends there. Solving them over
// the integers finds multipliers y for which T = Σ yᵢ·tᵢ has integer coefficients and
// C = Σ yᵢ·cᵢ is no integer; the split atom T ≤ ⌊C⌋ then closes both of its sides by plain
// simplex conflicts, since the fixed equalities pin T to C: the atom says T ≤ ⌊C⌋ < C, its
// negation, rounded, T ≥ ⌊C⌋ + 1 > C. Any split on an integral term is sound, so it needs no
// proof of its own, and the search learns the fixed bounds' clause from the two conflicts.
//
// When they have integer solutions x = x0 + Σ zₜ·kₜ (the kₜ an LLL-reduced basis of the integer
// kernel), the search goes on over the parameters: the coordinate rows lₜ, integral with
// lₜ·kₛ = [s = t], make each zₜ = lₜ·(x − x0) an integral term, and a parameter fractional at
// the current vertex is split on, lₜ·x ≤ ⌊lₜ·x*⌋ (lₜ·x0 is an integer). Within the equalities
// this is branching on zₜ, which keeps to their lattice where single variables would dive.

#include <algorithm>

#include "arith_theory.h"
#include "vorn/lra/integer_bounds.h"
#include "vorn/lra/lattice.h"

namespace vorn::smt {

// Whether `var` stands for a term over Int variables only (an Int variable, or a slack).
bool ArithTheory::over_integers(int var) const {
    // A simplex variable of a forgotten problem variable (0) is free: not over the integers.
    auto integral = [&](int v) {
        int x = problem_var_[static_cast<std::size_t>(v)];
        return x != 0 && problem_.variables.sort(x) == Sort::Int;
    };
    if (!simplex_.is_slack(var)) return integral(var);
    return std::all_of(simplex_.slack_term(var).begin(), simplex_.slack_term(var).end(),
                       [&](const auto& e) { return integral(e.var); });
}

bool ArithTheory::fixed_at_rational(int var) const {
    const lra::BoundTrail& bounds = simplex_.bounds();
    return bounds.is_fixed(var) && bounds.lower_value(var).delta().is_zero();
}

// Whether the slack's term is over Int variables once its fixed variables are put in: a Real
// variable fixed by an equality (x = 0) leaves an integral term behind.
bool ArithTheory::over_integers_given_fixed(int slack) const {
    const auto& term = simplex_.slack_term(slack);
    return std::all_of(term.begin(), term.end(), [&](const auto& e) {
        return over_integers(e.var) || fixed_at_rational(e.var);
    });
}

ArithTheory::LatticeStep ArithTheory::lattice_split() {
    if (std::all_of(integer_vars_.begin(), integer_vars_.end(),
                    [&](int s) { return lra::is_integral(simplex_.delta_value(s)); }))
        return LatticeStep::None;
    const lra::BoundTrail& bounds = simplex_.bounds();
    fixed_.clear();
    std::size_t terms = 0, entries = 0;
    for (std::size_t v = 1; v < atoms_on_.size(); ++v) {
        int var = static_cast<int>(v);
        if (atoms_on_[v].empty() || !fixed_at_rational(var) ||
            (simplex_.is_slack(var) && !over_integers_given_fixed(var)))
            continue;
        fixed_.emplace_back(var, bounds.lower_value(var).real());
        if (simplex_.is_slack(var)) {
            ++terms;
            entries += simplex_.slack_term(var).size();
        }
    }
    // Fixed variables alone are points of the lattice (their values are integers). The dense
    // solve is dear, but the systems are small where it matters; a large one is left to
    // branching.
    std::size_t columns = std::min(entries, static_cast<std::size_t>(problem_.variables.size()));
    if (terms == 0 || terms * columns > kMaxLatticeEntries) return LatticeStep::None;
    if (fixed_ != solved_fixed_ && refute_fixed()) return LatticeStep::Split;
    if (round_to_lattice()) return LatticeStep::Model;
    return lattice_kernel_.empty() ? LatticeStep::None : LatticeStep::Parameters;
}

// Solves the fixed equalities over the integers: true after a split that refutes them; else
// their coordinate rows are kept for parameter splits, until they change.
bool ArithTheory::refute_fixed() {
    solved_fixed_ = fixed_;
    lattice_vars_.clear();
    lattice_coordinates_.clear();
    lattice_kernel_.clear();

    // The fixed terms, every fixed variable's value put in, over the other variables.
    std::vector<int> column(static_cast<std::size_t>(problem_.variables.size()) + 1, -1);
    std::vector<int>& var_of = lattice_vars_;
    lra::SparseRows sparse;
    std::vector<QNumber> rhs;
    for (const auto& [var, c] : fixed_) {
        if (!simplex_.is_slack(var)) continue;
        sparse.emplace_back();
        rhs.push_back(c);
        for (const auto& e : simplex_.slack_term(var)) {
            auto x = static_cast<std::size_t>(problem_var_[static_cast<std::size_t>(e.var)]);
            if (fixed_at_rational(e.var)) {
                rhs.back() -= e.coeff * simplex_.bounds().lower_value(e.var).real();
                continue;
            }
            if (column[x] < 0) {
                column[x] = static_cast<int>(var_of.size());
                var_of.push_back(static_cast<int>(x));
            }
            sparse.back().emplace_back(static_cast<std::size_t>(column[x]), e.coeff);
        }
    }
    if (var_of.empty()) return false;
    lra::LatticeOptions options;
    options.coordinates = true;
    lra::LatticeAnswer answer =
        lra::solve_sparse_over_integers(sparse, rhs, var_of.size(), options);
    if (answer.kind == lra::LatticeAnswer::Kind::Solutions) {
        lattice_coordinates_ = std::move(answer.coordinates);
        lattice_kernel_ = std::move(answer.kernel);
        return false;
    }
    if (answer.kind != lra::LatticeAnswer::Kind::NoIntegerSolution) return false;

    const std::vector<QNumber>& t = answer.refuting_term;
    const QNumber& c = answer.refuting_constant;
    LinearExpr::Entries term;
    for (std::size_t col = 0; col < t.size(); ++col)
        if (!t[col].is_zero()) term.push_back({var_of[col], t[col]});
    if (term.empty()) return false;  // not even rational solutions: the simplex says so
    sat::Var p = new_search_atom(term, Relation::Le, lra::floor_of(lra::DeltaRational(c)));
    sat_.set_phase(p, false);
    ++lattice_splits_;
    return true;
}

// The lattice point nearest the current point in the parameters, x + Σ (round(zₜ) − zₜ)·kₜ over
// the equalities' variables, the others left as they are: when it makes every Int variable
// integral and every asserted literal true, it is the model, and no split is needed. Loose
// other constraints, as a rule, leave room for it.
bool ArithTheory::round_to_lattice() {
    if (lattice_kernel_.empty()) return false;
    std::vector<QNumber> x(static_cast<std::size_t>(problem_.variables.size()) + 1);
    for (std::size_t v = 1; v < simplex_var_.size() && v < x.size(); ++v)
        if (simplex_var_[v] != 0) x[v] = simplex_.value(simplex_var_[v]);
    std::vector<QNumber> moved(lattice_vars_.size());
    for (std::size_t t = 0; t < lattice_kernel_.size(); ++t) {
        QNumber z;
        for (std::size_t j = 0; j < lattice_vars_.size(); ++j)
            if (!lattice_coordinates_[t][j].is_zero())
                z += lattice_coordinates_[t][j] * x[static_cast<std::size_t>(lattice_vars_[j])];
        QNumber d = lra::floor_of(lra::DeltaRational(z + QNumber(1, 2))) - z;
        if (d.is_zero()) continue;
        for (std::size_t j = 0; j < lattice_vars_.size(); ++j)
            if (!lattice_kernel_[t][j].is_zero()) moved[j] += d * lattice_kernel_[t][j];
    }
    for (std::size_t j = 0; j < lattice_vars_.size(); ++j)
        x[static_cast<std::size_t>(lattice_vars_[j])] += moved[j];
    for (int s : integer_vars_)
        if (!x[static_cast<std::size_t>(problem_var_[static_cast<std::size_t>(s)])].is_integer())
            return false;
    for (sat::Lit lit : assigned_) {
        auto index = static_cast<std::size_t>(atom_of_[lit.var()]);
        const Reading& r = atom_data_[index].reading[lit.negative() ? 1 : 0];
        QNumber value = -r.constant;
        for (const auto& e : atoms_[index].term)
            value += e.coeff * x[static_cast<std::size_t>(e.var)];
        if (!relation_holds(r.relation, value.sign())) return false;
    }
    model_ = std::move(x);
    return true;
}

// A split on a parameter of the fixed equalities' solutions that is fractional here, the scan
// starting where the last one stopped; false when every parameter is integral (a fractional
// variable lies outside the equalities). Counted as a branch, within the budget.
bool ArithTheory::parameter_split() {
    std::size_t n = lattice_coordinates_.size();
    for (std::size_t k = 0; k < n; ++k) {
        std::size_t t = (next_parameter_ + k) % n;
        const std::vector<QNumber>& l = lattice_coordinates_[t];
        lra::DeltaRational z;
        for (std::size_t j = 0; j < l.size(); ++j)
            if (!l[j].is_zero()) {
                lra::DeltaRational x = simplex_.delta_value(simplex_var_[lattice_vars_[j]]);
                x *= l[j];
                z += x;
            }
        if (lra::is_integral(z)) continue;
        if (!take_split()) return false;
        next_parameter_ = (t + 1) % n;
        ++branches_;
        ++lattice_splits_;
        LinearExpr::Entries term;
        for (std::size_t j = 0; j < l.size(); ++j)
            if (!l[j].is_zero()) term.push_back({lattice_vars_[j], l[j]});
        QNumber below = lra::floor_of(z);
        sat::Var p = new_search_atom(term, Relation::Le, below);
        sat_.set_phase(p, z.real() - below > QNumber(1, 2));
        return true;
    }
    return false;
}

}  // namespace vorn::smt
