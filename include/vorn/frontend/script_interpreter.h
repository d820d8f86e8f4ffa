#pragma once

// `vorn check` on an SMT-LIB script: the commands run one at a time, as they are read, and each
// writes its response (sat, a model, an error, success with :print-success) before the next one
// is read. An error in a command is the response (error "FILE:LINE:COL: message") and the script
// goes on; text that cannot be read as s-expressions stops it with an ParseError.
//
// A thin front end: the io layer reads the commands and evaluates their terms into the formula
// DAG of an smt::Engine (engine.h), whose assertion stack, checks, cores, objectives and models
// answer them; the interpreter prints the answers. Each command costs its text's evaluation plus
// what the engine does for it.
// Declarations made after a push are forgotten by its pop. Assertions the fragment cannot express
// make check-sat answer unknown, naming them, unless the rest is already unsat.

#include <iosfwd>
#include <string_view>

#include "vorn/io/source.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/engine.h"

namespace vorn::frontend {

struct CheckOptions {
    smt::DecideOptions decide;
    bool certificate = false;  // print a certificate after every unsat
    bool verify = false;  // re-check every model (against the formulas) and proof before printing
    bool model = false;   // LP formats: print the model of a sat answer
    // Decide every check-sat from scratch instead of with the one solver kept across them: the
    // reference of the differential tests.
    bool fresh_solver_per_check = false;
};

// Runs the script; `file` names it in error responses; `stats` sums its check-sat commands (what
// --stats reports). --verify throws smt::VerificationFailure when an answer does not check. The
// output is flushed after every command. With options.decide.stop: the time limit, the memory limit
// and an interrupt stop a check-sat (unknown; (get-info :reason-unknown) gives timeout, memout or
// interrupted), and an interrupt then ends the script with io::Interrupted (interrupted.h), also
// one that comes between commands.
void run_script(std::string_view text, std::string_view file, const CheckOptions& options,
                std::ostream& out, smt::CheckStats& stats);
// The same on a source, whose text the commands read hands back as they go (a long script of a
// mapped file then costs memory for what its commands keep, not for its text).
void run_script(const io::SourceText& source, const CheckOptions& options, std::ostream& out,
                smt::CheckStats& stats);

}  // namespace vorn::frontend
