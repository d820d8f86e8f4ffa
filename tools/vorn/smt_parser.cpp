#include "vorn/smt_parser.h"

#include <deque>
#include <unordered_map>

#include "vorn/sexpr.h"

namespace vorn::cli {

namespace {

// Deep nesting is refused rather than allowed to exhaust the stack.
constexpr int kMaxDepth = 2000;

// A let binding: the bound expression and the scope it is evaluated in.
struct Frame {
    std::string name;
    const SExpr* expr;
    const Frame* scope;
    const Frame* parent;
};

struct Macro {
    const SExpr* body;
    bool boolean;
};

class Interpreter {
  public:
    explicit Interpreter(Problem& problem) : problem_(problem) {}

    // Returns false once (exit) has been read.
    bool command(const SExpr& cmd) {
        if (!cmd.is_list() || cmd.items.empty() || cmd.items[0].kind != SExpr::Kind::Symbol)
            throw InputError(cmd.pos, "expected a command in parentheses");
        const std::string& name = cmd.items[0].text;
        if (name == "set-logic" || name == "set-info" || name == "set-option" ||
            name == "check-sat" || name == "get-model" || name == "get-info")
            return true;
        if (name == "exit") return false;
        if (name == "declare-fun") return declare(cmd, true), true;
        if (name == "declare-const") return declare(cmd, false), true;
        if (name == "define-fun") return define(cmd), true;
        if (name == "assert") {
            expect_arity(cmd, 2);
            frames_.clear();
            formula(cmd.items[1], nullptr, 0);
            return true;
        }
        if (name == "push" || name == "pop")
            throw InputError(cmd.pos, "'" + name + "' is not supported: give one problem per file");
        throw InputError(cmd.items[0].pos, "unknown command '" + name + "'");
    }

  private:
    static void expect_arity(const SExpr& e, std::size_t n) {
        if (e.items.size() != n)
            throw InputError(e.pos, "'" + e.items[0].text + "' takes " + std::to_string(n - 1) +
                                        " argument" + (n == 2 ? "" : "s"));
    }

    // Real or Int; Bool only where `allow_bool`.
    static bool numeric_sort(const SExpr& sort, bool allow_bool) {
        if (sort.is_symbol("Real") || sort.is_symbol("Int")) return true;
        if (allow_bool && sort.is_symbol("Bool")) return false;
        throw InputError(sort.pos, "unsupported sort (only Real and Int)");
    }

    const SExpr& fresh_symbol(const SExpr& e) {
        if (e.kind != SExpr::Kind::Symbol) throw InputError(e.pos, "expected a symbol");
        if (problem_.symbols.find(e.text) != 0 || macros_.count(e.text))
            throw InputError(e.pos, "symbol '" + e.text + "' is already declared");
        return e;
    }

    void declare(const SExpr& cmd, bool fun) {
        expect_arity(cmd, fun ? 4 : 3);
        const SExpr& name = fresh_symbol(cmd.items[1]);
        if (fun && !(cmd.items[2].is_list() && cmd.items[2].items.empty()))
            throw InputError(cmd.items[2].pos,
                             "only constants (functions without arguments) are supported");
        numeric_sort(cmd.items[fun ? 3 : 2], false);
        problem_.symbols.intern(name.text);
    }

    void define(const SExpr& cmd) {
        expect_arity(cmd, 5);
        const SExpr& name = fresh_symbol(cmd.items[1]);
        if (!(cmd.items[2].is_list() && cmd.items[2].items.empty()))
            throw InputError(cmd.items[2].pos, "only define-fun without arguments is supported");
        bool numeric = numeric_sort(cmd.items[3], true);
        macros_[name.text] = Macro{&cmd.items[4], !numeric};
    }

    static const Frame* lookup(const Frame* scope, const std::string& name) {
        for (; scope != nullptr; scope = scope->parent)
            if (scope->name == name) return scope;
        return nullptr;
    }

    // Parallel let: every binding is evaluated in the scope outside the let.
    const Frame* bind(const SExpr& let, const Frame* scope) {
        if (let.items.size() != 3 || !let.items[1].is_list() || let.items[1].items.empty())
            throw InputError(let.pos, "malformed let");
        const Frame* inner = scope;
        for (const SExpr& binding : let.items[1].items) {
            if (!binding.is_list() || binding.items.size() != 2 ||
                binding.items[0].kind != SExpr::Kind::Symbol)
                throw InputError(binding.pos, "malformed let binding");
            frames_.push_back(Frame{binding.items[0].text, &binding.items[1], scope, inner});
            inner = &frames_.back();
        }
        return inner;
    }

    void add_atom(Relation rel, LinearExpr lhs, const LinearExpr& rhs, SourcePos pos) {
        lhs.add(rhs, QNumber(-1));
        problem_.atoms.push_back(Atom{rel, std::move(lhs), pos});
    }

    void formula(const SExpr& e, const Frame* scope, int depth) {
        if (depth > kMaxDepth) throw InputError(e.pos, "expression nested too deeply");
        if (e.kind == SExpr::Kind::Symbol) {
            if (e.text == "true") return;
            if (e.text == "false")
                return add_atom(Relation::Eq, LinearExpr::constant(1), {}, e.pos);
            if (const Frame* f = lookup(scope, e.text))
                return formula(*f->expr, f->scope, depth + 1);
            if (auto m = macros_.find(e.text); m != macros_.end() && m->second.boolean)
                return formula(*m->second.body, nullptr, depth + 1);
            throw InputError(e.pos, "expected a formula, found '" + e.text + "'");
        }
        if (!e.is_list() || e.items.empty() || e.items[0].kind != SExpr::Kind::Symbol)
            throw InputError(e.pos, "expected a formula");
        const std::string& head = e.items[0].text;
        if (head == "and") {
            for (std::size_t i = 1; i < e.items.size(); ++i)
                formula(e.items[i], scope, depth + 1);
            return;
        }
        if (head == "let") return formula(e.items[2], bind(e, scope), depth + 1);
        Relation rel;
        if (head == "=")
            rel = Relation::Eq;
        else if (head == "<=")
            rel = Relation::Le;
        else if (head == "<")
            rel = Relation::Lt;
        else if (head == ">=")
            rel = Relation::Ge;
        else if (head == ">")
            rel = Relation::Gt;
        else if (head == "distinct")
            rel = Relation::Distinct;
        else
            throw InputError(e.items[0].pos, "unsupported connective '" + head +
                                                 "' (assertions are conjunctions of linear atoms)");
        if (e.items.size() < 3)
            throw InputError(e.pos, "'" + head + "' needs at least two arguments");
        std::vector<LinearExpr> args;
        for (std::size_t i = 1; i < e.items.size(); ++i)
            args.push_back(term(e.items[i], scope, depth + 1));
        if (rel == Relation::Distinct) {
            for (std::size_t i = 0; i < args.size(); ++i)
                for (std::size_t j = i + 1; j < args.size(); ++j)
                    add_atom(rel, args[i], args[j], e.pos);
            return;
        }
        for (std::size_t i = 0; i + 1 < args.size(); ++i)
            add_atom(rel, args[i], args[i + 1], e.pos);
    }

    LinearExpr term(const SExpr& e, const Frame* scope, int depth) {
        if (depth > kMaxDepth) throw InputError(e.pos, "expression nested too deeply");
        switch (e.kind) {
            case SExpr::Kind::Numeral:
            case SExpr::Kind::Decimal:
                return LinearExpr::constant(QNumber::from_string(e.text));
            case SExpr::Kind::Symbol:
                return symbol_term(e, scope, depth);
            case SExpr::Kind::List:
                break;
            default:
                throw InputError(e.pos, "expected a numeric term");
        }
        if (e.items.empty() || e.items[0].kind != SExpr::Kind::Symbol)
            throw InputError(e.pos, "expected a numeric term");
        const std::string& head = e.items[0].text;
        if (head == "let") return term(e.items[2], bind(e, scope), depth + 1);
        std::vector<LinearExpr> args;
        for (std::size_t i = 1; i < e.items.size(); ++i)
            args.push_back(term(e.items[i], scope, depth + 1));
        if (args.empty()) throw InputError(e.pos, "'" + head + "' needs arguments");
        if (head == "+") return sum(args, false);
        if (head == "-") return args.size() == 1 ? negated(args[0]) : sum(args, true);
        if (head == "*") return product(args, e);
        if (head == "/") return quotient(args, e);
        if (head == "to_real" && args.size() == 1) return args[0];
        throw InputError(e.items[0].pos, "unsupported function '" + head + "'");
    }

    LinearExpr symbol_term(const SExpr& e, const Frame* scope, int depth) {
        if (const Frame* f = lookup(scope, e.text)) return term(*f->expr, f->scope, depth + 1);
        if (int id = problem_.symbols.find(e.text)) return LinearExpr::variable(id);
        if (auto m = macros_.find(e.text); m != macros_.end()) {
            if (m->second.boolean)
                throw InputError(e.pos, "'" + e.text + "' is a formula, not a term");
            return term(*m->second.body, nullptr, depth + 1);
        }
        throw InputError(e.pos, "undeclared symbol '" + e.text + "'");
    }

    static LinearExpr negated(LinearExpr a) {
        a.scale(QNumber(-1));
        return a;
    }

    static LinearExpr sum(const std::vector<LinearExpr>& args, bool subtract) {
        LinearExpr result = args[0];
        for (std::size_t i = 1; i < args.size(); ++i)
            result.add(args[i], QNumber(subtract ? -1 : 1));
        return result;
    }

    static LinearExpr product(const std::vector<LinearExpr>& args, const SExpr& e) {
        QNumber factor(1);
        const LinearExpr* variable_part = nullptr;
        for (std::size_t i = 0; i < args.size(); ++i) {
            if (args[i].is_constant()) {
                factor *= args[i].constant_value();
            } else if (variable_part != nullptr) {
                throw InputError(e.items[i + 1].pos, "non-linear product");
            } else {
                variable_part = &args[i];
            }
        }
        LinearExpr result = variable_part ? *variable_part : LinearExpr::constant(1);
        result.scale(factor);
        return result;
    }

    static LinearExpr quotient(const std::vector<LinearExpr>& args, const SExpr& e) {
        LinearExpr result = args[0];
        for (std::size_t i = 1; i < args.size(); ++i) {
            if (!args[i].is_constant())
                throw InputError(e.items[i + 1].pos, "division by a non-constant term");
            if (args[i].constant_value().is_zero())
                throw InputError(e.items[i + 1].pos, "division by zero");
            result.scale(QNumber(1) / args[i].constant_value());
        }
        return result;
    }

    Problem& problem_;
    std::unordered_map<std::string, Macro> macros_;
    std::deque<Frame> frames_;  // stable addresses for the scopes of one assertion
};

}  // namespace

Problem parse_smt2(const std::string& text) {
    Problem problem;
    Interpreter interpreter(problem);
    SExprReader reader(text);
    std::deque<SExpr> definitions;  // kept: macros point into their bodies
    for (SExpr cmd; reader.next(cmd);) {
        bool define = cmd.is_list() && !cmd.items.empty() && cmd.items[0].is_symbol("define-fun");
        const SExpr& current = define ? definitions.emplace_back(std::move(cmd)) : cmd;
        if (!interpreter.command(current)) break;
    }
    return problem;
}

}  // namespace vorn::cli
