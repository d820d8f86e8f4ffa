#pragma once

// DeltaRational: an exact value c + k·δ, where δ is a positive infinitesimal.
//
// The simplex assigns these values so that a strict bound x < c becomes the ordinary bound
// x ≤ c − δ; comparison is lexicographic (real part first, then the δ part), which is the
// order of the values for every small enough δ > 0. Both parts are QNumbers, so the arithmetic
// is exact. Every operation works in place: the simplex updates values inside its arrays and
// never builds temporaries of big numbers on its hot paths.

#include <compare>
#include <string>

#include "vorn/numbers/qnumber.h"

namespace vorn::lra {

class DeltaRational {
  public:
    DeltaRational() = default;
    explicit DeltaRational(const QNumber& real, const QNumber& delta = QNumber())
        : real_(real), delta_(delta) {}

    const QNumber& real() const { return real_; }
    const QNumber& delta() const { return delta_; }
    bool is_zero() const { return real_.is_zero() && delta_.is_zero(); }

    // Sets both parts, keeping the storage of big parts.
    void assign(const QNumber& real, const QNumber& delta) {
        real_ = real;
        delta_ = delta;
    }
    void set_zero() { assign(QNumber(), QNumber()); }

    DeltaRational& operator+=(const DeltaRational& other) {
        real_ += other.real_;
        delta_ += other.delta_;
        return *this;
    }
    DeltaRational& operator-=(const DeltaRational& other) {
        real_ -= other.real_;
        delta_ -= other.delta_;
        return *this;
    }
    DeltaRational& operator*=(const QNumber& factor) {
        real_ *= factor;
        delta_ *= factor;
        return *this;
    }
    // `divisor` must not be zero.
    DeltaRational& operator/=(const QNumber& divisor) {
        real_ /= divisor;
        delta_ /= divisor;
        return *this;
    }
    // *this += factor · other: the step of every value update along a column.
    void add_product(const QNumber& factor, const DeltaRational& other) {
        real_.add_product(factor, other.real_);
        delta_.add_product(factor, other.delta_);
    }

    // The value at δ = `delta`: real + k·delta.
    QNumber at(const QNumber& delta) const {
        QNumber out(real_);
        out.add_product(delta_, delta);
        return out;
    }

    // "3", "3 - δ", "1/2 + 2δ".
    std::string to_string() const;

    friend bool operator==(const DeltaRational& a, const DeltaRational& b) {
        return a.real_ == b.real_ && a.delta_ == b.delta_;
    }
    friend std::strong_ordering operator<=>(const DeltaRational& a, const DeltaRational& b) {
        if (auto c = a.real_ <=> b.real_; c != 0) return c;
        return a.delta_ <=> b.delta_;
    }

  private:
    QNumber real_;
    QNumber delta_;
};

}  // namespace vorn::lra
