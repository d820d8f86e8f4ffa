// The integer equalities of a conjunction, solved over the integers before any branching: an
// unbounded system whose right-hand side lies off its lattice is refuted outright, where branch
// and bound would search forever, and a pure system gets its model at once.

#include <unordered_map>

#include "decider.h"
#include "vorn/lra/lattice.h"
#include "vorn/smt/model_check.h"

namespace vorn::smt {

bool Decider::lattice_decides(Result& result) {
    std::vector<std::size_t> atoms;
    std::vector<std::vector<QNumber>> rows;
    std::vector<QNumber> rhs;
    std::unordered_map<int, std::size_t> column;
    std::vector<int> var_of;
    for (std::size_t i = 0; i < entered_; ++i) {
        const Atom& atom = problem_.atoms[i];
        if (atom.relation != Relation::Eq) continue;
        auto term = problem_.term(atom.first_term);
        bool integral = true, any = false;
        for (const Entry& e : term)
            if (e.var != 0) {
                integral = integral && problem_.variables.sort(e.var) == Sort::Int;
                any = true;
            }
        if (!integral || !any) continue;
        atoms.push_back(i);
        rhs.push_back(!term.empty() && term[0].var == 0 ? -term[0].coeff : QNumber());
        for (const Entry& e : term)
            if (e.var != 0 && column.emplace(e.var, var_of.size()).second) var_of.push_back(e.var);
    }
    // Dense elimination: worth it for the systems branch and bound cannot close, which are small;
    // a large system is left to the search.
    constexpr std::size_t kMaxEntries = 20000;
    if (atoms.empty() || atoms.size() * var_of.size() > kMaxEntries) return false;
    rows.assign(atoms.size(), std::vector<QNumber>(var_of.size()));
    for (std::size_t r = 0; r < atoms.size(); ++r)
        for (const Entry& e : problem_.term(problem_.atoms[atoms[r]].first_term))
            if (e.var != 0) rows[r][column[e.var]] = e.coeff;
    lra::LatticeAnswer answer = lra::solve_over_integers(rows, rhs, var_of.size());
    switch (answer.kind) {
        case lra::LatticeAnswer::Kind::NoIntegerSolution: {
            proof_.assign(1, ProofStep{});
            proof_[0].kind = ProofStep::Kind::Lattice;
            for (std::size_t r = 0; r < atoms.size(); ++r)
                if (!answer.multipliers[r].is_zero())
                    proof_[0].farkas.push_back({false, atoms[r], false, answer.multipliers[r]});
            result = Result::Unsat;
            return true;
        }
        case lra::LatticeAnswer::Kind::NoRationalSolution:
            return false;  // the simplex refutes it with its usual proof
        case lra::LatticeAnswer::Kind::Solutions:
            break;
    }
    std::vector<QNumber> model(static_cast<std::size_t>(problem_.variables.size()) + 1);
    for (std::size_t c = 0; c < var_of.size(); ++c)
        model[static_cast<std::size_t>(var_of[c])] = answer.particular[c];
    if (!check_model(problem_, model).empty()) return false;
    model_ = std::move(model);
    result = Result::Sat;
    return true;
}

}  // namespace vorn::smt
