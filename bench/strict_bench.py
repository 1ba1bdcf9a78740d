#!/usr/bin/python3
"""The command-line program's default (strict: every token a number in full)
against --lenient, on the same tables, whole process.

The program's default reading checks that every token is a number in full
and takes the dialect it guesses; --lenient reads tokens as the plain
conversion does.  Both runs of a pair convert the same file with the same
guesses, so that their ratio is the cost of the check alone (target: at most
1.03 on the table of 10 M rows).  Tables, written as convert_bench and
python_bench write them:

    points   --rows (10 M) rows of three coordinates with three decimals, single blanks (31 bytes a row)
    aligned  the same numbers in columns as numpy.savetxt(fmt="%12.3f") writes them (39 bytes a row),
             which the program reads with runs of blanks

Each pair runs --runs (7) times, its two commands taking turns and the first
of each round alternating; printed are the best wall times, their ratio, the
spread of the rounds' ratios and the ratio of the best CPU times (user and
system), which other work on the machine disturbs less than the wall clock.
The files are read once before, so that every run takes them from the page cache.

    /usr/bin/python3 bench/strict_bench.py [--rows N] [--runs N] [--host PATH] [--keep DIR]
"""
import argparse
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import numpy

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from python_bench import ROOT, write_points  # noqa: E402  (the same table as the other benchmarks)


def write_aligned(source, path):
    """The numbers of `source` as numpy.savetxt(fmt="%12.3f") writes them: each right-aligned in 12, a blank between."""
    with open(source, "rb") as text, open(path, "wb") as out:
        while chunk := text.readlines(1 << 24):
            values = numpy.array([line.split() for line in chunk], dtype=numpy.float64)
            out.write("".join("%12.3f %12.3f %12.3f\n" % tuple(row) for row in values).encode())


def run(command):
    """Wall and CPU seconds of one whole process."""
    before = os.times()
    start = time.perf_counter()
    done = subprocess.run(command, capture_output=True, text=True)
    wall = time.perf_counter() - start
    after = os.times()
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)} failed: {(done.stderr.strip().splitlines() or ['?'])[-1]}")
    return wall, (after.children_user - before.children_user) + (after.children_system - before.children_system)


def pair(label, first, second, runs):
    walls, cpus, ratios = ([], []), ([], []), []
    for i in range(runs):
        order = (0, 1) if i % 2 == 0 else (1, 0)
        got = {}
        for k in order:
            got[k] = run((first, second)[k])
        for k in (0, 1):
            walls[k].append(got[k][0])
            cpus[k].append(got[k][1])
        ratios.append(got[1][0] / got[0][0])
    a, b = min(walls[0]), min(walls[1])
    print(f"  {label:34s} {b:6.3f} s against {a:6.3f} s | ratio {b / a:5.3f} (rounds {min(ratios):5.3f}.."
          f"{max(ratios):5.3f}, median {statistics.median(ratios):5.3f}; CPU time {min(cpus[1]) / min(cpus[0]):5.3f})")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--rows", type=int, default=10_000_000)
    parser.add_argument("--runs", type=int, default=7)
    parser.add_argument("--host", type=pathlib.Path, default=ROOT / "build" / "release" / "apps" / "pallion" / "pallion")
    parser.add_argument("--keep", type=pathlib.Path, help="write the tables here and keep them")
    args = parser.parse_args()

    folder = args.keep or pathlib.Path(tempfile.mkdtemp(prefix="pallion-bench-"))
    folder.mkdir(parents=True, exist_ok=True)
    try:
        points, aligned = folder / "points.txt", folder / "aligned.txt"
        if not points.exists():
            write_points(points, args.rows, 1)
        if not aligned.exists():
            write_aligned(points, aligned)
        for table in (points, aligned):
            with open(table, "rb") as warm:
                while warm.read(1 << 24):
                    pass
        host = str(args.host)
        print(f"the program, strict (its default) against --lenient, whole process, best of {args.runs}, taking turns")
        for label, table in (("points, strict / --lenient", points), ("aligned, strict / --lenient", aligned)):
            mb = table.stat().st_size / 1e6
            pair(f"{label} ({mb:.0f} MB)", [host, "-q", "--lenient", str(table)], [host, "-q", str(table)], args.runs)
        print("  target: strict / --lenient at most 1.03 on the 10 M-row table of points")
    finally:
        if args.keep is None:
            shutil.rmtree(folder)


if __name__ == "__main__":
    main()
