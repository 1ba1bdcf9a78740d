"""Tables across a Dask cluster: one delayed conversion per partition, run
on the cluster's workers, and one dask array per field with one partition per
conversion.  A partition is a byte range of a large file (blocksize), a whole
file, or a group of small files.

    import dask, pallion.dask
    fields = pallion.dask.read_tables("scan.xyz", parse="Positions:point:0+1+2", blocksize="256MB")
    positions, = dask.compute(fields["Positions"])     # with a distributed Client, on its workers

Compute the fields you need in one dask.compute call: each partition is
then converted once, however many fields it gives.  The partitions' lengths are
known only once converted (dask's unknown chunk sizes); compute_chunk_sizes()
finds them.
"""
from __future__ import annotations

import errno
import os
from typing import Any, Dict, List, Optional, Sequence, Tuple, Union

from dask.array.core import concatenate, from_delayed
from dask.delayed import delayed
from dask.utils import parse_bytes

from . import _pallion, read_table
from ._errors import raise_for
from ._paths import expand_path


Partition = Tuple[List[bytes], Optional[Tuple[int, int]]]


def _convert(files: List[bytes], options: Dict[str, Any],
             byte_range: Optional[Tuple[int, int]] = None) -> Dict[str, Any]:
    # On a worker: the fields as plain arrays, which travel back pickled.  Each
    # partition converts on one thread: the partitions are the parallelism.
    grid = read_table(files, byte_range=byte_range, threads=1, **options)
    return {name: field.to_numpy() for name, field in grid.fields.items()}


def _field(converted: Dict[str, Any], name: str, empty: Any) -> Any:
    # A range with no line of its own (inside one long line) gives no rows.
    return converted[name] if name in converted else empty


def _blocksize(blocksize: Union[int, str, None]) -> Optional[int]:
    if blocksize is None:
        return None
    size = None
    if isinstance(blocksize, str):
        try:
            size = parse_bytes(blocksize)
        except ValueError:
            pass
    elif isinstance(blocksize, int) and not isinstance(blocksize, bool):
        size = blocksize
    if size is None or size < 1:
        raise ValueError(_pallion.texts["blocksize"] % (blocksize,))
    return size


def _header_end(path: bytes, header: int) -> int:
    # The first byte after the header's lines: only the range at byte 0 skips
    # them, so no other range may begin before it.
    with open(path, "rb") as file:
        for _ in range(header):
            if not file.readline():
                break
        return file.tell()


def _partitions(paths: List[bytes], files_per_partition: int, blocksize: Optional[int],
                header: int) -> List[Partition]:
    # In file order: a regular, uncompressed file larger than blocksize as
    # ranges of blocksize bytes that meet, the first stretched over the
    # header; the other files whole, consecutive ones grouped
    # files_per_partition at a time.
    partitions: List[Partition] = []
    group: List[bytes] = []
    for path in paths:
        size = os.path.getsize(path) if blocksize is not None and _pallion.readable_in_part(path) else 0
        if blocksize is None or size <= blocksize:
            group.append(path)
            if len(group) == files_per_partition:
                partitions.append((group, None))
                group = []
            continue
        if group:
            partitions.append((group, None))
            group = []
        first = _header_end(path, header) if header else 0
        begins = [0] + [begin for begin in range(blocksize, size, blocksize) if begin >= first]
        partitions += [([path], (begin, end)) for begin, end in zip(begins, begins[1:] + [size])]
    if group:
        partitions.append((group, None))
    return partitions


def read_tables(files: Any, parse: str = "auto", delimiter: str = "auto", header: Union[int, str, None] = "auto",
                block: Optional[int] = None, epsg: Optional[int] = None, files_per_partition: int = 1, *,
                strict: bool = True, usecols: Optional[Sequence[Union[int, str]]] = None,
                names: Optional[Sequence[str]] = None, comments: Optional[str] = None,
                skiprows: Optional[int] = None, blocksize: Union[int, str, None] = "256MB") -> Dict[str, Any]:
    """A dict field name -> dask array, in the order of `files` (patterns
    expanded in sorted order), equal to the fields of pallion.read_table of
    the same files.  A regular, uncompressed file larger than `blocksize`
    (bytes, or a size such as "256MB"; None: files whole) is split into
    partitions of about that many bytes, each the lines that start in its
    range; the other files make one partition per `files_per_partition` of
    them.  The arguments are those of pallion.read_table, and they are checked here,
    before anything is scheduled: a bad argument raises TypeError or
    ValueError, a file that does not exist FileNotFoundError, a wrong parse
    string ConversionError.  A failure of a conversion raises its
    ConversionError when the array is computed (without .grid, which stays on
    the worker)."""
    if isinstance(files_per_partition, bool) or not isinstance(files_per_partition, int) or files_per_partition < 1:
        raise ValueError(_pallion.texts["files_per_partition"] % (files_per_partition,))
    size = _blocksize(blocksize)
    items = [files] if isinstance(files, (str, bytes)) or hasattr(files, "__fspath__") else list(files)
    paths = [path for item in items for path in expand_path(item)]
    for path in paths:
        if not os.path.exists(path):
            raise FileNotFoundError(errno.ENOENT, os.strerror(errno.ENOENT), os.fsdecode(path))
    plan = _pallion.plan_table(paths, parse, delimiter, header, skiprows, block, epsg, comments, names, usecols,
                               strict)
    if plan.failure is not None:
        raise_for(plan.failure, None)
    # What "auto" stood for, guessed once from the first file, so that every worker converts alike.
    options = {"parse": plan.parse, "delimiter": plan.delimiter, "header": plan.header, "block": block,
               "epsg": epsg, "strict": strict, "comments": comments}
    # Not pure: a file may change between two calls, so a conversion's result
    # is never taken from an earlier one with the same arguments.
    conversions = [delayed(_convert, pure=False)(group, options, byte_range)
                   for group, byte_range in _partitions(paths, files_per_partition, size, plan.header)]
    arrays = {}
    for name, empty in plan.fields:
        parts = [from_delayed(delayed(_field, pure=True)(conversion, name, empty),
                                         shape=(float("nan"),) + empty.shape[1:], dtype=empty.dtype)
                 for conversion in conversions]
        arrays[name] = concatenate(parts) if len(parts) > 1 else parts[0]
    return arrays
