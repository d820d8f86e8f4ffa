#pragma once

// Elimination in an order chosen for low fill-in.
//
// Tableau::eliminate_variables visits its argument in ascending variable order, which fills in
// badly on large sparse systems, and each call sweeps every column once, so one call per
// variable is quadratic. eliminate_greedy hands the tableau batches instead: every round ranks
// the remaining variables by Markowitz cost ((rows in its column − 1) × (length of its pivot row
// − 1), basic variables first at cost 0) and takes, cheapest first, a set of variables whose
// eliminations do not touch each other's rows, so that the ascending order inside a batch does
// not matter. Variables that occur nowhere are dropped; eliminated ones are left alone.
//
// Built only on the tableau's public operations and read accessors.

#include <cstddef>

#include "vorn/la/tableau.h"
#include "vorn/la/varset.h"

namespace vorn::la {

struct GreedyEliminationStats {
    std::size_t rounds = 0;      // eliminate_variables calls
    std::size_t eliminated = 0;  // variables that got an elimination record
};

GreedyEliminationStats eliminate_greedy(Tableau& tableau, const VarSet& vars);

}  // namespace vorn::la
