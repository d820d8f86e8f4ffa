// A month's budget with vorn::smt::Solver: fixed rent, flexible food and fun, trips at 150 each.
// Exits 0 only when the answers are the expected ones.

#include <vorn/smt/solver.h>

#include <iostream>
#include <vector>

using namespace vorn::smt;

int main() {
    Solver s;
    Term rent = s.real("rent"), food = s.real("food"), fun = s.real("fun");
    Term trips = s.integer("trips");
    Term spent = rent + food + fun + 150 * trips;
    s.add(rent == 900 && food >= 250 && fun != 0 && fun >= 0 && trips >= 1);
    s.add(spent <= 2000 && food > 2 * fun);
    if (s.check() != Result::Sat) return 1;
    std::cout << "rent " << s.value(rent) << ", food " << s.value(food) << ", fun " << s.value(fun)
              << ", trips " << s.value(trips) << ", spent " << s.value(spent) << '\n';
    bool ok = s.value(spent) <= 2000 && s.value(trips).is_integer() && s.value(fun) > 0;

    // Five trips, better food and more fun do not fit together; the core says which wishes clash.
    const std::vector<Formula> wishes = {trips >= 5, food >= 300, fun >= 100, fun <= 400};
    const char* names[] = {"five trips", "better food", "more fun", "some restraint"};
    if (s.check(wishes) != Result::Unsat) return 1;
    std::cout << "cannot have all of:";
    std::vector<std::size_t> core;
    for (const Formula& f : s.unsat_core())
        for (std::size_t i = 0; i < wishes.size(); ++i)
            if (f.identical(wishes[i])) {
                std::cout << ' ' << names[i];
                core.push_back(i);
            }
    std::cout << '\n';
    return ok && core == std::vector<std::size_t>{0, 1, 2} ? 0 : 1;
}
