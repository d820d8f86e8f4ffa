#!/usr/bin/env python3
"""Writes a weighted job selection instance as an SMT-LIB 2 script with an objective over
Boolean structure (QF_LIA, or QF_LRA with Real start times).

usage: gen_selection.py [--jobs N] [--seed S] [--sort Int|Real] [-o OUT.smt2]

N jobs compete for one machine; job i may run (the Bool x_i) inside its window [r_i, d_i] for
its integer duration p_i and then earns the weight w_i. Chosen jobs must not overlap: one
two-way disjunction per pair of jobs whose windows meet, under both choices. The windows crowd
a horizon of about 2.5 N time units, so that roughly half the total work fits. The script asks
`(maximize (+ (ite x_0 w_0 0) ...))` then `(get-objectives)`: the objective is a sum of term
ites over the choices, so the search works on the Boolean structure and the weights alike.
Without -o the script goes to stdout.
"""
import argparse
import random

from script_output import write_script


def instance(jobs, seed):
    """[(release, deadline, duration, weight) for each job]."""
    rng = random.Random(seed)
    horizon = jobs * 5 // 2
    out = []
    for _ in range(jobs):
        p = rng.randint(2, 9)
        r = rng.randint(0, horizon - p)
        out.append((r, min(horizon, r + p + rng.randint(0, 12)), p, rng.randint(1, 20)))
    return out


def script(shop, sort):
    lines = ["; weighted job selection on one machine",
             "(set-logic %s)" % ("QF_LIA" if sort == "Int" else "QF_LRA")]
    for i in range(len(shop)):
        lines.append("(declare-fun s_%d () %s)" % (i, sort))
        lines.append("(declare-fun x_%d () Bool)" % i)
    for i, (r, d, p, _) in enumerate(shop):
        lines.append("(assert (=> x_%d (and (>= s_%d %d) (<= (+ s_%d %d) %d))))" % (i, i, r, i, p, d))
    for i, (ri, di, pi, _) in enumerate(shop):
        for j in range(i + 1, len(shop)):
            rj, dj, pj, _ = shop[j]
            if ri < dj and rj < di:  # windows that meet: the jobs could overlap
                lines.append("(assert (=> (and x_%d x_%d) (or (<= (+ s_%d %d) s_%d) "
                             "(<= (+ s_%d %d) s_%d))))" % (i, j, i, pi, j, j, pj, i))
    gain = " ".join("(ite x_%d %d 0)" % (i, w) for i, (_, _, _, w) in enumerate(shop))
    lines += ["(maximize (+ %s))" % gain, "(check-sat)", "(get-objectives)"]
    return "\n".join(lines) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--jobs", type=int, default=20)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--sort", choices=("Int", "Real"), default="Int")
    p.add_argument("-o", "--output")
    a = p.parse_args()
    text = script(instance(a.jobs, a.seed), a.sort)
    write_script(text, a.output)


if __name__ == "__main__":
    main()
