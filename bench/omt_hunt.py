#!/usr/bin/python3
"""Random OMT scripts in the style z3's optimizer reads, through `vorn check` beside `z3`, every
answer of vorn's confirmed exactly by z3's decision procedure (its Python module, so Debian's
/usr/bin/python3).

usage: omt_hunt.py [--vorn BIN] [--count N] [--seed S] [--scale S] [--timeout S] [--kinds K,...]
                   [--keep DIR] [--verbose]

Kinds: lex (several objectives over Boolean structure, Int and Real, min and max mixed), ite
(objectives that are sums and differences with term ites), strict (Real strict bounds: optima
approached, z3's epsilon), unbounded (variables without a box), idl and rdl (difference logic),
levels (objectives under push/pop, check-sat twice), soft (assert-soft with weights and ids,
beside minimize), id (minimize/maximize with :id), quotient (div, mod, abs and to_int in
objectives and atoms), assuming (check-sat-assuming over the Bools), box (z3's box priority:
each objective on its own, the model the first one's). Each script has (get-objectives) and
(get-model) after each check-sat.

For every check-sat the values vorn prints are confirmed on the flat problem of that check
(the active declarations and assertions) by z3's solver, objective after objective with the
earlier ones held at their optima: an attained optimum v is reached (t = v sat) and not beaten
(t better than v unsat); a supremum v approached is not reached (t >= v unsat) but nearly
(t > v - 1/10^6 sat); an unbounded one exceeds 10^9. vorn's model must satisfy the assertions and
attain the attained optima, and its certificate (--certificate) must pass
scripts/check_certificate.py --input. z3's optimizer answering otherwise is counted apart
(it answers wrongly on strict bounds and on soft constraints mixed with objectives); vorn
printing fewer objectives than z3 (none after an unbounded or approached one: the lexicographic
order ends there) too. Prints one line per fault and the counts.
"""
import argparse
import os
import random
import re
import subprocess
import sys
import tempfile
from fractions import Fraction

import z3

HERE = os.path.dirname(os.path.abspath(__file__))
CHECKER = os.path.join(HERE, "..", "scripts", "check_certificate.py")
KINDS = ["lex", "ite", "strict", "unbounded", "idl", "rdl", "levels", "soft", "id", "quotient",
         "assuming", "box"]


def num(c, real):
    text = ("%d.0" % abs(c)) if real else "%d" % abs(c)
    return text if c >= 0 else "(- %s)" % text


class Script:
    """Commands, and for each check-sat the flat problem it asks: (declarations, assertions,
    objectives as (sense, term))."""

    def __init__(self, rng, kind, scale=1):
        self.rng, self.kind, self.lines, self.checks = rng, kind, [], []
        self.levels = [([], [], [])]  # declarations, assertions, objectives per level
        self.real = kind in ("strict", "rdl") or (kind not in ("idl",) and rng.random() < 0.4)
        self.mixed = not self.real and kind not in ("idl",) and rng.random() < 0.3
        n = rng.randint(2, 4 * scale)
        self.nums = ["x%d" % i for i in range(n)]
        self.sorts = {v: "Real" if self.real or (self.mixed and i == 0) else "Int"
                      for i, v in enumerate(self.nums)}
        self.bools = ["b%d" % i for i in range(rng.randint(1, 3))] if kind not in (
            "idl", "rdl") or rng.random() < 0.5 else []
        if kind in ("idl", "rdl"):
            self.command("(set-logic QF_%s)" % kind.upper())
        if kind == "box":
            self.command("(set-option :opt.priority box)")
        for v in self.nums:
            self.declare("(declare-const %s %s)" % (v, self.sorts[v]))
        for b in self.bools:
            self.declare("(declare-const %s Bool)" % b)

    def command(self, text):
        self.lines.append(text)

    def declare(self, text):
        self.lines.append(text)
        self.levels[-1][0].append(text)

    def assert_(self, f):
        self.lines.append("(assert %s)" % f)
        self.levels[-1][1].append(f)

    def objective(self, sense, term, suffix=""):
        self.lines.append("(%s %s%s)" % (sense, term, suffix))
        self.levels[-1][2].append((sense[:3], term, None))

    def soft(self, f, weight, group):
        text = "(assert-soft %s" % f
        if weight is not None:
            text += " :weight %s" % weight
        if group is not None:
            text += " :id %s" % group
        self.lines.append(text + ")")
        ite = "(ite %s 0 %s)" % (f, weight if weight is not None else "1")
        objs = self.levels[-1][2]
        for k, (sense, term, g) in enumerate(objs):
            if g == (group or ""):
                objs[k] = (sense, "(+ %s %s)" % (term, ite), g)
                return
        objs.append(("min", ite, group or ""))

    def push(self):
        self.lines.append("(push 1)")
        self.levels.append(([], [], []))

    def pop(self):
        self.lines.append("(pop 1)")
        self.levels.pop()

    def check(self, assumed=()):
        command = "(check-sat-assuming (%s))" % " ".join(assumed) if assumed else "(check-sat)"
        self.lines += [command, "(get-objectives)", "(get-model)"]
        flat = [sum((lv[i] for lv in self.levels), []) for i in range(3)]
        flat[1] = flat[1] + list(assumed)
        self.checks.append(flat)

    def text(self):
        return "\n".join(self.lines) + "\n"

    # ---- random pieces
    def linear(self, nvars=None, coeff=3, among=None):
        rng, among = self.rng, among or self.nums
        vs = rng.sample(among, min(len(among), nvars or rng.randint(1, len(among))))
        parts = []
        for v in vs:
            a = rng.choice([c for c in range(-coeff, coeff + 1) if c != 0])
            parts.append(v if a == 1 else "(* %s %s)" % (num(a, False), v))
        return parts[0] if len(parts) == 1 else "(+ %s)" % " ".join(parts)

    def atom(self):
        rng = self.rng
        if self.kind in ("idl", "rdl"):
            x, y = rng.sample(self.nums, 2)
            rel = rng.choice(["<=", "<", ">=", ">"] if self.kind == "rdl" else ["<=", ">=", "<"])
            return "(%s (- %s %s) %s)" % (rel, x, y, num(rng.randint(-6, 6), self.real))
        rels = ["<=", ">=", "<", ">", "="] if self.real or self.mixed else ["<=", ">=", "="]
        if self.kind == "strict":
            rels = ["<", ">", "<", "<=", ">="]
        real = self.real or self.mixed
        return "(%s %s %s)" % (rng.choice(rels), self.linear(), num(rng.randint(-6, 6), real))

    def formula(self, depth=2):
        rng = self.rng
        r = rng.random()
        if depth == 0 or r < 0.35:
            if self.bools and rng.random() < 0.3:
                b = rng.choice(self.bools)
                return b if rng.random() < 0.5 else "(not %s)" % b
            return self.atom()
        op = rng.choice(["or", "or", "and", "=>", "not", "ite"])
        if op == "not":
            return "(not %s)" % self.formula(depth - 1)
        if op == "ite":
            return "(ite %s %s %s)" % tuple(self.formula(depth - 1) for _ in range(3))
        k = 2 if op == "=>" else rng.randint(2, 3)
        return "(%s %s)" % (op, " ".join(self.formula(depth - 1) for _ in range(k)))

    def box(self, names):
        for v in names:
            b = self.rng.randint(3, 8)
            self.assert_("(and (<= %s %s) (<= %s %s))" % (num(-b, self.real), v, v,
                                                           num(b, self.real)))

    def term(self):
        rng = self.rng
        if self.kind in ("idl", "rdl"):
            x, y = rng.sample(self.nums, 2)
            return rng.choice([x, "(- %s %s)" % (x, y)])
        t = self.linear(coeff=4)
        if self.kind == "quotient":
            ints = [v for v in self.nums if self.sorts[v] == "Int"]
            op = rng.choice(["div", "mod", "abs", "to_int"] if ints else ["abs", "to_int"])
            v = rng.choice(self.nums)
            q = {"div": "(div %s %s)", "mod": "(mod %s %s)"}.get(op, "")
            q = q % (self.linear(among=ints), rng.choice(["2", "3", "(- 3)"])) if q else \
                "(abs %s)" % self.linear() if op == "abs" else \
                "(to_int (/ %s 2.0))" % v if self.sorts[v] == "Real" else "(abs %s)" % v
            t = "(%s %s %s)" % (rng.choice(["+", "-"]), t, q)
        if self.kind == "ite" or rng.random() < 0.2:
            parts = [t]
            for _ in range(rng.randint(1, 3)):
                c = self.formula(1)
                a, b = rng.randint(-5, 5), rng.randint(-5, 5)
                then = rng.choice([num(a, False), self.linear(1)])
                parts.append("(ite %s %s %s)" % (c, then, num(b, False)))
            op = rng.choice(["+", "-"])
            t = "(%s %s)" % (op, " ".join(parts))
        return t


def generate(rng, kind, scale=1):
    s = Script(rng, kind, scale)
    boxed = s.nums if kind != "unbounded" else rng.sample(s.nums, rng.randint(0, len(s.nums) - 1))
    if kind in ("idl", "rdl"):  # a box as differences from the first variable
        for v in s.nums[1:]:
            s.assert_("(and (<= (- %s %s) %s) (>= (- %s %s) %s))" % (
                v, s.nums[0], num(rng.randint(3, 9), s.real), v, s.nums[0],
                num(-rng.randint(3, 9), s.real)))
    else:
        s.box(boxed)
    for _ in range(rng.randint(1, 4 * scale)):
        s.assert_(s.formula())
    sense = lambda: rng.choice(["minimize", "maximize"])
    if kind == "soft":
        for _ in range(rng.randint(1, 5)):
            w = rng.choice([None, "1", "2", "3", "5", "0.5", "2.5"])
            s.soft(s.formula(1), w, rng.choice([None, None, "a", "b"]))
            if rng.random() < 0.3:
                s.objective(sense(), s.term())
    else:
        for _ in range(rng.randint(1, 3 if kind != "idl" else 2)):
            s.objective(sense(), s.term(), " :id o%d" % rng.randint(0, 9) if kind == "id" else "")
    if kind == "levels":
        s.check()
        s.push()
        s.assert_(s.formula())
        s.objective(sense(), s.term())
        s.check()
        s.check()
        s.pop()
        s.check()
    elif kind == "assuming" and s.bools:
        for _ in range(rng.randint(1, 3)):
            s.check([b if rng.random() < 0.5 else "(not %s)" % b
                      for b in rng.sample(s.bools, rng.randint(1, len(s.bools)))])
    else:
        s.check()
        if rng.random() < 0.3:
            s.check()
    return s


# ---- outputs
def sexprs(text):
    tokens = re.findall(r'\(|\)|"[^"]*"|[^\s()]+', text)
    stack, out = [[]], None
    for t in tokens:
        if t == "(":
            stack.append([])
        elif t == ")":
            if len(stack) == 1:
                return None
            e = stack.pop()
            stack[-1].append(e)
        else:
            stack[-1].append(t)
    return stack[0] if len(stack) == 1 else None


def number(e):
    if isinstance(e, str):
        return Fraction(e)
    if e[0] == "-" and len(e) == 2:
        return -number(e[1])
    if e[0] == "/":
        return number(e[1]) / number(e[2])
    raise ValueError(e)


def objective_value(e):
    """('oo', ±1) | ('eps', v, ±1) | ('val', v)."""
    if e == "oo":
        return ("oo", 1)
    if e in (["*", ["-", "1"], "oo"], ["-", "oo"]):
        return ("oo", -1)
    if isinstance(e, list) and e[0] == "+" and len(e) == 3:
        if e[2] == "epsilon":
            return ("eps", number(e[1]), 1)
        if isinstance(e[2], list) and e[2][0] == "*" and e[2][2] == "epsilon":
            return ("eps", number(e[1]), -1)
    return ("val", number(e))


def answers(out):
    """Per check-sat: (status, [objective values] or an error text, model dict or None)."""
    items = sexprs(out) or []
    result, i = [], 0
    while i < len(items):
        it = items[i]
        if it in ("sat", "unsat", "unknown"):
            result.append([it, None, None])
        elif isinstance(it, list) and it[:1] == ["objectives"] and result:
            try:
                result[-1][1] = [objective_value(e[-1]) for e in it[1:]]
            except (ValueError, IndexError, TypeError):
                result[-1][1] = "unparsed %s" % it
        elif isinstance(it, list) and it[:1] == ["error"] and result and result[-1][1] is None:
            result[-1][1] = "error %s" % it[1]
        elif isinstance(it, list) and result and (not it or it[0] == "define-fun" or (
                isinstance(it[0], list) and it[0][:1] == ["define-fun"])):
            model = {}
            for d in (it if it and isinstance(it[0], list) else []):
                v = d[4]
                model[d[1]] = v if v in ("true", "false") else number(v)
            result[-1][2] = model
        i += 1
    return result


# ---- confirmation by z3's decision procedure
def lit(v):
    return "(/ %d.0 %d.0)" % (v.numerator, v.denominator) if v >= 0 else \
        "(- (/ %d.0 %d.0))" % (-v.numerator, v.denominator)


def decide(decls, formulas):
    text = "\n".join(decls) + "\n" + "\n".join("(assert %s)" % f for f in formulas)
    solver = z3.Solver()
    solver.set("timeout", 20000)
    solver.add(z3.parse_smt2_string(text))
    return str(solver.check())


def confirm(flat, values, model, box):
    """Empty when vorn's values and model hold on the flat problem, else what fails."""
    decls, asserts, objectives = flat
    fixed = list(asserts)
    for k, v in enumerate(values):
        if box:  # each objective on its own; the model attains the first
            bad = confirm((decls, asserts, [objectives[k]]), [v], None, False)
            if bad:
                return bad.replace("objective 0", "objective %d" % k)
            if k == 0 and v[0] == "val":
                fixed.append("(= %s %s)" % (objectives[0][1], lit(v[1])))
            continue
        if k >= len(objectives):
            return "more values than objectives"
        sense, t, _ = objectives[k]
        better, reach = (">", ">=") if sense == "max" else ("<", "<=")
        if v[0] == "oo":
            if (v[1] > 0) != (sense == "max"):
                return "objective %d unbounded the wrong way" % k
            big = "1000000000.0" if sense == "max" else "(- 1000000000.0)"
            if decide(decls, fixed + ["(%s %s %s)" % (better, t, big)]) != "sat":
                return "objective %d: not unbounded" % k
            return ""
        if v[0] == "eps":
            if decide(decls, fixed + ["(%s %s %s)" % (reach, t, lit(v[1]))]) != "unsat":
                return "objective %d: %s reached" % (k, v[1])
            near = v[1] + Fraction(v[2]) / 10 ** 6
            if decide(decls, fixed + ["(%s %s %s)" % (better, t, lit(near))]) != "sat":
                return "objective %d: %s not approached" % (k, v[1])
            return ""
        if decide(decls, fixed + ["(%s %s %s)" % (better, t, lit(v[1]))]) != "unsat":
            return "objective %d: %s beaten" % (k, v[1])
        fixed.append("(= %s %s)" % (t, lit(v[1])))
        if decide(decls, fixed) != "sat":
            return "objective %d: %s not reached" % (k, v[1])
    if model is not None:
        pins = ["(= %s %s)" % (n, v if isinstance(v, str) else lit(v)) for n, v in model.items()]
        if decide(decls, fixed + pins) != "sat":
            return "the model misses the assertions or the optima"
    return ""


def same(a, b):
    return a == b or (a[0] == "val" and b[0] == "val" and a[1] == b[1])


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--vorn", default=os.path.join(HERE, "..", "build", "release", "tools", "vorn"))
    ap.add_argument("--count", type=int, default=100)
    ap.add_argument("--scale", type=int, default=1, help="up to 4·S variables and assertions")
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--timeout", type=float, default=60)
    ap.add_argument("--kinds", default=",".join(KINDS))
    ap.add_argument("--keep", default=None, help="directory for the scripts of the faults")
    ap.add_argument("--verbose", action="store_true", help="print z3's differing answers too")
    args = ap.parse_args()
    kinds = args.kinds.split(",")
    tmp = tempfile.mkdtemp()
    counts = {"scripts": 0, "checks": 0, "agree": 0, "z3 differs": 0, "z3 fewer": 0,
              "vorn fewer": 0, "faults": 0, "certificates": 0}
    for n in range(args.count):
        seed = args.seed * 100000 + n
        rng = random.Random(seed)
        kind = kinds[n % len(kinds)]
        s = generate(rng, kind, args.scale)
        path = os.path.join(tmp, "h%d.smt2" % seed)
        with open(path, "w") as f:
            f.write(s.text())
        counts["scripts"] += 1
        faults = []
        try:
            vorn = subprocess.run([args.vorn, "check", "--verify", path], capture_output=True,
                                  text=True, timeout=args.timeout).stdout
        except subprocess.TimeoutExpired:
            vorn = ""
            faults.append("vorn timed out")
        z3path = path + ".z3.smt2"  # z3 4.8 reads no :id after minimize and maximize
        with open(z3path, "w") as f:
            f.write(re.sub(r" :id o\d\)", ")", s.text()))
        try:
            z3out = subprocess.run(["z3", "-T:%d" % int(args.timeout), z3path], capture_output=True,
                                   text=True, timeout=args.timeout + 5).stdout
        except subprocess.TimeoutExpired:
            z3out = ""
        try:
            cert = subprocess.run([args.vorn, "check", "--certificate", path],
                                  capture_output=True, text=True, timeout=args.timeout).stdout
        except subprocess.TimeoutExpired:
            cert = ""
        checked = subprocess.run(["/usr/bin/python3", CHECKER, "--input", path],
                                 input=cert, capture_output=True, text=True)
        if not cert:
            pass  # the time-out is the fault
        elif checked.returncode != 0:
            faults.append("certificate: " + (checked.stdout + checked.stderr)[-300:])
        else:
            counts["certificates"] += 1
        mine, theirs = answers(vorn), answers(z3out)
        if len(mine) != len(s.checks) and not faults:
            faults.append("%d answers for %d checks" % (len(mine), len(s.checks)))
        for c, flat in enumerate(s.checks[:len(mine)]):
            counts["checks"] += 1
            status, values, model = mine[c]
            truth = decide(flat[0], flat[1])
            if status != truth:
                faults.append("check %d: %s, z3 decides %s" % (c, status, truth))
                continue
            if status != "sat":
                continue
            if not isinstance(values, list):
                faults.append("check %d: objectives %s" % (c, values))
                continue
            bad = confirm(flat, values, model, kind == "box" and len(flat[2]) > 1)
            if bad:
                faults.append("check %d: %s" % (c, bad))
                continue
            other = theirs[c][1] if c < len(theirs) and isinstance(theirs[c][1], list) else None
            if other is None:
                counts["z3 differs"] += 1
                continue
            k = min(len(values), len(other))
            if all(same(values[i], other[i]) for i in range(k)):
                counts["agree"] += 1
                if len(values) < len(other):
                    counts["vorn fewer"] += 1
                elif len(values) > len(other):
                    counts["z3 fewer"] += 1
            else:
                counts["z3 differs"] += 1
                if args.verbose:
                    print("seed %d (%s) check %d: vorn %s, z3 %s" % (seed, kind, c, values, other))
        if faults:
            counts["faults"] += 1
            print("seed %d (%s): %s" % (seed, kind, "; ".join(faults)))
            if args.keep:
                os.makedirs(args.keep, exist_ok=True)
                with open(os.path.join(args.keep, "h%d.smt2" % seed), "w") as f:
                    f.write(s.text())
        sys.stdout.flush()
    print(" ".join("%s %d" % kv for kv in counts.items()))
    return 1 if counts["faults"] else 0


if __name__ == "__main__":
    sys.exit(main())
