#include "vorn/smt/model_check.h"

#include <algorithm>

#include "vorn/smt/certificate.h"

namespace vorn::smt {

bool atom_holds(const Problem& problem, const Atom& atom, const std::vector<QNumber>& model) {
    if (atom.relation == Relation::Distinct) {
        std::vector<QNumber> values;
        for (std::uint32_t t = 0; t < atom.terms; ++t)
            values.push_back(term_value(problem, atom.first_term + t, model));
        std::sort(values.begin(), values.end());
        return std::adjacent_find(values.begin(), values.end()) == values.end();
    }
    return relation_holds(atom.relation, term_value(problem, atom.first_term, model).sign());
}

QNumber evaluate(std::span<const LinearExpr::Entry> term, const std::vector<QNumber>& model) {
    QNumber sum;
    for (const auto& e : term)
        if (e.var == 0)
            sum += e.coeff;
        else if (static_cast<std::size_t>(e.var) < model.size())
            sum.add_product(e.coeff, model[static_cast<std::size_t>(e.var)]);
    return sum;
}

QNumber term_value(const Problem& problem, std::uint32_t index, const std::vector<QNumber>& model) {
    return evaluate(problem.term(index), model);
}

std::string check_model(const Problem& problem, const std::vector<QNumber>& model) {
    for (std::size_t v = 1;
         v < model.size() && v <= static_cast<std::size_t>(problem.variables.size()); ++v) {
        Sort sort = problem.variables.sort(static_cast<int>(v));
        if (sort == Sort::Int && !model[v].is_integer())
            return "the model gives the Int variable '" +
                   std::string(problem.variables.name(static_cast<int>(v))) + "' a fraction";
        if (sort == Sort::Bool && !model[v].is_zero() && model[v] != QNumber(1))
            return "the model gives the Bool variable '" +
                   std::string(problem.variables.name(static_cast<int>(v))) + "' the value " +
                   model[v].to_string();
    }
    for (const Atom& atom : problem.atoms)
        if (!atom_holds(problem, atom, model))
            return "the model violates the atom at " + std::to_string(atom.pos.line) + ":" +
                   std::to_string(atom.pos.col);
    return {};
}

std::string check_decision(const Problem& problem, const Decision& decision) {
    if (decision.result == lra::Result::Sat) return check_model(problem, decision.model);
    if (decision.result == lra::Result::Unsat) return check_proof(problem, decision.proof);
    return {};
}

}  // namespace vorn::smt
