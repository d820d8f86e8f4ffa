#pragma once

// LinearTheory: what the Boolean search needs of its arithmetic theory, whichever procedure
// decides it (ArithTheory, the simplex; DifferenceTheory, for x − y ⋈ c). Each atom is a SAT
// variable standing for  term ≤ c  or  term ≥ c; its negation is the strict opposite bound.
// Over Int variables both readings are rounded to the integers (lra::round_integral_bound), as
// the certificate checkers round them.
//
// Proofs. With recording on, every lemma handed to the solver is logged with its Farkas
// multipliers, in the order the solver records lemmas.

#include <cstdint>
#include <span>
#include <vector>

#include "vorn/sat/solver.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

struct TheoryLemma {
    std::vector<sat::Lit> clause;
    // By clause position: the multiplier of the bound ¬clause[i] (0 for a literal not used).
    std::vector<QNumber> multipliers;
};

// An atom as the certificate states it:  Σ coeff·x ⋈ constant  over problem variables.
struct TheoryAtom {
    sat::Var var;
    Relation relation;  // Le or Ge
    LinearExpr::Entries term;
    QNumber constant;
};

class LinearTheory : public sat::Theory {
  public:
    explicit LinearTheory(bool record) : record_(record) {}

    // Makes SAT variable `var` the atom  term ⋈ c  (Le or Ge) over problem variables (no
    // constant entry, at least one variable).
    virtual void add_atom(sat::Var var, std::span<const LinearExpr::Entry> term, Relation relation,
                          const QNumber& c) = 0;
    // The atom stops counting (its proposition was popped); its variable is left to the search.
    virtual void retire(sat::Var var) = 0;
    virtual bool is_atom(sat::Var var) const = 0;
    // Decisions on the atom `var` take the side the current model satisfies, before other
    // variables.
    virtual void prefer_model_phase(sat::Var /*var*/) {}
    // The SAT solver gave back the variables from `first` on (a pop): their atoms go. A theory
    // that cannot forget atoms has the solver keep popped variables (sat::Options).
    virtual void truncate(sat::Var /*first*/) {}
    // The problem forgot its variables after the first n (their atoms went at the pop).
    virtual void truncate_variables(int n) = 0;
    // Starts a check: a new budget of integer branches (0: no limit).
    virtual void begin_check(std::uint64_t branch_limit) = 0;
    // The check ran out of its budget: the search's Sat means Unknown.
    virtual bool gave_up() const { return false; }
    // The check gave up to go on inside the box of its atoms (ArithTheory::take_split).
    virtual bool wants_box() const { return false; }
    // Makes the atoms x ≤ B and x ≥ −B on every variable of the check's input atoms, B their
    // lra::SolutionBox bound, and lets the check's splits go on; the atoms' literals go to
    // `bounds`. Returns B.
    virtual QNumber make_box(std::vector<sat::Lit>& /*bounds*/) { return {}; }
    // Where a long theory check looks whether to give up (the SAT search stops right after).
    virtual void set_stop(util::Stop* /*stop*/) {}
    // DecideOptions::cuts, for a theory that can cut.
    virtual void set_cuts(bool /*on*/) {}
    virtual void set_relax_explanations(bool /*on*/) {}
    virtual void set_theory_phase(bool /*on*/) {}
    virtual void set_tableau_propagation(bool /*on*/) {}
    virtual void set_box_after(std::uint64_t /*splits*/) {}
    virtual DecideStats stats() const = 0;

    // The model of the last consistent full check, by problem variable (0 for variables the
    // theory never met).
    const std::vector<QNumber>& model() const { return model_; }
    const std::vector<TheoryLemma>& lemmas() const { return lemmas_; }
    const std::vector<TheoryAtom>& atoms() const { return atoms_; }

  protected:
    void log_lemma(const std::vector<sat::Lit>& clause, const std::vector<QNumber>& multipliers) {
        if (record_) lemmas_.push_back({clause, multipliers});
    }

    bool record_;
    std::vector<TheoryAtom> atoms_;
    std::vector<QNumber> model_;
    std::vector<TheoryLemma> lemmas_;
};

}  // namespace vorn::smt
