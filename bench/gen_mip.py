#!/usr/bin/env python3
"""Writes small mixed-integer models of the kinds MIPLIB holds, as fixed MPS and CPLEX LP files.

usage: gen_mip.py OUT_DIR [--count N] [--seed S] [--scale K]

Model i of seed S is the same on every run (random.Random(S * 100003 + i)). Families, in turn:
set covering, packing and partitioning (equality rows), capacitated facility location (binary
openings, continuous flows), multi-dimensional knapsack (maximised), general integers (wide
bounds, free and negative-bounded columns, ranged rows), and models made infeasible (an equality
of even coefficients with an odd right-hand side) or unbounded (a free integer column that
improves the objective without a row). Each model may also carry an objective constant, an empty
row and an empty column; its integer columns are marked, at random, by MARKER INTORG or by BOUNDS
BV/LI/UI in the MPS file (LP: Generals/Binaries). --scale multiplies the sizes (medium models
for timing). Writes NAME.mps and NAME.lp per model and prints the names.
"""
import argparse
import math
from fractions import Fraction
import pathlib
import random


class Model:
    def __init__(self, name):
        self.name = name
        self.cols = []  # [name, lower, upper, integer]; None bound = infinite
        self.obj = {}
        self.constant = 0
        self.maximize = False
        self.rows = []  # [name, {col: coeff}, sense 'L'/'G'/'E'/'R', rhs, range (R: low..rhs)]
        self.markers = False
        self.style = {}

    def col(self, lower=0, upper=None, integer=False):
        name = "C%d" % len(self.cols)
        self.cols.append([name, lower, upper, integer])
        return name

    def row(self, coeffs, sense, rhs, low=None):
        name = "R%d" % len(self.rows)
        self.rows.append([name, {c: v for c, v in coeffs.items() if v != 0}, sense, rhs, low])
        return name


def set_problem(rng, name, scale):
    m = Model(name)
    n, k = rng.randint(6, 14) * scale, rng.randint(4, 10) * scale
    xs = [m.col(0, 1, True) for _ in range(n)]
    kind = rng.choice("CPE")
    if kind == "E":  # partitioning: build around a known partition so that most are feasible
        cover = [rng.randrange(k) for _ in range(n)]
        for r in range(k):
            members = {x for x, c in zip(xs, cover) if c == r}
            members |= set(rng.sample(xs, rng.randint(0, 2)))
            m.row({x: 1 for x in members} or {xs[0]: 1}, "E", 1)
    else:
        for _ in range(k):
            members = rng.sample(xs, rng.randint(2, max(2, n // 2)))
            m.row({x: 1 for x in members}, "G" if kind == "C" else "L", 1)
    m.maximize = kind == "P"
    m.obj = {x: rng.randint(1, 20) for x in xs}
    return m


def facility(rng, name, scale):
    m = Model(name)
    f, c = rng.randint(2, 4) * scale, rng.randint(3, 6) * scale
    demand = [rng.randint(1, 9) for _ in range(c)]
    opens = [m.col(0, 1, True) for _ in range(f)]
    flow = [[m.col(0, None) for _ in range(c)] for _ in range(f)]
    for j in range(c):
        m.row({flow[i][j]: 1 for i in range(f)}, "E", demand[j])
    for i in range(f):
        cap = rng.randint(sum(demand) // f, sum(demand))
        row = {flow[i][j]: 1 for j in range(c)}
        row[opens[i]] = -cap
        m.row(row, "L", 0)
    m.obj = {y: rng.randint(10, 40) for y in opens}
    for i in range(f):
        for j in range(c):
            m.obj[flow[i][j]] = rng.choice([1, 2, 3, 5, 7]) / rng.choice([1, 2, 4])
    return m


def knapsack(rng, name, scale):
    m = Model(name)
    n, k = rng.randint(6, 15) * scale, rng.randint(1, 4)
    xs = [m.col(0, rng.choice([1, 1, 1, 3]), True) for _ in range(n)]
    big = rng.choice([1, 1, 1000, 99991])
    for _ in range(k):
        w = {x: rng.randint(1, 30) * big + rng.randint(0, big - 1) for x in xs}
        m.row(w, "L", sum(w.values()) // rng.randint(2, 4))
    if rng.random() < 0.3:  # an equality knapsack, reachable by construction
        w = {x: rng.randint(2, 12) for x in xs}
        m.row(w, "E", sum(w[x] for x in rng.sample(xs, len(xs) // 3)))
    m.obj = {x: rng.randint(1, 40) for x in xs}
    m.maximize = True
    return m


def general(rng, name, scale):
    m = Model(name)
    n, k = rng.randint(3, 7) * scale, rng.randint(2, 6) * scale
    xs = []
    for _ in range(n):
        shape = rng.randrange(7)
        if shape == 5:
            xs.append(m.col(0, None, True))  # no bound line at all in the MPS file
        elif shape == 6:
            lo = rng.randint(-30, 0) - rng.choice([0, 0.5, 0.25])
            xs.append(m.col(lo, lo + rng.randint(1, 40) + rng.choice([0, 0.75]), True))
        elif shape == 0:
            xs.append(m.col(None, None, True))  # free integer
        elif shape == 1:
            xs.append(m.col(-rng.randint(1, 1000), rng.randint(0, 1000), True))
        elif shape == 2:
            xs.append(m.col(-rng.randint(11, 50), -rng.randint(0, 10), True))
        elif shape == 3:
            xs.append(m.col(rng.randint(-5, 5), None, False))
        else:
            xs.append(m.col(0, rng.randint(1, 20), True))
    # a box around a random integer point keeps the rows feasible and the model bounded
    point = {}
    for c in m.cols:
        lo = c[1] if c[1] is not None else -60
        hi = c[2] if c[2] is not None else lo + 120
        point[c[0]] = rng.randint(math.ceil(lo), math.floor(min(hi, lo + 120)))
    for x in xs:
        m.row({x: 1}, "R", point[x] + 40, point[x] - 40)
    at_point = lambda row: sum(v * point[x] for x, v in row.items())
    for _ in range(k):
        scale_row = rng.choice([1, 1, 1, 4, 8, 1000])
        row = {x: Fraction(rng.randint(-9 * scale_row, 9 * scale_row), scale_row)
               for x in rng.sample(xs, rng.randint(2, len(xs)))}
        at = at_point(row)
        sense = rng.choice("LGER")
        if sense == "L":
            m.row(row, "L", at + rng.randint(0, 7))
        elif sense == "G":
            m.row(row, "G", at - rng.randint(0, 7))
        elif sense == "E":
            m.row(row, "E", at)
        else:
            m.row(row, "R", at + rng.randint(0, 5), at - rng.randint(0, 5))
    m.obj = {x: rng.randint(-10, 10) for x in xs}
    m.maximize = rng.random() < 0.5
    return m


def spoil(rng, m):
    """Makes M infeasible or unbounded (returns which)."""
    ints = [c[0] for c in m.cols if c[3]]
    if rng.random() < 0.5 and len(ints) >= 2:
        a, b = rng.sample(ints, 2)
        m.row({a: 2, b: 4}, "E", 2 * rng.randint(0, 3) + 1)
        return "infeasible"
    free = m.col(None, None, True)
    m.obj[free] = 1 if m.maximize else -1
    return "unbounded"


FAMILIES = [set_problem, facility, knapsack, general]


def generate(seed, i, scale=1):
    rng = random.Random(seed * 100003 + i)
    family = FAMILIES[i % len(FAMILIES)]
    m = family(rng, "%s%d" % (family.__name__[:3], i), scale)
    if scale == 1 and rng.random() < 0.15:
        spoil(rng, m)
    if rng.random() < 0.3:
        m.constant = rng.randint(-50, 50)
    if rng.random() < 0.2:
        m.row({}, "L", rng.randint(0, 3))  # empty row, satisfied
    if rng.random() < 0.2:  # empty column: only its bounds and cost
        c = m.col(rng.randint(-3, 0), rng.randint(0, 3), rng.random() < 0.5)
        m.obj[c] = rng.randint(-4, 4) or 1
    m.markers = rng.random() < 0.5
    m.style = {"pairs": rng.random() < 0.3, "free_row": rng.random() < 0.2,
               "range_kind": rng.randrange(4), "lp_ranges": rng.random() < 0.5,
               "lp_bounds": rng.random() < 0.5, "bv_value": rng.random() < 0.3}
    return m


def num(v):
    """V (int, float or a Fraction of terminating decimal expansion) as an exact decimal."""
    v = Fraction(v)
    if v.denominator == 1:
        return str(v.numerator)
    digits = 0
    while (v * 10**digits).denominator != 1:
        digits += 1
    text = str(abs(v.numerator) * 10**digits // v.denominator).rjust(digits + 1, "0")
    return ("-" if v < 0 else "") + text[:-digits] + "." + text[-digits:]


def plain(m):
    """M as a minimisation without objective constant (for readers that lack either): the
    optimum of M is sign * (that optimum) + constant."""
    p = Model(m.name)
    p.rows, p.markers = m.rows, m.markers
    # glpsol refuses fractional bounds on integer columns: the same columns, bounds rounded in
    p.cols = [[n, math.ceil(lo) if i and lo is not None else lo,
               math.floor(hi) if i and hi is not None else hi, i] for n, lo, hi, i in m.cols]
    p.style = {"explicit_pl": True}  # CBC and glpsol read an unbounded INTORG column as binary
    p.obj = {c: -v if m.maximize else v for c, v in m.obj.items()}
    return p


def write_mps(m, path):
    lines = ["NAME          " + m.name]
    if m.maximize:
        lines += ["OBJSENSE", "    MAX"]
    lines.append("ROWS")
    lines.append(" N  OBJ")
    # a ranged row as E with R < 0 (style 0), E with R > 0 (1), L (2) or G (3) with |R|
    kind = m.style.get("range_kind", 0)
    row_type = {"R": "EELG"[kind]}
    row_rhs = lambda r: (r[4] if kind in (1, 3) else r[3]) if r[2] == "R" else r[3]
    row_range = lambda r: (r[4] - r[3] if kind == 0 else r[3] - r[4]) * (-1 if kind == 2 and
                                                                          r[0][-1] in "13579" else 1)
    if m.style.get("free_row"):
        lines.append(" N  FREE")
    for r in m.rows:
        lines.append(" %s  %s" % (row_type.get(r[2], r[2]), r[0]))
    lines.append("COLUMNS")
    in_marker = False
    entries = {c[0]: [] for c in m.cols}
    for r in m.rows:
        for c, v in r[1].items():
            entries[c].append((r[0], v))
    marks = 0
    for name, lower, upper, integer in m.cols:
        marked = integer and (m.markers or (lower is None and upper is None))
        if marked != in_marker:
            lines.append("    %-8s  'MARKER'                 '%s'" %
                         ("MARKER%d" % marks, "INTORG" if marked else "INTEND"))
            marks += 1
            in_marker = marked
        pairs = [("OBJ", m.obj.get(name, 0))] + entries[name]
        if m.style.get("free_row"):
            pairs.append(("FREE", 1))
        while pairs:
            (row, v), pairs = pairs[0], pairs[1:]
            line = "    %-8s  %-8s  %12s" % (name, row, num(v))
            if m.style.get("pairs") and pairs:
                (row, v), pairs = pairs[0], pairs[1:]
                line += "   %-8s  %12s" % (row, num(v))
            lines.append(line)
    if in_marker:
        lines.append("    %-8s  'MARKER'                 'INTEND'" % ("MARKER%d" % marks))
    lines.append("RHS")
    if m.constant:
        lines.append("    RHS       %-8s  %12s" % ("OBJ", num(-m.constant)))
    for r in m.rows:
        if row_rhs(r) != 0:
            lines.append("    RHS       %-8s  %12s" % (r[0], num(row_rhs(r))))
    ranged = [r for r in m.rows if r[2] == "R"]
    if ranged:  # an E row with a negative range R holds [rhs + R, rhs]
        lines.append("RANGES")
        for r in ranged:
            lines.append("    RNG       %-8s  %12s" % (r[0], num(row_range(r))))
    lines.append("BOUNDS")
    for name, lower, upper, integer in m.cols:
        if integer and not m.markers and (lower is not None or upper is not None):
            if lower == 0 and upper == 1:
                lines.append(" BV BND       %-8s" % name + ("             1" if m.style.get(
                    "bv_value") else ""))
                continue
            if lower is None:
                lines.append(" MI BND       %-8s" % name)
            elif lower != 0 or upper is None:
                lines.append(" LI BND       %-8s  %12s" % (name, num(lower)))
            if upper is not None:
                lines.append(" UI BND       %-8s  %12s" % (name, num(upper)))
            continue
        if lower is None and upper is None:
            lines.append(" FR BND       %-8s" % name)
            continue
        if lower is None:
            lines.append(" MI BND       %-8s" % name)
        elif lower != 0:
            lines.append(" LO BND       %-8s  %12s" % (name, num(lower)))
        if upper is not None:
            lines.append(" UP BND       %-8s  %12s" % (name, num(upper)))
    if m.style.get("explicit_pl"):
        lines += [" PL BND       %s" % c[0] for c in m.cols
                  if c[3] and c[2] is None and c[1] is not None]
    lines.append("ENDATA")
    path.write_text("\n".join(lines) + "\n")


def linear(coeffs):
    out = []
    for c, v in coeffs.items():
        out.append("%s %s %s" % ("-" if v < 0 else "+", num(abs(v)), c))
    return " ".join(out) if out else "0 C0"


def write_lp(m, path):
    lines = ["Maximize" if m.maximize else "Minimize"]
    obj = linear({c: v for c, v in m.obj.items() if v}) if any(m.obj.values()) else "0 C0"
    if m.constant:
        obj += " %s %s" % ("-" if m.constant < 0 else "+", num(abs(m.constant)))
    lines.append(" OBJ: " + obj)
    lines.append("Subject To")
    for name, coeffs, sense, rhs, low in m.rows:
        if not coeffs:
            continue  # the LP format has no empty rows
        expr = linear(coeffs)
        if sense == "R" and m.style.get("lp_ranges"):
            lines.append(" %s: %s <= %s <= %s" % (name, num(low), expr, num(rhs)))
        elif sense == "R":
            lines.append(" %s: %s >= %s" % (name + "a", expr, num(low)))
            lines.append(" %s: %s <= %s" % (name + "b", expr, num(rhs)))
        else:
            lines.append(" %s: %s %s %s" % (name, expr, {"L": "<=", "G": ">=", "E": "="}[sense],
                                            num(rhs)))
    lines.append("Bounds")
    for name, lower, upper, integer in m.cols:
        if lower is None and upper is None:
            lines.append(" %s free" % name)
        elif m.style.get("lp_bounds") and lower == upper:
            lines.append(" %s = %s" % (name, num(lower)))
        elif m.style.get("lp_bounds") and lower == 0 and upper is not None:
            lines.append(" %s <= %s" % (name, num(upper)))
        elif m.style.get("lp_bounds") and upper is None:
            lines.append(" %s >= %s" % (name, "-inf" if lower is None else num(lower)))
        elif m.style.get("lp_bounds") and lower is None:
            lines += [" %s >= -inf" % name, " %s <= %s" % (name, num(upper))]
        else:
            lines.append(" %s <= %s <= %s" % ("-inf" if lower is None else num(lower), name,
                                              "+inf" if upper is None else num(upper)))
    ints = [c for c in m.cols if c[3]]
    binaries = [c[0] for c in ints if c[1] == 0 and c[2] == 1]
    generals = [c[0] for c in ints if not (c[1] == 0 and c[2] == 1)]
    if generals:
        lines += ["Generals", " " + " ".join(generals)]
    if binaries:
        lines += ["Binaries", " " + " ".join(binaries)]
    lines.append("End")
    path.write_text("\n".join(lines) + "\n")


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("out")
    p.add_argument("--count", type=int, default=20)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--scale", type=int, default=1)
    a = p.parse_args()
    out = pathlib.Path(a.out)
    out.mkdir(parents=True, exist_ok=True)
    for i in range(a.count):
        m = generate(a.seed, i, a.scale)
        write_mps(m, out / (m.name + ".mps"))
        write_lp(m, out / (m.name + ".lp"))
        print(m.name)


if __name__ == "__main__":
    main()
