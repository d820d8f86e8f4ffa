#pragma once

// Evaluation of SMT-LIB terms and formulas into linear expressions and formula DAGs.
//
// Terms become linear expressions; formulas become nodes of the engine's DAG (smt/formula_dag.h)
// that its assertion encoder (smt/assertion_encoder.h) commits to the problem. A `let` binding and
// a `define-fun` body are evaluated once and their value is shared by every use: a use copies a
// linear expression (at most one entry per variable) or refers to a formula node, so nested
// doubling lets cost time linear in the text, not exponential. `distinct` stays one atom over its n
// terms. Formulas fold as they are built (smt/formula_folding.h): an atom over constants is true
// or false, so a term ite that such a condition decides is its branch, not a lifted variable.
//
// The evaluator walks the tree with its own stacks, not the machine's, so its depth is bounded
// only by the reader's nesting limit; a few value slots are reused as scratch, so evaluating the
// common term allocates nothing but the atom's entries.
//
// Sorts: a term is Int when its numbers are numerals and its variables Int, and Real when a
// decimal, a Real variable, `/` or `to_real` occurs in it (Int and Real mix as in z3); a
// definition of sort Int with a Real body is an error, and so is `to_real` of a Real term in a
// strict evaluator (a lenient one reads it as the term, as z3 does).
//
// Supported: numerals, decimals, declared constants, + - * / (by constants) to_real, let, !
// (a :named term defines its name, as a 0-ary definition, once the command succeeds: see
// take_names), and, or, not, =>, true, false, = <= < >= > (chained), distinct. Lenient
// evaluators (check) add Bool constants, xor, = and distinct between formulas, ite over formulas
// and over terms (a fresh variable, formula_dag.h), abs (an ite), and div and mod by a nonzero
// constant, to_int, is_int and (_ divisible k), each an exact quotient over a fresh Int variable
// (smt_integer_ops.cpp); what lies outside (non-linear terms, other divisors, functions with
// arguments, constants of uninterpreted sorts, quantifiers) becomes an Unsupported node that the
// encoder reports, so that check-sat can answer unknown and name the construct. Strict
// evaluators (solve, tableau) fail on all of these, and their assertions must be conjunctions.

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "vorn/io/sexpr.h"
#include "vorn/io/smt_symbols.h"
#include "vorn/smt/formula_dag.h"
#include "vorn/smt/formula_folding.h"
#include "vorn/smt/ite_values.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/name_table.h"
#include "vorn/smt/problem.h"

namespace vorn::io {

using smt::FormulaDag;
using smt::FormulaNode;
using smt::FormulaRef;

class TermEvaluator {
  public:
    // Builds into `dag`, the engine's.
    TermEvaluator(smt::Problem& problem, FormulaDag& dag, const smt::NameTable& symbols,
                  bool lenient = false)
        : problem_(problem), symbols_(symbols), lenient_(lenient), dag_(dag) {}

    // True when `symbol` names a declared constant or a definition.
    bool is_defined(std::uint32_t symbol) const {
        return symbol < states_.size() && states_[symbol].global.kind != Meaning::None;
    }
    // A Real, Int or Bool constant.
    void declare_variable(std::uint32_t symbol, int var);
    // Lenient evaluators only: a function with arguments, or a constant of an uninterpreted
    // sort, outside the fragment wherever it is used.
    void declare_function(std::uint32_t symbol, bool uninterpreted_constant = false);
    // Forgets a declaration or definition (pop, reset). With `release_values`, a definition's
    // value slot and every later one go with it (a pop forgets the latest definitions).
    void forget(std::uint32_t symbol, bool release_values = true) {
        Meaning& m = state(symbol).global;
        if (release_values && m.kind == Meaning::DefinedTerm && m.index < defined_terms_.size())
            defined_terms_.resize(m.index);
        if (release_values && m.kind == Meaning::Macro && m.index < functions_.size())
            functions_.resize(m.index);
        m = {};
    }
    // The symbols that :named annotations defined since the last call, in order: the caller
    // keeps them (and forgets them at a pop), or drops them when its command failed or does not
    // define names.
    std::vector<std::uint32_t> take_names() { return std::exchange(new_names_, {}); }
    void drop_names() {
        for (std::uint32_t symbol : take_names())
            forget(symbol);
    }
    // The formula that `symbol` names through a :named annotation, or null.
    const FormulaRef* named_formula(std::uint32_t symbol) const {
        return symbol < states_.size() && states_[symbol].global.kind == Meaning::Formula &&
                       states_[symbol].global.named
                   ? &states_[symbol].global.index
                   : nullptr;
    }
    // Evaluates a term; null when it is a formula (*formula set, its reference in *ref) or
    // outside the fragment. *real tells the term's sort: Real, or Int.
    const smt::LinearExpr* evaluate_term(const SExprTree& tree, SExprTree::Id node, bool* formula,
                                         bool* real, FormulaRef* ref = nullptr);
    // Evaluates a formula (an Unsupported node when it lies outside the fragment).
    FormulaRef formula(const SExprTree& tree, SExprTree::Id node);
    // A soft assertion's penalty (assert-soft): the term (ite condition 0 weight), valid until
    // the next call.
    const smt::LinearExpr& penalty(FormulaRef condition, const QNumber& weight, bool real,
                                   smt::SourcePos pos);
    // An asserted (= x t), x a declared Int or Real constant: the atom x − t = 0 into *atom.
    // When t does not mention x and takes finitely many values (a constant, or over one term ite
    // with constant leaves: smt/ite_values.h), x stands for t's value in later terms (where the
    // assertion holds they are equivalent), so that an equality over x folds into t's conditions
    // (a program counter's next value). Returns x's variable; −1 when only the atom is built;
    // 0, with nothing evaluated, for another shape.
    int define_by_equality(const SExprTree& tree, SExprTree::Id node, FormulaRef* atom);
    // Gives `symbol` its variable back: the pop of its definition by equality. Later
    // definitions may outlive it (reset-assertions keeps level 0's), so their slots stay.
    void restore_variable(std::uint32_t symbol, int var) {
        std::erase_if(by_equality_, [&](const auto& e) { return e.first == symbol; });
        forget(symbol, false);
        declare_variable(symbol, var);
    }
    // `read()` with every symbol that a definition by equality reads as its term read as its
    // variable again: for what outlives the assertion (a define-fun body, a :named term), which
    // a pop or reset-assertions would otherwise leave reading x as t.
    template <class Read>
    decltype(auto) as_declared(Read&& read) {
        struct Restore {
            TermEvaluator& terms;
            std::vector<Meaning> saved;
            ~Restore() {
                for (std::size_t i = 0; i < saved.size(); ++i)
                    terms.state(terms.by_equality_[i].first).global = saved[i];
            }
        } restore{*this, {}};
        for (auto [symbol, var] : by_equality_) {
            restore.saved.push_back(state(symbol).global);
            state(symbol).global = {Meaning::Variable, static_cast<std::uint32_t>(var)};
        }
        return read();
    }
    // Evaluates a define-fun body, which must be a formula when `formula` (sort Bool), an Int
    // term when `int_sort` and a term otherwise, and gives `symbol` its value.
    void define(std::uint32_t symbol, const SExprTree& tree, SExprTree::Id body, bool formula,
                bool int_sort = false);
    // Gives `symbol` the value `ref` (a :named formula).
    void name(std::uint32_t symbol, FormulaRef ref) {
        state(symbol).global = {Meaning::Formula, ref, false, true};
    }
    // A define-fun with parameters ((name Sort) ...), or none when `params` is 0: its body is
    // kept and evaluated at every use with the parameters bound to the arguments' values, out of
    // reach of the caller's lets.
    void define_function(std::uint32_t symbol, const SExprTree& tree, SExprTree::Id params,
                         SExprTree::Id body, bool int_sort = false);
    // The formulas built so far; the engine marks and truncates it.
    FormulaDag& dag() { return dag_; }

  private:
    using FormulaId = FormulaRef;
    using Id = SExprTree::Id;

    struct Meaning {
        enum Kind : std::uint8_t {
            None,
            Variable,
            LetTerm,
            DefinedTerm,
            Formula,
            Unsupported,  // index: the Unsupported formula node
            Function,
            Macro  // index: in functions_
        };
        Kind kind = None;
        std::uint32_t index = 0;  // the variable, the slot of the term, or the formula node
        bool real = false;        // LetTerm, DefinedTerm: of sort Real
        bool named = false;       // defined by a :named annotation
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
    enum class Op : std::uint8_t {
        Arith,
        Relation,
        And,
        Or,
        Not,
        Implies,
        Xor,
        Ite,
        Let,
        Annotation,
        Call,
        IntegerOp  // div, mod, abs, to_int, is_int, (_ divisible k)
    };
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
    void finish_ite(const Frame& f);
    // Defines the names of the :named attributes of `f` as its value.
    void finish_annotation(const Frame& f);
    // smt_integer_ops.cpp: a list whose head is a list, ((_ divisible k) t) or outside.
    void start_indexed(Id id);
    // smt_integer_ops.cpp: div, mod, abs, to_int, is_int and divisible (head Underscore).
    void finish_integer_op(const Frame& f);
    // (div dividend divisor) into `result`: a constant when the dividend is one, else a fresh
    // Int variable with its definition (formula_dag.h).
    void quotient(Value& result, const smt::LinearExpr& dividend, const QNumber& divisor,
                  smt::SourcePos pos);
    // (div t 0), (mod t 0), (/ t 0) into `result`: the standard leaves them unspecified, so
    // each is a function of t alone, a fresh variable equal to the value of every earlier
    // application of `op` whose argument equals t (nested ites; O(earlier applications)).
    void by_zero(Value& result, Known op, bool real, smt::SourcePos pos);
    // Whether a variable the reader made (named `name`; `lifted`: with a lifted definition) is
    // gone: a pop took it, or its command was dropped.
    bool stale(int var, const std::string& name, bool lifted) const;
    // (ite c then otherwise) between terms: a fresh variable, into `result`.
    void lift_ite(Value& result, FormulaId condition, const smt::LinearExpr& then,
                  const smt::LinearExpr& otherwise, bool real, smt::SourcePos pos);
    // The same, the variable of an equal ite made before when there is one (ites_).
    void shared_ite(Value& result, FormulaId condition, const smt::LinearExpr& then,
                    const smt::LinearExpr& otherwise, bool real, smt::SourcePos pos);
    struct SharedLifted;
    // The variable made before under `key` into `result`, when it is not stale (else forgotten).
    bool reuse_lifted(std::unordered_map<std::string, SharedLifted>& made, const std::string& key,
                      Value& result);
    // Appends the entries of `e` to a sharing key.
    static void append_key(std::string& key, const smt::LinearExpr& e);
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

    // An atom over constants is true or false; connectives fold (smt/formula_folding.h).
    FormulaId new_atom(smt::Relation relation, std::uint32_t first_term, std::uint32_t terms,
                       smt::SourcePos pos) {
        return smt::folded_atom(dag_, problem_, {relation, first_term, terms, pos});
    }
    FormulaId new_connective(FormulaNode::Kind kind, std::span<const FormulaId> children,
                             smt::SourcePos pos) {
        return smt::folded_connective(dag_, kind, children, pos, folded_);
    }
    // A node as it is: a lifted definition keeps its shape.
    FormulaId new_node(FormulaNode::Kind kind, std::span<const FormulaId> children,
                       smt::SourcePos pos) {
        return dag_.node(kind, children, pos);
    }

    smt::Problem& problem_;
    const smt::NameTable& symbols_;
    bool lenient_;
    FormulaDag& dag_;
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
    std::vector<FormulaId> scratch_ids_;
    std::vector<FormulaId> folded_;  // new_connective's scratch
    smt::LinearExpr scratch_;
    Value penalty_;
    std::uint32_t lifted_names_ = 0;
    // Equalities between a term ite with constant leaves and a constant fold to Boolean structure.
    smt::IteValues ite_values_;
    std::vector<std::uint32_t> new_names_;  // see take_names
    smt::LinearExpr negated_;               // abs: scratch for −t
    // Applications by zero as by_zero made them; one whose variable a pop took, or whose ite
    // definition its command dropped, is stale.
    struct ByZero {
        Known op;
        smt::LinearExpr argument;
        int value;
        std::string name;
        bool lifted;
    };
    std::vector<ByZero> by_zero_;
    // Quotients by their dividend and divisor (quotient_key): the same div or mod written twice
    // is one variable, so that its copies cancel as the certificate checker reads them. Term
    // ites (abs among them) by their condition and branches: one variable too, so that the
    // quotients over it are shared as well. One whose variable a pop took, or whose command was
    // dropped, is stale.
    struct SharedLifted {
        int var;
        std::string name;
    };
    std::unordered_map<std::string, SharedLifted> quotients_;
    std::unordered_map<std::string, SharedLifted> ites_;
    // The symbols read as their definition by equality, with their variables (as_declared).
    std::vector<std::pair<std::uint32_t, int>> by_equality_;
};

}  // namespace vorn::io
