#pragma once

// FormulaDag: the formulas of a problem as a DAG, the one representation every front end builds
// (the SMT-LIB term evaluator, io/smt_terms.h; the embedding API, solver.h). Built bottom-up, a
// node shared wherever a let binding, a definition or a C++ Formula value is used again; the
// assertion encoder (assertion_encoder.h) commits it to the problem and evaluates it under models.
//
// A formula is a reference: node index · 2 + negation bit. Node 0 is true, so reference 0 is
// true and reference 1 false. The arenas are stacks, O(1) amortized per node: the engine marks
// them at a push (and a front end at the start of a command) and truncates them back at a pop
// (and after a command whose formulas are not needed any more).
//
// An `ite` between terms becomes a fresh problem variable v (LiftedIte) whose definition, the
// formula (ite c (= v then) (= v else)), holds whatever the other variables are: asserting it
// beside any atom that mentions v keeps every answer as it was. The quotient (div t d) by a
// nonzero constant d is lifted the same way, to a fresh Int variable q defined by
// 0 <= t − d·q < |d| (the Euclidean quotient: floor(t/d) for d > 0, ceil(t/d) for d < 0); so is
// (to_int t), the quotient by 1.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "vorn/smt/canonical_atoms.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// A construct outside the fragment, with where it is.
struct Unsupported {
    std::string what;
    SourcePos pos;
};

using FormulaRef = std::uint32_t;

struct FormulaNode {
    enum Kind : std::uint8_t { True, Atom, And, Or, Xor, Ite, Var, Unsupported };
    Kind kind;
    // Atom: index in atoms(); And, Or, Xor, Ite (condition, then, else): first child in
    // children(); Var: the Bool problem variable; Unsupported: index in unsupported().
    std::uint32_t first;
    std::uint32_t size;  // And, Or, Xor, Ite: number of children
    SourcePos pos;
};

struct LiftedIte {
    enum Kind : std::uint8_t { Ite, Quotient };
    int var;
    FormulaRef condition;  // Ite only
    // Problem terms. Ite: the branches; Quotient: the dividend and the divisor, a constant.
    std::uint32_t then_term, otherwise_term;
    FormulaRef definition;
    Kind kind = Ite;
    // An asserted equality x = v names the ite by a problem variable (a transition system's
    // next state): its atoms are then decided like the variable's (assertion_encoder.h).
    bool named = false;
};

// The branches of a lifted Ite when both are constants (then, else), or nothing.
std::optional<std::pair<QNumber, QNumber>> constant_branches(const Problem& problem,
                                                             const LiftedIte& lifted);

// The Euclidean quotient of `dividend` by a nonzero `divisor`: the value of a lifted Quotient.
QNumber euclidean_quotient(const QNumber& dividend, const QNumber& divisor);

class FormulaDag {
  public:
    struct Marks {
        std::size_t nodes = 1, children = 0, atoms = 0, unsupported = 0, lifted = 0;
    };

    FormulaRef atom(const Atom& atom) {
        atoms_.push_back(atom);
        return add({FormulaNode::Atom, static_cast<std::uint32_t>(atoms_.size() - 1), 0, atom.pos});
    }
    FormulaRef node(FormulaNode::Kind kind, std::span<const FormulaRef> children, SourcePos pos) {
        FormulaNode n{kind, static_cast<std::uint32_t>(children_.size()),
                      static_cast<std::uint32_t>(children.size()), pos};
        children_.insert(children_.end(), children.begin(), children.end());
        return add(n);
    }
    FormulaRef variable(int var, SourcePos pos) {
        return add({FormulaNode::Var, static_cast<std::uint32_t>(var), 0, pos});
    }
    FormulaRef unsupported(const std::string& what, SourcePos pos) {
        unsupported_.push_back({what, pos});
        return add({FormulaNode::Unsupported, static_cast<std::uint32_t>(unsupported_.size() - 1),
                    0, pos});
    }
    void lift(const LiftedIte& l) {
        lifted_.push_back(l);
        if (lifted_index_.size() <= static_cast<std::size_t>(l.var))
            lifted_index_.resize(static_cast<std::size_t>(l.var) + 1, 0);
        lifted_index_[static_cast<std::size_t>(l.var)] = static_cast<std::uint32_t>(lifted_.size());
    }

    void name_lifted(std::size_t i) { lifted_[i].named = true; }

    const FormulaNode& operator[](FormulaRef ref) const { return nodes_[ref / 2]; }
    std::span<const FormulaRef> children(const FormulaNode& n) const {
        // An atom's or a variable's `first` indexes another array: it has no children here.
        if (n.size == 0) return {};
        return {children_.data() + n.first, n.size};
    }
    const Atom& atom_of(const FormulaNode& n) const { return atoms_[n.first]; }
    const Unsupported& unsupported_of(const FormulaNode& n) const { return unsupported_[n.first]; }
    std::size_t size() const { return nodes_.size(); }
    std::span<const LiftedIte> lifted() const { return lifted_; }
    // The index in lifted() of the ite that `var` stands for, or −1.
    std::int64_t lifted_index(int var) const {
        auto v = static_cast<std::size_t>(var);
        if (v >= lifted_index_.size() || lifted_index_[v] == 0 || lifted_index_[v] > lifted_.size())
            return -1;
        std::size_t i = lifted_index_[v] - 1;
        return lifted_[i].var == var ? static_cast<std::int64_t>(i) : -1;
    }

    // The atoms made through folded_atom (formula_folding.h), one node per normal form.
    CanonicalAtoms& canonical_atoms() { return canonical_atoms_; }

    Marks marks() const {
        return {nodes_.size(), children_.size(), atoms_.size(), unsupported_.size(),
                lifted_.size()};
    }
    // Shrinks back to `m`; arenas already smaller (a pop came first) stay as they are.
    void truncate(const Marks& m) {
        shrink(nodes_, m.nodes);
        shrink(children_, m.children);
        shrink(atoms_, m.atoms);
        shrink(unsupported_, m.unsupported);
        shrink(lifted_, m.lifted);
        canonical_atoms_.truncate(nodes_.size());
    }

  private:
    template <class T>
    static void shrink(std::vector<T>& v, std::size_t size) {
        if (v.size() > size) v.resize(size);
    }
    FormulaRef add(const FormulaNode& n) {
        nodes_.push_back(n);
        return static_cast<FormulaRef>(2 * (nodes_.size() - 1));
    }

    std::vector<FormulaNode> nodes_{{FormulaNode::True, 0, 0, {}}};
    std::vector<FormulaRef> children_;
    std::vector<Atom> atoms_;
    std::vector<Unsupported> unsupported_;
    std::vector<LiftedIte> lifted_;
    std::vector<std::uint32_t> lifted_index_;  // by variable: index in lifted_ + 1, 0 for none
    CanonicalAtoms canonical_atoms_;
};

}  // namespace vorn::smt
