#include "cli/check.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <ostream>
#include <stdexcept>

#include "cli/output.h"
#include "cli/usage_error.h"
#include "vorn/frontend/problem_reader.h"
#include "vorn/io/dimacs_reader.h"
#include "vorn/io/parse_error.h"
#include "vorn/io/real_literal.h"
#include "vorn/sat/solver.h"
#include "vorn/smt/certificate.h"
#include "vorn/smt/model_check.h"
#include "vorn/smt/stopwatch.h"

namespace vorn::cli {

namespace {

// A decimal literal, or an exact fraction as `optimize` prints it.
std::optional<QNumber> bound_value(std::string_view text) {
    if (auto value = io::parse_real_literal(text)) return value;
    if (text.find('/') == std::string_view::npos) return std::nullopt;
    try {
        return QNumber::from_string(text);
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
}

// "objective ⋈ V" as an atom: objective − V ⋈ 0.
void add_objective_bound(smt::Problem& problem, const std::string& bound) {
    if (!problem.objective) throw UsageError("--objective-bound: the input states no objective");
    std::string_view text = bound;
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    static constexpr std::pair<std::string_view, smt::Relation> kOps[] = {{"<=", smt::Relation::Le},
                                                                          {">=", smt::Relation::Ge},
                                                                          {"<", smt::Relation::Lt},
                                                                          {">", smt::Relation::Gt},
                                                                          {"=", smt::Relation::Eq}};
    for (const auto& [op, relation] : kOps) {
        if (!text.starts_with(op)) continue;
        std::string_view number = text.substr(op.size());
        while (!number.empty() && number.front() == ' ')
            number.remove_prefix(1);
        std::optional<QNumber> value = bound_value(number);
        if (!value) break;
        smt::LinearExpr expr;
        for (const auto& e : problem.term(*problem.objective))
            expr.add_entry(e.var, e.coeff);
        expr.add_entry(0, -*value);
        problem.atoms.push_back({relation, problem.add_term(expr), 1, smt::SourcePos{}});
        return;
    }
    throw UsageError(
        "--objective-bound: expected a relation and a number, as in '<= 2.5' or '<= -7/3', not " +
        io::quoted(bound));
}

std::string check_problem(smt::Problem& problem, const CheckRequest& request, std::ostream& out,
                          smt::CheckStats& stats) {
    if (request.objective_bound) add_objective_bound(problem, *request.objective_bound);
    auto start = smt::Clock::now();
    smt::Decision d = smt::decide(problem, request.options.decide);
    stats.solve_seconds += smt::ms_since(start) / 1000;
    stats.checks = 1;
    stats.decide = d.stats;
    if (request.options.verify) {
        std::string bad = smt::check_decision(problem, d);
        if (!bad.empty()) throw smt::VerificationFailure(bad);
    }
    print_decision(out, problem, d, request.options.model, request.options.certificate);
    out.flush();
    return d.reason_unknown;
}

// The SAT engine's refutation of a DIMACS file as a clause proof: its input clauses as the file
// states them and the learned clauses, down to the empty one.
smt::ClauseProof cnf_refutation(const sat::Solver& solver) {
    smt::ClauseProof proof;
    for (const sat::ProofStep& step : solver.proof()) {
        smt::ClauseProof::Step s{step.kind == sat::ProofStep::Kind::Input
                                     ? smt::ClauseProof::Kind::Input
                                     : smt::ClauseProof::Kind::Learned,
                                 {},
                                 {}};
        for (sat::Lit l : step.clause)
            s.clause.push_back((static_cast<std::int64_t>(l.var()) + 1) * (l.negative() ? -1 : 1));
        proof.steps.push_back(std::move(s));
    }
    return proof;
}

// A DIMACS file: the SAT engine alone. The model, under --model, is one "v" line of DIMACS
// literals ending in 0, as SAT solvers print it; under --certificate an unsat answer has its
// refutation (a clause proof), which --verify checks. The limits apply as smt::Context applies
// them: the stop started for the one check, the conflict limit, std::bad_alloc answered as memout.
std::string check_cnf(const io::SourceText& source, const CheckRequest& request, std::ostream& out,
                      smt::CheckStats& stats) {
    const smt::DecideOptions& limits = request.options.decide;
    util::Stop own_stop;
    util::Stop& stop = limits.stop != nullptr ? *limits.stop : own_stop;
    io::Cnf cnf;
    try {
        cnf = io::read_dimacs(source.text, &stop);
    } catch (io::ParseError& e) {
        e.set_file(source.name);
        throw;
    }
    auto start = smt::Clock::now();
    sat::Options options;
    options.record_proof = request.options.certificate || request.options.verify;
    sat::Solver solver(options);
    solver.set_stop(&stop);
    if (limits.conflict_limit > 0)
        solver.set_conflict_limit(static_cast<std::int64_t>(std::min<std::uint64_t>(
            limits.conflict_limit, std::numeric_limits<std::int64_t>::max())));
    struct Answer {
        sat::Result result = sat::Result::Unknown;
        std::string reason;
    };
    // A stopped check gives the stop's reason, even over running out of memory.
    auto with_stop_reason = [&](Answer& a) {
        if (a.result == sat::Result::Unknown && stop.reason() != util::StopReason::None)
            a.reason = util::to_string(stop.reason());
        return a;
    };
    Answer answer = util::run_checked(
        stop, limits.time_limit,
        [&] {
            for (int v = 0; v < cnf.variables; ++v)
                solver.new_var();
            std::vector<sat::Lit> clause;
            bool consistent = true;
            for (const auto& c : cnf.clauses) {
                clause.clear();
                for (int lit : c)
                    clause.emplace_back(static_cast<sat::Var>(std::abs(lit) - 1), lit < 0);
                consistent = solver.add_clause(clause) && consistent;
            }
            Answer a{consistent ? solver.solve() : sat::Result::Unsat, {}};
            return with_stop_reason(a);
        },
        [&] {
            Answer a{sat::Result::Unknown, std::string(util::to_string(util::StopReason::Memout))};
            return with_stop_reason(a);
        },
        [](const Answer& a) { return a.result == sat::Result::Unknown; });
    sat::Result r = answer.result;
    std::string reason = std::move(answer.reason);
    if (r == sat::Result::Unknown && reason.empty()) reason = "conflict limit";
    stats.solve_seconds += smt::ms_since(start) / 1000;
    stats.checks = 1;
    if (r == sat::Result::Sat && request.options.verify)
        for (const auto& c : cnf.clauses)
            if (std::none_of(c.begin(), c.end(), [&](int lit) {
                    return solver.value(
                        sat::Lit(static_cast<sat::Var>(std::abs(lit) - 1), lit < 0));
                }))
                throw smt::VerificationFailure("the model falsifies a clause");
    std::vector<int> model;
    if (r == sat::Result::Sat && request.options.model)
        for (int v = 1; v <= cnf.variables; ++v)
            model.push_back(solver.value(sat::Lit(static_cast<sat::Var>(v - 1), false)) ? v : -v);
    smt::ClauseProof refutation;
    if (r == sat::Result::Unsat && options.record_proof) refutation = cnf_refutation(solver);
    const smt::Problem no_atoms(smt::NameSyntax::Plain);
    if (r == sat::Result::Unsat && request.options.verify)
        if (std::string bad = smt::check_proof(no_atoms, refutation); !bad.empty())
            throw smt::VerificationFailure("the refutation does not check: " + bad);
    print_cnf_answer(out, r, request.options.model ? &model : nullptr);
    if (r == sat::Result::Unsat && request.options.certificate)
        smt::print_certificate(out, no_atoms, refutation);
    out.flush();
    return reason;
}

}  // namespace

std::string run_check(const io::SourceText& source, const CheckRequest& request, std::ostream& out,
                      smt::CheckStats& stats) {
    io::InputFormat format = io::input_format(source, request.format);
    if (format == io::InputFormat::Smt2) {
        if (request.objective_bound)
            throw UsageError("--objective-bound applies to .lin, MPS and LP files");
        frontend::run_script(source, request.options, out, stats);
        return {};
    }
    if (format == io::InputFormat::Cnf) {
        if (request.objective_bound) throw UsageError("--objective-bound applies to LP files");
        return check_cnf(source, request, out, stats);
    }
    smt::Problem problem = frontend::read_problem(source, format, request.options.decide.stop);
    return check_problem(problem, request, out, stats);
}

}  // namespace vorn::cli
