"""The command-line host writing a 10 M-row table to .las, .ply and .h5, its time and peak memory, beside the
same conversion without an output and, as the floor, numpy writing as many records of each format's size
with tofile.

    /usr/bin/python3 bench/write_bench.py PALLION [--rows N (10 M)] [--runs N (3)] [--keep DIR]
                                                  [--formats las,ply,h5]

The table is the xyz shape of convert_bench: three coordinates of three decimals, blank-delimited.  Each
measurement runs in a process of its own (its peak memory is its maximum resident set), best of --runs."""
import argparse
import os
import pathlib
import subprocess
import sys
import tempfile
import time

import numpy as np

FLOOR = """
import sys, time, numpy as np
rows, size = int(sys.argv[1]), int(sys.argv[3])
rng = np.random.default_rng(42)
# Records of the format's size (30 bytes: point format 6 of X, Y, Z as int32, the rest zero; 24 bytes: x, y, z
# as doubles), built before the clock starts.
records = np.zeros(rows, dtype=[("xyz", "<i4", 3), ("rest", "u1", 18)] if size == 30 else [("xyz", "<f8", 3)])
records["xyz"] = rng.integers(0, 2**31 - 1, (rows, 3), dtype=np.int32)
start = time.perf_counter()
records.tofile(sys.argv[2])
print(time.perf_counter() - start)
"""
# The package's writer alone: the table read into a grid before the clock starts, then Grid.to_<format>.
PACKAGE = """
import sys, time
sys.path.insert(0, sys.argv[1])
import pallion
grid = pallion.read_table(sys.argv[2], parse="Positions:point:0+1+2", delimiter="space", header=None)
start = time.perf_counter()
getattr(grid, "to_" + sys.argv[4])(sys.argv[3])
print(time.perf_counter() - start)
"""
# Bytes per point record: LAS point format 6, and x, y, z as doubles in PLY and HDF5.
RECORD = {"las": 30, "ply": 24, "h5": 24}


def write_table(path, rows):
    rng = np.random.default_rng(42)
    with open(path, "w") as out:
        for begin in range(0, rows, 1_000_000):
            n = min(1_000_000, rows - begin)
            whole = np.column_stack([512000 + rng.integers(0, 100000, n), rng.integers(0, 1000, n),
                                     5403000 + rng.integers(0, 100000, n), rng.integers(0, 1000, n),
                                     300 + rng.integers(0, 50, n), rng.integers(0, 1000, n)])
            np.savetxt(out, whole, fmt="%d.%03d %d.%03d %d.%03d")


def measure(arguments):
    """Seconds and peak resident memory (MiB) of one child process; the child's own figure where it prints one."""
    start = time.perf_counter()
    child = subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(child.pid, 0)
    seconds = time.perf_counter() - start
    out, err = child.stdout.read(), child.stderr.read()
    if status != 0:
        sys.exit(f"{arguments[0]} failed: {err.decode()}")
    return seconds, usage.ru_maxrss / 1024, out.decode()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("pallion")
    parser.add_argument("--rows", type=int, default=10_000_000)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--keep")
    parser.add_argument("--formats", default="las,ply,h5")
    parser.add_argument("--package", help="the folder holding the built package (build/release/python): times "
                                          "Grid.to_<format> alone, the table read before the clock starts")
    options = parser.parse_args()
    formats = options.formats.split(",")
    with tempfile.TemporaryDirectory() as scratch:
        folder = pathlib.Path(options.keep or scratch)
        table = folder / f"xyz_{options.rows}.txt"
        if not table.exists():
            write_table(table, options.rows)
        host = [options.pallion, "-q", "--header", "0", "--delimiter", "space", "--parse", "Positions:point:0+1+2"]
        runs = {"convert only": host + [str(table)]}
        for kind in formats:
            runs[f"convert + .{kind}"] = host + ["-o", str(folder / f"out.{kind}"), str(table)]
        if options.package:
            for kind in formats:
                runs[f"Grid.to_{kind}"] = [sys.executable, "-c", PACKAGE, options.package, str(table),
                                           str(folder / f"grid.{kind}"), kind]
        for size in sorted({RECORD[kind] for kind in formats}):
            runs[f"numpy tofile {size}"] = [sys.executable, "-c", FLOOR, str(options.rows), str(folder / "floor.bin"),
                                            str(size)]
        best = {name: (float("inf"), 0.0, 0.0) for name in runs}
        for _ in range(options.runs):
            for name, arguments in runs.items():
                seconds, peak, out = measure(arguments)
                written = float(out) if name.startswith(("numpy", "Grid")) else seconds
                if written < best[name][0]:
                    best[name] = (written, peak, seconds)
        size = table.stat().st_size / 1e6
        print(f"{options.rows} rows, {size:.1f} MB of text, best of {options.runs}")
        for name, (seconds, peak, whole) in best.items():
            what = "the write alone" if name.startswith(("numpy", "Grid")) else "the whole run"
            print(f"{name:16} {seconds:7.3f} s ({what}), peak {peak:6.0f} MiB")
        for kind in formats:
            write = best[f"convert + .{kind}"][0] - best["convert only"][0]
            floor = best[f"numpy tofile {RECORD[kind]}"][0]
            alone = f", {best[f'Grid.to_{kind}'][0]:.3f} s alone" if options.package else ""
            print(f"the .{kind} write: {write:.3f} s over the conversion{alone}, "
                  f"{(folder / f'out.{kind}').stat().st_size / 1e6:.1f} MB; "
                  f"numpy's tofile of as many {RECORD[kind]}-byte records: {floor:.3f} s")


if __name__ == "__main__":
    main()
