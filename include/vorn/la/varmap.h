#pragma once

// VarMap: a dense map indexed by (non-negative) variable number.
//
// `values_[i]` holds the value of index i and `present_[i]` says whether i is in the map; both
// arrays have the same length, the span, and `count_` is the number of present indices. Absent
// slots hold the null value. The span grows only through operator[], to max(2·span, i + 1),
// and never shrinks. Lookups are one array access; memory follows the largest index stored.
//
// Only the form with both flags true is provided: presence bytes and the count are kept.

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "vorn/util/array_growth.h"

namespace vorn::la {

template <class T, bool kTrackPresence = true, bool kCount = true>
class VarMap;

template <class T>
class VarMap<T, true, true> {
  public:
    class const_iterator {
      public:
        const_iterator(const VarMap* map, std::size_t index) : map_(map), index_(index) { skip(); }
        int index() const { return static_cast<int>(index_); }
        const T& value() const { return map_->values_[index_]; }
        std::pair<int, const T&> operator*() const { return {index(), value()}; }
        const_iterator& operator++() {
            ++index_;
            skip();
            return *this;
        }
        bool operator==(const const_iterator& o) const { return index_ == o.index_; }

      private:
        void skip() {
            std::size_t span = map_->present_.size();
            while (index_ < span && map_->present_[index_] == 0)
                ++index_;
        }
        const VarMap* map_;
        std::size_t index_;
    };

    VarMap() = default;
    VarMap(const VarMap&) = default;
    VarMap& operator=(const VarMap&) = default;
    // A moved-from map is empty: span 0, count 0.
    VarMap(VarMap&& other) noexcept
        : values_(std::exchange(other.values_, {})),
          present_(std::exchange(other.present_, {})),
          count_(std::exchange(other.count_, 0)) {}
    VarMap& operator=(VarMap&& other) noexcept {
        values_ = std::exchange(other.values_, {});
        present_ = std::exchange(other.present_, {});
        count_ = std::exchange(other.count_, 0);
        return *this;
    }

    // Makes i present, growing the span when i lies beyond it, and returns its slot.
    T& operator[](int i) {
        assert(i >= 0 && "VarMap indices are non-negative");
        auto index = static_cast<std::int64_t>(i);
        if (index >= static_cast<std::int64_t>(values_.size())) grow(static_cast<std::size_t>(i));
        if (present_[i] == 0) {
            present_[i] = 1;
            ++count_;
        }
        return values_[i];
    }

    // Capacity only: span, presence and count stay as they are.
    void reserve(unsigned long n) {
        if (n > values_.capacity()) util::reserve_exact(values_, n);
        if (n > present_.capacity()) util::reserve_exact(present_, n);
    }

    void erase(int i) {
        // Signed comparison; a negative index is a caller error, ignored rather than read.
        if (i < 0 || i >= static_cast<std::int32_t>(values_.size())) return;
        if (present_[i] == 0) return;
        values_[i] = T();
        present_[i] = 0;
        --count_;
    }

    bool contains(int i) const {
        return i >= 0 && static_cast<std::size_t>(i) < present_.size() && present_[i] != 0;
    }
    // The value of a present index (no growth, no insertion).
    const T& at(int i) const { return values_[i]; }

    std::size_t size() const { return count_; }
    std::size_t span() const { return values_.size(); }
    const std::vector<T>& values() const { return values_; }
    const std::vector<unsigned char>& present() const { return present_; }

    // An empty map scans no presence byte.
    const_iterator begin() const { return count_ == 0 ? end() : const_iterator(this, 0); }
    const_iterator end() const { return const_iterator(this, present_.size()); }

  private:
    // Both arrays get their room before either grows in length: if the second reservation
    // fails, the lengths still agree and every later call stays within them.
    void grow(std::size_t i) {
        std::size_t new_span = std::max(2 * values_.size(), i + 1);
        util::grow_for(values_, new_span);
        util::grow_for(present_, new_span);
        values_.resize(new_span, T());
        present_.resize(new_span, 0);
    }

    std::vector<T> values_;
    std::vector<unsigned char> present_;
    std::size_t count_ = 0;
};

}  // namespace vorn::la
