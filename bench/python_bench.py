#!/usr/bin/python3
"""The Python package against other readers, and the Dask route against one
file after the other.

Readers, each a whole process (interpreter start and imports included), taking
turns, best of --runs (5), on a table of --rows (10 M) rows of three
coordinates with three decimals (31 bytes a row, as convert_bench writes it):

    pallion        pallion.read_table(path).fields["Positions"].to_numpy()
    C++ host       build/release/apps/pallion/pallion path
    numpy.loadtxt  numpy.loadtxt(path)
    pandas         pandas.read_csv(path, sep=" ", header=None, engine="c")

Dask: --files (8) tables of --dask-rows (2 M) rows, converted by
pallion.dask.read_tables on a local cluster of --workers (2) worker processes,
against pallion.read_table on each file in turn in one process; best of
--runs, the cluster started beforehand.  First the points summed where they
were converted (the cluster's way: the work goes to the data), then the arrays
gathered into one on the client (which adds their transfer and a copy).  Beside
them, what the machine gives two conversions at once with no scheduler at all:
--workers plain processes of a multiprocessing pool, each converting and
summing its share of the files in turn.

Blocks: pallion.iter_table over a table of --blocks-rows (70 M, about 2.2 GB)
rows in blocks of --block-rows (1 M), in a process of its own: the peak
resident memory (VmHWM) against the table's size; the target is under
400 MB for the 2 GB table.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/python_bench.py [--rows N] [--dask-rows N] [--runs N]
        [--worker-saturation inf] [--blocks-rows N] [--only readers|dask|blocks]

The tables go to a temporary directory (--keep DIR keeps them there).
"""
import argparse
import multiprocessing
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

import numpy

ROOT = pathlib.Path(__file__).resolve().parents[1]


def digits(values, width):
    return numpy.stack([(values // 10 ** (width - 1 - k)) % 10 + 48 for k in range(width)], axis=1).astype(numpy.uint8)


def write_points(path, rows, seed):
    """x y z as 512000-611999.999, 5403000-5502999.999, 300-349.999: fixed widths, 31 bytes a line."""
    rng = numpy.random.default_rng(seed)
    with open(path, "wb") as out:
        for start in range(0, rows, 1_000_000):
            n = min(1_000_000, rows - start)
            parts = []
            for low, span, width in ((512000, 100000, 6), (5403000, 100000, 7), (300, 50, 3)):
                parts += [digits(low + rng.integers(0, span, n), width), numpy.full((n, 1), ord(".")),
                          digits(rng.integers(0, 1000, n), 3), numpy.full((n, 1), ord(" "))]
            parts[-1] = numpy.full((n, 1), ord("\n"))
            out.write(numpy.hstack(parts).astype(numpy.uint8).tobytes())


def whole_process(command, runs, env):
    best = None
    for _ in range(runs):
        start = time.perf_counter()
        done = subprocess.run(command, capture_output=True, text=True, env=env)
        seconds = time.perf_counter() - start
        if done.returncode != 0:
            return None, (done.stderr.strip().splitlines() or ["failed"])[-1]
        best = seconds if best is None else min(best, seconds)
    return best, None


def readers(path, host):
    python = "/usr/bin/python3"
    return {
        "pallion": [python, "-c", f"import pallion; pallion.read_table({str(path)!r}).fields['Positions'].to_numpy()"],
        "C++ host": [str(host), str(path)],
        "numpy.loadtxt": [python, "-c", f"import numpy; numpy.loadtxt({str(path)!r})"],
        "pandas.read_csv": [python, "-c",
                            f"import pandas; pandas.read_csv({str(path)!r}, sep=' ', header=None, engine='c')"],
    }


def compare_readers(folder, rows, runs, host, env):
    path = folder / "points.txt"
    write_points(path, rows, 1)
    print(f"table: {rows} rows, {path.stat().st_size / 1e6:.1f} MB; whole process, best of {runs}, taking turns")
    commands = readers(path, host)
    best = {name: None for name in commands}
    for _ in range(runs):  # taking turns, so that a slow spell of the machine hits every reader alike
        for name, command in commands.items():
            seconds, problem = whole_process(command, 1, env)
            if problem:
                print(f"  {name:16s} not measured: {problem}")
                return
            best[name] = seconds if best[name] is None else min(best[name], seconds)
    for name, seconds in best.items():
        print(f"  {name:16s} {seconds:7.3f} s   pallion is {seconds / best['pallion']:5.2f}x as fast")
    print(f"  pallion / C++ host: {best['pallion'] / best['C++ host']:.3f} (target at most 1.05); "
          f"numpy.loadtxt / pallion: {best['numpy.loadtxt'] / best['pallion']:.2f} (target at least 3)")


def convert_and_sum(paths):
    import pallion

    return sum(pallion.read_table(path).fields["Positions"].to_numpy().sum(axis=0) for path in paths)


def compare_dask(folder, files, rows, workers, runs, saturation=None):
    import dask
    from distributed import Client, LocalCluster

    if saturation is not None:
        # The scheduler holds tasks without inputs back and hands them out as
        # workers free up (distributed.scheduler.worker-saturation, 1.1 by
        # default), which bounds the memory of many files; "inf" hands them
        # all out at once.
        dask.config.set({"distributed.scheduler.worker-saturation": saturation})

    import pallion
    import pallion.dask

    paths = [folder / f"part{i}.txt" for i in range(files)]
    for i, path in enumerate(paths):
        write_points(path, rows, 100 + i)

    def one_after_the_other_kept():
        return [pallion.read_table(path).fields["Positions"].to_numpy() for path in paths]

    def best_of(work):
        best = None
        for _ in range(runs):
            start = time.perf_counter()
            work()
            seconds = time.perf_counter() - start
            best = seconds if best is None else min(best, seconds)
        return best

    sequential = best_of(lambda: convert_and_sum(paths))
    with multiprocessing.get_context("spawn").Pool(workers) as pool:
        shares = [paths[k::workers] for k in range(workers)]
        pool.map(convert_and_sum, [[]] * workers)  # each process imports the package before the clock starts
        plain = best_of(lambda: pool.map(convert_and_sum, shares))
    sequential_kept = best_of(one_after_the_other_kept)
    with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address=None, silence_logs=40) as cluster, Client(cluster):
        reduced = best_of(lambda: pallion.dask.read_tables(paths)["Positions"].sum(axis=0).compute())
        gathered = best_of(lambda: pallion.dask.read_tables(paths)["Positions"].compute())
    settings = "" if saturation is None else f", worker-saturation {saturation}"
    print(f"dask: {files} files x {rows} rows, {workers} worker processes, best of {runs}{settings}")
    print(f"  converted and summed: one file after the other {sequential:7.3f} s, "
          f"dask {reduced:7.3f} s: {sequential / reduced:5.2f}x (target at least 1.7)")
    print(f"  the same in {workers} plain processes, no scheduler: {plain:7.3f} s: {sequential / plain:5.2f}x "
          f"(what the machine gives {workers} conversions at once)")
    print(f"  converted and gathered into one array on the client: one after the other {sequential_kept:7.3f} s, "
          f"dask {gathered:7.3f} s: {sequential_kept / gathered:5.2f}x")


BLOCKS = """
import sys, pallion
rows = total = 0
for block in pallion.iter_table(sys.argv[1], rows=int(sys.argv[2]), header=None, delimiter="space",
                                parse="Positions:point:0+1+2"):
    values = block["Positions"].to_numpy()
    rows, total = rows + len(values), total + float(values[:, 2].sum())
# VmHWM, not ru_maxrss: Linux keeps the parent's high-water mark in ru_maxrss across exec.
peak = next(line.split()[1] for line in open("/proc/self/status") if line.startswith("VmHWM:"))
print(rows, total, int(peak) // 1024)
"""


def blocks_memory(folder, rows, block_rows, env):
    path = folder / "blocks.txt"
    write_points(path, rows, seed=11)
    start = time.perf_counter()
    done = subprocess.run([sys.executable, "-c", BLOCKS, str(path), str(block_rows)], env=env, check=True,
                          capture_output=True, text=True)
    seconds = time.perf_counter() - start
    read, _, peak = done.stdout.split()
    print(f"iter_table: {int(read):,} rows ({path.stat().st_size / 2**20:,.0f} MiB) in blocks of {block_rows:,}: "
          f"peak resident {peak} MiB, {seconds:.1f} s")
    path.unlink()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--rows", type=int, default=10_000_000)
    parser.add_argument("--dask-rows", type=int, default=2_000_000)
    parser.add_argument("--files", type=int, default=8)
    parser.add_argument("--workers", type=int, default=2)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--host", type=pathlib.Path, default=ROOT / "build" / "release" / "apps" / "pallion" / "pallion")
    parser.add_argument("--keep", type=pathlib.Path, help="write the tables here and keep them")
    parser.add_argument("--skip-dask", action="store_true")
    parser.add_argument("--blocks-rows", type=int, default=70_000_000)
    parser.add_argument("--block-rows", type=int, default=1_000_000)
    parser.add_argument("--only", choices=("readers", "dask", "blocks"))
    parser.add_argument("--worker-saturation", type=float, help="the Dask scheduler's setting (default: its own)")
    args = parser.parse_args()

    env = dict(os.environ)
    env.setdefault("PYTHONPATH", str(ROOT / "build" / "release" / "python"))
    sys.path.insert(0, env["PYTHONPATH"])
    folder = args.keep or pathlib.Path(tempfile.mkdtemp(prefix="pallion-bench-"))
    folder.mkdir(parents=True, exist_ok=True)
    try:
        if args.only in (None, "readers"):
            compare_readers(folder, args.rows, args.runs, args.host, env)
        if args.only in (None, "dask") and not args.skip_dask:
            compare_dask(folder, args.files, args.dask_rows, args.workers, args.runs, args.worker_saturation)
        if args.only in (None, "blocks"):
            blocks_memory(folder, args.blocks_rows, args.block_rows, env)
    finally:
        if args.keep is None:
            shutil.rmtree(folder)


if __name__ == "__main__":
    main()
