#!/usr/bin/env python3
"""Writes a random 3-CNF over linear atoms as an SMT-LIB 2 script (QF_LRA or QF_LIA).

usage: gen_linear_3cnf.py [--vars V] [--atoms K] [--ratio R | --clauses N] [--seed S]
                          [--sort Real|Int] [--coef C] [--bound B] [--status sat|unsat]
                          [--rounds R [--round-share F]] [-o OUT.smt2]

A pool of K distinct atoms (<= (+ (* a x_i) (* b x_j)) c) over V variables, with i != j,
a and b nonzero in -C..C and c in -B..B; then N = round(R * K) clauses of three literals over
three distinct atoms of the pool, each negated with probability 1/2. Unlike Boolean 3-SAT the
atoms constrain each other, so the threshold sits below 4.26 clauses per atom; the default
ratio, 1.7 clauses per atom with V = 14 and K = 120, gives about half sat instances (z3 on
seeds 1..20: 12 sat at 1.65, 7 at 1.75; the larger the pool, the lower the threshold).
With --rounds R the script is incremental: a base of (1 - F) * N clauses, then R rounds of
`(push 1)`, F * N fresh clauses asserted under :named, `(check-sat)`, `(pop 1)`; each check sees
N clauses, near the threshold as a single check would. Without -o the script goes to stdout.
"""
import argparse
import random

from script_output import write_script


def generate(vars_, atoms, clauses, seed, sort, coef, bound, rounds=0, share=0.25):
    rng = random.Random(seed)

    def num(c):
        text = f"{abs(c)}.0" if sort == "Real" else str(abs(c))
        return f"(- {text})" if c < 0 else text

    pool, seen = [], set()
    while len(pool) < atoms:
        i, j = sorted(rng.sample(range(vars_), 2))
        a, b = (rng.choice([c for c in range(-coef, coef + 1) if c]) for _ in range(2))
        c = rng.randint(-bound, bound)
        if (i, j, a, b, c) in seen:
            continue
        seen.add((i, j, a, b, c))
        pool.append(f"(<= (+ (* {num(a)} x_{i}) (* {num(b)} x_{j})) {num(c)})")
    def clause():
        lits = [pool[k] if rng.random() < 0.5 else f"(not {pool[k]})"
                for k in rng.sample(range(atoms), 3)]
        return f"(or {' '.join(lits)})"

    if rounds == 0:
        return [f"(assert {clause()})" for _ in range(clauses)] + ["(check-sat)"]
    per_round = round(share * clauses)
    out = [f"(assert {clause()})" for _ in range(clauses - per_round)]
    for r in range(rounds):
        out.append("(push 1)")
        out += [f"(assert (! {clause()} :named r{r}_c{k}))" for k in range(per_round)]
        out += ["(check-sat)", "(pop 1)"]
    return out


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--vars", type=int, default=14)
    p.add_argument("--atoms", type=int, default=120)
    p.add_argument("--ratio", type=float, default=1.7, help="clauses per atom")
    p.add_argument("--clauses", type=int, help="the number of clauses (overrides --ratio)")
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--sort", choices=("Real", "Int"), default="Real")
    p.add_argument("--coef", type=int, default=3, help="coefficients in -C..C, not 0")
    p.add_argument("--bound", type=int, default=10, help="constants in -B..B")
    p.add_argument("--status", choices=("sat", "unsat"), help="write it as :status")
    p.add_argument("--rounds", type=int, default=0, help="check-sats under push/pop (0: one)")
    p.add_argument("--round-share", type=float, default=0.25,
                   help="the share of the clauses each round asserts")
    p.add_argument("-o", "--output")
    a = p.parse_args()
    clauses = a.clauses if a.clauses is not None else round(a.ratio * a.atoms)
    header = (f"; gen_linear_3cnf.py --vars {a.vars} --atoms {a.atoms} --clauses {clauses} "
              f"--seed {a.seed} --sort {a.sort} --coef {a.coef} --bound {a.bound}")
    if a.rounds:
        header += f" --rounds {a.rounds} --round-share {a.round_share}"
    lines = [header, f"(set-logic {'QF_LRA' if a.sort == 'Real' else 'QF_LIA'})"]
    if a.status:
        lines.append(f"(set-info :status {a.status})")
    lines += [f"(declare-fun x_{i} () {a.sort})" for i in range(a.vars)]
    lines += generate(a.vars, a.atoms, clauses, a.seed, a.sort, a.coef, a.bound, a.rounds,
                      a.round_share)
    lines += ["(exit)"]
    text = "\n".join(lines) + "\n"
    write_script(text, a.output)


if __name__ == "__main__":
    main()
