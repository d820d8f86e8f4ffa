"""Seeded SMT-LIB scripts over linear Int/Real arithmetic, kept as command lists so that they can
be shrunk, rendered, simulated and evaluated under a model with exact fractions.

Terms: ('v', name) | ('c', Fraction) | ('+', [t]) | ('-', [t]) | ('*', [t]) with one non-constant
factor | ('ite', f, t, t) | ('div', [t, c]) | ('mod', [t, c]) | ('abs', [t]) | ('to_int', [t]). Formulas: ('atom', rel, [t]) | ('not', f) | ('and', [f]) |
('or', [f]) | ('=>', f, f) | ('xor', [f]) | ('iff', [f]) (= between formulas) | ('fite', f, f, f)
| ('b', name) (a Bool constant or a let-bound formula) | ('let', [(name, t)], f) |
('letf', [(name, f)], f) | ('named', name, f) (the name of an active named assertion f, as a
check-sat-assuming literal).
"""

import re
from fractions import Fraction

SIMPLE = re.compile(r"^[A-Za-z~!@$%^&*_+=<>.?/-][A-Za-z0-9~!@$%^&*_+=<>.?/-]*$")
RESERVED = {"let", "and", "or", "not", "ite", "true", "false", "distinct", "par", "_", "!", "as",
            "exists", "forall", "match"}


def sym(name):
    return name if SIMPLE.match(name) and name not in RESERVED else "|%s|" % name


# -- numbers ------------------------------------------------------------------------------

def render_num(rng, q, as_int):
    """One of the spellings of q that z3, cvc5 and vorn all read."""
    neg, a = q < 0, abs(q)
    if as_int:
        assert a.denominator == 1
        body = str(a.numerator)
        return "(- %s)" % body if neg else body
    if a.denominator == 1:
        body = rng.choice([str(a.numerator), "%d.0" % a.numerator])
    else:
        den = a.denominator
        decimal = None
        for k in range(1, 7):
            if (10 ** k) % den == 0:
                decimal = a * 10 ** k
                whole, frac = divmod(decimal.numerator, 10 ** k)
                decimal = "%d.%s" % (whole, str(frac).rjust(k, "0"))
                break
        if decimal and rng.random() < 0.6:
            body = decimal
        else:
            if neg and rng.random() < 0.5:
                return "(/ (- %d) %d)" % (a.numerator, den)
            body = "(/ %d %d)" % (a.numerator, den)
    return "(- %s)" % body if neg else body


def gen_const(rng, as_int):
    r = rng.random()
    if r < 0.75:
        q = Fraction(rng.randint(-20, 20))
    elif r < 0.85:
        q = Fraction(rng.choice([1, -1]) * (10 ** rng.randint(15, 40) + rng.randint(-5, 5)))
    else:
        q = Fraction(rng.randint(-40, 40), rng.choice([2, 3, 4, 5, 7, 8, 10, 1000]))
    if as_int:
        q = Fraction(q.numerator // q.denominator)
    return q


def gen_coeff(rng, as_int):
    if as_int or rng.random() < 0.7:
        return Fraction(rng.choice([1, 1, -1, 2, -2, 3, -3, 4, 5, -7, 10]))
    return Fraction(rng.choice([1, -1, 2, -3, 5]), rng.choice([2, 3, 4, 7]))


# -- rendering ------------------------------------------------------------------------------

def render_term(rng, t, as_int):
    kind = t[0]
    if kind == "v":
        return sym(t[1])
    if kind == "c":
        return render_num(rng, t[1], as_int)
    if kind == "ite":
        return "(ite %s %s %s)" % (render_f(rng, t[1]), render_term(rng, t[2], as_int),
                                   render_term(rng, t[3], as_int))
    if kind in ("div", "mod"):  # over Int terms only
        as_int = True
    return "(%s %s)" % (kind, " ".join(render_term(rng, a, as_int) for a in t[1]))


def render_f(rng, f):
    kind = f[0]
    if kind == "atom":
        as_int = f[3] if len(f) > 3 else False
        return "(%s %s)" % (f[1], " ".join(render_term(rng, t, as_int) for t in f[2]))
    if kind == "not":
        return "(not %s)" % render_f(rng, f[1])
    if kind in ("and", "or", "xor", "iff"):
        return "(%s %s)" % ("=" if kind == "iff" else kind, " ".join(render_f(rng, g) for g in f[1]))
    if kind == "fite":
        return "(ite %s)" % " ".join(render_f(rng, g) for g in f[1:])
    if kind == "letf":
        binds = " ".join("(%s %s)" % (sym(n), render_f(rng, g)) for n, g in f[1])
        return "(let (%s) %s)" % (binds, render_f(rng, f[2]))
    if kind == "=>":
        return "(=> %s %s)" % (render_f(rng, f[1]), render_f(rng, f[2]))
    if kind in ("b", "named"):
        return sym(f[1])
    if kind == "let":
        as_int = f[2][0] == "atom" and len(f[2]) > 3 and f[2][3]
        binds = " ".join("(%s %s)" % (sym(n), render_term(rng, t, as_int)) for n, t in f[1])
        return "(let (%s) %s)" % (binds, render_f(rng, f[2]))
    if kind == "const":
        return "true" if f[1] else "false"
    raise ValueError(kind)


def render_cmd(rng, c, logic):
    k = c["k"]
    if k == "raw":
        return c["text"]
    if k == "decl":
        if rng.random() < 0.5:
            return "(declare-const %s %s)" % (sym(c["name"]), c["sort"])
        return "(declare-fun %s () %s)" % (sym(c["name"]), c["sort"])
    if k == "assert":
        body = render_f(rng, c["f"])
        if c.get("name"):
            body = "(! %s :named %s)" % (body, sym(c["name"]))
        return "(assert %s)" % body
    if k in ("push", "pop"):
        return "(%s %d)" % (k, c["n"]) if c["n"] != 1 or rng.random() < 0.5 else "(%s)" % k
    if k == "check":
        return "(check-sat)"
    if k == "assuming":
        return "(check-sat-assuming (%s))" % " ".join(render_f(rng, f) for f in c["lits"])
    if k == "get-model":
        return "(get-model)"
    if k == "get-value":
        return "(get-value (%s))" % " ".join(render_term(rng, t, logic == "QF_LIA")
                                             for t in c["terms"])
    if k == "get-core":
        return "(get-unsat-core)"
    raise ValueError(k)


def render(script, seed):
    """The text of a script; the spelling choices come from their own seeded generator so that a
    shrunk script keeps the spellings of the commands it keeps."""
    import random
    lines = []
    for i, c in enumerate(script["cmds"]):
        rng = random.Random("%s/%d/%s" % (seed, i, c.get("id", "")))
        lines.append(render_cmd(rng, c, script.get("arith", script["logic"])))
    return "\n".join(lines) + "\n"


# -- evaluation ----------------------------------------------------------------------------

def eval_term(t, env):
    kind = t[0]
    if kind == "v":
        return env[t[1]]
    if kind == "c":
        return t[1]
    if kind == "+":
        return sum((eval_term(a, env) for a in t[1]), Fraction(0))
    if kind == "-":
        vals = [eval_term(a, env) for a in t[1]]
        return -vals[0] if len(vals) == 1 else vals[0] - sum(vals[1:], Fraction(0))
    if kind == "*":
        r = Fraction(1)
        for a in t[1]:
            r *= eval_term(a, env)
        return r
    if kind == "ite":
        return eval_term(t[2], env) if eval_f(t[1], env) else eval_term(t[3], env)
    vals = [eval_term(a, env) for a in t[1]]
    if kind == "abs":
        return abs(vals[0])
    if kind == "to_int":
        return Fraction(vals[0].numerator // vals[0].denominator)
    d = vals[1]  # div and mod: the Euclidean quotient, 0 <= t - d·q < |d|
    q = Fraction((vals[0] / d).numerator // (vals[0] / d).denominator) if d > 0 else \
        -Fraction((-vals[0] / d).numerator // (-vals[0] / d).denominator)
    return q if kind == "div" else vals[0] - d * q


REL = {"<=": lambda a, b: a <= b, "<": lambda a, b: a < b, ">=": lambda a, b: a >= b,
       ">": lambda a, b: a > b, "=": lambda a, b: a == b}


def eval_f(f, env):
    kind = f[0]
    if kind == "atom":
        vals = [eval_term(t, env) for t in f[2]]
        if f[1] == "distinct":
            return len(set(vals)) == len(vals)
        return all(REL[f[1]](vals[i], vals[i + 1]) for i in range(len(vals) - 1))
    if kind == "not":
        return not eval_f(f[1], env)
    if kind == "and":
        return all(eval_f(g, env) for g in f[1])
    if kind == "or":
        return any(eval_f(g, env) for g in f[1])
    if kind == "xor":
        return sum(eval_f(g, env) for g in f[1]) % 2 == 1
    if kind == "iff":
        vals = [eval_f(g, env) for g in f[1]]
        return all(v == vals[0] for v in vals)
    if kind == "fite":
        return eval_f(f[2], env) if eval_f(f[1], env) else eval_f(f[3], env)
    if kind == "letf":
        inner = dict(env)
        for n, g in f[1]:
            inner[n] = eval_f(g, env)
        return eval_f(f[2], inner)
    if kind == "=>":
        return (not eval_f(f[1], env)) or eval_f(f[2], env)
    if kind == "b":
        return env[f[1]]
    if kind == "let":
        inner = dict(env)
        for n, t in f[1]:
            inner[n] = eval_term(t, env)
        return eval_f(f[2], inner)
    if kind == "const":
        return f[1]
    if kind == "named":
        return eval_f(f[2], env)
    raise ValueError(kind)


def free_vars(x, bound=frozenset()):
    out = set()
    kind = x[0]
    if kind in ("v", "b"):
        if x[1] not in bound:
            out.add(x[1])
    elif kind in ("+", "-", "*", "and", "or", "xor", "iff", "div", "mod", "abs", "to_int"):
        for a in x[1]:
            out |= free_vars(a, bound)
    elif kind == "atom":
        for a in x[2]:
            out |= free_vars(a, bound)
    elif kind in ("not", "named"):
        out |= free_vars(x[-1], bound)
    elif kind == "=>":
        out |= free_vars(x[1], bound) | free_vars(x[2], bound)
    elif kind in ("ite", "fite"):
        out |= free_vars(x[1], bound) | free_vars(x[2], bound) | free_vars(x[3], bound)
    elif kind in ("let", "letf"):
        for _, t in x[1]:
            out |= free_vars(t, bound)
        out |= free_vars(x[2], bound | {n for n, _ in x[1]})
    return out


def named_refs(lit):
    """The names of named assertions a check-sat-assuming literal refers to."""
    inner = lit[1] if lit[0] == "not" else lit
    return {inner[1]} if inner[0] == "named" else set()


def unnamed(lit):
    """The literal with the named assertion it refers to written out."""
    if lit[0] == "not" and lit[1][0] == "named":
        return ("not", lit[1][2])
    return lit[2] if lit[0] == "named" else lit


def simulate(script):
    """Replays the scope stack: for every command, the state it sees (declared variables with
    their sorts, active assertions as (formula, name)), and whether the solvers should accept it
    (a command they reject has no effect)."""
    frames = [{"decls": {}, "asserts": []}]
    states = []
    for c in script["cmds"]:
        decls = {}
        for fr in frames:
            decls.update(fr["decls"])
        asserts = [a for fr in frames for a in fr["asserts"]]
        ok = True
        k = c["k"]
        if k == "decl":
            ok = c["name"] not in decls
            if ok:
                frames[-1]["decls"][c["name"]] = c["sort"]
        elif k == "assert":
            ok = free_vars(c["f"]) <= set(decls)
            if ok:
                frames[-1]["asserts"].append((c["f"], c.get("name")))
        elif k == "push":
            frames.extend({"decls": {}, "asserts": []} for _ in range(c["n"]))
        elif k == "pop":
            ok = c["n"] < len(frames)
            if ok:
                del frames[len(frames) - c["n"]:]
        elif k == "assuming":
            active = {n for _, n in asserts if n}
            ok = all(free_vars(f) <= set(decls) and named_refs(f) <= active for f in c["lits"])
        elif k == "get-value":
            ok = all(free_vars(t) <= set(decls) for t in c["terms"])
        states.append({"decls": decls, "asserts": asserts, "ok": ok})
    return states


# -- generation ----------------------------------------------------------------------------

class Gen:
    def __init__(self, rng, wide=False):
        self.rng, self.wide, self.ites = rng, wide, []
        r = rng.random()
        self.logic = "QF_LRA" if r < 0.4 else "QF_LIA" if r < 0.75 else "QF_LIRA"
        self.boolean = rng.random() < 0.5  # Boolean structure beside conjunctions
        self.cores = rng.random() < 0.6
        self.counter = 0
        self.frames = [[]]  # names declared per scope
        self.named = [[]]  # (name, formula) of the named assertions per scope
        self.sorts = {}
        self.popped = []  # names whose declarations a pop removed, for redeclaring
        self.cmds = []

    def fresh(self, prefix):
        self.counter += 1
        return "%s%d" % (prefix, self.counter)

    def sort(self):
        if self.logic == "QF_LRA":
            return "Real"
        if self.logic == "QF_LIA":
            return "Int"
        return self.rng.choice(["Int", "Real"])

    def declare(self):
        rng = self.rng
        if self.popped and rng.random() < 0.6:
            name = self.popped.pop(rng.randrange(len(self.popped)))
        else:
            name = self.fresh(rng.choice(["x", "y", "z", "v", "x.", "s ", "q_"]))
        sort = "Bool" if self.boolean and rng.random() < 0.2 else self.sort()
        self.frames[-1].append(name)
        self.sorts[name] = sort
        self.cmds.append({"k": "decl", "name": name, "sort": sort})

    def visible(self, sorts=("Int", "Real")):
        return [n for fr in self.frames for n in fr if self.sorts[n] in sorts]

    def term(self, int_only, nested=True):
        rng = self.rng
        pool = self.visible(("Int",) if int_only else ("Int", "Real"))
        if not pool:
            return ("c", gen_const(rng, int_only or self.logic == "QF_LIA"))
        monos = []
        for _ in range(rng.choice([1, 1, 2, 2, 3, 4])):
            v = ("v", rng.choice(pool))
            c = gen_coeff(rng, int_only or self.logic == "QF_LIA")
            if c == 1:
                monos.append(v)
            elif c == -1 and rng.random() < 0.5:
                monos.append(("-", [v]))
            else:
                monos.append(("*", [("c", c), v] if rng.random() < 0.8 else [v, ("c", c)]))
        if rng.random() < 0.2:
            monos.append(("c", gen_const(rng, int_only or self.logic == "QF_LIA")))
        if self.boolean and rng.random() < 0.1 and monos[0][0] == "v":
            monos.append(("ite", self.atom(), monos[0], ("-", [monos[0]])))  # same sort
            self.ites.append(monos[-1])
        if self.wide and nested and rng.random() < 0.3:
            monos.append(self.lifted(int_only, monos[0]))
        if len(monos) == 1:
            return monos[0]
        if len(monos) == 2 and rng.random() < 0.25:
            return ("-", monos)
        return ("+", monos)

    def lifted(self, int_only, mono):
        """What the tool lifts or folds: an ite written again, div, mod, abs, to_int, v - v."""
        rng, r = self.rng, self.rng.random()
        ints = self.visible(("Int",))
        if self.ites and r < 0.2:
            return rng.choice(self.ites)
        if mono[0] == "v" and r < 0.35:
            return ("-", [mono, mono])
        if r < 0.7 and ints:
            d = ("c", Fraction(rng.choice([2, 3, -3, 5, 1])))
            return (rng.choice(["div", "mod"]), [self.term(True, False), d])
        if r < 0.85 or int_only:
            return ("abs", [self.term(int_only, False)])
        return ("to_int", [self.term(False, False)])

    def atom(self):
        rng = self.rng
        int_only = self.logic == "QF_LIA"
        rel = rng.choice(["<=", "<", ">=", ">", "=", "<=", ">=", "distinct"])
        lhs = self.term(int_only)
        if rng.random() < 0.7:
            rhs = ("c", gen_const(rng, int_only))
        else:
            rhs = self.term(int_only)
        terms = [lhs, rhs]
        if self.wide and rng.random() < 0.05:
            terms = [("c", gen_const(rng, int_only)), ("c", gen_const(rng, int_only))]
        if rel == "distinct" and rng.random() < 0.3:
            terms.append(self.term(int_only))
        elif rel != "distinct" and rng.random() < 0.05:
            terms.append(("c", gen_const(rng, int_only)))  # chained comparison
        return ("atom", rel, terms, int_only)

    def boolean_formula(self, depth):
        rng = self.rng
        bools = self.visible(("Bool",))
        choice = rng.random()
        sub = (lambda: self.boolean_formula(depth + 1)) if depth < 2 and rng.random() < 0.4 \
            else self.atom
        if bools and choice < 0.2:
            return ("b", rng.choice(bools))
        if self.wide and choice < 0.3:  # repeated and complementary operands fold
            f = sub()
            return rng.choice([("and", [f, f]), ("or", [f, ("not", f)]), ("xor", [f, f, sub()]),
                               ("iff", [f, f])])
        if choice < 0.4:
            return ("or", [sub(), sub()])
        if choice < 0.5:
            return ("=>", sub(), sub())
        if choice < 0.6:
            return ("not", ("and", [sub(), sub()]))
        if choice < 0.7:
            return ("xor", [sub() for _ in range(rng.randint(2, 3))])
        if choice < 0.8:
            return ("iff", [sub() for _ in range(rng.randint(2, 3))])
        if choice < 0.9:
            return ("fite", sub(), sub(), sub())
        name = self.fresh("f")  # a formula shared through a let
        return ("letf", [(name, sub())], ("or", [("b", name), ("xor", [("b", name), sub()])]))

    def formula(self, depth=0):
        rng = self.rng
        r = rng.random()
        if self.boolean and r < 0.35:
            return self.boolean_formula(0)
        if depth < 2 and r < 0.15:
            return ("and", [self.formula(depth + 1) for _ in range(rng.randint(1, 3))])
        if r < 0.28:
            a = self.atom()
            while not self.boolean and len(a[2]) > 2:  # negated chains are disjunctions
                a = self.atom()
            return ("not", a) if r < 0.25 else ("not", ("not", a))
        if r < 0.32:
            name = self.fresh("l")
            t = self.term(self.logic == "QF_LIA")
            c = ("c", gen_const(rng, self.logic == "QF_LIA"))
            rel = rng.choice(["<=", ">=", "<", ">"])
            return ("let", [(name, t)], ("atom", rel, [("v", name), c], self.logic == "QF_LIA"))
        if r < 0.34:
            return ("or", [("const", False), self.atom()])  # one disjunct constant false
        return self.atom()

    def after_check(self):
        rng = self.rng
        if rng.random() < 0.75:
            self.cmds.append({"k": "get-model"})
            if rng.random() < 0.35:
                terms = [self.term(False) for _ in range(rng.randint(1, 3))]
                self.cmds.append({"k": "get-value", "terms": terms})
        if self.cores and rng.random() < 0.6:
            self.cmds.append({"k": "get-core"})

    def script(self):
        rng = self.rng
        self.cmds.append({"k": "raw", "text": "(set-option :print-success true)"})
        if self.cores:
            self.cmds.append({"k": "raw", "text": "(set-option :produce-unsat-cores true)"})
        if rng.random() < 0.3:
            self.cmds.append({"k": "raw", "text": "(set-option :produce-models true)"})
        logic = "ALL" if self.wide or (self.logic == "QF_LIRA" and rng.random() < 0.5) \
            else self.logic
        self.cmds.append({"k": "raw", "text": "(set-logic %s)" % logic})
        for _ in range(rng.randint(2, 6)):
            self.declare()
        for _ in range(rng.randint(4, 28)):
            r = rng.random()
            if r < 0.45:
                name = self.fresh("n") if self.cores and rng.random() < 0.7 else None
                f = self.formula()
                if name:
                    self.named[-1].append((name, f))
                self.cmds.append({"k": "assert", "f": f, "name": name})
            elif r < 0.55:
                n = rng.choice([1, 1, 1, 2])
                self.frames.extend([] for _ in range(n))
                self.named.extend([] for _ in range(n))
                self.cmds.append({"k": "push", "n": n})
            elif r < 0.65 and len(self.frames) > 1:
                n = rng.randint(1, min(2, len(self.frames) - 1))
                for _ in range(n):
                    self.popped.extend(self.frames.pop())
                    self.named.pop()
                self.cmds.append({"k": "pop", "n": n})
            elif r < 0.72:
                self.declare()
            elif r < 0.9:
                self.cmds.append({"k": "check"})
                self.after_check()
            else:
                lits = []
                for _ in range(rng.randint(1, 3)):
                    a = self.atom()
                    negate = rng.random() < 0.3 and (self.boolean or len(a[2]) == 2)
                    if self.boolean and rng.random() < 0.3:
                        a = self.boolean_formula(1)
                    named = [nf for fr in self.named for nf in fr]
                    if named and rng.random() < 0.25:  # an assertion's name, maybe negated
                        a, negate = ("named",) + rng.choice(named), rng.random() < 0.5
                    lits.append(("not", a) if negate else a)
                self.cmds.append({"k": "assuming", "lits": lits})
                self.after_check()
        self.cmds.append({"k": "check"})
        self.after_check()
        for i, c in enumerate(self.cmds):
            c["id"] = i
        return {"logic": logic, "arith": self.logic, "boolean": self.boolean, "cmds": self.cmds}


def generate(rng, wide=False):
    """A script; `wide` adds what the tool lifts or folds while reading (div, mod, abs, to_int,
    ites written twice, v - v, constant atoms, repeated operands)."""
    return Gen(rng, wide).script()


def core_script(script, state, core, assumptions, seed):
    """A script asserting only what an unsat core needs: the unnamed active assertions, the named
    ones in the core, and the assumptions of a check-sat-assuming."""
    cmds = [{"k": "raw", "text": "(set-logic %s)" % script["logic"]}]
    for name, sort in state["decls"].items():
        cmds.append({"k": "decl", "name": name, "sort": sort})
    for f, name in state["asserts"]:
        if name is None or name in core:
            cmds.append({"k": "assert", "f": f, "name": None})
    for f in assumptions:
        cmds.append({"k": "assert", "f": unnamed(f), "name": None})
    cmds.append({"k": "check"})
    return render({"logic": script["logic"], "arith": script.get("arith"), "cmds": cmds}, seed)
