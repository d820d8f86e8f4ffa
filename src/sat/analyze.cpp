// Conflict analysis: the first-UIP clause, minimized, and learning it.

#include <algorithm>
#include <cassert>

#include "vorn/sat/solver.h"

namespace vorn::sat {

// Resolves the conflict back to the first unique implication point of the current level. Leaves
// the clause in learned_ (asserting literal first, a literal of the backjump level second), the
// backjump level and the clause's LBD. `seen_` is clear before and after.
void Solver::analyze(CRef conflict) {
    learned_.assign(1, Lit());
    int paths = 0;
    Lit uip;
    std::size_t index = trail_.size();
    for (;;) {
        if (arena_.learned(conflict)) {
            arena_.set_used(conflict, true);
            if (arena_.lbd(conflict) > 2) {
                std::uint32_t lbd = lbd_of(arena_.lits(conflict));
                if (lbd < arena_.lbd(conflict)) arena_.set_lbd(conflict, lbd);
            }
        }
        for (Lit q : arena_.lits(conflict)) {
            Var v = q.var();
            if (q == uip || seen_[v] || level_[v] == 0) continue;
            seen_[v] = 1;
            bump(v);
            if (level_[v] == level())
                ++paths;
            else
                learned_.push_back(q);
        }
        while (!seen_[trail_[--index].var()]) {
        }
        uip = trail_[index];
        seen_[uip.var()] = 0;
        if (--paths == 0) break;
        conflict = reason_of(uip.var());
    }
    learned_[0] = ~uip;

    // Recursive minimization: drop literals implied by the others.
    std::uint32_t levels = 0;
    to_clear_.clear();
    for (std::size_t i = 1; i < learned_.size(); ++i) {
        levels |= abstract_level(learned_[i].var());
        to_clear_.push_back(learned_[i].var());
    }
    std::size_t kept = 1;
    for (std::size_t i = 1; i < learned_.size(); ++i) {
        Lit q = learned_[i];
        if (reason_[q.var()] == kNoClause || !redundant(q, levels)) learned_[kept++] = q;
    }
    learned_.resize(kept);
    for (Var v : to_clear_)
        seen_[v] = 0;

    backjump_level_ = 0;
    for (std::size_t i = 1; i < learned_.size(); ++i) {
        if (level_[learned_[i].var()] > backjump_level_) {
            backjump_level_ = level_[learned_[i].var()];
            std::swap(learned_[1], learned_[i]);
        }
    }
    learned_lbd_ = lbd_of(learned_);
}

// Whether `lit` (false, with a reason) follows from the literals marked in seen_: a depth-first
// walk of its reasons that succeeds when every path ends in a marked literal or at level 0. The
// literals it passes are marked too (and listed in to_clear_) when it succeeds, so later walks
// stop at them. `levels` (abstract levels of the clause) cuts walks that must fail.
bool Solver::redundant(Lit lit, std::uint32_t levels) {
    stack_.assign(1, lit);
    std::size_t top = to_clear_.size();
    while (!stack_.empty()) {
        CRef c = reason_of(stack_.back().var());
        stack_.pop_back();
        std::span<const Lit> lits = arena_.lits(c);
        for (std::size_t i = 1; i < lits.size(); ++i) {
            Var u = lits[i].var();
            if (seen_[u] || level_[u] == 0) continue;
            if (reason_[u] == kNoClause || (abstract_level(u) & levels) == 0) {
                for (std::size_t k = top; k < to_clear_.size(); ++k)
                    seen_[to_clear_[k]] = 0;
                to_clear_.resize(top);
                return false;
            }
            seen_[u] = 1;
            stack_.push_back(lits[i]);
            to_clear_.push_back(u);
        }
    }
    return true;
}

// The number of distinct decision levels among the literals (Audemard, Simon 2009).
std::uint32_t Solver::lbd_of(std::span<const Lit> lits) {
    ++stamp_;
    std::uint32_t count = 0;
    for (Lit lit : lits) {
        int l = level_[lit.var()];
        if (level_stamp_[l] != stamp_) {
            level_stamp_[l] = stamp_;
            ++count;
        }
    }
    return count;
}

void Solver::learn() {
    ++stats_.learned;
    stats_.learned_literals += learned_.size();
    stats_.learned_max = std::max<std::uint64_t>(stats_.learned_max, learned_.size());
    record(ProofStep::Kind::Learned, learned_);
    if (learned_.size() == 1) {
        assert(level() == 0);
        enqueue(learned_[0], kNoClause);
        return;
    }
    enqueue(learned_[0], attach(learned_, true, false, learned_lbd_));
}

}  // namespace vorn::sat
