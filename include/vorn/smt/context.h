#pragma once

// Context: one incremental decision over a Problem's atom list and Boolean structure, kept
// across checks.
//
// The caller appends atoms to problem.atoms (and variables to problem.variables) at any time;
// check() decides every atom in the list, Int variables integral (decision.h describes how).
// push() marks a level, pop() truncates the atom list back to it. One lra::Simplex lives for the
// whole context: atoms are asserted once, at the level they were added on, and a pop loosens
// the bounds of the popped atoms while the rows, the basis and the assignment stay, so a check
// after a pop starts from the last basis instead of from scratch. Atom indices are the reasons
// of the simplex, so proofs and cores name atoms by their place in problem.atoms.
//
// Variables added to the problem after a pop are new variables even when a name repeats
// (Variables::add); a variable is integral when its sort is Int at the moment the context first
// meets it. After truncate_variables() their numbers come again, and the context meets them as
// new variables.

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "vorn/smt/decision.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// The size of the Boolean search: what a pop must bring back to its size at the push.
struct SearchSize {
    std::size_t variables = 0, clauses = 0, arena_words = 0, theory_atoms = 0;
    bool operator==(const SearchSize&) const = default;
};

class Context {
  public:
    explicit Context(Problem& problem, DecideOptions options = {});
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    void push();
    // Pops n levels (std::invalid_argument past level 0), truncating problem.atoms and the
    // problem's terms to their sizes at the matching push: atoms and terms made since are gone.
    void pop(std::size_t n = 1);
    std::size_t level() const;
    // Forgets the problem's variables after the first n (declared on a popped level), which
    // no atom or clause left mentions: a long push/declare/pop loop keeps the solver's size.
    void truncate_variables(int n);
    // Decides the atoms and clauses now in the problem. The answer's model is indexed by
    // problem variable (Bool variables 0 or 1).
    Decision check();
    // Decides them with `assumptions`, literals of the problem's propositions, taken as true
    // for this check only.
    Decision check(std::span<const Literal> assumptions);
    // After an Unsat check under assumptions: those that the refutation needs (empty when the
    // problem alone is unsat).
    std::vector<Literal> failed_assumptions() const;
    void set_options(const DecideOptions& options);
    // Summed over every check so far.
    const DecideStats& stats() const;
    // Zero before the first check with Boolean structure. O(clauses).
    SearchSize search_size() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vorn::smt
