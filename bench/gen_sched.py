#!/usr/bin/env python3
"""Writes resource-constrained scheduling instances as SMT-LIB 2 scripts: jobs with release
times, deadlines and durations, each run on one of the resources it may use, within a horizon.

usage: gen_sched.py [--jobs N] [--resources R] [--seed S] [--sort Int|Real] [--horizon H]
                    [-o OUT.smt2]

Resource r has a capacity: 1 (a machine: two jobs on it do not overlap, one disjunction per
pair) or 2–3 (a crew: at each job's start the demands of the jobs running there, a sum of term
`ite`s over Boolean choices and start times, stay within the capacity; and an energy bound, the
demands times durations of its jobs within capacity times horizon). Job j has a duration in
1..6, a demand of 1 or 2 on crews, a release time, a deadline (release + duration + slack) and
two or three resources it may run on; a Boolean `on_j_r` per pair says where it runs, exactly
one of them. Every job ends by H. The same --seed gives the same jobs whatever the sort and
horizon; near the least H that admits a schedule one horizon is sat and the one below unsat.
Without -o the script goes to stdout; name the file by z3's answer, as bench/smt_bench.py reads
it.
"""
import argparse
import random

from script_output import write_script


def instance(jobs, resources, seed):
    """(capacities, [(duration, demand, release, deadline, [resources])])."""
    rng = random.Random(seed)
    caps = [1 if r % 2 == 0 else rng.choice([2, 3]) for r in range(resources)]
    out = []
    for _ in range(jobs):
        p, q = rng.randint(1, 6), rng.choice([1, 1, 2])
        release = rng.randint(0, 2 * jobs // resources)
        deadline = release + p + rng.randint(2, 3 * jobs // resources + 4)
        choices = min(resources, rng.choice([2, 2, 3]))
        out.append((p, q, release, deadline, sorted(rng.sample(range(resources), choices))))
    return caps, out


def generate(jobs, resources, seed, sort, horizon):
    caps, js = instance(jobs, resources, seed)
    real = sort == "Real"
    num = lambda c: f"{c}.0" if real else str(c)
    s = lambda j: f"s{j}"
    on = lambda j, r: f"on_{j}_{r}"
    plus = lambda terms: terms[0] if len(terms) == 1 else f"(+ {' '.join(terms)})"
    lines = [f"(set-logic QF_{'LRA' if real else 'LIA'})"]
    for j, (p, q, rel, dl, rs) in enumerate(js):
        lines.append(f"(declare-fun {s(j)} () {sort})")
        lines += [f"(declare-fun {on(j, r)} () Bool)" for r in rs]
    for j, (p, q, rel, dl, rs) in enumerate(js):
        lines.append(f"(assert (and (<= {num(rel)} {s(j)}) "
                     f"(<= (+ {s(j)} {num(p)}) {num(min(dl, horizon))})))")
        lines.append(f"(assert (or {' '.join(on(j, r) for r in rs)}))")
        for a in range(len(rs)):
            for b in range(a + 1, len(rs)):
                lines.append(f"(assert (not (and {on(j, rs[a])} {on(j, rs[b])})))")
    for r, cap in enumerate(caps):
        users = [j for j, job in enumerate(js) if r in job[4]]
        if cap == 1:
            for a in range(len(users)):
                for b in range(a + 1, len(users)):
                    j, k = users[a], users[b]
                    lines.append(
                        f"(assert (=> (and {on(j, r)} {on(k, r)}) (or (<= (+ {s(j)} "
                        f"{num(js[j][0])}) {s(k)}) (<= (+ {s(k)} {num(js[k][0])}) {s(j)}))))")
            continue
        for k in users:
            running = [
                f"(ite (and {on(j, r)} (<= {s(j)} {s(k)}) (< {s(k)} (+ {s(j)} {num(js[j][0])}))) "
                f"{num(js[j][1])} {num(0)})" for j in users if j != k]
            load = plus([num(js[k][1])] + running)
            lines.append(f"(assert (=> {on(k, r)} (<= {load} {num(cap)})))")
        if users:
            energy = [f"(ite {on(j, r)} {num(js[j][0] * js[j][1])} {num(0)})" for j in users]
            lines.append(f"(assert (<= {plus(energy)} {num(cap * horizon)}))")
    lines.append("(check-sat)")
    lines.append("(exit)")
    return "\n".join(lines) + "\n"


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--jobs", type=int, default=10)
    ap.add_argument("--resources", type=int, default=3)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--sort", choices=["Int", "Real"], default="Int")
    ap.add_argument("--horizon", type=int, default=20)
    ap.add_argument("-o", "--output")
    a = ap.parse_args()
    write_script(generate(a.jobs, a.resources, a.seed, a.sort, a.horizon), a.output)


if __name__ == "__main__":
    main()
