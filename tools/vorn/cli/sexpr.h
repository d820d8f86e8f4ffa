#pragma once

// SMT-LIB 2 s-expressions: comments, |quoted symbols|, string literals with "" escapes,
// keywords, numerals and decimals. The reader is iterative and refuses nesting deeper than
// kMaxSmtDepth, so no input can exhaust the stack, and a tree is one flat array of plain nodes:
// freeing it is one deallocation whatever its shape. Symbols and keywords are interned into the
// caller's NameTable as they are read (|x| and x are the same symbol); every other node views
// the text, which must outlive the trees.
//
// Quoted symbols may hold any printable UTF-8 and white space, nothing else: a NUL or another
// control byte, a backslash or a byte that is not UTF-8 is an error at that byte.

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "cli/names.h"
#include "cli/source.h"

namespace vorn::cli {

struct SNode {
    enum class Kind : std::uint8_t { List, Symbol, Keyword, Numeral, Decimal, String };
    Kind kind = Kind::List;
    std::uint32_t symbol = 0;  // Symbol and Keyword (with its ':'): the interned name
    std::uint32_t first = 0;   // List: where its children start in the tree
    std::uint32_t size = 0;    // List: how many children
    std::string_view text;     // Numeral and Decimal: the lexeme; String: between the quotes
    SourcePos pos;

    bool is_list() const { return kind == Kind::List; }
    bool is_symbol(std::uint32_t s) const { return kind == Kind::Symbol && symbol == s; }
};

// One top-level expression. A list's children are contiguous.
class SExprTree {
  public:
    const SNode& root() const { return root_; }
    std::span<const SNode> children(const SNode& list) const {
        return {nodes_.data() + list.first, list.size};
    }

  private:
    friend class SExprReader;
    std::vector<SNode> nodes_;
    SNode root_;
};

class SExprReader {
  public:
    SExprReader(std::string_view text, NameTable& symbols) : text_(text), symbols_(symbols) {}

    // Reads the next top-level expression into `tree` (reusing its storage); false at the end of
    // the text. Throws InputError.
    bool next(SExprTree& tree);

  private:
    struct Open {
        std::size_t pending_begin;  // its children so far are pending_[pending_begin...]
        SourcePos pos;
    };

    void close_list(SExprTree& tree);
    SNode atom();
    SNode quoted_symbol(SourcePos pos);
    SNode string_literal(SourcePos pos);
    SNode number(SourcePos pos);
    void skip_blank();
    void newline_at(std::size_t i) {
        ++line_;
        line_start_ = i + 1;
    }
    bool at_end() const { return i_ >= text_.size(); }
    SourcePos here() const { return pos_at(i_); }
    SourcePos pos_at(std::size_t i) const { return {line_, static_cast<int>(i - line_start_) + 1}; }

    std::string_view text_;
    NameTable& symbols_;
    std::size_t i_ = 0;
    int line_ = 1;
    std::size_t line_start_ = 0;
    std::vector<SNode> pending_;  // finished nodes whose list is still open
    std::vector<Open> open_;
    // Operators are one character long and most of the symbols read: they skip the hash table.
    std::array<std::uint32_t, 128> one_char_symbols_ = filled_with_none();

    static constexpr std::array<std::uint32_t, 128> filled_with_none() {
        std::array<std::uint32_t, 128> a{};
        a.fill(NameTable::kNone);
        return a;
    }
};

}  // namespace vorn::cli
