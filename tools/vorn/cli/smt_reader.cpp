#include "cli/smt_reader.h"

#include "cli/input_error.h"
#include "cli/sexpr.h"
#include "cli/smt_symbols.h"
#include "cli/smt_terms.h"

namespace vorn::cli {

namespace {

[[noreturn]] void fail(SourcePos pos, const std::string& message) {
    throw InputError(pos, message);
}

// Reads a script one command at a time: the tree of a command is dropped before the next one
// is read, and only the values of definitions outlive it.
class ScriptReader {
  public:
    explicit ScriptReader(std::string_view text)
        : problem_(NameSyntax::SmtLib), reader_(text, symbols_), terms_(problem_, symbols_) {
        intern_known_symbols(symbols_);
        symbols_.reserve(text.size() / 64, text.size() / 16);
        problem_.variables.reserve(text.size() / 64, text.size() / 16);
        problem_.reserve(text.size() / 128, text.size() / 24);
    }

    Problem run() {
        while (reader_.next(tree_))
            if (!command(tree_.root())) break;
        return std::move(problem_);
    }

  private:
    // False once (exit) has been read.
    bool command(const SNode& cmd) {
        std::span<const SNode> items =
            cmd.is_list() ? tree_.children(cmd) : std::span<const SNode>{};
        if (items.empty() || items[0].kind != SNode::Kind::Symbol)
            fail(cmd.pos, "expected a command in parentheses");
        const SNode& head = items[0];
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
                expect_arity(cmd, items, 4);
                if (!items[2].is_list() || items[2].size != 0)
                    fail(items[2].pos,
                         "only constants (functions without arguments) are supported");
                declare(items[1], items[3]);
                return true;
            case Known::DeclareConst:
                expect_arity(cmd, items, 3);
                declare(items[1], items[2]);
                return true;
            case Known::DefineFun:
                expect_arity(cmd, items, 5);
                define(items);
                return true;
            case Known::Assert:
                expect_arity(cmd, items, 2);
                terms_.assert_formula(tree_, items[1]);
                return true;
            case Known::Push:
            case Known::Pop:
                fail(cmd.pos, quoted(symbols_.name(head.symbol)) +
                                  " is not supported: give one problem per file");
            default:
                fail(head.pos, "unknown command " + quoted(symbols_.name(head.symbol)));
        }
    }

    void expect_arity(const SNode& cmd, std::span<const SNode> items, std::size_t n) {
        if (items.size() != n)
            fail(cmd.pos, quoted(symbols_.name(items[0].symbol)) + " takes " +
                              std::to_string(n - 1) + " argument" + (n == 2 ? "" : "s"));
    }

    void declare(const SNode& name, const SNode& sort) {
        fresh(name);
        Sort s = Sort::Real;
        if (sort.is_symbol(symbol_of(Known::Int)))
            s = Sort::Int;
        else if (!sort.is_symbol(symbol_of(Known::Real)))
            fail(sort.pos, "unsupported sort (only Real and Int)");
        int var = problem_.variables.intern(symbols_.name(name.symbol), s, name.pos);
        terms_.declare_variable(name.symbol, var);
    }

    void define(std::span<const SNode> items) {
        const SNode& name = items[1];
        fresh(name);
        if (!items[2].is_list() || items[2].size != 0)
            fail(items[2].pos, "only define-fun without parameters is supported");
        const SNode& sort = items[3];
        bool formula = sort.is_symbol(symbol_of(Known::Bool));
        if (!formula && !sort.is_symbol(symbol_of(Known::Real)) &&
            !sort.is_symbol(symbol_of(Known::Int)))
            fail(sort.pos, "unsupported sort (only Real, Int and Bool)");
        terms_.define(name.symbol, tree_, items[4], formula);
    }

    void fresh(const SNode& name) {
        if (name.kind != SNode::Kind::Symbol) fail(name.pos, "expected a symbol");
        if (is_known(name.symbol))
            fail(name.pos, quoted(symbols_.name(name.symbol)) + " is a predefined symbol");
        if (terms_.is_defined(name.symbol))
            fail(name.pos, "symbol " + quoted(symbols_.name(name.symbol)) + " is already declared");
    }

    NameTable symbols_;
    Problem problem_;
    SExprReader reader_;
    TermEvaluator terms_;
    SExprTree tree_;
};

}  // namespace

Problem read_smt2(std::string_view text) {
    return ScriptReader(text).run();
}

}  // namespace vorn::cli
