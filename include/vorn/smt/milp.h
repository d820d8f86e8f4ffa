#pragma once

// Exact mixed-integer optimization: the least (or greatest) value of a term over a conjunction of
// atoms whose Int variables take integer values. smt::optimize calls it when an atom or the
// objective mentions an Int variable; answers and certificates are those of optimize.h.
//
// LP-based branch and bound over one lra::Simplex that holds the atoms as bounds, those over Int
// variables only rounded (integer_bounds.h, the rule the certificate checkers apply). A node is
// the atoms plus the branch bounds on its path (x ≤ b | x ≥ b + 1); visiting one pops the simplex
// to the atoms and asserts the path, so its relaxation starts from the basis and assignment of
// the node before. (The root from CLP's basis, as the LP optimizer starts, gained nothing on MIPLIB
// 3, and CLP's presolve leaks memory on some of these problems; the root starts exactly.) Once an
// incumbent exists, "objective < incumbent" (">" when maximizing; rounded when the objective is
// integral, e.g. ≤ incumbent − 1 for integer coefficients) is asserted at every node: a node that
// cannot beat the incumbent is then infeasible, and its Farkas conflict is the leaf's proof.
//
// Node selection: a dive (the child the fractional value rounds to) while no incumbent exists
// and while the child's bound is no worse than the best open one; otherwise the open node of
// the best bound (the parent's relaxation optimum), the deeper one on ties. Branching: the
// pseudo-cost product (Achterberg, Koch, Martin), each candidate's unmeasured directions first
// measured by strong branching (its eight most fractional candidates, both sides solved under a
// push): on gt2 and egout of MIPLIB 3 that cuts the nodes five- to ninefold.
//
// Primal heuristic: every Int variable rounded (to the nearest integer, and up), the Real ones
// optimized under a push; at every node while there is no incumbent (the first thousand), then
// at nodes numbered by powers of two. It found bell5's incumbent, which dives alone did not.
//
// Reduced-cost fixing (milp_fixing.cpp): at a node under an incumbent, each Int variable whose
// reduced cost forbids moving it k units from its bound makes the node a split whose far side is
// a leaf, its Farkas conflict read off the objective's row; lseu of MIPLIB 3 went from 62 300
// nodes to 37 200, misc03 and bell5 got faster by a third or more.
//
// Root cuts (milp_cuts.cpp, DecideOptions::root_cut_rounds, six rounds by default): Gomory
// mixed-integer cuts from the root's tableau rows and MIR cuts from the atoms over bounded Int
// variables (milp_mir.cpp); those binding at the last root optimum are asserted at level 0, so
// every node carries them. Each is a cut split above the search's root in the proof, its negated
// side its derivation. On MIPLIB 3 the Gomory cuts take egout from 6 s to 0.1 s, lseu from 19 s
// to 14 s and solve vpm1 (0.4 s), but slow gt2, enigma and rgn (dense rows of large rationals in
// every node's relaxation, and a search that starts from another vertex); the MIR cuts lift
// mod008's root bound from 290.9 to 300.8 (the optimum is 307), where Gomory cuts reached 291.
//
// Pure integer problems (no Real variable): the simplex repairs bounds as the dual simplex does,
// guided by the objective's row (lra::Simplex::set_dual_guide), and each node starts from the
// optimal basis of its parent, kept in the parent until both children used it. A child's check
// then takes a few dual pivots and its minimize none: on mod008 a node cost 300 pivots before, of
// 2 ms each (its three-decimal rows make large rationals), and it is now solved; lseu, stein27
// and gt2 gain about half. With Real columns (bell5, vpm1, flugpl) the dual rule's pivots made
// larger numbers and the search went elsewhere (vpm1 from 90 nodes to 240, bell5 unsolved in
// 40 s), so those keep the primal repair from the previous node's basis.
//
// Unbounded Int directions (milp_term_split.cpp): where a fractional Int variable lacks a bound on
// a side, the node splits on the integral term its tight rows give (lra::tight_term_split), a
// `split-cut` in the proof; branching on single variables could follow such a direction forever.
//
// Floating-point node relaxations (milp_float.cpp, DecideOptions::float_nodes): each node past
// the root is solved by CLP first, warm from the node before; where CLP's optimum cannot beat the
// incumbent, or its Farkas ray shows the node infeasible, its duals made rational give an exact
// bound whose Farkas conflict is the leaf (no exact pivot); otherwise the exact relaxation is
// solved as before, and strong branching measures its children by CLP (it only guides the
// choice). Leaves so made are of the ordinary form, so the certificate is unchanged.
//
// A node that cannot beat the incumbent is closed by the objective's row saved at its optimum (a
// Farkas conflict but for the incumbent's bound), without a check; the check is the fallback.
//
// The proof is the search tree itself: split-int nodes and Farkas leaves over the atoms and
// "objective < optimum". A leaf closed against an earlier, worse incumbent stays valid with the
// final one, whose bound is tighter. An integral node's own leaf is its relaxation with the new
// incumbent's bound asserted: infeasible, as the relaxation's optimum is the incumbent.
//
// Costs: per node one check and one minimize of the simplex, one pass over the objective's row,
// for pure integer problems a warm start (pivots up to the number of rows) and the parent's basis
// (a byte per simplex variable until both children have started),
// plus re-asserting the path (its depth in bounds), plus up to sixteen check-and-minimize rounds of
// strong branching while variables are unmeasured; memory: one proof node and one search record per
// node, and for each branched node the bounds of the objective's row at its optimum (bell5: 477 MB
// before them, 555 MB with them).

#include <cstdint>

#include "vorn/smt/decision.h"
#include "vorn/smt/optimize.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// The atoms must be bounds (no disequality, no Boolean structure); `options.stop` must be set
// (optimize() sets it). A stop (time and memory limits, interrupts) answers Unknown with the
// incumbent and the proven bound; bb_limit, the node budget of feasibility checks, does not
// apply. A relaxation that is unbounded makes the answer Unbounded when the problem has an
// integer point (its ray scaled to integers), Infeasible when it has none. Strict bounds on Real
// variables that leave the optimum unattained answer Unknown with Optimization::approached.
Optimization optimize_integer(const Problem& problem, std::uint32_t objective, bool maximize,
                              const DecideOptions& options);

}  // namespace vorn::smt
