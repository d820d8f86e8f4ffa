// A few equations, one substituted into another, and a small tableau pivoted and printed.

#include <iostream>

#include "vorn/vorn.h"

using vorn::QNumber;
using vorn::la::Equation;

int main() {
    // x1 = 2*x2 - 1/3*x3 + 5   and   x2 = x3 - 4
    Equation row(1, {{1, QNumber(-1)}, {2, QNumber(2)}, {3, QNumber(-1, 3)}, {0, QNumber(5)}});
    Equation def(2, {{2, QNumber(-1)}, {3, QNumber(1)}, {0, QNumber(-4)}});
    std::cout << "row: " << row.to_str(false) << "\ndef: " << def.to_str(false) << '\n';
    row.substitute_var(2, def, nullptr);
    std::cout << "row after substituting x2: " << row.to_str(false) << "\n\n";

    vorn::la::Tableau tableau(0);
    tableau.add_equation(Equation(4, {{4, -1}, {1, 1}, {2, 1}}), false, nullptr);
    tableau.add_equation(Equation(5, {{5, -1}, {1, 1}, {3, QNumber(-2)}}), false, nullptr);
    tableau.check();
    tableau.pivot(4, 1);
    std::cout << tableau.to_str();
    return 0;
}
