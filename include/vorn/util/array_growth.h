#pragma once

// Growth rules shared by the system's arrays: a growing array takes the larger of twice its
// capacity and the length it needs, and a request beyond the element type's maximum raises the
// standard length error "vector".

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace vorn::util {

template <class Vector>
void reserve_exact(Vector& v, std::size_t n) {
    if (n > v.max_size()) throw std::length_error("vector");
    v.reserve(n);
}

// Makes room for `needed` elements by the doubling rule.
template <class Vector>
void grow_for(Vector& v, std::size_t needed) {
    if (needed <= v.capacity()) return;
    if (needed > v.max_size()) throw std::length_error("vector");
    std::size_t doubled = v.capacity() > v.max_size() / 2 ? v.max_size() : 2 * v.capacity();
    v.reserve(std::max(doubled, needed));
}

}  // namespace vorn::util
