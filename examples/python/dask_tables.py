"""Converts one large table, or every table of a folder, on a Dask cluster,
and prints what each field holds.  A file larger than --blocksize is split
into byte ranges of about that size, one partition each.

    python3 dask_tables.py PATH [--blocksize 256MB] [--scheduler tcp://host:8786] [--parse ...] [--header N]

Without --scheduler it starts a local cluster of worker processes on this
machine (--workers, default 2).  Every worker must be able to import pallion
and read the files under the same path.
"""
import argparse
import pathlib
import time

from typing import Any, Optional

from dask.base import compute
from distributed import Client, LocalCluster

import pallion.dask


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("path", type=pathlib.Path, help="a table, or a folder of tables")
    parser.add_argument("--scheduler", help="address of a running scheduler (default: a local cluster)")
    parser.add_argument("--workers", type=int, default=2, help="worker processes of the local cluster")
    parser.add_argument("--pattern", default="*.txt", help="the tables of a folder")
    parser.add_argument("--blocksize", default="256MB", help="bytes of a partition of a large file, or none")
    parser.add_argument("--parse", default="auto")
    parser.add_argument("--delimiter", default="auto")
    parser.add_argument("--header", default="auto", help="lines at the head, or auto")
    args = parser.parse_args()

    files = sorted(args.path.glob(args.pattern)) if args.path.is_dir() else [args.path]
    if not files:
        parser.error(f"no {args.pattern} in {args.path}")
    blocksize: Any = None if args.blocksize == "none" else args.blocksize
    header: Any = int(args.header) if args.header.isdigit() else args.header
    cluster: Optional[Any] = None
    client: Any
    if args.scheduler:
        client = Client(args.scheduler)
    else:
        cluster = LocalCluster(n_workers=args.workers, threads_per_worker=1, processes=True, dashboard_address=None)
        client = Client(cluster)
    try:
        start = time.perf_counter()
        fields = pallion.dask.read_tables(files, parse=args.parse, delimiter=args.delimiter, header=header,
                                          blocksize=blocksize)
        names = list(fields)
        partitions = next(iter(fields.values())).numblocks[0]
        values = compute(*fields.values())  # one conversion per partition, whatever the number of fields
        seconds = time.perf_counter() - start
        print(f"{len(files)} file(s) in {partitions} partition(s) on {len(client.scheduler_info()['workers'])} "
              f"workers in {seconds:.2f} s")
        for name, array in zip(names, values):
            print(f"{name:12s} {array.dtype}  {array.shape}  min {array.min(axis=0)}  max {array.max(axis=0)}")
    finally:
        client.close()
        if cluster is not None:
            cluster.close()


if __name__ == "__main__":
    main()
