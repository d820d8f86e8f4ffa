#include "vorn/smt/formula_folding.h"

#include <algorithm>

namespace vorn::smt {

namespace {

constexpr FormulaRef kTrue = 0, kFalse = 1;

bool constant_term(std::span<const Problem::Entry> term) {
    return term.empty() || (term.size() == 1 && term[0].var == 0);
}

int constant_sign(std::span<const Problem::Entry> term) {
    return term.empty() ? 0 : term[0].coeff.sign();
}

bool same_entries(std::span<const Problem::Entry> a, std::span<const Problem::Entry> b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.var == y.var && x.coeff == y.coeff;
    });
}

// The entries over variables: the constant, when there is one, comes first.
std::span<const Problem::Entry> variable_part(std::span<const Problem::Entry> term) {
    return !term.empty() && term[0].var == 0 ? term.subspan(1) : term;
}

// Keeps the first of repeated operands, in order; `ops` is small or sorted once.
void drop_repeats(std::vector<FormulaRef>& ops, std::vector<FormulaRef>& sorted) {
    sorted.assign(ops.begin(), ops.end());
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end()) return;
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    std::vector<std::uint8_t> taken(sorted.size(), 0);
    std::size_t kept = 0;
    for (FormulaRef r : ops) {
        auto i = static_cast<std::size_t>(std::lower_bound(sorted.begin(), sorted.end(), r) -
                                          sorted.begin());
        if (taken[i]) continue;
        taken[i] = 1;
        ops[kept++] = r;
    }
    ops.resize(kept);
}

}  // namespace

int constant_atom_truth(const Problem& problem, const Atom& atom) {
    if (atom.relation != Relation::Distinct) {
        auto term = problem.term(atom.first_term);
        return constant_term(term) ? (relation_holds(atom.relation, constant_sign(term)) ? 1 : 0)
                                   : -1;
    }
    // Equal terms make a distinct false; it is true when every two terms differ by a nonzero
    // constant (y and y + 1), as the checker reads a distinct pairwise.
    bool all_apart = true;
    for (std::uint32_t a = 0; a < atom.terms; ++a) {
        auto ta = problem.term(atom.first_term + a);
        for (std::uint32_t b = a + 1; b < atom.terms; ++b) {
            auto tb = problem.term(atom.first_term + b);
            if (same_entries(ta, tb)) return 0;
            all_apart = all_apart && same_entries(variable_part(ta), variable_part(tb));
        }
    }
    return all_apart ? 1 : -1;
}

FormulaRef folded_atom(FormulaDag& dag, const Problem& problem, const Atom& atom) {
    int truth = constant_atom_truth(problem, atom);
    if (truth >= 0) return truth == 1 ? kTrue : kFalse;
    CanonicalAtoms& known = dag.canonical_atoms();
    if (std::optional<FormulaRef> earlier = known.find(problem, atom)) return *earlier;
    FormulaRef made = dag.atom(atom);
    known.add(made);
    return made;
}

FormulaRef folded_connective(FormulaDag& dag, FormulaNode::Kind kind,
                             std::span<const FormulaRef> operands, SourcePos pos,
                             std::vector<FormulaRef>& scratch) {
    scratch.clear();
    std::vector<FormulaRef> sorted;
    if (kind == FormulaNode::Xor) {
        // Negations and constants come out of an xor as its parity.
        FormulaRef parity = 0;
        for (FormulaRef r : operands) {
            if (r <= kFalse) {
                parity ^= r ^ 1;
                continue;
            }
            parity ^= r & 1;
            scratch.push_back(r & ~FormulaRef{1});
        }
        if (scratch.size() == 2 && scratch[0] == scratch[1]) scratch.clear();
        if (scratch.empty()) return parity ? kTrue : kFalse;
        if (scratch.size() == 1) return scratch[0] ^ parity;
        return dag.node(kind, scratch, pos) ^ parity;
    }
    FormulaRef decisive = kind == FormulaNode::And ? kFalse : kTrue;
    for (FormulaRef r : operands) {
        if (r == decisive) return decisive;
        if (r != (decisive ^ 1)) scratch.push_back(r);
    }
    drop_repeats(scratch, sorted);
    for (std::size_t i = 1; i < sorted.size(); ++i)
        if (sorted[i] == (sorted[i - 1] ^ 1)) return decisive;
    if (scratch.empty()) return decisive ^ 1;
    if (scratch.size() == 1) return scratch[0];
    return dag.node(kind, scratch, pos);
}

FormulaRef folded_ite(FormulaDag& dag, FormulaRef condition, FormulaRef then, FormulaRef otherwise,
                      SourcePos pos) {
    if (condition <= kFalse) return condition == kTrue ? then : otherwise;
    if (then == otherwise) return then;
    FormulaRef args[] = {condition, then, otherwise};
    return dag.node(FormulaNode::Ite, args, pos);
}

bool same_expr(const LinearExpr& a, const LinearExpr& b) {
    return same_entries(a.entries(), b.entries());
}

}  // namespace vorn::smt
