// The floating-point side of the start: the LP handed to COIN-OR CLP in double precision, and its
// optimal basis read back. Only this file sees CLP.

#include <gmp.h>
#include <ClpSimplex.hpp>
#include <ClpSolve.hpp>
#include <CoinFinite.hpp>
#include <CoinPackedMatrix.hpp>

#include <cmath>

#include "clp_stop.h"
#include "float_start.h"

namespace vorn::smt {

double to_double(const QNumber& value) {
    if (!value.is_big())
        return static_cast<double>(value.num_word()) / static_cast<double>(value.den_word());
    return mpq_get_d(value.big_block());
}

namespace {

template <typename B>
double bound_value(const std::optional<B>& bound, double infinite) {
    if (!bound) return infinite;
    if constexpr (std::is_same_v<B, QNumber>)
        return to_double(*bound);
    else
        return to_double(bound->value);
}

// Which bound a non-basic value sits at, whatever CLP's status says (its convention for rows
// differs between interfaces): the nearer one.
char nearer_upper(double value, double lower, double upper) {
    if (upper >= COIN_DBL_MAX) return 0;
    if (lower <= -COIN_DBL_MAX) return 1;
    return std::fabs(value - upper) < std::fabs(value - lower) ? 1 : 0;
}

}  // namespace

std::optional<Basis> float_basis(const Problem& problem, const LpForm& lp, util::Stop* stop,
                                 bool infeasible_too) {
    int n = static_cast<int>(lp.columns.size()) - 1;
    int m = static_cast<int>(lp.rows.size());
    std::vector<int> row_index, column_index;
    std::vector<double> elements;
    for (int r = 0; r < m; ++r)
        for (const LinearExpr::Entry& e :
             problem.term(problem.atoms[lp.rows[static_cast<std::size_t>(r)].atom].first_term))
            if (e.var != 0) {
                row_index.push_back(r);
                column_index.push_back(e.var - 1);
                elements.push_back(to_double(e.coeff));
            }
    CoinPackedMatrix matrix(true, row_index.data(), column_index.data(), elements.data(),
                            static_cast<CoinBigIndex>(elements.size()));
    matrix.setDimensions(m, n);
    std::vector<double> col_lower(static_cast<std::size_t>(n)), col_upper(col_lower.size()),
        cost(col_lower.size()), row_lower(static_cast<std::size_t>(m)), row_upper(row_lower.size());
    for (int v = 1; v <= n; ++v) {
        const LpForm::Column& c = lp.columns[static_cast<std::size_t>(v)];
        col_lower[static_cast<std::size_t>(v - 1)] = bound_value(c.lower, -COIN_DBL_MAX);
        col_upper[static_cast<std::size_t>(v - 1)] = bound_value(c.upper, COIN_DBL_MAX);
        cost[static_cast<std::size_t>(v - 1)] = to_double(lp.cost[static_cast<std::size_t>(v)]);
    }
    for (int r = 0; r < m; ++r) {
        const LpForm::Row& row = lp.rows[static_cast<std::size_t>(r)];
        row_lower[static_cast<std::size_t>(r)] = bound_value(row.lower, -COIN_DBL_MAX);
        row_upper[static_cast<std::size_t>(r)] = bound_value(row.upper, COIN_DBL_MAX);
    }

    // Presolve makes the solve fast, but an infeasible presolved problem has no basis of the
    // original one to give back: then a second solve without it.
    ClpSimplex model;
    auto solve = [&](bool presolve) {
        model.setLogLevel(0);
        model.messageHandler()->setLogLevel(0);
        model.loadProblem(matrix, col_lower.data(), col_upper.data(), cost.data(), row_lower.data(),
                          row_upper.data());
        ClpStop events(stop);
        model.passInEventHandler(&events);
        ClpSolve options;
        options.setSolveType(ClpSolve::useDual);
        options.setPresolveType(presolve ? ClpSolve::presolveOn : ClpSolve::presolveOff);
        model.initialSolve(options);
    };
    solve(true);
    if (!model.isProvenOptimal()) {
        if (!infeasible_too || !model.isProvenPrimalInfeasible()) return std::nullopt;
        solve(false);
        if (!model.isProvenPrimalInfeasible() && !model.isProvenOptimal()) return std::nullopt;
    }

    Basis basis;
    basis.column_basic.assign(static_cast<std::size_t>(n) + 1, 0);
    basis.column_at_upper.assign(basis.column_basic.size(), 0);
    basis.row_basic.assign(static_cast<std::size_t>(m), 0);
    basis.row_at_upper.assign(basis.row_basic.size(), 0);
    const double* x = model.primalColumnSolution();
    const double* activity = model.primalRowSolution();
    for (int v = 1; v <= n; ++v) {
        auto j = static_cast<std::size_t>(v - 1);
        basis.column_basic[j + 1] = model.getColumnStatus(v - 1) == ClpSimplex::basic;
        basis.column_at_upper[j + 1] = nearer_upper(x[j], col_lower[j], col_upper[j]);
    }
    for (int r = 0; r < m; ++r) {
        auto i = static_cast<std::size_t>(r);
        basis.row_basic[i] = model.getRowStatus(r) == ClpSimplex::basic;
        basis.row_at_upper[i] = nearer_upper(activity[i], row_lower[i], row_upper[i]);
    }
    return basis;
}

}  // namespace vorn::smt
