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
// Sorts: a term is Int when its numbers are numerals and its variables Int, and Real when a
// decimal, a Real variable, `/` or `to_real` occurs in it (Int and Real mix as in z3); a
// definition of sort Int with a Real body and `to_real` of a Real term are errors.
//
// Supported: numerals, decimals, declared constants, + - * / (by constants) to_real, let, !
// (annotations are ignored), and, or, not, =>, true, false, = <= < >= > (chained), distinct.
// A formula reference carries a negation bit; an assertion pushes negations inward as it commits
// its atoms (¬(a ≤ b) is a > b, ¬(a = b) the disequality Ne), and a disjunction is accepted when
// all but one of its disjuncts are constant false.
//
// Strict evaluators (solve, tableau) fail on anything else. A lenient one (check) turns what lies
// outside the fragment (a real disjunction, ite, Boolean variables, non-linear terms, functions
// with arguments) into an Unsupported value that propagates up; an assertion reaching it records
// it, so that check-sat can answer unknown and name the construct.

#include <cstdint>
#include <string>
#include <vector>

#include "vorn/io/sexpr.h"
#include "vorn/io/smt_symbols.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/name_table.h"
#include "vorn/smt/problem.h"

namespace vorn::io {

// A construct outside the fragment, with where it is.
struct Unsupported {
    std::string what;
    smt::SourcePos pos;
};

class TermEvaluator {
  public:
    TermEvaluator(smt::Problem& problem, const smt::NameTable& symbols, bool lenient = false)
        : problem_(problem), symbols_(symbols), lenient_(lenient) {}

    // True when `symbol` names a declared constant or a definition.
    bool is_defined(std::uint32_t symbol) const {
        return symbol < states_.size() && states_[symbol].global.kind != Meaning::None;
    }
    void declare_variable(std::uint32_t symbol, int var);
    // Lenient evaluators only: a Boolean constant or a function with arguments, both outside the
    // fragment wherever they are used.
    void declare_opaque(std::uint32_t symbol, bool boolean);
    // Forgets a declaration or definition (pop, reset).
    void forget(std::uint32_t symbol) { state(symbol).global = {}; }
    // Lets formulas of definitions be asserted again once their atoms were popped.
    void forget_commits() { committed_.assign(committed_.size(), false); }
    // The constructs outside the fragment that assertions reached, in order; the caller truncates
    // it when it pops assertions.
    std::vector<Unsupported>& unsupported_asserted() { return asserted_unsupported_; }
    // Evaluates a term; null when it is a formula (*formula set) or outside the fragment.
    // *real tells the term's sort: Real, or Int.
    const smt::LinearExpr* evaluate_term(const SExprTree& tree, SExprTree::Id node, bool* formula,
                                         bool* real);
    // Evaluates a define-fun body, which must be a formula when `formula` (sort Bool), an Int
    // term when `int_sort` and a term otherwise, and gives `symbol` its value.
    void define(std::uint32_t symbol, const SExprTree& tree, SExprTree::Id body, bool formula,
                bool int_sort = false);
    // A define-fun with parameters ((name Sort) ...): its body is kept and evaluated at every
    // use with the parameters bound to the arguments' values, out of reach of the caller's lets.
    void define_function(std::uint32_t symbol, const SExprTree& tree, SExprTree::Id params,
                         SExprTree::Id body, bool int_sort = false);
    // Evaluates an asserted formula and adds the atoms it reaches that are not in the problem yet.
    void assert_formula(const SExprTree& tree, SExprTree::Id node);

  private:
    using FormulaId = std::uint32_t;
    using Id = SExprTree::Id;

    struct Meaning {
        enum Kind : std::uint8_t {
            None,
            Variable,
            LetTerm,
            DefinedTerm,
            Formula,
            Unsupported,  // index: the Unsupported formula node
            BoolConstant,
            Function,
            Macro  // index: in functions_
        };
        Kind kind = None;
        std::uint32_t index = 0;  // the variable, the slot of the term, or the formula node
        bool real = false;        // LetTerm, DefinedTerm: of sort Real
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
    // A formula is a reference: node index · 2 + negation bit. An unsupported value (term or
    // formula) refers to its Unsupported node.
    struct Value {
        smt::LinearExpr expr;
        FormulaId formula = 0;
        bool is_formula = false;
        bool unsupported = false;
        bool real = false;  // a term of sort Real (else Int)
    };
    enum class Op : std::uint8_t { Arith, Relation, And, Or, Not, Implies, Let, Annotation, Call };
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
        // Call: the definition, the barrier and tree to restore when the body is evaluated.
        std::uint32_t function = 0;
        std::uint32_t saved_barrier = 0;
        const SExprTree* caller = nullptr;
    };
    struct Function {
        SExprTree body;  // the body at node 1
        std::vector<std::uint32_t> params;
        bool int_sort = false;
    };
    struct FormulaNode {
        enum Kind : std::uint8_t { True, Atom, And, Or, Unsupported };
        Kind kind;
        // Atom: index in atoms_; And, Or: first child in children_; Unsupported: in unsupported_
        std::uint32_t first;
        std::uint32_t size;  // And, Or: number of children
        smt::SourcePos pos;
    };
    // Sizes of the arenas that outlive a command (the formulas of definitions).
    struct Marks {
        std::size_t formulas = 1, children = 0, atoms = 0, unsupported = 0;
    };

    // Leaves the value of `node` in the slot values_[0].
    void evaluate(const SExprTree& tree, Id node);
    void start(Id node);
    void start_list(Id node);
    void push_frame(Id node, Id args, Id end, Op op, Known head);
    // The next node to evaluate for `f`, or 0 (the root, never an argument) when none is left.
    Id next_child(Frame& f);
    smt::SourcePos arg_pos(const Frame& f, std::size_t i) const;
    void finish(Frame& f);
    void finish_arith(const Frame& f);
    void finish_relation(const Frame& f);
    void finish_and(const Frame& f);
    void finish_let(const Frame& f);
    void finish_call(Frame& f);
    Id bind_call(Frame& f);
    void finish_connective(const Frame& f);
    // Fails in a strict evaluator; otherwise the value of a construct outside the fragment.
    void outside(Value& value, const std::string& what, smt::SourcePos pos);
    // True (and the result set) when an argument of `f` is unsupported.
    bool propagate_unsupported(const Frame& f);

    void push_symbol(const SNode& node);
    Value& push_value();
    void expect_kind(const Frame& f, bool formula) const;
    void bind(const SNode& name, Value& value, std::size_t scope_begin);
    const SNode& node(Id id) const { return (*tree_)[id]; }
    void unbind_to(std::size_t size);
    Meaning meaning(std::uint32_t symbol) const;
    SymbolState& state(std::uint32_t symbol);
    std::string name(std::uint32_t symbol) const { return std::string(symbols_.name(symbol)); }

    FormulaId new_atom(smt::Relation relation, std::uint32_t first_term, std::uint32_t terms,
                       smt::SourcePos pos);
    FormulaId new_and(std::span<const FormulaId> children,
                      FormulaNode::Kind kind = FormulaNode::And, smt::SourcePos pos = {});
    FormulaId new_unsupported(const std::string& what, smt::SourcePos pos);
    void commit(FormulaId root);
    void commit_atom(const smt::Atom& atom, bool negated, smt::SourcePos pos);
    // 1 constant true, 0 constant false, −1 neither.
    int constant_truth(FormulaId ref) const;
    void commit_disjunction(const FormulaNode& node, bool negated);
    void forget_command_formulas();

    smt::Problem& problem_;
    const smt::NameTable& symbols_;
    bool lenient_;
    const SExprTree* tree_ = nullptr;       // the tree being evaluated
    const SExprTree* root_tree_ = nullptr;  // the command's own tree
    std::vector<SymbolState> states_;       // by symbol
    std::vector<Binding> bindings_;
    // Bindings below this index are the caller's and invisible in a definition's body.
    std::size_t barrier_ = 0;
    std::vector<Function> functions_;
    std::uint64_t body_nodes_ = 0;  // nodes of definition bodies evaluated for this command
    std::vector<smt::LinearExpr> let_terms_;      // values of numeric let bindings
    std::vector<smt::LinearExpr> defined_terms_;  // values of numeric definitions
    std::vector<Value> values_;                   // slots [0, top_) are in use
    std::size_t top_ = 0;
    std::vector<Frame> frames_;
    std::vector<FormulaNode> formulas_{{FormulaNode::True, 0, 0, {}}};
    std::vector<FormulaId> children_;
    std::vector<smt::Atom> atoms_;  // atoms built, not yet asserted
    std::vector<Unsupported> unsupported_;
    std::vector<Unsupported> asserted_unsupported_;
    std::vector<bool> committed_;  // by formula node: visited by an assertion
    std::vector<FormulaId> scratch_ids_;
    std::vector<FormulaId> commit_stack_;
    smt::LinearExpr scratch_;
    Marks persistent_;
};

}  // namespace vorn::io
