#include "vorn/frontend/script_interpreter.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <ostream>
#include <span>

#include "vorn/frontend/problem_reader.h"
#include "vorn/io/interrupted.h"
#include "vorn/io/parse_error.h"
#include "vorn/io/sexpr.h"
#include "vorn/io/smt_sorts.h"
#include "vorn/io/smt_symbols.h"
#include "vorn/io/smt_terms.h"
#include "vorn/io/smt_values.h"
#include "vorn/smt/certificate.h"
#include "vorn/smt/engine.h"
#include "vorn/smt/problem_text.h"
#include "vorn/smt/statistics.h"

namespace vorn::frontend {

namespace {

// The reading and the evaluation of terms are the io layer's.
using namespace io;

[[noreturn]] void fail(smt::SourcePos pos, const std::string& message) {
    throw ParseError(pos, message);
}

// What a push saves of the interpreter's own stacks (the engine keeps the solver's).
struct Level {
    std::size_t declared, sorts, assertion_texts;
};

// The options get-option knows, with their values before any set-option; the Boolean ones take
// true or false.
struct KnownOption {
    std::string_view key, initial;
    bool boolean;
};
constexpr KnownOption kKnownOptions[] = {
    {":print-success", "false", true},
    {":produce-models", "false", true},
    {":produce-unsat-cores", "false", true},
    {":produce-assignments", "false", true},
    {":produce-unsat-assumptions", "false", true},
    {":produce-assertions", "false", true},
    {":produce-proofs", "false", true},
    {":interactive-mode", "false", true},
    {":global-declarations", "false", true},
    {":random-seed", "0", false},
    {":verbosity", "0", false},
    {":reproducible-resource-limit", "0", false},
    {":timeout", "0", false},
    {":regular-output-channel", "\"stdout\"", false},
    {":diagnostic-output-channel", "\"stderr\"", false},
};

const KnownOption* known_option(std::string_view key) {
    for (const KnownOption& o : kKnownOptions)
        if (o.key == key) return &o;
    return nullptr;
}

struct Declared {
    std::uint32_t symbol;
    int var;  // 0: not a variable (a definition, a Boolean or a function)
    // Kept by pops under :global-declarations: its meaning refers to no formula of the DAG.
    bool may_be_global = false;
    // The variable that an assertion (= symbol t) replaced by t until its level is popped.
    int restores = 0;
};

// Checking runs every command and answers it, an error being the answer. Reading collects the
// one problem a file states for solve and tableau: the first error ends it, commands that only
// ask something are passed over, and what would change the problem's shape (push, pop, reset,
// Boolean constants, functions with arguments) is refused.
enum class Mode { Check, Read };

class ScriptInterpreter {
  public:
    ScriptInterpreter(std::string_view text, std::string_view file, const CheckOptions& options,
                      std::ostream& out, smt::CheckStats& stats, Mode mode = Mode::Check)
        : file_(file),
          options_(options),
          decide_options_(options.decide),
          out_(out),
          stats_(stats),
          reading_(mode == Mode::Read),
          reader_(text, symbols_) {
        intern_known_symbols(symbols_);
        // A clause proof is only worth its memory when it is printed or checked.
        decide_options_.certify = options.certificate || options.verify;
        reset();
        if (reading_) {
            symbols_.reserve(text.size() / 64, text.size() / 16);
            engine_->problem().variables.reserve(text.size() / 64, text.size() / 16);
            engine_->problem().reserve(text.size() / 128, text.size() / 24);
        }
    }

    // Output is flushed after every command, so that whoever ends the process keeps every
    // answer given so far. An interrupt that came between commands ends the script at the next
    // one, unless that is a check-sat: the interrupt stops it, and it answers unknown first.
    void run(const util::Stop* stop) {
        while (reader_.next(tree_)) {
            if (!is_check(tree_.root())) throw_if_interrupted(stop);
            if (reading_) {
                if (!formulas_kept(tree_.root())) break;
                continue;
            }
            try {
                if (!formulas_kept(tree_.root())) break;
            } catch (const ParseError& e) {
                out_ << error_response(format_error(file_, e)) << "\n";
            }
            out_.flush();
            // The check consumed the interrupt that stopped it.
            if (interrupted_) throw Interrupted();
            if (source_ != nullptr && reader_.offset() >= released_ + kReleaseStep) {
                released_ = reader_.offset();
                source_->release_before(released_);
            }
        }
    }

    // Text read is handed back to `source` every kReleaseStep bytes.
    void release_into(const SourceText& source) { source_ = &source; }

    smt::Problem take_problem() {
        terms_.reset();
        return engine_->take_problem();
    }

  private:
    using Id = SExprTree::Id;

    const SNode& item(std::size_t k) const { return tree_[items_[k]]; }
    static bool keeps_start(Known k) {
        return k == Known::SetOption || k == Known::SetInfo || k == Known::GetOption ||
               k == Known::GetInfo || k == Known::Echo;
    }
    bool is_check(Id id) const {
        if (!tree_[id].is_list() || tree_[id].size == 0) return false;
        const SNode& head = tree_[tree_.first(id)];
        return head.kind == SNode::Kind::Symbol && is_known(head.symbol) &&
               (known(head.symbol) == Known::CheckSat ||
                known(head.symbol) == Known::CheckSatAssuming);
    }
    std::string name(std::uint32_t symbol) const { return std::string(symbols_.name(symbol)); }

    // Runs a command; the formulas it built stay only when it says so (keep_formulas_).
    bool formulas_kept(Id id);
    bool command(Id id);
    // Reading: whether the command is one that is passed over (true) or refused (throws).
    bool skipped_in_reading(const SNode& cmd, Known head);
    void success() {
        if (print_success_) out_ << "success\n";
    }
    void expect_arity(const SNode& cmd, std::size_t n);
    void set_option();
    void get_option();
    // The value of an option as set, or as it starts; empty for an unknown option.
    std::string option_value(std::string_view key) const;
    bool option_on(std::string_view key) const { return option_value(key) == "true"; }
    void get_info();
    void get_all_statistics();
    void get_assertions();
    void get_assignment(const SNode& cmd);
    void get_unsat_assumptions(const SNode& cmd);
    void define_sort();
    void declare_sort();
    void define_recursive(Known command);
    void define_const();
    void declare(const SNode& name, const SNode* params, const SNode& sort);
    void define();
    void fresh(const SNode& name);
    void assert_command();
    // Asserts `root`; whether the DAG must keep it (AssertionEncoder::assert_formula).
    bool asserted(FormulaRef root) {
        try {
            return engine_->assert_formula(root);
        } catch (const smt::NotAccepted& e) {
            fail(e.pos(), e.what());
        }
    }
    // Decides the assertions with the named ones and `assumed` as assumptions.
    void check_sat(std::span<const FormulaRef> assumed = {});
    // sat, unsat (and its certificate) or unknown.
    void print_answer(const smt::Decision& answer);
    void check_sat_assuming();
    void get_model();
    void get_value();
    // The value of a term or formula in the last model, as get-value prints it.
    std::string value_text(Id node);
    void get_unsat_core();
    void push(const SNode& cmd);
    void pop(const SNode& cmd);
    std::size_t level_count(const SNode& cmd);
    Level current_level() const {
        return {declared_.size(), sorts_->size(), assertion_texts_.size()};
    }
    // Forgets what was declared, defined and asserted after `level` (pop, reset-assertions).
    void truncate(const Level& level);
    void reset();
    void reset_assertions();
    void need_last(lra::Result result, const SNode& cmd, const char* what);
    void add_objective(const SNode& cmd, bool maximize);
    void assert_soft(const SNode& cmd);
    void set_priority(const SNode& value);
    void print_optimum_certificates();
    void get_objectives(const SNode& cmd);

    std::string file_;
    const CheckOptions& options_;
    smt::DecideOptions decide_options_;
    std::ostream& out_;
    smt::CheckStats& stats_;
    bool reading_;
    smt::NameTable symbols_;
    SExprReader reader_;
    static constexpr std::size_t kReleaseStep = std::size_t{1} << 18;
    const SourceText* source_ = nullptr;
    std::size_t released_ = 0;
    SExprTree tree_;
    std::vector<Id> items_;
    std::unique_ptr<smt::Engine> engine_;  // the solver of every check-sat
    std::unique_ptr<TermEvaluator> terms_;
    std::unique_ptr<SortTable> sorts_;
    std::vector<Level> levels_;
    std::vector<Declared> declared_;
    // (minimize t) and (maximize t) as written, beside the engine's objectives; a group of
    // soft assertions by its id, on the level that opened it.
    struct Objective {
        std::string text;
        bool maximize, real;
        bool soft = false;
        std::size_t level = 0;
    };
    std::vector<Objective> objectives_;
    bool lexicographic_ = true;       // false after z3's (set-option :opt.priority pareto)
    std::vector<std::string> names_;  // of named assertions, as the engine's core names them
    bool keep_formulas_ = false;
    std::vector<std::pair<std::string, std::string>> options_set_;  // key, value as written
    std::vector<std::string> assertion_texts_;  // of the assertions on the active levels
    // The assumptions of the last check-sat-assuming that its unsat answer used, as written.
    std::vector<std::string> unsat_assumptions_;
    bool print_success_ = false;
    bool produce_cores_ = false;
    bool has_last_ = false;
    // No command since the start or the last reset but those that keep set-logic allowed.
    bool starting_ = true;
    bool interrupted_ = false;  // a check-sat answered unknown for an interrupt
    std::string last_unknown_;
};

bool ScriptInterpreter::formulas_kept(Id id) {
    FormulaDag::Marks marks = engine_->dag().marks();
    keep_formulas_ = false;
    try {
        bool go_on = command(id);
        terms_->drop_names();  // a command that keeps the :named names it defined took them
        if (!keep_formulas_) engine_->drop_formulas(marks);
        return go_on;
    } catch (...) {
        terms_->drop_names();
        if (!keep_formulas_) engine_->drop_formulas(marks);
        throw;
    }
}

bool ScriptInterpreter::command(Id id) {
    const SNode& cmd = tree_[id];
    if (!cmd.is_list() || cmd.size == 0 || tree_[tree_.first(id)].kind != SNode::Kind::Symbol)
        fail(cmd.pos, "expected a command in parentheses");
    items_.clear();
    for (Id c = tree_.first(id); c != cmd.end && items_.size() < 6; c = tree_.next(c))
        items_.push_back(c);
    const SNode& head = item(0);
    Known k = is_known(head.symbol) ? known(head.symbol) : Known::Count;
    if (reading_ && skipped_in_reading(cmd, k)) return true;
    bool was_starting = starting_;
    starting_ = starting_ && keeps_start(k);
    switch (k) {
        case Known::SetLogic:
            if (!was_starting)
                fail(head.pos,
                     "set-logic is allowed once, before any command but set-option, "
                     "set-info, get-option, get-info and echo");
            expect_arity(cmd, 2);
            return success(), true;
        case Known::SetInfo:
            return success(), true;
        case Known::SetOption:
            set_option();
            return true;
        case Known::GetInfo:
            get_info();
            return true;
        case Known::DeclareFun:
            expect_arity(cmd, 4);
            declare(item(1), &item(2), item(3));
            return true;
        case Known::DeclareConst:
            expect_arity(cmd, 3);
            declare(item(1), nullptr, item(2));
            return true;
        case Known::DefineFun:
            expect_arity(cmd, 5);
            define();
            return true;
        case Known::Assert:
            expect_arity(cmd, 2);
            assert_command();
            return true;
        case Known::CheckSat:
            expect_arity(cmd, 1);
            check_sat();
            return true;
        case Known::CheckSatAssuming:
            expect_arity(cmd, 2);
            check_sat_assuming();
            return true;
        case Known::GetModel:
            need_last(lra::Result::Sat, cmd, "model");
            get_model();
            return true;
        case Known::GetValue:
            expect_arity(cmd, 2);
            need_last(lra::Result::Sat, cmd, "values");
            get_value();
            return true;
        case Known::Eval:  // z3's: the value alone
            expect_arity(cmd, 2);
            need_last(lra::Result::Sat, cmd, "values");
            out_ << value_text(items_[1]) << '\n';
            return true;
        case Known::GetUnsatCore:
            if (!produce_cores_)
                fail(cmd.pos,
                     "unsat cores are not enabled: (set-option :produce-unsat-cores true)");
            need_last(lra::Result::Unsat, cmd, "unsat core");
            get_unsat_core();
            return true;
        case Known::Push:
            push(cmd);
            return true;
        case Known::Pop:
            pop(cmd);
            return true;
        case Known::Reset:
            decide_options_.time_limit = options_.decide.time_limit;
            reset();
            print_success_ = false;
            keep_formulas_ = true;  // a new DAG
            return true;
        case Known::ResetAssertions:
            reset_assertions();
            keep_formulas_ = true;
            return success(), true;
        case Known::Echo:
            expect_arity(cmd, 2);
            if (item(1).kind != SNode::Kind::String) fail(item(1).pos, "expected a string");
            out_ << '"' << tree_.text(item(1)) << "\"\n";
            return true;
        case Known::Minimize:
        case Known::Maximize:
            add_objective(cmd, k == Known::Maximize);
            return success(), true;
        case Known::AssertSoft:
            assert_soft(cmd);
            return success(), true;
        case Known::GetObjectives:
            expect_arity(cmd, 1);
            need_last(lra::Result::Sat, cmd, "objectives");
            get_objectives(cmd);
            return true;
        case Known::Exit:
            return success(), false;
        case Known::GetOption:
            expect_arity(cmd, 2);
            get_option();
            return true;
        case Known::GetAssertions:
            expect_arity(cmd, 1);
            get_assertions();
            return true;
        case Known::GetAssignment:
            expect_arity(cmd, 1);
            get_assignment(cmd);
            return true;
        case Known::GetUnsatAssumptions:
            expect_arity(cmd, 1);
            get_unsat_assumptions(cmd);
            return true;
        case Known::DefineSort:
            expect_arity(cmd, 4);
            define_sort();
            return true;
        case Known::DeclareSort:
            expect_arity(cmd, 3);
            declare_sort();
            return true;
        case Known::DefineFunRec:
            expect_arity(cmd, 5);
            define_recursive(k);
            return true;
        case Known::DefineFunsRec:
            expect_arity(cmd, 3);
            define_recursive(k);
            return true;
        case Known::DefineConst:
            expect_arity(cmd, 4);
            define_const();
            return true;
        default:
            fail(head.pos, "unknown command " + quoted(name(head.symbol)));
    }
}

bool ScriptInterpreter::skipped_in_reading(const SNode& cmd, Known head) {
    switch (head) {
        case Known::SetLogic:
        case Known::SetInfo:
        case Known::SetOption:
        case Known::CheckSat:
        case Known::GetModel:
        case Known::GetInfo:
        case Known::GetValue:
        case Known::Eval:
        case Known::GetOption:
        case Known::GetAssertions:
        case Known::GetAssignment:
        case Known::GetUnsatAssumptions:
            return true;
        case Known::Push:
        case Known::Pop:
        case Known::Reset:
        case Known::ResetAssertions:
        case Known::CheckSatAssuming:
            fail(cmd.pos,
                 quoted(name(item(0).symbol)) + " is not supported: give one problem per file");
        case Known::DeclareFun:
            if (cmd.size == 4 && (!item(2).is_list() || item(2).size != 0))
                fail(item(2).pos, "only constants (functions without arguments) are supported");
            return false;
        case Known::DefineFun:
            if (cmd.size == 5 && (!item(2).is_list() || item(2).size != 0))
                fail(item(2).pos, "only define-fun without parameters is supported");
            return false;
        default:
            return false;
    }
}

void ScriptInterpreter::expect_arity(const SNode& cmd, std::size_t n) {
    if (cmd.size != n)
        fail(cmd.pos, quoted(name(item(0).symbol)) + " takes " + std::to_string(n - 1) +
                          " argument" + (n == 2 ? "" : "s"));
}

void ScriptInterpreter::need_last(lra::Result result, const SNode& cmd, const char* what) {
    if (!has_last_ || engine_->last().result != result)
        fail(cmd.pos, std::string("no ") + what + ": the last check-sat did not answer " +
                          (result == lra::Result::Sat ? "sat" : "unsat"));
}

void ScriptInterpreter::set_option() {
    if (items_.size() != 3 || item(1).kind != SNode::Kind::Keyword)
        fail(tree_[0].pos, "expected (set-option :keyword value)");
    std::string_view key = symbols_.name(item(1).symbol);
    const SNode& value = item(2);
    bool on = value.is_symbol(symbol_of(Known::True));
    if (key == ":opt.priority") return set_priority(value);
    const KnownOption* option = known_option(key);
    // Proofs are certificates here (--certificate).
    if (option == nullptr || (key == ":produce-proofs" && on)) {
        out_ << "unsupported\n";
        return;
    }
    if (!on && !value.is_symbol(symbol_of(Known::False)) && option->boolean)
        fail(value.pos, "expected true or false");
    if (key == ":print-success") print_success_ = on;
    if (key == ":produce-unsat-cores") produce_cores_ = on;
    // A global declaration's variable outlives the pop of its level.
    if (key == ":global-declarations") engine_->keep_popped_variables(on);
    if (key == ":timeout") {
        // As z3 reads it: milliseconds for each check-sat from now on, 0 for none.
        if (value.kind != SNode::Kind::Numeral || value.text_size > 12)
            fail(value.pos, "expected milliseconds, a numeral of at most 12 digits");
        decide_options_.time_limit =
            std::chrono::milliseconds(std::stoll(std::string(tree_.text(value))));
        engine_->set_limits(decide_options_);
    }
    std::string text;
    append_sexpr(text, tree_, items_[2], symbols_);
    auto set = std::find_if(options_set_.begin(), options_set_.end(),
                            [&](const auto& o) { return o.first == key; });
    if (set == options_set_.end()) set = options_set_.insert(set, {std::string(key), {}});
    set->second = std::move(text);
    success();
}

std::string ScriptInterpreter::option_value(std::string_view key) const {
    for (const auto& [k, value] : options_set_)
        if (k == key) return value;
    const KnownOption* option = known_option(key);
    return option == nullptr ? std::string() : std::string(option->initial);
}

void ScriptInterpreter::get_option() {
    if (item(1).kind != SNode::Kind::Keyword) fail(item(1).pos, "expected (get-option :keyword)");
    std::string value = option_value(symbols_.name(item(1).symbol));
    out_ << (value.empty() ? "unsupported" : value) << "\n";
}

void ScriptInterpreter::get_info() {
    if (items_.size() != 2 || item(1).kind != SNode::Kind::Keyword)
        fail(tree_[0].pos, "expected (get-info :keyword)");
    std::string_view key = symbols_.name(item(1).symbol);
    if (key == ":name") {
        out_ << "(:name \"vorn\")\n";
    } else if (key == ":version") {
        out_ << "(:version \"" << VORN_VERSION << "\")\n";
    } else if (key == ":authors") {
        out_ << "(:authors \"The vorn developers\")\n";
    } else if (key == ":error-behavior") {
        out_ << "(:error-behavior continued-execution)\n";
    } else if (key == ":reason-unknown") {
        if (!has_last_ || engine_->last().result != lra::Result::Unknown)
            fail(item(1).pos, "no reason: the last check-sat did not answer unknown");
        // The standard's own reasons are symbols; the others are messages.
        bool symbol = last_unknown_ == "timeout" || last_unknown_ == "memout" ||
                      last_unknown_ == "interrupted" || last_unknown_ == "incomplete";
        out_ << "(:reason-unknown " << (symbol ? last_unknown_ : smt_string(last_unknown_))
             << ")\n";
    } else if (key == ":assertion-stack-levels") {
        out_ << "(:assertion-stack-levels " << levels_.size() << ")\n";
    } else if (key == ":all-statistics") {
        get_all_statistics();
    } else {
        out_ << "unsupported\n";
    }
}

void ScriptInterpreter::get_all_statistics() {
    std::string text = "(";
    for (const smt::Statistic& s : smt::statistics(stats_)) {
        char value[32];
        if (s.seconds)
            std::snprintf(value, sizeof value, "%.3f", s.value);
        else
            std::snprintf(value, sizeof value, "%.0f", s.value);
        text += (text.size() == 1 ? ":" : " :") + std::string(s.name) + " " + value;
    }
    out_ << text << ")\n";
}

// As z3 prints them: one list, an assertion a line.
void ScriptInterpreter::get_assertions() {
    std::string text = "(";
    for (std::size_t i = 0; i < assertion_texts_.size(); ++i)
        text += (i == 0 ? "" : "\n ") + assertion_texts_[i];
    out_ << text << ")\n";
}

// The named formulas, in the order they were named, under the last model. As in z3, it does
// not need :produce-assignments, which asks for nothing that a check-sat would not keep.
void ScriptInterpreter::get_assignment(const SNode& cmd) {
    need_last(lra::Result::Sat, cmd, "assignment");
    std::string text = "(";
    for (const Declared& d : declared_) {
        const FormulaRef* named = terms_->named_formula(d.symbol);
        int holds = named == nullptr ? -1 : engine_->holds(*named);
        if (holds < 0) continue;
        text += text.size() == 1 ? "(" : " (";
        smt::append_symbol(text, symbols_.name(d.symbol));
        text += holds == 1 ? " true)" : " false)";
    }
    out_ << text << ")\n";
}

void ScriptInterpreter::get_unsat_assumptions(const SNode& cmd) {
    if (!option_on(":produce-unsat-assumptions"))
        fail(cmd.pos,
             "unsat assumptions are not enabled: (set-option :produce-unsat-assumptions true)");
    need_last(lra::Result::Unsat, cmd, "unsat assumptions");
    std::string text = "(";
    for (const std::string& a : unsat_assumptions_)
        text += (text.size() == 1 ? "" : " ") + a;
    out_ << text << ")\n";
}

void ScriptInterpreter::define_sort() {
    sorts_->define(tree_, items_[1], items_[2], items_[3]);
    success();
}

// Recursive definitions are declared as functions: outside the fragment wherever they are used,
// so that check-sat answers unknown rather than without them.
void ScriptInterpreter::define_recursive(Known command) {
    if (reading_) fail(item(0).pos, "recursive definitions are not supported");
    std::vector<Id> names;
    if (command == Known::DefineFunRec) {
        names.push_back(items_[1]);
    } else {
        if (!item(1).is_list()) fail(item(1).pos, "expected a list of function declarations");
        for (Id d = tree_.first(items_[1]); d != tree_.end(items_[1]); d = tree_.next(d)) {
            if (!tree_[d].is_list() || tree_[d].size != 3)
                fail(tree_[d].pos, "expected (name (params) sort)");
            names.push_back(tree_.first(d));
        }
    }
    for (Id n : names)
        fresh(tree_[n]);
    for (Id n : names) {
        terms_->declare_function(tree_[n].symbol);
        declared_.push_back({tree_[n].symbol, 0, true});
    }
    success();
}

void ScriptInterpreter::declare_sort() {
    if (reading_) fail(item(0).pos, "uninterpreted sorts are not supported");
    sorts_->declare(tree_, items_[1], items_[2]);
    success();
}

void ScriptInterpreter::fresh(const SNode& name) {
    if (name.kind != SNode::Kind::Symbol) fail(name.pos, "expected a symbol");
    if (is_predefined(name.symbol))
        fail(name.pos, quoted(this->name(name.symbol)) + " is a predefined symbol");
    if (terms_->is_defined(name.symbol))
        fail(name.pos, "symbol " + quoted(this->name(name.symbol)) + " is already declared");
}

// A Real, Int or Bool constant is a variable; a function with parameters is declared but
// outside the fragment wherever it is used.
void ScriptInterpreter::declare(const SNode& name, const SNode* params, const SNode& sort) {
    fresh(name);
    if (params != nullptr && !params->is_list()) fail(params->pos, "expected a list of sorts");
    bool function = params != nullptr && params->size != 0;
    if (function)
        for (Id p = tree_.first(items_[2]); p != tree_.end(items_[2]); p = tree_.next(p))
            (void)sorts_->resolve(tree_, p);
    SortKind kind = sorts_->resolve(tree_, items_[params != nullptr ? 3 : 2]);
    bool boolean = kind == SortKind::Bool;
    if (reading_ && boolean) fail(sort.pos, "unsupported sort (only Real and Int)");
    smt::Sort s = boolean                 ? smt::Sort::Bool
                  : kind == SortKind::Int ? smt::Sort::Int
                                          : smt::Sort::Real;
    int var = 0;
    if (function || kind == SortKind::Uninterpreted) {
        terms_->declare_function(name.symbol, !function);
    } else {
        var = engine_->problem().variables.add(symbols_.name(name.symbol), s, name.pos);
        terms_->declare_variable(name.symbol, var);
    }
    declared_.push_back({name.symbol, var, true});
    success();
}

void ScriptInterpreter::define() {
    const SNode& name = item(1);
    fresh(name);
    if (!item(2).is_list()) fail(item(2).pos, "expected a list of parameters");
    for (Id p = tree_.first(items_[2]); p != tree_.end(items_[2]); p = tree_.next(p))
        if (tree_[p].is_list() && tree_[p].size == 2)
            (void)sorts_->resolve(tree_, tree_.next(tree_.first(p)));
    SortKind kind = sorts_->resolve(tree_, items_[3]);
    bool formula = kind == SortKind::Bool;
    // A global definition outlives the formulas of its level: its body is kept and evaluated at
    // each use, as one with parameters.
    bool global = option_on(":global-declarations");
    if (item(2).size != 0 || global)
        terms_->define_function(name.symbol, tree_, items_[2], items_[4], kind == SortKind::Int);
    else
        terms_->define(name.symbol, tree_, items_[4], formula, kind == SortKind::Int);
    keep_formulas_ = true;
    declared_.push_back({name.symbol, 0, item(2).size != 0 || global});
    success();
}

// (define-const name sort term), as z3 reads it: (define-fun name () sort term).
void ScriptInterpreter::define_const() {
    fresh(item(1));
    SortKind kind = sorts_->resolve(tree_, items_[2]);
    bool global = option_on(":global-declarations");
    if (global)
        terms_->define_function(item(1).symbol, tree_, 0, items_[3], kind == SortKind::Int);
    else
        terms_->define(item(1).symbol, tree_, items_[3], kind == SortKind::Bool,
                       kind == SortKind::Int);
    keep_formulas_ = true;
    declared_.push_back({item(1).symbol, 0, global});
    success();
}

// A named assertion, while unsat cores are on, waits for check-sat as an assumption; any other
// is asserted at once.
void ScriptInterpreter::assert_command() {
    Id f = items_[1];
    std::vector<std::uint32_t> names;
    if (tree_[f].is_list() && tree_[f].size >= 4 &&
        tree_[tree_.first(f)].is_symbol(symbol_of(Known::Bang))) {
        for (Id c = tree_.next(tree_.next(tree_.first(f))); c != tree_.end(f); c = tree_.next(c))
            if (tree_[c].kind == SNode::Kind::Keyword &&
                symbols_.name(tree_[c].symbol) == ":named" && tree_.next(c) != tree_.end(f)) {
                fresh(tree_[tree_.next(c)]);
                names.push_back(tree_[tree_.next(c)].symbol);
            }
    }
    FormulaRef root = 0;
    // A name outlives its assertion, so an assertion that names a term reads no definition by
    // equality and makes none.
    bool names_terms = tree_.any_node(f, [&](const SNode& n) {
        return n.kind == SNode::Kind::Keyword && symbols_.name(n.symbol) == ":named";
    });
    // (= x t): x stands for t from now on while this assertion holds (TermEvaluator).
    int defined_var = names_terms ? 0 : terms_->define_by_equality(tree_, f, &root);
    if (defined_var == 0)
        root = names_terms ? terms_->as_declared([&] { return terms_->formula(tree_, f); })
                           : terms_->formula(tree_, f);
    defined_var = std::max(defined_var, 0);
    // Every :named term, the top ones too, is a definition from now on.
    std::vector<std::uint32_t> defined = terms_->take_names();
    for (std::uint32_t n : defined)
        if (std::find(names.begin(), names.end(), n) == names.end()) declared_.push_back({n, 0});
    append_sexpr(assertion_texts_.emplace_back(), tree_, f, symbols_);
    for (std::uint32_t n : names) {
        // The name stands for the formula from now on (check-sat-assuming uses it).
        terms_->name(n, root);
        declared_.push_back({n, 0});
        names_.push_back(name(n));
        if (produce_cores_ && !reading_)
            engine_->assume_named(root, static_cast<std::int32_t>(names_.size() - 1));
    }
    bool encoded = false;
    std::uint32_t defined_symbol = defined_var == 0 ? 0 : tree_[tree_.next(tree_.first(f))].symbol;
    try {
        encoded = (names.empty() || !produce_cores_ || reading_) && asserted(root);
    } catch (...) {
        if (defined_var != 0) terms_->restore_variable(defined_symbol, defined_var);
        throw;
    }
    // The definition's term may name lifted ites: the DAG keeps them while it stands.
    if (defined_var != 0) declared_.push_back({defined_symbol, 0, false, defined_var});
    keep_formulas_ = encoded || !defined.empty() || defined_var != 0;
    has_last_ = false;
    success();
}

void ScriptInterpreter::check_sat_assuming() {
    const SNode& list = item(1);
    if (!list.is_list()) fail(list.pos, "expected a list of literals");
    engine_->push();
    try {
        std::vector<FormulaRef> assumed;
        for (Id c = tree_.first(items_[1]); c != list.end; c = tree_.next(c))
            assumed.push_back(terms_->formula(tree_, c));
        check_sat(assumed);
        // The engine's core lists the assumptions it used, ascending.
        const std::vector<std::uint32_t>& used = engine_->assumed_core();
        std::uint32_t i = 0;
        std::size_t next = 0;
        for (Id c = tree_.first(items_[1]); c != list.end; c = tree_.next(c), ++i) {
            if (next == used.size() || used[next] != i) continue;
            append_sexpr(unsat_assumptions_.emplace_back(), tree_, c, symbols_);
            ++next;
        }
    } catch (...) {
        engine_->pop();
        throw;
    }
    engine_->pop();
}

// The engine decides; the answer is printed, with its certificate when asked for.
void ScriptInterpreter::check_sat(std::span<const FormulaRef> assumed) {
    unsat_assumptions_.clear();
    const smt::Decision& last =
        engine_->check(assumed, [&](const smt::Decision& answer) { print_answer(answer); });
    last_unknown_ = last.reason_unknown;
    if (const auto& outside = engine_->outside())
        last_unknown_ = format_error(
            file_, ParseError(outside->pos, outside->what + " is outside the linear fragment"));
    interrupted_ = last.result == lra::Result::Unknown &&
                   last_unknown_ == util::to_string(util::StopReason::Interrupted);
    has_last_ = true;
}

void ScriptInterpreter::print_answer(const smt::Decision& answer) {
    switch (answer.result) {
        case lra::Result::Sat:
            out_ << "sat\n";
            if (options_.certificate) print_optimum_certificates();
            break;
        case lra::Result::Unsat:
            out_ << "unsat\n";
            if (options_.certificate)
                smt::print_certificate(out_, engine_->problem(), answer, &engine_->dag());
            break;
        case lra::Result::Unknown:
            out_ << "unknown\n";
            break;
    }
}

// One block per objective optimized, docs/certificates.md.
void ScriptInterpreter::print_optimum_certificates() {
    if (!engine_->objectives_unknown().empty() || engine_->box()) return;
    std::vector<int> shown;
    for (const Declared& d : declared_)
        if (d.var != 0) shown.push_back(d.var);
    for (std::size_t k = 0; k < engine_->objective_values().size(); ++k)
        out_ << engine_->optimum_certificate(k, shown);
}

// z3's priorities of several objectives: lex (the default) and box. Pareto is refused, and
// get-objectives then fails for several objectives rather than answer as lex does.
void ScriptInterpreter::set_priority(const SNode& value) {
    std::string_view word = value.kind == SNode::Kind::Symbol ? symbols_.name(value.symbol) : "";
    if (word != "lex" && word != "box" && word != "pareto")
        fail(value.pos, "expected lex, box or pareto");
    lexicographic_ = word != "pareto";
    engine_->set_box(word == "box");
    if (word == "pareto") fail(value.pos, "the pareto priority of objectives is not supported");
    success();
}

// (minimize t) or (maximize t), with z3's optional ":id name", which names nothing here.
void ScriptInterpreter::add_objective(const SNode& cmd, bool maximize) {
    bool id = cmd.size == 4 && item(2).kind == SNode::Kind::Keyword &&
              symbols_.name(item(2).symbol) == ":id" && item(3).kind == SNode::Kind::Symbol;
    if (cmd.size != 2 && !id)
        fail(cmd.pos, quoted(name(item(0).symbol)) + " takes a term, and optionally :id NAME");
    bool formula = false, real = false;
    FormulaRef ref = 0;
    const smt::LinearExpr* expr = terms_->evaluate_term(tree_, items_[1], &formula, &real, &ref);
    if (expr == nullptr || formula) fail(item(1).pos, "expected a linear term to optimize");
    // The term ites it lifted stay defined: the engine asserts their definitions.
    keep_formulas_ = true;
    Objective& o = objectives_.emplace_back(Objective{{}, maximize, real});
    append_sexpr(o.text, tree_, items_[1], symbols_);
    engine_->add_objective(*expr, maximize);
}

// (assert-soft F :weight W :id G), both attributes optional (weight 1, the id empty): weighted
// MaxSAT as an objective, the soft assertions of one id (on one level) minimizing the sum of
// the weights of those violated, each weight an ite over F. Its place among the objectives is
// that of the id's first soft assertion, as in z3.
void ScriptInterpreter::assert_soft(const SNode& cmd) {
    if (reading_) fail(cmd.pos, "'assert-soft' is supported by check only");
    if (cmd.size < 2) fail(cmd.pos, "'assert-soft' takes a formula, :weight W and :id NAME");
    QNumber weight(1);
    bool real = false;
    std::string id;
    for (Id a = tree_.next(items_[1]); a != cmd.end; a = tree_.next(a)) {
        const SNode& key = tree_[a];
        Id value = tree_.next(a);
        std::string_view word = key.kind == SNode::Kind::Keyword ? symbols_.name(key.symbol) : "";
        if ((word != ":weight" && word != ":id") || value == cmd.end)
            fail(key.pos, "expected :weight W or :id NAME");
        if (word == ":id") {
            if (tree_[value].kind != SNode::Kind::Symbol) fail(tree_[value].pos, "expected a name");
            id.clear();
            append_sexpr(id, tree_, value, symbols_);
        } else {
            bool formula = false;
            const smt::LinearExpr* w = terms_->evaluate_term(tree_, value, &formula, &real);
            bool constant = w != nullptr;
            weight = QNumber();
            if (constant)
                for (const smt::LinearExpr::Entry& e : w->entries()) {
                    constant = constant && e.var == 0;
                    weight += e.coeff;
                }
            if (!constant || weight.sign() < 0)
                fail(tree_[value].pos, "expected a weight, a number of at least 0");
        }
        a = value;
    }
    bool formula = false, term_real = false;
    FormulaRef ref = 0;
    terms_->evaluate_term(tree_, items_[1], &formula, &term_real, &ref);
    if (!formula) fail(item(1).pos, "expected a formula");
    const smt::LinearExpr& penalty = terms_->penalty(ref, weight, real, item(1).pos);
    keep_formulas_ = true;  // the penalty's ite stays defined
    std::size_t k = 0;
    while (k < objectives_.size() && !(objectives_[k].soft && objectives_[k].text == id &&
                                       objectives_[k].level == levels_.size()))
        ++k;
    if (k == objectives_.size()) {
        objectives_.push_back(Objective{id, false, real, true, levels_.size()});
        engine_->add_objective(penalty, false);
    } else {
        objectives_[k].real = objectives_[k].real || real;
        engine_->extend_objective(k, penalty);
    }
}

namespace {

// A number as z3 prints an objective's value: "5" or "(- 5)" whatever the sort, "(/ 7.0 2.0)"
// or "(- (/ 7.0 2.0))"; with `decimal`, an integer too is "5.0" (beside epsilon).
std::string objective_number(const QNumber& v, bool decimal) {
    std::string text = (v.sign() < 0 ? -v : v).to_string();
    std::size_t slash = text.find('/');
    std::string magnitude = slash == std::string::npos ? text + (decimal ? ".0" : "")
                                                       : "(/ " + text.substr(0, slash) + ".0 " +
                                                             text.substr(slash + 1) + ".0)";
    return v.sign() < 0 ? "(- " + magnitude + ")" : magnitude;
}

}  // namespace

// As z3 prints them: "oo", "(* (- 1) oo)", "(+ 572.0 (* (- 1.0) epsilon))" for a supremum
// that is not attained (strict bounds), "(+ 3.0 epsilon)" for such an infimum.
void ScriptInterpreter::get_objectives(const SNode& cmd) {
    if (!engine_->objectives_unknown().empty()) fail(cmd.pos, engine_->objectives_unknown());
    if (!lexicographic_ && objectives_.size() > 1)
        fail(cmd.pos, "several objectives are optimized by lex or box priority, not by pareto");
    out_ << "(objectives\n";
    const auto& values = engine_->objective_values();
    for (std::size_t k = 0; k < values.size(); ++k) {
        const Objective& o = objectives_[k];
        std::string value;
        if (values[k].unbounded)
            value = o.maximize ? "oo" : "(* (- 1) oo)";
        else if (values[k].epsilon == 0)
            value = objective_number(values[k].optimum, false);
        else
            value = "(+ " + objective_number(values[k].optimum, true) +
                    (values[k].epsilon < 0 ? " (* (- 1.0) epsilon))" : " epsilon)");
        out_ << " (" << o.text << ' ' << value << ")\n";
    }
    out_ << ")\n";
}

void ScriptInterpreter::get_model() {
    std::vector<int> shown;
    for (const Declared& d : declared_)
        if (d.var != 0) shown.push_back(d.var);
    write_model(out_, engine_->problem().variables, engine_->last().model, shown);
}

// Terms and formulas, ite terms at the values of their ites.
void ScriptInterpreter::get_value() {
    const SNode& list = item(1);
    if (!list.is_list() || list.size == 0) fail(list.pos, "expected a non-empty list of terms");
    std::vector<Id> shown;
    for (Id c = tree_.first(items_[1]); c != list.end; c = tree_.next(c))
        shown.push_back(c);
    std::vector<std::string> values;  // all evaluated before any is printed: one error, no text
    for (Id c : shown)
        values.push_back(value_text(c));
    std::string text = "(";
    for (std::size_t i = 0; i < shown.size(); ++i) {
        text += i == 0 ? "(" : " (";
        append_sexpr(text, tree_, shown[i], symbols_);
        text += ' ' + values[i] + ')';
    }
    out_ << text << ")\n";
}

std::string ScriptInterpreter::value_text(Id node) {
    bool formula = false, real = false;
    FormulaRef ref = 0;
    const smt::LinearExpr* expr = terms_->evaluate_term(tree_, node, &formula, &real, &ref);
    if (expr == nullptr && !formula)
        fail(tree_[node].pos, "the term is outside the linear fragment");
    if (formula) {
        int holds = engine_->holds(ref);
        if (holds < 0) fail(tree_[node].pos, "the formula is outside the linear fragment");
        return holds == 1 ? "true" : "false";
    }
    std::string text;
    append_value(text, engine_->value(*expr), real ? smt::Sort::Real : smt::Sort::Int);
    return text;
}

// The named assertions that the refutation needs, in the order they were named.
void ScriptInterpreter::get_unsat_core() {
    std::string text = "(\n";
    for (std::int32_t n : engine_->core()) {
        smt::append_symbol(text, names_[static_cast<std::size_t>(n)]);
        text += '\n';
    }
    out_ << text << ")\n";
}

std::size_t ScriptInterpreter::level_count(const SNode& cmd) {
    if (cmd.size == 1) return 1;
    if (cmd.size != 2 || item(1).kind != SNode::Kind::Numeral || item(1).text_size > 9)
        fail(cmd.pos, "expected a numeral of at most 9 digits");
    return std::stoul(std::string(tree_.text(item(1))));
}

void ScriptInterpreter::push(const SNode& cmd) {
    std::size_t n = level_count(cmd);
    levels_.insert(levels_.end(), n, current_level());
    engine_->push(n);
    has_last_ = false;
    success();
}

void ScriptInterpreter::pop(const SNode& cmd) {
    std::size_t n = level_count(cmd);
    if (n > levels_.size())
        fail(cmd.pos, "cannot pop " + std::to_string(n) +
                          " levels: " + std::to_string(levels_.size()) + " pushed");
    if (n > 0) {
        Level level = levels_[levels_.size() - n];
        levels_.resize(levels_.size() - n);
        engine_->pop(n);
        truncate(level);
    }
    has_last_ = false;
    success();
}

void ScriptInterpreter::truncate(const Level& level) {
    bool global = option_on(":global-declarations");
    std::size_t kept = level.declared;
    for (std::size_t i = declared_.size(); i-- > level.declared;)  // latest first
        if (declared_[i].restores != 0)
            terms_->restore_variable(declared_[i].symbol, declared_[i].restores);
    for (std::size_t i = level.declared; i < declared_.size(); ++i) {
        if (declared_[i].restores != 0) continue;
        if (global && declared_[i].may_be_global)
            declared_[kept++] = declared_[i];
        else
            terms_->forget(declared_[i].symbol);
    }
    declared_.resize(kept);
    objectives_.resize(engine_->objective_count());
    if (!global) sorts_->truncate(level.sorts);
    assertion_texts_.resize(std::min(assertion_texts_.size(), level.assertion_texts));
}

// Level 0's declarations and definitions stay; its assertions go.
void ScriptInterpreter::reset_assertions() {
    if (!levels_.empty()) truncate(levels_[0]);
    // Level 0's definitions by equality go with its assertions.
    for (std::size_t i = declared_.size(); i-- > 0;)
        if (declared_[i].restores != 0)
            terms_->restore_variable(declared_[i].symbol, declared_[i].restores);
    std::erase_if(declared_, [](const Declared& d) { return d.restores != 0; });
    levels_.clear();
    engine_->reset_assertions();
    objectives_.clear();
    assertion_texts_.clear();
    has_last_ = false;
}

void ScriptInterpreter::reset() {
    levels_.clear();
    declared_.clear();
    objectives_.clear();
    lexicographic_ = true;
    names_.clear();
    terms_.reset();
    smt::EngineOptions options;
    options.decide = decide_options_;
    options.verify = options_.verify;
    options.fresh_solver_per_check = options_.fresh_solver_per_check;
    options.lenient = !reading_;
    engine_ = std::make_unique<smt::Engine>(options, &stats_);
    terms_ =
        std::make_unique<TermEvaluator>(engine_->problem(), engine_->dag(), symbols_, !reading_);
    sorts_ = std::make_unique<SortTable>(symbols_);
    options_set_.clear();
    assertion_texts_.clear();
    has_last_ = false;
    produce_cores_ = false;
    starting_ = true;
}

}  // namespace

void run_script(std::string_view text, std::string_view file, const CheckOptions& options,
                std::ostream& out, smt::CheckStats& stats) {
    ScriptInterpreter(text, file, options, out, stats).run(options.decide.stop);
}

void run_script(const SourceText& source, const CheckOptions& options, std::ostream& out,
                smt::CheckStats& stats) {
    ScriptInterpreter interpreter(source.text, source.name, options, out, stats);
    interpreter.release_into(source);
    interpreter.run(options.decide.stop);
}

smt::Problem read_smt2(std::string_view text, const util::Stop* stop) {
    CheckOptions options;
    smt::CheckStats stats;
    std::ostream none(nullptr);
    ScriptInterpreter engine(text, "", options, none, stats, Mode::Read);
    engine.run(stop);
    return engine.take_problem();
}

}  // namespace vorn::frontend
