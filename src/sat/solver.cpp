#include "vorn/sat/solver.h"

#include <algorithm>
#include <cassert>

namespace vorn::sat {

Solver::Solver(Options options)
    : options_(options),
      next_rephase_(static_cast<std::uint64_t>(options.rephase_interval)),
      restarts_(options.restarts),
      reduce_interval_(options.reduce_interval),
      next_reduce_(options.reduce_interval) {}

Var Solver::new_var() {
    auto v = static_cast<Var>(num_vars());
    level_.push_back(0);
    reason_.push_back(kNoClause);
    activity_.push_back(0);
    phase_.push_back(true);
    target_.push_back(true);
    best_.push_back(true);
    first_.push_back(false);
    seen_.push_back(0);
    level_stamp_.push_back(0);
    if (level_stamp_.size() == 1) level_stamp_.push_back(0);
    model_.push_back(LBool::Undef);
    for (int i = 0; i < 2; ++i) {
        values_.push_back(LBool::Undef);
        watches_.emplace_back();
    }
    heap_.insert(v);
    return v;
}

bool Solver::add_clause(std::span<const Lit> lits) {
    std::span<const Lit> innermost(activation_);
    return add_recorded(lits, innermost.last(innermost.empty() ? 0 : 1), ProofStep::Kind::Input);
}

bool Solver::add_valid(std::span<const Lit> lits) {
    return add_recorded(lits, {}, ProofStep::Kind::Lemma);
}

bool Solver::add_implied(std::span<const Lit> lits) {
    return add_recorded(lits, activation_, ProofStep::Kind::Learned);
}

bool Solver::add_recorded(std::span<const Lit> lits, std::span<const Lit> levels,
                          ProofStep::Kind kind) {
    if (!ok_) return false;
    assert(level() == 0);
    std::vector<Lit> clause(lits.begin(), lits.end());
    for (Lit a : levels)
        clause.push_back(~a);
    record(kind, clause);
    std::sort(clause.begin(), clause.end());
    // Facts of level 0 are permanent (see solver.h), so literals they decide can go.
    std::size_t kept = 0;
    for (std::size_t i = 0; i < clause.size(); ++i) {
        Lit lit = clause[i];
        assert(lit.var() < num_vars());
        if (value_of(lit) == LBool::True || (kept > 0 && clause[kept - 1] == ~lit)) return true;
        if (value_of(lit) == LBool::False || (kept > 0 && clause[kept - 1] == lit)) continue;
        clause[kept++] = lit;
    }
    clause.resize(kept);
    if (clause.empty()) {
        set_unsat();
        return false;
    }
    if (clause.size() == 1) {
        enqueue(clause[0], kNoClause);
        if (propagate() != kNoClause) {
            set_unsat();
            return false;
        }
        return true;
    }
    attach(clause, false, false, 0);
    return true;
}

void Solver::add_lemma(std::span<const Lit> lits) {
    assert(lits.size() >= 2 && value_of(lits[0]) == LBool::Undef &&
           value_of(lits[1]) == LBool::Undef);
    record(ProofStep::Kind::Lemma, lits);
    attach(lits, true, true, 2);
}

Result Solver::solve(std::span<const Lit> assumptions) {
    failed_.clear();
    if (!ok_) return Result::Unsat;
    assumptions_ = activation_;
    assumptions_.insert(assumptions_.end(), assumptions.begin(), assumptions.end());
    conflict_stop_ = options_.conflict_limit < 0
                         ? 0
                         : stats_.conflicts + static_cast<std::uint64_t>(options_.conflict_limit);
    guide_resting_ = false;
    turn_length_ = options_.guide_turn;
    turn_end_ = stats_.conflicts + static_cast<std::uint64_t>(turn_length_);
    Result result = search();
    if (result == Result::Unsat && ok_ && options_.record_proof) {
        std::vector<Lit> final_clause;
        for (Lit a : activation_)
            final_clause.push_back(~a);
        for (Lit f : failed_)
            final_clause.push_back(~f);
        record(ProofStep::Kind::Learned, final_clause);
    }
    if (result == Result::Sat)
        for (Var v = 0; v < num_vars(); ++v)
            model_[v] = value_of(pos(v));
    backtrack(0);
    return result;
}

Result Solver::search() {
    for (;;) {
        if (!ok_) return Result::Unsat;
        CRef conflict = propagate_with_theory();
        if (ok_ && conflict == kNoClause && theory_) {
            if (!theory_->check(false, theory_clause_)) {
                conflict = theory_conflict(theory_clause_);
                if (conflict == kNoClause && ok_) continue;  // a unit lemma, yet to propagate
            } else if (theory_->wants_propagate()) {
                continue;
            }
        }
        if (!ok_) return Result::Unsat;
        if (conflict != kNoClause) {
            resolve(conflict);
            continue;
        }
        if (conflict_stop_ != 0 && stats_.conflicts >= conflict_stop_) return Result::Unknown;
        if (options_.stop != nullptr && options_.stop->requested()) return Result::Unknown;
        bool turn_over = guide_ != nullptr && turn_length_ > 0 && stats_.conflicts >= turn_end_;
        if (turn_over) {
            guide_resting_ = !guide_resting_;
            if (!guide_resting_) turn_length_ *= 2;
            turn_end_ = stats_.conflicts + static_cast<std::uint64_t>(turn_length_);
        }
        if (restarts_.due() || turn_over) {
            restarts_.restarted();
            ++stats_.restarts;
            target_size_ = 0;
            backtrack(0);
            if (options_.rephase_interval > 0 && stats_.conflicts >= next_rephase_) rephase();
            if (options_.model_phase) take_model_phases();
            continue;
        }
        if (static_cast<std::int64_t>(stats_.conflicts) >= next_reduce_) {
            reduce_interval_ += 300;
            next_reduce_ += reduce_interval_;
            reduce_learned();
        }
        Lit decision;
        Next next = next_assumption(decision);
        if (next == Next::Failed) return Result::Unsat;
        if (next == Next::Decide) {
            decision = pick_branch();
            if (!decision.defined()) {
                std::size_t vars = num_vars();
                if (!theory_ || theory_->check(true, theory_clause_)) {
                    if (num_vars() == vars && (trail_.size() == vars || guide_done_))
                        return Result::Sat;
                    continue;  // the theory made new variables to decide
                }
                conflict = theory_conflict(theory_clause_);
                if (conflict != kNoClause) resolve(conflict);
                continue;
            }
            ++stats_.decisions;
        }
        new_level();
        enqueue(decision, kNoClause);
    }
}

// Learns from a conflict and backjumps, leaving the learned clause's asserting literal assigned.
void Solver::resolve(CRef conflict) {
    ++stats_.conflicts;
    if (level() == 0) {
        set_unsat();
        return;
    }
    update_target();
    analyze(conflict);
    int distance = options_.chronological_distance;
    bool chronological =
        learned_.size() > 1 && distance > 0 && level() - backjump_level_ > distance;
    backtrack(chronological ? level() - 1 : backjump_level_);
    learn();
    decay_activities();
    restarts_.on_conflict(learned_lbd_);
}

// Before a conflict's backjump: when the levels below the conflict's hold more literals than any
// trail since the last restart, their signs become the target phase that decisions take
// (Biere, Fleury 2020). Longer conflict-free trails lead the search towards a model; a restart
// lets a shorter trail set the target again.
void Solver::update_target() {
    std::size_t size = trail_lim_.empty() ? 0 : trail_lim_.back();
    note_best(size);
    if (size <= target_size_) return;
    target_size_ = size;
    for (std::size_t i = 0; i < size; ++i)
        target_[trail_[i].var()] = trail_[i].negative();
}

void Solver::enqueue(Lit lit, CRef reason) {
    assert(value_of(lit) == LBool::Undef);
    values_[lit.code()] = LBool::True;
    values_[(~lit).code()] = LBool::False;
    level_[lit.var()] = level();
    reason_[lit.var()] = reason;
    trail_.push_back(lit);
}

void Solver::new_level() {
    trail_lim_.push_back(trail_.size());
    if (theory_) theory_->new_level();
}

void Solver::take_model_phases() {
    for (Var v = 0; v < static_cast<Var>(model_.size()) && v < num_vars(); ++v)
        if (model_[v] != LBool::Undef) phase_[v] = target_[v] = model_[v] == LBool::False;
}

void Solver::backtrack(int target) {
    if (level() <= target) return;
    std::size_t keep = trail_lim_[target];
    for (std::size_t i = trail_.size(); i-- > keep;) {
        Lit lit = trail_[i];
        values_[lit.code()] = LBool::Undef;
        values_[(~lit).code()] = LBool::Undef;
        reason_[lit.var()] = kNoClause;
        phase_[lit.var()] = lit.negative();
        heap_of(lit.var()).insert(lit.var());
    }
    trail_.resize(keep);
    trail_lim_.resize(target);
    qhead_ = std::min(qhead_, keep);
    theory_head_ = std::min(theory_head_, keep);
    if (theory_) theory_->backtrack(target);
}

CRef Solver::attach(std::span<const Lit> lits, bool learned, bool lemma, std::uint32_t lbd) {
    CRef c = arena_.add(lits, learned, lemma, lbd);
    // A one-literal clause is only ever a reason (a theory explanation): nothing to watch.
    if (lits.size() >= 2) {
        watches_[lits[0].code()].push_back({c, lits[1]});
        watches_[lits[1].code()].push_back({c, lits[0]});
    }
    return c;
}

void Solver::record(ProofStep::Kind kind, std::span<const Lit> clause) {
    if (options_.record_proof) proof_.push_back({kind, {clause.begin(), clause.end()}});
}

void Solver::set_unsat() {
    ok_ = false;
    record(ProofStep::Kind::Learned, {});
}

}  // namespace vorn::sat
