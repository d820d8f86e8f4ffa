# Files: check_file answers as `vorn check` prints them, optimize_file's exact optima, errors as
# exceptions; and the examples/python scripts run.
import os
import subprocess
import sys
from fractions import Fraction

import pytest

import vorn

TOOL = os.environ.get("VORN_TOOL")

WRITTEN = {
    "sat.cnf": "p cnf 2 2\n1 -2 0\n2 0\n",
    "unsat.cnf": "p cnf 1 2\n1 0\n-1 0\n",
    "plan.lp": "Maximize\n obj: x + y\nSubject To\n c1: x + 2 y <= 4\n c2: 3 x + y <= 6\nEnd\n",
    "script.smt2": "(declare-const x Real)(assert (> x 1))(check-sat)(get-value (x))"
                   "(assert (< x 0))(check-sat)(bogus)",
}


def files(source_dir):
    examples = sorted(p for p in (source_dir / "examples").iterdir()
                      if p.suffix in (".smt2", ".lin"))
    return examples


@pytest.mark.parametrize("name", sorted(WRITTEN))
def test_check_written_files(tmp_path, name):
    path = tmp_path / name
    path.write_text(WRITTEN[name])
    expected = {
        "sat.cnf": ["sat"], "unsat.cnf": ["unsat"], "plan.lp": ["sat"],
        "script.smt2": ["sat", "((x 2.0))", "unsat",
                        '(error "%s:1:93: unknown command \'bogus\'")' % path],
    }[name]
    assert vorn.check_file(path) == expected


@pytest.mark.skipif(TOOL is None, reason="VORN_TOOL (the vorn tool) not given")
def test_check_file_answers_as_the_tool(source_dir):
    for path in files(source_dir):
        printed = subprocess.run([TOOL, "check", str(path)], capture_output=True, text=True)
        assert "\n".join(vorn.check_file(path)) == printed.stdout.rstrip("\n"), path


@pytest.mark.parametrize("text, status, objective", [
    ("Maximize\n obj: x + y\nSubject To\n c1: x + 2 y <= 4\n c2: 3 x + y <= 6\nEnd\n",
     "optimal", Fraction(14, 5)),
    ("Minimize\n obj: x\nSubject To\n c1: x >= 1\n c2: x <= 0\nEnd\n", "infeasible", None),
    ("Minimize\n obj: x\nSubject To\n c1: x - y >= 1\nBounds\n x free\n y free\nEnd\n", "unbounded", None),
])
def test_optimize_written_files(tmp_path, text, status, objective):
    path = tmp_path / "problem.lp"
    path.write_text(text)
    result = vorn.optimize_file(path)
    assert (result.status, result.objective) == (status, objective)
    if status == "optimal":
        assert result.model == {"x": Fraction(8, 5), "y": Fraction(6, 5)}


def test_optimize_netlib(source_dir):
    result = vorn.optimize_file(source_dir / "tests/data/netlib/netlib-afiro.mps.bz2")
    assert result.status == "optimal"
    assert abs(result.objective - Fraction("-464.7531428571")) < Fraction(1, 10 ** 9)


@pytest.mark.parametrize("call, text, error", [
    (vorn.check_file, None, vorn.ParseError),
    (vorn.check_file, "p cnf x\n", vorn.ParseError),
    (vorn.optimize_file, "Subject To\n c: x >= 1\nEnd\n", ValueError),
    (vorn.optimize_file, "(declare-const x Real)", Exception),
])
def test_file_errors(tmp_path, call, text, error):
    path = tmp_path / ("bad.cnf" if text and text.startswith("p") else
                       "bad.smt2" if text and text.startswith("(") else "bad.lp")
    if text is not None:
        path.write_text(text)
    with pytest.raises(error) as raised:
        call(path)
    if error is vorn.ParseError:
        assert str(raised.value).startswith(str(path) + ":1:")  # as the tool names it


@pytest.mark.parametrize("script, last_line", [
    ("schedule.py", "makespan 85/12"),
    ("lp.py", "optimal objective 11100/7 model {'chairs': Fraction(130, 7), "
              "'tables': Fraction(180, 7)}"),
])
def test_examples_run(source_dir, script, last_line):
    done = subprocess.run([sys.executable, str(source_dir / "examples/python" / script)],
                          capture_output=True, text=True, check=True)
    assert done.stdout.splitlines()[-1] == last_line
