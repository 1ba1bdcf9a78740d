"""Many tables across a Dask cluster: one delayed conversion per file (or per
group of files), run on the cluster's workers, and one dask array per field
with one partition per conversion.

    import dask, pallion.dask
    fields = pallion.dask.read_tables("tables/*.txt", parse="Positions:point:0+1+2")
    positions, = dask.compute(fields["Positions"])     # with a distributed Client, on its workers

Compute the fields you need in one dask.compute call: each file is then
converted once, however many fields it gives.  The partitions' lengths are
known only once converted (dask's unknown chunk sizes); compute_chunk_sizes()
finds them.
"""
from __future__ import annotations

import errno
import operator
import os
from typing import Any, Dict, List, Optional, Sequence, Union

from dask.array.core import concatenate, from_delayed
from dask.delayed import delayed

from . import _pallion, read_table
from ._errors import raise_for
from ._paths import expand_path


def _convert(files: List[bytes], options: Dict[str, Any]) -> Dict[str, Any]:
    # On a worker: the fields as plain arrays, which travel back pickled.
    grid = read_table(files, **options)
    return {name: field.to_numpy() for name, field in grid.fields.items()}


def read_tables(files: Any, parse: str = "auto", delimiter: str = "auto", header: Union[int, str, None] = "auto",
                block: Optional[int] = None, epsg: Optional[int] = None, files_per_partition: int = 1, *,
                strict: bool = True, usecols: Optional[Sequence[Union[int, str]]] = None,
                names: Optional[Sequence[str]] = None, comments: Optional[str] = None,
                skiprows: Optional[int] = None) -> Dict[str, Any]:
    """A dict field name -> dask array, one partition per `files_per_partition`
    files, in the order of `files` (patterns expanded in sorted order).  The
    arguments are those of pallion.read_table, and they are checked here,
    before anything is scheduled: a bad argument raises TypeError or
    ValueError, a file that does not exist FileNotFoundError, a wrong parse
    string ConversionError.  A failure of a conversion raises its
    ConversionError when the array is computed (without .grid, which stays on
    the worker)."""
    if isinstance(files_per_partition, bool) or not isinstance(files_per_partition, int) or files_per_partition < 1:
        raise ValueError(_pallion.texts["files_per_partition"] % (files_per_partition,))
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
    groups = [paths[i:i + files_per_partition] for i in range(0, len(paths), files_per_partition)]
    # Not pure: a file may change between two calls, so a conversion's result
    # is never taken from an earlier one with the same arguments.
    conversions = [delayed(_convert, pure=False)(group, options) for group in groups]
    arrays = {}
    for name, empty in plan.fields:
        parts = [from_delayed(delayed(operator.getitem, pure=True)(conversion, name),
                                         shape=(float("nan"),) + empty.shape[1:], dtype=empty.dtype)
                 for conversion in conversions]
        arrays[name] = concatenate(parts) if len(parts) > 1 else parts[0]
    return arrays
