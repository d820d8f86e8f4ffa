// Integer solutions of A·x = b. Every answer proves itself: a solution satisfies the system, a
// refutation's multipliers make y·A integral (zero) and y·b not (non-zero). The kernel basis is
// checked for completeness against enumeration: every small integer kernel vector must be an
// integer combination of it; its coordinate rows must be integral and read its vectors' indices.
// Systems are built as A = U·D·A0 (U unimodular, D diagonal), so that their lattices are sparse and
// the gcd of no single row shows it.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

#include "vorn/lra/lattice.h"

using vorn::QNumber;
using vorn::lra::LatticeAnswer;
using vorn::lra::solve_over_integers;
using Matrix = std::vector<std::vector<QNumber>>;

namespace {

std::vector<QNumber> times(const Matrix& a, const std::vector<QNumber>& x) {
    std::vector<QNumber> out(a.size());
    for (std::size_t i = 0; i < a.size(); ++i)
        for (std::size_t j = 0; j < x.size(); ++j)
            out[i] += a[i][j] * x[j];
    return out;
}

// Solves c·basis = v over the rationals by elimination; false when v is outside their span.
bool coordinates(Matrix basis, std::vector<QNumber> v, std::vector<QNumber>& c) {
    std::size_t k = basis.size(), n = v.size();
    // Columns: the basis vectors; augmented with v.
    Matrix m(n, std::vector<QNumber>(k + 1));
    for (std::size_t j = 0; j < n; ++j) {
        for (std::size_t t = 0; t < k; ++t)
            m[j][t] = basis[t][j];
        m[j][k] = v[j];
    }
    std::vector<std::size_t> pivot_col;
    std::size_t row = 0;
    for (std::size_t col = 0; col < k && row < n; ++col) {
        std::size_t p = row;
        while (p < n && m[p][col].is_zero())
            ++p;
        if (p == n) continue;
        std::swap(m[p], m[row]);
        for (std::size_t r = 0; r < n; ++r) {
            if (r == row || m[r][col].is_zero()) continue;
            QNumber f = m[r][col] / m[row][col];
            for (std::size_t t = col; t <= k; ++t)
                m[r][t] -= f * m[row][t];
        }
        pivot_col.push_back(col);
        ++row;
    }
    for (std::size_t r = row; r < n; ++r)
        if (!m[r][k].is_zero()) return false;
    c.assign(k, QNumber());
    for (std::size_t r = 0; r < row; ++r)
        c[pivot_col[r]] = m[r][k] / m[r][pivot_col[r]];
    return true;
}

// Every x ∈ {-2..2}ⁿ with A·x = 0 must be an integer combination of the kernel basis.
::testing::AssertionResult kernel_complete(const Matrix& a, const LatticeAnswer& ans, int n) {
    std::vector<QNumber> x(n);
    std::vector<int> digits(n, -2);
    for (;;) {
        for (int j = 0; j < n; ++j)
            x[j] = QNumber(digits[j]);
        bool zero = true;
        for (const QNumber& v : times(a, x))
            zero = zero && v.is_zero();
        std::vector<QNumber> c;
        if (zero &&
            (!coordinates(ans.kernel, x, c) ||
             !std::all_of(c.begin(), c.end(), [](const QNumber& q) { return q.is_integer(); })))
            return ::testing::AssertionFailure() << "a kernel vector outside the basis' lattice";
        int j = 0;
        while (j < n && digits[j] == 2)
            digits[j++] = -2;
        if (j == n) return ::testing::AssertionSuccess();
        ++digits[j];
    }
}

// Whether b lies in the lattice A·Zⁿ, by a Hermite-style column echelon form built with Bezout
// steps (each replaces two columns by unimodular combinations that zero one entry), then
// forward substitution: the reference for membership, sharing nothing with the library. False
// in `ok` when an entry leaves 64 bits (the case is then skipped).
bool in_lattice(std::vector<std::vector<long>> a, std::vector<long> b, bool& ok) {
    std::size_t m = a.size(), n = m == 0 ? 0 : a[0].size(), r = 0;
    auto combine = [&](long p, long x, long q, long y) {  // p·x + q·y
        long px = 0, qy = 0, out = 0;
        ok = ok && !__builtin_mul_overflow(p, x, &px) && !__builtin_mul_overflow(q, y, &qy) &&
             !__builtin_add_overflow(px, qy, &out);
        return out;
    };
    std::vector<std::size_t> pivot_row;
    for (std::size_t i = 0; i < m && r < n; ++i) {
        for (std::size_t j = r + 1; j < n; ++j) {
            if (a[i][j] == 0) continue;
            // s·x + t·y = g for x = a[i][r], y = a[i][j] (extended Euclid).
            long x = a[i][r], y = a[i][j], s0 = 1, s1 = 0, t0 = 0, t1 = 1;
            while (y != 0) {
                long q = x / y;
                std::tie(x, y) = std::pair(y, x - q * y);
                std::tie(s0, s1) = std::pair(s1, s0 - q * s1);
                std::tie(t0, t1) = std::pair(t1, t0 - q * t1);
            }
            long u = a[i][r] / x, v = a[i][j] / x;  // s0·u + t0·v = 1
            for (std::size_t k = 0; k < m; ++k) {
                long cr = a[k][r], cj = a[k][j];
                a[k][r] = combine(s0, cr, t0, cj);
                a[k][j] = combine(-v, cr, u, cj);
            }
        }
        if (a[i][r] != 0) {
            pivot_row.push_back(i);
            ++r;
        }
    }
    for (std::size_t c = 0; c < r; ++c) {
        long p = a[pivot_row[c]][c];
        if (b[pivot_row[c]] % p != 0) return false;
        long w = b[pivot_row[c]] / p;
        for (std::size_t k = 0; k < m; ++k)
            b[k] = combine(1, b[k], -w, a[k][c]);
    }
    return std::all_of(b.begin(), b.end(), [](long v) { return v == 0; });
}

}  // namespace

// Random integer systems, not built to a plan, against the reference above.
TEST(Lattice, MembershipAgreesWithAnIndependentEchelonForm) {
    const unsigned base_seed = 9100;
    int members = 0, others = 0;
    for (unsigned seed = base_seed; seed < base_seed + 600; ++seed) {
        std::mt19937 rng(seed);
        auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
        int m = pick(1, 4), n = pick(1, 5), k = pick(1, 4);
        std::vector<std::vector<long>> a(m, std::vector<long>(n));
        for (auto& row : a)
            for (long& v : row)
                v = pick(-6, 6) * (pick(0, 2) == 0 ? k : 1);
        std::vector<long> b(m);
        std::vector<long> x(n);
        for (long& v : x)
            v = pick(-4, 4);
        for (int i = 0; i < m; ++i) {
            for (int j = 0; j < n; ++j)
                b[i] += a[i][j] * x[j];
            if (pick(0, 1) == 1) b[i] += pick(-3, 3);
        }
        bool ok = true;
        bool member = in_lattice(a, b, ok);
        if (!ok) continue;
        Matrix qa(m, std::vector<QNumber>(n));
        std::vector<QNumber> qb(m);
        for (int i = 0; i < m; ++i) {
            qb[i] = QNumber(b[i]);
            for (int j = 0; j < n; ++j)
                qa[i][j] = QNumber(a[i][j]);
        }
        LatticeAnswer ans = solve_over_integers(qa, qb, n, false);
        EXPECT_EQ(ans.kind == LatticeAnswer::Kind::Solutions, member) << "seed " << seed;
        ++(member ? members : others);
    }
    EXPECT_GT(members, 150);
    EXPECT_GT(others, 150);
}

TEST(Lattice, EveryAnswerProvesItselfAndTheKernelIsComplete) {
    const unsigned base_seed = 7100;
    int counts[3] = {0, 0, 0};
    for (unsigned seed = base_seed; seed < base_seed + 400; ++seed) {
        std::mt19937 rng(seed);
        auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
        int m = pick(1, 4), n = pick(1, 5);
        // A0 random small, D scales one row by k, U mixes rows by unimodular steps.
        Matrix a(m, std::vector<QNumber>(n));
        for (auto& row : a)
            for (auto& v : row)
                v = QNumber(pick(-3, 3));
        int k = pick(1, 4);
        for (auto& v : a[pick(0, m - 1)])
            v *= QNumber(k);
        for (int step = 0; step < 3 && m > 1; ++step) {
            int r = pick(0, m - 1), s = (r + 1 + pick(0, m - 2)) % m, f = pick(-2, 2);
            for (int j = 0; j < n; ++j)
                a[r][j] += QNumber(f) * a[s][j];
        }
        std::vector<QNumber> x(n);
        for (auto& v : x)
            v = QNumber(pick(-5, 5));
        std::vector<QNumber> b = times(a, x);
        if (pick(0, 1) == 1) b[pick(0, m - 1)] += QNumber(pick(1, 3), pick(1, 2));
        // Rational rows are scaled inside: divide a row and its right-hand side alike.
        if (pick(0, 3) == 0) {
            QNumber d(pick(2, 5));
            for (auto& v : a[0])
                v /= d;
            b[0] /= d;
        }
        SCOPED_TRACE("seed " + std::to_string(seed));
        vorn::lra::LatticeOptions options;
        options.reduce_basis = seed % 3 != 0;
        options.coordinates = seed % 2 == 0;
        LatticeAnswer ans = solve_over_integers(a, b, n, options);
        ++counts[static_cast<int>(ans.kind)];
        if (ans.kind == LatticeAnswer::Kind::Solutions) {
            EXPECT_EQ(times(a, ans.particular), b);
            for (const QNumber& v : ans.particular)
                EXPECT_TRUE(v.is_integer());
            for (const auto& kv : ans.kernel) {
                for (const QNumber& v : times(a, kv))
                    EXPECT_TRUE(v.is_zero());
                for (const QNumber& v : kv)
                    EXPECT_TRUE(v.is_integer());
            }
            EXPECT_TRUE(kernel_complete(a, ans, n));
            // The coordinates read the parameters: integral, and lₜ·kernel[s] = [s = t].
            EXPECT_EQ(ans.coordinates.size(), options.coordinates ? ans.kernel.size() : 0);
            for (std::size_t t = 0; t < ans.coordinates.size(); ++t) {
                for (const QNumber& v : ans.coordinates[t])
                    EXPECT_TRUE(v.is_integer());
                for (std::size_t s = 0; s < ans.kernel.size(); ++s) {
                    QNumber dot;
                    for (int j = 0; j < n; ++j)
                        dot += ans.coordinates[t][j] * ans.kernel[s][j];
                    EXPECT_EQ(dot, QNumber(s == t ? 1 : 0)) << "t " << t << " s " << s;
                }
            }
            continue;
        }
        QNumber yb;
        std::vector<QNumber> ya(n);
        for (int i = 0; i < m; ++i) {
            yb += ans.multipliers[i] * b[i];
            for (int j = 0; j < n; ++j)
                ya[j] += ans.multipliers[i] * a[i][j];
        }
        bool rational = ans.kind == LatticeAnswer::Kind::NoRationalSolution;
        for (const QNumber& v : ya)
            EXPECT_TRUE(rational ? v.is_zero() : v.is_integer());
        EXPECT_TRUE(rational ? !yb.is_zero() : !yb.is_integer());
    }
    EXPECT_GT(counts[0], 50);
    EXPECT_GT(counts[1], 50);
    EXPECT_GT(counts[2], 5);
}
