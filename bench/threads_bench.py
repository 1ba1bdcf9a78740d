#!/usr/bin/python3
"""One file on every core: the command-line host with --threads 1, 2, ... N on
the xyz, trajectory and lidar tables of convert_bench, whole process (start,
sniffing, conversion, summary), best of --runs (5), taking turns, with the
speed-up over --threads 1 and the peak resident memory; beside it, on the xyz
table, nodejs-polars reading the same table on 1 and 2 threads
(POLARS_MAX_THREADS), the peer that splits one file among its threads.

    /usr/bin/python3 bench/threads_bench.py [PALLION] [--rows N (10 M xyz rows; the others scaled as
        convert_bench scales them)] [--runs N (5)] [--threads N (the cores, at least 2)] [--keep DIR]
        [--only xyz|trajectory|lidar] [--polars DIR (build/npm/node_modules)]

Targets on a 2-core machine (xyz): --threads 2 at least 1.6x as fast as --threads 1, and at least 1.5x as
fast as polars on 2 threads.  On a machine shared with other work the figures are noisy: the spread
(worst / best) is printed beside each best time.

nodejs-polars is installed with `npm install --prefix build/npm nodejs-polars nodejs-polars-linux-x64-gnu`
(the second is its native part, which npm may leave out); without it the peer is left out.
"""
import argparse
import os
import pathlib
import subprocess
import sys
import tempfile
import time

import numpy as np

ROOT = pathlib.Path(__file__).resolve().parents[1]

POLARS = """
const pl = require(process.argv[1]);  // node -e: the arguments begin at 1
const df = pl.readCSV(process.argv[2], {hasHeader: false, sep: " ", inferSchemaLength: 100});
if (df.height < 1) process.exit(1);
"""

LIDAR = "Positions:point:0+1+2,Colours:rgb:3+4+5,Intensity:float:6,Class:uint8_t:7,Return:int:8"
TRAJECTORY = "Positions:point:1+2+3,GPSTime:double:0,Roll:double:4,Pitch:double:5,Yaw:double:6"


def decimals(rng, low, span, n, places=3):
    return low + rng.integers(0, span, n), rng.integers(0, 10 ** places, n)


def write_table(path, shape, rows):
    """The shapes of convert_bench: xyz 31 bytes a row, trajectory seven columns, lidar nine."""
    rng = np.random.default_rng(7)
    with open(path, "w") as out:
        for begin in range(0, rows, 500_000):
            n = min(500_000, rows - begin)
            x, xf = decimals(rng, 512000, 100000, n)
            y, yf = decimals(rng, 5403000, 100000, n)
            z, zf = decimals(rng, 300, 50, n)
            if shape == "xyz":
                np.savetxt(out, np.column_stack([x, xf, y, yf, z, zf]), fmt="%d.%03d %d.%03d %d.%03d")
            elif shape == "trajectory":
                t = 172800.0 + (begin + np.arange(n)) * 0.005
                angles = rng.integers(0, 20000, (n, 2)) / 1e4 - 1
                yaw = rng.integers(0, 3600000, n) / 1e4
                whole = np.column_stack([t, x, xf, y, yf, z, zf, angles, yaw])
                np.savetxt(out, whole, fmt="%.6f %d.%03d %d.%03d %d.%03d %.5f %.5f %.4f")
            else:
                colours = rng.integers(0, 256, (n, 3))
                intensity, fraction = rng.integers(0, 4096, n), rng.integers(0, 100, n)
                rest = np.column_stack([rng.integers(0, 20, n), 1 + rng.integers(0, 5, n)])
                whole = np.column_stack([x, xf, y, yf, z, zf, colours, intensity, fraction, rest])
                np.savetxt(out, whole, fmt="%d.%03d %d.%03d %d.%03d %d %d %d %d.%02d %d %d")


def measure(arguments, env=None):
    """Seconds and peak resident memory (MiB) of one child process."""
    start = time.perf_counter()
    child = subprocess.Popen(arguments, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env=env)
    _, status, usage = os.wait4(child.pid, 0)
    seconds = time.perf_counter() - start
    err = child.stderr.read()
    if status != 0:
        sys.exit(f"{arguments[0]} failed: {err.decode()}")
    return seconds, usage.ru_maxrss / 1024


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("pallion", nargs="?", default=str(ROOT / "build/release/apps/pallion/pallion"))
    parser.add_argument("--rows", type=int, default=10_000_000)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--threads", type=int, default=max(2, os.cpu_count() or 1))
    parser.add_argument("--keep")
    parser.add_argument("--only")
    parser.add_argument("--polars", default=str(ROOT / "build/npm/node_modules"))
    options = parser.parse_args()

    folder = pathlib.Path(options.keep or tempfile.mkdtemp(prefix="threads-bench-"))
    folder.mkdir(parents=True, exist_ok=True)
    polars = pathlib.Path(options.polars) / "nodejs-polars"
    tables = {"xyz": (options.rows, "Positions:point:0+1+2"),
              "trajectory": (options.rows // 5, TRAJECTORY),
              "lidar": (options.rows // 2, LIDAR)}
    print(f"whole process, best of {options.runs}, taking turns; spread = worst / best; "
          f"{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f} at the start")
    for name, (rows, parse) in tables.items():
        if options.only and options.only != name:
            continue
        path = folder / f"{name}.txt"
        if not path.exists():
            write_table(path, name, rows)
        print(f"{name}: {rows} rows, {path.stat().st_size / 1e6:.0f} MB")
        commands = {f"--threads {t}": [options.pallion, "-q", "--delimiter", "space", "--header", "0",
                                       "--parse", parse, "--threads", str(t), str(path)]
                    for t in range(1, options.threads + 1)}
        envs = {label: None for label in commands}
        if name == "xyz" and polars.exists():
            # nodejs-polars takes a name without .csv for the text of a table: it reads a link of that name.
            linked = folder / f"{name}.csv"
            if not linked.exists():
                linked.symlink_to(path)
            for t in (1, 2):
                label = f"polars {t} thread{'s' if t > 1 else ''}"
                commands[label] = ["node", "-e", POLARS, str(polars), str(linked)]
                envs[label] = dict(os.environ, POLARS_MAX_THREADS=str(t))
        times = {label: [] for label in commands}
        memory = {label: 0.0 for label in commands}
        # Every other round in reverse: on a virtual machine that hands freed memory back to its host, a
        # run right after another that freed as much finds its pages at once, and one after a pause pays
        # for them again; reversed, each command takes its turn in both places.
        for round in range(options.runs):
            order = list(commands.items())
            for label, command in (order if round % 2 == 0 else order[::-1]):
                seconds, peak = measure(command, envs[label])
                times[label].append(seconds)
                memory[label] = max(memory[label], peak)
        one = min(times["--threads 1"])
        for label in commands:
            best, worst = min(times[label]), max(times[label])
            print(f"  {label:18s} {best:7.3f} s (spread {worst / best:4.2f})  speed-up {one / best:5.2f}x"
                  f"  peak {memory[label]:7.1f} MiB")
        if name == "xyz" and "--threads 2" in times:
            two = min(times["--threads 2"])
            print(f"  --threads 2 against 1: {one / two:.2f}x (target at least 1.6)")
            if "polars 2 threads" in times:
                print(f"  --threads 2 against polars on 2 threads: {min(times['polars 2 threads']) / two:.2f}x "
                      f"(target at least 1.5)")
    if not options.keep:
        for path in folder.iterdir():
            path.unlink()
        folder.rmdir()


if __name__ == "__main__":
    main()
