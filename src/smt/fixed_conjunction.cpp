#include "fixed_conjunction.h"

#include "vorn/smt/problem_text.h"

#include "vorn/smt/model_check.h"

namespace vorn::smt {

namespace {

void add_atom(Problem& out, Relation relation, std::span<const LinearExpr::Entry> term) {
    LinearExpr e;
    for (const LinearExpr::Entry& x : term)
        e.add_entry(x.var, x.coeff);
    out.atoms.push_back({relation, out.add_term(e), 1, {}});
}

}  // namespace

bool fixed_conjunction(const Problem& problem, const std::vector<QNumber>& model, Problem& out,
                       std::string& why) {
    std::string name;
    for (int v = 1; v <= problem.variables.size(); ++v) {
        name.clear();
        append_name(name, problem.variables, v);
        out.variables.add(name, problem.variables.sort(v), {});
    }
    for (const Atom& a : problem.atoms) {
        if (a.relation == Relation::Distinct) {
            why = "an objective over a distinct of more than two terms";
            return false;
        }
        auto term = problem.term(a.first_term);
        Relation r = a.relation;
        if (r == Relation::Ne) r = evaluate(term, model).sign() < 0 ? Relation::Lt : Relation::Gt;
        add_atom(out, r, term);
    }
    const BooleanStructure& b = problem.boolean;
    for (std::uint32_t p = 0; p < b.propositions(); ++p) {
        const Proposition& prop = b.proposition(p);
        if (prop.kind != Proposition::Kind::Atom) continue;
        auto term = problem.term(prop.term);
        int sign = evaluate(term, model).sign();
        Relation r = prop.relation == Relation::Le ? (sign <= 0 ? Relation::Le : Relation::Gt)
                                                   : (sign >= 0 ? Relation::Ge : Relation::Lt);
        add_atom(out, r, term);
    }
    return true;
}

}  // namespace vorn::smt
