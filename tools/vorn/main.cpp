// vorn: solve, project and inspect exact linear systems from the command line.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <iostream>

#include "vorn/input.h"
#include "vorn/replay.h"
#include "vorn/solve.h"
#include "vorn/source.h"
#include "vorn/tableau_report.h"

namespace {

using namespace vorn::cli;
using Clock = std::chrono::steady_clock;

constexpr int kInputErrorStatus = 2;

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

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

std::vector<std::string> split_names(const std::string& list) {
    std::vector<std::string> names;
    std::size_t begin = 0;
    while (begin <= list.size()) {
        std::size_t comma = list.find(',', begin);
        std::string name =
            list.substr(begin, comma == std::string::npos ? std::string::npos : comma - begin);
        if (!name.empty()) names.push_back(name);
        if (comma == std::string::npos) break;
        begin = comma + 1;
    }
    return names;
}

int run_solve(const std::string& file, const std::string& eliminate, bool eliminate_given,
              const std::string& format, bool triangular, bool stats) {
    Progress progress;
    progress.phase("reading");
    auto start = Clock::now();
    SourceText source = SourceText::read(file);
    Problem problem = parse_input(source);
    double parse_ms = ms_since(start);
    SolveOptions options;
    options.triangular = triangular;
    if (eliminate_given) options.eliminate = split_names(eliminate);
    progress.phase("solving");
    SolveResult result = solve(problem, options);
    progress.phase("writing");
    std::string out = format == "json" ? solve_json(result, problem.symbols)
                                       : solve_text(result, problem.symbols);
    if (stats) {
        char buf[200];
        std::snprintf(buf, sizeof buf,
                      "stats: parse %.3f ms, tableau %.3f ms, eliminate %.3f ms (%zu rounds), "
                      "%zu equations, %zu definitions\n",
                      parse_ms, result.tableau_ms, result.eliminate_ms, result.rounds,
                      result.equations.size(), result.definitions.size());
        std::cerr << buf;
    }
    std::cout << out;
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"vorn: exact linear systems in solved form (solve, project, inspect)"};
    app.set_version_flag("--version", std::string("vorn ") + VORN_VERSION);
    app.require_subcommand(1);

    std::string file, eliminate, format = "text";
    bool triangular = false, stats = false, dump = false;
    auto* solve_cmd = app.add_subcommand("solve", "Solve or project a system of linear equations");
    solve_cmd->add_option("FILE", file, "a .lin or .smt2 file, or - for standard input")
        ->required();
    auto* elim_opt = solve_cmd->add_option("--eliminate", eliminate,
                                           "comma-separated variables to eliminate (default: all)");
    solve_cmd->add_option("--format", format, "output format")
        ->check(CLI::IsMember({"text", "json"}));
    solve_cmd->add_flag(
        "--triangular", triangular,
        "print definitions as stored: each over kept variables and those listed before it");
    solve_cmd->add_flag("--stats", stats, "print parse, tableau and elimination times to stderr");

    auto* tableau_cmd =
        app.add_subcommand("tableau", "Build and describe the simplex tableau of a problem");
    tableau_cmd->add_option("FILE", file, "a .smt2 or .lin file, or - for standard input")
        ->required();
    tableau_cmd->add_flag("--dump", dump, "print the tableau's rows");
    tableau_cmd->add_flag("--stats", stats, "print statistics (the default without --dump)");

    auto* replay_cmd = app.add_subcommand("replay", "Run a script of tableau operations");
    replay_cmd->add_option("TRACE", file, "the script, or - for standard input")->required();

    CLI11_PARSE(app, argc, argv);

    std::string shown = file == "-" ? "<stdin>" : file;
    try {
        if (*solve_cmd)
            return run_solve(file, eliminate, elim_opt->count() > 0, format, triangular, stats);
        auto start = Clock::now();
        SourceText source = SourceText::read(file);
        if (*replay_cmd) {
            std::cout << replay(source.text);
            return 0;
        }
        Problem problem = parse_input(source);
        std::cout << tableau_report(problem, {dump, stats}, ms_since(start));
        return 0;
    } catch (const InputError& e) {
        std::cerr << format_error(shown, e) << "\n";
        return kInputErrorStatus;
    } catch (const std::invalid_argument& e) {
        std::cerr << "vorn: " << e.what() << "\n";
        return kInputErrorStatus;
    } catch (const std::bad_alloc&) {
        std::cerr << "vorn: out of memory\n";
        return 1;
    }
}
