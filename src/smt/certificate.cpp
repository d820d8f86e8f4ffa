#include "vorn/smt/certificate.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <set>

#include "vorn/lra/integer_bounds.h"
#include "vorn/smt/problem_text.h"

#include "certificate_lines.h"

namespace vorn::smt {

namespace {

using Entry = LinearExpr::Entry;
using Kind = ProofStep::Kind;

const char* relation_word(Relation r) {
    return r == Relation::Distinct ? "!=" : relation_text(r);
}

// term ⋈ c for a one-term atom: the entries without the constant, and c.
QNumber split_constant(std::span<const Entry> term, LinearExpr::Entries& out) {
    QNumber c;
    for (const Entry& e : term)
        if (e.var == 0)
            c = -e.coeff;
        else
            out.push_back(e);
    return c;
}

// The disequality a SplitNe node splits, as the atom states it.
QNumber stated_disequality(const Problem& p, const ProofStep& step, LinearExpr::Entries& term) {
    return p.disequality(p.atoms[step.atom], step.first, step.second, term);
}

std::string atom_id(const ProofStep& step, const Problem& p) {
    std::string id = std::to_string(step.atom);
    if (p.atoms[step.atom].relation == Relation::Distinct)
        id += "." + std::to_string(step.first) + "." + std::to_string(step.second);
    return id;
}

void write_terms(std::ostream& out, std::span<const Entry> term) {
    for (const Entry& e : term)
        out << ' ' << e.var << ':' << e.coeff.to_string();
}

// Atom `a` of the problem as its first term states it.
void write_problem_atom(std::ostream& out, const Problem& problem, std::size_t a) {
    LinearExpr::Entries term;
    QNumber c = split_constant(problem.term(problem.atoms[a].first_term), term);
    write_atom_line(out, std::to_string(a), problem.atoms[a].relation, c, term);
}

// One bound of a Farkas combination, read as  Σ coeff·var ⋈ c.
struct Bound {
    LinearExpr::Entries term;
    QNumber c;
    bool upper = false, lower = false, strict = false;
};

class ProofChecker {
  public:
    ProofChecker(const Problem& p, const std::vector<ProofStep>& proof) : p_(p), proof_(proof) {}
    std::string run();

  private:
    std::string leaf(std::size_t node);
    std::string farkas(std::size_t node);
    std::string gcd(const ProofStep& step);
    std::string lattice(const ProofStep& step);
    bool split_bound(std::size_t leaf, std::size_t split, Bound& b) const;
    bool atom_bound(std::size_t atom, Bound& b) const;
    bool cut_side_bound(const ProofStep& split, bool high, Bound& b) const;
    // Whether every variable of the term is Int.
    bool integral(std::span<const LinearExpr::Entry> term) const {
        return std::all_of(term.begin(), term.end(), [&](const auto& e) {
            return e.var == 0 || p_.variables.sort(e.var) == Sort::Int;
        });
    }

    const Problem& p_;
    const std::vector<ProofStep>& proof_;
    std::vector<std::size_t> parent_;
    std::vector<char> high_side_;  // by node: it is its parent's high child
};

std::string ProofChecker::run() {
    const std::size_t none = static_cast<std::size_t>(-1);
    if (proof_.empty()) return "the proof is empty";
    parent_.assign(proof_.size(), none);
    high_side_.assign(proof_.size(), 0);
    std::vector<char> seen(proof_.size(), 0);
    std::vector<std::size_t> todo{0};
    while (!todo.empty()) {
        std::size_t n = todo.back();
        todo.pop_back();
        if (n >= proof_.size() || seen[n]) return "proof node " + std::to_string(n) + " reused";
        seen[n] = 1;
        const ProofStep& step = proof_[n];
        if (step.kind == Kind::SplitNe || step.kind == Kind::SplitInt ||
            step.kind == Kind::SplitCut) {
            if (step.low >= proof_.size() || step.high >= proof_.size())
                return "a split without children";
            if (step.kind == Kind::SplitInt &&
                (p_.variables.sort(step.var) != Sort::Int || !step.below.is_integer()))
                return "a split on a non-integer";
            if (step.kind == Kind::SplitNe) {
                LinearExpr::Entries stated;
                QNumber c = stated_disequality(p_, step, stated);
                bool same = stated.size() == step.term.size() && c == step.constant;
                for (std::size_t i = 0; same && i < stated.size(); ++i)
                    same =
                        stated[i].var == step.term[i].var && stated[i].coeff == step.term[i].coeff;
                if (!same) return "a split on no disequality";
            }
            if (step.kind == Kind::SplitCut &&
                (step.term.empty() || step.relation == Relation::Eq ||
                 step.relation == Relation::Ne || step.relation == Relation::Distinct ||
                 std::any_of(step.term.begin(), step.term.end(),
                             [](const Entry& e) { return e.var == 0 || e.coeff.is_zero(); })))
                return "a cut split on no inequality";
            parent_[step.low] = parent_[step.high] = n;
            high_side_[step.high] = 1;
            todo.push_back(step.low);
            todo.push_back(step.high);
            continue;
        }
        if (std::string bad = leaf(n); !bad.empty()) return bad;
    }
    return {};
}

std::string ProofChecker::leaf(std::size_t node) {
    switch (proof_[node].kind) {
        case Kind::Gcd:
            return gcd(proof_[node]);
        case Kind::Lattice:
            return lattice(proof_[node]);
        default:
            return farkas(node);
    }
}

bool ProofChecker::atom_bound(std::size_t atom, Bound& b) const {
    if (atom >= p_.atoms.size()) return false;
    const Atom& a = p_.atoms[atom];
    if (a.relation == Relation::Ne || a.relation == Relation::Distinct) return false;
    b.c = split_constant(p_.term(a.first_term), b.term);
    b.upper =
        a.relation == Relation::Le || a.relation == Relation::Lt || a.relation == Relation::Eq;
    b.lower =
        a.relation == Relation::Ge || a.relation == Relation::Gt || a.relation == Relation::Eq;
    b.strict = a.relation == Relation::Lt || a.relation == Relation::Gt;
    if (auto rounded =
            integral(b.term) ? lra::round_integral_bound(b.term, a.relation, b.c) : std::nullopt) {
        b.c = rounded->constant;
        b.strict = false;
    }
    return true;
}

// The bound that ancestor `split` asserts on the side of `leaf`.
bool ProofChecker::split_bound(std::size_t leaf, std::size_t split, Bound& b) const {
    std::size_t child = leaf;
    while (child < parent_.size() && parent_[child] != split)
        child = parent_[child];
    if (child >= parent_.size()) return false;
    bool high = high_side_[child] != 0;
    const ProofStep& s = proof_[split];
    b.upper = !high;
    b.lower = high;
    if (s.kind == Kind::SplitCut) return cut_side_bound(s, high, b);
    if (s.kind == Kind::SplitNe) {
        b.term = s.term;
        b.c = s.constant;
        b.strict = true;
        // A side over Int variables counts rounded, as the solver asserts it.
        if (integral(b.term))
            if (auto r =
                    lra::round_integral_bound(b.term, high ? Relation::Gt : Relation::Lt, b.c)) {
                b.c = r->constant;
                b.strict = false;
            }
    } else {
        b.term = {{s.var, QNumber(1)}};
        b.c = high ? s.below + QNumber(1) : s.below;
    }
    return true;
}

// A cut split's side: the cut itself (high) or its negation, counted rounded over Int variables
// like an atom.
bool ProofChecker::cut_side_bound(const ProofStep& s, bool high, Bound& b) const {
    Relation r = s.relation;
    if (!high)
        r = r == Relation::Le   ? Relation::Gt
            : r == Relation::Lt ? Relation::Ge
            : r == Relation::Ge ? Relation::Lt
                                : Relation::Le;
    b.term = s.term;
    b.c = s.constant;
    b.upper = r == Relation::Le || r == Relation::Lt;
    b.lower = !b.upper;
    b.strict = r == Relation::Lt || r == Relation::Gt;
    if (auto rounded =
            integral(b.term) ? lra::round_integral_bound(b.term, r, b.c) : std::nullopt) {
        b.c = rounded->constant;
        b.strict = false;
    }
    return true;
}

std::string ProofChecker::farkas(std::size_t node) {
    std::map<int, QNumber> sum;
    QNumber k;
    bool strict = false;
    for (const FarkasEntry& e : proof_[node].farkas) {
        Bound b;
        bool ok = e.from_split ? split_bound(node, e.index, b) : atom_bound(e.index, b);
        if (!ok || !(e.upper ? b.upper : b.lower) || e.multiplier.sign() <= 0)
            return "Farkas leaf " + std::to_string(node) + " uses a bound it does not have";
        // upper: m·(c − term) ≥ 0; lower: m·(term − c) ≥ 0.
        QNumber m = e.upper ? e.multiplier : -e.multiplier;
        k.add_product(m, b.c);
        for (const Entry& t : b.term)
            sum[t.var].add_product(-m, t.coeff);
        strict = strict || b.strict;
    }
    for (const auto& [var, coeff] : sum)
        if (!coeff.is_zero()) return "Farkas leaf " + std::to_string(node) + " leaves a variable";
    if (k.sign() < 0 || (k.is_zero() && strict)) return {};
    return "Farkas leaf " + std::to_string(node) + " is no contradiction";
}

std::string ProofChecker::gcd(const ProofStep& step) {
    if (step.atom >= p_.atoms.size() || p_.atoms[step.atom].relation != Relation::Eq)
        return "a gcd leaf on no equality";
    LinearExpr::Entries term;
    QNumber c = split_constant(p_.term(p_.atoms[step.atom].first_term), term);
    for (const Entry& e : term)
        if (p_.variables.sort(e.var) != Sort::Int) return "a gcd leaf over a Real variable";
    return lra::integral_equation_refuted(term, c)
               ? std::string()
               : "a gcd leaf whose equality has integer solutions";
}

// Σ yᵢ·(tᵢ = cᵢ) over equalities on Int variables: integer coefficients and a non-integer
// constant leave no integer point.
std::string ProofChecker::lattice(const ProofStep& step) {
    std::map<int, QNumber> sum;
    QNumber constant;
    for (const FarkasEntry& e : step.farkas) {
        if (e.from_split || e.index >= p_.atoms.size() ||
            p_.atoms[e.index].relation != Relation::Eq)
            return "a lattice leaf on no equality";
        LinearExpr::Entries term;
        QNumber c = split_constant(p_.term(p_.atoms[e.index].first_term), term);
        if (!integral(term)) return "a lattice leaf over a Real variable";
        for (const Entry& t : term)
            sum[t.var] += e.multiplier * t.coeff;
        constant += e.multiplier * c;
    }
    for (const auto& [var, coeff] : sum)
        if (!coeff.is_integer()) return "a lattice leaf with a fractional coefficient";
    return constant.is_integer() ? "a lattice leaf with an integer constant" : std::string();
}

}  // namespace

void write_var_line(std::ostream& out, const Variables& variables, int v) {
    std::string name;
    append_name(name, variables, v);
    Sort s = variables.sort(v);
    out << "var " << v
        << (s == Sort::Int    ? " Int "
            : s == Sort::Real ? " Real "
                              : " Bool ")
        << name << "\n";
}

void write_atom_line(std::ostream& out, std::string_view id, Relation relation,
                     const QNumber& constant, std::span<const Entry> term) {
    out << "atom " << id << ' ' << relation_word(relation) << ' ' << constant.to_string();
    write_terms(out, term);
    out << "\n";
}

// The lifted quotient that `var` stands for, or null.
const LiftedIte* quotient_of(const FormulaDag* dag, int var) {
    std::int64_t i = dag == nullptr ? -1 : dag->lifted_index(var);
    if (i < 0) return nullptr;
    const LiftedIte& l = dag->lifted()[static_cast<std::size_t>(i)];
    return l.kind == LiftedIte::Quotient ? &l : nullptr;
}

// A dividend names only variables numbered below its quotient's, so one pass from the highest
// reaches them all.
void add_quotient_variables(const Problem& problem, const FormulaDag* dag, std::set<int>& vars) {
    for (auto v = vars.rbegin(); v != vars.rend(); ++v)
        if (const LiftedIte* q = quotient_of(dag, *v))
            for (const Entry& e : problem.term(q->then_term))
                if (e.var != 0) vars.insert(e.var);
}

void write_quotient_lines(std::ostream& out, const Problem& problem, const FormulaDag* dag,
                          const std::set<int>& vars) {
    for (int v : vars)
        if (const LiftedIte* q = quotient_of(dag, v)) {
            QNumber divisor;
            for (const Entry& e : problem.term(q->otherwise_term))
                divisor = e.coeff;
            out << "quotient " << v << ' ' << divisor.to_string();
            write_terms(out, problem.term(q->then_term));
            out << "\n";
        }
}

void print_certificate(std::ostream& out, const Problem& problem,
                       const std::vector<ProofStep>& proof, const FormulaDag* dag) {
    std::set<std::size_t> atoms;
    std::set<int> vars;
    for (const ProofStep& step : proof) {
        for (const FarkasEntry& e : step.farkas)
            if (!e.from_split) atoms.insert(e.index);
        if (step.kind == Kind::Gcd) atoms.insert(step.atom);
        if (step.kind == Kind::SplitInt) vars.insert(step.var);
        for (const Entry& e : step.term)
            vars.insert(e.var);
    }
    for (std::size_t a : atoms)
        for (const Entry& e : problem.term(problem.atoms[a].first_term))
            if (e.var != 0) vars.insert(e.var);
    add_quotient_variables(problem, dag, vars);
    out << "(certificate\n";
    for (int v : vars)
        write_var_line(out, problem.variables, v);
    for (std::size_t a : atoms)
        write_problem_atom(out, problem, a);
    write_quotient_lines(out, problem, dag, vars);
    for (const ProofStep& step : proof)
        if (step.kind == Kind::SplitNe)
            write_atom_line(out, atom_id(step, problem), Relation::Ne, step.constant, step.term);
    for (std::size_t n = 0; n < proof.size(); ++n) {
        const ProofStep& step = proof[n];
        out << "node " << n;
        switch (step.kind) {
            case Kind::SplitNe:
                out << " split-ne " << atom_id(step, problem) << ' ' << step.low << ' '
                    << step.high;
                break;
            case Kind::SplitInt:
                out << " split-int " << step.var << ' ' << step.below.to_string() << ' ' << step.low
                    << ' ' << step.high;
                break;
            case Kind::Gcd:
                out << " gcd " << step.atom << ' ' << step.gcd.to_string();
                break;
            case Kind::Lattice:
                out << " lattice";
                for (const FarkasEntry& e : step.farkas)
                    out << ' ' << e.index << ':' << e.multiplier.to_string();
                break;
            case Kind::SplitCut:
                out << " split-cut " << step.low << ' ' << step.high << ' '
                    << relation_word(step.relation) << ' ' << step.constant.to_string();
                write_terms(out, step.term);
                break;
            case Kind::Farkas:
                out << " farkas";
                for (const FarkasEntry& e : step.farkas)
                    out << ' ' << (e.from_split ? "split:" : "atom:") << e.index << ':'
                        << (e.upper ? 'u' : 'l') << ':' << e.multiplier.to_string();
                break;
        }
        out << "\n";
    }
    out << ")\n";
}

void print_ray_certificate(std::ostream& out, const Problem& problem, std::uint32_t objective,
                           bool maximize, const std::vector<QNumber>& point,
                           const std::vector<QNumber>& ray) {
    out << "(certificate\nformat ray\n";
    for (int v = 1; v <= problem.variables.size(); ++v)
        write_var_line(out, problem.variables, v);
    for (std::size_t a = 0; a < problem.atoms.size(); ++a)
        write_problem_atom(out, problem, a);
    out << "objective " << (maximize ? "max" : "min");
    write_terms(out, problem.term(objective));
    for (const char* what : {"\npoint", "\nray"}) {
        out << what;
        const std::vector<QNumber>& values = what[1] == 'p' ? point : ray;
        for (std::size_t v = 1; v < values.size(); ++v)
            if (!values[v].is_zero()) out << ' ' << v << ':' << values[v].to_string();
    }
    out << "\n)\n";
}

std::string check_proof(const Problem& problem, const std::vector<ProofStep>& proof) {
    return ProofChecker(problem, proof).run();
}

}  // namespace vorn::smt
