#include "vorn/io/real_literal.h"

#include <string>

#include "vorn/io/limits.h"

namespace vorn::io {

namespace {

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// The parts of a literal, located by one scan.
struct Scan {
    std::size_t length = 0;  // 0: no literal
    std::string_view integer, fraction, exponent;
    bool negative = false;
    bool exponent_negative = false;
};

Scan scan(std::string_view text) {
    Scan s;
    std::size_t i = 0;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) s.negative = text[i++] == '-';
    std::size_t start = i;
    while (i < text.size() && is_digit(text[i]))
        ++i;
    s.integer = text.substr(start, i - start);
    if (i < text.size() && text[i] == '.') {
        std::size_t f = ++i;
        while (i < text.size() && is_digit(text[i]))
            ++i;
        s.fraction = text.substr(f, i - f);
    }
    if (s.integer.empty() && s.fraction.empty()) return {};
    s.length = i;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        std::size_t e = i + 1;
        bool negative = false;
        if (e < text.size() && (text[e] == '+' || text[e] == '-')) negative = text[e++] == '-';
        std::size_t digits = e;
        while (e < text.size() && is_digit(text[e]))
            ++e;
        if (e > digits) {  // "2e" or "2ex" keeps the e for what follows
            s.exponent = text.substr(digits, e - digits);
            s.exponent_negative = negative;
            s.length = e;
        }
    }
    return s;
}

}  // namespace

std::size_t real_literal_length(std::string_view text) {
    return scan(text).length;
}

std::optional<QNumber> parse_real_literal(std::string_view text) {
    Scan s = scan(text);
    if (s.length == 0 || s.length != text.size()) return std::nullopt;
    if (s.integer.size() + s.fraction.size() > kMaxNumeralDigits) return std::nullopt;
    long exponent = 0;
    for (char c : s.exponent) {
        exponent = exponent * 10 + (c - '0');
        if (exponent > kMaxDecimalExponent) return std::nullopt;
    }
    if (s.exponent_negative) exponent = -exponent;
    exponent -= static_cast<long>(s.fraction.size());
    std::string digits(s.integer);
    digits += s.fraction;
    if (exponent >= 0)
        digits.append(static_cast<std::size_t>(exponent), '0');
    else
        digits += "/1" + std::string(static_cast<std::size_t>(-exponent), '0');
    QNumber value = QNumber::from_string(digits);
    if (s.negative) value.negate();
    return value;
}

bool is_infinite(const QNumber& value) {
    static const QNumber kInfinity = QNumber::from_string("1000000000000000000000000000000");
    return value >= kInfinity || value <= -kInfinity;
}

}  // namespace vorn::io
