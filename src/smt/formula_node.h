#pragma once

// The inside of Term and Formula: the node DAG that formulas share, and the access the solver's
// translation needs to it.

#include <cstdint>
#include <memory>
#include <vector>

#include "vorn/smt/problem.h"
#include "vorn/smt/solver.h"

namespace vorn::smt {

namespace detail {

// One node of the formula DAG, immutable once built.
struct Node {
    enum class Kind : std::uint8_t { Constant, Compare, Boolean, Not, And, Or, Implies, Ite };

    Kind kind = Kind::Constant;
    bool value = false;       // Constant
    Relation compare{};       // Compare: terms[0] ⋈ 0, one of = ≠ ≤ < ≥ >
    int boolean = 0;          // Boolean: numbered from 1 by its solver
    std::uint64_t owner = 0;  // as Term's
    std::vector<std::shared_ptr<const Node>> children;  // Not: 1; And, Or, Implies: 2; Ite: 1
    std::vector<Term> terms;  // Compare: lhs − rhs, merged; Ite: then, otherwise

    Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    // Releases long chains of sole-owned nodes one by one instead of recursively.
    ~Node();
};

struct Access {
    static std::uint64_t owner(const Term& t) { return t.owner_; }
    static const std::vector<Term::Part>& parts(const Term& t) { return t.parts_; }
    static const std::vector<Term::Ite>& ites(const Term& t) { return t.ites_; }
    static std::vector<Term::Ite>& ites(Term& t) { return t.ites_; }
    static void merge(Term& t) { t.merge(); }
    static Term variable(std::uint64_t owner, int var);
    // 1 · (the ite `node`).
    static Term ite(std::uint64_t owner, std::shared_ptr<const Node> node);
    static const std::shared_ptr<const Node>& node(const Formula& f) { return f.node_; }
    static Formula formula(std::shared_ptr<const Node> node) { return Formula(std::move(node)); }
};

}  // namespace detail

}  // namespace vorn::smt
