#include "vorn/sat/var_heap.h"

#include <cassert>

namespace vorn::sat {

void VarHeap::insert(Var v) {
    if (v >= pos_.size()) pos_.resize(v + 1, -1);
    if (pos_[v] >= 0) return;
    heap_.push_back(v);
    pos_[v] = static_cast<int>(heap_.size()) - 1;
    sift_up(pos_[v]);
}

Var VarHeap::pop() {
    assert(!heap_.empty());
    Var top = heap_[0];
    Var last = heap_.back();
    heap_.pop_back();
    pos_[top] = -1;
    if (!heap_.empty()) {
        place(0, last);
        sift_down(0);
    }
    return top;
}

void VarHeap::sift_up(int i) {
    Var v = heap_[i];
    while (i > 0) {
        int parent = (i - 1) / 2;
        if (!before(v, heap_[parent])) break;
        place(i, heap_[parent]);
        i = parent;
    }
    place(i, v);
}

void VarHeap::sift_down(int i) {
    Var v = heap_[i];
    int n = static_cast<int>(heap_.size());
    while (2 * i + 1 < n) {
        int child = 2 * i + 1;
        if (child + 1 < n && before(heap_[child + 1], heap_[child])) ++child;
        if (!before(heap_[child], v)) break;
        place(i, heap_[child]);
        i = child;
    }
    place(i, v);
}

void VarHeap::truncate(Var first) {
    if (pos_.size() <= first) return;
    std::erase_if(heap_, [&](Var v) { return v >= first; });
    pos_.resize(first);
    for (int i = 0; i < static_cast<int>(heap_.size()); ++i)
        pos_[heap_[i]] = i;
    for (int i = static_cast<int>(heap_.size()) / 2; i-- > 0;)
        sift_down(i);
}

}  // namespace vorn::sat
