"""Seeded hostile inputs: the reader must answer or reject them with one line, never crash."""

import bz2
import gzip
import random

import gen_lp
import gen_smt

EXTS = [".smt2", ".lp", ".mps", ".lin", ".smt2", ".lp", ".mps"]


def valid_text(rng, ext):
    seed = rng.randrange(1 << 30)
    if ext == ".smt2":
        return gen_smt.render(gen_smt.generate(random.Random(seed)), seed)
    if ext == ".lp":
        return gen_lp.render(gen_lp.generate(random.Random(seed), "lp"))
    if ext == ".mps":
        return gen_lp.render(gen_lp.generate(random.Random(seed), rng.choice(["mps", "fixed"])))
    return "x + 2*y = 3\n# comment\n2x - y/3 + 5 = z\n"


def mutate(rng, data):
    data = bytearray(data)
    for _ in range(rng.randint(1, 8)):
        r = rng.random()
        pos = rng.randint(0, len(data))
        if r < 0.3 and data:
            del data[pos:pos + rng.randint(1, 5)]
        elif r < 0.6:
            data[pos:pos] = rng.choice([b"\xff", b"\xc3", b"\xe2\x80", b"\x00", b"(", b")",
                                        b"|", b'"', b"\xed\xa0\x80", b"\r", b"\t", b"1e999999",
                                        b"-", b"inf", b"9" * 50, b"\n", b";", b"\\"])
        elif data:
            data[min(pos, len(data) - 1)] = rng.randrange(256)
    return bytes(data)


def deep(rng, ext):
    n = rng.choice([50, 999, 1001, 9999, 10001, 100000])
    if ext == ".smt2":
        kind = rng.random()
        if kind < 0.4:
            body = "(and " * n + "(> x 0)" + ")" * n
        elif kind < 0.7:
            body = "(+ " * n + "x" + " 1)" * n
            body = "(> %s 0)" % body
        else:
            body = "(not " * n + "(> x 0)" + ")" * n
        if rng.random() < 0.3:
            body = body[:rng.randint(0, len(body))]
        return "(declare-const x Real)\n(assert %s)\n(check-sat)\n" % body
    if ext == ".lin":
        return "x = " + "(" * n + "1" + ")" * n + "\n"
    if ext == ".lp":
        return "min\n obj: x\nst\n c: " + " + ".join(["x"] * n) + " >= 1\nend\n"
    return "NAME\nROWS\n N c\n" + "".join(" L r%d\n" % i for i in range(n)) + "ENDATA\n"


def huge(rng, ext):
    digits = rng.choice([9999, 10000, 10001, 30000])
    big = "9" * digits
    if rng.random() < 0.3:
        big = "1e" + rng.choice(["999999999", "99999", "-99999", "100001", "400"])
    if ext == ".smt2":
        r = rng.random()
        if r < 0.4:
            return "(declare-const x Real)\n(assert (> x %s))\n(check-sat)\n(get-model)\n" % (
                big if big[0].isdigit() and "e" not in big else "9" * digits)
        if r < 0.7:
            chain = ["(define-fun c0 () Real %s)" % ("1" + "0" * 100)]
            for i in range(1, rng.choice([8, 12, 14, 20])):
                chain.append("(define-fun c%d () Real (* c%d c%d))" % (i, i - 1, i - 1))
            return "\n".join(chain) + "\n(declare-const x Real)\n(assert (> x c%d))\n" \
                "(check-sat)\n" % (len(chain) - 1)
        return "(declare-const x Real)\n(assert (> x (/ %s %s.5)))\n(check-sat)\n" % (
            "7" * digits, "3" * digits)
    if ext == ".lp":
        return "min\n obj: x\nst\n c: %s x >= %s\nend\n" % (big, big)
    if ext == ".mps":
        return "NAME\nROWS\n N c\n L r\nCOLUMNS\n x r %s\nRHS\n b r %s\nENDATA\n" % (big, big)
    return "x = %s\n" % big


def generate(rng):
    """(extension, bytes, subcommand arguments)."""
    ext = rng.choice(EXTS)
    r = rng.random()
    if r < 0.15:
        data = bytes(rng.randrange(256) for _ in range(rng.randint(0, 400)))
    elif r < 0.35:
        text = valid_text(rng, ext).encode()
        data = text[:rng.randint(0, len(text))]
    elif r < 0.65:
        data = mutate(rng, valid_text(rng, ext).encode())
    elif r < 0.8:
        data = deep(rng, ext).encode()
    else:
        data = huge(rng, ext).encode()
    if rng.random() < 0.08:
        packed = rng.choice([".gz", ".bz2"])
        comp = gzip.compress(data) if packed == ".gz" else bz2.compress(data)
        if rng.random() < 0.5:
            comp = comp[:rng.randint(0, len(comp))]
        data, ext = comp, ext + packed
    args = ["check"]
    r = rng.random()
    if r < 0.15 and ext.startswith((".lin", ".smt2")):
        args = ["solve"]
    elif r < 0.25:
        args = ["tableau"]
    elif r < 0.6:
        args = ["check", "--verify", "--certificate", "--model"]
    return ext, data, args
