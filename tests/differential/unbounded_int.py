"""Random unbounded integer problems against z3 and, with a planted point, against the answer sat.

Each problem: 3-7 Int variables with no bounds, a few inequalities and equalities with even
coefficients against odd constants (so the rational relaxation has fractional vertices that
single-variable branching cannot leave), disequalities, and a few disjunctions. Half of them are
built around a planted integer point, so that they are sat; the others are left to the gcd, and
z3 (run as a black box) says what they are. Every vorn answer runs with --verify (the model or
the certificate checked); `unknown` counts as a failure.

    python3 tests/differential/unbounded_int.py VORN [--count N] [--seed S] [--z3 PATH]
"""

import argparse
import random
import shutil
import subprocess
import sys
import time


def term(rng, names, even):
    k = rng.randint(1, min(3, len(names)))
    parts = []
    for v in rng.sample(names, k):
        c = rng.choice([-6, -4, -2, 2, 4, 6]) if even else rng.choice([-3, -2, -1, 1, 2, 3])
        parts.append((c, v))
    return parts


def value(parts, point):
    return sum(c * point[v] for c, v in parts)


def render(parts):
    def one(c, v):
        return v if c == 1 else "(* %s %s)" % (("(- %d)" % -c) if c < 0 else str(c), v)
    body = " ".join(one(c, v) for c, v in parts)
    return body if len(parts) == 1 else "(+ %s)" % body


def num(k):
    return "(- %d)" % -k if k < 0 else str(k)


def atom(rng, names, point):
    """One atom; with a point, one that the point satisfies."""
    parts = term(rng, names, rng.random() < 0.7)
    kind = rng.choice(["<=", ">=", "=", "distinct", "distinct", "<=", ">="])
    if point is None:
        k = rng.randint(-9, 9)
        if kind == "=" and rng.random() < 0.5:
            k |= 1
    else:
        v = value(parts, point)
        if kind == "<=":
            k = v + rng.randint(0, 3)
        elif kind == ">=":
            k = v - rng.randint(0, 3)
        elif kind == "=":
            k = v
        else:
            k = v + rng.choice([-3, -2, -1, 1, 2, 3])
    return "(%s %s %s)" % (kind, render(parts), num(k))


def problem(rng):
    n = rng.randint(3, 7)
    names = ["x%d" % i for i in range(n)]
    point = {v: rng.randint(-20, 20) for v in names} if rng.random() < 0.5 else None
    lines = ["(set-logic QF_LIA)"] + ["(declare-fun %s () Int)" % v for v in names]
    for _ in range(rng.randint(1, 5)):
        if rng.random() < 0.25:
            # A disjunction: with a point, its first disjunct holds there.
            first = atom(rng, names, point)
            other = atom(rng, names, None)
            lines.append("(assert (or %s %s))" % (first, other))
        else:
            lines.append("(assert %s)" % atom(rng, names, point))
    lines.append("(check-sat)")
    return "\n".join(lines) + "\n", point is not None


def run(cmd, text, timeout):
    start = time.monotonic()
    try:
        out = subprocess.run(cmd, input=text, capture_output=True, text=True, timeout=timeout)
        answer = out.stdout.split()[0] if out.stdout.split() else "error:" + out.stderr.strip()
        if out.returncode not in (0,):
            answer = "exit%d:%s" % (out.returncode, answer)
    except subprocess.TimeoutExpired:
        answer = "timeout"
    return answer, time.monotonic() - start


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("vorn")
    ap.add_argument("--count", type=int, default=300)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--z3", default=shutil.which("z3"))
    ap.add_argument("--timeout", type=float, default=10)
    ap.add_argument("--keep", help="directory for failing problems")
    args = ap.parse_args()
    failures = 0
    slow = 0
    for i in range(args.count):
        seed = args.seed * 1000003 + i
        text, planted = problem(random.Random(seed))
        got, took = run([args.vorn, "check", "--verify", "--certificate", "-"], text, args.timeout)
        want = "sat" if planted else None
        if args.z3:
            z3, _ = run([args.z3, "-in", "-smt2"], text, args.timeout)
            if z3 in ("sat", "unsat"):
                if want is not None and z3 != want:
                    print("seed %d: z3 says %s of a planted problem" % (seed, z3))
                want = z3
        if took > 1:
            slow += 1
        if got not in ("sat", "unsat") or (want is not None and got != want):
            failures += 1
            print("seed %d: vorn %s, expected %s (%.2f s)" % (seed, got, want, took))
            if args.keep:
                with open("%s/fail-%d.smt2" % (args.keep, seed), "w") as f:
                    f.write(text)
    print("%d passed, %d failed" % (args.count - failures, failures))
    if slow:
        print("over 1 s: %d" % slow)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
