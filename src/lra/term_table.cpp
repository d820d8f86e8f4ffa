#include "vorn/lra/term_table.h"

#include <algorithm>

namespace vorn::lra {

namespace {

std::uint64_t mix(std::uint64_t h, std::uint64_t word) {
    h ^= word + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
    return h;
}

// Depends on the value only, not on the form: a big number holding a small value hashes like
// its small twin (sign, lowest limb of |numerator| and of the denominator).
std::uint64_t hash_value(const QNumber& q) {
    std::uint64_t num, den;
    if (mpq_srcptr big = q.big_block()) {
        num = mpz_getlimbn(mpq_numref(big), 0);
        den = mpz_getlimbn(mpq_denref(big), 0);
    } else {
        auto n = static_cast<std::uint64_t>(q.num_word());
        num = q.num_word() < 0 ? 0 - n : n;
        den = static_cast<std::uint64_t>(q.den_word());
    }
    return mix(mix(static_cast<std::uint64_t>(q.sign() + 1), num), den);
}

bool same_term(std::span<const la::Equation::VarCoeff> a,
               std::span<const la::Equation::VarCoeff> b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.var == y.var && x.coeff == y.coeff;
    });
}

}  // namespace

QNumber normalize_term(TermEntries& entries) {
    la::normalize_entries(entries);
    if (entries.empty()) return QNumber();
    QNumber factor(entries.front().coeff);
    if (!factor.is_one())
        for (auto& e : entries)
            e.coeff /= factor;
    return factor;
}

std::uint64_t TermTable::hash_of(std::span<const la::Equation::VarCoeff> normal) {
    std::uint64_t h = normal.size();
    for (const auto& e : normal)
        h = mix(mix(h, static_cast<std::uint64_t>(e.var)), hash_value(e.coeff));
    return h;
}

TermTable::Interned TermTable::intern(std::span<const la::Equation::VarCoeff> normal) {
    std::uint64_t h = hash_of(normal);
    auto [first, last] = by_hash_.equal_range(h);
    for (auto it = first; it != last; ++it)
        if (same_term(term(it->second), normal)) return {it->second, false};
    int index = static_cast<int>(size());
    entries_.insert(entries_.end(), normal.begin(), normal.end());
    starts_.push_back(entries_.size());
    by_hash_.emplace(h, index);
    return {index, true};
}

void TermTable::truncate(std::size_t n) {
    for (std::size_t k = size(); k-- > n;) {
        auto [first, last] = by_hash_.equal_range(hash_of(term(static_cast<int>(k))));
        for (auto it = first; it != last; ++it)
            if (it->second == static_cast<int>(k)) {
                by_hash_.erase(it);
                break;
            }
    }
    if (n < size()) {
        entries_.resize(starts_[n]);
        starts_.resize(n + 1);
    }
}

}  // namespace vorn::lra
