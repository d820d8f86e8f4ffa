#include "vorn/io/lp_reader.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <vector>

#include "vorn/io/interrupted.h"
#include "vorn/io/linear_program.h"
#include "vorn/io/parse_error.h"
#include "vorn/io/real_literal.h"

namespace vorn::io {

namespace {

enum class Kind { Name, Number, Plus, Minus, Colon, Relation, Other, End };

struct Token {
    Kind kind;
    std::string_view text;
    smt::SourcePos pos;
    bool starts_line;  // the first token on its line: section keywords are recognised there
};

enum class Section { None, Objective, Constraints, Bounds, General, Binary, End };

bool name_char(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
           std::string_view("!\"#$%&()/,.;?@_`'{}|~").find(c) != std::string_view::npos;
}

// Splits the text into tokens, comments and blanks dropped.
std::vector<Token> tokenize(std::string_view text) {
    std::vector<Token> tokens;
    int line = 1;
    std::size_t line_start = 0;
    bool first = true;
    for (std::size_t i = 0; i < text.size();) {
        char c = text[i];
        if (c == '\n') {
            ++line;
            line_start = ++i;
            first = true;
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\r') {
            ++i;
            continue;
        }
        if (c == '\\') {
            while (i < text.size() && text[i] != '\n')
                ++i;
            continue;
        }
        smt::SourcePos pos{line, static_cast<int>(i - line_start) + 1};
        std::size_t length = 1;
        Kind kind = Kind::Other;
        std::string_view rest = text.substr(i);
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '.') {
            length = real_literal_length(rest);
            if (length == 0) throw ParseError(pos, "expected a number");
            kind = Kind::Number;
        } else if (name_char(c)) {
            while (length < rest.size() && name_char(rest[length]))
                ++length;
            kind = Kind::Name;
        } else if (c == '<' || c == '>' || c == '=') {
            if (rest.size() > 1 && (rest[1] == '=' || rest[1] == '<' || rest[1] == '>')) length = 2;
            kind = Kind::Relation;
        } else if (c == '+' || c == '-') {
            kind = c == '+' ? Kind::Plus : Kind::Minus;
        } else if (c == ':') {
            kind = Kind::Colon;
        }
        tokens.push_back({kind, rest.substr(0, length), pos, first});
        first = false;
        i += length;
    }
    tokens.push_back({Kind::End, {}, {line, static_cast<int>(text.size() - line_start) + 1}, true});
    return tokens;
}

std::string lower(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

bool is_infinity(std::string_view name) {
    std::string l = lower(name);
    return l == "inf" || l == "infinity";
}

class LpReader {
  public:
    LpReader(std::string_view text, const util::Stop* stop)
        : tokens_(tokenize(text)), stop_(stop) {}

    smt::Problem read() {
        while (peek().kind != Kind::End) {
            throw_if_interrupted(stop_);
            if (section_at_line_start()) continue;
            switch (section_) {
                case Section::Objective:
                    objective();
                    break;
                case Section::Constraints:
                    constraint();
                    break;
                case Section::Bounds:
                    bound();
                    break;
                case Section::General:
                case Section::Binary:
                    integer_column(section_ == Section::Binary);
                    break;
                case Section::End:
                    throw ParseError(peek().pos, "text after END");
                default:
                    throw ParseError(peek().pos, "expected MINIMIZE, MAXIMIZE or SUBJECT TO");
            }
        }
        return program_.finish();
    }

  private:
    const Token& peek(std::size_t ahead = 0) const {
        return tokens_[std::min(next_ + ahead, tokens_.size() - 1)];
    }
    const Token& take() {
        const Token& t = tokens_[next_];
        if (t.kind != Kind::End) ++next_;
        return t;
    }

    struct Keyword {
        Section section;
        std::size_t words;
    };

    // The section keyword at token `at`, if that token starts a line and is one.
    std::optional<Keyword> keyword(std::size_t at) const {
        const Token& t = peek(at);
        if (!t.starts_line || t.kind != Kind::Name) return std::nullopt;
        std::string word = lower(t.text);
        std::string two =
            peek(at + 1).kind == Kind::Name ? word + " " + lower(peek(at + 1).text) : std::string();
        std::optional<Keyword> k;
        if (word == "minimize" || word == "maximize" || word == "minimum" || word == "maximum" ||
            word == "min" || word == "max" || word == "minimise" || word == "maximise")
            k = Keyword{Section::Objective, 1};
        else if (two == "subject to" || two == "such that")
            k = Keyword{Section::Constraints, 2};
        else if (word == "st" || word == "s.t." || word == "st.")
            k = Keyword{Section::Constraints, 1};
        else if (word == "bounds" || word == "bound")
            k = Keyword{Section::Bounds, 1};
        else if (word == "general" || word == "generals" || word == "gen" || word == "integer" ||
                 word == "integers")
            k = Keyword{Section::General, 1};
        else if (word == "binary" || word == "binaries" || word == "bin")
            k = Keyword{Section::Binary, 1};
        else if (word == "end")
            k = Keyword{Section::End, 1};
        else if (word == "semi-continuous" || word == "semi" || word == "semis" || word == "sos")
            throw ParseError(t.pos, "unsupported section " + quoted(t.text) +
                                        ": only linear constraints are decided");
        if (k && peek(at + k->words).kind == Kind::Colon) return std::nullopt;  // a row's name
        return k;
    }

    // A section keyword at the start of a line switches the section.
    bool section_at_line_start() {
        std::optional<Keyword> k = keyword(0);
        if (!k) return false;
        if (k->section == Section::Objective)
            program_.set_maximize(lower(peek().text).starts_with("max"));
        next_ += k->words;
        section_ = k->section;
        objective_seen_ = false;
        return true;
    }

    // "name:" before a row, if there is one.
    void skip_label() {
        if (peek().kind == Kind::Name && peek(1).kind == Kind::Colon) next_ += 2;
    }

    // Whether the expression goes on at the next token: not at a relation, a section keyword,
    // the next row's label or the end.
    bool expression_continues() {
        const Token& t = peek();
        if (t.kind == Kind::End || t.kind == Kind::Relation || t.kind == Kind::Colon) return false;
        if (t.kind == Kind::Name && peek(1).kind == Kind::Colon) return false;
        return !keyword(0);
    }

    // Σ [sign] [number] [name], constants included, into `out` (scaled by `scale`).
    void expression(smt::LinearExpr& out, const QNumber& scale) {
        bool any = false;
        while (expression_continues()) {
            QNumber coeff = scale;
            bool sign_seen = false;
            while (peek().kind == Kind::Plus || peek().kind == Kind::Minus) {
                if (take().kind == Kind::Minus) coeff.negate();
                sign_seen = true;
            }
            if (peek().kind == Kind::Other && peek().text == "[")
                throw ParseError(peek().pos, "quadratic terms are not linear constraints");
            // "2 3 x" or "x y" is no sum: terms are joined by signs.
            if (any && !sign_seen)
                throw ParseError(peek().pos, "expected + or - before " + quoted(peek().text));
            bool number = peek().kind == Kind::Number;
            if (number) coeff *= literal(take());
            if (peek().kind == Kind::Name && expression_continues()) {
                const Token& name = take();
                out.add_entry(program_.column(name.text, name.pos), coeff);
            } else if (number) {
                out.add_entry(0, coeff);
            } else {
                throw ParseError(peek().pos, sign_seen
                                                 ? "expected a term after the sign"
                                                 : "expected a term, not " + quoted(peek().text));
            }
            any = true;
        }
        if (!any && section_ != Section::Objective)
            throw ParseError(peek().pos, "expected a linear expression");
    }

    void objective() {
        if (objective_seen_) throw ParseError(peek().pos, "a second objective");
        skip_label();
        smt::LinearExpr expr;
        expression(expr, QNumber(1));
        program_.set_objective(expr);
        objective_seen_ = true;
    }

    enum class Rel { Le, Ge, Eq };

    Rel relation() {
        const Token& t = take();
        if (t.kind != Kind::Relation)
            throw ParseError(t.pos, "expected <=, >= or =, not " + quoted(t.text));
        if (t.text == "=") return Rel::Eq;
        if (t.text == "<=" || t.text == "=<" || t.text == "<") return Rel::Le;
        if (t.text == ">=" || t.text == "=>" || t.text == ">") return Rel::Ge;
        throw ParseError(t.pos, "unknown relation " + quoted(t.text));
    }

    // A signed constant or ±infinity (nullopt, with `negative` telling which).
    std::optional<QNumber> constant(bool& negative) {
        negative = false;
        while (peek().kind == Kind::Plus || peek().kind == Kind::Minus)
            if (take().kind == Kind::Minus) negative = !negative;
        const Token& t = take();
        if (t.kind == Kind::Name && is_infinity(t.text)) return std::nullopt;
        if (t.kind != Kind::Number) throw ParseError(t.pos, "expected a number");
        QNumber value = literal(t);  // exact however large: only the words mean infinity
        if (negative) value.negate();
        return value;
    }

    void constraint() {
        smt::SourcePos pos = peek().pos;
        skip_label();
        struct Side {
            Rel rel;
            LinearProgram::Bound value;
            bool negative;
        };
        std::optional<Side> left;
        if (starts_with_constant()) {  // a range: constant rel expr rel constant
            bool negative;
            LinearProgram::Bound value = constant(negative);
            left = Side{relation(), value, negative};
        }
        smt::LinearExpr expr;
        expression(expr, QNumber(1));
        Rel rel = relation();
        bool negative;
        LinearProgram::Bound rhs = constant(negative);
        QNumber offset = constant_of(expr);
        expr.add_entry(0, -offset);
        // One side of the row from a constant: shifted by the expression's own constant, or the
        // rule for an infinite one.
        auto side = [&](bool lower_side, const LinearProgram::Bound& b, bool minus) {
            return b ? LinearProgram::Bound(*b - offset)
                     : program_.infinite(lower_side, minus, pos);
        };
        LinearProgram::Bound lower, upper;
        if (rel != Rel::Ge) upper = side(false, rhs, negative);
        if (rel != Rel::Le) lower = side(true, rhs, negative);
        if (left) {
            if (left->rel == Rel::Eq || left->rel != rel)
                throw ParseError(pos, "a range needs two relations of the same direction");
            bool lower_side = left->rel == Rel::Le;
            (lower_side ? lower : upper) = side(lower_side, left->value, left->negative);
        }
        program_.add_row(expr, lower, upper, pos);
    }

    static QNumber constant_of(const smt::LinearExpr& expr) {
        const smt::LinearExpr::Entries& e = expr.entries();
        return !e.empty() && e[0].var == 0 ? e[0].coeff : QNumber(0);
    }

    // Whether the row starts "constant rel": the range form.
    bool starts_with_constant() {
        std::size_t i = 0;
        while (peek(i).kind == Kind::Plus || peek(i).kind == Kind::Minus)
            ++i;
        bool value = peek(i).kind == Kind::Number ||
                     (peek(i).kind == Kind::Name && is_infinity(peek(i).text));
        return value && peek(i + 1).kind == Kind::Relation;
    }

    void bound() {
        const Token& first = peek();
        if (first.kind == Kind::Name && !is_infinity(first.text) && lower(peek(1).text) == "free" &&
            peek(1).kind == Kind::Name) {
            int col = program_.column(take().text, first.pos);
            take();
            program_.set_lower(col, {}, first.pos);
            program_.set_upper(col, {}, first.pos);
            return;
        }
        std::optional<std::pair<Rel, LinearProgram::Bound>> left;
        bool left_negative = false;
        if (starts_with_constant()) {
            LinearProgram::Bound value = constant(left_negative);
            left = {relation(), value};
        }
        const Token& name = take();
        if (name.kind != Kind::Name) throw ParseError(name.pos, "expected a column name");
        int col = program_.column(name.text, name.pos);
        if (left) apply(col, flip(left->first), left->second, left_negative, first.pos);
        if (peek().kind == Kind::Relation) {
            Rel rel = relation();
            bool negative;
            LinearProgram::Bound value = constant(negative);
            apply(col, rel, value, negative, first.pos);
        } else if (!left) {
            throw ParseError(peek().pos, "expected a relation after the column");
        }
    }

    static Rel flip(Rel r) { return r == Rel::Le ? Rel::Ge : r == Rel::Ge ? Rel::Le : r; }

    // col rel value, an infinite value by the rule of LinearProgram::infinite.
    void apply(int col, Rel rel, const LinearProgram::Bound& value, bool negative,
               smt::SourcePos pos) {
        if (rel != Rel::Le)
            program_.set_lower(col, value ? value : program_.infinite(true, negative, pos), pos);
        if (rel != Rel::Ge)
            program_.set_upper(col, value ? value : program_.infinite(false, negative, pos), pos);
    }

    void integer_column(bool binary) {
        const Token& t = take();
        if (t.kind != Kind::Name) throw ParseError(t.pos, "expected a column name");
        int col = program_.column(t.text, t.pos);
        program_.set_integer(col);
        if (!binary) return;
        program_.set_lower(col, QNumber(0), t.pos);
        program_.set_upper(col, QNumber(1), t.pos);
    }

    static QNumber literal(const Token& t) {
        std::optional<QNumber> value = parse_real_literal(t.text);
        if (!value) throw ParseError(t.pos, "expected a number, not " + quoted(t.text));
        return *value;
    }

    std::vector<Token> tokens_;
    const util::Stop* stop_;
    std::size_t next_ = 0;
    Section section_ = Section::None;
    bool objective_seen_ = false;  // in the current objective section
    LinearProgram program_;
};

}  // namespace

smt::Problem read_lp(std::string_view text, const util::Stop* stop) {
    return LpReader(text, stop).read();
}

}  // namespace vorn::io
