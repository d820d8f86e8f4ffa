// Decisions from the structure of the asserted formulas; see justification.h.

#include "justification.h"

#include <algorithm>

namespace vorn::smt {

void Justification::prepare(std::size_t atoms, std::size_t clauses,
                            std::span<const Literal> assumptions) {
    auto props = static_cast<std::uint32_t>(prop_var_.size());
    forget(props);
    for (auto p = static_cast<std::uint32_t>(gate_.size()); p < props; ++p) {
        std::span<const Literal> ops;
        Gate g = structure_.proposition(p).kind == Proposition::Kind::Definition
                     ? structure_.gate(p, ops)
                     : Gate::None;
        gate_.push_back(g == Gate::True ? Gate::None : g);
        first_.push_back(static_cast<std::uint32_t>(operands_.size()));
        operands_.insert(operands_.end(), ops.begin(), ops.end());
    }
    std::vector<std::uint32_t> definition_of;  // by problem variable: definition prop + 1
    definition_.assign(props, 0);
    for (const auto& d : structure_.variable_definitions()) {
        auto var = static_cast<std::size_t>(d.var);
        if (definition_of.size() <= var) definition_of.resize(var + 1, 0);
        definition_of[var] = d.definition.prop() + 1;
        definition_[d.definition.prop()] = 1;
    }
    for (auto p = static_cast<std::uint32_t>(needs_first_.size()); p < props; ++p) {
        needs_first_.push_back(static_cast<std::uint32_t>(needs_.size()));
        const Proposition& prop = structure_.proposition(p);
        if (prop.kind != Proposition::Kind::Atom) continue;
        for (const auto& e : problem_.term(prop.term))
            if (static_cast<std::size_t>(e.var) < definition_of.size() &&
                definition_of[static_cast<std::size_t>(e.var)] != 0)
                needs_.push_back(definition_of[static_cast<std::size_t>(e.var)] - 1);
    }
    units_.clear();
    clauses_.clear();
    for (Literal a : assumptions)
        units_.push_back(a.prop());
    for (Literal d : structure_.required())
        units_.push_back(d.prop());
    // The asserted atoms are no propositions: the definitions their terms need are roots.
    for (std::size_t i = 0; i < atoms; ++i) {
        const Atom& a = problem_.atoms[i];
        for (std::uint32_t t = a.first_term; t < a.first_term + a.terms; ++t)
            for (const auto& e : problem_.term(t))
                if (static_cast<std::size_t>(e.var) < definition_of.size() &&
                    definition_of[static_cast<std::size_t>(e.var)] != 0)
                    units_.push_back(definition_of[static_cast<std::size_t>(e.var)] - 1);
    }
    for (std::size_t i = 0; i < clauses; ++i) {
        std::span<const Literal> c = structure_.clause(i);
        if (c.size() == 1) {
            if (!definition_[c[0].prop()]) units_.push_back(c[0].prop());
        } else if (!defines_gate(c))
            clauses_.push_back(i);
    }
    justified_.assign(props, 0);
    visited_.assign(props, 0);
    on_path_.assign(props, 0);
    memo_.clear();
}

void Justification::forget(std::uint32_t props) {
    if (gate_.size() > props) {
        operands_.resize(first_[props]);
        gate_.resize(props);
        first_.resize(props);
    }
    if (needs_first_.size() > props) {
        needs_.resize(needs_first_[props]);
        needs_first_.resize(props);
    }
}

// A gate's own clause: the gate's literal and some of its operands'.
bool Justification::defines_gate(std::span<const Literal> clause) const {
    return std::any_of(clause.begin(), clause.end(), [&](Literal d) {
        std::span<const Literal> ops = operands(d.prop());
        return gate_[d.prop()] != Gate::None &&
               std::all_of(clause.begin(), clause.end(), [&](Literal l) {
                   return l.prop() == d.prop() ||
                          std::any_of(ops.begin(), ops.end(),
                                      [&](Literal o) { return o.prop() == l.prop(); });
               });
    });
}

void Justification::justified(std::uint32_t prop) {
    justified_[prop] = 1;
    memo_.push_back({prop, level_});
}

bool Justification::next(const sat::Solver& solver, sat::Var& var) {
    solver_ = &solver;
    level_ = solver.decision_level();
    while (!memo_.empty() && memo_.back().level > level_) {
        justified_[memo_.back().prop] = 0;
        memo_.pop_back();
    }
    if (++stamp_ == 0) {
        std::fill(visited_.begin(), visited_.end(), 0);
        stamp_ = 1;
    }
    candidates_.clear();
    bool open = false;
    for (std::size_t i = 0; i < units_.size() && candidates_.empty(); ++i)
        open = visit(units_[i]) != kJustified || open;
    for (std::size_t i = 0; i < clauses_.size() && candidates_.empty(); ++i)
        open = visit_clause(clauses_[i]) != kJustified || open;
    if (!candidates_.empty()) {
        var = candidates_[0];
        for (sat::Var v : candidates_)
            if (solver.ahead(v, var)) var = v;
        return true;
    }
    // A formula left open without a variable to decide (its gates wait for propagation) may
    // not end the search: then every variable counts.
    for (sat::Var v = 0; v < solver.num_vars(); ++v)
        if ((open || v >= prop_of_.size() || prop_of_[v] == 0) &&
            solver.current(sat::pos(v)) == sat::LBool::Undef) {
            var = v;
            return true;
        }
    return false;
}

std::int64_t Justification::visit_clause(std::size_t index) {
    std::int64_t pending = kJustified;
    std::span<const Literal> c = structure_.clause(index);
    for (Literal l : c)
        if (value(l) == sat::LBool::True) {
            std::int64_t v = visit(l.prop());
            if (v == kJustified) return kJustified;
            if (pending == kJustified) pending = v;
        }
    if (pending != kJustified) return pending;
    for (Literal l : c)
        if (value(l) == sat::LBool::Undef) visit(l.prop());
    return kOpen;
}

std::int64_t Justification::visit(std::uint32_t prop) {
    if (justified_[prop]) return kJustified;
    // On the path: a definition that its own branches' atoms lead back to.
    if (on_path_[prop]) return kJustified;
    if (visited_[prop] == stamp_) return kOpen;
    visited_[prop] = stamp_;
    on_path_[prop] = 1;
    std::int64_t v = visit_gate(prop);
    on_path_[prop] = 0;
    return v;
}

std::int64_t Justification::visit_gate(std::uint32_t prop) {
    Gate g = gate_[prop];
    std::span<const Literal> ops = operands(prop);
    if (g == Gate::None) {
        std::int64_t all = kJustified;
        if (value(Literal(prop, false)) == sat::LBool::Undef) {
            candidates_.push_back(prop_var_[prop]);
            all = kOpen;
        }
        for (std::uint32_t d : needs(prop))
            if (visit(d) != kJustified) all = kOpen;
        if (all == kJustified) justified(prop);
        return all;
    }
    if (g == Gate::And) {
        std::int64_t pending = kJustified;
        for (Literal o : ops)  // one justified false operand decides it
            if (value(o) == sat::LBool::False) {
                std::int64_t v = visit(o.prop());
                if (v == kJustified) {
                    justified(prop);
                    return kJustified;
                }
                if (pending == kJustified) pending = v;
            }
        if (pending != kJustified) return pending;
        std::int64_t all = kJustified;
        for (Literal o : ops)
            if (visit(o.prop()) != kJustified) all = kOpen;
        if (all == kJustified) justified(prop);
        return all;
    }
    if (g == Gate::Xor) {
        std::int64_t all = kJustified;
        for (Literal o : ops)
            if (visit(o.prop()) != kJustified) all = kOpen;
        if (all == kJustified) justified(prop);
        return all;
    }
    // Ite: the condition, then the branch it selects.
    if (visit(ops[0].prop()) != kJustified) return kOpen;
    if (visit(ops[value(ops[0]) == sat::LBool::True ? 1 : 2].prop()) != kJustified) return kOpen;
    justified(prop);
    return kJustified;
}

}  // namespace vorn::smt
