#include "cli/numbers.h"

#include <gmp.h>

#include <stdexcept>

#include "cli/input_error.h"
#include "cli/limits.h"

namespace vorn::cli {

QNumber parse_number(std::string_view lexeme, SourcePos pos) {
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
    throw InputError(pos, "malformed number " + quoted(lexeme));
}

void check_numeral_length(std::string_view lexeme, SourcePos pos) {
    std::size_t digits = lexeme.size() - (lexeme.find('.') != std::string_view::npos ? 1 : 0);
    if (digits > kMaxNumeralDigits)
        throw InputError(pos, "number longer than the limit of " +
                                  std::to_string(kMaxNumeralDigits) + " digits");
}

void check_big_number_size(const QNumber& value, SourcePos pos) {
    mpq_srcptr big = value.big_block();
    std::size_t bits = mpz_sizeinbase(mpq_numref(big), 2) + mpz_sizeinbase(mpq_denref(big), 2);
    if (bits > kMaxNumberBits)
        throw InputError(
            pos, "number larger than the limit of " + std::to_string(kMaxNumberBits) + " bits");
}

}  // namespace vorn::cli
