"""Compressed tables against the plain one: the command-line host converts the
10 M-row xyz table (the one of python_bench.py) as it is, as .zst and as .gz,
whole process, best of --runs (3), taking turns, and prints the times and
their ratio to the plain file's, and the CPU time of the best run of each
(user and system, all threads): on a machine that others share, that tells
the work apart from the waiting.

A compressed file is read by one conversion beside one decompressing thread,
while the plain file is split among the cores (--threads, default all of
them).  So the plain file is also run with --threads 1, the same one
conversion thread, and the bare decompressors (zstd -dc, gzip -dc into
/dev/null) are timed as the floor that no reader of the file goes under: on a
2-core machine, decompressing a one-frame .zst alone takes longer than
converting the plain file on both cores.

    /usr/bin/python3 bench/compressed_bench.py [--rows N] [--runs N] [--host build/release/apps/pallion/pallion]
"""
import argparse
import pathlib
import resource
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from python_bench import ROOT, write_points  # noqa: E402

COMPRESSORS = ((".zst", ["zstd", "-q", "-k", "-f"]), (".gz", ["gzip", "-k", "-f"]))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rows", type=int, default=10_000_000)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--host", default=str(ROOT / "build/release/apps/pallion/pallion"))
    args = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        plain = pathlib.Path(folder) / "points.xyz"
        write_points(plain, args.rows, 1)
        files = [plain]
        for suffix, command in COMPRESSORS:
            subprocess.run(command + [str(plain)], check=True)
            files.append(plain.with_name(plain.name + suffix))
        runs = [("plain", [args.host, "-q", str(plain)]),
                ("plain, --threads 1", [args.host, "-q", "--threads", "1", str(plain)])]
        runs += [(f.name[len(plain.name):], [args.host, "-q", str(f)]) for f in files[1:]]
        runs += [(f"{command[0]} -dc alone", [command[0], "-dc", str(plain) + suffix]) for suffix, command in COMPRESSORS]
        best, cpu = {}, {}
        # The bare decompressors first, then the program's runs one after the other, every other round in
        # reverse: on a virtual machine that hands freed memory back to its host, a run right after one that
        # freed as much finds its pages at once, and one after a pause (a decompressor's) pays for them again.
        floors, hosted = runs[-len(COMPRESSORS):], runs[:-len(COMPRESSORS)]
        for round in range(args.runs):
            for name, command in floors + (hosted if round % 2 == 0 else hosted[::-1]):
                before = resource.getrusage(resource.RUSAGE_CHILDREN)
                start = time.perf_counter()
                done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
                seconds = time.perf_counter() - start
                after = resource.getrusage(resource.RUSAGE_CHILDREN)
                used = after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime
                if done.returncode != 0:
                    sys.exit(f"{name}: {done.stderr.strip()}")
                if name not in best or seconds < best[name]:
                    best[name], cpu[name] = seconds, used
        sizes = {"plain": plain.stat().st_size}
        sizes.update({f.name[len(plain.name):]: f.stat().st_size for f in files[1:]})
        print(f"table: {args.rows} rows; whole process, best of {args.runs}, taking turns")
        print(f"{'':22} {'MB':>8} {'time':>8}  {'/ plain':>8} {'/ 1 thread':>10}  {'cpu':>7}")
        for name, _ in runs:
            size = f"{sizes[name] / 1e6:8.1f}" if name in sizes else " " * 8
            print(f"{name:22} {size} {best[name]:6.3f} s  {best[name] / best['plain']:7.2f}x"
                  f" {best[name] / best['plain, --threads 1']:9.2f}x  {cpu[name]:6.3f} s")
        print("targets: .zst within 1.25x, .gz within 2x of the plain file")

if __name__ == "__main__":
    main()
