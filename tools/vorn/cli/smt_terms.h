#pragma once

// Evaluation of SMT-LIB terms and formulas into linear expressions and atoms.
//
// Terms become linear expressions; formulas become nodes of a DAG (true, an atom, or a
// conjunction of nodes) whose atoms are added to the problem when an assertion reaches them,
// each atom once, in the order the assertion lists them. A `let` binding and a `define-fun` body
// are evaluated once and their value is shared by every use: a use copies a linear expression
// (at most one entry per variable) or refers to a formula node, so nested doubling lets cost
// time linear in the text, not exponential. `distinct` stays one atom over its n terms.
//
// The evaluator walks the tree with its own stacks, not the machine's, so its depth is bounded
// only by the reader's nesting limit; a few value slots are reused as scratch, so evaluating the
// common term allocates nothing but the atom's entries.
//
// Supported: numerals, decimals, declared constants, + - * / (by constants) to_real, let, !
// (annotations are ignored), and, true, false, = <= < >= > (chained), distinct.

#include <cstdint>
#include <string>
#include <vector>

#include "cli/linear_expr.h"
#include "cli/names.h"
#include "cli/problem.h"
#include "cli/sexpr.h"
#include "cli/smt_symbols.h"

namespace vorn::cli {

class TermEvaluator {
  public:
    TermEvaluator(Problem& problem, const NameTable& symbols)
        : problem_(problem), symbols_(symbols) {}

    // True when `symbol` names a declared constant or a definition.
    bool is_defined(std::uint32_t symbol) const {
        return symbol < states_.size() && states_[symbol].global.kind != Meaning::None;
    }
    void declare_variable(std::uint32_t symbol, int var);
    // Evaluates a define-fun body, which must be a formula when `formula` (sort Bool) and a term
    // otherwise, and gives `symbol` its value.
    void define(std::uint32_t symbol, const SExprTree& tree, SExprTree::Id body, bool formula);
    // Evaluates an asserted formula and adds the atoms it reaches that are not in the problem yet.
    void assert_formula(const SExprTree& tree, SExprTree::Id node);

  private:
    using FormulaId = std::uint32_t;
    using Id = SExprTree::Id;

    struct Meaning {
        enum Kind : std::uint8_t { None, Variable, LetTerm, DefinedTerm, Formula };
        Kind kind = None;
        std::uint32_t index = 0;  // the variable, the slot of the term, or the formula node
    };
    struct SymbolState {
        Meaning global;               // outside any let
        std::uint32_t innermost = 0;  // its innermost let binding + 1, or 0
    };
    struct Binding {  // one let binding, shadowing `previous` (an index + 1, 0 for none)
        std::uint32_t symbol;
        std::uint32_t previous;
        Meaning meaning;
    };
    struct Value {
        LinearExpr expr;
        FormulaId formula = 0;
        bool is_formula = false;
    };
    enum class Op : std::uint8_t { Arith, Relation, And, Let, Annotation };
    struct Frame {
        Id node;
        Id args;  // the first argument after the head (Let: the first binding)
        Id next;  // the next argument (Let: binding) to evaluate
        Id end;   // where the arguments (Let: bindings) end
        Op op;
        Known head;
        bool bound = false;       // Let: the bindings are in scope, the body is evaluated
        std::uint32_t base;       // the frame's first value slot
        std::uint32_t scope = 0;  // Let: bindings_ and let_terms_ sizes before it bound
        std::uint32_t let_terms = 0;
    };
    struct FormulaNode {
        enum Kind : std::uint8_t { True, Atom, And };
        Kind kind;
        std::uint32_t first;  // Atom: index in atoms_; And: first child in children_
        std::uint32_t size;   // And: number of children
    };
    // Sizes of the arenas that outlive a command (the formulas of definitions).
    struct Marks {
        std::size_t formulas = 1, children = 0, atoms = 0;
    };

    // Leaves the value of `node` in the slot values_[0].
    void evaluate(const SExprTree& tree, Id node);
    void start(Id node);
    void start_list(Id node);
    void push_frame(Id node, Id args, Id end, Op op, Known head);
    // The next node to evaluate for `f`, or 0 (the root, never an argument) when none is left.
    Id next_child(Frame& f);
    SourcePos arg_pos(const Frame& f, std::size_t i) const;
    void finish(Frame& f);
    void finish_arith(const Frame& f);
    void finish_relation(const Frame& f);
    void finish_and(const Frame& f);
    void finish_let(const Frame& f);

    void push_symbol(const SNode& node);
    Value& push_value();
    void expect_kind(const Frame& f, bool formula) const;
    void bind(const SNode& name, Value& value, std::size_t scope_begin);
    const SNode& node(Id id) const { return (*tree_)[id]; }
    void unbind_to(std::size_t size);
    Meaning meaning(std::uint32_t symbol) const;
    SymbolState& state(std::uint32_t symbol);
    std::string name(std::uint32_t symbol) const { return std::string(symbols_.name(symbol)); }

    FormulaId new_atom(Relation relation, std::uint32_t first_term, std::uint32_t terms,
                       SourcePos pos);
    FormulaId new_and(std::span<const FormulaId> children);
    void commit(FormulaId root);
    void forget_command_formulas();

    Problem& problem_;
    const NameTable& symbols_;
    const SExprTree* tree_ = nullptr;  // the tree being evaluated
    std::vector<SymbolState> states_;  // by symbol
    std::vector<Binding> bindings_;
    std::vector<LinearExpr> let_terms_;      // values of numeric let bindings
    std::vector<LinearExpr> defined_terms_;  // values of numeric definitions
    std::vector<Value> values_;              // slots [0, top_) are in use
    std::size_t top_ = 0;
    std::vector<Frame> frames_;
    std::vector<FormulaNode> formulas_{{FormulaNode::True, 0, 0}};
    std::vector<FormulaId> children_;
    std::vector<Atom> atoms_;      // atoms built, not yet asserted
    std::vector<bool> committed_;  // by formula node: visited by an assertion
    std::vector<FormulaId> scratch_ids_;
    std::vector<FormulaId> commit_stack_;
    LinearExpr scratch_;
    Marks persistent_;
};

}  // namespace vorn::cli
