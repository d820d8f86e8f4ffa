// The tool's readers and commands on arbitrary text: every input gives a result or an
// ParseError, never a crash, a hang or a sanitizer report. The first byte picks the reader.

#include <cstdint>
#include <sstream>
#include <string>

#include "cli/output.h"
#include "cli/replay.h"
#include "cli/solve.h"
#include "cli/tableau_summary.h"
#include "vorn/frontend/problem_reader.h"
#include "vorn/io/lin_reader.h"
#include "vorn/io/parse_error.h"

namespace {

// Small problems go through both commands and every printer.
void exercise(vorn::smt::Problem problem) {
    if (problem.atoms.size() > 64) return;
    std::ostringstream sink;
    vorn::cli::print_tableau(sink, vorn::cli::build_tableau(problem), problem.variables, 0, true,
                             true);
    vorn::cli::SolveResult result = vorn::cli::solve(problem, {});
    vorn::cli::print_solve_text(sink, result, problem.variables);
    vorn::cli::print_solve_json(sink, result, problem.variables);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0 || size > 65536) return 0;
    std::string_view text(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    try {
        switch (bytes[0] % 3) {
            case 0:
                exercise(vorn::io::read_lin(text));
                break;
            case 1:
                exercise(vorn::frontend::read_smt2(text));
                break;
            default:
                (void)vorn::cli::replay(text);
        }
    } catch (const vorn::io::ParseError&) {
    }
    return 0;
}
