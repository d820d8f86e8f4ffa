#include "boolean_decider.h"

#include <algorithm>

#include "arith_theory.h"
#include "difference_theory.h"

namespace vorn::smt {

namespace {

sat::Options sat_options(const DecideOptions& options) {
    sat::Options o;
    o.record_proof = options.certify;
    o.model_phase = options.model_phase;
    o.stop = options.stop;
    o.conflict_limit =
        options.conflict_limit == 0 ? -1 : static_cast<std::int64_t>(options.conflict_limit);
    return o;
}

std::int64_t dimacs(sat::Lit lit) {
    auto v = static_cast<std::int64_t>(lit.var()) + 1;
    return lit.negative() ? -v : v;
}

}  // namespace

BooleanDecider::BooleanDecider(const Problem& problem, const DecideOptions& options,
                               bool difference)
    : problem_(problem), options_(options), sat_(sat_options(options)) {
    if (difference)
        theory_ = std::make_unique<DifferenceTheory>(problem, options.certify);
    else
        theory_ = std::make_unique<ArithTheory>(problem, sat_, options.certify, options.stop);
    theory_->set_cuts(options.cuts);
    theory_->set_relax_explanations(options.relax_explanations);
    theory_->set_theory_phase(options.theory_phase);
    theory_->set_tableau_propagation(options.tableau_propagation);
    theory_->set_box_after(options.box_after);
    sat_.set_theory(theory_.get());
}

void BooleanDecider::set_options(const DecideOptions& options) {
    options_ = options;
    sat::Options o = sat_options(options);
    sat_.set_conflict_limit(o.conflict_limit);
    sat_.set_stop(o.stop);
    sat_.set_model_phase(o.model_phase);
    theory_->set_stop(options.stop);
    theory_->set_cuts(options.cuts);
    theory_->set_relax_explanations(options.relax_explanations);
    theory_->set_theory_phase(options.theory_phase);
    theory_->set_tableau_propagation(options.tableau_propagation);
    theory_->set_box_after(options.box_after);
}

sat::Lit BooleanDecider::constant_literal(bool value) {
    sat::Var v = sat_.new_var();
    sat::Lit lit(v, false);
    define(lit, ClauseProof::Definition::Kind::True, {});
    sat_.add_clause({lit});
    return value ? lit : ~lit;
}

void BooleanDecider::define(sat::Lit lit, ClauseProof::Definition::Kind kind,
                            std::initializer_list<sat::Lit> operands, int index) {
    if (!options_.certify) return;
    ClauseProof::Definition d{dimacs(lit), kind, {}, index};
    for (sat::Lit o : operands)
        d.operands.push_back(dimacs(o));
    made_.push_back(std::move(d));
}

sat::Lit BooleanDecider::atom_literal(std::span<const LinearExpr::Entry> term, Relation relation,
                                      bool extra) {
    QNumber c;
    scratch_.clear();
    for (const auto& e : term) {
        if (e.var == 0)
            c = -e.coeff;
        else
            scratch_.push_back(e);
    }
    if (scratch_.empty()) return constant_literal(relation_holds(relation, -c.sign()));
    sat::Var v = sat_.new_var();
    theory_->add_atom(v, scratch_, relation, c);
    if (extra) extra_.push_back(v);
    return sat::Lit(v, false);
}

// t ⋈ 0 as units over bound atoms; a disequality t ≠ 0 as the clause t < 0 ∨ t > 0. Bounds on
// one Int variable and distincts of offset terms are kept for add_hall_lemmas.
void BooleanDecider::enter_asserted(const Atom& atom) {
    auto unit = [&](sat::Lit lit, Relation states) {
        sat_.add_clause({lit});
        if (auto b = integer_bound(problem_, atom.first_term, states))
            asserted_bounds_.push_back({atoms_, *b, lit});
    };
    auto split = [&](std::span<const LinearExpr::Entry> term) {
        sat::Lit le = atom_literal(term, Relation::Le, true);
        sat::Lit ge = atom_literal(term, Relation::Ge, true);
        sat_.add_clause({~le, ~ge});
        return std::pair{le, ge};
    };
    std::span<const LinearExpr::Entry> term = problem_.term(atom.first_term);
    switch (atom.relation) {
        case Relation::Le:
        case Relation::Ge:
            return unit(atom_literal(term, atom.relation, true), atom.relation);
        case Relation::Lt:
            return unit(~atom_literal(term, Relation::Ge, true), Relation::Lt);
        case Relation::Gt:
            return unit(~atom_literal(term, Relation::Le, true), Relation::Gt);
        case Relation::Eq:
            unit(atom_literal(term, Relation::Le, true), Relation::Le);
            return unit(atom_literal(term, Relation::Ge, true), Relation::Ge);
        case Relation::Ne:
            split(term);
            return;
        case Relation::Distinct: {
            auto terms = offset_terms(problem_, atom);
            AssertedDistinct d{atoms_, terms ? std::move(*terms) : std::vector<OffsetTerm>{}, {}};
            for (std::uint32_t a = 0; a < atom.terms; ++a)
                for (std::uint32_t b = a + 1; b < atom.terms; ++b) {
                    LinearExpr::Entries diff;
                    QNumber c = problem_.disequality(atom, a, b, diff);
                    diff.insert(diff.begin(), {0, -c});
                    d.pairs.push_back(split(diff));
                }
            if (!d.terms.empty()) asserted_distincts_.push_back(std::move(d));
            return;
        }
    }
}

void BooleanDecider::enter(std::size_t atoms, std::uint32_t props, std::size_t clauses) {
    const BooleanStructure& b = problem_.boolean;
    for (auto p = static_cast<std::uint32_t>(prop_var_.size()); p < props; ++p) {
        const Proposition& prop = b.proposition(p);
        sat::Lit lit = prop.kind == Proposition::Kind::Atom
                           ? atom_literal(problem_.term(prop.term), prop.relation, false)
                           : sat::Lit(sat_.new_var(), false);
        // A constant atom is a constant literal; the proposition is then a definition of it.
        if (prop.kind == Proposition::Kind::Atom && !theory_->is_atom(lit.var())) {
            sat::Var v = sat_.new_var();
            define(sat::Lit(v, false), ClauseProof::Definition::Kind::And, {lit});
            sat_.add_clause({sat::Lit(v, true), lit});
            sat_.add_clause({sat::Lit(v, false), ~lit});
            lit = sat::Lit(v, false);
        }
        if (prop.kind == Proposition::Kind::Atom && prop.phase_from_model)
            theory_->prefer_model_phase(lit.var());
        prop_var_.push_back(lit.var());
        if (prop_of_.size() <= lit.var()) prop_of_.resize(lit.var() + 1, 0);
        prop_of_[lit.var()] = p + 1;
    }
    for (; clauses_ < clauses; ++clauses_) {
        clause_.clear();
        for (Literal l : b.clause(clauses_))
            clause_.push_back(sat_literal(l));
        sat_.add_clause(clause_);
    }
    for (; atoms_ < atoms; ++atoms_)
        enter_asserted(problem_.atoms[atoms_]);
}

void BooleanDecider::push() {
    enter();
    open_level();
}

void BooleanDecider::open_level() {
    levels_.push_back(
        {atoms_, clauses_, static_cast<std::uint32_t>(prop_var_.size()), extra_.size()});
    sat_.push();
    define(sat_.activation_literals().back(), ClauseProof::Definition::Kind::Select, {},
           static_cast<int>(levels_.size()));
}

void BooleanDecider::push(std::size_t atoms, std::uint32_t props, std::size_t clauses) {
    enter(atoms, props, clauses);
    open_level();
}

void BooleanDecider::pop(std::size_t n) {
    if (n == 0) return;
    Level level = levels_[levels_.size() - n];
    levels_.resize(levels_.size() - n);
    for (std::size_t i = 0; i < n; ++i)
        sat_.pop();
    for (std::size_t p = level.props; p < prop_var_.size(); ++p) {
        theory_->retire(prop_var_[p]);
        prop_of_[prop_var_[p]] = 0;
    }
    prop_var_.resize(level.props);
    guide_.forget(level.props);
    for (std::size_t i = level.extra; i < extra_.size(); ++i)
        theory_->retire(extra_[i]);
    extra_.resize(level.extra);
    theory_->truncate(static_cast<sat::Var>(sat_.num_vars()));
    prop_of_.resize(std::min(prop_of_.size(), sat_.num_vars()));
    atoms_ = level.atoms;
    clauses_ = level.clauses;
    std::erase_if(asserted_bounds_, [&](const AssertedBound& b) { return b.atom >= atoms_; });
    std::erase_if(asserted_distincts_, [&](const AssertedDistinct& d) { return d.atom >= atoms_; });
    hall_checked_ = {static_cast<std::size_t>(-1), 0};  // the same counts may hold others
}

// For each distinct with an overfull interval under the asserted bounds, the lemma
// ¬(bounds of its members) ∨ ⋁ (two members equal), so that the search needs no pigeonhole
// refutation of the pairwise disequalities: a conflict as soon as the bounds hold.
void BooleanDecider::add_hall_lemmas() {
    const auto& structure = problem_.boolean.distincts();
    std::pair<std::size_t, std::size_t> entered{atoms_, prop_var_.size()};
    if (hall_checked_ == entered || (asserted_distincts_.empty() && structure.empty())) return;
    hall_checked_ = entered;
    for (const AssertedDistinct& d : asserted_distincts_)
        add_hall_lemma(d.terms, [&](std::size_t k) { return equality_literal(d.pairs[k]); });
    for (const BooleanStructure::DistinctPairs& d : structure) {
        if (std::any_of(d.equal.begin(), d.equal.end(),
                        [&](Literal l) { return l.prop() >= prop_var_.size(); }))
            continue;
        if (auto terms = offset_terms(problem_, {Relation::Distinct, d.first_term, d.terms, {}}))
            add_hall_lemma(*terms, [&](std::size_t k) { return sat_literal(d.equal[k]); });
    }
}

template <class Equal>
void BooleanDecider::add_hall_lemma(std::span<const OffsetTerm> terms, Equal equal) {
    std::vector<TermRange> ranges(terms.size());
    std::vector<std::pair<const AssertedBound*, const AssertedBound*>> used(terms.size());
    for (const AssertedBound& b : asserted_bounds_)
        for (std::size_t i = 0; i < terms.size(); ++i) {
            if (terms[i].var != b.bound.var) continue;
            QNumber v = b.bound.value + terms[i].offset;
            std::optional<QNumber>& end = b.bound.upper ? ranges[i].high : ranges[i].low;
            if (end && (b.bound.upper ? v >= *end : v <= *end)) continue;
            end = v;
            (b.bound.upper ? used[i].second : used[i].first) = &b;
        }
    std::optional<HallInterval> hall = overfull_interval(ranges);
    if (!hall) return;
    std::vector<sat::Lit> clause;
    ClauseProof::Hall why{hall->low, hall->high, {}};
    for (std::size_t m : hall->members) {
        clause.push_back(~used[m].first->lit);
        clause.push_back(~used[m].second->lit);
        why.terms.push_back({terms[m].var, terms[m].offset});
    }
    std::size_t n = terms.size();
    for (std::size_t i = 0; i < hall->members.size(); ++i)
        for (std::size_t j = i + 1; j < hall->members.size(); ++j) {
            std::size_t a = std::min(hall->members[i], hall->members[j]);
            std::size_t b = std::max(hall->members[i], hall->members[j]);
            // Pairs (a, b) come row by row: the rows before a hold a·n − a(a+1)/2 of them.
            clause.push_back(equal(a * n - a * (a + 1) / 2 + (b - a - 1)));
        }
    if (options_.certify) hall_steps_.emplace_back(sat_.proof().size(), std::move(why));
    sat_.add_valid(clause);
}

sat::Lit BooleanDecider::equality_literal(std::pair<sat::Lit, sat::Lit> halves) {
    sat::Lit e(sat_.new_var(), false);
    define(e, ClauseProof::Definition::Kind::And, {halves.first, halves.second});
    sat_.add_clause({~e, halves.first});
    sat_.add_clause({~e, halves.second});
    // The distinct's clause ¬(t ≤ u) ∨ ¬(t ≥ u) refutes e at once: a unit, so that the lemma
    // propagates without a search deciding each e first.
    sat::Lit not_e[] = {~e};
    sat_.add_implied(not_e);
    return e;
}

Decision BooleanDecider::check(std::span<const Literal> assumptions) {
    enter();
    add_hall_lemmas();
    // Where term ites are lifted, most of the structure is their definitions, which matter only
    // where an atom over their variable does: decisions follow the asserted formulas' needs.
    // Elsewhere (disjunctive scheduling, 3-CNF) activity alone decides: that order was measured
    // to be many times faster there. So it does where the only lifted ites are an objective's
    // (weighted choices, soft assertions): the structural order took a weighted selection of 40
    // jobs from 0.3 s to 3 s, a MaxSAT of 150 soft clauses from 1 s to 10 s. And where every
    // ite is named by an asserted equality (a transition system's next states): bmc_11185 took
    // 22 904 conflicts under the structural order and 856 under activity.
    const auto& defined = problem_.boolean.variable_definitions();
    const auto& required = problem_.boolean.required();
    bool guided = std::any_of(defined.begin(), defined.end(), [&](const auto& d) {
        return std::find(required.begin(), required.end(), d.definition) == required.end();
    });
    sat_.set_guide(guided ? &guide_ : nullptr);
    if (guided) guide_.prepare(atoms_, clauses_, assumptions);
    DecideStats before = stats();
    std::vector<sat::Lit> lits;
    for (Literal l : assumptions)
        lits.push_back(sat_literal(l));
    theory_->begin_check(options_.bb_limit);
    sat::Result r = sat_.solve(lits);
    std::size_t box_guard = lits.size();
    if (r == sat::Result::Sat && theory_->wants_box()) r = solve_in_box(lits);
    Decision d;
    d.boolean_search = true;
    failed_.clear();
    if (r == sat::Result::Sat && theory_->gave_up()) r = sat::Result::Unknown;
    switch (r) {
        case sat::Result::Sat: {
            d.result = lra::Result::Sat;
            d.model = theory_->model();
            d.model.resize(static_cast<std::size_t>(problem_.variables.size()) + 1);
            const BooleanStructure& b = problem_.boolean;
            for (std::uint32_t p = 0; p < prop_var_.size(); ++p) {
                const Proposition& prop = b.proposition(p);
                if (prop.kind != Proposition::Kind::Variable) continue;
                d.model[static_cast<std::size_t>(prop.variable)] =
                    QNumber(sat_.value(sat::Lit(prop_var_[p], false)) ? 1 : 0);
            }
            break;
        }
        case sat::Result::Unsat:
            d.result = lra::Result::Unsat;
            for (sat::Lit f : sat_.failed_assumptions()) {
                std::uint32_t p = f.var() < prop_of_.size() ? prop_of_[f.var()] : 0;
                if (p != 0) failed_.push_back(Literal(p - 1, f.negative()));
            }
            if (options_.certify) {
                d.clause_proof = proof();
                for (sat::Lit a : sat_.activation_literals())
                    d.clause_proof.assumptions.push_back(dimacs(a));
                for (sat::Lit l : lits)
                    d.clause_proof.assumptions.push_back(dimacs(l));
            }
            break;
        case sat::Result::Unknown:
            d.result = lra::Result::Unknown;
            if (options_.stop != nullptr && options_.stop->reason() != util::StopReason::None)
                d.reason_unknown = util::to_string(options_.stop->reason());
            else
                d.reason_unknown = theory_->gave_up() ? "integer branch limit" : "conflict limit";
            break;
    }
    if (lits.size() > box_guard) {
        // The box belongs to this check's atoms: later checks may need a larger one.
        sat_.add_clause({~lits[box_guard]});
        for (sat::Lit b : box_bounds_)
            theory_->retire(b.var());
    }
    d.stats = stats() - before;
    return d;
}

// The bounds are clauses ¬g ∨ (x ≤ B) and ¬g ∨ (x ≥ −B) under a new assumption g, so that a
// refutation that needs them ends in ¬g and names the box (ClauseProof::Box); the first part of
// the check's learned clauses hold without it.
sat::Result BooleanDecider::solve_in_box(std::vector<sat::Lit>& assumptions) {
    box_bounds_.clear();
    QNumber bound = theory_->make_box(box_bounds_);
    sat::Lit guard(sat_.new_var(), false);
    for (sat::Lit b : box_bounds_)
        sat_.add_clause({~guard, b});
    if (options_.certify) boxes_.push_back({dimacs(guard), bound});
    assumptions.push_back(guard);
    return sat_.solve(assumptions);
}

DecideStats BooleanDecider::stats() const {
    DecideStats s = theory_->stats();
    s.sat = sat_.stats();
    return s;
}

ClauseProof BooleanDecider::proof() const {
    ClauseProof p;
    for (const TheoryAtom& a : theory_->atoms())
        p.atoms.push_back({static_cast<std::int64_t>(a.var) + 1, a.relation, a.term, a.constant});
    p.definitions = made_;
    p.boxes = boxes_;
    const BooleanStructure& b = problem_.boolean;
    for (std::uint32_t prop = 0; prop < prop_var_.size(); ++prop) {
        using DK = ClauseProof::Definition::Kind;
        sat::Lit lit(prop_var_[prop], false);
        if (b.proposition(prop).kind == Proposition::Kind::Variable) {
            p.definitions.push_back({dimacs(lit), DK::Bool, {}, b.proposition(prop).variable});
            continue;
        }
        std::span<const Literal> operands;
        Gate gate = b.proposition(prop).kind == Proposition::Kind::Definition
                        ? b.gate(prop, operands)
                        : Gate::None;
        if (gate == Gate::None) continue;  // an atom, or free
        DK kind = gate == Gate::True  ? DK::True
                  : gate == Gate::And ? DK::And
                  : gate == Gate::Xor ? DK::Xor
                                      : DK::Ite;
        ClauseProof::Definition d{dimacs(lit), kind, {}, 0};
        for (Literal o : operands)
            d.operands.push_back(dimacs(sat_literal(o)));
        p.definitions.push_back(std::move(d));
    }
    std::size_t lemma = 0;
    auto hall = hall_steps_.begin();
    for (std::size_t i = 0; i < sat_.proof().size(); ++i) {
        const sat::ProofStep& step = sat_.proof()[i];
        ClauseProof::Step s;
        for (sat::Lit l : step.clause)
            s.clause.push_back(dimacs(l));
        switch (step.kind) {
            case sat::ProofStep::Kind::Input:
                s.kind = ClauseProof::Kind::Input;
                break;
            case sat::ProofStep::Kind::Learned:
                s.kind = ClauseProof::Kind::Learned;
                break;
            case sat::ProofStep::Kind::Lemma: {
                s.kind = ClauseProof::Kind::Lemma;
                if (hall != hall_steps_.end() && hall->first == i) {
                    s.hall = (hall++)->second;
                    break;
                }
                const TheoryLemma& l = theory_->lemmas()[lemma++];
                // The solver reorders a lemma's literals; the multipliers follow them.
                for (sat::Lit lit : step.clause) {
                    QNumber m;
                    for (std::size_t i = 0; i < l.clause.size(); ++i)
                        if (l.clause[i] == lit) m = l.multipliers[i];
                    s.farkas.push_back(m);
                }
                break;
            }
        }
        p.steps.push_back(std::move(s));
    }
    return p;
}

}  // namespace vorn::smt
