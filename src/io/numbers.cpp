#include "vorn/io/numbers.h"

#include <gmp.h>

#include <stdexcept>

#include "vorn/io/limits.h"
#include "vorn/io/parse_error.h"

namespace vorn::io {

QNumber parse_number(std::string_view lexeme, smt::SourcePos pos) {
    if (lexeme.size() <= 18) {
        std::int64_t value = 0;
        bool digits = !lexeme.empty();
        for (char c : lexeme) {
            if (c < '0' || c > '9') {
                digits = false;
                break;
            }
            value = value * 10 + (c - '0');
        }
        if (digits) return small_integer(value);
    }
    check_numeral_length(lexeme, pos);
    bool allowed = lexeme.find_first_not_of("0123456789.") == std::string_view::npos;
    try {
        if (allowed) return QNumber::from_string(lexeme);
    } catch (const std::invalid_argument&) {
    }
    throw ParseError(pos, "malformed number " + quoted(lexeme));
}

void check_numeral_length(std::string_view lexeme, smt::SourcePos pos) {
    std::size_t digits = lexeme.size() - (lexeme.find('.') != std::string_view::npos ? 1 : 0);
    if (digits > kMaxNumeralDigits)
        throw ParseError(pos, "number longer than the limit of " +
                                  std::to_string(kMaxNumeralDigits) + " digits");
}

void check_big_number_size(const QNumber& value, smt::SourcePos pos) {
    mpq_srcptr big = value.big_block();
    std::size_t bits = mpz_sizeinbase(mpq_numref(big), 2) + mpz_sizeinbase(mpq_denref(big), 2);
    if (bits > kMaxNumberBits)
        throw ParseError(
            pos, "number larger than the limit of " + std::to_string(kMaxNumberBits) + " bits");
}

}  // namespace vorn::io
