#pragma once

// SMT-LIB 2 s-expressions: comments, |quoted symbols|, string literals with "" escapes,
// keywords, numerals and decimals. The reader is iterative and refuses nesting deeper than
// kMaxSmtDepth, so no input can exhaust the stack, and a tree is one flat array of plain nodes in
// prefix order: freeing it is one deallocation whatever its shape, and reading appends each node
// once. Symbols and keywords are interned into the caller's NameTable as they are read (|x| and x
// are the same symbol); every other node views the text, which must outlive the trees.
//
// Quoted symbols may hold any printable UTF-8 and white space, nothing else: a NUL or another
// control byte, a backslash or a byte that is not UTF-8 is an error at that byte.

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "vorn/io/source.h"
#include "vorn/smt/name_table.h"

namespace vorn::io {

// 32 bytes, written once as the text is read.
struct SNode {
    // Bits: a binary (#b101) or hexadecimal (#x1F) literal, kept as written; the linear fragment
    // has no use for them, so the command that meets one fails, not the reading.
    enum class Kind : std::uint8_t { List, Symbol, Keyword, Numeral, Decimal, String, Bits };
    Kind kind = Kind::List;
    std::uint32_t symbol = 0;  // Symbol and Keyword (with its ':'): the interned name
    std::uint32_t end = 0;     // List: the node after its last descendant
    std::uint32_t size = 0;    // List: how many children
    // Numeral, Decimal and Bits: the lexeme; String: what is between the quotes (SExprTree::text).
    std::uint32_t text_begin = 0;
    std::uint32_t text_size = 0;
    smt::SourcePos pos;

    bool is_list() const { return kind == Kind::List; }
    bool is_symbol(std::uint32_t s) const { return kind == Kind::Symbol && symbol == s; }
};

// One top-level expression, its nodes in prefix order: a list's first child follows it, and a
// child's next sibling follows the child's last descendant.
//
//   for (Id c = tree.first(list); c != tree.end(list); c = tree.next(c)) ...
class SExprTree {
  public:
    using Id = std::uint32_t;

    const SNode& operator[](Id id) const { return nodes_[id]; }
    std::string_view text(const SNode& node) const {
        return source_.substr(node.text_begin, node.text_size);
    }
    Id root() const { return 0; }
    Id first(Id list) const { return list + 1; }
    Id end(Id list) const { return nodes_[list].end; }
    Id next(Id node) const { return nodes_[node].is_list() ? nodes_[node].end : node + 1; }
    // Whether a node of expression `id`, `id` itself included, satisfies `pred`; O(its nodes).
    template <class Pred>
    bool any_node(Id id, Pred pred) const {
        for (Id i = id; i != next(id); ++i)
            if (pred(nodes_[i])) return true;
        return false;
    }
    // The k-th child (from 0) of a list with more than k children; walks k siblings.
    Id child(Id list, std::uint32_t k) const {
        Id c = first(list);
        while (k-- > 0)
            c = next(c);
        return c;
    }

    // A tree holding a copy of expression `id` at node 1 (node 0 is an empty list, so that 0
    // never names the copy): for definitions that outlive their command.
    SExprTree copy_of(Id id) const {
        SExprTree out;
        out.source_ = source_;
        out.nodes_.push_back(SNode{});
        out.nodes_.insert(out.nodes_.end(), nodes_.begin() + id, nodes_.begin() + next(id));
        for (std::size_t i = 1; i < out.nodes_.size(); ++i)
            if (out.nodes_[i].is_list()) out.nodes_[i].end = out.nodes_[i].end - id + 1;
        out.nodes_[0].end = static_cast<std::uint32_t>(out.nodes_.size());
        return out;
    }

  private:
    friend class SExprReader;
    std::vector<SNode> nodes_;
    std::string_view source_;
};

class SExprReader {
  public:
    SExprReader(std::string_view text, smt::NameTable& symbols) : text_(text), symbols_(symbols) {}

    // Reads the next top-level expression into `tree` (reusing its storage); false at the end of
    // the text. Throws ParseError.
    bool next(SExprTree& tree);
    // How much of the text has been read.
    std::size_t offset() const { return i_; }

  private:
    void atom(SNode& node);
    void symbol(SNode& node, std::size_t begin);
    std::uint64_t word_at(std::size_t at, std::size_t size) const;
    void quoted_symbol(SNode& node);
    void string_literal(SNode& node);
    void number(SNode& node);
    void bits(SNode& node);
    void skip_comment();
    void newline_at(std::size_t i) {
        ++line_;
        line_start_ = i + 1;
    }
    bool at_end() const { return i_ >= text_.size(); }
    smt::SourcePos here() const { return {line_, static_cast<int>(i_ - line_start_) + 1}; }

    // Symbols of up to 16 bytes seen lately, by their bytes: keywords and operators repeat on
    // every line and skip the hash table.
    struct Recent {
        std::uint64_t word[2] = {0, 0};
        std::uint32_t size = 0;
        std::uint32_t symbol = smt::NameTable::kNone;
    };

    std::string_view text_;
    smt::NameTable& symbols_;
    std::size_t i_ = 0;
    int line_ = 1;
    std::size_t line_start_ = 0;
    std::vector<std::uint32_t> open_;  // the lists not closed yet, innermost last
    std::array<Recent, 256> recent_{};
};

}  // namespace vorn::io
