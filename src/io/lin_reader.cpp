#include "vorn/io/lin_reader.h"

#include <algorithm>
#include <cstring>

#include "vorn/io/escape.h"
#include "vorn/io/interrupted.h"
#include "vorn/io/limits.h"
#include "vorn/io/numbers.h"
#include "vorn/io/parse_error.h"

namespace vorn::io {

namespace {

bool name_start(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool name_char(char c) {
    return name_start(c) || (c >= '0' && c <= '9');
}
bool number_char(char c) {
    return (c >= '0' && c <= '9') || c == '.';
}

// What a product has read so far: ±constant · (nothing | one variable | a parenthesized sum).
// The constant is 1 until a number is read and the sign is kept apart, so the common product
// "3*x" costs no multiplication at all.
struct Factors {
    QNumber constant;
    bool has_constant = false;
    bool negative = false;
    int var = 0;
    smt::LinearExpr group;
    bool has_group = false;

    bool has_variables() const { return var != 0 || has_group; }
    void multiply(const QNumber& value) {
        if (has_constant) {
            constant *= value;
        } else {
            constant = value;
            has_constant = true;
        }
    }
    // The signed constant.
    QNumber value() const {
        QNumber c = has_constant ? constant : QNumber(1);
        if (negative) c.negate();
        return c;
    }
};

// Recursive descent over one line, writing every product straight into one expression.
class LineParser {
  public:
    LineParser(std::string_view line, smt::SourcePos start, smt::Variables& variables)
        : line_(line), line_no_(start.line), col_offset_(start.col - 1), variables_(variables) {}

    // lhs − rhs of "lhs = rhs", into `out`.
    void equation(smt::LinearExpr& out) {
        sum(false, out);
        if (peek() == '<' || peek() == '>' || peek() == '!')
            fail(here(), "only equations ('=') are allowed here");
        if (at_end()) fail(here(), "expected '=' before the end of the line");
        if (peek() != '=') fail(here(), "expected '=', found " + current_char());
        ++pos_;
        sum(true, out);
        if (peek() == '=') fail(here(), "more than one '=' on a line");
        expect_end();
    }

    void whole_sum(smt::LinearExpr& out) {
        sum(false, out);
        expect_end();
    }

  private:
    // out += sum, or out −= sum when `negate`.
    void sum(bool negate, smt::LinearExpr& out) {
        skip_space();
        bool minus = false;
        if (peek() == '+' || peek() == '-') {
            minus = peek() == '-';
            ++pos_;
        }
        while (true) {
            product(negate != minus, out);
            skip_space();
            if (peek() != '+' && peek() != '-') return;
            minus = peek() == '-';
            ++pos_;
        }
    }

    void product(bool negate, smt::LinearExpr& out) {
        Factors f;
        f.negative = negate;
        factor(f, here());
        while (true) {
            skip_space();
            smt::SourcePos op = here();
            if (peek() == '*') {
                ++pos_;
                factor(f, op);
            } else if (peek() == '/') {
                ++pos_;
                Factors divisor;
                factor(divisor, op);
                if (divisor.has_variables()) fail(op, "division by a non-constant term");
                QNumber d = divisor.value();
                if (d.is_zero()) fail(op, "division by zero");
                f.multiply(QNumber(1) / d);
                check_number_size(f.constant, op);
            } else {
                break;
            }
        }
        if (f.var != 0)
            out.add_entry(f.var, f.value());
        else if (f.has_group)
            out.add(f.group, f.value());
        else if (!f.value().is_zero())
            out.add_entry(0, f.value());
    }

    // Multiplies `f` by the next factor; `op` is where a non-linear product is reported.
    void factor(Factors& f, smt::SourcePos op) {
        skip_space();
        while (peek() == '-') {
            ++pos_;
            f.negative = !f.negative;
            skip_space();
        }
        char c = peek();
        if (c == '(') return group(f, op);
        if (number_char(c)) return number(f, op);
        if (name_start(c)) return variable(f, op);
        if (at_end()) fail(here(), "expected a term before the end of the line");
        fail(here(), "unexpected " + current_char());
    }

    void group(Factors& f, smt::SourcePos op) {
        smt::SourcePos open = here();
        if (++depth_ > kMaxLinDepth)
            fail(open,
                 "parentheses nested deeper than the limit of " + std::to_string(kMaxLinDepth));
        ++pos_;
        smt::LinearExpr inner;
        sum(false, inner);
        if (peek() != ')')
            fail(here(), at_end() ? "expected ')' before the end of the line"
                                  : "expected ')', found " + current_char());
        ++pos_;
        --depth_;
        if (inner.is_constant()) {
            f.multiply(inner.constant_value());
            check_number_size(f.constant, open);
            return;
        }
        if (f.has_variables()) fail(op, "non-linear product");
        f.group.swap(inner);
        f.has_group = true;
    }

    void number(Factors& f, smt::SourcePos op) {
        smt::SourcePos start = here();
        std::size_t begin = pos_;
        // Up to 18 digits without a dot: an integer that fits, read on the way.
        std::int64_t digits_value = 0;
        while (pos_ < line_.size() && line_[pos_] >= '0' && line_[pos_] <= '9') {
            if (pos_ - begin < 18) digits_value = digits_value * 10 + (line_[pos_] - '0');
            ++pos_;
        }
        bool plain = pos_ - begin <= 18 && pos_ > begin;
        while (pos_ < line_.size() && number_char(line_[pos_])) {
            plain = false;
            ++pos_;
        }
        if (std::size_t end = exponent_end(); end != 0)
            fail(start, "exponents are not supported: " + quoted(line_.substr(begin, end - begin)) +
                            " is not a number");
        f.multiply(plain ? small_integer(digits_value)
                         : parse_number(line_.substr(begin, pos_ - begin), start));
        check_number_size(f.constant, start);
        // "2x" and "2(x + y)": a number directly followed by a factor multiplies it.
        if (name_start(peek()) || peek() == '(') factor(f, op);
    }

    // Where an exponent such as "e5" or "E-3" right after a number ends, 0 when none follows.
    std::size_t exponent_end() const {
        if (peek() != 'e' && peek() != 'E') return 0;
        std::size_t i = pos_ + 1;
        if (i < line_.size() && (line_[i] == '+' || line_[i] == '-')) ++i;
        std::size_t digits = i;
        while (i < line_.size() && line_[i] >= '0' && line_[i] <= '9')
            ++i;
        return i > digits ? i : 0;
    }

    void variable(Factors& f, smt::SourcePos op) {
        smt::SourcePos start = here();
        std::size_t begin = pos_;
        while (pos_ < line_.size() && name_char(line_[pos_]))
            ++pos_;
        if (f.has_variables()) fail(op, "non-linear product");
        f.var = variables_.intern(line_.substr(begin, pos_ - begin), smt::Sort::Real, start);
    }

    void expect_end() {
        skip_space();
        if (!at_end()) fail(here(), "unexpected " + current_char());
    }

    // The character at the cursor, quoted: a whole UTF-8 sequence when there is one.
    std::string current_char() const {
        std::string_view rest = line_.substr(pos_);
        return quoted(rest.substr(0, std::max<std::size_t>(1, utf8_sequence_length(rest))));
    }

    void skip_space() {
        while (pos_ < line_.size() && (line_[pos_] == ' ' || line_[pos_] == '\t'))
            ++pos_;
    }
    char peek() const { return pos_ < line_.size() ? line_[pos_] : '\0'; }
    bool at_end() const { return pos_ >= line_.size(); }
    smt::SourcePos here() const { return {line_no_, col_offset_ + static_cast<int>(pos_) + 1}; }
    [[noreturn]] static void fail(smt::SourcePos pos, const std::string& message) {
        throw ParseError(pos, message);
    }

    std::string_view line_;
    int line_no_;
    int col_offset_;
    smt::Variables& variables_;
    std::size_t pos_ = 0;
    int depth_ = 0;
};

std::size_t line_count(std::string_view text) {
    std::size_t lines = 1;
    for (const char* p = text.data(); const void* nl = std::memchr(p, '\n', text.end() - p);
         p = static_cast<const char*>(nl) + 1)
        ++lines;
    return lines;
}

// The line without its break, a '\r' before it, and everything from '#' on.
std::string_view content_of(std::string_view line) {
    if (const void* mark = std::memchr(line.data(), '#', line.size()))
        line =
            line.substr(0, static_cast<std::size_t>(static_cast<const char*>(mark) - line.data()));
    else if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

}  // namespace

smt::LinearExpr read_lin_sum(std::string_view text, smt::SourcePos start,
                             smt::Variables& variables) {
    smt::LinearExpr out;
    LineParser(text, start, variables).whole_sum(out);
    return out;
}

smt::Problem read_lin(std::string_view text, const util::Stop* stop) {
    smt::Problem problem(smt::NameSyntax::Plain);
    // Sized for the common shape, a few terms per line and a new name or two: memory that is
    // reserved but never touched costs nothing, a table that grows rehashes everything.
    std::size_t lines = line_count(text);
    problem.reserve(lines, 5 * lines);
    problem.variables.reserve(2 * lines, 8 * lines);
    smt::LinearExpr scratch;
    int line_no = 0;
    while (!text.empty()) {
        throw_if_interrupted(stop);
        ++line_no;
        std::size_t end = text.find('\n');
        std::string_view line = content_of(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        std::size_t first = line.find_first_not_of(" \t");
        if (first == std::string_view::npos) continue;
        smt::SourcePos start{line_no, static_cast<int>(first) + 1};
        scratch.clear();
        LineParser(line, {line_no, 1}, problem.variables).equation(scratch);
        problem.atoms.push_back({smt::Relation::Eq, problem.add_term(scratch), 1, start});
    }
    return problem;
}

}  // namespace vorn::io
