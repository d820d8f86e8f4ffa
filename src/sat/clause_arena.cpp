#include "vorn/sat/clause_arena.h"

#include <cassert>

namespace vorn::sat {

CRef ClauseArena::add(std::span<const Lit> lits, bool learned, bool lemma, std::uint32_t lbd) {
    assert(mem_.size() + kHeader + lits.size() < kTheoryReason);
    auto c = static_cast<CRef>(mem_.size());
    mem_.push_back(Lit::from_code(static_cast<std::uint32_t>(lits.size())));
    mem_.push_back(Lit::from_code(0));
    mem_.insert(mem_.end(), lits.begin(), lits.end());
    set_flag(c, kLearned, learned);
    set_flag(c, kLemma, lemma);
    set_lbd(c, lbd);
    return c;
}

void ClauseArena::set_lbd(CRef c, std::uint32_t lbd) {
    constexpr std::uint32_t kMaxLbd = (std::uint32_t{1} << (32 - kFlagBits)) - 1;
    if (lbd > kMaxLbd) lbd = kMaxLbd;
    set_flags(c, (flags(c) & ((1u << kFlagBits) - 1)) | (lbd << kFlagBits));
}

void ClauseArena::remove(CRef c) {
    assert(!garbage(c));
    set_flag(c, kGarbage, true);
    wasted_ += kHeader + size(c);
}

void ClauseArena::compact(std::vector<CRef>& refs) {
    // Once a clause is copied, its old flags word is free: it carries the clause's new offset
    // (kNoClause for garbage) to the references rewritten afterwards.
    std::vector<Lit> fresh;
    fresh.reserve(mem_.size() - wasted_);
    for (CRef c = first(); c != end(); c = next(c)) {
        if (garbage(c)) {
            set_flags(c, kNoClause);
            continue;
        }
        auto moved = static_cast<CRef>(fresh.size());
        fresh.insert(fresh.end(), mem_.begin() + c, mem_.begin() + next(c));
        set_flags(c, moved);
    }
    for (CRef& r : refs)
        if (r != kNoClause && r != kTheoryReason) r = flags(r);
    mem_ = std::move(fresh);
    wasted_ = 0;
}

}  // namespace vorn::sat
