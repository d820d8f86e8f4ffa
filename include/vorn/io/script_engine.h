#pragma once

// `vorn check` on an SMT-LIB script: the commands run one at a time, as they are read, and each
// writes its response (sat, a model, an error, success with :print-success) before the next one
// is read. An error in a command is the response (error "FILE:LINE:COL: message") and the script
// goes on; text that cannot be read as s-expressions stops it with an ParseError.
//
// The assertion stack, the checks, cores, objectives and models are smt::Engine's (engine.h);
// the script engine evaluates the commands' terms into its formula DAG and prints the answers.
// Declarations made after a push are forgotten by its pop. Assertions the fragment cannot express
// make check-sat answer unknown, naming them, unless the rest is already unsat.

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <string_view>

#include "vorn/smt/decision.h"
#include "vorn/smt/engine.h"

namespace vorn::io {

struct CheckOptions {
    smt::DecideOptions decide;
    bool certificate = false;  // print a certificate after every unsat
    bool verify = false;  // re-check every model (against the formulas) and proof before printing
    bool model = false;   // LP formats: print the model of a sat answer
    // Decide every check-sat from scratch instead of with the one solver kept across them: the
    // reference of the differential tests.
    bool fresh_solver_per_check = false;
};

// What --stats reports, summed over the check-sat commands.
using CheckStats = smt::CheckStats;
// Thrown by --verify when a model or certificate does not check: an internal error.
using VerificationFailure = smt::VerificationFailure;

// Runs the script; `file` names it in error responses. The output is flushed after every
// command. With options.decide.stop: the time limit, the memory limit and an interrupt stop a
// check-sat (unknown; (get-info :reason-unknown) gives timeout, memout or interrupted), and an
// interrupt then ends the script with Interrupted (interrupted.h), also one that comes between
// commands.
void run_script(std::string_view text, std::string_view file, const CheckOptions& options,
                std::ostream& out, CheckStats& stats);

}  // namespace vorn::io
