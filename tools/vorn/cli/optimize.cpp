#include "cli/optimize.h"

#include <cstdio>
#include <ostream>
#include <vector>

#include "cli/output.h"
#include "cli/usage_error.h"
#include "vorn/frontend/problem_reader.h"
#include "vorn/smt/optimize.h"
#include "vorn/smt/stopwatch.h"

namespace vorn::cli {

std::string run_optimize(const io::SourceText& source, const OptimizeRequest& request,
                         std::ostream& out, smt::CheckStats& stats, std::string& note) {
    io::InputFormat format = io::input_format(source, request.format);
    if (format == io::InputFormat::Smt2 || format == io::InputFormat::Cnf)
        throw UsageError("optimize reads .lin, MPS and LP files");
    smt::Problem problem = frontend::read_problem(source, format, request.options.decide.stop);
    if (!problem.objective) throw UsageError("optimize: the input states no objective");
    bool maximize = request.maximize || problem.maximize;
    smt::DecideOptions options = request.options.decide;
    options.certify = request.options.certificate || request.options.verify;
    auto start = smt::Clock::now();
    smt::Optimization answer = smt::optimize(problem, *problem.objective, maximize, options);
    stats.solve_seconds += smt::ms_since(start) / 1000;
    ++stats.checks;
    stats.decide += answer.stats;
    if (request.options.verify) {
        if (std::string bad =
                smt::check_optimization(problem, *problem.objective, maximize, answer);
            !bad.empty())
            throw smt::VerificationFailure(bad);
    }
    if (request.stats && options.float_start) {
        if (!note.empty()) note += "\nvorn: ";
        note += answer.float_basis_optimal ? "floating-point start: its basis is optimal"
                : answer.float_basis_note.empty()
                    ? "floating-point start: not applicable"
                    : "floating-point start: " + answer.float_basis_note +
                          "; the exact simplex went on";
    }
    print_optimization(out, problem, answer, maximize, request.options.model,
                       request.options.certificate);
    out.flush();
    return answer.reason_unknown;
}

}  // namespace vorn::cli
