// Parsing rationals from text: "-12", "3/4", "0.125", digits of any length.

#include <cctype>
#include <stdexcept>
#include <string>

#include "gmp_holder.h"
#include "vorn/numbers/qnumber.h"

namespace vorn {

namespace {

[[noreturn]] void reject(std::string_view text, const char* why) {
    throw std::invalid_argument("invalid rational number '" + std::string(text) + "': " + why);
}

bool all_digits(std::string_view s) {
    if (s.empty()) return false;
    for (char c : s)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

// Sets `out` to the unsigned decimal `digits` (already validated).
void set_digits(mpz_ptr out, std::string_view digits) {
    std::string copy(digits);
    mpz_set_str(out, copy.c_str(), 10);
}

}  // namespace

QNumber QNumber::from_string(std::string_view text) {
    std::string_view body = text;
    bool negative = false;
    if (!body.empty() && (body[0] == '-' || body[0] == '+')) {
        negative = body[0] == '-';
        body.remove_prefix(1);
    }
    std::string_view num_part = body;
    std::string_view den_part;
    std::string_view frac_part;
    bool decimal = false;
    if (auto slash = body.find('/'); slash != std::string_view::npos) {
        num_part = body.substr(0, slash);
        den_part = body.substr(slash + 1);
        if (!all_digits(num_part) || !all_digits(den_part)) reject(text, "expected digits/digits");
    } else if (auto dot = body.find('.'); dot != std::string_view::npos) {
        num_part = body.substr(0, dot);
        frac_part = body.substr(dot + 1);
        decimal = true;
        if ((!num_part.empty() && !all_digits(num_part)) ||
            (!frac_part.empty() && !all_digits(frac_part)) ||
            (num_part.empty() && frac_part.empty()))
            reject(text, "expected a decimal number");
    } else if (!all_digits(num_part)) {
        reject(text, "expected digits");
    }

    // Short plain integers are the common case: no GMP at all.
    if (!decimal && den_part.empty() && num_part.size() <= 18) {
        std::int64_t value = 0;
        for (char c : num_part)
            value = value * 10 + (c - '0');
        return QNumber(negative ? -value : value);
    }

    detail::LocalMpq q;
    if (decimal) {
        std::string digits = std::string(num_part) + std::string(frac_part);
        set_digits(mpq_numref(q.get()), digits);
        mpz_ui_pow_ui(mpq_denref(q.get()), 10, frac_part.size());
    } else {
        set_digits(mpq_numref(q.get()), num_part);
        if (den_part.empty()) {
            mpz_set_ui(mpq_denref(q.get()), 1);
        } else {
            set_digits(mpq_denref(q.get()), den_part);
            if (mpz_sgn(mpq_denref(q.get())) == 0) reject(text, "division by zero");
        }
    }
    if (negative) mpz_neg(mpq_numref(q.get()), mpq_numref(q.get()));
    mpq_canonicalize(q.get());
    QNumber result;
    result.set_result(q.get());
    return result;
}

}  // namespace vorn
