// vorn: solve, project and inspect exact linear systems from the command line.

#include <malloc.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cmath>
#include <iostream>
#include <limits>
#include <optional>

#include "cli/check.h"
#include "cli/limits.h"
#include "cli/optimize.h"
#include "cli/output.h"
#include "cli/replay.h"
#include "cli/solve.h"
#include "cli/tableau_summary.h"
#include "cli/usage_error.h"
#include "vorn/frontend/problem_reader.h"
#include "vorn/io/escape.h"
#include "vorn/io/interrupted.h"
#include "vorn/io/limits.h"
#include "vorn/io/parse_error.h"
#include "vorn/smt/stopwatch.h"

namespace {

using namespace vorn::cli;
namespace frontend = vorn::frontend;
namespace io = vorn::io;
namespace smt = vorn::smt;

constexpr int kAnswered = 0;
constexpr int kBadInput = 2;
constexpr int kInternalError = 3;

std::string help_footer() {
    return "Input: the extension picks the reader, in any case (.smt2, .lin, .mps, .lp, .cnf; "
           "also compressed, .gz or .bz2); --format-in forces one, also for standard input (-), "
           "which is otherwise SMT-LIB when it starts with '(' or ';'.\n\n"
           "check decides SMT-LIB scripts command by command: any Boolean combination of linear "
           "atoms over Real and Int variables (QF_LRA, QF_LIA, QF_RDL, QF_IDL), incrementally "
           "with push, pop and check-sat-assuming, with models, unsat cores and objectives "
           "((minimize t), (maximize t), z3's (assert-soft f :weight w :id g)) over Boolean "
           "structure, Int and Real. A check-sat answers "
           "unknown only when a limit stops it "
           "(also --bb-limit, the integer search's node budget) or when an assertion lies "
           "outside linear arithmetic; (get-info :reason-unknown) says which. check also decides "
           "the feasibility of .lin, .mps and .lp files, whose objective counts only through "
           "--objective-bound and whose model prints only with --model, and sends a DIMACS .cnf "
           "file to the SAT engine (--model prints a 'v' line). With --certificate every unsat "
           "comes with a proof that scripts/check_certificate.py checks on its own.\n\n"
           "optimize finds the exact optimum of the objective of an LP file (MPS, CPLEX LP, "
           ".lin), starting from a floating-point basis that it checks exactly, and with Int "
           "columns the integer optimum by exact branch and bound; --certificate proves the "
           "optimum, infeasibility or unboundedness.\n\n"
           "solve eliminates variables from equations (=) over Real variables; an Int variable "
           "is an error at its declaration. tableau builds the simplex tableau of =, <=, <, >=, > "
           "and distinct atoms over Real and Int variables. A .lin file holds equations only. "
           "replay runs a script of tableau operations.\n\n"
           "The limits (--time-limit, --memory-limit, --conflict-limit) stop a check with "
           "unknown; a script asks why with (get-info :reason-unknown), any other input says it "
           "on stderr ('vorn: unknown: timeout'; also memout, \"conflict limit\"). Every answer "
           "is flushed as it is printed.\n\n"
           "Limits: input of " +
           std::to_string(io::kMaxInputBytes >> 20) + " MiB; SMT-LIB expressions nested " +
           std::to_string(io::kMaxSmtDepth) + " levels deep; parentheses in .lin terms " +
           std::to_string(io::kMaxLinDepth) + " levels deep; numerals of " +
           std::to_string(io::kMaxNumeralDigits) + " digits; numbers computed while reading of " +
           std::to_string(io::kMaxNumberBits) +
           " bits.\n\n"
           "Exit status: 0 the answer is printed; 2 the input or the command line is wrong (an "
           "input error is one line FILE:LINE:COL: message on stderr, and nothing is printed on "
           "stdout; check prints errors inside a readable script as (error \"...\") on stdout "
           "and goes on); 3 internal error, also a model or certificate that --verify "
           "rejects; 4 check ran out of memory beyond the margin that --memory-limit leaves "
           "(unknown is printed first); 130, 143 check was ended by SIGINT, SIGTERM (128 + the "
           "signal's number): the running check-sat prints unknown, what was printed before "
           "stays, and a second signal ends the process at once.\n";
}

// Phase messages for long runs, only when a person is watching stderr.
class Progress {
  public:
    Progress() : enabled_(isatty(STDERR_FILENO) != 0) {}
    void phase(const char* what) {
        if (enabled_) std::cerr << "\rvorn: " << what << "...\033[K" << std::flush;
    }
    ~Progress() {
        if (enabled_) std::cerr << "\r\033[K" << std::flush;
    }

  private:
    bool enabled_;
};

struct Arguments {
    std::string file;
    std::optional<std::string> format_in;
    std::vector<std::string> eliminate;
    bool eliminate_given = false;
    std::string format = "text";
    bool triangular = false, stats = false, dump = false;
    std::optional<std::string> objective_bound;
    frontend::CheckOptions check;
    bool maximize = false;
    double time_limit = 0;          // seconds, 0: none
    std::int64_t memory_limit = 0;  // MB, 0: none
};

std::optional<io::InputFormat> forced_format(const Arguments& args) {
    if (!args.format_in) return std::nullopt;
    return io::format_named(*args.format_in);
}

int run_solve(const Arguments& args) {
    Progress progress;
    progress.phase("reading");
    auto start = smt::Clock::now();
    smt::Problem problem =
        frontend::read_problem(io::SourceText::read(args.file), forced_format(args));
    double read_ms = smt::ms_since(start);
    SolveOptions options;
    options.triangular = args.triangular;
    if (args.eliminate_given) {
        options.eliminate.emplace();
        for (const std::string& name : args.eliminate)
            if (!name.empty()) options.eliminate->push_back(name);
    }
    progress.phase("solving");
    SolveResult result = solve(problem, options);
    progress.phase("writing");
    if (args.stats) std::cerr << solve_stats(read_ms, result);
    if (args.format == "json")
        print_solve_json(std::cout, result, problem.variables);
    else
        print_solve_text(std::cout, result, problem.variables);
    return kAnswered;
}

int run_tableau(const Arguments& args) {
    auto start = smt::Clock::now();
    smt::Problem problem =
        frontend::read_problem(io::SourceText::read(args.file), forced_format(args));
    double read_ms = smt::ms_since(start);
    TableauSummary summary = build_tableau(problem);
    print_tableau(std::cout, summary, problem.variables, read_ms, args.dump, args.stats);
    return kAnswered;
}

int run_check(const Arguments& args) {
    answer_unknown_when_out_of_memory();
    catch_interrupts();
    if (args.memory_limit > 0) limit_memory(args.memory_limit);
    Progress progress;
    progress.phase("reading");
    auto start = smt::Clock::now();
    io::SourceText source = io::SourceText::read(args.file);
    double read_ms = smt::ms_since(start);
    progress.phase("checking");
    CheckRequest request{forced_format(args), args.objective_bound, args.check};
    request.options.decide.stop = &tool_stop();
    request.options.decide.time_limit =
        std::chrono::milliseconds(static_cast<std::int64_t>(std::ceil(args.time_limit * 1000)));
    smt::CheckStats stats;
    auto checking = smt::Clock::now();
    std::string reason;
    try {
        io::throw_if_interrupted(&tool_stop());
        reason = run_check(source, request, std::cout, stats);
    } catch (const io::Interrupted&) {
    }
    std::cout.flush();
    if (int signal = caught_signal(); signal != 0) return 128 + signal;
    if (!reason.empty()) std::cerr << "vorn: unknown: " << io::escaped(reason) << "\n";
    // Reading is the file and everything the commands do besides deciding: parsing, building
    // terms and atoms, printing.
    read_ms += smt::ms_since(checking) - stats.solve_seconds * 1000;
    if (args.stats) std::cerr << check_stats(read_ms, stats);
    return kAnswered;
}

int run_optimize(const Arguments& args) {
    answer_unknown_when_out_of_memory();
    catch_interrupts();
    if (args.memory_limit > 0) limit_memory(args.memory_limit);
    auto start = smt::Clock::now();
    io::SourceText source = io::SourceText::read(args.file);
    double read_ms = smt::ms_since(start);
    OptimizeRequest request{forced_format(args), args.maximize, args.check, args.stats};
    request.options.decide.stop = &tool_stop();
    request.options.decide.time_limit =
        std::chrono::milliseconds(static_cast<std::int64_t>(std::ceil(args.time_limit * 1000)));
    tool_stop().start(request.options.decide.time_limit);
    smt::CheckStats stats;
    auto solving = smt::Clock::now();
    std::string reason, note;
    try {
        reason = run_optimize(source, request, std::cout, stats, note);
    } catch (const io::Interrupted&) {
    }
    std::cout.flush();
    if (int signal = caught_signal(); signal != 0) return 128 + signal;
    if (!note.empty()) std::cerr << "vorn: " << note << "\n";
    if (!reason.empty()) std::cerr << "vorn: unknown: " << io::escaped(reason) << "\n";
    read_ms += smt::ms_since(solving) - stats.solve_seconds * 1000;
    if (args.stats) std::cerr << check_stats(read_ms, stats);
    return kAnswered;
}

int run_replay(const Arguments& args) {
    std::cout << replay(io::SourceText::read(args.file).text);
    return kAnswered;
}

int run(int argc, char** argv) {
    CLI::App app{
        "vorn: exact solver and optimizer for linear arithmetic (check, optimize) and linear "
        "systems in solved form (solve, tableau, replay)"};
    app.set_version_flag("--version", std::string("vorn ") + VORN_VERSION);
    app.require_subcommand(1);
    app.footer(help_footer());

    Arguments args;
    auto add_input = [&args](CLI::App* cmd, const char* what) {
        cmd->add_option("FILE", args.file, what)->required();
        cmd->add_option("--format-in", args.format_in, "read FILE as this format")
            ->check(CLI::IsMember({"smt2", "lin", "mps", "lp", "cnf"}));
    };
    auto* solve_cmd = app.add_subcommand("solve", "Solve or project a system of linear equations");
    add_input(solve_cmd, "a .lin or .smt2 file, or - for standard input");
    auto* eliminate = solve_cmd
                          ->add_option("--eliminate", args.eliminate,
                                       "comma-separated variables to eliminate (default: all)")
                          ->delimiter(',')
                          ->expected(1)
                          ->allow_extra_args(false)
                          ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    solve_cmd->add_option("--format", args.format, "output format")
        ->check(CLI::IsMember({"text", "json"}));
    solve_cmd->add_flag(
        "--triangular", args.triangular,
        "print definitions as stored: each over kept variables and those listed before it");
    solve_cmd->add_flag("--stats", args.stats,
                        "print read, tableau, elimination and definition times to stderr");

    auto* tableau_cmd =
        app.add_subcommand("tableau", "Build and describe the simplex tableau of a problem");
    add_input(tableau_cmd, "a .smt2 or .lin file, or - for standard input");
    tableau_cmd->add_flag("--dump", args.dump, "print the tableau's rows");
    tableau_cmd->add_flag("--stats", args.stats, "print statistics (the default without --dump)");

    auto* check_cmd = app.add_subcommand(
        "check", "Decide SMT-LIB scripts (QF_LRA, QF_LIA, QF_RDL, QF_IDL) and LP files exactly");
    add_input(check_cmd,
              "a .smt2, .lin, .mps or .lp file (also .gz, .bz2), or - for standard input");
    check_cmd->add_option("--objective-bound", args.objective_bound,
                          "LP formats: add 'objective REL V' (REL one of <= >= < > =) as a "
                          "constraint; the objective is ignored otherwise");
    check_cmd->add_flag("--model", args.check.model,
                        "LP formats: print the model of a sat answer (off: netlib models are "
                        "large); SMT-LIB scripts ask with (get-model)");
    check_cmd
        ->add_option("--bb-limit", args.check.decide.bb_limit,
                     "branch-and-bound nodes one check-sat may explore, over all its "
                     "disequality splits, before answering unknown (at least 1)")
        ->check(CLI::Range(std::uint64_t{1}, std::numeric_limits<std::uint64_t>::max()))
        ->default_val(10000);
    check_cmd->add_flag("--cuts", args.check.decide.cuts,
                        "integer problems with Boolean structure: Gomory cuts before branching "
                        "(shallow in the search, a hundred per check at most)");
    check_cmd->add_flag("!--no-relax-explanations", args.check.decide.relax_explanations,
                        "keep the newest bound literals in Farkas explanations (for comparison)");
    check_cmd->add_flag("!--no-theory-phase", args.check.decide.theory_phase,
                        "decide atoms by their saved phase, not by the theory's current "
                        "assignment (for comparison)");
    check_cmd->add_flag("!--no-tableau-propagation", args.check.decide.tableau_propagation,
                        "propagate bounds along the terms' definitions only, not along the "
                        "current tableau's rows (for comparison)");
    check_cmd
        ->add_option("--box-after", args.check.decide.box_after,
                     "Problems over Int variables with Boolean structure: splits of a check after "
                     "which the search goes on inside a box on the Int variables that holds a "
                     "solution if there is one, and so ends (0: never; docs/integers.md)")
        ->default_val(1000);
    check_cmd->add_flag("--certificate", args.check.certificate,
                        "print a checkable certificate after every unsat (docs/certificates.md)");
    check_cmd->add_flag("--verify", args.check.verify,
                        "re-check every model and certificate exactly before printing it; a "
                        "failure is an internal error (exit 3)");
    check_cmd->add_flag("--stats", args.stats,
                        "print simplex and branch-and-bound statistics and times to stderr");
    check_cmd
        ->add_option("--time-limit", args.time_limit,
                     "seconds (decimals allowed) each check-sat, or the check of a file, may take "
                     "before answering unknown, reason timeout; a script's (set-option :timeout "
                     "MS) sets it in milliseconds")
        ->check(CLI::Range(0.001, 1e9));
    check_cmd
        ->add_option("--memory-limit", args.memory_limit,
                     "megabytes the whole process may hold: a check-sat that passes it answers "
                     "unknown, reason memout, and the process is kept in its address space a "
                     "margin above (exit 4 if even that runs out)")
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{1} << 30));
    check_cmd
        ->add_option("--conflict-limit", args.check.decide.conflict_limit,
                     "conflicts of the Boolean search each check-sat may have before answering "
                     "unknown, reason \"conflict limit\" (deterministic, unlike the time)")
        ->check(CLI::Range(std::uint64_t{1}, std::numeric_limits<std::uint64_t>::max()));

    auto* optimize_cmd = app.add_subcommand(
        "optimize", "The exact optimum of the objective of an LP file (.lin, MPS, CPLEX LP)");
    add_input(optimize_cmd, "a .lin, .mps or .lp file (also .gz, .bz2), or - for standard input");
    optimize_cmd->add_flag("--maximize", args.maximize,
                           "maximize the objective (MPS OBJSENSE and LP files say so themselves)");
    optimize_cmd->add_flag("--model", args.check.model, "print an optimal model");
    optimize_cmd->add_flag("--certificate", args.check.certificate,
                           "print the proof that no better value (or no point at all) exists");
    optimize_cmd->add_flag("--verify", args.check.verify,
                           "re-check the model, the optimum and the proof exactly before printing; "
                           "a failure is an internal error (exit 3)");
    optimize_cmd->add_option(
        "--cut-rounds", args.check.decide.root_cut_rounds,
        "Int columns: rounds of Gomory cuts at the root of branch and bound (0: none)");
    optimize_cmd->add_flag("--stats", args.stats, "print simplex statistics and times to stderr");
    optimize_cmd->add_flag("!--exact-only", args.check.decide.float_start,
                           "no floating-point start: the exact simplex from scratch (same answers, "
                           "slower on large problems)");
    optimize_cmd->add_flag("!--exact-nodes", args.check.decide.float_nodes,
                           "Int columns: every branch-and-bound node by the exact simplex, none "
                           "closed by a floating-point LP's safe bound (same answers)");
    optimize_cmd
        ->add_option("--time-limit", args.time_limit,
                     "seconds (decimals allowed) before answering unknown, reason timeout")
        ->check(CLI::Range(0.001, 1e9));
    optimize_cmd
        ->add_option("--memory-limit", args.memory_limit,
                     "megabytes the whole process may hold, as for check")
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{1} << 30));

    auto* replay_cmd = app.add_subcommand("replay", "Run a script of tableau operations");
    replay_cmd->add_option("TRACE", args.file, "the script, or - for standard input")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? kAnswered : kBadInput;
    }
    args.eliminate_given = eliminate->count() > 0;
    std::string shown = args.file == "-" ? "<stdin>" : args.file;
    try {
        if (*solve_cmd) return run_solve(args);
        if (*tableau_cmd) return run_tableau(args);
        if (*check_cmd) return run_check(args);
        if (*optimize_cmd) return run_optimize(args);
        return run_replay(args);
    } catch (const io::ParseError& e) {
        std::cerr << io::format_error(shown, e) << "\n";
        return kBadInput;
    } catch (const UsageError& e) {
        std::cerr << "vorn: " << io::escaped(e.what()) << "\n";
        return kBadInput;
    } catch (const smt::VerificationFailure& e) {
        std::cout.flush();
        std::cerr << "vorn: internal error: verification failed: " << io::escaped(e.what()) << "\n";
        return kInternalError;
    } catch (const std::bad_alloc&) {
        if (!*check_cmd && !*optimize_cmd) throw;
        // Past the backstop of --memory-limit, or the machine's memory.
        answer_out_of_memory();
        std::cerr << "vorn: out of memory\n";
        return kOutOfMemory;
    }
}

}  // namespace

int main(int argc, char** argv) {
    count_gmp_allocations();
    std::ios::sync_with_stdio(false);
#ifdef __GLIBC__
    // Large inputs are bound by first touches of memory: keep freed blocks (the input text, the
    // atoms once entered) for the tableau to reuse rather than returning them to the system and
    // faulting fresh pages in (20% fewer page faults on 10^5 equations).
    mallopt(M_MMAP_THRESHOLD, 256 << 20);
    mallopt(M_TRIM_THRESHOLD, 512 << 20);
#endif
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc&) {
        std::cerr << "vorn: internal error: out of memory\n";
    } catch (const std::exception& e) {
        std::cerr << "vorn: internal error: " << io::escaped(e.what()) << "\n";
    } catch (...) {
        std::cerr << "vorn: internal error\n";
    }
    return kInternalError;
}
