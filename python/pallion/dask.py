"""Many tables across a Dask cluster: one delayed conversion per file (or per
group of files), run on the cluster's workers, and one dask array per field
with one partition per conversion.

    import dask, pallion.dask
    fields = pallion.dask.read_tables(sorted(glob.glob("tables/*.txt")), parse="Positions:point:0+1+2")
    positions, = dask.compute(fields["Positions"])     # with a distributed Client, on its workers

Compute the fields you need in one dask.compute call: each file is then
converted once, however many fields it gives.  The partitions' lengths are
known only once converted (dask's unknown chunk sizes); compute_chunk_sizes()
finds them.
"""
import operator

import dask
import dask.array

from . import DEFAULT_PARSE, ConversionError, read_table
from . import _pallion


def _convert(files, parse, delimiter, header, block, epsg):
    # On a worker: the fields as plain arrays, which travel back pickled.
    grid = read_table(files, parse=parse, delimiter=delimiter, header=header, block=block, epsg=epsg)
    return {name: field.to_numpy() for name, field in grid.fields.items()}


def read_tables(files, parse=DEFAULT_PARSE, delimiter=" ", header=0, block=None, epsg=None, files_per_partition=1):
    """A dict field name -> dask array, one partition per `files_per_partition`
    files, in the order of `files`.  The arguments are those of
    pallion.read_table, and they are checked here, before anything is
    scheduled: a bad argument raises TypeError or ValueError, a wrong parse
    string ConversionError.  A failure of a conversion raises its
    ConversionError when the array is computed (without .grid, which stays on
    the worker)."""
    if isinstance(files_per_partition, bool) or not isinstance(files_per_partition, int) or files_per_partition < 1:
        raise ValueError(_pallion.texts["files_per_partition"] % (files_per_partition,))
    plan = _pallion.plan_table(files, parse, delimiter, header, block, epsg)
    if plan["failure"]:
        raise ConversionError(plan["failure"].strip("\n"))
    # What "auto" stood for, guessed once from the first file, so that every worker converts alike.
    paths, parse, delimiter, header = plan["files"], plan["parse"], plan["delimiter"], plan["header"]
    groups = [paths[i:i + files_per_partition] for i in range(0, len(paths), files_per_partition)]
    # Not pure: a file may change between two calls, so a conversion's result
    # is never taken from an earlier one with the same arguments.
    conversions = [dask.delayed(_convert, pure=False)(group, parse, delimiter, header, block, epsg)
                   for group in groups]
    arrays = {}
    for name, empty in plan["fields"]:
        parts = [dask.array.from_delayed(dask.delayed(operator.getitem, pure=True)(conversion, name),
                                         shape=(float("nan"),) + empty.shape[1:], dtype=empty.dtype)
                 for conversion in conversions]
        arrays[name] = dask.array.concatenate(parts) if len(parts) > 1 else parts[0]
    return arrays
