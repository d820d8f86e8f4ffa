#include "vorn/smt/assertion_encoder.h"

#include <gmp.h>

#include <algorithm>

#include "vorn/smt/model_check.h"

#include "../numbers/gmp_holder.h"

namespace vorn::smt {

namespace {

constexpr std::int8_t kNotKnown = -2;

bool composite(const FormulaNode& node) {
    return node.kind == FormulaNode::And || node.kind == FormulaNode::Or ||
           node.kind == FormulaNode::Xor || node.kind == FormulaNode::Ite;
}

}  // namespace

void AssertionEncoder::grow() {
    std::size_t n = dag_.size();
    if (lit_.size() < n) {
        lit_.resize(n);
        has_lit_.resize(n, 0);
        unsup_.resize(n, 0);
        truth_.resize(n, kNotKnown);
        committed_.resize(2 * n, 0);
        seen_.resize(2 * n, 0);
    }
    if (side_done_.size() < dag_.lifted().size()) side_done_.resize(dag_.lifted().size(), 0);
}

void AssertionEncoder::forget_nodes() {
    std::size_t n = dag_.size();
    if (lit_.size() > n) {
        lit_.resize(n);
        has_lit_.resize(n);
        unsup_.resize(n);
        truth_.resize(n);
        committed_.resize(2 * n);
        seen_.resize(2 * n);
    }
    if (side_done_.size() > dag_.lifted().size()) side_done_.resize(dag_.lifted().size());
    evaluated_lifted_ = std::min(evaluated_lifted_, dag_.lifted().size());
}

void AssertionEncoder::truncate(const Marks& m) {
    for (std::size_t i = m.encoded; i < encoded_.size(); ++i)
        if (encoded_[i] < has_lit_.size()) has_lit_[encoded_[i]] = 0;
    for (std::size_t i = m.sides; i < sides_.size(); ++i)
        if (sides_[i] < side_done_.size()) side_done_[sides_[i]] = 0;
    encoded_.resize(std::min(encoded_.size(), m.encoded));
    sides_.resize(std::min(sides_.size(), m.sides));
    roots_.resize(std::min(roots_.size(), m.roots));
    unsupported_.resize(std::min(unsupported_.size(), m.unsupported));
    pending_sides_.clear();
    // The atoms of the popped levels are gone: their formulas may be committed again.
    std::fill(committed_.begin(), committed_.end(), 0);
    encoder_.truncate(problem_.boolean.propositions());
}

// ---- the top conjunction --------------------------------------------------------------------

int AssertionEncoder::constant_truth(FormulaRef ref) const {
    const FormulaNode& node = dag_[ref];
    bool negated = (ref & 1) != 0;
    if (node.kind == FormulaNode::True) return negated ? 0 : 1;
    if (node.kind == FormulaNode::Atom && dag_.atom_of(node).relation != Relation::Distinct) {
        auto term = problem_.term(dag_.atom_of(node).first_term);
        if (term.size() > 1 || (term.size() == 1 && term[0].var != 0)) return -1;
        int s = term.empty() ? 0 : term[0].coeff.sign();
        return relation_holds(dag_.atom_of(node).relation, s) != negated ? 1 : 0;
    }
    if ((node.kind == FormulaNode::And || node.kind == FormulaNode::Or) && node.size == 0)
        return (node.kind == FormulaNode::And) != negated ? 1 : 0;
    return -1;
}

// Visits every shared reference once. A disjunction (an or, or a negated and) is a literal only
// when all its disjuncts are constant false but one; one constant true disjunct makes it true.
void AssertionEncoder::split(FormulaRef root) {
    grow();
    if (++stamp_ == 0) {
        std::fill(seen_.begin(), seen_.end(), 0);
        stamp_ = 1;
    }
    visited_.clear();
    literals_.clear();
    rest_.clear();
    stack_.assign(1, root);
    auto rest = [&](FormulaRef ref, const char* what, SourcePos pos) {
        if (!lenient_) throw NotAccepted(pos, std::string(what) + " is not supported");
        rest_.push_back(ref);
    };
    while (!stack_.empty()) {
        FormulaRef ref = stack_.back();
        stack_.pop_back();
        if (committed_[ref] || seen_[ref] == stamp_) continue;
        seen_[ref] = stamp_;
        visited_.push_back(ref);
        const FormulaNode& node = dag_[ref];
        bool negated = (ref & 1) != 0;
        switch (node.kind) {
            case FormulaNode::True:
                if (negated) literals_.push_back(ref);
                break;
            case FormulaNode::Atom: {
                const Atom& atom = dag_.atom_of(node);
                if (negated && atom.relation == Relation::Distinct && atom.terms != 2) {
                    rest(ref, "a negated 'distinct' of more than two terms (a disjunction)",
                         atom.pos);
                    break;
                }
                literals_.push_back(ref);
                break;
            }
            case FormulaNode::Unsupported:
                literals_.push_back(ref);
                break;
            case FormulaNode::And:
            case FormulaNode::Or: {
                auto children = dag_.children(node);
                if ((node.kind == FormulaNode::Or) == negated) {
                    for (std::size_t i = children.size(); i-- > 0;)
                        stack_.push_back(children[i] ^ (negated ? 1 : 0));
                    break;
                }
                FormulaRef open = 0;
                std::size_t open_count = 0;
                bool holds = false;
                for (FormulaRef c : children) {
                    int t = constant_truth(c ^ (negated ? 1 : 0));
                    holds = holds || t == 1;
                    if (t < 0) open = c ^ (negated ? 1 : 0), ++open_count;
                }
                if (holds) break;
                if (open_count <= 1)
                    stack_.push_back(open_count == 1 ? open : 1);
                else
                    rest(ref, "a disjunction", node.pos);
                break;
            }
            default:
                rest(ref, "a Boolean connective", node.pos);
        }
    }
}

// An atom over a lifted variable brings its ite's definition, which is no atom.
bool AssertionEncoder::conjunctive(FormulaRef root) {
    split(root);
    if (!rest_.empty()) return false;
    for (FormulaRef ref : literals_) {
        if (dag_[ref].kind != FormulaNode::Atom) continue;
        const Atom& atom = dag_.atom_of(dag_[ref]);
        for (std::uint32_t t = atom.first_term; t < atom.first_term + atom.terms; ++t)
            for (const auto& e : problem_.term(t))
                if (e.var != 0 && dag_.lifted_index(e.var) >= 0) return false;
    }
    return true;
}

bool AssertionEncoder::assert_formula(FormulaRef root) {
    split(root);
    for (FormulaRef ref : visited_)
        committed_[ref] = 1;
    for (FormulaRef ref : literals_)
        commit_literal(ref);
    bool encoded = !rest_.empty() || !pending_sides_.empty();
    for (FormulaRef ref : rest_) {
        encoder_.assert_true(literal(ref, unsupported_));
        roots_.push_back(ref);
    }
    assert_definitions();
    return encoded;
}

// ¬(a ≤ b) is a > b and so on; ¬(a = b) is a ≠ b; ¬(distinct a b) is a = b; false is 1 = 0.
void AssertionEncoder::commit_literal(FormulaRef ref) {
    const FormulaNode& node = dag_[ref];
    bool negated = (ref & 1) != 0;
    if (node.kind == FormulaNode::True) {
        scratch_.set_constant(QNumber(1));
        problem_.atoms.push_back({Relation::Eq, problem_.add_term(scratch_), 1, node.pos});
        return;
    }
    if (node.kind == FormulaNode::Unsupported) {
        unsupported_.push_back(dag_.unsupported_of(node));
        return;
    }
    const Atom& atom = dag_.atom_of(node);
    if (!negated) name_lifted(atom);
    need_definitions(atom);
    if (!negated) return problem_.atoms.push_back(atom);
    Atom flipped = atom;
    if (atom.relation != Relation::Distinct) {
        flipped.relation = negation(atom.relation);
    } else {
        scratch_.clear();
        for (const auto& e : problem_.term(atom.first_term))
            scratch_.add_entry(e.var, e.coeff);
        for (const auto& e : problem_.term(atom.first_term + 1))
            scratch_.add_entry(e.var, -e.coeff);
        flipped = {Relation::Eq, problem_.add_term(scratch_), 1, atom.pos};
    }
    problem_.atoms.push_back(flipped);
}

// ---- encoding -------------------------------------------------------------------------------

Literal AssertionEncoder::literal(FormulaRef ref, std::vector<Unsupported>& reached) {
    grow();
    encode(ref / 2);
    if (std::uint32_t u = unsup_[ref / 2])
        reached.push_back(dag_.unsupported_of(dag_[2 * (u - 1)]));
    Literal l = lit(ref);
    assert_definitions();
    return l;
}

template <class Done, class Visit>
void AssertionEncoder::post_order(std::uint32_t top, Done done, Visit visit) {
    if (done(top)) return;
    work_.assign(1, top);
    while (!work_.empty()) {
        std::uint32_t n = work_.back();
        if (done(n)) {
            work_.pop_back();
            continue;
        }
        const FormulaNode& node = dag_[2 * n];
        bool ready = true;
        if (composite(node))
            for (FormulaRef c : dag_.children(node))
                if (!done(c / 2)) {
                    work_.push_back(c / 2);
                    ready = false;
                }
        if (!ready) continue;
        work_.pop_back();
        visit(n, node);
    }
}

// A node's literal is made once its children have theirs.
void AssertionEncoder::encode(std::uint32_t top) {
    post_order(
        top, [&](std::uint32_t n) { return has_lit_[n] != 0; },
        [&](std::uint32_t n, const FormulaNode& node) {
            lit_[n] = make(node, n);
            has_lit_[n] = 1;
            encoded_.push_back(n);
        });
}

Literal AssertionEncoder::make(const FormulaNode& node, std::uint32_t n) {
    unsup_[n] = 0;
    switch (node.kind) {
        case FormulaNode::True:
            return encoder_.constant(true);
        case FormulaNode::Atom:
            need_definitions(dag_.atom_of(node));
            return encoder_.atom(dag_.atom_of(node));
        case FormulaNode::Var:
            return encoder_.variable(static_cast<int>(node.first));
        case FormulaNode::Unsupported:
            unsup_[n] = n + 1;  // free: whatever it means, an unsat answer stays right
            return {problem_.boolean.add({}), false};
        default:
            break;
    }
    operands_.clear();
    for (FormulaRef c : dag_.children(node)) {
        operands_.push_back(lit(c));
        if (unsup_[n] == 0) unsup_[n] = unsup_[c / 2];
    }
    switch (node.kind) {
        case FormulaNode::And:
            return encoder_.conjunction(operands_);
        case FormulaNode::Or:
            return encoder_.disjunction(operands_);
        case FormulaNode::Xor: {
            Literal l = operands_[0];
            for (std::size_t i = 1; i < operands_.size(); ++i)
                l = encoder_.exclusive_or(l, operands_[i]);
            return l;
        }
        default:
            return encoder_.ite(operands_[0], operands_[1], operands_[2]);
    }
}

// An asserted c·x − c·v ⋈ k, where v is a term ite's variable and x is not, bounds the difference
// of x and the ite (an equality: x is the ite's name). The search then decides the ite's
// atoms as it decides x's: by activity and saved phase, its definition a root of the asserted
// formulas. Deciding them first on the simplex's side, which pays where ites sit inside sums and
// comparisons, cost a transition system's unrolling (x' = ite(g, x + u, x − 3)) five times the
// conflicts.
void AssertionEncoder::name_lifted(const Atom& atom) {
    if (atom.relation == Relation::Distinct || dag_.lifted().empty()) return;
    std::int64_t ite = -1;
    int others = 0;
    QNumber sum;
    for (const auto& e : problem_.term(atom.first_term)) {
        if (e.var == 0) continue;
        std::int64_t i = dag_.lifted_index(e.var);
        bool lifted = i >= 0 && dag_.lifted()[static_cast<std::size_t>(i)].kind == LiftedIte::Ite;
        if (lifted && ite < 0)
            ite = i;
        else if (dag_.lifted_index(e.var) < 0)
            ++others;
        else
            return;
        sum += e.coeff;
    }
    if (ite >= 0 && others == 1 && sum.is_zero()) dag_.name_lifted(static_cast<std::size_t>(ite));
}

void AssertionEncoder::need_definitions(const Atom& atom) {
    if (dag_.lifted().empty()) return;
    grow();
    for (std::uint32_t t = atom.first_term; t < atom.first_term + atom.terms; ++t)
        for (const auto& e : problem_.term(t))
            need_definition(e.var);
}

void AssertionEncoder::need_definition(int var) {
    std::int64_t i = var == 0 ? -1 : dag_.lifted_index(var);
    if (i < 0 || side_done_[static_cast<std::size_t>(i)]) return;
    side_done_[static_cast<std::size_t>(i)] = 1;
    sides_.push_back(static_cast<std::uint32_t>(i));
    pending_sides_.push_back(static_cast<std::uint32_t>(i));
}

void AssertionEncoder::define_lifted(const LinearExpr& term) {
    if (dag_.lifted().empty()) return;
    grow();
    for (const auto& e : term.entries())
        need_definition(e.var);
    assert_definitions();
    for (const auto& e : term.entries())
        if (std::int64_t i = e.var == 0 ? -1 : dag_.lifted_index(e.var); i >= 0) {
            const LiftedIte& l = dag_.lifted()[static_cast<std::size_t>(i)];
            if (l.kind != LiftedIte::Quotient) problem_.boolean.require(lit(l.definition));
        }
}

// A definition is asserted on the level where an atom first needed it; what it reaches outside
// the fragment counts as asserted there. A quotient's definition is a conjunction of two atoms:
// they join the problem's atoms, so that a conjunction stays one for the conjunctive decider.
void AssertionEncoder::assert_definitions() {
    while (!pending_sides_.empty()) {
        LiftedIte lifted = dag_.lifted()[pending_sides_.back()];  // encoding may grow the DAG
        FormulaRef definition = lifted.definition;
        pending_sides_.pop_back();
        if (lifted.kind == LiftedIte::Quotient) {
            for (FormulaRef bound : dag_.children(dag_[definition]))
                commit_literal(bound);
            continue;
        }
        encode(definition / 2);
        if (std::uint32_t u = unsup_[definition / 2])
            unsupported_.push_back(dag_.unsupported_of(dag_[2 * (u - 1)]));
        encoder_.assert_true(lit(definition));
        problem_.boolean.define_variable(lifted.var, lit(definition));
        if (lifted.named) problem_.boolean.require(lit(definition));
        bound_constant_branches(lifted);
    }
}

// A sum of such ites (a cumulative resource's load) bounds nothing while they are unbounded:
// the search had to decide every condition before the simplex saw the sum exceed its limit.
void AssertionEncoder::bound_constant_branches(const LiftedIte& lifted) {
    auto branches = constant_branches(problem_, lifted);
    if (!branches) return;
    const auto& [a, b] = *branches;
    SourcePos pos = dag_[lifted.definition].pos;
    for (Relation r : {Relation::Ge, Relation::Le}) {
        scratch_.clear();
        scratch_.add_entry(lifted.var, QNumber(1));
        scratch_.add_entry(0, -((r == Relation::Ge) == (a < b) ? a : b));
        problem_.atoms.push_back({r, problem_.add_term(scratch_), 1, pos});
    }
}

// ---- models ---------------------------------------------------------------------------------

// Lifted variables come after everything their ites and quotients mention, so one pass in order
// gives each its value from values already final.
const std::vector<QNumber>& AssertionEncoder::evaluate_model(const std::vector<QNumber>& model) {
    model_ = model;
    std::fill(truth_.begin(), truth_.end(), kNotKnown);
    evaluated_lifted_ = 0;
    return extend_model();
}

const std::vector<QNumber>& AssertionEncoder::extend_model() {
    grow();
    model_.resize(static_cast<std::size_t>(problem_.variables.size()) + 1);
    for (auto lifted = dag_.lifted(); evaluated_lifted_ < lifted.size(); ++evaluated_lifted_) {
        const LiftedIte& l = lifted[evaluated_lifted_];
        if (l.kind == LiftedIte::Quotient) {
            model_[static_cast<std::size_t>(l.var)] =
                euclidean_quotient(smt::term_value(problem_, l.then_term, model_),
                                   smt::term_value(problem_, l.otherwise_term, model_));
            continue;
        }
        int c = holds(l.condition);
        if (c >= 0)
            model_[static_cast<std::size_t>(l.var)] =
                term_value(problem_, c == 1 ? l.then_term : l.otherwise_term, model_);
    }
    return model_;
}

int AssertionEncoder::holds(FormulaRef ref) {
    grow();
    auto known = [&](std::uint32_t n) { return truth_[n] != kNotKnown; };
    post_order(ref / 2, known, [&](std::uint32_t n, const FormulaNode& node) {
        int t = -1;
        auto children = dag_.children(node);
        switch (node.kind) {
            case FormulaNode::True:
                t = 1;
                break;
            case FormulaNode::Atom:
                t = atom_holds(problem_, dag_.atom_of(node), model_) ? 1 : 0;
                break;
            case FormulaNode::Var:
                t = node.first < model_.size() && !model_[node.first].is_zero() ? 1 : 0;
                break;
            case FormulaNode::Unsupported:
                break;
            case FormulaNode::And:
            case FormulaNode::Or: {
                int decisive = node.kind == FormulaNode::And ? 0 : 1;
                t = 1 - decisive;
                for (FormulaRef c : children) {
                    int ct = truth(c);
                    if (ct == decisive) {
                        t = decisive;
                        break;
                    }
                    if (ct < 0) t = -1;
                }
                break;
            }
            case FormulaNode::Xor:
                t = 0;
                for (FormulaRef c : children) {
                    if (truth(c) < 0) {
                        t = -1;
                        break;
                    }
                    t ^= truth(c);
                }
                break;
            case FormulaNode::Ite: {
                int c = truth(children[0]);
                int a = truth(children[1]), b = truth(children[2]);
                t = c < 0 ? (a == b ? a : -1) : c == 1 ? a : b;
                break;
            }
        }
        truth_[n] = static_cast<std::int8_t>(t);
    });
    return truth(ref);
}

std::optional<std::pair<QNumber, QNumber>> constant_branches(const Problem& problem,
                                                             const LiftedIte& lifted) {
    auto constant = [&](std::uint32_t term) -> std::optional<QNumber> {
        auto entries = problem.term(term);
        if (entries.empty()) return QNumber(0);
        if (entries.size() > 1 || entries[0].var != 0) return std::nullopt;
        return entries[0].coeff;
    };
    if (lifted.kind != LiftedIte::Ite) return std::nullopt;
    auto a = constant(lifted.then_term), b = constant(lifted.otherwise_term);
    if (!a || !b) return std::nullopt;
    return std::pair{*a, *b};
}

QNumber euclidean_quotient(const QNumber& dividend, const QNumber& divisor) {
    QNumber ratio = dividend / divisor;
    detail::LocalMpq q;
    ratio.get_mpq(q.get());
    // The remainder dividend − divisor·quotient lies in [0, |divisor|): the quotient rounds the
    // ratio down for a positive divisor, up for a negative one.
    mpz_ptr num = mpq_numref(q.get());
    (divisor.sign() > 0 ? mpz_fdiv_q : mpz_cdiv_q)(num, num, mpq_denref(q.get()));
    mpz_set_ui(mpq_denref(q.get()), 1);
    return QNumber(q.get());
}

}  // namespace vorn::smt
