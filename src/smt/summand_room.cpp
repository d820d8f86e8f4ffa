// The room a slack's bound leaves its long row: s = Σ aⱼ·xⱼ with s ≤ u bounds xₖ only when
// u − Σⱼ aⱼ·bⱼ (the bⱼ the bounds that give each summand its least value) is less than
// |aₖ| times the span between xₖ's two bounds. On an objective over 150 soft assertions, the full
// pass of propagate_to_summands at every new bound on a summand was a third of a MaxSAT search;
// with the sum kept current summand by summand, a pass runs only where a summand with an open
// atom spans more than the room.

#include <algorithm>

#include "arith_theory.h"

namespace vorn::smt {

namespace {

std::size_t room_key(int slack, bool slack_upper) {
    return static_cast<std::size_t>(slack) * 2 + (slack_upper ? 1 : 0);
}

}  // namespace

// An atom implied earlier in this propagate() call counts as decided: nothing more is implied
// for it, and the room's pass skipped past it again at every later bound of the call (maxsat100
// s3: a quarter of the time).
bool ArithTheory::has_open_atom(int var) const {
    if (static_cast<std::size_t>(var) >= atoms_on_.size()) return false;
    const auto& on = atoms_on_[static_cast<std::size_t>(var)];
    return std::any_of(on.begin(), on.end(), [&](std::uint32_t o) {
        return atom_data_[o].alive && value_[atoms_[o].var] == 0 && !implied_now_[atoms_[o].var];
    });
}

// The room's sum may lag behind bounds not yet noted, never ahead of them (a backtrack forgets
// it): the bounds it gives are as loose as the current ones' or looser, so what they imply the
// current bounds, which explain it, imply too.
bool ArithTheory::propagate_within_room(int slack, bool slack_upper, const lra::BoundRecord& sb,
                                        std::vector<sat::Lit>& implied) {
    std::size_t key = room_key(slack, slack_upper);
    if (key >= rooms_.size()) return false;
    SummandRoom& room = rooms_[key];
    if (!room.valid || room.missing != 0) return false;
    lra::DeltaRational rest = sb.value;
    rest -= room.sum;
    lra::DeltaRational room_left = rest;
    if (!slack_upper) room_left *= QNumber(-1);
    const auto& term = simplex_.slack_term(slack);
    bool bounds_read = false;
    auto next_open = [&](std::uint32_t i) {
        std::vector<std::uint32_t>& next = room.next_open;
        while (next[i] != i) {
            next[i] = next[next[i]];
            i = next[i];
        }
        return i;
    };
    auto n = static_cast<std::uint32_t>(room.order.size());
    for (std::uint32_t i = next_open(0); i < n; i = next_open(i + 1)) {
        if (!room.unspanned_from[i] && room.widest_from[i] <= room_left) break;
        std::uint32_t k = room.order[i];
        if (!(room.unspanned[k] || room.span[k] > room_left)) continue;
        if (!has_open_atom(term[k].var)) {
            room.next_open[i] = i + 1;
            continue;
        }
        if (!bounds_read && record_) {  // a proof's explanations: the current bounds
            summand_bounds_.assign(term.size(), nullptr);
            for (std::size_t j = 0; j < term.size(); ++j) {
                const auto& e = term[j];
                summand_bounds_[j] = literal_bound(e.var, slack_upper != (e.coeff.sign() > 0));
                if (summand_bounds_[j] == nullptr) return false;
            }
            bounds_read = true;
        }
        lra::DeltaRational bound = rest;
        bound.add_product(term[k].coeff, room.bound[k]);
        imply_on_summand(slack, slack_upper, k, std::move(bound), sb, implied);
    }
    return true;
}

// The summand's bound may have tightened (or, pending a backtrack, be gone): its part of the sum
// follows.
void ArithTheory::note_summand_bound(int slack, bool slack_upper, std::uint32_t index) {
    std::size_t key = room_key(slack, slack_upper);
    if (key >= rooms_.size() || !rooms_[key].valid || index >= rooms_[key].has.size()) return;
    SummandRoom& room = rooms_[key];
    const auto& e = simplex_.slack_term(slack)[index];
    const lra::BoundRecord* b = literal_bound(e.var, slack_upper != (e.coeff.sign() > 0));
    if (room.has[index]) {
        if (b != nullptr && b->value == room.bound[index]) return;
        room.sum.add_product(-e.coeff, room.bound[index]);
    } else if (b != nullptr) {
        --room.missing;
    }
    room.has[index] = b != nullptr;
    if (b == nullptr) {
        ++room.missing;
        return;
    }
    room.bound[index] = b->value;
    room.sum.add_product(e.coeff, b->value);
}

// After a full pass: summand_bounds_ holds each summand's bound that the sum needs (nullptr:
// none).
void ArithTheory::remember_room(int slack, bool slack_upper) {
    const auto& term = simplex_.slack_term(slack);
    if (term.size() < kRoomRowSize) return;
    std::size_t key = room_key(slack, slack_upper);
    if (rooms_.size() <= key) rooms_.resize(key + 1);
    SummandRoom& room = rooms_[key];
    if (!room.valid) valid_rooms_.push_back(static_cast<std::uint32_t>(key));
    room.valid = true;
    room.missing = 0;
    room.sum.set_zero();
    room.bound.resize(term.size());
    room.span.resize(term.size());
    room.has.assign(term.size(), 0);
    room.unspanned.assign(term.size(), 0);
    const lra::BoundTrail& bounds = simplex_.bounds();
    for (std::size_t j = 0; j < term.size(); ++j) {
        const auto& e = term[j];
        const lra::BoundRecord* b = summand_bounds_[j];
        if (b == nullptr) {
            ++room.missing;
            room.unspanned[j] = 1;
            continue;
        }
        room.has[j] = 1;
        room.bound[j] = b->value;
        room.sum.add_product(e.coeff, b->value);
        // The side the slack's bound would tighten: the one opposite b.
        bool other_upper = !b->upper;
        if (other_upper ? !bounds.has_upper(e.var) : !bounds.has_lower(e.var)) {
            room.unspanned[j] = 1;
            continue;
        }
        lra::DeltaRational& span = room.span[j];
        span = other_upper ? bounds.upper_value(e.var) : bounds.lower_value(e.var);
        span -= b->value;
        span *= e.coeff.sign() == (other_upper ? 1 : -1) ? e.coeff : -e.coeff;
    }
    // The order is the first pass's: spans only narrow until the backtrack that forgets them.
    if (room.order.size() != term.size()) {
        room.order.resize(term.size());
        for (std::uint32_t j = 0; j < term.size(); ++j)
            room.order[j] = j;
        std::stable_sort(room.order.begin(), room.order.end(), [&](auto a, auto b) {
            return room.unspanned[a] > room.unspanned[b] ||
                   (room.unspanned[a] == room.unspanned[b] && room.span[a] > room.span[b]);
        });
        room.widest_from.resize(term.size());
        room.unspanned_from.resize(term.size());
    }
    room.next_open.resize(term.size() + 1);
    for (std::uint32_t i = 0; i <= term.size(); ++i)
        room.next_open[i] = i;
    lra::DeltaRational widest;
    bool unspanned = false;
    for (std::size_t i = term.size(); i-- > 0;) {
        std::uint32_t k = room.order[i];
        unspanned = unspanned || room.unspanned[k];
        if (!room.unspanned[k] && room.span[k] > widest) widest = room.span[k];
        room.widest_from[i] = widest;
        room.unspanned_from[i] = unspanned;
    }
}

void ArithTheory::forget_rooms() {
    for (std::uint32_t key : valid_rooms_)
        rooms_[key].valid = false;
    valid_rooms_.clear();
}

}  // namespace vorn::smt
