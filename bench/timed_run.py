"""One timed run of a solver, killed with its whole session at the timeout."""
import os
import signal
import subprocess
import time


def run(cmd, timeout):
    """(seconds, stdout) or (None, '') on timeout."""
    start = time.perf_counter()
    proc = subprocess.Popen(cmd, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                            start_new_session=True)
    try:
        out, _ = proc.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        proc.communicate()
        return None, ""
    return time.perf_counter() - start, out
