#include "vorn/io/sexpr.h"

#include <cctype>

#include <cstring>

#include "vorn/io/escape.h"
#include "vorn/io/limits.h"
#include "vorn/io/numbers.h"
#include "vorn/io/parse_error.h"

namespace vorn::io {

namespace {

enum CharClass : std::uint8_t { kOther, kBlank, kNewline, kSymbol, kDigit };

constexpr std::array<CharClass, 256> char_classes() {
    std::array<CharClass, 256> table{};
    for (char c : std::string_view(" \t\r"))
        table[static_cast<unsigned char>(c)] = kBlank;
    table['\n'] = kNewline;
    for (int c = 'a'; c <= 'z'; ++c)
        table[c] = kSymbol;
    for (int c = 'A'; c <= 'Z'; ++c)
        table[c] = kSymbol;
    for (char c : std::string_view("~!@$%^&*_-+=<>.?/"))
        table[static_cast<unsigned char>(c)] = kSymbol;
    for (int c = '0'; c <= '9'; ++c)
        table[c] = kDigit;
    return table;
}
constexpr std::array<CharClass, 256> kClass = char_classes();

CharClass class_of(char c) {
    return kClass[static_cast<unsigned char>(c)];
}
bool symbol_char(char c) {
    return class_of(c) >= kSymbol;
}

}  // namespace

bool SExprReader::next(SExprTree& tree) {
    std::vector<SNode>& nodes = tree.nodes_;
    tree.source_ = text_;
    nodes.clear();
    open_.clear();
    while (!at_end()) {
        char c = text_[i_];
        switch (class_of(c)) {
            case kBlank:
                ++i_;
                continue;
            case kNewline:
                newline_at(i_++);
                continue;
            default:
                break;
        }
        if (c == ';') {
            skip_comment();
            continue;
        }
        if (c == ')') {
            if (open_.empty()) throw ParseError(here(), "unbalanced parenthesis: unexpected ')'");
            ++i_;
            nodes[open_.back()].end = static_cast<std::uint32_t>(nodes.size());
            open_.pop_back();
        } else {
            if (!open_.empty()) ++nodes[open_.back()].size;
            SNode& node = nodes.emplace_back();
            node.pos = here();
            if (c == '(') {
                if (open_.size() >= static_cast<std::size_t>(kMaxSmtDepth))
                    throw ParseError(node.pos, "expression nested deeper than the limit of " +
                                                   std::to_string(kMaxSmtDepth) + " levels");
                ++i_;
                open_.push_back(static_cast<std::uint32_t>(nodes.size() - 1));
                continue;
            }
            atom(node);
        }
        if (open_.empty()) return true;
    }
    if (!open_.empty())
        throw ParseError(nodes[open_.back()].pos, "unbalanced parenthesis: '(' is never closed");
    return false;
}

void SExprReader::atom(SNode& node) {
    char c = text_[i_];
    switch (class_of(c)) {
        case kDigit:
            return number(node);
        case kSymbol:
            node.kind = SNode::Kind::Symbol;
            return symbol(node, i_);
        default:
            break;
    }
    if (c == '|') return quoted_symbol(node);
    if (c == '"') return string_literal(node);
    if (c == ':') {
        node.kind = SNode::Kind::Keyword;
        return symbol(node, i_++);
    }
    if (c == '#') return bits(node);
    std::string_view rest = text_.substr(i_);
    std::size_t n = std::max<std::size_t>(1, utf8_sequence_length(rest));
    throw ParseError(node.pos, "unexpected character " + quoted(rest.substr(0, n)));
}

// The first `size` (at most 8) bytes at `p` as a word, zeros above.
std::uint64_t SExprReader::word_at(std::size_t at, std::size_t size) const {
    std::uint64_t w = 0;
    if (at + 8 <= text_.size()) {  // one load, then drop what is not the symbol's
        std::memcpy(&w, text_.data() + at, 8);
        return size >= 8 ? w : w & ((std::uint64_t{1} << (8 * size)) - 1);
    }
    std::memcpy(&w, text_.data() + at, size);
    return w;
}

// The symbol or keyword that starts at `begin` and runs to the cursor's run of symbol characters.
void SExprReader::symbol(SNode& node, std::size_t begin) {
    while (!at_end() && symbol_char(text_[i_]))
        ++i_;
    std::string_view name = text_.substr(begin, i_ - begin);
    if (name.size() > 16) {
        node.symbol = symbols_.intern(name);
        return;
    }
    std::uint64_t low = word_at(begin, std::min<std::size_t>(name.size(), 8));
    std::uint64_t high = name.size() > 8 ? word_at(begin + 8, name.size() - 8) : 0;
    std::uint64_t mixed = (low ^ (high * 0x9E3779B97F4A7C15ULL)) * 0xD6E8FEB86659FD93ULL;
    Recent& slot = recent_[(mixed >> 56) ^ name.size()];
    if (slot.size != name.size() || slot.word[0] != low || slot.word[1] != high ||
        slot.symbol == smt::NameTable::kNone)
        slot = {{low, high}, static_cast<std::uint32_t>(name.size()), symbols_.intern(name)};
    node.symbol = slot.symbol;
}

void SExprReader::quoted_symbol(SNode& node) {
    node.kind = SNode::Kind::Symbol;
    std::size_t begin = ++i_;
    while (true) {
        if (at_end()) throw ParseError(node.pos, "quoted symbol is never closed");
        auto c = static_cast<unsigned char>(text_[i_]);
        if (c == '|') break;
        if (c == '\\') throw ParseError(here(), "'\\' is not allowed in a quoted symbol");
        if (c == '\n') {
            newline_at(i_++);
            continue;
        }
        if ((c < 0x20 && c != '\t' && c != '\r') || c == 0x7F)
            throw ParseError(
                here(), "control character " + quoted(text_.substr(i_, 1)) + " in a quoted symbol");
        std::size_t n = utf8_sequence_length(text_.substr(i_));
        if (n == 0) throw ParseError(here(), "quoted symbol is not valid UTF-8");
        i_ += n;
    }
    node.symbol = symbols_.intern(text_.substr(begin, i_ - begin));
    ++i_;
}

void SExprReader::string_literal(SNode& node) {
    node.kind = SNode::Kind::String;
    std::size_t begin = ++i_;
    while (true) {
        if (at_end()) throw ParseError(node.pos, "string literal is never closed");
        char c = text_[i_];
        if (c == '\n') newline_at(i_);
        ++i_;
        if (c != '"') continue;
        if (at_end() || text_[i_] != '"') break;
        ++i_;  // "" stands for one quote
    }
    node.text_begin = static_cast<std::uint32_t>(begin);
    node.text_size = static_cast<std::uint32_t>(i_ - 1 - begin);
}

void SExprReader::number(SNode& node) {
    std::size_t begin = i_;
    while (!at_end() && class_of(text_[i_]) == kDigit)
        ++i_;
    node.kind = SNode::Kind::Numeral;
    if (!at_end() && text_[i_] == '.') {
        node.kind = SNode::Kind::Decimal;
        ++i_;
        std::size_t fraction = i_;
        while (!at_end() && class_of(text_[i_]) == kDigit)
            ++i_;
        if (i_ == fraction) --i_;  // "1." is not a decimal: report it below
    }
    if (!at_end() && symbol_char(text_[i_])) {
        while (!at_end() && symbol_char(text_[i_]))
            ++i_;
        throw ParseError(node.pos, "malformed number " + quoted(text_.substr(begin, i_ - begin)));
    }
    node.text_begin = static_cast<std::uint32_t>(begin);
    node.text_size = static_cast<std::uint32_t>(i_ - begin);
    if (node.text_size > kMaxNumeralDigits)
        check_numeral_length(text_.substr(begin, i_ - begin), node.pos);
}

void SExprReader::bits(SNode& node) {
    std::size_t begin = i_++;
    char base = at_end() ? '\0' : text_[i_++];
    auto digit = [&](char d) {
        return base == 'b' ? d == '0' || d == '1' : std::isxdigit(static_cast<unsigned char>(d));
    };
    std::size_t first = i_;
    while (!at_end() && (base == 'b' || base == 'x') && digit(text_[i_]))
        ++i_;
    if ((base != 'b' && base != 'x') || i_ == first || (!at_end() && symbol_char(text_[i_]))) {
        while (!at_end() && symbol_char(text_[i_]))
            ++i_;
        throw ParseError(node.pos, "malformed literal " + quoted(text_.substr(begin, i_ - begin)));
    }
    node.kind = SNode::Kind::Bits;
    node.text_begin = static_cast<std::uint32_t>(begin);
    node.text_size = static_cast<std::uint32_t>(i_ - begin);
}

void SExprReader::skip_comment() {
    std::size_t end = text_.find('\n', i_);
    i_ = end == std::string_view::npos ? text_.size() : end;
}

}  // namespace vorn::io
