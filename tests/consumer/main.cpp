#include <vorn/vorn.h>

#include <iostream>

int main() {
    vorn::la::Tableau t(0);
    t.add_equation(vorn::la::Equation(3, {{3, -1}, {1, 1}, {2, 2}}), false, nullptr);
    t.check();
    t.pivot(3, 1);
    std::string text = t.to_str();
    std::cout << text;
    return text == "ROWS:\ns: 1 <--> x1 = -2*x2 + x3\n\nCOLS:\n" ? 0 : 1;
}
