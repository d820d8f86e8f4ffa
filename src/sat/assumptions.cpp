// Assumptions, the assumptions behind a failure, and push/pop by activation literals.

#include <algorithm>
#include <cassert>

#include "vorn/sat/solver.h"

namespace vorn::sat {

// Assumption i is the decision of level i+1; one that is already true still gets its (empty)
// level so that the numbering holds.
Solver::Next Solver::next_assumption(Lit& decision) {
    while (static_cast<std::size_t>(level()) < assumptions_.size()) {
        Lit a = assumptions_[level()];
        LBool value = value_of(a);
        if (value == LBool::True) {
            new_level();
        } else if (value == LBool::False) {
            analyze_final(a);
            return Next::Failed;
        } else {
            decision = a;
            return Next::Assumption;
        }
    }
    return Next::Decide;
}

// `failed` is a false assumption. Collects it and the assumptions its negation was derived
// from (the decisions reached backwards through the reasons) into failed_, activation
// literals left out.
void Solver::analyze_final(Lit failed) {
    failed_.assign(1, failed);
    if (level_[failed.var()] > 0) {
        seen_[failed.var()] = 1;
        for (std::size_t i = trail_.size(); i-- > trail_lim_[0];) {
            Var v = trail_[i].var();
            if (!seen_[v]) continue;
            seen_[v] = 0;
            if (reason_[v] == kNoClause) {
                failed_.push_back(trail_[i]);
                continue;
            }
            std::span<const Lit> lits = arena_.lits(reason_of(v));
            for (std::size_t k = 1; k < lits.size(); ++k)
                if (level_[lits[k].var()] > 0) seen_[lits[k].var()] = 1;
        }
    }
    std::erase_if(failed_, [&](Lit lit) {
        return std::find(activation_.begin(), activation_.end(), lit) != activation_.end();
    });
}

void Solver::push() {
    assert(level() == 0);
    activation_.push_back(pos(new_var()));
}

void Solver::pop() {
    assert(!activation_.empty());
    Lit active = activation_.back();
    activation_.pop_back();
    backtrack(0);
    bool keep = options_.record_proof;
    Var first_gone = keep ? static_cast<Var>(num_vars()) : active.var();
    for (CRef c = arena_.first(); c != arena_.end(); c = arena_.next(c)) {
        if (arena_.garbage(c)) continue;
        std::span<const Lit> lits = arena_.lits(c);
        if (std::none_of(lits.begin(), lits.end(),
                         [&](Lit l) { return l == ~active || l.var() >= first_gone; }))
            continue;
        if (arena_.learned(c)) ++stats_.deleted;
        arena_.remove(c);
    }
    collect_garbage();
    if (!keep) return truncate_vars(first_gone);
    if (value_of(active) == LBool::Undef) enqueue(~active, kNoClause);
    // Once unsat the record ends with the empty clause; nothing may follow it.
    if (ok_) record(ProofStep::Kind::Input, std::vector<Lit>{~active});
    if (ok_ && propagate() != kNoClause) set_unsat();
}

// At level 0, no clause over the variables left. Their level-0 facts leave the trail; the
// facts they helped derive stay, being consequences of what stays.
void Solver::truncate_vars(Var first) {
    auto gone = [&](Lit l) { return l.var() >= first; };
    auto kept_before = [&](std::size_t end) {
        return static_cast<std::size_t>(
            std::count_if(trail_.begin(), trail_.begin() + static_cast<std::ptrdiff_t>(end),
                          [&](Lit l) { return !gone(l); }));
    };
    qhead_ = kept_before(qhead_);
    theory_head_ = kept_before(theory_head_);
    for (Lit l : trail_)
        if (gone(l)) values_[l.code()] = values_[(~l).code()] = LBool::Undef;
    std::erase_if(trail_, gone);
    level_.resize(first);
    reason_.resize(first);
    activity_.resize(first);
    phase_.resize(first);
    target_.resize(first);
    target_size_ = 0;
    best_.resize(first);
    best_size_ = 0;
    first_.resize(first);
    seen_.resize(first);
    level_stamp_.resize(std::size_t{first} + 1);
    model_.resize(first);
    values_.resize(2 * std::size_t{first});
    watches_.resize(2 * std::size_t{first});
    heap_.truncate(first);
    first_heap_.truncate(first);
}

std::size_t Solver::num_clauses() const {
    std::size_t n = 0;
    for (CRef c = arena_.first(); c != arena_.end(); c = arena_.next(c))
        n += arena_.garbage(c) ? 0 : 1;
    return n;
}

}  // namespace vorn::sat
