#pragma once

// The sorts an SMT-LIB script names: Bool, Int and Real, the uninterpreted sorts of
// declare-sort (arity 0 only) and the abbreviations of define-sort, with or without parameters.
//
// A sort expression resolves to one of four kinds by expanding abbreviations, their parameters
// bound to the kinds of the arguments; every other sort (Array, bit-vectors, ...) is an error.
// An abbreviation's body is copied once at its definition; resolving costs the size of the
// expansion, bounded by kMaxExpansion steps so that nested abbreviations cannot blow up.
//
// The declarations are a stack: size() at a push, truncate() at its pop, as for constants. A
// later declaration of a name is refused while the earlier one is in scope.

#include <cstdint>
#include <vector>

#include "vorn/io/sexpr.h"
#include "vorn/smt/name_table.h"

namespace vorn::io {

enum class SortKind : std::uint8_t { Bool, Int, Real, Uninterpreted };

class SortTable {
  public:
    explicit SortTable(const smt::NameTable& symbols) : symbols_(symbols) {}

    // (declare-sort name arity); throws ParseError.
    void declare(const SExprTree& tree, SExprTree::Id name, SExprTree::Id arity);
    // (define-sort name (params) body); throws ParseError. The body is checked at each use.
    void define(const SExprTree& tree, SExprTree::Id name, SExprTree::Id params,
                SExprTree::Id body);
    // The kind of the sort expression `sort`; throws ParseError.
    SortKind resolve(const SExprTree& tree, SExprTree::Id sort) const;

    std::size_t size() const { return sorts_.size(); }
    void truncate(std::size_t size) {
        if (sorts_.size() > size) sorts_.resize(size);
    }

  private:
    struct Sort {
        std::uint32_t symbol;
        std::vector<std::uint32_t> params;
        SExprTree body;  // at node 1; empty for a declared sort
        bool declared;
    };
    struct Binding {
        std::uint32_t symbol;
        SortKind kind;
    };
    static constexpr std::uint64_t kMaxExpansion = 1'000'000;

    SortKind resolve(const SExprTree& tree, SExprTree::Id sort, const std::vector<Binding>& env,
                     std::uint64_t& steps, int depth) const;
    const Sort* find(std::uint32_t symbol) const;
    void fresh(const SNode& name) const;

    const smt::NameTable& symbols_;
    std::vector<Sort> sorts_;
};

}  // namespace vorn::io
