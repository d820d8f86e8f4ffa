#pragma once

// The unit cube test (Bromberger, Weidenbach): a point of the relaxation around which a cube of
// edge 1 fits inside every constraint rounds to an integer point that satisfies them all, found
// by one simplex check instead of a search. Each bound on a term Σ aⱼ·xⱼ is moved inward by
// ½·Σ|aⱼ| over its integer variables that are not fixed (rounding moves each of them by at most
// ½); bounds on single integer variables stay (they are integers, rounding keeps inside them).
// When the shrunk system is feasible, the integer variables are fixed at their rounded values
// and the simplex checks again, which leaves it an integral assignment. Unbounded problems are
// where it pays: wide unbounded polyhedra always hold such cubes, and branching there may never
// end. Equalities over several integer variables leave no room, so the test fails on them; but
// an equality with a variable that has no bounds determines that variable, which then follows
// the rounding exactly: a Real one, or an integer one that the equality makes an integral
// combination of other integers (t = x of an ite term). It is eliminated from the other rows
// first (their room counts the integers' coefficients after the elimination), the equality
// needs no room, and the rounding leaves the variable to the simplex. When the shrunk system
// has no point (a narrow row, such as the 0 ≤ 4x − 6d ≤ 5 of a div, leaves no room), the
// vertex itself may be rounded and checked the same way: it is often integral but for variables
// that free Reals beside them would absorb.
//
// Costs: the elimination over the slack rows (its fill-in capped at a few times their size),
// then two or three simplex checks, each under a push level of its own.

#include <span>

#include "vorn/lra/simplex.h"

namespace vorn::lra {

// `is_integer`, by simplex variable: the structural integer variables (a shorter span leaves
// the rest non-integral). True: the simplex, back at the caller's level, holds an assignment that
// satisfies every bound, integral on every integer variable. False: bounds as they were, and a
// model of them (checked again: the simplex may have pivoted). Call it only where the simplex
// has a model (its last check was Sat).
// With `round_vertex`, the vertex is rounded when there is no cube (its checks move the basis,
// which branch and bound, on one path from the root, rather keeps).
bool unit_cube_point(Simplex& simplex, std::span<const char> is_integer, bool round_vertex = false);

}  // namespace vorn::lra
