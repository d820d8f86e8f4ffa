#include "vorn/smt/canonical_atoms.h"

#include <algorithm>

#include "vorn/lra/integer_bounds.h"
#include "vorn/smt/linear_expr.h"

namespace vorn::smt {

namespace {

// The difference of terms a and b of a distinct.
const LinearExpr::Entries& difference(const Problem& problem, std::uint32_t a, std::uint32_t b,
                                      LinearExpr& out) {
    out.clear();
    for (const auto& e : problem.term(a))
        out.add_entry(e.var, e.coeff);
    for (const auto& e : problem.term(b))
        out.add_entry(e.var, -e.coeff);
    return out.entries();
}

bool has_variables(std::span<const Problem::Entry> entries) {
    return std::ranges::any_of(entries, [](const auto& e) { return e.var != 0; });
}

}  // namespace

CanonicalAtoms::Key CanonicalAtoms::key_of(const Problem& problem,
                                           std::span<const Problem::Entry> entries, Relation r) {
    Key key;
    normal_.clear();
    QNumber c;
    bool integral = true;
    for (const auto& e : entries) {
        if (e.var == 0) {
            c = -e.coeff;
            continue;
        }
        normal_.push_back(e);
        integral = integral && problem.variables.sort(e.var) == Sort::Int;
    }
    auto rounded = [&](Relation side) {
        return integral ? lra::round_integral_bound(normal_, side, c)->constant : c;
    };
    key.has_upper = r != Relation::Ge;
    key.has_lower = r != Relation::Le;
    if (key.has_upper) key.upper = rounded(Relation::Le);
    if (key.has_lower) key.lower = rounded(Relation::Ge);
    // term = factor · normal: a negative factor turns an upper bound into a lower one.
    QNumber factor = lra::normalize_term(normal_);
    if (factor.sign() < 0) {
        std::swap(key.has_upper, key.has_lower);
        std::swap(key.upper, key.lower);
    }
    if (key.has_upper) key.upper /= factor;
    if (key.has_lower) key.lower /= factor;
    key.term = terms_.intern(normal_).index;
    return key;
}

std::optional<CanonicalAtoms::Ref> CanonicalAtoms::lookup(const Key& key, bool negated) {
    if (static_cast<std::size_t>(key.term) < by_term_.size())
        for (const Known& k : by_term_[static_cast<std::size_t>(key.term)])
            if (k.key == key) return k.positive ^ (negated ? 1 : 0);
    return std::nullopt;
}

std::optional<CanonicalAtoms::Ref> CanonicalAtoms::find(const Problem& problem, const Atom& atom) {
    pending_ = {};
    pending_distinct_.clear();
    if (atom.relation == Relation::Distinct && atom.terms > 2) return find_distinct(problem, atom);
    LinearExpr diff;
    std::span<const Problem::Entry> entries =
        atom.relation == Relation::Distinct
            ? std::span<const Problem::Entry>(
                  difference(problem, atom.first_term, atom.first_term + 1, diff))
            : problem.term(atom.first_term);
    Relation r = atom.relation;
    pending_negated_ =
        r == Relation::Gt || r == Relation::Lt || r == Relation::Ne || r == Relation::Distinct;
    // t > 0 is ¬(t ≤ 0), t < 0 is ¬(t ≥ 0), t ≠ 0 and a distinct ¬(t = 0).
    if (pending_negated_) r = r == Relation::Distinct ? Relation::Eq : negation(r);
    if (!has_variables(entries)) return std::nullopt;
    pending_ = key_of(problem, entries, r);
    return lookup(pending_, pending_negated_);
}

std::optional<CanonicalAtoms::Ref> CanonicalAtoms::find_distinct(const Problem& problem,
                                                                 const Atom& atom) {
    std::vector<Key> pairs;
    LinearExpr diff;
    for (std::uint32_t a = 0; a < atom.terms; ++a)
        for (std::uint32_t b = a + 1; b < atom.terms; ++b) {
            const auto& entries =
                difference(problem, atom.first_term + a, atom.first_term + b, diff);
            // A pair that differs by a nonzero constant holds: the checker drops it too.
            if (has_variables(entries)) pairs.push_back(key_of(problem, entries, Relation::Eq));
        }
    std::ranges::sort(pairs, [](const Key& x, const Key& y) {
        if (x.term != y.term) return x.term < y.term;
        if (x.upper != y.upper) return x.upper < y.upper;
        return x.lower < y.lower;
    });
    pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
    if (pairs.empty()) return std::nullopt;
    if (pairs.size() == 1) {
        pending_ = pairs[0];
        pending_negated_ = true;
        return lookup(pending_, true);
    }
    for (const Key& k : pairs)
        pending_distinct_ +=
            std::to_string(k.term) + ' ' + k.upper.to_string() + ' ' + k.lower.to_string() + ';';
    auto at = distincts_.find(pending_distinct_);
    if (at == distincts_.end()) return std::nullopt;
    return at->second;
}

void CanonicalAtoms::add(Ref ref) {
    if (!pending_distinct_.empty()) {
        distincts_.emplace(pending_distinct_, ref);
        distinct_log_.push_back(std::move(pending_distinct_));
        pending_distinct_.clear();
        log_.push_back(-1);
        return;
    }
    if (pending_.term < 0) return;
    auto term = static_cast<std::size_t>(pending_.term);
    if (by_term_.size() <= term) by_term_.resize(term + 1);
    by_term_[term].push_back({std::move(pending_), ref ^ (pending_negated_ ? 1 : 0)});
    log_.push_back(static_cast<int>(term));
    pending_ = {};
}

void CanonicalAtoms::truncate(std::size_t nodes) {
    while (!log_.empty()) {
        int t = log_.back();
        Ref ref = t < 0 ? distincts_.at(distinct_log_.back())
                        : by_term_[static_cast<std::size_t>(t)].back().positive;
        if (ref / 2 < nodes) return;
        if (t < 0) {
            distincts_.erase(distinct_log_.back());
            distinct_log_.pop_back();
        } else {
            by_term_[static_cast<std::size_t>(t)].pop_back();
        }
        log_.pop_back();
    }
}

}  // namespace vorn::smt
