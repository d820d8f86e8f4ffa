// Unit propagation over two watched literals, and the theory's share of propagation.

#include <algorithm>
#include <cassert>

#include "vorn/sat/solver.h"

namespace vorn::sat {

// Returns a clause whose literals are all false, or kNoClause once every literal on the trail
// has been propagated.
CRef Solver::propagate() {
    CRef conflict = kNoClause;
    while (qhead_ < trail_.size()) {
        Lit false_lit = ~trail_[qhead_++];
        ++stats_.propagations;
        std::vector<Watch>& ws = watches_[false_lit.code()];
        std::size_t i = 0, j = 0;
        while (i < ws.size()) {
            Watch w = ws[i++];
            if (value_of(w.blocker) == LBool::True) {
                ws[j++] = w;
                continue;
            }
            std::span<Lit> c = arena_.lits(w.clause);
            if (c[0] == false_lit) std::swap(c[0], c[1]);
            Watch kept{w.clause, c[0]};
            if (c[0] != w.blocker && value_of(c[0]) == LBool::True) {
                ws[j++] = kept;
                continue;
            }
            bool moved = false;
            for (std::size_t k = 2; k < c.size(); ++k) {
                if (value_of(c[k]) == LBool::False) continue;
                std::swap(c[1], c[k]);
                watches_[c[1].code()].push_back(kept);
                moved = true;
                break;
            }
            if (moved) continue;
            ws[j++] = kept;
            if (value_of(c[0]) == LBool::False) {
                conflict = w.clause;
                qhead_ = trail_.size();
                while (i < ws.size())
                    ws[j++] = ws[i++];
            } else {
                enqueue(c[0], w.clause);
            }
        }
        ws.resize(j);
    }
    return conflict;
}

// Unit propagation and theory propagation to a common fixpoint. Returns a conflict clause (at
// the current level, after a backjump when the theory's conflict lies lower), or kNoClause.
CRef Solver::propagate_with_theory() {
    for (;;) {
        CRef conflict = propagate();
        if (conflict != kNoClause || !theory_) return conflict;
        while (theory_head_ < trail_.size())
            theory_->assign(trail_[theory_head_++]);
        implied_.clear();
        theory_->propagate(implied_);
        bool assigned = false;
        for (Lit lit : implied_) {
            LBool value = value_of(lit);
            if (value == LBool::True) continue;
            assigned = true;
            if (value == LBool::Undef) {
                ++stats_.theory_propagations;
                enqueue(lit, kTheoryReason);
                if (level() == 0 && options_.record_proof) reason_of(lit.var());
                continue;
            }
            // Implied yet false: the explanation is a conflict.
            theory_clause_.clear();
            theory_->explain(lit, theory_clause_);
            conflict = theory_conflict(theory_clause_);
            if (conflict != kNoClause || !ok_) return conflict;
            break;
        }
        if (!assigned) return kNoClause;
    }
}

// Takes a theory clause whose literals are all false. Backjumps to the highest level among them
// and returns the clause as a conflict there; a clause of one literal becomes a level-0 fact
// instead (kNoClause), an empty or level-0 clause makes the solver unsat.
CRef Solver::theory_conflict(std::vector<Lit>& clause) {
    record(ProofStep::Kind::Lemma, clause);
    auto by_level = [&](Lit a, Lit b) { return level_[a.var()] > level_[b.var()]; };
    for (std::size_t i = 0; i < std::min<std::size_t>(2, clause.size()); ++i)
        std::iter_swap(clause.begin() + i,
                       std::min_element(clause.begin() + i, clause.end(), by_level));
    if (clause.empty() || level_[clause[0].var()] == 0) {
        set_unsat();
        return kNoClause;
    }
    for ([[maybe_unused]] Lit lit : clause)
        assert(value_of(lit) == LBool::False);
    if (clause.size() == 1) {
        backtrack(0);
        enqueue(clause[0], kNoClause);
        return kNoClause;
    }
    backtrack(level_[clause[0].var()]);
    return attach(clause, true, true, static_cast<std::uint32_t>(clause.size()));
}

// The reason clause of an assigned variable, asking the theory for it when it has not yet been
// given. The clause is stored with the implied literal first and the other literal of the
// highest level second, which is where the watches want them once the literal is unassigned.
CRef Solver::reason_of(Var v) {
    if (reason_[v] != kTheoryReason) return reason_[v];
    Lit lit = value_of(pos(v)) == LBool::True ? pos(v) : neg(v);
    theory_clause_.clear();
    theory_->explain(lit, theory_clause_);
    record(ProofStep::Kind::Lemma, theory_clause_);
    auto at = std::find(theory_clause_.begin(), theory_clause_.end(), lit);
    assert(at != theory_clause_.end());
    std::iter_swap(theory_clause_.begin(), at);
    if (theory_clause_.size() > 2) {
        auto by_level = [&](Lit a, Lit b) { return level_[a.var()] < level_[b.var()]; };
        std::iter_swap(
            theory_clause_.begin() + 1,
            std::max_element(theory_clause_.begin() + 1, theory_clause_.end(), by_level));
    }
    reason_[v] =
        attach(theory_clause_, true, true, static_cast<std::uint32_t>(theory_clause_.size()));
    return reason_[v];
}

}  // namespace vorn::sat
