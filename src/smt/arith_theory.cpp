#include "arith_theory.h"

#include <algorithm>
#include <set>

#include "vorn/lra/integer_bounds.h"
#include "vorn/lra/solution_box.h"
#include "vorn/lra/unit_cube.h"

#include "simplex_vars.h"

namespace vorn::smt {

namespace {

lra::SimplexOptions theory_simplex_options() {
    lra::SimplexOptions o;
    // Branching reads the δ-assignment of every Int variable, which eliminated ones lack.
    o.eliminate = false;
    return o;
}

}  // namespace

ArithTheory::ArithTheory(const Problem& problem, sat::Solver& sat, bool record, util::Stop* stop)
    : LinearTheory(record), problem_(problem), sat_(sat), simplex_(theory_simplex_options()) {
    simplex_.set_stop(stop);
}

int ArithTheory::simplex_var(int v) {
    bool integral = problem_.variables.sort(v) == Sort::Int;
    return map_simplex_var(simplex_, v, integral, simplex_var_, &problem_var_, &free_vars_,
                           [&](int s) {
                               if (integral) integer_vars_.push_back(s);
                           });
}

void ArithTheory::truncate_variables(int n) {
    forget_simplex_vars(n, simplex_var_, &problem_var_, free_vars_, [&](int v) {
        std::erase(integer_vars_, simplex_var_[static_cast<std::size_t>(v)]);
        return problem_.variables.sort(v) == Sort::Int;
    });
    next_branch_ = 0;
    solved_fixed_.clear();
}

ArithTheory::Reading ArithTheory::read(const lra::TermVar& t,
                                       std::span<const LinearExpr::Entry> term, Relation relation,
                                       const QNumber& c, bool integral) const {
    Reading r{relation, c, false, {}};
    if (integral) {
        if (auto rounded = lra::round_integral_bound(term, relation, c)) {
            r.relation = rounded->relation;
            r.constant = rounded->constant;
        }
    }
    bool caller_upper = r.relation == Relation::Le || r.relation == Relation::Lt;
    bool strict = r.relation == Relation::Lt || r.relation == Relation::Gt;
    r.upper = caller_upper != (t.scale.sign() < 0);
    QNumber value = r.constant / t.scale;
    r.value = lra::DeltaRational(value, QNumber(strict ? (r.upper ? -1 : 1) : 0));
    return r;
}

void ArithTheory::add_atom(sat::Var var, std::span<const LinearExpr::Entry> term, Relation relation,
                           const QNumber& c) {
    bool integral = true;
    scratch_.clear();
    for (const auto& e : term) {
        scratch_.push_back({simplex_var(e.var), e.coeff});
        integral = integral && problem_.variables.sort(e.var) == Sort::Int;
    }
    lra::TermVar t = simplex_.term_variable(scratch_);
    atoms_.push_back({var, relation, {term.begin(), term.end()}, c});
    Atom a{t, {}, QNumber(1) / (t.scale.sign() < 0 ? -t.scale : t.scale)};
    a.reading[0] = read(t, term, relation, c, integral);
    a.reading[1] = read(t, term, negation(relation), c, integral);
    if (atom_of_.size() <= var) {
        atom_of_.resize(var + 1, -1);
        value_.resize(var + 1, 0);
        position_.resize(var + 1, 0);
        implied_by_.resize(var + 1);
        row_reason_of_.resize(var + 1, -1);
        implied_now_.resize(var + 1, 0);
    }
    atom_of_[var] = static_cast<int>(atom_data_.size());
    if (atoms_on_.size() <= static_cast<std::size_t>(t.var)) atoms_on_.resize(t.var + 1);
    atoms_on_[t.var].push_back(static_cast<std::uint32_t>(atom_data_.size()));
    atom_data_.push_back(std::move(a));
    index_slack(t.var);
    mixed_ = mixed_ || !integral;
}

// Deciding such atoms first, each on the side the current values satisfy (phase), lets the
// simplex's model lead the search: the Boolean structure over them mostly follows by propagation.
void ArithTheory::prefer_model_phase(sat::Var var) {
    if (is_atom(var)) sat_.decide_first(var);
}

void ArithTheory::retire(sat::Var var) {
    if (is_atom(var)) atom_data_[atom_of_[var]].alive = false;
}

void ArithTheory::truncate(sat::Var first) {
    if (atom_of_.size() <= first) return;
    std::size_t kept = atom_data_.size();
    for (sat::Var v = first; v < atom_of_.size(); ++v)
        if (atom_of_[v] >= 0) kept = std::min(kept, static_cast<std::size_t>(atom_of_[v]));
    for (std::size_t i = kept; i < atom_data_.size(); ++i)
        std::erase_if(atoms_on_[static_cast<std::size_t>(atom_data_[i].term.var)],
                      [&](std::uint32_t index) { return index >= kept; });
    atom_data_.resize(kept);
    if (split_atom_.size() > kept) split_atom_.resize(kept);
    atoms_.resize(kept);
    forget_rooms();
    std::erase_if(transient_, [&](std::uint32_t index) { return index >= kept; });
    std::erase_if(assigned_, [&](sat::Lit l) { return l.var() >= first; });
    propagated_ = std::min(propagated_, assigned_.size());
    atom_of_.resize(first);
    value_.resize(first);
    position_.resize(first);
    implied_by_.resize(first);
    row_reason_of_.resize(first);
    implied_now_.resize(first);
}

void ArithTheory::begin_check(std::uint64_t branch_limit) {
    limit_ = branch_limit;
    used_ = 0;
    gave_up_ = false;
    box_wanted_ = box_on_ = false;
    cuts_used_ = 0;
    cube_at_ = 0;
}

void ArithTheory::new_level() {
    simplex_.push();
    level_start_.push_back(assigned_.size());
    row_reasons_at_level_.push_back(row_reasons_used_);
}

void ArithTheory::backtrack(int level) {
    auto target = static_cast<std::size_t>(level);
    if (level_start_.size() <= target) return;
    simplex_.pop(level_start_.size() - target);
    std::size_t keep = level_start_[target];
    for (std::size_t i = keep; i < assigned_.size(); ++i)
        value_[assigned_[i].var()] = 0;
    assigned_.resize(keep);
    level_start_.resize(target);
    row_reasons_used_ = row_reasons_at_level_[target];
    row_reasons_at_level_.resize(target);
    propagated_ = std::min(propagated_, keep);
    conflict_ = false;
    forget_rooms();
    if (!transient_.empty()) forget_reclaimed_slacks(target == 0);
}

// A level-0 fact on an atom made inside a push level follows from the permanent clauses, so its
// bound may stay in the simplex for good; but its variable goes at the pop and may come back as
// another atom, so the bound must not name it. Conflicts leave such facts out, as analysis
// drops level-0 literals anyway; with a proof recorded the variables stay and the literal is
// named.
lra::Reason ArithTheory::bound_reason(sat::Lit lit) const {
    const std::vector<sat::Lit>& pushed = sat_.activation_literals();
    if (!record_ && level_start_.empty() && !pushed.empty() && lit.var() >= pushed.front().var())
        return kLevelZeroFact;
    return lit.code();
}

void ArithTheory::assign(sat::Lit lit) {
    sat::Var v = lit.var();
    if (!is_atom(v)) return;
    Atom& a = atom_data_[atom_of_[v]];
    if (!a.alive) return;
    if (a.rowless) make_slacks_again(static_cast<std::uint32_t>(atom_of_[v]));
    value_[v] = lit.negative() ? -1 : 1;
    position_[v] = static_cast<std::uint32_t>(assigned_.size());
    assigned_.push_back(lit);
    if (conflict_) return;
    const Reading& r = a.reading[lit.negative() ? 1 : 0];
    if (simplex_.assert_term(a.term, r.relation, r.constant, bound_reason(lit)) ==
        lra::Asserted::Conflict) {
        conflict_ = true;
        pending_.clear();
        conflict_from_simplex(pending_);
    }
}

// Bound b implies reading r when both bound the variable from one side and b is as tight. The
// δ parts count by sign only: a sum of strict bounds is strict, whatever multiple of δ it has.
bool ArithTheory::implies(bool upper, const lra::DeltaRational& b, bool r_upper,
                          const lra::DeltaRational& r) {
    if (upper != r_upper) return false;
    int order = b.real() < r.real()   ? -1
                : r.real() < b.real() ? 1
                                      : b.delta().sign() - r.delta().sign();
    return upper ? order <= 0 : order >= 0;
}

void ArithTheory::propagate(std::vector<sat::Lit>& implied) {
    if (conflict_) return;
    if (sweep_due_) sweep_tableau(implied);
    tableau_budget_ = tableau_budget(kTableauRows, kTableauRowsShare);
    for (; propagated_ < assigned_.size(); ++propagated_) {
        sat::Lit lit = assigned_[propagated_];
        const Atom& a = atom_data_[atom_of_[lit.var()]];
        const Reading& b = a.reading[lit.negative() ? 1 : 0];
        for (std::uint32_t other : atoms_on_[a.term.var]) {
            const Atom& o = atom_data_[other];
            sat::Var ov = atoms_[other].var;
            if (!o.alive || value_[ov] != 0) continue;
            for (int side = 0; side < 2; ++side) {
                if (!implies(b.upper, b.value, o.reading[side].upper, o.reading[side].value))
                    continue;
                if (implied_now_[ov]) break;
                implied_by_[ov] = lit;
                row_reason_of_[ov] = -1;
                implied_now_[ov] = 1;
                implied.push_back(sat::Lit(ov, side == 1));
                break;
            }
        }
        propagate_rows(a.term.var, b.upper, implied);
        propagate_summands(a.term.var, b.upper, implied);
        propagate_tableau(a.term.var, b.upper, implied);
    }
    bound_row_bounded_integers(implied);
    for (sat::Lit l : implied)
        implied_now_[l.var()] = 0;
}

void ArithTheory::explain(sat::Lit lit, std::vector<sat::Lit>& clause) {
    if (std::int32_t r = row_reason_of_[lit.var()]; r >= 0) {
        RowReason& reason = row_reasons_[static_cast<std::size_t>(r)];
        if (reason.pending) explain_summand(reason);
        if (relax_) relax_row_reason(lit, reason);
        clause.assign(1, lit);
        for (sat::Lit l : reason.lits)
            clause.push_back(~l);
        if (record_) {
            std::vector<QNumber> multipliers{atom_data_[atom_of_[lit.var()]].unit};
            multipliers.insert(multipliers.end(), reason.multipliers.begin(),
                               reason.multipliers.end());
            log_lemma(clause, multipliers);
        }
        return;
    }
    sat::Lit by = implied_by_[lit.var()];
    clause.assign({lit, ~by});
    if (record_)
        log_lemma(clause,
                  {atom_data_[atom_of_[lit.var()]].unit, atom_data_[atom_of_[by.var()]].unit});
}

bool ArithTheory::check(bool full, std::vector<sat::Lit>& conflict) {
    if (conflict_) {
        conflict = pending_;
        if (record_) log_lemma(conflict, pending_multipliers_);
        return false;
    }
    lra::Result r = simplex_.check();
    if (r == lra::Result::Unsat) {
        conflict.clear();
        conflict_from_simplex(conflict);
        if (record_) log_lemma(conflict, pending_multipliers_);
        return false;
    }
    if (r == lra::Result::Unknown) {  // stopped: the search stops right after, never with Sat
        gave_up_ = true;
        return true;
    }
    if (tableau_rows_ && simplex_.stats().pivots != pivots_swept_) {
        pivots_swept_ = simplex_.stats().pivots;
        sweep_due_ = true;
    }
    if (!full) return true;
    LatticeStep lattice = lattice_split();
    if (lattice == LatticeStep::Split || lattice == LatticeStep::Model) return true;
    // Cuts, when on, come first: shallow in the search, where they pay. A parameter split is a
    // branch within the fixed equalities, which dives like one where the other rows define
    // the vertex: the tight rows' split goes first. Both are for vertices that can dive: a
    // fractional Int variable bounded on both sides, by its own bounds or through rows
    // (row_bounded.cpp), is branched on instead (a new branch lies between bounds already
    // asserted, so there are finitely many), since each split's new
    // dense row made every pivot dearer (h500204 of the hunt: 144 s with them, 1.4 s without).
    // Inside the box, whose bounds are far out, the splits stay.
    mark_row_bounded();
    bool dives = box_on_ || !has_bounded_fractional();
    if (cut() || cube_model() || (dives && tight_split())) return true;
    if (lattice == LatticeStep::Parameters && dives && parameter_split()) return true;
    if (!branch()) take_model();
    return true;
}

void ArithTheory::conflict_from_simplex(std::vector<sat::Lit>& clause) {
    pending_multipliers_.clear();
    conflict_lits_.clear();
    weights_.clear();
    bool complete = true;  // every bound has a literal, so the excess is known
    for (const lra::Explanation& e : simplex_.conflict()) {
        if (e.reason == kLevelZeroFact) {
            complete = false;
            continue;
        }
        auto lit = sat::Lit::from_code(static_cast<std::uint32_t>(e.reason));
        conflict_lits_.push_back(lit);
        weights_.push_back(e.multiplier / atom_data_[atom_of_[lit.var()]].unit);
        pending_multipliers_.push_back(e.multiplier);
    }
    if (complete && relax_) {
        lra::DeltaRational excess;
        for (std::size_t i = 0; i < conflict_lits_.size(); ++i)
            excess += excess_of(conflict_lits_[i], weights_[i]);
        relax_explanation(conflict_lits_, weights_, std::move(excess),
                          record_ ? &pending_multipliers_ : nullptr);
    }
    for (sat::Lit lit : conflict_lits_)
        clause.push_back(~lit);
}

// An input atom is decided the way the simplex's current assignment has it, so that a decision
// conflicts with the bounds asserted so far only when the simplex would have to move. Not once
// the integer search has split in this check: the vertex is then where the splits pushed it,
// often far along an unbounded direction, and the Boolean choices would follow that walk (four
// checks of the wide incremental scripts that z3 answers at once ran to the time limit).
bool ArithTheory::phase(sat::Var v, bool saved) {
    if (!theory_phase_ || used_ != 0 || !is_atom(v)) return saved;
    const Atom& a = atom_data_[atom_of_[v]];
    if (!a.alive || a.search) return saved;
    const lra::DeltaRational& x = simplex_.delta_value(a.term.var);
    const Reading& r = a.reading[0];
    bool holds = r.upper ? x <= r.value : r.value <= x;
    return !holds;
}

DecideStats ArithTheory::stats() const {
    DecideStats s;
    s.simplex = simplex_.stats();
    s.branch.nodes = branches_;
    s.cuts = cuts_made_;
    s.lattice_splits = lattice_splits_;
    s.relaxed_literals = relaxed_;
    return s;
}

// A new atom x ≤ ⌊v⌋ on an Int variable x whose value v is fractional, the search to try the
// nearer side first; false when every Int variable is integral. The scan starts where the last
// one stopped, so that one unbounded variable does not take every branch. Past the budget the
// search gives up instead.
bool ArithTheory::branch() {
    bool boxed_first = has_bounded_fractional();  // their branches are finitely many
    std::size_t n = integer_vars_.size();
    for (std::size_t k = 0; k < n; ++k) {
        int s = integer_vars_[(next_branch_ + k) % n];
        const lra::DeltaRational& v = simplex_.delta_value(s);
        if (lra::is_integral(v) || (boxed_first && !is_row_bounded(s))) continue;
        if (!take_split()) return false;
        next_branch_ = (next_branch_ + k + 1) % n;
        ++branches_;
        QNumber below = lra::floor_of(v);
        LinearExpr::Entry x{problem_var_[s], QNumber(1)};
        sat::Var var = new_search_atom({&x, 1}, Relation::Le, below);
        QNumber up = v.real() - below;  // in (0, 1]: how far above the floor
        sat_.set_phase(var, up > QNumber(1, 2));
        return true;
    }
    return false;
}

bool ArithTheory::has_bounded_fractional() const {
    return std::any_of(integer_vars_.begin(), integer_vars_.end(), [&](int s) {
        return !lra::is_integral(simplex_.delta_value(s)) && is_row_bounded(s);
    });
}

bool ArithTheory::take_split() {
    if (box_after_ != 0 && !box_on_ && used_ >= box_after_) {
        box_wanted_ = gave_up_ = true;
        return false;
    }
    if (limit_ != 0 && used_ >= limit_) {
        gave_up_ = true;
        return false;
    }
    ++used_;
    return true;
}

// Every satisfying assignment of the check selects a conjunction of its input atoms' literals,
// each one row (a negated atom is its opposite, rounded over the integers), so the box of those
// atoms holds a solution of every such conjunction that has one: Papadimitriou's bound over Int
// variables alone, once an atom names a Real variable the mixed bound (lra/solution_box.h) on the
// Int variables, or Papadimitriou's number where that is larger. The search atoms (splits, cuts,
// earlier boxes) are valid over the integers and count for nothing. Inside the box every Int
// variable is bounded for the rest of the check, and the search ends without the budget (Real
// variables need no branching).
QNumber ArithTheory::make_box(std::vector<sat::Lit>& bounds) {
    lra::SolutionBox box;
    std::set<int> vars;
    for (std::size_t i = 0; i < atoms_.size(); ++i) {
        if (atom_data_[i].search) continue;
        box.add_row(atoms_[i].term, atoms_[i].constant);
        for (const auto& e : atoms_[i].term)
            if (e.var != 0 && problem_.variables.sort(e.var) == Sort::Int) vars.insert(e.var);
    }
    // A checker counts the atoms of the proof alone, which may all be over Int variables: the
    // larger of the two bounds covers it either way.
    QNumber b = box.bound();
    if (mixed_ && b < box.mixed_bound()) b = box.mixed_bound();
    for (int v : vars) {
        LinearExpr::Entry x{v, QNumber(1)};
        bounds.push_back(sat::Lit(new_search_atom({&x, 1}, Relation::Le, b), false));
        bounds.push_back(sat::Lit(new_search_atom({&x, 1}, Relation::Ge, -b), false));
    }
    box_wanted_ = gave_up_ = false;
    box_on_ = true;
    return b;
}

sat::Var ArithTheory::new_search_atom(std::span<const LinearExpr::Entry> term, Relation relation,
                                      const QNumber& c) {
    sat::Var var = sat_.new_var();
    add_atom(var, term, relation, c);
    auto index = static_cast<std::uint32_t>(atom_of_[var]);
    atom_data_[index].search = true;
    if (!level_start_.empty() && atoms_[index].term.size() > 1) transient_.push_back(index);
    return var;
}

// The unit cube test (unit_cube.h) at a fractional vertex: when it finds an integral point, that
// is the model. Tried at the first fractional vertex of a check and then whenever the branches
// have doubled, since a failed test costs two simplex checks.
bool ArithTheory::cube_model() {
    if (used_ < cube_at_ || std::all_of(integer_vars_.begin(), integer_vars_.end(), [&](int s) {
            return lra::is_integral(simplex_.delta_value(s));
        }))
        return false;
    cube_at_ = 2 * used_ + 1;
    std::vector<char> is_integer(static_cast<std::size_t>(simplex_.num_variables()) + 1, 0);
    for (int s : integer_vars_)
        is_integer[static_cast<std::size_t>(s)] = 1;
    if (!lra::unit_cube_point(simplex_, is_integer, true)) return false;
    ++cube_models_;
    take_model();
    return true;
}

void ArithTheory::take_model() {
    model_.assign(static_cast<std::size_t>(problem_.variables.size()) + 1, QNumber());
    for (std::size_t v = 1; v < simplex_var_.size() && v < model_.size(); ++v)
        if (simplex_var_[v] != 0) model_[v] = simplex_.value(simplex_var_[v]);
}

}  // namespace vorn::smt
