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

void fixed_conjunction(const Problem& problem, const std::vector<QNumber>& model, Problem& out) {
    // The names as read: the printers quote them where SMT-LIB needs it.
    for (int v = 1; v <= problem.variables.size(); ++v)
        out.variables.add(problem.variables.name(v), problem.variables.sort(v), {});
    LinearExpr::Entries pair;
    for (const Atom& a : problem.atoms) {
        if (a.relation != Relation::Distinct) {
            auto term = problem.term(a.first_term);
            Relation r = a.relation;
            if (r == Relation::Ne)
                r = evaluate(term, model).sign() < 0 ? Relation::Lt : Relation::Gt;
            add_atom(out, r, term);
            continue;
        }
        // Each pair of a distinct on the side the model puts it.
        for (std::uint32_t i = 0; i < a.terms; ++i)
            for (std::uint32_t j = i + 1; j < a.terms; ++j) {
                pair.clear();
                QNumber c = problem.disequality(a, i, j, pair);
                QNumber gap = evaluate(pair, model) - c;
                if (!c.is_zero()) pair.insert(pair.begin(), {0, -c});
                add_atom(out, gap.sign() < 0 ? Relation::Lt : Relation::Gt, pair);
            }
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
}

}  // namespace vorn::smt
