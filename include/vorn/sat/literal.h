#pragma once

// Variables, literals and truth values of the SAT engine.
//
// A variable is a dense index 0, 1, 2, ... handed out by Solver::new_var. A literal is a
// variable with a sign, coded as 2·var + negative so that a literal and its negation are
// neighbours and the code indexes per-literal arrays (watch lists, values) directly.

#include <cstdint>

namespace vorn::sat {

using Var = std::uint32_t;

class Lit {
  public:
    // The undefined literal; compares unequal to every literal of a variable.
    constexpr Lit() = default;
    constexpr Lit(Var var, bool negative) : code_(var * 2 + (negative ? 1 : 0)) {}
    static constexpr Lit from_code(std::uint32_t code) {
        Lit lit;
        lit.code_ = code;
        return lit;
    }

    constexpr Var var() const { return code_ >> 1; }
    constexpr bool negative() const { return (code_ & 1) != 0; }
    constexpr std::uint32_t code() const { return code_; }
    constexpr bool defined() const { return code_ != kUndefCode; }
    constexpr Lit operator~() const { return from_code(code_ ^ 1); }

    friend constexpr bool operator==(Lit, Lit) = default;
    friend constexpr auto operator<=>(Lit, Lit) = default;

  private:
    static constexpr std::uint32_t kUndefCode = ~std::uint32_t{0};
    std::uint32_t code_ = kUndefCode;
};

// The positive and negative literal of a variable.
constexpr Lit pos(Var var) {
    return Lit(var, false);
}
constexpr Lit neg(Var var) {
    return Lit(var, true);
}

// A three-valued truth value; the values are chosen so that negating a literal's value is a
// sign flip.
enum class LBool : std::int8_t { False = -1, Undef = 0, True = 1 };

constexpr LBool operator!(LBool value) {
    return static_cast<LBool>(-static_cast<std::int8_t>(value));
}

}  // namespace vorn::sat
