#include "vorn/lin_parser.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace vorn::cli {

namespace {

bool ident_start(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool ident_char(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}
bool digit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// Recursive descent over one line.
class LineParser {
  public:
    LineParser(std::string_view line, int line_no, Symbols& symbols, int col_offset = 0)
        : line_(line), line_no_(line_no), col_offset_(col_offset), symbols_(symbols) {}

    LinearExpr parse_term() {
        LinearExpr value = expr();
        skip_space();
        if (!at_end()) fail(std::string("unexpected '") + peek() + "'");
        return value;
    }

    Atom parse_equation() {
        skip_space();
        Atom atom{Relation::Eq, {}, here()};
        LinearExpr lhs = expr();
        skip_space();
        if (peek() == '<' || peek() == '>' || peek() == '!')
            fail("only equations ('=') are allowed here");
        if (peek() != '=')
            fail(at_end() ? "expected '=' before the end of the line" : "expected '='");
        ++pos_;
        LinearExpr rhs = expr();
        skip_space();
        if (peek() == '=') fail("more than one '=' on a line");
        if (!at_end()) fail(std::string("unexpected '") + peek() + "'");
        lhs.add(rhs, QNumber(-1));
        atom.expr = std::move(lhs);
        return atom;
    }

  private:
    LinearExpr expr() {
        if (++depth_ > 1000) fail("expression nested too deeply");
        skip_space();
        LinearExpr sum;
        QNumber sign(1);
        if (peek() == '+' || peek() == '-') {
            if (peek() == '-') sign = QNumber(-1);
            ++pos_;
        }
        sum.add(term(), sign);
        while (true) {
            skip_space();
            if (peek() != '+' && peek() != '-') {
                --depth_;
                return sum;
            }
            sign = QNumber(peek() == '-' ? -1 : 1);
            ++pos_;
            sum.add(term(), sign);
        }
    }

    LinearExpr term() {
        LinearExpr value = unary();
        while (true) {
            skip_space();
            SourcePos op = here();
            if (peek() == '*') {
                ++pos_;
                value = product(value, unary(), op);
            } else if (peek() == '/') {
                ++pos_;
                LinearExpr divisor = unary();
                if (!divisor.is_constant()) fail_at(op, "division by a non-constant term");
                if (divisor.constant_value().is_zero()) fail_at(op, "division by zero");
                value.scale(QNumber(1) / divisor.constant_value());
            } else {
                return value;
            }
        }
    }

    static LinearExpr product(const LinearExpr& a, const LinearExpr& b, SourcePos op) {
        if (!a.is_constant() && !b.is_constant()) throw InputError(op, "non-linear product");
        LinearExpr result = a.is_constant() ? b : a;
        result.scale(a.is_constant() ? a.constant_value() : b.constant_value());
        return result;
    }

    LinearExpr unary() {
        skip_space();
        SourcePos start = here();
        char c = peek();
        if (c == '-') {
            ++pos_;
            if (++depth_ > 1000) fail("expression nested too deeply");
            LinearExpr inner = unary();
            --depth_;
            inner.scale(QNumber(-1));
            return inner;
        }
        if (c == '(') {
            ++pos_;
            LinearExpr inner = expr();
            skip_space();
            if (peek() != ')') fail("expected ')'");
            ++pos_;
            return inner;
        }
        if (digit(c) || c == '.') {
            LinearExpr number = LinearExpr::constant(read_number(start));
            // "2x" and "2(x + y)": a number directly followed by a factor multiplies it.
            if (ident_start(peek()) || peek() == '(') return product(number, unary(), here());
            return number;
        }
        if (ident_start(c)) {
            std::size_t begin = pos_;
            while (pos_ < line_.size() && ident_char(line_[pos_]))
                ++pos_;
            return LinearExpr::variable(symbols_.intern(line_.substr(begin, pos_ - begin)));
        }
        if (at_end()) fail("expected a term before the end of the line");
        fail(std::string("unexpected '") + c + "'");
    }

    QNumber read_number(SourcePos start) {
        std::size_t begin = pos_;
        while (pos_ < line_.size() && (digit(line_[pos_]) || line_[pos_] == '.'))
            ++pos_;
        std::string_view lexeme = line_.substr(begin, pos_ - begin);
        try {
            return QNumber::from_string(lexeme);
        } catch (const std::invalid_argument&) {
            throw InputError(start, "malformed number '" + std::string(lexeme) + "'");
        }
    }

    void skip_space() {
        while (pos_ < line_.size() && (line_[pos_] == ' ' || line_[pos_] == '\t'))
            ++pos_;
    }
    char peek() const { return pos_ < line_.size() ? line_[pos_] : '\0'; }
    bool at_end() const { return pos_ >= line_.size(); }
    SourcePos here() const { return {line_no_, col_offset_ + static_cast<int>(pos_) + 1}; }
    [[noreturn]] void fail(const std::string& message) const { fail_at(here(), message); }
    [[noreturn]] static void fail_at(SourcePos pos, const std::string& message) {
        throw InputError(pos, message);
    }

    std::string_view line_;
    int line_no_;
    int col_offset_;
    Symbols& symbols_;
    std::size_t pos_ = 0;
    int depth_ = 0;
};

// The common shape of a line, such as "2*x - y/3 + 4z = 5", read straight into one entry list.
// Anything else (parentheses, products of two terms, every error) makes it give up, and the
// full parser above reads the line and reports positions.
class FlatLine {
  public:
    FlatLine(std::string_view line, Symbols& symbols) : line_(line), symbols_(symbols) {}

    bool parse(LinearExpr& out) {
        LinearExpr::Entries entries;
        if (!side(1, entries) || peek() != '=') return false;
        ++pos_;
        if (!side(-1, entries) || !at_end()) return false;
        out = LinearExpr::from_entries(std::move(entries));
        return true;
    }

  private:
    bool side(int side_sign, LinearExpr::Entries& out) {
        for (bool first = true;; first = false) {
            skip_space();
            int sign = side_sign;
            if (peek() == '+' || peek() == '-') {
                if (peek() == '-') sign = -sign;
                ++pos_;
                skip_space();
            } else if (!first) {
                return true;
            }
            if (!monomial(sign, out)) return false;
            skip_space();
        }
    }

    // [number] [['*'] name] ['/' number]
    bool monomial(int sign, LinearExpr::Entries& out) {
        QNumber c(sign);
        bool has_number = digit(peek()) || peek() == '.';
        if (has_number) {
            QNumber n;
            if (!number(n)) return false;
            c *= n;
            if (!ident_start(peek())) {
                skip_space();
                if (peek() == '*') {
                    ++pos_;
                    skip_space();
                    if (!ident_start(peek())) return false;
                }
            }
        }
        int var = 0;
        if (ident_start(peek())) {
            std::size_t begin = pos_;
            while (pos_ < line_.size() && ident_char(line_[pos_]))
                ++pos_;
            var = symbols_.intern(line_.substr(begin, pos_ - begin));
            skip_space();
        } else if (!has_number) {
            return false;
        }
        if (peek() == '/') {
            ++pos_;
            skip_space();
            QNumber d;
            if (!number(d) || d.is_zero()) return false;
            c /= d;
        }
        out.push_back({var, c});
        return true;
    }

    bool number(QNumber& out) {
        std::size_t begin = pos_;
        while (pos_ < line_.size() && (digit(line_[pos_]) || line_[pos_] == '.'))
            ++pos_;
        if (pos_ == begin) return false;
        try {
            out = QNumber::from_string(line_.substr(begin, pos_ - begin));
        } catch (const std::invalid_argument&) {
            return false;
        }
        return true;
    }

    void skip_space() {
        while (pos_ < line_.size() && (line_[pos_] == ' ' || line_[pos_] == '\t'))
            ++pos_;
    }
    char peek() const { return pos_ < line_.size() ? line_[pos_] : '\0'; }
    bool at_end() const { return pos_ >= line_.size(); }

    std::string_view line_;
    Symbols& symbols_;
    std::size_t pos_ = 0;
};

}  // namespace

LinearExpr parse_lin_term(std::string_view text, SourcePos start, Symbols& symbols) {
    return LineParser(text, start.line, symbols, start.col - 1).parse_term();
}

Problem parse_lin(const std::string& text) {
    Problem problem;
    problem.symbols.reserve(text.size() / 16);  // about one new name per equation line
    problem.atoms.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
    for_each_line(text, '#', [&problem](std::string_view line, int line_no) {
        if (line.find_first_not_of(" \t") == std::string_view::npos) return;
        SourcePos start{line_no, static_cast<int>(line.find_first_not_of(" \t")) + 1};
        Atom atom{Relation::Eq, {}, start};
        if (!FlatLine(line, problem.symbols).parse(atom.expr))
            atom = LineParser(line, line_no, problem.symbols).parse_equation();
        problem.atoms.push_back(std::move(atom));
    });
    return problem;
}

}  // namespace vorn::cli
