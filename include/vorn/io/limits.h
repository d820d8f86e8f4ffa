#pragma once

// The resource limits of the readers: inputs beyond them are positioned errors, never crashes
// or unbounded work. `vorn --help` lists them.

#include <cstddef>

namespace vorn::io {

// Larger inputs are refused before they are read to the end (positions are ints).
constexpr std::size_t kMaxInputBytes = std::size_t{1} << 30;
// Open parentheses of SMT-LIB expressions, and of .lin terms.
constexpr int kMaxSmtDepth = 10000;
constexpr int kMaxLinDepth = 1000;
// Digits of one numeral or decimal in the input.
constexpr std::size_t kMaxNumeralDigits = 10000;
// Bits of a number computed while reading (numerator plus denominator): shared let and
// define-fun values could otherwise square a number at every level.
constexpr std::size_t kMaxNumberBits = 100000;

}  // namespace vorn::io
