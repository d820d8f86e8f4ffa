#!/usr/bin/env python3
"""Certificates checked against their inputs (check_certificate.py --input). For seeded random
scripts and MPS files every unsat and optimum certificate and every model must check against the
input; then each input is mutated (a constant changed, a relation flipped, an assertion dropped
or moved out of its push level, a named assertion renamed; for MPS and LP files a right-hand
side changed, a row turned round, a bound dropped; for random DIMACS files a variable changed,
a literal negated, a clause dropped), the tool decides the mutated input, and
wherever an answer that a certificate backed changes, the checker must reject the original
output against the mutated input. Clause proofs are spoiled too, and must be rejected against
their own input: a definition's connective changed, an input clause turned into its negation.

Every other script is a wide one (gen_smt.generate): div, mod, abs, to_int, ites written
twice, folding-prone atoms and operands. Every third seed adds a pigeonhole script
(bench/gen_pigeonhole.py), whose refutation is a pigeonhole lemma over the input's bounds.

Usage: certificate_input.py VORN [SEEDS]; exit status 0 when every expectation holds."""

import os
import random
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(HERE, "..", "..", "scripts"),
                os.path.join(HERE, "..", "..", "bench")]
import check_certificate as checker  # noqa: E402
import gen_lp  # noqa: E402
import gen_pigeonhole  # noqa: E402
import gen_smt  # noqa: E402

VORN = sys.argv[1]
CHECKER = os.path.join(HERE, "..", "..", "scripts", "check_certificate.py")
TMP = tempfile.mkdtemp()


def run(args, text, ext):
    path = os.path.join(TMP, "case" + ext)
    with open(path, "w") as f:
        f.write(text)
    try:  # a mutated problem can be much harder; it then counts as no answer
        return path, subprocess.run([VORN] + args + ["--time-limit", "10", path],
                                    capture_output=True, text=True, timeout=30).stdout
    except subprocess.TimeoutExpired:
        return path, ""


def accepted(path, out):
    with open(os.path.join(TMP, "out.txt"), "w") as f:
        f.write(out)
    return subprocess.run(["python3", CHECKER, "--input", path, os.path.join(TMP, "out.txt")],
                          capture_output=True).returncode == 0


def show(e):
    if isinstance(e, tuple):
        return '"%s"' % e[1]
    if isinstance(e, list):
        return "(" + " ".join(show(x) for x in e) + ")"
    return e if gen_smt.SIMPLE.match(e) or e[:1] in ":0123456789" else "|%s|" % e


def nodes(e, path=()):
    yield path, e
    if isinstance(e, list):
        for k, x in enumerate(e):
            yield from nodes(x, path + (k,))


def replace(e, path, value):
    if not path:
        return value
    return [replace(x, path[1:], value) if k == path[0] else x for k, x in enumerate(e)]


def mutate(cmds, kind, rng):
    """The commands with one mutation of `kind`, or None when the script offers no place."""
    asserts = [i for i, c in enumerate(cmds) if c[0] == "assert"]
    if kind == "drop":
        i = rng.choice(asserts) if asserts else None
        return None if i is None else cmds[:i] + cmds[i + 1 :]
    if kind == "move":
        depth, places = 0, []
        for i, c in enumerate(cmds):
            depth += {"push": 1, "pop": -1}.get(c[0], 0)
            if c[0] == "assert" and depth > 0:
                pop = next((j for j in range(i, len(cmds)) if cmds[j][0] == "pop"), None)
                places += [(i, pop)] if pop is not None else []
        if places:
            i, pop = rng.choice(places)
            return cmds[:i] + cmds[i + 1 : pop + 1] + [cmds[i]] + cmds[pop + 1 :]
        return None
    want = {"constant": lambda e: isinstance(e, str) and e.split(".")[0].isdigit()
            and checker.Fraction(e).denominator == 1,
            "relation": lambda e: isinstance(e, list) and e[:1] in (["<="], ["<"], [">="], [">"]),
            "rename": lambda e: e == ":named"}[kind]
    spots = [(i, p, e) for i in asserts for p, e in nodes(cmds[i]) if want(e)]
    if not spots:
        return None
    i, p, e = rng.choice(spots)
    if kind == "constant":
        new = str(int(checker.Fraction(e)) + 1) + (".0" if "." in e else "")
        return cmds[:i] + [replace(cmds[i], p, new)] + cmds[i + 1 :]
    if kind == "relation":
        flipped = rng.choice([r for r in ("<=", "<", ">=", ">") if r != e[0]])
        return cmds[:i] + [replace(cmds[i], p + (0,), flipped)] + cmds[i + 1 :]
    name_path = p[:-1] + (p[-1] + 1,)
    return cmds[:i] + [replace(cmds[i], name_path, "renamed_" + cmds_at(cmds[i], name_path))] \
        + cmds[i + 1 :]


def cmds_at(e, path):
    for k in path:
        e = e[k]
    return e


def backed(out):
    """By check-sat: its answer; and the first three words (an optimum)."""
    items = checker.output_items(out)
    words = [i for i in items if isinstance(i, str)]
    return [i for i in items if i in ("sat", "unsat", "unknown")], words[:3]


def changes(before, after):
    """Whether an unsat answer (which a certificate backs) or the optimum differs after the
    mutation."""
    (a, wa), (b, wb) = before, after
    if wa[:1] == ["optimal"]:
        return wa != wb
    return any(ans == "unsat" and (k >= len(b) or b[k] != ans) for k, ans in enumerate(a))


def trivially_unsat(cmds):
    """Whether a check-sat of the script has a false conjunct: every clause follows then."""
    script, found = checker.Script(), False
    for cmd in cmds:
        try:
            got = script.command(cmd)
        except (checker.InputError, KeyError, IndexError, TypeError):
            got = None
        if got:
            problem = script.problem(got[1])
            found = found or checker.conjuncts(checker.Formulas(problem.sorts), problem) is None
    return found


def spoiled(out, rng):
    """The output with a clause proof spoiled, each way it offers: a definition's connective
    changed (and and xor swapped), an input unit negated."""
    lines, out = out.splitlines(), []
    defines = [k for k, l in enumerate(lines) if l.startswith("define ") and
               len(l.split()) == 5 and l.split()[2] in ("and", "xor")]
    units = [k for k, l in enumerate(lines) if l.startswith("input ") and len(l.split()) == 2]
    if defines:
        k = rng.choice(defines)
        w = lines[k].split()
        w[2] = "xor" if w[2] == "and" else "and"
        out.append(("define", lines[:k] + [" ".join(w)] + lines[k + 1 :], int(w[1])))
    if units:
        k = rng.choice(units)
        out.append(("input", lines[:k] + ["input %d" % -int(lines[k].split()[1])] + lines[k + 1 :],
                    None))
    return [(kind, "\n".join(ls) + "\n", var) for kind, ls, var in out]


def without(out, var):
    """The output with every assumption and input clause over `var`, or over a definition
    built on it, left out: when that still checks, the proof never needed the definition."""
    over, lines = {var}, out.splitlines()
    for line in lines:
        w = line.split()
        if w[:1] == ["define"] and any(abs(int(a)) in over for a in w[3:]):
            over.add(int(w[1]))
    kept = []
    for line in lines:
        w = line.split()
        if w[:1] == ["input"] and any(abs(int(a)) in over for a in w[1:]):
            continue
        if w[:1] == ["assume"]:
            line = " ".join(w[:1] + [a for a in w[1:] if abs(int(a)) not in over])
        kept.append(line)
    return "\n".join(kept) + "\n"


def main():
    seeds = int(sys.argv[2]) if len(sys.argv) > 2 else 40
    failures, counts, ran = [], {}, 0
    for seed in range(seeds):
        rng = random.Random(seed)
        script = gen_smt.generate(rng, wide=seed % 2 == 0)  # every other one wide
        cases = [("smt", gen_smt.render(script, seed), ".smt2", ["check"])]
        for fmt in ("mps", "lp"):
            lp = gen_lp.generate(rng, fmt)
            cases.append((fmt, gen_lp.render(lp, True, True), "." + fmt, ["optimize", "--model"]))
        cases.append(("cnf", random_cnf(rng), ".cnf", ["check", "--model"]))
        if seed % 3 == 0:
            shape = rng.choice(["hole", "perm", "offset", "mixed", "or"])
            cases.append(("smt", gen_pigeonhole.generate(shape, rng.randint(4, 7), seed), ".smt2",
                          ["check"]))
        ran += len(cases)
        for family, text, ext, args in cases:
            args = args + ["--certificate"]
            path, out = run(args, text, ext)
            if not out:  # too hard for the time limits: no answer to check
                continue
            if not accepted(path, out) or (family == "cnf" and "unsat" in out and
                                            "(certificate" not in out):
                failures.append("seed %d %s: the original output does not check" % (seed, family))
                continue
            before = backed(out)
            cmds = checker.sexprs(checker.tokenize(text)) if family == "smt" else None
            for kind, bad, var in spoiled(out, rng) if cmds and not trivially_unsat(cmds) else []:
                key = "%s spoiled %s" % (family, kind)
                counts[key] = counts.get(key, 0) + 1
                if accepted(path, bad) and (var is None or not accepted(path, without(out, var))):
                    failures.append("seed %d %s: a spoiled %s went unnoticed" % (seed, family,
                                                                                 kind))
            for kind in ("constant", "relation", "drop", "move", "rename"):
                mutated = mutate(cmds, kind, rng) if family == "smt" else {
                    "mps": mps_mutation, "lp": lp_mutation, "cnf": cnf_mutation}[family](
                    text, kind, rng)
                if mutated is None:
                    continue
                mtext = mutated if family != "smt" else "\n".join(show(c) for c in mutated)
                mpath, mout = run(args, mtext, ext)
                if not mout or not changes(before, backed(mout)):
                    continue
                key = "%s %s" % (family, kind)
                counts[key] = counts.get(key, 0) + 1
                if accepted(mpath, out):
                    keep = os.path.join(TMP, "seed%d-%s-%s" % (seed, family, kind))
                    os.rename(mpath, keep + ext)
                    with open(keep + ".out", "w") as f:
                        f.write(out)
                    failures.append("seed %d %s: the %s mutation went unnoticed (%s)" % (
                        seed, family, kind, keep))
    for key in sorted(counts):
        print("%-20s %3d that change an answer or spoil a proof" % (key, counts[key]))
    for f in failures:
        print("FAIL", f)
    print("%d passed, %d failed" % (sum(counts.values()) + ran - len(failures),
                                    len(failures)))
    return 1 if failures else 0


def is_number(word):
    try:
        return checker.Fraction(word) is not None
    except ValueError:
        return False


def mps_mutation(text, kind, rng):
    lines, section, spots = text.splitlines(), None, []
    for k, line in enumerate(lines):
        if line and not line[0].isspace():
            section = line.split()[0]
        elif kind == "constant" and section in ("RHS", "RANGES", "BOUNDS", "COLUMNS") and \
                "MARKER" not in line and is_number(line.split()[-1]):
            spots.append(k)
        elif kind == "relation" and section == "ROWS" and line.split()[0] in "LG":
            spots.append(k)
        elif kind == "drop" and section == "BOUNDS":
            spots.append(k)
    if not spots:
        return None
    k = rng.choice(spots)
    words = lines[k].split()
    if kind == "constant":
        words[-1] = gen_lp.num_text(checker.Fraction(words[-1]) + 1)
    elif kind == "relation":
        words[0] = "G" if words[0] == "L" else "L"
    lines[k] = " " + " ".join(words) if kind != "drop" else ""
    return "\n".join(lines) + "\n"


def random_cnf(rng):
    """Random 3-CNF near the threshold (about half unsat), now and then a short clause."""
    n = rng.randint(4, 14)
    clauses = [[rng.choice([-1, 1]) * v for v in rng.sample(range(1, n + 1), min(n, rng.choice(
        [3, 3, 3, 2])))] for _ in range(int(4.3 * n))]
    return "p cnf %d %d\n" % (n, len(clauses)) + "".join(" ".join(map(str, c)) + " 0\n"
                                                         for c in clauses)


def cnf_mutation(text, kind, rng):
    """A variable changed (constant), a literal negated (relation), a clause dropped."""
    lines = text.splitlines()
    if kind not in ("constant", "relation", "drop"):
        return None
    k = rng.randrange(1, len(lines))
    words = lines[k].split()[:-1]
    i = rng.randrange(len(words))
    n = int(lines[0].split()[2])
    if kind == "constant":
        words[i] = str((abs(int(words[i])) % n + 1) * (1 if int(words[i]) > 0 else -1))
    elif kind == "relation":
        words[i] = str(-int(words[i]))
    if kind == "drop":
        del lines[k]
        lines[0] = "p cnf %d %d" % (n, len(lines) - 1)
    else:
        lines[k] = " ".join(words + ["0"])
    return "\n".join(lines) + "\n"


def lp_mutation(text, kind, rng):
    """A right-hand side changed, a row's relation turned round, a bound dropped."""
    lines, section, spots = text.splitlines(), None, []
    for k, line in enumerate(lines):
        words = line.split("\\")[0].split()
        if line[:1] not in (" ", "\t"):
            section = line.lower()
        elif kind in ("constant", "relation") and section in ("subject to", "such that", "st",
                                                               "s.t.") and is_number(words[-1]) \
                and any(r in words for r in ("<=", "=<", "<", ">=", "=>", ">")):
            spots.append(k)
        elif kind == "drop" and section.startswith("bound"):
            spots.append(k)
    if not spots:
        return None
    k = rng.choice(spots)
    words = lines[k].split("\\")[0].split()
    if kind == "constant":
        words[-1] = gen_lp.num_text(checker.Fraction(words[-1]) + 1)
    elif kind == "relation":
        turn = {"<=": ">=", "=<": ">=", "<": ">=", ">=": "<=", "=>": "<=", ">": "<="}
        words = [turn.get(w, w) for w in words]
    lines[k] = " " + " ".join(words) if kind != "drop" else ""
    return "\n".join(lines) + "\n"


if __name__ == "__main__":
    sys.exit(main())
