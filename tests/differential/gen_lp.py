"""Seeded CPLEX LP and MPS problems. A problem is kept as rows, columns and bound entries so that
it can be shrunk; rendering gives vorn's file (odd spellings included), a plainer file for glpsol
(or None when glpsol reads the file under another convention), and the constraint system the
file stands for under vorn's documented rules, as exact atoms (terms, rel, constant)."""

import random
from fractions import Fraction

INF = "inf"
HUGE = Fraction(10) ** 30  # MPS: a magnitude of 10^30 or more is infinite


def num_text(q):
    """A plain decimal spelling (dyadic fractions only, so glpsol's doubles are exact)."""
    if q.denominator == 1:
        return str(q.numerator)
    k = 0
    while (10 ** k) % q.denominator:
        k += 1
    scaled = q * 10 ** k
    sign = "-" if scaled < 0 else ""
    whole, frac = divmod(abs(scaled.numerator), 10 ** k)
    return "%s%d.%s" % (sign, whole, str(frac).rjust(k, "0"))


def odd_num_text(rng, q):
    """Another spelling of q that CPLEX LP and MPS readers take."""
    r = rng.random()
    if q == 0 and r < 0.3:
        return rng.choice(["0.0", "-0", "0e5"])
    if q.denominator == 1 and q != 0 and r < 0.3:
        n = q.numerator
        zeros = len(str(abs(n))) - len(str(abs(n)).rstrip("0"))
        if zeros >= 1:
            return "%se%d" % (str(n)[:len(str(n)) - zeros], zeros) if r < 0.15 else \
                "%sE+%d" % (str(n)[:len(str(n)) - zeros], zeros)
        return "%d.0" % n if r < 0.2 else str(n)
    if q.denominator != 1 and r < 0.3:
        return "%se-1" % num_text(q * 10)
    return num_text(q)


def gen_value(rng, huge_ok=True, fmt="lp"):
    r = rng.random()
    if r < 0.7:
        return Fraction(rng.randint(-12, 12))
    if r < 0.9:
        return Fraction(rng.randint(-40, 40), rng.choice([2, 4, 8]))
    if huge_ok:  # large but finite in both formats; MPS infinities are made on purpose
        return Fraction(rng.choice([1, -1]) * 10 ** rng.choice([22, 25, 31] if fmt == "lp"
                                                               else [22, 25, 29]))
    return Fraction(rng.randint(100, 10 ** 6))


def gen_coeff(rng):
    if rng.random() < 0.8:
        return Fraction(rng.choice([1, 1, -1, 2, -2, 3, -3, 4, 5, -6]))
    return Fraction(rng.choice([1, -3, 5, 7]), rng.choice([2, 4, 8]))


def col_names(rng, n, fixed):
    names = []
    for i in range(1, n + 1):
        if fixed:
            base = rng.choice(["X", "COL", "Y", "V A"]) if rng.random() < 0.2 else "X"
            names.append(("%s%d" % (base, i))[:8])
        else:
            r = rng.random()
            names.append(rng.choice(["x", "y", "z", "w", "flow", "q"]) + str(i) +
                         (rng.choice(["_a", ".b", "#", "{1}", "!", "~2", "@"]) if r < 0.15 else ""))
    return names


# -- the problem --------------------------------------------------------------------------

def generate(rng, fmt):
    """fmt is 'lp', 'mps' or 'fixed' (fixed-format MPS)."""
    # One in ten is large enough (a hundred atoms and more) for the floating-point start.
    large = rng.random() < 0.1
    ncols = rng.randint(3, 12) if large else rng.randint(1, 7)
    cols = []
    for name in col_names(rng, ncols, fmt == "fixed"):
        r = rng.random()
        kind = "real" if r < 0.6 else "int" if r < 0.9 else "bin"
        cols.append({"name": name, "kind": kind})
    if large:
        if rng.random() < 0.6:  # a pure LP, which the floating-point start takes
            for c in cols:
                c["kind"] = "real"
        return generate_large(rng, fmt, cols)
    rows = []
    for i in range(rng.randint(1, 8)):
        k = rng.randint(1, min(4, ncols))
        picked = rng.sample(range(ncols), k)
        terms = [(cols[j]["name"], gen_coeff(rng)) for j in picked]
        r = rng.random()
        rel = "<=" if r < 0.35 else ">=" if r < 0.7 else "=" if r < 0.85 else "range"
        rhs = gen_value(rng, True, fmt)
        row = {"name": "r%d" % (i + 1), "terms": terms, "rel": rel, "rhs": rhs}
        if rel == "range":
            row["width"] = Fraction(rng.randint(0, 10)) * rng.choice([1, -1])
            if fmt != "lp":
                row["mps_kind"] = rng.choice(["E", "L", "G"])
        if rng.random() < 0.06:
            row["rhs"] = rng.choice([INF, "-" + INF]) if fmt == "lp" else \
                Fraction(rng.choice([1, -1]) * 10 ** rng.choice([30, 31]))
            row["rel"] = "<=" if rel == "range" else rel
        rows.append(row)
    bounds = []
    for c in cols:
        if c["kind"] == "bin":
            continue
        r = rng.random()
        if fmt != "lp" and c["kind"] == "int" and rng.random() < 0.6:
            r = 0.5  # bounded, so that glpsol (which bounds it by 1 otherwise) can compare
        if r < 0.35:
            continue
        if r < 0.45:
            bounds.append({"col": c["name"], "kind": "free"})
        elif r < 0.6:
            lo, up = sorted([gen_value(rng, False), gen_value(rng, False)])
            bounds.append({"col": c["name"], "kind": "both", "lo": lo, "up": up})
        elif r < 0.7:
            bounds.append({"col": c["name"], "kind": "up", "v": gen_value(rng, True, fmt)})
        elif r < 0.8:
            bounds.append({"col": c["name"], "kind": "lo", "v": gen_value(rng, True, fmt)})
        elif r < 0.86:
            bounds.append({"col": c["name"], "kind": "fix", "v": gen_value(rng, False)})
        elif r < 0.9:
            bounds.append({"col": c["name"], "kind": "mi"})
        elif r < 0.94:
            v = rng.choice([INF, "-" + INF]) if fmt == "lp" else \
                Fraction(rng.choice([1, -1]) * 10 ** rng.choice([30, 31]))
            bounds.append({"col": c["name"], "kind": rng.choice(["up", "lo"]), "v": v})
        else:
            bounds.append({"col": c["name"], "kind": "up", "v": -Fraction(rng.randint(1, 9))})
    objective = [(c["name"], gen_coeff(rng)) for c in cols if rng.random() < 0.6]
    return {"fmt": fmt, "cols": cols, "rows": rows, "bounds": bounds, "objective": objective,
            "sense": rng.choice(["min", "max"]), "style": rng.randrange(1 << 30)}


def generate_large(rng, fmt, cols):
    """Rows and boxes around a point, a few rows broken there: feasible or not, either way."""
    point = {}
    for c in cols:
        point[c["name"]] = (Fraction(rng.randint(0, 1)) if c["kind"] == "bin" else
                            Fraction(rng.randint(-8, 8)) if c["kind"] == "int" else
                            Fraction(rng.randint(-16, 16), rng.choice([1, 2, 4])))
    rows = []
    broken = rng.choice([0, 0, 1, 2])
    for i in range(rng.randint(95, 130)):
        picked = rng.sample(range(len(cols)), rng.randint(2, min(4, len(cols))))
        terms = [(cols[j]["name"], gen_coeff(rng)) for j in picked]
        at = sum(a * point[n] for n, a in terms)
        slack = Fraction(rng.randint(0, 6), rng.choice([1, 2]))
        if broken and rng.random() < 0.02:
            slack, broken = -Fraction(1, 4), broken - 1
        r = rng.random()
        rel = "<=" if r < 0.45 else ">=" if r < 0.9 else "="
        rhs = at if rel == "=" else at + slack if rel == "<=" else at - slack
        rows.append({"name": "r%d" % (i + 1), "terms": terms, "rel": rel, "rhs": rhs})
    bounds = []
    for c in cols:
        if c["kind"] == "bin" or rng.random() < 0.3:
            continue
        v = point[c["name"]]
        bounds.append({"col": c["name"], "kind": "both", "lo": v - rng.randint(0, 5),
                       "up": v + rng.randint(0, 5)})
    objective = [(c["name"], gen_coeff(rng)) for c in cols if rng.random() < 0.6]
    return {"fmt": fmt, "cols": cols, "rows": rows, "bounds": bounds, "objective": objective,
            "sense": rng.choice(["min", "max"]), "style": rng.randrange(1 << 30)}


def is_inf(v):
    if isinstance(v, str):
        return -1 if v.startswith("-") else 1
    return 0


def mps_inf(v):
    if isinstance(v, str):
        return is_inf(v)
    return 1 if v >= HUGE else -1 if v <= -HUGE else 0


# -- meaning under vorn's rules ------------------------------------------------------------

def meaning(p):
    """(atoms, ints, glpk_ok): atoms are (terms dict, rel, constant) or None for the false atom."""
    mps = p["fmt"] != "lp"
    inf = mps_inf if mps else is_inf
    atoms, glpk_ok = [], True
    names = [c["name"] for c in p["cols"]]
    for row in p["rows"]:
        terms = {}
        for n, a in row["terms"]:
            terms[n] = terms.get(n, 0) + a
        rel, rhs = row["rel"], row["rhs"]
        s = inf(rhs)
        if s:
            glpk_ok = False
            if (rel == "<=" and s > 0) or (rel == ">=" and s < 0):
                continue
            atoms.append(None)
            continue
        if rel == "range":
            if mps:  # an L row with a RANGES entry; the width's sign picks the side of an E row
                w = row["width"]
                kind = row.get("mps_kind", "E")
                if kind == "L":
                    lo, up = rhs - abs(w), rhs
                elif kind == "G":
                    lo, up = rhs, rhs + abs(w)
                elif w >= 0:
                    lo, up = rhs, rhs + w
                else:
                    lo, up = rhs + w, rhs
            else:
                lo, up = rhs - abs(row["width"]), rhs
            atoms.append((terms, ">=", lo))
            atoms.append((terms, "<=", up))
        else:
            atoms.append((terms, rel, rhs))
    lo = {n: Fraction(0) for n in names}
    up = {n: None for n in names}
    ints = set()
    explicit_lo = set()
    for c in p["cols"]:
        if c["kind"] == "bin":
            up[c["name"]] = Fraction(1)
            ints.add(c["name"])
        elif c["kind"] == "int":
            ints.add(c["name"])
            if mps and not any(b["col"] == c["name"] and b["kind"] in ("both", "up", "fix")
                               and not mps_inf(b.get("v", b.get("up", 0)))
                               for b in p["bounds"]):
                glpk_ok = False  # glpsol bounds an MPS integer column without bounds by 1
    false = False
    for b in p["bounds"]:
        n, kind = b["col"], b["kind"]
        if kind == "free":
            lo[n], up[n] = None, None
            explicit_lo.add(n)
        elif kind == "mi":
            lo[n] = None
            explicit_lo.add(n)
        elif kind == "both":
            lo[n], up[n] = b["lo"], b["up"]
            explicit_lo.add(n)
        elif kind == "fix":
            if inf(b["v"]):
                false = True
                glpk_ok = False
            else:
                lo[n] = up[n] = b["v"]
        elif kind == "lo":
            s = inf(b["v"])
            if s:
                glpk_ok = False
            if s < 0:
                lo[n] = None
            elif s > 0:
                false = True
            else:
                lo[n] = b["v"]
            explicit_lo.add(n)
        elif kind == "up":
            s = inf(b["v"])
            if s:
                glpk_ok = False
            if s > 0:
                up[n] = None
            elif s < 0:
                false = True
            else:
                up[n] = b["v"]
                if mps and b["v"] < 0 and n not in explicit_lo:
                    lo[n] = None  # MPS: a negative upper bound frees the default lower one
                    glpk_ok = False
    if not mps:  # an LP column that the file never names does not exist
        named = {n for row in p["rows"] for n, _ in row["terms"]}
        named |= {n for n, _ in p["objective"]} or {names[0]}
        named |= {b["col"] for b in p["bounds"]}
        named |= {c["name"] for c in p["cols"] if c["kind"] != "real"}
        names = [n for n in names if n in named]
    for n in names:
        if lo[n] is not None:
            atoms.append(({n: Fraction(1)}, ">=", lo[n]))
        if up[n] is not None:
            atoms.append(({n: Fraction(1)}, "<=", up[n]))
    if false:
        atoms.append(None)
    big = any(a is not None and (abs(a[2]) >= 10 ** 20) for a in atoms)
    if big and ints:
        glpk_ok = False  # glpsol's integer search is not exact: keep it to small numbers
    return atoms, ints, glpk_ok


def smt_of(p):
    """The meaning as an SMT-LIB script for z3, variables named c0, c1, ..."""
    atoms, ints, _ = meaning(p)
    index = {c["name"]: i for i, c in enumerate(p["cols"])}
    out = ["(set-logic %s)" % ("QF_LIRA" if ints else "QF_LRA")]
    for c in p["cols"]:
        out.append("(declare-const c%d %s)" % (index[c["name"]],
                                               "Int" if c["name"] in ints else "Real"))

    def q(v):
        s = "(/ %d %d)" % (abs(v.numerator), v.denominator) if v.denominator != 1 \
            else str(abs(v.numerator))
        return "(- %s)" % s if v < 0 else s

    for a in atoms:
        if a is None:
            out.append("(assert false)")
            continue
        terms, rel, c = a
        body = " ".join("(* %s c%d)" % (q(k), index[n]) for n, k in terms.items())
        out.append("(assert (%s (+ 0 %s) %s))" % (rel, body, q(c)))
    out.append("(check-sat)")
    return "\n".join(out) + "\n"


# -- LP text -------------------------------------------------------------------------------

def lp_expr(rng, terms, odd):
    parts = []
    for i, (n, a) in enumerate(terms):
        sign = "-" if a < 0 else "+"
        mag = abs(a)
        coef = "" if mag == 1 and (not odd or rng.random() < 0.7) else \
            (odd_num_text(rng, mag) if odd else num_text(mag))
        glue = "" if odd and coef and rng.random() < 0.3 and n[0] not in "eE" else " "
        term = coef + glue + n if coef else n
        if i == 0 and sign == "+" and rng.random() < 0.7:
            parts.append(term)
        else:
            parts.append(sign + ("" if odd and rng.random() < 0.3 else " ") + term)
    sep = " "
    if odd and len(parts) > 2 and rng.random() < 0.3:
        sep = rng.choice(["\n   ", "  ", "\t"])
    return sep.join(parts)


def lp_value(rng, v, odd):
    if isinstance(v, str):
        s = is_inf(v)
        word = rng.choice(["inf", "infinity", "INF", "Infinity"]) if odd else "inf"
        return ("-" if s < 0 else rng.choice(["", "+"]) if odd else "") + word
    return odd_num_text(rng, v) if odd else num_text(v)


def render_lp(p, odd, objective=False):
    rng = random.Random(p["style"] * 2 + odd)
    kw = (lambda *words: rng.choice(words)) if odd else (lambda *words: words[0])
    out = []
    if odd and rng.random() < 0.5:
        out.append("\\ generated problem")
    if p["sense"] == "min":
        out.append(kw("Minimize", "MINIMIZE", "minimum", "min"))
    else:
        out.append(kw("Maximize", "MAXIMIZE", "maximum", "max"))
    if odd or objective:
        obj = p["objective"] or [(p["cols"][0]["name"], Fraction(0))]
        out.append(" obj: " + lp_expr(rng, obj, odd))
    else:
        out.append(" obj: " + " + ".join("0 %s" % c["name"] for c in p["cols"]))
    out.append(kw("Subject To", "SUBJECT TO", "such that", "st", "s.t."))
    for row in p["rows"]:
        label = row["name"] + ": " if not odd or rng.random() < 0.8 else ""
        expr = lp_expr(rng, row["terms"], odd)
        rel, rhs = row["rel"], row["rhs"]
        if rel == "range":
            if is_inf(rhs):
                rel = "<="
            else:
                lo = rhs - abs(row["width"])
                if odd:
                    out.append(" %s%s <= %s <= %s" % (label, lp_value(rng, lo, odd), expr,
                                                      lp_value(rng, rhs, odd)))
                else:
                    out.append(" %s_lo: %s >= %s" % (row["name"], expr, num_text(lo)))
                    out.append(" %s_up: %s <= %s" % (row["name"], expr, num_text(rhs)))
                continue
        spell = rel
        if odd and rel != "=":
            spell = rng.choice({"<=": ["<=", "<", "=<"], ">=": [">=", ">", "=>"]}[rel])
        comment = " \\ note" if odd and rng.random() < 0.1 else ""
        out.append(" %s%s %s %s%s" % (label, expr, spell, lp_value(rng, rhs, odd), comment))
    if p["bounds"]:
        out.append(kw("Bounds", "BOUNDS", "bound", "bounds"))
    for b in p["bounds"]:
        n, kind = b["col"], b["kind"]
        if kind == "free":
            out.append(" %s %s" % (n, kw("free", "FREE", "Free")))
        elif kind == "mi":
            out.append(" %s >= %s" % (n, lp_value(rng, "-" + INF, odd)) if rng.random() < 0.5
                       else " %s <= %s" % (lp_value(rng, "-" + INF, odd), n))
        elif kind == "both":
            out.append(" %s <= %s <= %s" % (lp_value(rng, b["lo"], odd), n,
                                            lp_value(rng, b["up"], odd)))
        elif kind == "fix":
            out.append(" %s = %s" % (n, lp_value(rng, b["v"], odd)))
        elif kind == "lo":
            out.append(" %s >= %s" % (n, lp_value(rng, b["v"], odd)) if not odd or
                       rng.random() < 0.7 else " %s <= %s" % (lp_value(rng, b["v"], odd), n))
        elif kind == "up":
            out.append(" %s <= %s" % (n, lp_value(rng, b["v"], odd)) if not odd or
                       rng.random() < 0.7 else " %s >= %s" % (lp_value(rng, b["v"], odd), n))
    gens = [c["name"] for c in p["cols"] if c["kind"] == "int"]
    bins = [c["name"] for c in p["cols"] if c["kind"] == "bin"]
    if gens:
        out.append(kw("Generals", "GENERALS", "General", "gen"))
        out.append(" " + " ".join(gens))
    if bins:
        out.append(kw("Binary", "BINARY", "Binaries", "bin"))
        out.append(" " + " ".join(bins))
    out.append(kw("End", "END", "end"))
    return "\n".join(out) + "\n"


# -- MPS text ------------------------------------------------------------------------------

def fixed_line(fields):
    """Fields 1-6 of a fixed-format line at columns 2, 5, 15, 25, 40, 50."""
    starts = [1, 4, 14, 24, 39, 49]
    line = ""
    for start, f in zip(starts, fields):
        if f is None:
            continue
        line = line.ljust(start) + f
    return line.rstrip()


def render_mps(p, odd, objective=False):
    fixed = p["fmt"] == "fixed"
    rng = random.Random(p["style"] * 2 + odd)

    def num(v):
        if abs(v) >= 10 ** 12 and v.denominator == 1 and str(abs(v.numerator)).rstrip("0") == "1":
            return "%s1e%d" % ("-" if v < 0 else "", len(str(abs(v.numerator))) - 1)
        return odd_num_text(rng, v) if odd and not fixed else num_text(v)

    def line(*fields):
        if fixed:
            return fixed_line(fields)
        gap = (lambda: rng.choice([" ", "  ", "\t", "   "])) if odd else (lambda: " ")
        text = ""
        for f in fields:
            if f is not None:
                text += gap() + f
        return text if fields[0] is None or not odd else text

    out = ["NAME          PROB" if fixed else "NAME prob"]
    if odd and rng.random() < 0.5:
        out.append("* generated problem")
    if odd and p["sense"] == "max" and rng.random() < 0.5:
        out += ["OBJSENSE", "    MAX"] if fixed or rng.random() < 0.5 else ["OBJSENSE MAX"]
    out.append("ROWS")
    out.append(line("N", "COST"))
    kinds = {}
    for row in p["rows"]:
        rel = row["rel"]
        k = {"<=": "L", ">=": "G", "=": "E"}.get(rel) or row["mps_kind"]
        kinds[row["name"]] = k
        out.append(line(k, row["name"]))
    if odd and rng.random() < 0.3:
        out.append(line("N", "FREE1"))
    out.append("COLUMNS")
    entries = {c["name"]: [] for c in p["cols"]}
    for row in p["rows"]:
        for n, a in row["terms"]:
            entries[n].append((row["name"], a))
    obj = dict(p["objective"])
    in_int = False
    for c in p["cols"]:
        n = c["name"]
        items = ([("COST", obj.get(n, Fraction(0)) if odd or objective else Fraction(0))]
                 if n in obj or not entries[n]
                 else []) + entries[n]
        want_int = c["kind"] != "real"
        if want_int != in_int:
            mark = "'INTORG'" if want_int else "'INTEND'"
            out.append(fixed_line([None, "MARKER", "'MARKER'", None, mark]) if fixed
                       else " MARKER 'MARKER' %s" % mark)
            in_int = want_int
        i = 0
        while i < len(items):
            pair = items[i:i + 2] if not fixed or rng.random() < 0.7 else items[i:i + 1]
            fields = [None, n]
            for r, a in pair:
                fields += [r, num(a)]
            out.append(line(*fields) if not fixed else
                       fixed_line([None, n, pair[0][0], num(pair[0][1])] +
                                  ([pair[1][0], num(pair[1][1])] if len(pair) > 1 else [])))
            i += len(pair)
    if in_int:
        out.append(fixed_line([None, "MARKER", "'MARKER'", None, "'INTEND'"]) if fixed
                   else " MARKER 'MARKER' 'INTEND'")
    rhs = [(r["name"], r["rhs"]) for r in p["rows"] if r["rhs"] != 0 or (odd and rng.random()
                                                                        < 0.2)]
    if rhs:
        out.append("RHS")
        for name, v in rhs:
            out.append(line(None, "RHS", name, num(v)))
    ranges = [(r["name"], r["width"]) for r in p["rows"] if r["rel"] == "range"]
    if ranges:
        out.append("RANGES")
        for name, w in ranges:
            out.append(line(None, "RNG", name, num(w)))
    if p["bounds"] or any(c["kind"] == "bin" for c in p["cols"]):
        out.append("BOUNDS")
    for c in p["cols"]:
        if c["kind"] == "bin":
            out.append(line("BV", "BND", c["name"]))
    for b in p["bounds"]:
        n, kind = b["col"], b["kind"]
        if kind == "free":
            out.append(line("FR", "BND", n))
        elif kind == "mi":
            out.append(line("MI", "BND", n))
        elif kind == "both":
            out.append(line("LO", "BND", n, num(b["lo"])))
            out.append(line("UP", "BND", n, num(b["up"])))
        elif kind == "fix":
            out.append(line("FX", "BND", n, num(b["v"])))
        elif kind == "lo":
            out.append(line("LO", "BND", n, num(b["v"])))
        elif kind == "up":
            out.append(line("UP", "BND", n, num(b["v"])))
    out.append("ENDATA")
    return "\n".join(out) + "\n"


def render(p, odd=True, objective=False):
    """vorn's file (odd) or glpsol's; glpsol's has a zero objective unless `objective`."""
    if p["fmt"] == "lp":
        return render_lp(p, odd, objective)
    return render_mps(p, odd, objective)


def units(p):
    """What shrinking may drop: rows, bound entries, objective entries."""
    return [("rows", i) for i in range(len(p["rows"]))] + \
        [("bounds", i) for i in range(len(p["bounds"]))] + \
        [("objective", i) for i in range(len(p["objective"]))]


def without(p, unit):
    q = dict(p)
    key, i = unit
    q[key] = p[key][:i] + p[key][i + 1:]
    return q
