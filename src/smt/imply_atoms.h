#pragma once

// ArithTheory::imply_atoms_on, shared by the propagations along the terms' definitions
// (row_propagation.cpp) and along the tableau's rows (tableau_propagation.cpp).

#include "arith_theory.h"

namespace vorn::smt {

template <class Explain>
void ArithTheory::imply_atoms_on(int var, bool upper, const lra::DeltaRational& bound,
                                 std::vector<sat::Lit>& implied, Explain explain) {
    for (std::uint32_t other : atoms_on_[var]) {
        const Atom& o = atom_data_[other];
        sat::Var ov = atoms_[other].var;
        if (!o.alive || value_[ov] != 0) continue;
        for (int side = 0; side < 2; ++side) {
            const Reading& r = o.reading[side];
            if (!implies(upper, bound, r.upper, r.value)) continue;
            if (implied_now_[ov]) break;
            explain(new_row_reason(ov));
            implied_now_[ov] = 1;
            implied.push_back(sat::Lit(ov, side == 1));
            break;
        }
    }
}

}  // namespace vorn::smt
