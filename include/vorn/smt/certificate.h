#pragma once

// Certificates of unsat answers: the proof tree of smt/decision.h written as text that a short
// program can check without the solver (scripts/check_certificate.py; the format is described in
// docs/certificates.md), and the tool's own exact check of a proof against the input's atoms
// (--verify), which shares nothing with the simplex's checkers.

#include <iosfwd>
#include <string>
#include <vector>

#include "vorn/smt/clause_proof.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/formula_dag.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// "(certificate", the variables and atoms the proof uses, what each lifted quotient of `dag`
// among those variables divides (when a dag is given), one line per proof node, ")".
void print_certificate(std::ostream& out, const Problem& problem,
                       const std::vector<ProofStep>& proof, const FormulaDag* dag = nullptr);

// Empty when the proof shows that the problem's atoms have no (integral) solution: every node is
// reached once from the root, splits cover their cases (a disequality of an atom; an Int
// variable at an integer), every Farkas leaf combines its bounds into 0 < 0, 0 ≤ −c or 0 < −c
// with c > 0 or ≥ 0, and every gcd leaf is an equality over Int variables that the gcd of its
// coefficients does not divide. Otherwise what fails.
std::string check_proof(const Problem& problem, const std::vector<ProofStep>& proof);

// The certificate of an unbounded optimization: "(certificate", "format ray", the variables and
// every atom, the objective's direction and term, a point that satisfies the atoms and a ray
// along which they keep holding while the objective improves without end, ")".
void print_ray_certificate(std::ostream& out, const Problem& problem, std::uint32_t objective,
                           bool maximize, const std::vector<QNumber>& point,
                           const std::vector<QNumber>& ray);

// The certificate of an unsat answer on a problem with Boolean structure: "(certificate", the
// variables the atoms use, the atom definitions, the lifted quotients as above, the assumptions,
// one line per proof step, ")".
void print_certificate(std::ostream& out, const Problem& problem, const ClauseProof& proof,
                       const FormulaDag* dag = nullptr);

// The certificate of an Unsat decision over `problem` (as it stood when the check answered): its
// clause proof when the Boolean search answered, its proof tree otherwise; `dag` holds the
// formulas the problem was read into (for its lifted quotients).
void print_certificate(std::ostream& out, const Problem& problem, const Decision& unsat,
                       const FormulaDag* dag = nullptr);

// Empty when the clause proof refutes its input clauses under its assumptions: every lemma's
// Farkas combination is a contradiction, every learned clause follows by unit propagation from
// the steps before it, and the last step is a clause of negated assumptions. Otherwise what
// fails.
std::string check_proof(const Problem& problem, const ClauseProof& proof);

}  // namespace vorn::smt
