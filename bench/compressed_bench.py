"""Compressed tables against the plain one: the command-line host converts the
10 M-row xyz table (the one of python_bench.py) as it is, as .zst and as .gz,
whole process, best of --runs (3), taking turns, and prints the times and
their ratio to the plain file's, and the CPU time of the best run of each
(user and system, all threads): on a machine that others share, that tells
the work apart from the waiting.

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
        best = {f: None for f in files}
        cpu = {}
        for _ in range(args.runs):
            for f in files:
                before = resource.getrusage(resource.RUSAGE_CHILDREN)
                start = time.perf_counter()
                done = subprocess.run([args.host, "-q", str(f)], capture_output=True, text=True)
                seconds = time.perf_counter() - start
                after = resource.getrusage(resource.RUSAGE_CHILDREN)
                used = after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime
                if done.returncode != 0:
                    sys.exit(f"{f.name}: {done.stderr.strip()}")
                if best[f] is None or seconds < best[f]:
                    best[f], cpu[f] = seconds, used
        print(f"table: {args.rows} rows; whole process, best of {args.runs}, taking turns")
        for f in files:
            print(f"{f.name:16} {f.stat().st_size / 1e6:8.1f} MB  {best[f]:6.3f} s  {best[f] / best[plain]:5.2f}x"
                  f"  cpu {cpu[f]:6.3f} s")


if __name__ == "__main__":
    main()
