#pragma once

// The tool's own check of a pigeonhole lemma of a clause proof (ClauseProof::Hall), written apart
// from the solver's Hall-interval test so that a fault there cannot hide itself.

#include <cstdint>
#include <string>
#include <unordered_map>

#include "vorn/smt/clause_proof.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// Empty when the lemma is valid; otherwise why not. `atom_of`: the proof's atoms by DIMACS
// variable (indices into proof.atoms).
std::string check_hall_lemma(const Problem& problem, const ClauseProof& proof,
                             const ClauseProof::Step& step,
                             const std::unordered_map<std::int64_t, std::size_t>& atom_of);

}  // namespace vorn::smt
