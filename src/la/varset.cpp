#include "vorn/la/varset.h"

#include <cassert>

#include "vorn/util/array_growth.h"

namespace vorn::la {

std::size_t VarSet::lower_bound(int v) const {
    const std::size_t size = entries_.size();
    if (size == 0) return 0;
    // Branch-free halving: which half holds v is unpredictable, so a conditional move beats a
    // jump on the short arrays that columns mostly are.
    const VarFlag* base = entries_.data();
    for (std::size_t n = size; n > 1;) {
        std::size_t half = n / 2;
        base = base[half].var() < v ? base + half : base;
        n -= half;
    }
    return static_cast<std::size_t>(base - entries_.data()) + (base->var() < v ? 1 : 0);
}

bool VarSet::contains(int v) const {
    std::size_t pos = lower_bound(v);
    return pos < entries_.size() && entries_[pos].var() == v && !entries_[pos].removed();
}

std::pair<VarSet::const_iterator, bool> VarSet::insert(int v) {
    std::size_t pos = lower_bound(v);
    if (pos < entries_.size() && entries_[pos].var() == v) {
        bool revived = entries_[pos].removed();
        if (revived) {
            entries_[pos].clear_mark();
            ++count_;
        }
        return {const_iterator(data_begin() + pos, data_end()), revived};
    }
    util::grow_for(entries_, entries_.size() + 1);
    entries_.insert(entries_.begin() + static_cast<std::ptrdiff_t>(pos), VarFlag::of(v));
    ++count_;
    return {const_iterator(data_begin() + pos, data_end()), true};
}

void VarSet::insert(const VarSet& other) {
    std::vector<VarFlag> merged;
    util::reserve_exact(merged, count_ + other.count_);
    // Both counts are exact, so every live entry fits the reservation: write them straight into
    // the buffer instead of appending one by one.
    merged.resize(count_ + other.count_);
    VarFlag* out = merged.data();
    const VarFlag* a = data_begin();
    const VarFlag* a_end = data_end();
    const VarFlag* b = other.data_begin();
    const VarFlag* b_end = other.data_end();
    while (true) {
        while (a != a_end && a->removed())
            ++a;
        while (b != b_end && b->removed())
            ++b;
        if (a == a_end || b == b_end) break;
        if (a->raw() < b->raw()) {
            *out++ = *a++;
        } else if (b->raw() < a->raw()) {
            *out++ = *b++;
        } else {
            *out++ = *a++;
            ++b;
        }
    }
    for (; a != a_end; ++a)
        if (!a->removed()) *out++ = *a;
    for (; b != b_end; ++b)
        if (!b->removed()) *out++ = *b;
    assert(out <= merged.data() + merged.size() && "VarSet: count_ out of step with entries");
    merged.resize(static_cast<std::size_t>(out - merged.data()));
    entries_.swap(merged);
    count_ = entries_.size();
}

void VarSet::compact() {
    if (4 * count_ >= entries_.size()) return;
    std::vector<VarFlag> live;
    util::reserve_exact(live, count_);
    for (VarFlag f : entries_)
        if (!f.removed()) live.push_back(f);
    entries_.swap(live);
}

void VarSet::erase(int v) {
    std::size_t pos = lower_bound(v);
    if (pos == entries_.size() || entries_[pos].var() != v || entries_[pos].removed()) return;
    entries_[pos].mark_removed();
    --count_;
    compact();
}

}  // namespace vorn::la
