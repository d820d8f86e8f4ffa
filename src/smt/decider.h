#pragma once

// The decision procedure behind smt::decide and smt::Context: one lra::Simplex and one
// lra::BranchAndBound kept for the decider's life, the problem's atoms entered as bounds once,
// at the push level they were added on.
//
// Every atom but a disequality becomes one bound (Simplex::assert_term, the atom's index as its
// reason). Disequalities are split on demand during a check, under simplex levels of their own
// that the check pops before it returns, so the caller's levels are all the simplex has between
// checks. A constant atom that is false is remembered (the first one) until a pop removes it.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "vorn/lra/branch_and_bound.h"
#include "vorn/lra/lattice.h"
#include "vorn/lra/simplex.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/problem.h"

#include "simplex_vars.h"

namespace vorn::smt {

// Runs solve(options) under the options' stop (the caller's, else one of its own), started once
// with the time limit, so that a call and everything it runs share one deadline. Running out of
// memory answers Unknown ("memout"); `is_unknown(answer)` says whether the answer is Unknown.
template <typename Solve>
auto under_stop(DecideOptions options, Solve solve) {
    util::Stop own_stop;
    if (options.stop == nullptr) options.stop = &own_stop;
    using Answer = decltype(solve(options));
    return util::run_checked(
        *options.stop, options.time_limit, [&] { return solve(options); },
        [] {
            Answer answer{};
            answer.reason_unknown = util::to_string(util::StopReason::Memout);
            return answer;
        },
        [](const Answer& answer) { return is_unknown(answer); });
}

class Decider {
  public:
    Decider(const Problem& problem, const DecideOptions& options);

    void set_options(const DecideOptions& options);
    // Give up at once on a vertex that only a split on a term cuts off (BranchAndBound's
    // wants_term_split), for a caller that then goes on with the Boolean search.
    void hand_off_term_splits() { hand_off_ = true; }
    // Enters the atoms added since, then opens a level.
    void push();
    // Replaying levels: enters the atoms up to `atoms`, then opens a level.
    void push(std::size_t atoms);
    // Closes n levels; the caller truncates the atoms back to `atoms_at(level() - n)`.
    void pop(std::size_t n);
    // The problem forgot its variables after the first n: their simplex variables, without
    // bounds since the pop, go to the next new problem variables of their sort, so the simplex
    // (and every model) grows with the variables alive at once.
    void truncate_variables(int n);
    std::size_t level() const { return levels_.size(); }
    std::size_t atoms_at(std::size_t level) const { return levels_[level].atoms; }
    // Decides the atoms now in the problem.
    Decision check();
    DecideStats stats() const {
        DecideStats s{simplex_.stats(), branch_.stats(), splits_, {}};
        s.float_decided = float_decided_;
        return s;
    }

  private:
    using Result = lra::Result;
    using Entry = LinearExpr::Entry;

    struct Frame {
        std::size_t node;
        bool high;
    };
    // term ≠ c, term without constant.
    struct SplitTerm {
        std::size_t atom = 0;
        std::uint32_t first = 0, second = 0;
        LinearExpr::Entries term;
        QNumber constant;
    };
    // What a pop restores.
    struct Level {
        std::size_t atoms, disequalities, integral_atoms;
    };

    void enter_atoms();
    void enter_atom(std::size_t index);
    int simplex_var(int v);
    // The simplex term of `entries` (constant skipped); empty when it has no variable.
    const lra::TermEntries& simplex_term(std::span<const Entry> entries);
    // The equalities over Int variables solved over the integers (lra::solve_over_integers):
    // Unsat with a lattice proof when they have no integer solution, Sat when their particular
    // solution satisfies every atom. False when that decides nothing.
    bool lattice_decides(Result& result);
    bool model_on_lattice(const std::vector<std::size_t>& eq_atoms, const std::vector<int>& var_of,
                          const lra::LatticeAnswer& lattice, std::vector<QNumber>& model);
    // The first check of a conjunction over Real variables starts from the basis a
    // floating-point LP solver ends at (feasible, or where it finds the atoms infeasible): true
    // when that basis decides it exactly (`result`); otherwise the simplex starts from it.
    bool float_start(Result& result);
    Result search();
    Result search_convex();
    // A model on either side of the disequality split at `root` (Sat); Unsat when both sides
    // are (the split and its two leaves are then the proof).
    Result point_beside(std::size_t root, std::vector<QNumber>& point);
    bool stopped() const {
        return options_.stop != nullptr && options_.stop->reason() != util::StopReason::None;
    }
    bool move_toward(std::vector<QNumber>& q, const std::vector<QNumber>& p);
    std::size_t violations(const std::vector<QNumber>& point) const;
    Result check_node(std::size_t node);
    std::optional<SplitTerm> violated_disequality(const std::vector<QNumber>& point) const;
    std::vector<QNumber> current_model() const;
    // Makes `node` a split on s; false when the split term is constant (both sides contradict).
    bool make_split(std::size_t node, SplitTerm s);
    void assert_split(std::size_t node, bool high);
    std::size_t new_node() {
        proof_.emplace_back();
        return proof_.size() - 1;
    }
    FarkasEntry translate(const lra::Explanation& e, const std::vector<std::size_t>& branch_path);
    void copy_branch_proof(std::size_t node);

    const Problem& problem_;
    DecideOptions options_;
    bool hand_off_ = false;
    std::uint64_t budget_ = 0;  // branch-and-bound nodes left in the current check
    lra::Simplex simplex_;
    lra::BranchAndBound branch_;
    std::vector<Level> levels_;
    std::size_t entered_ = 0;                // atoms entered as bounds
    std::size_t integral_atoms_ = 0;         // entered atoms over some Int variable
    std::optional<std::size_t> false_atom_;  // the first entered constant atom that is false
    std::vector<int> simplex_var_;           // by problem variable, 0: none yet
    std::vector<int> problem_var_;           // by simplex variable
    FreeSimplexVars free_vars_;              // of forgotten problem variables
    std::vector<std::size_t> diseqs_;        // entered atoms to split on demand
    std::vector<Frame> stack_;
    std::vector<lra::TermVar> split_vars_;  // by proof node of a SplitNe
    std::vector<ProofStep> proof_;
    std::vector<QNumber> model_;
    lra::TermEntries scratch_;
    std::uint64_t splits_ = 0;
    std::uint64_t float_decided_ = 0;
};

}  // namespace vorn::smt
