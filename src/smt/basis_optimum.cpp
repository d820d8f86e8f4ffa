// The exact side of the floating-point start: the LP form of a problem, and a basis checked for
// optimality in exact arithmetic.

#include <algorithm>
#include <cstddef>

#include "float_start.h"
#include "sparse_solve.h"

namespace vorn::smt {

namespace {

using Entry = LinearExpr::Entry;

void tighten(std::optional<LpForm::Bound>& bound, const QNumber& value, std::size_t atom,
             bool upper) {
    if (!bound || (upper ? value < bound->value : value > bound->value)) bound = {value, atom};
}

QNumber coefficient_of(std::span<const Entry> term, int var) {
    for (const Entry& e : term)
        if (e.var == var) return e.coeff;
    return QNumber();
}

}  // namespace

std::optional<LpForm> lp_form(const Problem& problem, std::optional<std::uint32_t> objective,
                              bool maximize) {
    if (!problem.boolean.empty()) return std::nullopt;
    LpForm lp;
    auto n = static_cast<std::size_t>(problem.variables.size());
    lp.columns.resize(n + 1);
    lp.cost.assign(n + 1, QNumber());
    for (std::size_t i = 0; i < problem.atoms.size(); ++i) {
        const Atom& a = problem.atoms[i];
        if (a.relation != Relation::Eq && a.relation != Relation::Le && a.relation != Relation::Ge)
            return std::nullopt;
        auto term = problem.term(a.first_term);
        QNumber rhs = !term.empty() && term[0].var == 0 ? -term[0].coeff : QNumber();
        std::size_t vars = term.size() - (!term.empty() && term[0].var == 0 ? 1 : 0);
        bool has_upper = a.relation != Relation::Ge, has_lower = a.relation != Relation::Le;
        if (vars == 0) {
            // A constant atom: a false one makes the problem infeasible, which the exact path
            // proves.
            if ((has_upper && rhs.sign() < 0) || (has_lower && rhs.sign() > 0)) return std::nullopt;
        } else if (vars == 1) {
            const Entry& e = term.back();
            QNumber value = rhs / e.coeff;
            if (e.coeff.sign() < 0) std::swap(has_upper, has_lower);
            LpForm::Column& c = lp.columns[static_cast<std::size_t>(e.var)];
            if (has_upper) tighten(c.upper, value, i, true);
            if (has_lower) tighten(c.lower, value, i, false);
            if (c.lower && c.upper && c.lower->value > c.upper->value) return std::nullopt;
        } else {
            LpForm::Row row{i, {}, {}};
            if (has_upper) row.upper = rhs;
            if (has_lower) row.lower = rhs;
            lp.rows.push_back(std::move(row));
        }
    }
    lp.negated = maximize;
    if (!objective) return lp;
    for (const Entry& e : problem.term(*objective))
        if (e.var != 0) lp.cost[static_cast<std::size_t>(e.var)] = maximize ? -e.coeff : e.coeff;
    return lp;
}

namespace {

class BasisCheck {
  public:
    BasisCheck(const Problem& p, const LpForm& lp, const Basis& basis)
        : p_(p), lp_(lp), basis_(basis), n_(lp.columns.size() - 1) {}

    std::optional<BasisOptimum> run(std::uint32_t objective, util::Stop* stop, std::string& why);
    std::optional<BasisAnswer> decide(util::Stop* stop, std::string& why);

  private:
    std::span<const Entry> row_term(std::size_t r) const {
        return p_.term(p_.atoms[lp_.rows[r].atom].first_term);
    }
    // The bound a non-basic column or row sits at: the one the basis names, else the other.
    template <typename B>
    static const B* side(const std::optional<B>& lower, const std::optional<B>& upper,
                         bool at_upper) {
        const std::optional<B>& named = at_upper ? upper : lower;
        const std::optional<B>& other = at_upper ? lower : upper;
        if (named) return &*named;
        return other ? &*other : nullptr;
    }
    const LpForm::Bound* column_bound(std::size_t v) const {
        const LpForm::Column& c = lp_.columns[v];
        return side(c.lower, c.upper, basis_.column_at_upper[v] != 0);
    }
    const QNumber* row_target(std::size_t r) const {
        const LpForm::Row& row = lp_.rows[r];
        return side(row.lower, row.upper, basis_.row_at_upper[r] != 0);
    }
    // A basic column or row out of its bounds: above the upper one or below the lower one.
    struct Violation {
        bool row;
        std::size_t index;  // variable or LpForm row
        bool above;
    };
    bool set_up(std::string& why);
    // Violations are failures unless `violations` collects them.
    bool primal(util::Stop* stop, std::string& why, std::vector<Violation>* violations = nullptr);
    bool dual(const std::vector<QNumber>& cost, util::Stop* stop, std::string& why);
    void add_column_entry(std::size_t v, const QNumber& d, bool upper);
    std::vector<QNumber> infeasibility_cost(std::span<const Violation> violated) const;
    void add_violated_bounds(std::span<const Violation> violated);

    const Problem& p_;
    const LpForm& lp_;
    const Basis& basis_;
    std::size_t n_;
    std::vector<int> position_;            // by variable: index among the basic columns, or −1
    std::vector<std::size_t> basic_cols_;  // variables
    std::vector<std::size_t> tight_rows_;  // non-basic rows: the equations of the square system
    std::vector<SparseRow> system_;        // by tight row, over basic-column positions
    BasisOptimum out_;
};

bool BasisCheck::primal(util::Stop* stop, std::string& why, std::vector<Violation>* violations) {
    std::vector<QNumber>& x = out_.model;
    x.assign(n_ + 1, QNumber());
    for (std::size_t v = 1; v <= n_; ++v)
        if (position_[v] < 0)
            if (const LpForm::Bound* b = column_bound(v)) x[v] = b->value;
    std::vector<QNumber> rhs;
    rhs.reserve(tight_rows_.size());
    system_.reserve(tight_rows_.size());
    for (std::size_t r : tight_rows_) {
        const QNumber* target = row_target(r);
        QNumber b = target != nullptr ? *target : QNumber();
        SparseRow row;
        for (const Entry& e : row_term(r)) {
            if (e.var == 0) continue;
            int pos = position_[static_cast<std::size_t>(e.var)];
            if (pos >= 0)
                row.push_back({pos, e.coeff});
            else
                b.add_product(-e.coeff, x[static_cast<std::size_t>(e.var)]);
        }
        system_.push_back(std::move(row));
        rhs.push_back(std::move(b));
    }
    auto solved = solve_square(system_, std::move(rhs), stop);
    if (!solved) {
        why = "the basis is singular";
        return false;
    }
    for (std::size_t k = 0; k < basic_cols_.size(); ++k)
        x[basic_cols_[k]] = (*solved)[k];
    for (std::size_t v : basic_cols_) {
        const LpForm::Column& c = lp_.columns[v];
        bool below = c.lower && x[v] < c.lower->value, above = c.upper && x[v] > c.upper->value;
        if (!below && !above) continue;
        if (violations == nullptr) {
            why = "a basic variable is out of its bounds";
            return false;
        }
        violations->push_back({false, v, above});
    }
    for (std::size_t r = 0; r < lp_.rows.size(); ++r) {
        if (!basis_.row_basic[r]) continue;
        QNumber activity;
        for (const Entry& e : row_term(r))
            if (e.var != 0) activity.add_product(e.coeff, x[static_cast<std::size_t>(e.var)]);
        const LpForm::Row& row = lp_.rows[r];
        bool below = row.lower && activity < *row.lower;
        bool above = row.upper && activity > *row.upper;
        if (!below && !above) continue;
        if (violations == nullptr) {
            why = "a basic row is out of its bounds";
            return false;
        }
        violations->push_back({true, r, above});
    }
    return true;
}

// The Farkas entry |d|·(x_v ≥ lower) or |d|·(x_v ≤ upper), from the bound atom of column v.
void BasisCheck::add_column_entry(std::size_t v, const QNumber& d, bool upper) {
    const LpForm::Column& c = lp_.columns[v];
    const LpForm::Bound& b = upper ? *c.upper : *c.lower;
    QNumber a = coefficient_of(p_.term(p_.atoms[b.atom].first_term), static_cast<int>(v));
    // The atom a·x + k ⋈ 0 halves: "≤" is an upper bound on x when a > 0.
    bool upper_half = upper == (a.sign() > 0);
    QNumber m = d / a;
    if (m.sign() < 0) m.negate();
    out_.farkas.push_back({false, b.atom, upper_half, std::move(m)});
}

bool BasisCheck::dual(const std::vector<QNumber>& cost, util::Stop* stop, std::string& why) {
    std::vector<QNumber> c;
    c.reserve(basic_cols_.size());
    for (std::size_t v : basic_cols_)
        c.push_back(cost[v]);
    auto y =
        solve_square(transpose(system_, static_cast<int>(basic_cols_.size())), std::move(c), stop);
    if (!y) {
        why = "the basis is singular";
        return false;
    }
    std::vector<QNumber> d = cost;
    for (std::size_t k = 0; k < tight_rows_.size(); ++k) {
        const QNumber& yk = (*y)[k];
        if (yk.is_zero()) continue;
        std::size_t r = tight_rows_[k];
        const LpForm::Row& row = lp_.rows[r];
        // y > 0 prices the row's lower bound, y < 0 its upper one: the one it sits at.
        const std::optional<QNumber>& priced = yk.sign() > 0 ? row.lower : row.upper;
        if (!priced || *priced != *row_target(r)) {
            why = "a row's dual value has the wrong sign";
            return false;
        }
        for (const Entry& e : row_term(r))
            if (e.var != 0) d[static_cast<std::size_t>(e.var)].add_product(-yk, e.coeff);
        QNumber m = yk;
        if (m.sign() < 0) m.negate();
        out_.farkas.push_back({false, row.atom, yk.sign() < 0, std::move(m)});
    }
    for (std::size_t v = 1; v <= n_; ++v) {
        if (d[v].is_zero()) continue;
        const LpForm::Column& c = lp_.columns[v];
        if (position_[v] >= 0 || (d[v].sign() > 0 ? !c.lower : !c.upper)) {
            why = "a reduced cost has the wrong sign";
            return false;
        }
        // The bound d prices must be the one the column sits at (both, when fixed).
        const QNumber& at = d[v].sign() > 0 ? c.lower->value : c.upper->value;
        if (out_.model[v] != at) {
            why = "a reduced cost has the wrong sign";
            return false;
        }
        // d > 0 prices the lower bound, d < 0 the upper one.
        add_column_entry(v, d[v], d[v].sign() < 0);
    }
    return true;
}

// The cost whose minimum over the basis's cone says the violations cannot all be repaired: the
// violated basic columns and rows, each pushed back toward its bound.
std::vector<QNumber> BasisCheck::infeasibility_cost(std::span<const Violation> violated) const {
    std::vector<QNumber> cost(n_ + 1);
    for (const Violation& w : violated) {
        QNumber sign(w.above ? 1 : -1);
        if (!w.row) {
            cost[w.index] += sign;
            continue;
        }
        for (const Entry& e : row_term(w.index))
            if (e.var != 0) cost[static_cast<std::size_t>(e.var)].add_product(sign, e.coeff);
    }
    return cost;
}

// The bounds the violations break, each with multiplier 1 (a row) or one over the coefficient
// (a column's bound atom).
void BasisCheck::add_violated_bounds(std::span<const Violation> violated) {
    for (const Violation& w : violated) {
        if (w.row)
            out_.farkas.push_back({false, lp_.rows[w.index].atom, w.above, QNumber(1)});
        else
            add_column_entry(w.index, QNumber(1), w.above);
    }
}

bool BasisCheck::set_up(std::string& why) {
    position_.assign(n_ + 1, -1);
    for (std::size_t v = 1; v <= n_; ++v)
        if (basis_.column_basic[v]) {
            position_[v] = static_cast<int>(basic_cols_.size());
            basic_cols_.push_back(v);
        }
    for (std::size_t r = 0; r < lp_.rows.size(); ++r)
        if (!basis_.row_basic[r]) tight_rows_.push_back(r);
    if (tight_rows_.size() == basic_cols_.size()) return true;
    why = "the basis has the wrong size";
    return false;
}

std::optional<BasisOptimum> BasisCheck::run(std::uint32_t objective, util::Stop* stop,
                                            std::string& why) {
    if (!set_up(why) || !primal(stop, why) || !dual(lp_.cost, stop, why)) return std::nullopt;
    out_.optimum = QNumber();
    for (const Entry& e : p_.term(objective))
        if (e.var == 0)
            out_.optimum += e.coeff;
        else
            out_.optimum.add_product(e.coeff, out_.model[static_cast<std::size_t>(e.var)]);
    return std::move(out_);
}

// Feasible when no basic value breaks a bound. Otherwise the violations, all together and then
// one by one (a dual simplex stops at a single row that no step can repair), are tried as a
// proof: when the basis minimizes their sum, that minimum lies beyond their bounds.
std::optional<BasisAnswer> BasisCheck::decide(util::Stop* stop, std::string& why) {
    std::vector<Violation> violated;
    if (!set_up(why) || !primal(stop, why, &violated)) return std::nullopt;
    if (violated.empty()) return BasisAnswer{true, std::move(out_.model), {}};
    constexpr std::size_t kSingleTries = 8;  // each costs a solve with the basis
    for (std::size_t k = 0; k <= std::min(violated.size(), kSingleTries); ++k) {
        if (k == 1 && violated.size() == 1) break;
        std::span<const Violation> tried =
            k == 0 ? std::span<const Violation>(violated) : std::span(&violated[k - 1], 1);
        out_.farkas.clear();
        if (!dual(infeasibility_cost(tried), stop, why)) continue;
        add_violated_bounds(tried);
        return BasisAnswer{false, {}, std::move(out_.farkas)};
    }
    why = "the basis proves neither feasibility nor infeasibility";
    return std::nullopt;
}

}  // namespace

std::optional<BasisAnswer> decide_by_basis(const Problem& problem, const LpForm& lp,
                                           const Basis& basis, util::Stop* stop, std::string& why) {
    return BasisCheck(problem, lp, basis).decide(stop, why);
}

std::optional<BasisOptimum> check_basis(const Problem& problem, std::uint32_t objective,
                                        const LpForm& lp, const Basis& basis, util::Stop* stop,
                                        std::string& why) {
    return BasisCheck(problem, lp, basis).run(objective, stop, why);
}

}  // namespace vorn::smt
