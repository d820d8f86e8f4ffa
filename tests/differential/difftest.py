#!/usr/bin/env python3
"""Differential tester of `vorn check` against z3, cvc5 and glpsol, run as black boxes on the
same inputs: seeded SMT-LIB scripts, CPLEX LP and MPS files, and hostile text. Checks every answer
against the peers, every model and certificate of vorn independently, every unsat core by
re-solving it, and that hostile input never crashes the reader. Disagreements are shrunk and
written to --out; the last line is `difftest: N passed, M failed`.

    python3 tests/differential/difftest.py --vorn build/release/tools/vorn --seconds 60 \\
        --seed 1 --out /tmp/diff

Rerun one case with --case N (with the same --seed).
"""

import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time
from fractions import Fraction

sys.dont_write_bytecode = True  # keep the source tree free of __pycache__
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import gen_hostile  # noqa: E402
import gen_lp  # noqa: E402
import gen_smt  # noqa: E402
from run import (SexpError, answers, find_peer, parse_sexps, read_model, run,  # noqa: E402
                 strip_certificates, value_of)

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
CHECKER = os.path.join(ROOT, "scripts", "check_certificate.py")
GLPSOL_FORMAT_FLAG = {"lp": "--lp", "mps": "--freemps", "fixed": "--mps"}


class Finding:
    """One failed check. `key` says what failed, so shrinking can ask whether it still does."""

    def __init__(self, key, text):
        self.key = key
        self.text = text


class Tally:
    def __init__(self):
        self.scripts = self.check_sats = self.files = self.hostile = 0
        self.passed = self.unknowns = self.timeouts = self.peer_errors = 0
        self.skipped = 0  # comparisons left out because the peer reads the file differently
        self.unknown_notes = []
        self.peer_notes = []
        self.compared = {}  # peer -> answers compared with vorn's


class Ctx:
    def __init__(self, args, peers, tmp):
        self.vorn = args.vorn
        self.timeout = args.timeout
        self.peers = peers
        self.tmp = tmp
        self.tally = Tally()

    def write(self, name, data):
        path = os.path.join(self.tmp, name)
        with open(path, "wb") as f:
            f.write(data if isinstance(data, bytes) else data.encode())
        return path

    def run(self, argv):
        r = run(argv, self.timeout)
        if r.timed_out:
            self.tally.timeouts += 1
        return r


def crashed(r):
    return r.status is not None and (r.status >= 128 or r.status == 3)


def first_line(data):
    text = data.decode("utf-8", "replace").strip().splitlines()
    return text[0][:300] if text else ""


def responses_of(text):
    try:
        return parse_sexps(text)
    except SexpError:
        return None


def is_error(resp):
    return isinstance(resp, list) and resp and resp[0] == "error"


def check_certificates(ctx, out, found):
    if "(certificate" not in out:
        return
    p = subprocess.run([sys.executable, CHECKER], input=out.encode(), capture_output=True,
                       timeout=ctx.timeout * 3)
    if p.returncode == 0:
        ctx.tally.passed += 1
    else:
        found.append(Finding(("cert",), "certificate rejected by check_certificate.py: " +
                             first_line(p.stdout + p.stderr)))


# -- SMT-LIB scripts -----------------------------------------------------------------------

def peer_argv(ctx, name, path):
    if name == "z3":
        return [ctx.peers["z3"], path]
    return [ctx.peers["cvc5"], "--incremental", "--produce-models", path]


def eval_model(formulas, decls, model):
    """None when the model satisfies the formulas, else what is wrong."""
    env = {}
    for name, sort in decls.items():
        if name in model:
            msort, val = model[name]
            if msort != sort:
                return "%s has sort %s in the model, declared %s" % (name, msort, sort)
            if sort == "Int" and isinstance(val, Fraction) and val.denominator != 1:
                return "Int %s has the value %s" % (name, val)
            env[name] = val
    for f in formulas:
        try:
            if not gen_smt.eval_f(f, env):
                return "the model violates %s" % gen_smt.render_f(random.Random(0), f)
        except KeyError as e:
            return "the model has no value for %s" % e
    return None


def check_smt(ctx, script, seed, peers=("z3", "cvc5"), deep=True):
    """Runs one script through vorn and the peers; returns the findings."""
    found = []
    text = gen_smt.render(script, seed)
    path = ctx.write("case.smt2", text)
    cmds = script["cmds"]
    r = ctx.run([ctx.vorn, "check", "--verify", "--certificate", path])
    if r.timed_out:
        return found
    if crashed(r) or r.status != 0:
        kind = "crash" if crashed(r) else "exit"
        found.append(Finding((kind,), "vorn exit status %s: %s" % (r.status, first_line(r.err))))
        return found
    out = r.out.decode("utf-8", "replace")
    resp = responses_of(strip_certificates(out))
    if resp is None or len(resp) != len(cmds):
        found.append(Finding(("shape",), "vorn printed %s responses for %d commands" % (
            "unreadable" if resp is None else len(resp), len(cmds))))
        return found
    states = gen_smt.simulate(script)
    check_certificates(ctx, out, found)
    last = None  # (index of the last check, its answer)
    model = None
    vorn_answers = {}
    for i, (c, res) in enumerate(zip(cmds, resp)):
        st, k = states[i], c["k"]
        if k in ("check", "assuming"):
            model = None
            if deep:
                ctx.tally.check_sats += 1
            if res not in ("sat", "unsat", "unknown"):
                if st["ok"]:
                    found.append(Finding(("response", i), "vorn answered %r to command %d" % (
                        res, i + 1)))
                last = None
                continue
            vorn_answers[i] = res
            last = (i, res)
        elif k == "get-model" and last and last[1] == "sat" and st["ok"]:
            ci = last[0]
            try:
                model = read_model(res)
            except ValueError as e:
                found.append(Finding(("model", ci), "get-model after check %d: %s" % (ci + 1, e)))
                continue
            fs = [f for f, _ in states[ci]["asserts"]] + cmds[ci].get("lits", [])
            problem = eval_model(fs, states[ci]["decls"], model)
            if problem:
                found.append(Finding(("model", ci), "model of check-sat at command %d: %s" % (
                    ci + 1, problem)))
            else:
                ctx.tally.passed += 1
        elif k == "get-value" and model is not None and st["ok"]:
            env = {n: v for n, (_, v) in model.items()}
            try:
                pairs = [value_of(p[1]) for p in res]
                want = [gen_smt.eval_term(t, env) for t in c["terms"]]
            except (ValueError, KeyError, TypeError, IndexError) as e:
                found.append(Finding(("value", i), "get-value at command %d: %s %r" % (
                    i + 1, e, res)))
                continue
            if pairs != want:
                found.append(Finding(("value", i), "get-value at command %d printed %s, the "
                                     "model gives %s" % (i + 1, [str(x) for x in pairs],
                                                         [str(x) for x in want])))
            else:
                ctx.tally.passed += 1
        elif k == "get-core" and last and last[1] == "unsat" and st["ok"] and deep:
            if not isinstance(res, list) or is_error(res):
                found.append(Finding(("core", last[0]), "get-unsat-core answered %r" % (res,)))
                continue
            check_core(ctx, script, states[last[0]], cmds[last[0]], res, seed, found, last[0])
    # The peers: every check-sat where both answer definitely must agree.
    counted_unknown = set()
    for name in peers:
        if name not in ctx.peers:
            continue
        pr = ctx.run(peer_argv(ctx, name, path))
        if pr.timed_out:
            continue
        presp = responses_of(pr.out.decode("utf-8", "replace"))
        if presp is None or len(presp) != len(cmds):
            ctx.tally.peer_errors += 1
            ctx.tally.peer_notes.append("seed %s: %s printed %s responses for %d commands" % (
                seed, name, "unreadable" if presp is None else len(presp), len(cmds)))
            continue
        for i, ans in vorn_answers.items():
            pans = presp[i]
            if pans not in ("sat", "unsat"):
                continue
            if ans == "unknown":
                if deep and i not in counted_unknown:
                    counted_unknown.add(i)
                    ctx.tally.unknowns += 1
                    ctx.tally.unknown_notes.append("seed %s: check-sat at command %d: vorn "
                                                   "unknown, %s %s%s" % (
                                                       seed, i + 1, name, pans,
                                                       "" if script["boolean"] else
                                                       " (conjunctive script)"))
                continue
            ctx.tally.compared[name] = ctx.tally.compared.get(name, 0) + 1
            if ans != pans:
                found.append(Finding(("answer", name, i), "check-sat at command %d: vorn %s, "
                                     "%s %s" % (i + 1, ans, name, pans)))
            else:
                ctx.tally.passed += 1
    return found


def check_core(ctx, script, state, cmd, core, seed, found, ci):
    named = {n for _, n in state["asserts"] if n}
    if not set(core) <= named:
        found.append(Finding(("core", ci), "unsat core of check %d names %s, not active named "
                             "assertions" % (ci + 1, sorted(set(core) - named))))
        return
    text = gen_smt.core_script(script, state, set(core), cmd.get("lits", []), seed)
    path = ctx.write("core.smt2", text)
    for who, argv in (("vorn", [ctx.vorn, "check", path]),
                      ("z3", [ctx.peers["z3"], path] if "z3" in ctx.peers else None)):
        if argv is None:
            continue
        r = ctx.run(argv)
        if r.timed_out:
            continue
        ans = answers(responses_of(r.out.decode("utf-8", "replace")) or [])
        if ans and ans[-1] == "sat":
            found.append(Finding(("core", ci), "unsat core %s of check-sat at command %d is sat "
                                 "for %s" % (core, ci + 1, who)))
            return
        if ans and ans[-1] == "unsat":
            ctx.tally.passed += 1


# -- LP and MPS files ----------------------------------------------------------------------

def glpsol_answer(text):
    if "incorrect bounds" in text:
        return "unsat"  # a lower bound above the upper one
    mip = "Integer Optimizer" in text or "INTEGER" in text
    if "NO PRIMAL FEASIBLE" in text or "NO INTEGER FEASIBLE" in text or \
            "HAS NO FEASIBLE" in text:
        return "unsat"
    if mip:
        return "sat" if "INTEGER OPTIMAL" in text or "INTEGER SOLUTION" in text else None
    if "OPTIMAL SOLUTION FOUND" in text or "UNBOUNDED" in text:
        return "sat"
    return None


def check_file(ctx, p, seed, peers=("z3", "glpsol"), deep=True):
    found = []
    ext = ".lp" if p["fmt"] == "lp" else ".mps"
    path = ctx.write("case" + ext, gen_lp.render(p, True))
    atoms, ints, glpk_ok = gen_lp.meaning(p)
    r = ctx.run([ctx.vorn, "check", "--verify", "--certificate", "--model", path])
    if r.timed_out:
        return found
    if r.status != 0:
        kind = "crash" if crashed(r) else "exit"
        found.append(Finding((kind,), "vorn exit status %s: %s" % (r.status, first_line(r.err))))
        return found
    out = r.out.decode("utf-8", "replace")
    resp = responses_of(strip_certificates(out))
    if not resp or resp[0] not in ("sat", "unsat", "unknown"):
        found.append(Finding(("shape",), "vorn printed %r" % out[:200]))
        return found
    ans = resp[0]
    check_certificates(ctx, out, found)
    if ans == "sat":
        try:
            model = read_model(resp[1])
            problem = eval_atoms(atoms, ints, model)
        except (ValueError, IndexError) as e:
            problem = "unreadable model: %s" % e
        if problem:
            found.append(Finding(("model",), problem))
        else:
            ctx.tally.passed += 1
    counted = False  # one unknown per file, however many peers answered
    for name in peers:
        if name not in ctx.peers:
            continue
        if name == "z3":
            ppath = ctx.write("case.z3.smt2", gen_lp.smt_of(p))
            pr = ctx.run([ctx.peers["z3"], ppath])
            pans = (answers(responses_of(pr.out.decode("utf-8", "replace")) or []) or [None])[0]
        else:
            if not glpk_ok:
                if deep:
                    ctx.tally.skipped += 1
                continue
            ppath = ctx.write("case.glpk" + ext, gen_lp.render(p, False))
            flag = GLPSOL_FORMAT_FLAG[p["fmt"]]
            pr = ctx.run([ctx.peers["glpsol"], "--exact", flag, ppath])
            if pr.timed_out:
                continue
            ptext = pr.out.decode("utf-8", "replace")
            if "processing error" in ptext:
                ctx.tally.peer_errors += 1
                ctx.tally.peer_notes.append("seed %s: glpsol: %s" % (seed, [
                    line for line in ptext.splitlines() if ":" in line][-1:]))
                continue
            pans = glpsol_answer(ptext)
        if pr.timed_out or pans not in ("sat", "unsat"):
            continue
        if ans == "unknown":
            if deep and not counted:
                counted = True
                ctx.tally.unknowns += 1
                ctx.tally.unknown_notes.append("seed %s: vorn unknown, %s %s" % (seed, name, pans))
            continue
        ctx.tally.compared[name + " (LP/MPS)"] = ctx.tally.compared.get(name + " (LP/MPS)", 0) + 1
        if ans != pans:
            found.append(Finding(("answer", name), "vorn %s, %s %s" % (ans, name, pans)))
        else:
            ctx.tally.passed += 1
    if "glpsol" in peers and "glpsol" in ctx.peers and glpk_ok:
        compare_optimum(ctx, p, path, found)
    return found


def glpsol_optimum(text):
    """(kind, objective or None) from `glpsol --exact -o /dev/stdout`, or None."""
    if "HAS NO FEASIBLE" in text or "NO PRIMAL FEASIBLE" in text or "INTEGER EMPTY" in text:
        return "infeasible", None
    if "UNBOUNDED" in text or "NO DUAL FEASIBLE" in text:
        return "unbounded", None
    m = re.search(r"Objective:\s+\S+\s*=\s*(\S+)", text)
    if "OPTIMAL SOLUTION FOUND" in text and m:
        return "optimal", Fraction(m.group(1))
    return None


def compare_optimum(ctx, p, path, found):
    """`vorn optimize` beside `glpsol --exact` (`--nomip` without integer columns): the same
    outcome and, when optimal, the same optimum to glpsol's ten printed digits. With integer
    columns an unbounded relaxation without integer points is infeasible to vorn; glpsol stops at
    the relaxation, so that pair is not compared."""
    maximize = p["sense"] == "max"
    ints = gen_lp.meaning(p)[1]
    # An LP file states its sense; an MPS file may leave OBJSENSE out.
    cmd = [ctx.vorn, "optimize", "--verify", "--certificate", path]
    if maximize and p["fmt"] != "lp":
        cmd.insert(2, "--maximize")
    r = ctx.run(cmd)
    if r.timed_out:
        return
    out = r.out.decode("utf-8", "replace")
    if r.status != 0:
        kind = "crash" if crashed(r) else "exit"
        found.append(Finding((kind, "optimize"), "vorn optimize exit status %s: %s" % (
            r.status, first_line(r.err))))
        return
    check_certificates(ctx, out, found)
    lines = out.splitlines()
    kind = lines[0] if lines else ""
    ext = ".lp" if p["fmt"] == "lp" else ".mps"
    ppath = ctx.write("case.glpk-opt" + ext, gen_lp.render(p, False, True))
    flag = GLPSOL_FORMAT_FLAG[p["fmt"]]
    sense = [] if p["fmt"] == "lp" else ["--max" if maximize else "--min"]
    mip = [] if ints else ["--nomip"]
    pr = ctx.run([ctx.peers["glpsol"], "--exact"] + mip + [flag, ppath, "-o", "/dev/stdout"] +
                 sense)
    peer = None if pr.timed_out else glpsol_optimum(pr.out.decode("utf-8", "replace"))
    if peer is None or kind == "unknown" or (ints and peer[0] == "unbounded"):
        return
    ctx.tally.compared["glpsol (optimize)"] = ctx.tally.compared.get("glpsol (optimize)", 0) + 1
    if kind != peer[0]:
        found.append(Finding(("optimize",), "vorn optimize %s, glpsol %s" % (kind, peer[0])))
        return
    if kind == "optimal":
        m = re.match(r"objective (-?\d+(?:/\d+)?)$", lines[1] if len(lines) > 1 else "")
        value = Fraction(m.group(1)) if m else None
        if value is None or abs(value - peer[1]) > Fraction(2, 10 ** 9) * max(1, abs(peer[1])):
            found.append(Finding(("optimize",), "vorn optimum %s, glpsol %s" % (
                lines[1] if len(lines) > 1 else "none", peer[1])))
            return
    ctx.tally.passed += 1


def eval_atoms(atoms, ints, model):
    env = {}
    for n, (sort, v) in model.items():
        env[n] = v
    for n in ints:
        if n in env and env[n].denominator != 1:
            return "Int column %s has the value %s" % (n, env[n])
    for a in atoms:
        if a is None:
            return "sat, but the problem has a row no value meets"
        terms, rel, c = a
        try:
            lhs = sum((k * env[n] for n, k in terms.items()), Fraction(0))
        except KeyError as e:
            return "the model has no value for column %s" % e
        if not gen_smt.REL[rel](lhs, c):
            return "the model violates %s %s %s (lhs = %s)" % (
                " + ".join("%s*%s" % (k, n) for n, k in terms.items()), rel, c, lhs)
    return None


# -- hostile input -------------------------------------------------------------------------

def check_hostile(ctx, ext, data, args):
    path = ctx.write("hostile" + ext, data)
    r = ctx.run([ctx.vorn] + args + [path])
    if r.timed_out:
        return []
    if crashed(r) or r.status not in (0, 2):
        return [Finding(("crash",), "vorn %s: exit status %s: %s" % (
            " ".join(args), r.status, first_line(r.err)))]
    if r.status == 2:
        lines = r.err.count(b"\n")
        if lines != 1 or not r.err.endswith(b"\n"):
            return [Finding(("stderr",), "vorn %s: exit status 2 with %d lines on stderr: %s" % (
                " ".join(args), lines, first_line(r.err)))]
    ctx.tally.passed += 1
    return []


# -- shrinking -----------------------------------------------------------------------------

def shrink_list(items, keeps, deadline):
    """Drops items one at a time while keeps(items) holds, until a pass drops nothing."""
    changed = True
    while changed and time.monotonic() < deadline:
        changed = False
        i = len(items) - 1
        while i >= 0 and time.monotonic() < deadline:
            cand = items[:i] + items[i + 1:]
            if keeps(cand):
                items, changed = cand, True
            i -= 1
    return items


def shrink_formulas(script, keeps, deadline):
    """Replaces a conjunction in an assertion by one of its conjuncts while the failure stays."""
    for i, c in enumerate(script["cmds"]):
        if time.monotonic() >= deadline:
            break
        if c["k"] == "assert" and c["f"][0] == "and":
            for part in c["f"][1]:
                cmds = list(script["cmds"])
                cmds[i] = dict(c, f=part)
                cand = dict(script, cmds=cmds)
                if keeps(cand):
                    script = cand
                    break
    return script


def same_key(found, key):
    return any(f.key[:2] == key[:2] for f in found)


def shrink(ctx, kind, case, key, seed, budget):
    deadline = time.monotonic() + budget
    tally = ctx.tally
    ctx.tally = Tally()  # shrinking runs are not counted
    try:
        if kind == "smt":
            peers = (key[1],) if key[0] == "answer" else ("z3",) if key[0] == "core" else ()

            def keeps(script):
                return same_key(check_smt(ctx, script, seed, peers), key)

            cmds = shrink_list(case["cmds"], lambda cmds: keeps(dict(case, cmds=cmds)),
                               deadline)
            case = shrink_formulas(dict(case, cmds=cmds), keeps, deadline)
        elif kind == "file":
            peers = (key[1],) if key[0] == "answer" else ("glpsol",) if "optimize" in key else ()

            def keeps_units(units):
                q = dict(case)
                for name in ("rows", "bounds", "objective"):
                    q[name] = [x for j, x in enumerate(case[name]) if (name, j) in units]
                return same_key(check_file(ctx, q, seed, peers, False), key)

            units = shrink_list(gen_lp.units(case), lambda u: keeps_units(set(u)), deadline)
            q = dict(case)
            for name in ("rows", "bounds", "objective"):
                q[name] = [x for j, x in enumerate(case[name]) if (name, j) in set(units)]
            case = q
        else:
            ext, data, args = case
            chunk = max(1, len(data) // 2)
            while chunk >= 1 and time.monotonic() < deadline:
                i, progressed = 0, False
                while i < len(data) and time.monotonic() < deadline:
                    cand = data[:i] + data[i + chunk:]
                    if same_key(check_hostile(ctx, ext, cand, args), key):
                        data, progressed = cand, True
                    else:
                        i += chunk
                if not progressed:
                    chunk //= 2
            case = (ext, data, args)
    finally:
        ctx.tally = tally
    return case


def save(ctx, out_dir, kind, case, seed, n, findings):
    base = os.path.join(out_dir, "case-%s-%d" % (seed, n))
    extra = []
    if kind == "smt":
        path = base + ".smt2"
        data = gen_smt.render(case, "%s-%d" % (seed, n))
        how = "vorn check --verify --certificate %s" % path
    elif kind == "file":
        path = base + (".lp" if case["fmt"] == "lp" else ".mps")
        data = gen_lp.render(case, True)
        how = "vorn check --verify --certificate --model %s" % path
        with open(base + ".z3.smt2", "w") as f:
            f.write(gen_lp.smt_of(case))
        extra.append("the problem for z3: %s.z3.smt2" % base)
        if gen_lp.meaning(case)[2]:
            glpk = base + ".glpk" + (".lp" if case["fmt"] == "lp" else ".mps")
            with open(glpk, "w") as f:
                f.write(gen_lp.render(case, False))
            extra.append("the problem for glpsol: %s" % glpk)
    else:
        ext, data, args = case
        path = base + ext
        how = "vorn %s %s" % (" ".join(args), path)
    with open(path, "wb") as f:
        f.write(data if isinstance(data, bytes) else data.encode())
    with open(base + ".txt", "w") as f:
        f.write("seed %s, case %d\n" % (seed, n))
        for fd in findings:
            f.write(fd.text + "\n")
        f.write("reproduce: %s\n" % how)
        for e in extra:
            f.write(e + "\n")
    return path


# -- main ----------------------------------------------------------------------------------

def one_case(ctx, seed, n):
    """Generates and checks case n of the run; returns (kind, case, findings)."""
    case_seed = "%s-%d" % (seed, n)
    rng = random.Random(case_seed)
    r = rng.random()
    tally = ctx.tally
    if r < 0.55:
        script = gen_smt.generate(rng)
        tally.scripts += 1
        return "smt", script, check_smt(ctx, script, case_seed)
    if r < 0.85:
        p = gen_lp.generate(rng, rng.choice(["lp", "lp", "mps", "mps", "fixed"]))
        tally.files += 1
        return "file", p, check_file(ctx, p, case_seed)
    case = gen_hostile.generate(rng)
    tally.hostile += 1
    return "hostile", case, check_hostile(ctx, *case)


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--vorn", required=True)
    ap.add_argument("--seconds", type=float, default=60)
    ap.add_argument("--seed", default="1")
    ap.add_argument("--out", default="difftest-out")
    ap.add_argument("--timeout", type=float, default=20, help="seconds per solver run")
    ap.add_argument("--shrink-seconds", type=float, default=30, help="per disagreement")
    ap.add_argument("--case", type=int, help="run only this case of the seed")
    args = ap.parse_args()
    start = time.monotonic()
    args.vorn = os.path.abspath(args.vorn)
    if not os.access(args.vorn, os.X_OK):
        print("difftest: no vorn at %s" % args.vorn, file=sys.stderr)
        return 2
    peers = {}
    for name in ("z3", "cvc5", "glpsol"):
        path = find_peer(name)
        if path:
            peers[name] = path
        else:
            print("skipped: %s not found" % name)
    os.makedirs(args.out, exist_ok=True)
    tmp = tempfile.mkdtemp(prefix="difftest-")
    ctx = Ctx(args, peers, tmp)
    failures = []  # (kind, case, n, findings)
    try:
        n = args.case if args.case is not None else 0
        while True:
            kind, case, found = one_case(ctx, args.seed, n)
            if found:
                for fd in found:
                    print("FAIL seed %s case %d (%s): %s" % (args.seed, n, kind, fd.text))
                failures.append((kind, case, n, found))
            n += 1
            if args.case is not None or time.monotonic() - start >= args.seconds:
                break
        failed = 0
        for i, (kind, case, n, found) in enumerate(failures):
            failed += len(found)
            if i < 10:
                case = shrink(ctx, kind, case, found[0].key, "%s-%d" % (args.seed, n),
                              args.shrink_seconds)
            path = save(ctx, args.out, kind, case, args.seed, n, found)
            print("reproducer: %s (seed %s case %d): %s" % (path, args.seed, n, found[0].text))
    finally:
        shutil.rmtree(tmp, ignore_errors=True)
    t = ctx.tally
    for note in t.unknown_notes[:20]:
        print("unknown: " + note)
    for note in t.peer_notes[:10]:
        print("peer error: " + note)
    disagreements = sum(1 for _, _, _, fs in failures for f in fs if f.key[0] == "answer")
    print("scripts: %d" % t.scripts)
    print("check-sats: %d" % t.check_sats)
    print("LP/MPS files: %d" % t.files)
    print("hostile inputs: %d" % t.hostile)
    print("disagreements: %d" % disagreements)
    print("unknowns: %d" % t.unknowns)
    print("timeouts: %d" % t.timeouts)
    for name, count in sorted(t.compared.items()):
        print("answers compared with %s: %d" % (name, count))
    print("peer errors: %d" % t.peer_errors)
    print("comparisons skipped (other conventions): %d" % t.skipped)
    print("seconds: %d" % round(time.monotonic() - start))
    print("difftest: %d passed, %d failed" % (t.passed, failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
