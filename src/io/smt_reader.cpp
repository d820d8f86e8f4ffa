#include "vorn/io/smt_reader.h"

#include "vorn/io/parse_error.h"
#include "vorn/io/sexpr.h"
#include "vorn/io/smt_symbols.h"
#include "vorn/io/smt_terms.h"

namespace vorn::io {

namespace {

[[noreturn]] void fail(smt::SourcePos pos, const std::string& message) {
    throw ParseError(pos, message);
}

// Reads a script one command at a time: the tree of a command is dropped before the next one
// is read, and only the values of definitions outlive it.
class ScriptReader {
  public:
    explicit ScriptReader(std::string_view text)
        : problem_(smt::NameSyntax::SmtLib), reader_(text, symbols_), terms_(problem_, symbols_) {
        intern_known_symbols(symbols_);
        symbols_.reserve(text.size() / 64, text.size() / 16);
        problem_.variables.reserve(text.size() / 64, text.size() / 16);
        problem_.reserve(text.size() / 128, text.size() / 24);
    }

    smt::Problem run() {
        while (reader_.next(tree_))
            if (!command(tree_.root())) break;
        return std::move(problem_);
    }

  private:
    using Id = SExprTree::Id;

    const SNode& item(std::size_t k) const { return tree_[items_[k]]; }

    // False once (exit) has been read.
    bool command(Id id) {
        const SNode& cmd = tree_[id];
        if (!cmd.is_list() || cmd.size == 0 || tree_[tree_.first(id)].kind != SNode::Kind::Symbol)
            fail(cmd.pos, "expected a command in parentheses");
        items_.clear();  // a command has at most 5 parts; more is an arity error
        for (Id c = tree_.first(id); c != cmd.end && items_.size() < 6; c = tree_.next(c))
            items_.push_back(c);
        const SNode& head = item(0);
        switch (is_known(head.symbol) ? known(head.symbol) : Known::Count) {
            case Known::SetLogic:
            case Known::SetInfo:
            case Known::SetOption:
            case Known::CheckSat:
            case Known::GetModel:
            case Known::GetInfo:
            case Known::GetValue:
                return true;
            case Known::Exit:
                return false;
            case Known::DeclareFun:
                expect_arity(cmd, 4);
                if (!item(2).is_list() || item(2).size != 0)
                    fail(item(2).pos, "only constants (functions without arguments) are supported");
                declare(item(1), item(3));
                return true;
            case Known::DeclareConst:
                expect_arity(cmd, 3);
                declare(item(1), item(2));
                return true;
            case Known::DefineFun:
                expect_arity(cmd, 5);
                define();
                return true;
            case Known::Assert:
                expect_arity(cmd, 2);
                terms_.assert_formula(tree_, items_[1]);
                return true;
            case Known::Push:
            case Known::Pop:
                fail(cmd.pos, quoted(symbols_.name(head.symbol)) +
                                  " is not supported: give one problem per file");
            default:
                fail(head.pos, "unknown command " + quoted(symbols_.name(head.symbol)));
        }
    }

    void expect_arity(const SNode& cmd, std::size_t n) {
        if (cmd.size != n)
            fail(cmd.pos, quoted(symbols_.name(item(0).symbol)) + " takes " +
                              std::to_string(n - 1) + " argument" + (n == 2 ? "" : "s"));
    }

    void declare(const SNode& name, const SNode& sort) {
        fresh(name);
        smt::Sort s = smt::Sort::Real;
        if (sort.is_symbol(symbol_of(Known::Int)))
            s = smt::Sort::Int;
        else if (!sort.is_symbol(symbol_of(Known::Real)))
            fail(sort.pos, "unsupported sort (only Real and Int)");
        int var = problem_.variables.intern(symbols_.name(name.symbol), s, name.pos);
        terms_.declare_variable(name.symbol, var);
    }

    void define() {
        const SNode& name = item(1);
        fresh(name);
        if (!item(2).is_list() || item(2).size != 0)
            fail(item(2).pos, "only define-fun without parameters is supported");
        const SNode& sort = item(3);
        bool formula = sort.is_symbol(symbol_of(Known::Bool));
        if (!formula && !sort.is_symbol(symbol_of(Known::Real)) &&
            !sort.is_symbol(symbol_of(Known::Int)))
            fail(sort.pos, "unsupported sort (only Real, Int and Bool)");
        terms_.define(name.symbol, tree_, items_[4], formula);
    }

    void fresh(const SNode& name) {
        if (name.kind != SNode::Kind::Symbol) fail(name.pos, "expected a symbol");
        if (is_known(name.symbol))
            fail(name.pos, quoted(symbols_.name(name.symbol)) + " is a predefined symbol");
        if (terms_.is_defined(name.symbol))
            fail(name.pos, "symbol " + quoted(symbols_.name(name.symbol)) + " is already declared");
    }

    smt::NameTable symbols_;
    smt::Problem problem_;
    SExprReader reader_;
    TermEvaluator terms_;
    SExprTree tree_;
    std::vector<Id> items_;  // the parts of the current command
};

}  // namespace

smt::Problem read_smt2(std::string_view text) {
    return ScriptReader(text).run();
}

}  // namespace vorn::io
