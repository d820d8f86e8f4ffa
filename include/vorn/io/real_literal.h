#pragma once

// Real literals of the linear-programming formats (MPS, CPLEX LP): an optional sign, digits
// with an optional decimal point, an optional exponent ("-1.5e+3", ".301", "1."), read exactly.
// Solver formats write "infinity" as a large number; `is_infinite` tells those apart.

#include <optional>
#include <string_view>

#include "vorn/numbers/qnumber.h"

namespace vorn::io {

// The exact value, or nothing when `text` is not such a literal as a whole. Mantissas longer
// than kMaxNumeralDigits digits and exponents beyond ±kMaxDecimalExponent are refused too.
std::optional<QNumber> parse_real_literal(std::string_view text);

// The length of the longest prefix of `text` that reads as a literal (0 when none), for readers
// that meet numbers run together with what follows ("3x").
std::size_t real_literal_length(std::string_view text);

constexpr int kMaxDecimalExponent = 1000;

// |value| ≥ 10^30: the conventional stand-in for an infinite bound.
bool is_infinite(const QNumber& value);

}  // namespace vorn::io
