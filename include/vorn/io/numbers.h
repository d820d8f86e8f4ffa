#pragma once

// Numbers in the input: decimal numerals and decimals of at most kMaxNumeralDigits digits, and
// the size limit on numbers computed from them.

#include <string_view>

#include "vorn/io/source.h"
#include "vorn/numbers/qnumber.h"

namespace vorn::io {

// "12", "0.5", ".5", "5." as an exact rational; ParseError at `pos` when the lexeme is not one
// of those or has too many digits. Up to 18 digits without a dot never touch GMP.
QNumber parse_number(std::string_view lexeme, smt::SourcePos pos);

// ParseError at `pos` when the numeral or decimal has more than kMaxNumeralDigits digits.
void check_numeral_length(std::string_view lexeme, smt::SourcePos pos);

// ParseError at `pos` when `value` needs more than kMaxNumberBits bits.
void check_big_number_size(const QNumber& value, smt::SourcePos pos);
inline void check_number_size(const QNumber& value, smt::SourcePos pos) {
    if (value.is_big()) check_big_number_size(value, pos);
}

// An integer as a QNumber without a call: long long is not std::int64_t here, so this takes
// QNumber's inline constructor for other integer types.
inline QNumber small_integer(std::int64_t value) {
    return QNumber(static_cast<long long>(value));
}

}  // namespace vorn::io
