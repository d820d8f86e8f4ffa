// Certificates of unsat answers on problems with Boolean structure (clause proofs): the printer
// and the tool's own check. The check shares nothing with the SAT engine or the simplex: its
// unit propagation and its Farkas sums are written here again, so a fault there cannot hide
// itself.

#include <algorithm>
#include <cstdint>
#include <limits>
#include <ostream>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "vorn/lra/integer_bounds.h"
#include "vorn/lra/solution_box.h"
#include "vorn/smt/certificate.h"
#include "vorn/smt/problem_text.h"

#include "certificate_lines.h"
#include "hall_lemma_check.h"

namespace vorn::smt {

namespace {

using Entry = LinearExpr::Entry;
using Kind = ClauseProof::Kind;

const char* kind_word(Kind kind) {
    switch (kind) {
        case Kind::Input:
            return "input";
        case Kind::Lemma:
            return "lemma";
        case Kind::Learned:
            return "learned";
    }
    return "?";
}

void write_literals(std::ostream& out, const std::vector<std::int64_t>& lits) {
    for (std::int64_t l : lits)
        out << ' ' << l;
}

// Clauses under permanent unit propagation (two watched literals), with reverse unit
// propagation as the test of a clause. Literals are codes 2·var + negative over dense variables.
// The base assignment only grows (clauses are never removed), so a clause added to the base
// drops its false literals and a satisfied clause is dropped whole.
class UnitPropagator {
  public:
    void add_variable() {
        for (int i = 0; i < 2; ++i) {
            value_.push_back(0);
            watches_.emplace_back();
        }
    }
    bool inconsistent() const { return inconsistent_; }

    void add_clause(std::span<const std::uint32_t> lits) {
        if (inconsistent_) return;
        scratch_.clear();
        for (std::uint32_t l : lits) {
            if (value_[l] > 0) return;
            if (value_[l] == 0 && std::find(scratch_.begin(), scratch_.end(), l) == scratch_.end())
                scratch_.push_back(l);
        }
        for (std::uint32_t l : scratch_)
            if (std::find(scratch_.begin(), scratch_.end(), l ^ 1) != scratch_.end()) return;
        if (scratch_.empty()) {
            inconsistent_ = true;
        } else if (scratch_.size() == 1) {
            assign(scratch_[0]);
            inconsistent_ = !propagate();
        } else {
            auto c = static_cast<std::uint32_t>(clauses_.size());
            clauses_.push_back({static_cast<std::uint32_t>(lits_.size()),
                                static_cast<std::uint32_t>(scratch_.size())});
            lits_.insert(lits_.end(), scratch_.begin(), scratch_.end());
            watches_[scratch_[0]].push_back({c, scratch_[1]});
            watches_[scratch_[1]].push_back({c, scratch_[0]});
        }
    }

    // Whether assuming every literal of the clause false leads unit propagation to a conflict.
    bool implied(std::span<const std::uint32_t> lits) {
        if (inconsistent_) return true;
        std::size_t base = trail_.size();
        bool conflict = false;
        for (std::uint32_t l : lits) {
            if (value_[l] > 0) {
                conflict = true;
                break;
            }
            if (value_[l] == 0) assign(l ^ 1);
        }
        if (!conflict) conflict = !propagate();
        for (std::size_t i = base; i < trail_.size(); ++i)
            value_[trail_[i]] = value_[trail_[i] ^ 1] = 0;
        trail_.resize(base);
        head_ = base;
        return conflict;
    }

  private:
    struct Clause {
        std::uint32_t begin, size;
    };
    struct Watch {
        std::uint32_t clause, blocker;
    };

    void assign(std::uint32_t lit) {
        value_[lit] = 1;
        value_[lit ^ 1] = -1;
        trail_.push_back(lit);
    }

    // False on a conflict.
    bool propagate() {
        while (head_ < trail_.size()) {
            std::uint32_t false_lit = trail_[head_++] ^ 1;
            std::vector<Watch>& ws = watches_[false_lit];
            std::size_t i = 0, j = 0;
            bool conflict = false;
            while (i < ws.size()) {
                Watch w = ws[i++];
                if (value_[w.blocker] > 0) {
                    ws[j++] = w;
                    continue;
                }
                std::uint32_t* c = lits_.data() + clauses_[w.clause].begin;
                std::uint32_t size = clauses_[w.clause].size;
                if (c[0] == false_lit) std::swap(c[0], c[1]);
                Watch kept{w.clause, c[0]};
                if (value_[c[0]] > 0) {
                    ws[j++] = kept;
                    continue;
                }
                bool moved = false;
                for (std::uint32_t k = 2; k < size && !moved; ++k)
                    if (value_[c[k]] >= 0) {
                        std::swap(c[1], c[k]);
                        watches_[c[1]].push_back(kept);
                        moved = true;
                    }
                if (moved) continue;
                ws[j++] = kept;
                if (value_[c[0]] < 0) {
                    conflict = true;
                    while (i < ws.size())
                        ws[j++] = ws[i++];
                } else {
                    assign(c[0]);
                }
            }
            ws.resize(j);
            if (conflict) return false;
        }
        return true;
    }

    std::vector<std::int8_t> value_;  // by literal: 1 true, −1 false, 0 unassigned
    std::vector<std::vector<Watch>> watches_;
    std::vector<Clause> clauses_;
    std::vector<std::uint32_t> lits_;
    std::vector<std::uint32_t> trail_;
    std::size_t head_ = 0;
    bool inconsistent_ = false;
    std::vector<std::uint32_t> scratch_;
};

class ClauseChecker {
  public:
    ClauseChecker(const Problem& p, const ClauseProof& proof) : p_(p), proof_(proof) {}
    std::string run();

  private:
    std::string check_atoms();
    std::string lemma(const ClauseProof::Step& step);
    std::string check_boxes();
    bool final_clause(const ClauseProof::Step& step) const;
    // The literal's code; false for literal 0 (no variable).
    bool code(std::int64_t lit, std::uint32_t& out);

    const Problem& p_;
    const ClauseProof& proof_;
    std::unordered_map<std::int64_t, std::size_t> atom_of_;  // by DIMACS variable
    std::unordered_map<std::int64_t, std::uint32_t> dense_;  // DIMACS variable → dense
    UnitPropagator units_;
    std::vector<std::uint32_t> clause_;
    std::vector<QNumber> sum_;  // by problem variable: a Farkas combination's coefficients
    std::vector<int> touched_;
};

bool ClauseChecker::code(std::int64_t lit, std::uint32_t& out) {
    if (lit == 0 || lit == std::numeric_limits<std::int64_t>::min()) return false;
    auto [at, made] = dense_.try_emplace(lit < 0 ? -lit : lit, 0);
    if (made) {
        at->second = static_cast<std::uint32_t>(dense_.size() - 1);
        units_.add_variable();
    }
    out = 2 * at->second + (lit < 0 ? 1 : 0);
    return true;
}

std::string ClauseChecker::check_atoms() {
    for (std::size_t i = 0; i < proof_.atoms.size(); ++i) {
        const ClauseProof::AtomDefinition& a = proof_.atoms[i];
        std::string which = "atom " + std::to_string(a.var);
        if (a.var <= 0) return which + ": not a variable";
        if (!atom_of_.emplace(a.var, i).second) return which + ": defined twice";
        if (a.relation != Relation::Le && a.relation != Relation::Ge)
            return which + ": neither <= nor >=";
        if (a.term.empty()) return which + ": has no variable";
        std::set<int> seen;
        for (const Entry& e : a.term) {
            if (e.var < 1 || e.var > p_.variables.size() || p_.variables.sort(e.var) == Sort::Bool)
                return which + ": over " + std::to_string(e.var) +
                       ", no Int or Real variable of the problem";
            // Rounding reads the term's coefficients as stated: one per variable, none zero.
            if (!seen.insert(e.var).second) return which + ": repeats a variable";
            if (e.coeff.is_zero()) return which + ": has a zero coefficient";
        }
    }
    sum_.assign(static_cast<std::size_t>(p_.variables.size()) + 1, QNumber());
    return {};
}

// The bounds that the negations of the clause's literals state, combined with the multipliers:
// upper bounds t ≤ c add m·(c − t) ≥ 0, lower bounds t ≥ c add m·(t − c) ≥ 0.
std::string ClauseChecker::lemma(const ClauseProof::Step& step) {
    if (step.farkas.size() != step.clause.size())
        return "has " + std::to_string(step.farkas.size()) + " multipliers for " +
               std::to_string(step.clause.size()) + " literals";
    QNumber k;
    bool strict = false;
    touched_.clear();
    for (std::size_t i = 0; i < step.clause.size(); ++i) {
        const QNumber& m = step.farkas[i];
        if (m.sign() < 0) return "has a negative multiplier";
        if (m.is_zero()) continue;
        std::int64_t lit = step.clause[i];
        auto at = atom_of_.find(lit < 0 ? -lit : lit);
        if (at == atom_of_.end())
            return "multiplies literal " + std::to_string(lit) + ", which is no atom";
        const ClauseProof::AtomDefinition& a = proof_.atoms[at->second];
        // ¬(t ≤ c) is t > c and ¬(t ≥ c) is t < c; a negative literal states the atom itself.
        Relation r = lit > 0 ? negation(a.relation) : a.relation;
        QNumber c = a.constant;
        bool is_strict = r == Relation::Lt || r == Relation::Gt;
        bool integral = std::all_of(a.term.begin(), a.term.end(), [&](const Entry& e) {
            return p_.variables.sort(e.var) == Sort::Int;
        });
        if (integral)
            if (auto rounded = lra::round_integral_bound(a.term, r, c)) {
                c = rounded->constant;
                is_strict = false;
            }
        bool upper = r == Relation::Le || r == Relation::Lt;
        QNumber w = upper ? m : -m;
        k.add_product(w, c);
        for (const Entry& e : a.term) {
            if (sum_[e.var].is_zero()) touched_.push_back(e.var);
            sum_[e.var].add_product(-w, e.coeff);
        }
        strict = strict || is_strict;
    }
    bool cancels = true;
    for (int v : touched_) {
        cancels = cancels && sum_[v].is_zero();
        sum_[v] = QNumber();
    }
    if (!cancels) return "leaves a variable in the Farkas sum";
    if (k.sign() < 0 || (k.is_zero() && strict)) return {};
    return "is no contradiction: the Farkas sum is 0 <= " + (-k).to_string();
}

bool ClauseChecker::final_clause(const ClauseProof::Step& step) const {
    if (step.kind != Kind::Learned) return false;
    std::unordered_set<std::int64_t> assumed(proof_.assumptions.begin(), proof_.assumptions.end());
    return std::all_of(step.clause.begin(), step.clause.end(),
                       [&](std::int64_t l) { return assumed.count(-l) != 0; });
}

// An assumed box guard g stands for  −B ≤ x ≤ B  on Int variables: its input clauses must each
// be ¬g ∨ (x ≤ B) or ¬g ∨ (x ≥ −B) (selectors aside) with x of sort Int, and B must be at least
// the bound of the atoms of the other input clauses and the assumptions (lra::SolutionBox):
// Papadimitriou's over Int variables alone, else the mixed bound. Every model of those clauses then
// has a counterpart inside the box, so a refutation with the box refutes them. A guard that is not
// assumed is false in that model, and its clauses hold.
std::string ClauseChecker::check_boxes() {
    std::unordered_set<std::int64_t> defined, selectors;
    for (const ClauseProof::Definition& d : proof_.definitions) {
        defined.insert(d.var);
        if (d.kind == ClauseProof::Definition::Kind::Select) selectors.insert(d.var);
    }
    std::unordered_map<std::int64_t, const QNumber*> bound_of;
    for (const ClauseProof::Box& b : proof_.boxes)
        if (b.var <= 0 || atom_of_.count(b.var) != 0 || defined.count(b.var) != 0 ||
            !bound_of.emplace(b.var, &b.bound).second)
            return "box " + std::to_string(b.var) + ": no variable of its own";
    if (bound_of.empty()) return {};
    lra::SolutionBox own;
    std::unordered_set<std::int64_t> counted;
    bool integral = true;  // every counted atom over Int variables
    auto count = [&](std::int64_t l) {
        if (auto at = atom_of_.find(l < 0 ? -l : l);
            at != atom_of_.end() && counted.insert(at->first).second) {
            const ClauseProof::AtomDefinition& a = proof_.atoms[at->second];
            own.add_row(a.term, a.constant);
            for (const Entry& e : a.term)
                integral = integral && p_.variables.sort(e.var) == Sort::Int;
        }
    };
    // An assumed atom is a row of the refuted system as much as an input clause's.
    for (std::int64_t l : proof_.assumptions)
        count(l);
    std::vector<std::int64_t> rest;
    for (const ClauseProof::Step& step : proof_.steps) {
        if (step.kind != Kind::Input) continue;
        std::int64_t guard = 0;
        rest.clear();
        for (std::int64_t l : step.clause) {
            if (bound_of.count(l) != 0) return "a box guard stands positive in an input clause";
            if (l < 0 && bound_of.count(-l) != 0)
                guard = -l;
            else if (!(l < 0 && selectors.count(-l) != 0))
                rest.push_back(l);
        }
        if (guard != 0) {
            if (std::find(proof_.assumptions.begin(), proof_.assumptions.end(), guard) ==
                proof_.assumptions.end())
                continue;
            const QNumber& b = *bound_of[guard];
            auto at = rest.size() == 1 && rest[0] > 0 ? atom_of_.find(rest[0]) : atom_of_.end();
            const ClauseProof::AtomDefinition* a =
                at == atom_of_.end() ? nullptr : &proof_.atoms[at->second];
            if (a == nullptr || a->term.size() != 1 || !a->term[0].coeff.is_one() ||
                a->constant != (a->relation == Relation::Le ? b : -b))
                return "box " + std::to_string(guard) +
                       ": an input clause is no bound x <= B or x >= -B";
            if (p_.variables.sort(a->term[0].var) != Sort::Int)
                return "box " + std::to_string(guard) + ": a bound on a Real variable";
            continue;
        }
        for (std::int64_t l : rest)
            count(l);
    }
    QNumber least = integral ? own.bound() : own.mixed_bound();
    for (const auto& [guard, b] : bound_of) {
        if (std::find(proof_.assumptions.begin(), proof_.assumptions.end(), guard) ==
            proof_.assumptions.end())
            continue;
        if (*b < least)
            return "box " + std::to_string(guard) + ": " + b->to_string() + " is below the bound " +
                   least.to_string() + " of the input atoms";
    }
    return {};
}

std::string ClauseChecker::run() {
    if (std::string bad = check_atoms(); !bad.empty()) return bad;
    if (std::string bad = check_boxes(); !bad.empty()) return bad;
    if (proof_.steps.empty()) return "the proof has no steps";
    for (std::int64_t a : proof_.assumptions)
        if (std::uint32_t c; !code(a, c)) return "assumption 0";
    for (std::size_t i = 0; i < proof_.steps.size(); ++i) {
        const ClauseProof::Step& step = proof_.steps[i];
        std::string which = "step " + std::to_string(i) + " (" + kind_word(step.kind) + ")";
        clause_.clear();
        for (std::int64_t l : step.clause) {
            std::uint32_t c;
            if (!code(l, c)) return which + ": literal 0";
            clause_.push_back(c);
        }
        if (step.kind == Kind::Lemma)
            if (std::string bad =
                    step.hall ? check_hall_lemma(p_, proof_, step, atom_of_) : lemma(step);
                !bad.empty())
                return which + ": " + bad;
        if (step.kind == Kind::Learned && !units_.implied(clause_))
            return which + ": does not follow by unit propagation";
        units_.add_clause(clause_);
    }
    if (!final_clause(proof_.steps.back()))
        return "the last step is no learned clause of negated assumptions";
    return {};
}

}  // namespace

void print_certificate(std::ostream& out, const Problem& problem, const Decision& unsat,
                       const FormulaDag* dag) {
    if (unsat.boolean_search)
        print_certificate(out, problem, unsat.clause_proof, dag);
    else
        print_certificate(out, problem, unsat.proof, dag);
}

void print_certificate(std::ostream& out, const Problem& problem, const ClauseProof& proof,
                       const FormulaDag* dag) {
    std::set<int> vars;
    for (const ClauseProof::AtomDefinition& a : proof.atoms)
        for (const Entry& e : a.term)
            if (e.var >= 1 && e.var <= problem.variables.size()) vars.insert(e.var);
    add_quotient_variables(problem, dag, vars);
    out << "(certificate\nformat clauses\n";
    for (int v : vars)
        write_var_line(out, problem.variables, v);
    for (const ClauseProof::AtomDefinition& a : proof.atoms)
        write_atom_line(out, std::to_string(a.var), a.relation, a.constant, a.term);
    write_quotient_lines(out, problem, dag, vars);
    using DK = ClauseProof::Definition::Kind;
    for (const ClauseProof::Definition& d : proof.definitions) {
        if (d.kind == DK::Bool) {
            std::string name;
            append_name(name, problem.variables, d.index);
            out << "bool " << d.var << ' ' << name << "\n";
        } else if (d.kind == DK::Select) {
            out << "select " << d.var << ' ' << d.index << "\n";
        } else {
            out << "define " << d.var << ' '
                << (d.kind == DK::True  ? "true"
                    : d.kind == DK::And ? "and"
                    : d.kind == DK::Xor ? "xor"
                                        : "ite");
            write_literals(out, d.operands);
            out << "\n";
        }
    }
    for (const ClauseProof::Box& b : proof.boxes)
        out << "box " << b.var << ' ' << b.bound.to_string() << "\n";
    if (!proof.assumptions.empty()) {
        out << "assume";
        write_literals(out, proof.assumptions);
        out << "\n";
    }
    for (const ClauseProof::Step& step : proof.steps) {
        out << kind_word(step.kind);
        write_literals(out, step.clause);
        if (step.hall) {
            out << " hall " << step.hall->low.to_string() << ' ' << step.hall->high.to_string();
            for (const ClauseProof::OffsetTerm& t : step.hall->terms)
                out << ' ' << t.var << ':' << t.offset.to_string();
        } else if (step.kind == Kind::Lemma) {
            out << " farkas";
            for (const QNumber& m : step.farkas)
                out << ' ' << m.to_string();
        }
        out << "\n";
    }
    out << ")\n";
}

std::string check_proof(const Problem& problem, const ClauseProof& proof) {
    return ClauseChecker(problem, proof).run();
}

}  // namespace vorn::smt
