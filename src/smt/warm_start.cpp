// A floating-point basis handed to the exact simplex: the basic variables by name, the others
// at the bound the basis puts them at.

#include "float_start.h"

namespace vorn::smt {

void warm_start(lra::Simplex& simplex, const Problem& problem, const LpForm& lp, const Basis& basis,
                std::span<const int> simplex_var, std::span<const int> keep_basic) {
    std::vector<int> basic(keep_basic.begin(), keep_basic.end());
    std::vector<std::pair<int, bool>> at_bound;
    for (std::size_t v = 1; v < simplex_var.size() && v < basis.column_basic.size(); ++v) {
        if (simplex_var[v] == 0) continue;
        if (basis.column_basic[v])
            basic.push_back(simplex_var[v]);
        else
            at_bound.emplace_back(simplex_var[v], basis.column_at_upper[v] != 0);
    }
    lra::TermEntries entries;
    for (std::size_t r = 0; r < lp.rows.size(); ++r) {
        entries.clear();
        for (const LinearExpr::Entry& e : problem.term(problem.atoms[lp.rows[r].atom].first_term))
            if (e.var != 0)
                entries.push_back({simplex_var[static_cast<std::size_t>(e.var)], e.coeff});
        lra::TermVar t = simplex.term_variable(entries);  // the row's slack, made with its atom
        if (basis.row_basic[r])
            basic.push_back(t.var);
        else  // the slack is the row's term divided by the scale: a negative one swaps sides
            at_bound.emplace_back(t.var, (basis.row_at_upper[r] != 0) != (t.scale.sign() < 0));
    }
    simplex.warm_start(basic, at_bound);
}

}  // namespace vorn::smt
