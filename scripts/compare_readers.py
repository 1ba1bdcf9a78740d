#!/usr/bin/env python3
"""Reads a blank-delimited table of three columns with numpy and pandas, where
they are installed, and prints the best of three whole-process times of each, so
that the figures of convert_bench can be put beside them.

    build/release/bench/convert_bench --keep /tmp/tables
    scripts/compare_readers.py /tmp/tables/points.txt
"""
import subprocess
import sys
import time

READERS = {
    "numpy loadtxt": "import numpy; numpy.loadtxt({path!r}, dtype=numpy.float64)",
    "pandas read_csv (C engine)": "import pandas; pandas.read_csv({path!r}, sep=' ', header=None, engine='c')",
}


def best_of_three(code):
    best = None
    for _ in range(3):
        start = time.perf_counter()
        done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
        seconds = time.perf_counter() - start
        if done.returncode != 0:
            return None, done.stderr.strip().splitlines()[-1] if done.stderr else "failed"
        best = seconds if best is None else min(best, seconds)
    return best, None


def main():
    if len(sys.argv) != 2:
        print(__doc__.strip())
        return 2
    for name, code in READERS.items():
        seconds, problem = best_of_three(code.format(path=sys.argv[1]))
        if seconds is None:
            print(f"{name:28s} not measured: {problem}")
        else:
            print(f"{name:28s} {seconds:6.2f} s")
    return 0


if __name__ == "__main__":
    sys.exit(main())
