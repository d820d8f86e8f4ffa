#!/usr/bin/env python3
"""Writes MIPLIB problems with binary columns as QF_LRA scripts with Boolean structure.

usage: gen_miplib_rows.py [--out DIR] [--shuffle SEED] [MPS.bz2 ...]

Every column is a Real variable within its bounds; a binary column's integrality is the
disjunction (or (= x 0) (= x 1)), so the SAT search carries it; every row is an atom. The
objective row becomes the bound  objective <= optimum (sat, the catalogue optimum, which is
integral for these problems) or  objective <= optimum - 1 (unsat: every objective coefficient is
integral, so no 0/1 point lies strictly between). Only problems whose integer columns are all
binary, whose other columns are absent and whose objective coefficients are integers are written
(default: ../shared/data/miplib3's p0033, enigma, lseu, stein27, mod008).

--shuffle SEED permutes the columns (their names and declaration order), the entries of every
row and the order of the assertions, and writes NAME_STATUS_shSEED.smt2: the same problem, so
that a comparison over several seeds does not rest on one lucky order of the search.
"""
import argparse
import bz2
import pathlib
import random
from fractions import Fraction

HERE = pathlib.Path(__file__).resolve().parent
MIPLIB = HERE.parent.parent / "shared/data/miplib3"
OPTIMA = {"p0033": 3089, "enigma": 0, "lseu": 1120, "stein27": 18, "mod008": 307}


def read_mps(path):
    """Rows {name: (sense, {col: coeff})}, objective row name, rhs, bounds, integer columns."""
    rows, objective, rhs, bounds, integer, order = {}, None, {}, {}, set(), []
    section, in_int = None, False
    for line in bz2.open(path, "rt"):
        if not line.strip() or line.startswith("*"):
            continue
        if not line[0].isspace():
            section = line.split()[0]
            continue
        f = line.split()
        if section == "ROWS":
            rows[f[1]] = (f[0], {})
            if f[0] == "N" and objective is None:
                objective = f[1]
        elif section == "COLUMNS":
            if f[1] == "'MARKER'":
                in_int = f[2] == "'INTORG'"
                continue
            if f[0] not in bounds:
                order.append(f[0])
                bounds[f[0]] = [Fraction(0), None]
            if in_int:
                integer.add(f[0])
            for name, value in zip(f[1::2], f[2::2]):
                rows[name][1][f[0]] = Fraction(value)
        elif section == "RHS":
            pairs = f[1:] if len(f) % 2 == 1 else f  # the set's name is optional
            for name, value in zip(pairs[0::2], pairs[1::2]):
                rhs[name] = Fraction(value)
        elif section == "BOUNDS":
            kind, col = f[0], f[2]
            value = Fraction(f[3]) if len(f) > 3 else None
            if kind in ("UP", "UI"):
                bounds[col][1] = value
            elif kind in ("LO", "LI"):
                bounds[col][0] = value
            elif kind == "FX":
                bounds[col] = [value, value]
            elif kind == "BV":
                bounds[col] = [Fraction(0), Fraction(1)]
            elif kind == "FR":
                bounds[col] = [None, None]
        elif section == "RANGES":
            raise ValueError(f"{path}: RANGES are not written")
    return rows, objective, rhs, bounds, integer, order


def number(q):
    text = f"{abs(q.numerator)}.0" if q.denominator == 1 else f"(/ {abs(q.numerator)} {q.denominator})"
    return f"(- {text})" if q < 0 else text


def linear(coeffs, names):
    parts = [f"(* {number(c)} {names[col]})" for col, c in coeffs.items() if c != 0]
    return parts[0] if len(parts) == 1 else "(+ " + " ".join(parts) + ")" if parts else "0.0"


def script(rows, objective, rhs, bounds, integer, order, bound, status, rng=None):
    if rng:
        order = rng.sample(order, len(order))
        rows = {n: (sense, dict(rng.sample(list(coeffs.items()), len(coeffs))))
                for n, (sense, coeffs) in rows.items()}
    names = {col: f"x{i}" for i, col in enumerate(order)}
    head = [f"(set-info :status {status})", "(set-logic QF_LRA)"]
    head += [f"(declare-fun {names[c]} () Real)" for c in order]
    out = []
    for c in order:
        lo, hi = bounds[c]
        if c in integer and lo == 0 and hi == 1:
            out.append(f"(assert (or (= {names[c]} 0.0) (= {names[c]} 1.0)))")
            continue
        if lo is not None:
            out.append(f"(assert (>= {names[c]} {number(lo)}))")
        if hi is not None:
            out.append(f"(assert (<= {names[c]} {number(hi)}))")
    ops = {"L": "<=", "G": ">=", "E": "="}
    for name, (sense, coeffs) in rows.items():
        if sense == "N":
            continue
        out.append(f"(assert ({ops[sense]} {linear(coeffs, names)} {number(rhs.get(name, Fraction(0)))}))")
    out.append(f"(assert (<= {linear(rows[objective][1], names)} {number(Fraction(bound))}))")
    if rng:
        rng.shuffle(out)
    return "\n".join(head + out + ["(check-sat)", "(exit)"]) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--out", default=str(HERE / "data/miplib_rows"))
    p.add_argument("--shuffle", type=int, metavar="SEED",
                   help="permute columns, row entries and assertions with this seed")
    p.add_argument("files", nargs="*")
    args = p.parse_args()
    files = args.files or [MIPLIB / f"miplib3-{n}.mps.bz2" for n in OPTIMA]
    out = pathlib.Path(args.out)
    out.mkdir(parents=True, exist_ok=True)
    for f in map(pathlib.Path, files):
        name = f.name.removeprefix("miplib3-").removesuffix(".mps.bz2")
        rows, objective, rhs, bounds, integer, order = read_mps(f)
        binary = all(c in integer and bounds[c] == [0, 1] for c in order)
        integral = all(c.denominator == 1 for c in rows[objective][1].values())
        if not binary or not integral or name not in OPTIMA:
            print(f"skipped {f.name}: not all binary with integral costs and a known optimum")
            continue
        for status, bound in (("sat", OPTIMA[name]), ("unsat", OPTIMA[name] - 1)):
            suffix = "" if args.shuffle is None else f"_sh{args.shuffle}"
            rng = None if args.shuffle is None else random.Random(f"{args.shuffle}-{name}")
            path = out / f"{name}_{status}{suffix}.smt2"
            path.write_text(script(rows, objective, rhs, bounds, integer, order, bound, status, rng))
            print(path)


if __name__ == "__main__":
    main()
