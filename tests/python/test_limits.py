# Limits and interrupts: conflict and time limits, interrupt() from another thread, Ctrl-C
# (SIGINT) during a check; the solver answers right afterwards.
import os
import signal
import threading

import pytest

import vorn


def pigeons(solver, holes):
    """holes + 1 pigeons in `holes` holes: unsat, and long for a Boolean search."""
    p = [[vorn.Bool("p%d_%d" % (i, j)) for j in range(holes)] for i in range(holes + 1)]
    for row in p:
        solver.add(vorn.Or(row))
    for j in range(holes):
        for i in range(holes + 1):
            for k in range(i + 1, holes + 1):
                solver.add(vorn.Or(vorn.Not(p[i][j]), vorn.Not(p[k][j])))
    return p


@pytest.mark.parametrize("limit, reason", [
    (lambda s: s.set_conflict_limit(10), "conflict limit"),
    (lambda s: s.set_time_limit("0.2"), "timeout"),
    (lambda s: threading.Timer(0.2, s.interrupt).start(), "interrupted"),
])
def test_limits_answer_unknown(limit, reason):
    s = vorn.Solver()
    s.push()
    pigeons(s, 11)
    limit(s)
    assert s.check() == vorn.unknown
    assert s.reason_unknown() == reason
    s.pop()
    x = vorn.Real("x")
    s.add(x > 0)
    assert s.check() == vorn.sat and s.model()[x] > 0  # usable afterwards


def test_ctrl_c_raises_keyboard_interrupt_and_leaves_the_solver_usable():
    s = vorn.Solver()
    pigeons(s, 11)
    timer = threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        s.check()
    timer.join()
    s.set_conflict_limit(5)
    assert s.check() == vorn.unknown and s.reason_unknown() == "conflict limit"
    x = vorn.Real("x")
    s.add(x > 0, x < 0)
    assert s.check() == vorn.unsat


def test_calls_from_another_thread_during_a_check_are_refused():
    s = vorn.Solver()
    pigeons(s, 11)
    answers = []
    worker = threading.Thread(target=lambda: answers.append(s.check()))
    worker.start()
    threading.Event().wait(0.2)
    with pytest.raises(vorn.UsageError):
        s.add(vorn.Real("x") > 0)  # would race with the check
    s.interrupt()
    worker.join()
    assert answers == [vorn.unknown] and s.reason_unknown() == "interrupted"
