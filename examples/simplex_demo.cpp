// Deciding a few linear constraints with the simplex: a model, then a conflict explained by the
// reasons and Farkas multipliers of the constraints involved.

#include <iostream>

#include "vorn/vorn.h"

using vorn::lra::Relation;
using vorn::lra::Result;

int main() {
    vorn::lra::Simplex s;
    int x = s.new_variable(), y = s.new_variable();
    // Reasons are the caller's ids: here the numbers of the constraints.
    s.assert_term(s.term_variable({{x, 1}, {y, 1}}), Relation::Le, 4, 1);   // x + y ≤ 4
    s.assert_term(s.term_variable({{x, 2}, {y, -2}}), Relation::Ge, 2, 2);  // 2x − 2y ≥ 2
    s.assert_lower(y, 0, true, 3);                                          // y > 0
    if (s.check() == Result::Sat)
        std::cout << "sat: x = " << s.value(x) << ", y = " << s.value(y) << '\n';

    s.push();
    s.assert_lower(x, 4, false, 4);  // x ≥ 4 leaves y ≤ 0
    if (s.check() == Result::Unsat) {
        std::cout << "unsat, because of:\n";
        for (const auto& e : s.conflict())
            std::cout << "  constraint " << e.reason << " (" << (e.upper ? "upper" : "lower")
                      << " side) times " << e.multiplier << '\n';
    }
    s.pop();
    std::cout << "after pop: " << (s.check() == Result::Sat ? "sat" : "unsat") << '\n';
    return 0;
}
