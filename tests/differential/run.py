"""Running the programs under test and reading what they print."""

import shutil
import subprocess
import time
from fractions import Fraction


class Result:
    def __init__(self, status, out, err, seconds, timed_out):
        self.status = status  # exit status; a signal is 128 + its number, as a shell reports it
        self.out = out
        self.err = err
        self.seconds = seconds
        self.timed_out = timed_out


def run(argv, timeout):
    start = time.monotonic()
    try:
        p = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout)
    except subprocess.TimeoutExpired as e:
        return Result(None, e.stdout or b"", e.stderr or b"", time.monotonic() - start, True)
    status = p.returncode if p.returncode >= 0 else 128 - p.returncode
    return Result(status, p.stdout, p.stderr, time.monotonic() - start, False)


def find_peer(name):
    return shutil.which(name)


def strip_certificates(text):
    """Vorn's output without its certificate blocks (they are not s-expressions)."""
    kept, inside = [], False
    for line in text.splitlines():
        if line == "(certificate":
            inside = True
        elif inside and line == ")":
            inside = False
        elif not inside:
            kept.append(line)
    return "\n".join(kept)


class SexpError(Exception):
    pass


def parse_sexps(text):
    """Every s-expression in text: symbols and numbers as str, strings as ('str', s), lists as
    lists. Stops with SexpError on unbalanced text."""
    out, stack, i, n = [], [], 0, len(text)

    def emit(x):
        (stack[-1] if stack else out).append(x)

    while i < n:
        ch = text[i]
        if ch.isspace():
            i += 1
        elif ch == ";":
            while i < n and text[i] != "\n":
                i += 1
        elif ch == "(":
            stack.append([])
            i += 1
        elif ch == ")":
            if not stack:
                raise SexpError("unbalanced ')'")
            lst = stack.pop()
            emit(lst)
            i += 1
        elif ch == '"':
            j, buf = i + 1, []
            while True:
                if j >= n:
                    raise SexpError("unterminated string")
                if text[j] == '"':
                    if j + 1 < n and text[j + 1] == '"':
                        buf.append('"')
                        j += 2
                        continue
                    break
                buf.append(text[j])
                j += 1
            emit(("str", "".join(buf)))
            i = j + 1
        elif ch == "|":
            j = text.find("|", i + 1)
            if j < 0:
                raise SexpError("unterminated |symbol|")
            emit(text[i + 1:j])
            i = j + 1
        else:
            j = i
            while j < n and not text[j].isspace() and text[j] not in '()";|':
                j += 1
            emit(text[i:j])
            i = j
    if stack:
        raise SexpError("unbalanced '('")
    return out


def value_of(sexp):
    """An SMT-LIB numeric value as printed in models: 5, 5.0, (- 5), (/ 1 3), (/ (- 1) 3)."""
    if isinstance(sexp, str):
        return Fraction(sexp)
    if isinstance(sexp, list):
        if len(sexp) == 2 and sexp[0] == "-":
            return -value_of(sexp[1])
        if len(sexp) == 3 and sexp[0] == "/":
            return value_of(sexp[1]) / value_of(sexp[2])
        if len(sexp) == 2 and sexp[0] == "to_real":
            return value_of(sexp[1])
    raise ValueError("not a number: %r" % (sexp,))


def read_model(sexp):
    """name -> (sort, value) from a get-model response; raises ValueError when it is none."""
    if not isinstance(sexp, list):
        raise ValueError("model is not a list: %r" % (sexp,))
    items = sexp[1:] if sexp and sexp[0] == "model" else sexp
    model = {}
    for item in items:
        if not (isinstance(item, list) and len(item) == 5 and item[0] == "define-fun"):
            raise ValueError("not a define-fun: %r" % (item,))
        _, name, params, sort, value = item
        if params:
            raise ValueError("a model function with parameters: %r" % (item,))
        if sort == "Bool":
            model[name] = (sort, value == "true")
        else:
            model[name] = (sort, value_of(value))
    return model


def answers(responses):
    return [r for r in responses if r in ("sat", "unsat", "unknown")]
