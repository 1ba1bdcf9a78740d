"""Whether the command-line host writes a table far larger than its memory limit in bounded memory: an 80 M-row
xyz table (about 2.5 GB of text, 1.9 GB of points) converted to .las, .ply and .h5, each run's peak resident
memory against a limit (600 MiB).  Not a timed test: a check for the lead to run by hand, once the conversion
hands its blocks to the writer and lets them go.

    /usr/bin/python3 bench/bounded_memory.py PALLION [--rows N (80 M)] [--limit MiB (600)] [--folder DIR (/tmp)]
                                                     [--formats las,ply,h5] [--keep]

The table is written to the folder once (and kept with --keep, to be reused); the outputs are removed after
each run.  Exits 1 where a run fails or goes over the limit."""
import argparse
import pathlib
import sys

from write_bench import measure, write_table


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("pallion")
    parser.add_argument("--rows", type=int, default=80_000_000)
    parser.add_argument("--limit", type=float, default=600)
    parser.add_argument("--folder", default="/tmp")
    parser.add_argument("--formats", default="las,ply,h5")
    parser.add_argument("--keep", action="store_true")
    options = parser.parse_args()
    folder = pathlib.Path(options.folder)
    table = folder / f"xyz_{options.rows}.txt"
    if not table.exists():
        print(f"writing {table} ...", flush=True)
        write_table(table, options.rows)
    host = [options.pallion, "-q", "--header", "0", "--delimiter", "space", "--parse", "Positions:point:0+1+2"]
    over = False
    try:
        for kind in options.formats.split(","):
            output = folder / f"bounded_memory_out.{kind}"
            seconds, peak, _ = measure(host + ["-o", str(output), str(table)])
            size = output.stat().st_size / 1e9
            output.unlink()
            verdict = "within" if peak < options.limit else "OVER"
            over |= peak >= options.limit
            print(f".{kind}: {seconds:7.1f} s, {size:.2f} GB written, peak {peak:6.0f} MiB, {verdict} the limit of "
                  f"{options.limit:.0f} MiB")
    finally:
        if not options.keep:
            table.unlink()
    sys.exit(1 if over else 0)


if __name__ == "__main__":
    main()
