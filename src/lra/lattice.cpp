#include "vorn/lra/lattice.h"

#include <gmp.h>

#include <utility>
#include <vector>

#include "../numbers/gmp_holder.h"

namespace vorn::lra {

namespace {

// An mpz_t that cleans up after itself and moves, so that it can live in vectors.
class Int {
  public:
    Int() { mpz_init(z_); }
    Int(const Int& other) { mpz_init_set(z_, other.z_); }
    Int(Int&& other) noexcept : Int() { mpz_swap(z_, other.z_); }
    Int& operator=(Int other) noexcept {
        mpz_swap(z_, other.z_);
        return *this;
    }
    ~Int() { mpz_clear(z_); }

    mpz_ptr get() { return z_; }
    mpz_srcptr get() const { return z_; }
    int sign() const { return mpz_sgn(z_); }
    QNumber to_qnumber() const {
        detail::LocalMpq q;
        mpq_set_z(q.get(), z_);
        return QNumber(q.get());
    }

  private:
    mpz_t z_;
};

using Matrix = std::vector<std::vector<Int>>;  // by row

QNumber dot(const std::vector<QNumber>& a, const std::vector<QNumber>& b) {
    QNumber sum;
    for (std::size_t j = 0; j < a.size(); ++j)
        if (!a[j].is_zero() && !b[j].is_zero()) sum.add_product(a[j], b[j]);
    return sum;
}

// The integer nearest to q (halves up).
QNumber nearest(const QNumber& q) {
    detail::LocalMpq r;
    q.get_mpq(r.get());
    Int twice_num, den;
    mpz_mul_2exp(twice_num.get(), mpq_numref(r.get()), 1);
    mpz_add(twice_num.get(), twice_num.get(), mpq_denref(r.get()));
    mpz_mul_2exp(den.get(), mpq_denref(r.get()), 1);
    mpz_fdiv_q(twice_num.get(), twice_num.get(), den.get());
    return twice_num.to_qnumber();
}

void subtract_multiple(std::vector<QNumber>& a, const QNumber& q, const std::vector<QNumber>& b) {
    for (std::size_t j = 0; j < a.size(); ++j)
        if (!b[j].is_zero()) a[j].add_product(-q, b[j]);
}

// LLL reduction (δ = 3/4, exact Gram–Schmidt data, Cohen's algorithm 2.6.3) of the kernel basis,
// then x0 moved to the nearest plane of it. The column operations leave both with entries that
// grow with every reduction; a search over the parameters needs short vectors, and a model
// near the origin is kinder to later checks.
// `left`, when given, is kept a left inverse of the basis (its rows follow the inverse steps).
void reduce(std::vector<std::vector<QNumber>>& b, std::vector<QNumber>& x0,
            std::vector<std::vector<QNumber>>* left) {
    const std::size_t k_max = b.size();
    if (k_max == 0) return;
    std::vector<std::vector<QNumber>> mu(k_max, std::vector<QNumber>(k_max));
    std::vector<QNumber> big_b(k_max);
    std::vector<std::vector<QNumber>> star = b;
    for (std::size_t i = 0; i < k_max; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            mu[i][j] = dot(b[i], star[j]) / big_b[j];
            subtract_multiple(star[i], mu[i][j], star[j]);
        }
        big_b[i] = dot(star[i], star[i]);
    }
    const QNumber half(1, 2), delta(3, 4);
    auto size_reduce = [&](std::size_t k, std::size_t l) {
        QNumber m = mu[k][l];
        if (m.sign() < 0) m = -m;
        if (!(half < m)) return;
        QNumber q = nearest(mu[k][l]);
        subtract_multiple(b[k], q, b[l]);
        if (left != nullptr) subtract_multiple((*left)[l], -q, (*left)[k]);
        mu[k][l] -= q;
        for (std::size_t i = 0; i < l; ++i)
            mu[k][i].add_product(-q, mu[l][i]);
    };
    std::size_t k = 1;
    while (k < k_max) {
        size_reduce(k, k - 1);
        if (big_b[k] < (delta - mu[k][k - 1] * mu[k][k - 1]) * big_b[k - 1]) {
            QNumber m = mu[k][k - 1];
            QNumber bb = big_b[k] + m * m * big_b[k - 1];
            mu[k][k - 1] = m * big_b[k - 1] / bb;
            big_b[k] = big_b[k - 1] * big_b[k] / bb;
            big_b[k - 1] = bb;
            std::swap(b[k], b[k - 1]);
            if (left != nullptr) std::swap((*left)[k], (*left)[k - 1]);
            for (std::size_t j = 0; j + 1 < k; ++j)
                std::swap(mu[k][j], mu[k - 1][j]);
            for (std::size_t i = k + 1; i < k_max; ++i) {
                QNumber t = mu[i][k];
                mu[i][k] = mu[i][k - 1] - m * t;
                mu[i][k - 1] = t + mu[k][k - 1] * mu[i][k];
            }
            if (k > 1) --k;
        } else {
            for (std::size_t l = k - 1; l-- > 0;)
                size_reduce(k, l);
            ++k;
        }
    }
    // Nearest plane: the Gram–Schmidt vectors of the reduced basis, afresh.
    star = b;
    for (std::size_t i = 0; i < k_max; ++i) {
        for (std::size_t j = 0; j < i; ++j)
            subtract_multiple(star[i], dot(b[i], star[j]) / big_b[j], star[j]);
        big_b[i] = dot(star[i], star[i]);
    }
    for (std::size_t j = k_max; j-- > 0;) {
        QNumber q = nearest(dot(x0, star[j]) / big_b[j]);
        if (!q.is_zero()) subtract_multiple(x0, q, b[j]);
    }
}

class Solver {
  public:
    Solver(const std::vector<std::vector<QNumber>>& rows, const std::vector<QNumber>& rhs,
           std::size_t columns)
        : m_(rows.size()), n_(columns), a_(m_), b_(m_), scale_(m_), u_(n_) {
        for (std::size_t i = 0; i < m_; ++i)
            scale_row(rows[i], rhs[i], i);
        for (std::size_t j = 0; j < n_; ++j) {
            u_[j].resize(n_);
            mpz_set_ui(u_[j][j].get(), 1);
        }
    }

    LatticeAnswer run();
    LatticeOptions options_;
    Matrix inverse_;  // by row of U⁻¹, with options_.coordinates

  private:
    void scale_row(const std::vector<QNumber>& row, const QNumber& rhs, std::size_t i);
    // Reduces row i over the free columns to one non-zero entry, moved to column r_; false when
    // the row has none left.
    bool make_pivot(std::size_t i);
    // col[to] -= q · col[from], in A (rows from `first` on) and in U.
    void subtract_column(std::size_t to, std::size_t from, const Int& q, std::size_t first);
    void swap_columns(std::size_t c, std::size_t d);
    void negate_column(std::size_t c);
    // y over the pivot rows with y·H = target on the pivot columns (H lower triangular there),
    // plus `extra` at row `extra_row`.
    std::vector<QNumber> multipliers(std::vector<QNumber> target, std::size_t extra_row,
                                     bool modulo_one);

    std::size_t m_, n_;
    Matrix a_;  // A·U so far, rows scaled to integers
    std::vector<Int> b_;
    std::vector<QNumber> scale_;
    Matrix u_;  // by row of U
    std::vector<std::size_t> pivot_rows_;
    std::vector<Int> w_;  // solution on the pivot columns
    std::size_t r_ = 0;   // pivots so far
};

void Solver::scale_row(const std::vector<QNumber>& row, const QNumber& rhs, std::size_t i) {
    Int lcm;
    mpz_set_ui(lcm.get(), 1);
    detail::LocalMpq scratch;
    mpq_ptr q = scratch.get();
    auto each = [&](const QNumber& v, auto&& f) {
        v.get_mpq(q);
        f();
    };
    for (std::size_t j = 0; j <= n_; ++j)
        each(j < n_ ? row[j] : rhs, [&] { mpz_lcm(lcm.get(), lcm.get(), mpq_denref(q)); });
    a_[i].resize(n_);
    for (std::size_t j = 0; j <= n_; ++j) {
        Int& out = j < n_ ? a_[i][j] : b_[i];
        each(j < n_ ? row[j] : rhs, [&] {
            mpz_divexact(out.get(), lcm.get(), mpq_denref(q));
            mpz_mul(out.get(), out.get(), mpq_numref(q));
        });
    }
    scale_[i] = lcm.to_qnumber();
}

void Solver::subtract_column(std::size_t to, std::size_t from, const Int& q, std::size_t first) {
    for (std::size_t i = first; i < m_; ++i)
        mpz_submul(a_[i][to].get(), q.get(), a_[i][from].get());
    for (std::size_t i = 0; i < n_; ++i)
        mpz_submul(u_[i][to].get(), q.get(), u_[i][from].get());
    if (!inverse_.empty())  // U·(I − q·e_from·e_toᵀ) has the inverse (I + q·e_from·e_toᵀ)·U⁻¹
        for (std::size_t j = 0; j < n_; ++j)
            mpz_addmul(inverse_[from][j].get(), q.get(), inverse_[to][j].get());
}

void Solver::swap_columns(std::size_t c, std::size_t d) {
    if (c == d) return;
    for (auto& row : a_)
        mpz_swap(row[c].get(), row[d].get());
    for (auto& row : u_)
        mpz_swap(row[c].get(), row[d].get());
    if (!inverse_.empty()) std::swap(inverse_[c], inverse_[d]);
}

void Solver::negate_column(std::size_t c) {
    for (auto& row : a_)
        mpz_neg(row[c].get(), row[c].get());
    for (auto& row : u_)
        mpz_neg(row[c].get(), row[c].get());
    if (!inverse_.empty())
        for (Int& x : inverse_[c])
            mpz_neg(x.get(), x.get());
}

bool Solver::make_pivot(std::size_t i) {
    std::vector<Int>& row = a_[i];
    Int q;
    for (;;) {
        // The smallest non-zero entry reduces the others (Euclid on the whole row).
        std::size_t p = n_;
        for (std::size_t j = r_; j < n_; ++j)
            if (row[j].sign() != 0 && (p == n_ || mpz_cmpabs(row[j].get(), row[p].get()) < 0))
                p = j;
        if (p == n_) return false;
        bool alone = true;
        for (std::size_t j = r_; j < n_; ++j) {
            if (j == p || row[j].sign() == 0) continue;
            mpz_fdiv_q(q.get(), row[j].get(), row[p].get());
            subtract_column(j, p, q, i);
            alone = alone && row[j].sign() == 0;
        }
        if (alone) {
            swap_columns(r_, p);
            if (row[r_].sign() < 0) negate_column(r_);
            return true;
        }
    }
}

// With `modulo_one`, each multiplier of a scaled row is reduced to its fractional part: adding an
// integer vector z to y keeps y·A integral and changes y·b by the integer z·b, so the refutation
// holds with far smaller numbers than the back substitution leaves.
std::vector<QNumber> Solver::multipliers(std::vector<QNumber> target, std::size_t extra_row,
                                         bool modulo_one) {
    std::vector<QNumber> y(m_);
    std::vector<QNumber> yp(target.size());
    for (std::size_t a = target.size(); a-- > 0;) {
        QNumber sum = target[a];
        for (std::size_t t = a + 1; t < target.size(); ++t)
            if (!yp[t].is_zero()) sum -= yp[t] * a_[pivot_rows_[t]][a].to_qnumber();
        yp[a] = sum / a_[pivot_rows_[a]][a].to_qnumber();
    }
    for (std::size_t t = 0; t < target.size(); ++t)
        y[pivot_rows_[t]] = yp[t];
    if (extra_row < m_) y[extra_row] = QNumber(1);
    detail::LocalMpq q;
    Int whole;
    for (std::size_t i = 0; i < m_; ++i) {
        if (modulo_one) {
            y[i].get_mpq(q.get());
            mpz_fdiv_q(whole.get(), mpq_numref(q.get()), mpq_denref(q.get()));
            y[i] -= whole.to_qnumber();
        }
        // Back to the rows as given: row i was scaled by scale_[i].
        y[i] *= scale_[i];
    }
    return y;
}

LatticeAnswer Solver::run() {
    LatticeAnswer out;
    Int residual, rem;
    for (std::size_t i = 0; i < m_; ++i) {
        mpz_set(residual.get(), b_[i].get());
        for (std::size_t t = 0; t < r_; ++t)
            mpz_submul(residual.get(), a_[i][t].get(), w_[t].get());
        if (!make_pivot(i)) {
            if (residual.sign() == 0) continue;  // a combination of the rows before
            // y·A = 0 with y = e_i − (the pivot rows' share), y·b = residual.
            std::vector<QNumber> target(r_);
            for (std::size_t t = 0; t < r_; ++t)
                target[t] = -a_[i][t].to_qnumber();
            out.kind = LatticeAnswer::Kind::NoRationalSolution;
            out.multipliers = multipliers(std::move(target), i, false);
            return out;
        }
        pivot_rows_.push_back(i);
        mpz_fdiv_r(rem.get(), residual.get(), a_[i][r_].get());
        if (rem.sign() != 0) {
            std::vector<QNumber> target(r_ + 1);
            target[r_] = QNumber(1);
            out.kind = LatticeAnswer::Kind::NoIntegerSolution;
            out.multipliers = multipliers(std::move(target), m_, true);
            return out;
        }
        w_.emplace_back();
        mpz_divexact(w_.back().get(), residual.get(), a_[i][r_].get());
        ++r_;
    }
    out.particular.resize(n_);
    Int x;
    for (std::size_t j = 0; j < n_; ++j) {
        mpz_set_ui(x.get(), 0);
        for (std::size_t t = 0; t < r_; ++t)
            mpz_addmul(x.get(), u_[j][t].get(), w_[t].get());
        out.particular[j] = x.to_qnumber();
    }
    for (std::size_t c = r_; c < n_; ++c) {
        out.kernel.emplace_back(n_);
        for (std::size_t j = 0; j < n_; ++j)
            out.kernel.back()[j] = u_[j][c].to_qnumber();
    }
    if (options_.coordinates)
        for (std::size_t c = r_; c < n_; ++c) {
            out.coordinates.emplace_back(n_);
            for (std::size_t j = 0; j < n_; ++j)
                out.coordinates.back()[j] = inverse_[c][j].to_qnumber();
        }
    if (options_.reduce_basis)
        reduce(out.kernel, out.particular, options_.coordinates ? &out.coordinates : nullptr);
    return out;
}

}  // namespace

LatticeAnswer solve_over_integers(const std::vector<std::vector<QNumber>>& rows,
                                  const std::vector<QNumber>& rhs, std::size_t columns,
                                  bool reduce_basis) {
    LatticeOptions options;
    options.reduce_basis = reduce_basis;
    return solve_over_integers(rows, rhs, columns, options);
}

LatticeAnswer solve_over_integers(const std::vector<std::vector<QNumber>>& rows,
                                  const std::vector<QNumber>& rhs, std::size_t columns,
                                  const LatticeOptions& options) {
    Solver solver(rows, rhs, columns);
    solver.options_ = options;
    if (options.coordinates) {
        solver.inverse_.assign(columns, std::vector<Int>(columns));
        for (std::size_t j = 0; j < columns; ++j)
            mpz_set_ui(solver.inverse_[j][j].get(), 1);
    }
    return solver.run();
}

LatticeAnswer solve_sparse_over_integers(const SparseRows& rows, const std::vector<QNumber>& rhs,
                                         std::size_t columns, const LatticeOptions& options) {
    std::vector<std::vector<QNumber>> dense(rows.size(), std::vector<QNumber>(columns));
    for (std::size_t r = 0; r < rows.size(); ++r)
        for (const auto& [c, a] : rows[r])
            dense[r][c] = a;
    LatticeAnswer answer = solve_over_integers(dense, rhs, columns, options);
    if (answer.kind != LatticeAnswer::Kind::NoIntegerSolution) return answer;
    answer.refuting_term.assign(columns, QNumber());
    for (std::size_t r = 0; r < rows.size(); ++r) {
        const QNumber& y = answer.multipliers[r];
        if (y.is_zero()) continue;
        for (const auto& [c, a] : rows[r])
            answer.refuting_term[c] += y * a;
        answer.refuting_constant += y * rhs[r];
    }
    return answer;
}

}  // namespace vorn::lra
