#pragma once

// ClauseArena: every clause of the solver in one array, addressed by offset (CRef).
//
// Layout. A clause is two header words followed by its literals: the size, then the flags
// (learned, garbage, used since the last reduction, theory lemma) and the LBD. Clauses lie back to
// back in the order they were added, so a walk from the first offset visits all of them.
// Deletion only sets the garbage flag and counts the words as wasted; compact() copies the live
// clauses to a fresh array in the same order and rewrites the references the caller holds.
//
// Invariants the solver keeps on top: a clause has at least two literals, its first two are the
// watched ones, and a clause that is the reason of an assignment has the implied literal first.
//
// Costs: add appends (amortized O(size)); every access is O(1); compact is linear in the
// arena. A span returned by lits() is valid until the next add() or compact().

#include <cstdint>
#include <span>
#include <vector>

#include "vorn/sat/literal.h"

namespace vorn::sat {

using CRef = std::uint32_t;
// Reasons that are not clauses: a decision (or level-0 fact), and a theory implication whose
// clause has not been asked for yet.
constexpr CRef kNoClause = ~CRef{0};
constexpr CRef kTheoryReason = ~CRef{0} - 1;

class ClauseArena {
  public:
    CRef add(std::span<const Lit> lits, bool learned, bool lemma, std::uint32_t lbd);

    std::span<Lit> lits(CRef c) { return {mem_.data() + c + kHeader, size(c)}; }
    std::span<const Lit> lits(CRef c) const { return {mem_.data() + c + kHeader, size(c)}; }
    std::uint32_t size(CRef c) const { return mem_[c].code(); }

    bool learned(CRef c) const { return (flags(c) & kLearned) != 0; }
    bool garbage(CRef c) const { return (flags(c) & kGarbage) != 0; }
    bool used(CRef c) const { return (flags(c) & kUsed) != 0; }
    bool lemma(CRef c) const { return (flags(c) & kLemma) != 0; }
    std::uint32_t lbd(CRef c) const { return flags(c) >> kFlagBits; }

    void set_used(CRef c, bool used) { set_flag(c, kUsed, used); }
    void set_lbd(CRef c, std::uint32_t lbd);
    void remove(CRef c);

    // Offsets of the clauses in order; next(c) == end() after the last one.
    CRef first() const { return 0; }
    CRef next(CRef c) const { return c + kHeader + size(c); }
    CRef end() const { return static_cast<CRef>(mem_.size()); }

    std::size_t words() const { return mem_.size(); }
    std::size_t wasted() const { return wasted_; }

    // Drops the garbage clauses. Every entry of `refs` that names a clause is rewritten to the
    // clause's new offset, or to kNoClause when the clause was garbage.
    void compact(std::vector<CRef>& refs);

  private:
    static constexpr CRef kHeader = 2;
    static constexpr std::uint32_t kLearned = 1, kGarbage = 2, kUsed = 4, kLemma = 8;
    static constexpr int kFlagBits = 4;

    std::uint32_t flags(CRef c) const { return mem_[c + 1].code(); }
    void set_flags(CRef c, std::uint32_t f) { mem_[c + 1] = Lit::from_code(f); }
    void set_flag(CRef c, std::uint32_t flag, bool on) {
        set_flags(c, on ? flags(c) | flag : flags(c) & ~flag);
    }

    // Header words are stored as literal codes so that the whole arena is one typed array.
    std::vector<Lit> mem_;
    std::size_t wasted_ = 0;
};

}  // namespace vorn::sat
