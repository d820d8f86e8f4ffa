// The integer equalities of a conjunction, solved over the integers before any branching: an
// unbounded system whose right-hand side lies off its lattice is refuted outright, where branch
// and bound would search forever, and a pure system gets its model at once.

#include <unordered_map>

#include "boolean_decider.h"
#include "decider.h"
#include "integer_system.h"
#include "vorn/lra/lattice.h"
#include "vorn/smt/model_check.h"

namespace vorn::smt {

IntegerSystem solve_integer_equalities(const Problem& problem, std::size_t atoms,
                                       bool reduce_basis) {
    IntegerSystem sys;
    std::vector<QNumber> rhs;
    std::unordered_map<int, std::size_t> column;
    for (std::size_t i = 0; i < atoms; ++i) {
        const Atom& atom = problem.atoms[i];
        if (atom.relation != Relation::Eq) continue;
        auto term = problem.term(atom.first_term);
        bool integral = true, any = false;
        for (const LinearExpr::Entry& e : term)
            if (e.var != 0) {
                integral = integral && problem.variables.sort(e.var) == Sort::Int;
                any = true;
            }
        if (!integral || !any) continue;
        sys.atoms.push_back(i);
        rhs.push_back(!term.empty() && term[0].var == 0 ? -term[0].coeff : QNumber());
        for (const LinearExpr::Entry& e : term)
            if (e.var != 0 && column.emplace(e.var, sys.var_of.size()).second)
                sys.var_of.push_back(e.var);
    }
    // Dense elimination: worth it for the systems branch and bound cannot close, which are small;
    // a large system is left to the search.
    constexpr std::size_t kMaxEntries = 20000;
    if (sys.atoms.empty() || sys.atoms.size() * sys.var_of.size() > kMaxEntries) return sys;
    std::vector<std::vector<QNumber>> rows(sys.atoms.size(),
                                           std::vector<QNumber>(sys.var_of.size()));
    for (std::size_t r = 0; r < sys.atoms.size(); ++r)
        for (const LinearExpr::Entry& e : problem.term(problem.atoms[sys.atoms[r]].first_term))
            if (e.var != 0) rows[r][column[e.var]] = e.coeff;
    sys.answer = lra::solve_over_integers(rows, rhs, sys.var_of.size(), reduce_basis);
    sys.solved = true;
    return sys;
}

ProofStep IntegerSystem::lattice_leaf() const {
    ProofStep leaf;
    leaf.kind = ProofStep::Kind::Lattice;
    for (std::size_t r = 0; r < atoms.size(); ++r)
        if (!answer.multipliers[r].is_zero())
            leaf.farkas.push_back({false, atoms[r], false, answer.multipliers[r]});
    return leaf;
}

bool Decider::lattice_decides(Result& result) {
    IntegerSystem sys = solve_integer_equalities(problem_, entered_);
    if (!sys.solved) return false;
    if (sys.refuted()) {
        proof_.assign(1, sys.lattice_leaf());
        result = Result::Unsat;
        return true;
    }
    // No rational solution: the simplex refutes it with its usual proof.
    if (sys.answer.kind != lra::LatticeAnswer::Kind::Solutions) return false;
    const std::vector<int>& var_of = sys.var_of;
    const lra::LatticeAnswer& answer = sys.answer;
    const std::vector<std::size_t>& atoms = sys.atoms;
    std::vector<QNumber> model(static_cast<std::size_t>(problem_.variables.size()) + 1);
    for (std::size_t c = 0; c < var_of.size(); ++c)
        model[static_cast<std::size_t>(var_of[c])] = answer.particular[c];
    if (!check_model(problem_, model).empty() && !model_on_lattice(atoms, var_of, answer, model))
        return false;
    model_ = std::move(model);
    result = Result::Sat;
    return true;
}

// The other atoms over x = x0 + Σ zₜ·kₜ, decided over the integers zₜ: a lower-dimensional
// problem, in which no branch can leave the equalities' lattice. Only its models are used (each
// checked against the problem); a refutation there would need a proof over the parameters, so
// the ordinary search then decides.
bool Decider::model_on_lattice(const std::vector<std::size_t>& eq_atoms,
                               const std::vector<int>& var_of, const lra::LatticeAnswer& lattice,
                               std::vector<QNumber>& model) {
    // The reduced search has no work bound of its own; over many parameters its first check
    // alone can outlast the ordinary search, which then decides.
    constexpr std::size_t most_parameters = 48;
    if (lattice.kernel.empty() || lattice.kernel.size() > most_parameters) return false;
    Problem reduced(NameSyntax::SmtLib);
    int n = problem_.variables.size();
    for (int v = 1; v <= n; ++v)
        reduced.variables.add("v" + std::to_string(v), problem_.variables.sort(v), {});
    int first_z = n + 1;
    for (std::size_t t = 0; t < lattice.kernel.size(); ++t)
        reduced.variables.add("z" + std::to_string(t), Sort::Int, {});
    std::vector<std::size_t> column_of(static_cast<std::size_t>(n) + 1, var_of.size());
    for (std::size_t c = 0; c < var_of.size(); ++c)
        column_of[static_cast<std::size_t>(var_of[c])] = c;
    std::vector<char> dropped(entered_, 0);
    for (std::size_t a : eq_atoms)
        dropped[a] = 1;
    LinearExpr e;
    for (std::size_t i = 0; i < entered_; ++i) {
        if (dropped[i]) continue;
        const Atom& atom = problem_.atoms[i];
        Atom copy = atom;
        for (std::uint32_t k = 0; k < atom.terms; ++k) {
            e.clear();
            for (const Entry& x : problem_.term(atom.first_term + k)) {
                std::size_t c = x.var == 0 ? var_of.size() : column_of[x.var];
                if (c == var_of.size()) {
                    e.add_entry(x.var, x.coeff);
                    continue;
                }
                e.add_entry(0, x.coeff * lattice.particular[c]);
                for (std::size_t t = 0; t < lattice.kernel.size(); ++t)
                    if (!lattice.kernel[t][c].is_zero())
                        e.add_entry(first_z + static_cast<int>(t), x.coeff * lattice.kernel[t][c]);
            }
            std::uint32_t term = reduced.add_term(e);
            if (k == 0) copy.first_term = term;
        }
        reduced.atoms.push_back(copy);
    }
    // The SAT search over branch atoms, nearer integer first, finds points in these dense
    // problems where depth-first branch and bound dives without end.
    Decision d = BooleanDecider(reduced, options_, false).check();
    if (d.result != Result::Sat) return false;
    for (std::size_t c = 0; c < var_of.size(); ++c) {
        QNumber x = lattice.particular[c];
        for (std::size_t t = 0; t < lattice.kernel.size(); ++t)
            x += lattice.kernel[t][c] * d.model[static_cast<std::size_t>(first_z) + t];
        d.model[static_cast<std::size_t>(var_of[c])] = x;
    }
    d.model.resize(static_cast<std::size_t>(n) + 1);
    if (!check_model(problem_, d.model).empty()) return false;
    model = std::move(d.model);
    return true;
}

}  // namespace vorn::smt
