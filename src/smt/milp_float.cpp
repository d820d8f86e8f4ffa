// Branch and bound: a node's relaxation solved in floating point first (CLP's dual simplex,
// warm-started from the node before), closed by an exact safe bound where that solve shows it
// cannot beat the incumbent or is infeasible (Neumaier, Shcherbina; Cook, Koch, Steffy, Wolter).
// CLP's row duals y, each double taken exactly as a rational, give the identity
//   objective = Σ y_r·s_r + Σ d_j·x_j,   d = c − Aᵀy (exact),
// over the slacks s_r of the simplex's rows and its structural columns x_j; each term at the
// bound its sign points to bounds the objective, and where that bound passes the incumbent's,
// those bounds weighted by |y_r| and |d_j| with the incumbent's bound are a Farkas conflict: the
// node's leaf, as the exact simplex would have given it, without an exact pivot. Infeasible
// nodes the same way from CLP's Farkas ray, without the objective. A row without the bound its
// multiplier needs is dropped (its y taken as 0: d absorbs it); a column without one makes the
// bound fail, and so does anything CLP does not prove: the exact node LP then runs as before.

#include <ClpSimplex.hpp>
#include <CoinFinite.hpp>
#include <CoinPackedMatrix.hpp>

#include <gmp.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "../numbers/gmp_holder.h"
#include "clp_stop.h"
#include "float_start.h"
#include "milp_search.h"

namespace vorn::smt {

// The node relaxation in CLP: a column per structural simplex variable, a row per slack but the
// objective's, whose bounds are set from the simplex's at each node. CLP keeps its basis from
// one node to the next.
class FloatNodeLp {
  public:
    ClpSimplex model;
    std::vector<int> columns;    // simplex variable by CLP column
    std::vector<int> rows;       // slack by CLP row
    std::vector<int> column_of;  // CLP column by simplex variable (−1: a slack)
    int variables = 0;           // the simplex's, when built: rows made later are not here
};

namespace {

// A dual as a rational: the fraction of least denominator (up to 2^20, by continued fractions)
// within 1e-12 of it, else the double itself. The duals of an exact vertex are such fractions
// more often than not; taken so, the reduced costs of the basic columns come out exactly 0 and
// leave the leaf, and the certificate's numbers stay short.
QNumber exact(double value) {
    std::int64_t p0 = 0, q0 = 1, p1 = 1, q1 = 0;
    double x = value, tolerance = 1e-12 * std::max(1.0, std::fabs(value));
    for (int step = 0; step < 40 && std::fabs(x) < 1e15; ++step) {
        double whole = std::floor(x);
        auto a = static_cast<std::int64_t>(whole);
        std::int64_t p = a * p1 + p0, q = a * q1 + q0;
        if (q > (std::int64_t{1} << 20)) break;
        if (std::fabs(value - static_cast<double>(p) / static_cast<double>(q)) <= tolerance)
            return QNumber(p, q);
        p0 = p1, q0 = q1, p1 = p, q1 = q;
        if (x == whole) break;
        x = 1 / (x - whole);
    }
    detail::LocalMpq q;
    mpq_set_d(q.get(), value);
    return QNumber(q.get());
}

QNumber magnitude(const QNumber& q) {
    return q.sign() < 0 ? -q : q;
}

void set_bounds(const lra::BoundTrail& bounds, int var, double& lower, double& upper) {
    lower = bounds.has_lower(var) ? to_double(bounds.lower_value(var).real()) : -COIN_DBL_MAX;
    upper = bounds.has_upper(var) ? to_double(bounds.upper_value(var).real()) : COIN_DBL_MAX;
}

}  // namespace

// The objective's simplex variable over the structural ones: its slack's term, or itself.
std::vector<la::Equation::VarCoeff> MilpSearch::objective_entries() const {
    int o = objective_var_->var;
    if (!simplex_.is_slack(o)) return {{o, QNumber(1)}};
    auto term = simplex_.slack_term(o);
    return {term.begin(), term.end()};
}

void MilpSearch::build_float_lp() {
    auto lp = std::make_shared<FloatNodeLp>();
    int n = simplex_.num_variables();
    int o = objective_var_->var;
    lp->variables = n;
    lp->column_of.assign(static_cast<std::size_t>(n) + 1, -1);
    for (int v = 1; v <= n; ++v)
        if (!simplex_.is_slack(v)) {
            lp->column_of[static_cast<std::size_t>(v)] = static_cast<int>(lp->columns.size());
            lp->columns.push_back(v);
        } else if (v != o) {
            lp->rows.push_back(v);
        }
    std::vector<int> row_index, column_index;
    std::vector<double> elements;
    for (std::size_t r = 0; r < lp->rows.size(); ++r)
        for (const auto& e : simplex_.slack_term(lp->rows[r])) {
            row_index.push_back(static_cast<int>(r));
            column_index.push_back(lp->column_of[static_cast<std::size_t>(e.var)]);
            elements.push_back(to_double(e.coeff));
        }
    auto m = static_cast<int>(lp->rows.size());
    auto columns = static_cast<int>(lp->columns.size());
    CoinPackedMatrix matrix(true, row_index.data(), column_index.data(), elements.data(),
                            static_cast<CoinBigIndex>(elements.size()));
    matrix.setDimensions(m, columns);
    std::vector<double> cost(lp->columns.size()), free_low(cost.size(), -COIN_DBL_MAX),
        free_up(cost.size(), COIN_DBL_MAX), row_low(lp->rows.size(), -COIN_DBL_MAX),
        row_up(lp->rows.size(), COIN_DBL_MAX);
    double sign = float_least_ ? 1 : -1;
    for (const auto& e : objective_entries())
        cost[static_cast<std::size_t>(lp->column_of[static_cast<std::size_t>(e.var)])] =
            sign * to_double(e.coeff);
    lp->model.setSpecialOptions(lp->model.specialOptions() | 32);  // keep the Farkas ray
    lp->model.setLogLevel(0);
    lp->model.messageHandler()->setLogLevel(0);
    // Node and strong-branching solves end with the search's time limit or interrupt.
    ClpStop events(options_.stop);
    lp->model.passInEventHandler(&events);
    lp->model.loadProblem(matrix, free_low.data(), free_up.data(), cost.data(), row_low.data(),
                          row_up.data());
    float_lp_ = std::move(lp);
}

// The exact side: the identity from multipliers y (by CLP row, each times `sign`), its bound,
// and the conflict. With the objective: the bound must pass the incumbent's; without (a ray):
// 0 itself.
bool MilpSearch::safe_bound_conflict(const double* y, double sign, bool with_objective,
                                     std::vector<lra::Explanation>& conflict) const {
    const FloatNodeLp& lp = *float_lp_;
    const lra::BoundTrail& bounds = simplex_.bounds();
    int o = objective_var_->var;
    conflict.clear();
    std::vector<QNumber> d(lp.columns.size());
    lra::DeltaRational cap;
    if (with_objective) {
        if (float_least_ ? !bounds.has_upper(o) : !bounds.has_lower(o)) return false;
        const lra::BoundRecord& b = float_least_ ? bounds.upper(o) : bounds.lower(o);
        conflict.push_back({b.reason, b.caller_upper, QNumber(1) / b.caller_scale});
        cap = b.value;
        if (!float_least_) cap *= QNumber(-1);
        for (const auto& e : objective_entries())
            d[static_cast<std::size_t>(lp.column_of[static_cast<std::size_t>(e.var)])] =
                float_least_ ? e.coeff : -e.coeff;
    }
    lra::DeltaRational reached;
    auto add = [&](int var, const QNumber& coeff) {
        const lra::BoundRecord& b = coeff.sign() < 0 ? bounds.upper(var) : bounds.lower(var);
        conflict.push_back({b.reason, b.caller_upper, magnitude(coeff) / b.caller_scale});
        lra::DeltaRational term = b.value;
        term *= coeff;
        reached += term;
    };
    std::vector<std::pair<int, QNumber>> used;  // slack, multiplier
    for (std::size_t r = 0; r < lp.rows.size(); ++r) {
        double yr = sign * y[r];
        int s = lp.rows[r];
        if (std::isfinite(yr) && std::fabs(yr) >= 1e-12 &&
            (yr < 0 ? bounds.has_upper(s) : bounds.has_lower(s)))
            used.emplace_back(s, exact(yr));
    }
    // An objective of one column, free in CLP's LP: y scaled so that its reduced cost is exactly
    // 0, for the bound to be on the objective alone.
    if (with_objective && !simplex_.is_slack(o)) {
        QNumber total;
        for (const auto& [s, q] : used)
            for (const auto& e : simplex_.slack_term(s))
                if (e.var == o) total += q * e.coeff;
        if (total.sign() != (float_least_ ? 1 : -1)) return false;
        QNumber scale = QNumber(float_least_ ? 1 : -1) / total;
        for (auto& entry : used)
            entry.second *= scale;
    }
    for (const auto& [s, q] : used) {
        add(s, q);
        for (const auto& e : simplex_.slack_term(s))
            d[static_cast<std::size_t>(lp.column_of[static_cast<std::size_t>(e.var)])] -=
                q * e.coeff;
    }
    for (std::size_t j = 0; j < d.size(); ++j) {
        if (d[j].is_zero()) continue;
        int v = lp.columns[j];
        if (d[j].sign() < 0 ? !bounds.has_upper(v) : !bounds.has_lower(v)) return false;
        add(v, d[j]);
    }
    return cap < reached;
}

// The node (its path and the incumbent's bound asserted) closed by a safe bound from CLP's
// solve of its relaxation; false where that does not prove it, for the exact LP to decide.
bool MilpSearch::close_by_float_bound(std::size_t node) {
    float_node_value_.reset();
    for (std::size_t n : path_)
        if (!nodes_[n].term.empty()) return false;  // its row is not in CLP's LP
    // Built after the root, which adds its cuts' rows; made again if rows were added since.
    if (node == 0) return false;
    if (!float_lp_ || simplex_.num_variables() != float_lp_->variables) {
        float_least_ = maximize_ == (objective_var_->scale.sign() < 0);
        build_float_lp();
    }
    // Where CLP's solves close almost nothing (bell5 of MIPLIB 3), they only cost time. Counted
    // from the first incumbent on: before it only infeasible nodes close, and the stop came
    // before the first incumbent on lseu (5 of its nodes closed by CLP instead of 904).
    if (float_solves_ >= 200 && float_closed_ * 20 < float_solves_) return false;
    if (has_incumbent_) ++float_solves_;
    FloatNodeLp& lp = *float_lp_;
    const lra::BoundTrail& bounds = simplex_.bounds();
    double lower = 0, upper = 0;
    for (std::size_t j = 0; j < lp.columns.size(); ++j) {
        set_bounds(bounds, lp.columns[j], lower, upper);
        if (lp.columns[j] == objective_var_->var) lower = -COIN_DBL_MAX, upper = COIN_DBL_MAX;
        lp.model.setColumnBounds(static_cast<int>(j), lower, upper);
    }
    for (std::size_t r = 0; r < lp.rows.size(); ++r) {
        set_bounds(bounds, lp.rows[r], lower, upper);
        lp.model.setRowBounds(static_cast<int>(r), lower, upper);
    }
    lp.model.dual(0);
    std::vector<lra::Explanation> conflict;
    bool closed = false;
    int o = objective_var_->var;
    bool capped = float_least_ ? bounds.has_upper(o) : bounds.has_lower(o);
    float_cap_ = !capped ? COIN_DBL_MAX
                         : to_double(float_least_ ? bounds.upper_value(o).real()
                                                  : -bounds.lower_value(o).real());
    if (lp.model.isProvenOptimal()) {
        // Only where CLP's optimum is at the incumbent's bound or past it.
        if (lp.model.objectiveValue() < float_cap_ - 1e-7 * (1 + std::fabs(float_cap_))) {
            float_node_value_ = lp.model.objectiveValue();
            return false;
        }
        if (!capped) return false;
        closed = safe_bound_conflict(lp.model.dualRowSolution(), 1, true, conflict);
    } else if (lp.model.isProvenPrimalInfeasible()) {
        double* ray = lp.model.infeasibilityRay();
        if (ray == nullptr) return false;
        closed = safe_bound_conflict(ray, 1, false, conflict) ||
                 safe_bound_conflict(ray, -1, false, conflict);
        delete[] ray;
    }
    if (!closed) return false;
    ++float_closed_;
    close_with_conflict(node, conflict);
    return true;
}

// Strong branching measured in floating point: how far the child (var ≤ below, or ≥ below + 1
// when `high`) moves the node's relaxation optimum by CLP, in the objective's units, minimizing;
// +∞ where CLP finds the child infeasible or unable to beat the incumbent. Nothing where the node
// was not solved so or CLP does not answer. It only guides branching: no bound comes of it.
std::optional<double> MilpSearch::float_child_change(int var, const QNumber& below, bool high) {
    if (!float_node_value_) return std::nullopt;
    FloatNodeLp& lp = *float_lp_;
    int j = lp.column_of[static_cast<std::size_t>(var)];
    if (j < 0) return std::nullopt;
    double lower = lp.model.columnLower()[j], upper = lp.model.columnUpper()[j];
    double b = to_double(below);
    lp.model.setColumnBounds(j, high ? b + 1 : lower, high ? upper : b);
    lp.model.dual(0);
    std::optional<double> change;
    if (lp.model.isProvenPrimalInfeasible())
        change = std::numeric_limits<double>::infinity();
    else if (lp.model.isProvenOptimal())
        change = lp.model.objectiveValue() >= float_cap_
                     ? std::numeric_limits<double>::infinity()
                     : std::max(0.0, lp.model.objectiveValue() - *float_node_value_) *
                           std::fabs(to_double(objective_var_->scale));
    lp.model.setColumnBounds(j, lower, upper);
    return change;
}

}  // namespace vorn::smt
