#pragma once

// VarSet: a set of variables as a sorted array with lazy removal.
//
// Each entry (VarFlag) stores 2v for variable v, with bit 0 as the "removed" mark, so variables
// lie in [-2^30, 2^30). Entries are strictly ascending by variable, marked ones in their sorted
// places; `count_` is the number of unmarked entries. Invariant "quarter-live": between
// operations 4·count_ ≥ number of entries; `erase` restores it by compacting to an array of
// exactly `count_` entries.
//
// Costs: membership and erase are one binary search (erase then writes one bit); insert shifts
// the tail; the union is one linear merge into a fresh array of capacity count_ + other.count_.
// Iteration skips marked entries and yields members in ascending order.

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace vorn::la {

class VarSet {
  public:
    // Variables lie in [-kLimit, kLimit): an entry keeps 2v in 32 bits.
    static constexpr int kLimit = 1 << 30;

    class VarFlag {
      public:
        VarFlag() = default;
        explicit constexpr VarFlag(std::int32_t raw) : raw_(raw) {}
        static constexpr VarFlag of(int v) {
            assert(v >= -kLimit && v < kLimit && "VarSet holds variables in [-2^30, 2^30)");
            return VarFlag(static_cast<std::int32_t>(v * 2));
        }
        constexpr std::int32_t raw() const { return raw_; }
        constexpr int var() const { return raw_ >> 1; }
        constexpr bool removed() const { return (raw_ & 1) != 0; }
        void mark_removed() { raw_ |= 1; }
        void clear_mark() { raw_ &= ~1; }

      private:
        std::int32_t raw_ = 0;
    };

    class const_iterator {
      public:
        using value_type = int;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::forward_iterator_tag;
        using pointer = const int*;
        using reference = int;

        const_iterator() = default;
        const_iterator(const VarFlag* pos, const VarFlag* end) : pos_(pos), end_(end) { skip(); }
        int operator*() const { return pos_->var(); }
        const_iterator& operator++() {
            ++pos_;
            skip();
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator old = *this;
            ++*this;
            return old;
        }
        bool operator==(const const_iterator& o) const { return pos_ == o.pos_; }

      private:
        void skip() {
            while (pos_ != end_ && pos_->removed())
                ++pos_;
        }
        const VarFlag* pos_ = nullptr;
        const VarFlag* end_ = nullptr;
    };
    using iterator = const_iterator;

    VarSet() = default;
    VarSet(const VarSet&) = default;
    VarSet& operator=(const VarSet&) = default;
    // A moved-from set is empty, its count included.
    VarSet(VarSet&& other) noexcept
        : entries_(std::exchange(other.entries_, {})), count_(std::exchange(other.count_, 0)) {}
    VarSet& operator=(VarSet&& other) noexcept {
        entries_ = std::exchange(other.entries_, {});
        count_ = std::exchange(other.count_, 0);
        return *this;
    }

    // Adds v; true when v was not a member. A removed entry is revived in place.
    std::pair<const_iterator, bool> insert(int v);
    // Replaces this set by the union with `other`, leaving no marked entries.
    void insert(const VarSet& other);
    // Marks v's entry removed (if v is a member) and compacts.
    void erase(int v);
    // Drops the marked entries when fewer than a quarter of the entries are live.
    void compact();

    bool contains(int v) const;
    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    const std::vector<VarFlag>& entries() const { return entries_; }

    const_iterator begin() const { return {data_begin(), data_end()}; }
    const_iterator end() const { return {data_end(), data_end()}; }

  private:
    const VarFlag* data_begin() const { return entries_.data(); }
    const VarFlag* data_end() const { return entries_.data() + entries_.size(); }
    // First entry whose variable is not less than v, marked or not.
    std::size_t lower_bound(int v) const;

    std::vector<VarFlag> entries_;
    std::size_t count_ = 0;
};

}  // namespace vorn::la
