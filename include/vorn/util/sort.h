#pragma once

// Sorting under a stateful order, in place and without allocation.
//
// sort(): selection sort for up to 15 elements (n(n-1)/2 comparisons); otherwise an
// introspective sort (median-of-three quicksort, recursion on the left part only, heapsort when
// the depth limit of 32 runs out) that leaves ranges under 16 elements for one final insertion
// pass. The order object is taken and passed by value and may carry state; it must be a strict
// weak order. Not stable.

#include <cstddef>
#include <utility>

namespace vorn {

namespace sortimpl {

template <class T, class Size, class Less>
void sift_down(T* a, Size hole, Size n, T x, Less& lt) {
    for (Size child = 2 * hole + 1; child < n; child = 2 * hole + 1) {
        if (child + 1 < n && lt(a[child], a[child + 1])) ++child;
        if (lt(a[child], x)) break;
        a[hole] = a[child];
        hole = child;
    }
    a[hole] = x;
}

template <class T, class Size, class Less>
void heap_sort(T* a, Size n, Less& lt) {
    for (Size k = (n - 2) / 2 + 1; k-- > 0;)
        sift_down(a, k, n, a[k], lt);
    for (Size len = n; len >= 2; --len) {
        T top = a[0];
        // Floyd's variant: sink the hole to a leaf without comparing against `top`.
        Size hole = 0;
        while (hole <= (len - 2) / 2) {
            Size child = 2 * hole + 1;
            if (child + 1 < len && lt(a[child], a[child + 1])) ++child;
            a[hole] = a[child];
            hole = child;
        }
        if (hole == len - 1) {
            a[hole] = top;
            continue;
        }
        T moved = a[len - 1];
        a[len - 1] = top;
        while (hole > 0) {
            Size parent = (hole - 1) / 2;
            if (!lt(a[parent], moved)) break;
            a[hole] = a[parent];
            hole = parent;
        }
        a[hole] = moved;
    }
}

template <class T, class Less>
T median_of_three(const T& first, const T& middle, const T& last, Less& lt) {
    if (!lt(first, middle)) {
        if (lt(first, last)) return first;
        return lt(middle, last) ? last : middle;
    }
    if (lt(middle, last)) return middle;
    return lt(first, last) ? last : first;
}

// Sorts except inside ranges of fewer than 16 elements, each of which ends up holding exactly
// the elements that belong at its positions.
template <class T, class Size, class Less>
void do_sort(T* a, Size n, Less lt, int depth) {
    if (n < 16) return;
    while (true) {
        if (depth == 0) {
            heap_sort(a, n, lt);
            return;
        }
        --depth;
        T p = median_of_three(a[0], a[n / 2], a[n - 1], lt);
        Size i = 0;
        Size j = n - 1;
        // Unguarded: elements equal to p stop both scans inside the range.
        while (true) {
            while (lt(a[i], p))
                ++i;
            while (lt(p, a[j]))
                --j;
            if (!(i < j)) break;
            std::swap(a[i], a[j]);
            ++i;
            --j;
        }
        do_sort(a, i, lt, depth);
        a += i;
        n -= i;
        if (n <= 15) return;
    }
}

}  // namespace sortimpl

template <class T, class Size, class Less>
void sort(T* a, Size n, Less lt) {
    if (n == 0) return;
    if (n <= 15) {
        for (Size i = 0; i + 1 < n; ++i) {
            Size m = i;
            for (Size j = i + 1; j < n; ++j)
                if (lt(a[j], a[m])) m = j;
            std::swap(a[i], a[m]);
        }
        return;
    }
    sortimpl::do_sort(a, n, lt, 32);
    for (Size i = 1; i < n; ++i) {
        T x = a[i];
        Size j = i;
        for (; j > 0 && lt(x, a[j - 1]); --j)
            a[j] = a[j - 1];
        a[j] = x;
    }
}

}  // namespace vorn
