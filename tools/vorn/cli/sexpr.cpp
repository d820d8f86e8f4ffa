#include "cli/sexpr.h"

#include <array>

#include "cli/escape.h"
#include "cli/input_error.h"
#include "cli/limits.h"
#include "cli/numbers.h"

namespace vorn::cli {

namespace {

constexpr std::array<bool, 256> symbol_chars() {
    std::array<bool, 256> table{};
    for (int c = 'a'; c <= 'z'; ++c)
        table[c] = true;
    for (int c = 'A'; c <= 'Z'; ++c)
        table[c] = true;
    for (int c = '0'; c <= '9'; ++c)
        table[c] = true;
    for (char c : std::string_view("~!@$%^&*_-+=<>.?/"))
        table[static_cast<unsigned char>(c)] = true;
    return table;
}
constexpr std::array<bool, 256> kSymbolChar = symbol_chars();

bool symbol_char(char c) {
    return kSymbolChar[static_cast<unsigned char>(c)];
}
bool digit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

bool SExprReader::next(SExprTree& tree) {
    tree.nodes_.clear();
    pending_.clear();
    open_.clear();
    while (true) {
        skip_blank();
        if (at_end()) break;
        SourcePos pos = here();
        char c = text_[i_];
        if (c == '(') {
            if (open_.size() >= static_cast<std::size_t>(kMaxSmtDepth))
                throw InputError(pos, "expression nested deeper than the limit of " +
                                          std::to_string(kMaxSmtDepth) + " levels");
            ++i_;
            open_.push_back({pending_.size(), pos});
            continue;
        }
        if (c == ')') {
            if (open_.empty()) throw InputError(pos, "unbalanced parenthesis: unexpected ')'");
            ++i_;
            close_list(tree);
        } else {
            pending_.push_back(atom());
        }
        if (open_.empty()) {
            tree.root_ = pending_.back();
            return true;
        }
    }
    if (!open_.empty())
        throw InputError(open_.back().pos, "unbalanced parenthesis: '(' is never closed");
    return false;
}

// Moves the children of the innermost open list into the tree, where they stay together.
void SExprReader::close_list(SExprTree& tree) {
    Open list = open_.back();
    open_.pop_back();
    SNode node;
    node.kind = SNode::Kind::List;
    node.first = static_cast<std::uint32_t>(tree.nodes_.size());
    node.size = static_cast<std::uint32_t>(pending_.size() - list.pending_begin);
    node.pos = list.pos;
    tree.nodes_.insert(tree.nodes_.end(), pending_.begin() + static_cast<long>(list.pending_begin),
                       pending_.end());
    pending_.resize(list.pending_begin);
    pending_.push_back(node);
}

SNode SExprReader::atom() {
    SourcePos pos = here();
    char c = text_[i_];
    if (c == '|') return quoted_symbol(pos);
    if (c == '"') return string_literal(pos);
    if (digit(c)) return number(pos);
    if (c == '#') throw InputError(pos, "binary and hexadecimal literals are not supported");
    SNode node;
    node.pos = pos;
    node.kind = SNode::Kind::Symbol;
    std::size_t begin = i_;
    if (c == ':') {
        node.kind = SNode::Kind::Keyword;
        ++i_;
    } else if (!symbol_char(c)) {
        std::string_view rest = text_.substr(i_);
        std::size_t n = std::max<std::size_t>(1, utf8_sequence_length(rest));
        throw InputError(pos, "unexpected character " + quoted(rest.substr(0, n)));
    }
    while (!at_end() && symbol_char(text_[i_]))
        ++i_;
    if (i_ - begin == 1) {  // symbol characters are ASCII
        std::uint32_t& cached = one_char_symbols_[static_cast<unsigned char>(c)];
        if (cached == NameTable::kNone) cached = symbols_.intern(text_.substr(begin, 1));
        node.symbol = cached;
        return node;
    }
    node.symbol = symbols_.intern(text_.substr(begin, i_ - begin));
    return node;
}

SNode SExprReader::quoted_symbol(SourcePos pos) {
    std::size_t begin = ++i_;
    while (true) {
        if (at_end()) throw InputError(pos, "quoted symbol is never closed");
        auto c = static_cast<unsigned char>(text_[i_]);
        if (c == '|') break;
        if (c == '\\') throw InputError(here(), "'\\' is not allowed in a quoted symbol");
        if (c == '\n') {
            newline_at(i_++);
            continue;
        }
        if ((c < 0x20 && c != '\t' && c != '\r') || c == 0x7F)
            throw InputError(
                here(), "control character " + quoted(text_.substr(i_, 1)) + " in a quoted symbol");
        std::size_t n = utf8_sequence_length(text_.substr(i_));
        if (n == 0) throw InputError(here(), "quoted symbol is not valid UTF-8");
        i_ += n;
    }
    SNode node;
    node.kind = SNode::Kind::Symbol;
    node.pos = pos;
    node.symbol = symbols_.intern(text_.substr(begin, i_ - begin));
    ++i_;
    return node;
}

SNode SExprReader::string_literal(SourcePos pos) {
    std::size_t begin = ++i_;
    while (true) {
        if (at_end()) throw InputError(pos, "string literal is never closed");
        char c = text_[i_];
        if (c == '\n') newline_at(i_);
        ++i_;
        if (c != '"') continue;
        if (at_end() || text_[i_] != '"') break;
        ++i_;  // "" stands for one quote
    }
    SNode node;
    node.kind = SNode::Kind::String;
    node.pos = pos;
    node.text = text_.substr(begin, i_ - 1 - begin);
    return node;
}

SNode SExprReader::number(SourcePos pos) {
    std::size_t begin = i_;
    while (!at_end() && digit(text_[i_]))
        ++i_;
    SNode node;
    node.kind = SNode::Kind::Numeral;
    if (!at_end() && text_[i_] == '.') {
        node.kind = SNode::Kind::Decimal;
        ++i_;
        std::size_t fraction = i_;
        while (!at_end() && digit(text_[i_]))
            ++i_;
        if (i_ == fraction) --i_;  // "1." is not a decimal: report it below
    }
    if (!at_end() && symbol_char(text_[i_])) {
        while (!at_end() && symbol_char(text_[i_]))
            ++i_;
        throw InputError(pos, "malformed number " + quoted(text_.substr(begin, i_ - begin)));
    }
    node.pos = pos;
    node.text = text_.substr(begin, i_ - begin);
    check_numeral_length(node.text, pos);
    return node;
}

void SExprReader::skip_blank() {
    while (!at_end()) {
        char c = text_[i_];
        if (c == ' ' || c == '\t' || c == '\r') {
            ++i_;
        } else if (c == '\n') {
            newline_at(i_++);
        } else if (c == ';') {
            std::size_t end = text_.find('\n', i_);
            i_ = end == std::string_view::npos ? text_.size() : end;
        } else {
            return;
        }
    }
}

}  // namespace vorn::cli
