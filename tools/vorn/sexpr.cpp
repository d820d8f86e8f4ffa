#include "vorn/sexpr.h"

#include <cctype>
#include <cstring>
#include <memory>

namespace vorn::cli {

namespace {

bool symbol_char(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || std::strchr("~!@$%^&*_-+=<>.?/", c);
}

class Reader {
  public:
    explicit Reader(const std::string& text) : text_(text) {}

    // The next top-level expression; false at the end of the text.
    bool next(SExpr& out) {
        std::vector<SExpr> stack;  // open lists
        while (true) {
            skip_blank();
            if (at_end()) break;
            SourcePos pos = here();
            char c = text_[i_];
            if (c == '(') {
                advance();
                stack.push_back(SExpr{SExpr::Kind::List, {}, {}, pos});
                continue;
            }
            SExpr item;
            if (c == ')') {
                if (stack.empty()) throw InputError(pos, "unbalanced parenthesis: unexpected ')'");
                advance();
                item = std::move(stack.back());
                stack.pop_back();
            } else {
                item = atom(pos);
            }
            if (stack.empty()) {
                out = std::move(item);
                return true;
            }
            stack.back().items.push_back(std::move(item));
        }
        if (!stack.empty())
            throw InputError(stack.back().pos, "unbalanced parenthesis: '(' is never closed");
        return false;
    }

  private:
    SExpr atom(SourcePos pos) {
        char c = text_[i_];
        if (c == '|') return quoted(pos);
        if (c == '"') return string_literal(pos);
        if (c == '#') throw InputError(pos, "binary and hexadecimal literals are not supported");
        SExpr::Kind kind = SExpr::Kind::Symbol;
        std::size_t begin = i_;
        if (c == ':') {
            kind = SExpr::Kind::Keyword;
            advance();
        } else if (std::isdigit(static_cast<unsigned char>(c))) {
            kind = SExpr::Kind::Numeral;
        } else if (!symbol_char(c)) {
            throw InputError(pos, std::string("unexpected character '") + c + "'");
        }
        while (!at_end() && symbol_char(text_[i_]))
            advance();
        std::string lexeme = text_.substr(begin, i_ - begin);
        if (kind == SExpr::Kind::Numeral) kind = classify_number(lexeme, pos);
        return SExpr{kind, std::move(lexeme), {}, pos};
    }

    static SExpr::Kind classify_number(const std::string& s, SourcePos pos) {
        std::size_t dot = s.find('.');
        auto digits = [](const std::string& part) {
            if (part.empty()) return false;
            for (char ch : part)
                if (!std::isdigit(static_cast<unsigned char>(ch))) return false;
            return true;
        };
        if (dot == std::string::npos && digits(s)) return SExpr::Kind::Numeral;
        if (dot != std::string::npos && digits(s.substr(0, dot)) && digits(s.substr(dot + 1)))
            return SExpr::Kind::Decimal;
        throw InputError(pos, "malformed number '" + s + "'");
    }

    SExpr quoted(SourcePos pos) {
        advance();
        std::size_t begin = i_;
        while (!at_end() && text_[i_] != '|') {
            if (text_[i_] == '\\')
                throw InputError(here(), "'\\' is not allowed in a quoted symbol");
            advance();
        }
        if (at_end()) throw InputError(pos, "quoted symbol is never closed");
        std::string name = text_.substr(begin, i_ - begin);
        advance();
        return SExpr{SExpr::Kind::Symbol, std::move(name), {}, pos};
    }

    SExpr string_literal(SourcePos pos) {
        advance();
        std::string value;
        while (true) {
            if (at_end()) throw InputError(pos, "string literal is never closed");
            char c = text_[i_];
            advance();
            if (c != '"') {
                value += c;
                continue;
            }
            if (!at_end() && text_[i_] == '"') {  // "" stands for one quote
                value += '"';
                advance();
                continue;
            }
            break;
        }
        return SExpr{SExpr::Kind::String, std::move(value), {}, pos};
    }

    void skip_blank() {
        while (!at_end()) {
            char c = text_[i_];
            if (c == ';') {
                while (!at_end() && text_[i_] != '\n')
                    advance();
            } else if (std::isspace(static_cast<unsigned char>(c))) {
                advance();
            } else {
                return;
            }
        }
    }

    void advance() {
        if (text_[i_] == '\n') {
            ++line_;
            col_ = 1;
        } else {
            ++col_;
        }
        ++i_;
    }
    bool at_end() const { return i_ >= text_.size(); }
    SourcePos here() const { return {line_, col_}; }

    const std::string& text_;
    std::size_t i_ = 0;
    int line_ = 1;
    int col_ = 1;
};

}  // namespace

struct SExprReader::Impl : Reader {
    using Reader::Reader;
};

SExprReader::SExprReader(const std::string& text) : impl_(std::make_unique<Impl>(text)) {}
SExprReader::~SExprReader() = default;
bool SExprReader::next(SExpr& out) {
    return impl_->next(out);
}

std::vector<SExpr> parse_sexprs(const std::string& text) {
    std::vector<SExpr> out;
    SExprReader reader(text);
    for (SExpr e; reader.next(e);)
        out.push_back(std::move(e));
    return out;
}

}  // namespace vorn::cli
