#pragma once

// Rearranging coefficient lists without copying numbers: an entry changes slot by handing its
// storage to the slot it goes to, so a big coefficient keeps its block and nothing is allocated
// or freed. Only the list's own array is ever allocated.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

#include "vorn/la/equation.h"
#include "vorn/util/array_growth.h"

namespace vorn::la::entries {

using Entries = std::vector<Equation::VarCoeff>;

// `to` takes `from`'s entry; `from` is left with a coefficient its caller overwrites or
// discards (`to`'s old block, if it had one, so that a later result can reuse it).
inline void relocate(Equation::VarCoeff& to, Equation::VarCoeff& from) noexcept {
    to.var = from.var;
    detail::relocate_storage(to.coeff, from.coeff);
}

// Resizes to `size` entries; when the array must grow it doubles (or takes `size`, if more) and
// the entries are relocated into the new array instead of being copied by the vector.
inline void resize(Entries& list, std::size_t size) {
    if (size <= list.capacity()) {
        list.resize(size);
        return;
    }
    Entries grown;
    util::grow_for(grown, std::max(size, 2 * list.capacity()));
    grown.resize(size);
    for (std::size_t i = 0; i < list.size(); ++i)
        relocate(grown[i], list[i]);
    list.swap(grown);
}

inline bool by_var(const Equation::VarCoeff& a, const Equation::VarCoeff& b) {
    return a.var < b.var;
}

// Sorts by variable (repeated variables keep their order): a permutation is sorted, then the
// entries are relocated into a fresh array in its order.
inline void sort_by_var(Entries& list) {
    if (std::is_sorted(list.begin(), list.end(), by_var)) return;
    std::vector<std::uint32_t> order(list.size());
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [&list](std::uint32_t a, std::uint32_t b) {
        return list[a].var != list[b].var ? list[a].var < list[b].var : a < b;
    });
    Entries sorted(list.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        relocate(sorted[i], list[order[i]]);
    list.swap(sorted);
}

}  // namespace vorn::la::entries
