"""Where a generator's script goes: the file named by -o, else standard output."""

import sys


def write_script(text, path):
    if path:
        with open(path, "w") as f:
            f.write(text)
    else:
        sys.stdout.write(text)
