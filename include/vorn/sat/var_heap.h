#pragma once

// VarHeap: the unassigned variables by decreasing activity, for VSIDS decisions.
//
// A binary max-heap of variables over an activity array owned by the solver; `pos_[v]` is v's
// slot in `heap_` or -1 when v is not in the heap. The heap order holds as long as activities
// only grow while a variable is inside (the solver calls increased() after each bump) or are
// all scaled by the same factor.
//
// Costs: contains is O(1); insert, pop and increased are O(log n).

#include <vector>

#include "vorn/sat/literal.h"

namespace vorn::sat {

class VarHeap {
  public:
    explicit VarHeap(const std::vector<double>& activity) : activity_(activity) {}

    bool empty() const { return heap_.empty(); }
    bool contains(Var v) const { return v < pos_.size() && pos_[v] >= 0; }
    void insert(Var v);
    Var pop();
    void increased(Var v) { sift_up(pos_[v]); }
    // Takes out the variables from `first` on, which are gone from the solver. O(n).
    void truncate(Var first);

  private:
    bool before(Var a, Var b) const { return activity_[a] > activity_[b]; }
    void sift_up(int i);
    void sift_down(int i);
    void place(int i, Var v) {
        heap_[i] = v;
        pos_[v] = i;
    }

    const std::vector<double>& activity_;
    std::vector<Var> heap_;
    std::vector<int> pos_;
};

}  // namespace vorn::sat
