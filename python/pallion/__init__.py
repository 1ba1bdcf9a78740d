"""Delimited text tables and trajectory files into numpy arrays.

    import pallion
    grid = pallion.read_table("points.txt")            # delimiter, header and fields guessed
    xyz = grid["Positions"].to_numpy()                 # (n, 3) float64, a view of the converted rows

The arrays are views of the memory the library wrote the rows into: nothing is
copied, and an array keeps that memory alive after the grid is gone.  The
conversion runs without the GIL; ``progress`` is called with it held.
"""
from __future__ import annotations

import os
from typing import Any, Callable, Iterable, List, NamedTuple, Optional, Sequence, Tuple, Union

from . import _pallion
from ._errors import (ArgumentsError, ConversionError, ConversionFileNotFoundError, ConversionIsADirectoryError,
                      ConversionOpenError, ConversionPermissionError, OutputError, TokenError, TokenOverflowError,
                      raise_for)
from ._grid import Field, Grid, Note, las_scale_text
from ._paths import Files
from ._version import __version__

__all__ = ["read_table", "iter_table", "convert", "Converted", "OutputError", "ArgumentsError", "read_trajectories", "Grid", "Field", "Note", "ConversionError", "TokenError",
           "TokenOverflowError", "ConversionFileNotFoundError", "ConversionPermissionError",
           "ConversionIsADirectoryError", "ConversionOpenError", "__version__"]

AUTO = "auto"


def read_table(files: Any, parse: str = AUTO, delimiter: str = AUTO, header: Union[int, str, None] = AUTO,
               block: Optional[int] = None, epsg: Optional[int] = None,
               progress: Optional[Callable[[int, int], Any]] = None, *, strict: bool = True,
               usecols: Optional[Sequence[Union[int, str]]] = None, names: Optional[Sequence[str]] = None,
               comments: Optional[str] = None, skiprows: Optional[int] = None,
               max_rows: Optional[int] = None, byte_range: Optional[Tuple[int, Optional[int]]] = None,
               threads: Optional[int] = None) -> Grid:
    """Converts one or more delimited text tables into a Grid.

    files      a path (str, bytes or os.PathLike; ~ and the patterns * ? [ expanded,
               in sorted order), a file object with read() or fileno(), or a list of
               them, read in order into the same fields
    parse      which columns go to which field with which type, e.g.
               "Positions:point:0+1+2,Colours:rgb:3+4+5,Intensity:float:6"; columns
               may be given by their header names ("Positions:point:X+Y+Z")
    delimiter  one character, or "tab", "comma", "semicolon", "space", "pipe", "whitespace"
    header     lines at the head of every file, the last of them the names; None: no header
               parse, delimiter and header may be "auto": guessed from the first lines of
               the first file (parse="auto" builds the fields from the names); Grid.guessed
               tells what
    block      rows per block, stored as one fragment of every field; None judges it
               from the files' sizes
    epsg       the data's EPSG code, kept as the grid's "EPSG" attribute
    progress   None, or a callable progress(rows_read, rows_judged) called now and then
    strict     every token must be a number in full that fits its type (False: the plain
               reading, which stores the number a token begins with)
    usecols    the columns to read, by number or name: one double field each
    names      the columns' names of a table without a header
    comments   lines that begin with this prefix are skipped
    skiprows   lines skipped at the head of every file, before the header
    max_rows   at most this many rows
    byte_range (begin, end): of each file, only the lines that start in bytes
               [begin, end) (end None: to the file's end); a range that begins
               inside a line begins at the next, the line that straddles end is
               read whole, and the header is skipped only where begin is 0.
               Ranges that meet read every line once.  delimiter, header and
               parse are still guessed from the file's start, and a failure's
               line counts from the file's first line.  Regular, uncompressed
               files only.
    threads    threads that convert one large regular file side by side, into the same
               grid as one thread gives; None: the machine's cores.  Standard input,
               pipes, compressed and small files, and a byte_range, are read
               by one thread

    Raises ConversionError (or a subclass) on a failure of the conversion, with
    .file, .line, .column, .token and .hints where known and what was converted
    until then as .grid: TokenError (a ValueError) or TokenOverflowError (an
    OverflowError) for a token, FileNotFoundError, PermissionError or
    IsADirectoryError for a file that cannot be opened.  Bad arguments raise
    TypeError or ValueError before any file is opened.
    """
    if max_rows is not None:
        if byte_range is not None:
            raise ValueError(_pallion.texts["byte_range_with_max_rows"])
        from ._blocks import first_rows

        return first_rows(max_rows, files, parse=parse, delimiter=delimiter, header=header, epsg=epsg,
                          strict=strict, usecols=usecols, names=names, comments=comments, skiprows=skiprows)
    if not isinstance(strict, bool):
        raise TypeError(f"strict: expected a bool, not {type(strict).__name__}")
    with Files(files) as opened:
        outcome = _pallion.read_table(opened.names(), parse, delimiter, header, skiprows, block, epsg, comments,
                                      names, usecols, strict, progress, byte_range, threads)
    return _finish(outcome)


class Converted(NamedTuple):
    """What convert() wrote: the rows, the fields' names, the output file and
    the notes on what the file holds otherwise than the table (LAS rounding)."""
    rows: int
    fields: List[str]
    output: str
    notes: List[str]


def convert(files: Any, output: Any, parse: str = AUTO, delimiter: str = AUTO, header: Union[int, str, None] = AUTO,
            block: Optional[int] = None, epsg: Optional[int] = None,
            progress: Optional[Callable[[int, int], Any]] = None, *, strict: bool = True,
            usecols: Optional[Sequence[Union[int, str]]] = None, names: Optional[Sequence[str]] = None,
            comments: Optional[str] = None, skiprows: Optional[int] = None, las_scale: Any = None,
            threads: Optional[int] = None) -> Converted:
    """Converts tables straight into a file, by its extension: .ply, .h5
    (.hdf5) or .las (see Grid.to_ply, to_h5, to_las).  Each block is written
    as it is converted and then let go, so memory holds a few blocks whatever
    the tables' size.  The keywords are read_table's; las_scale is to_las's.
    The file takes its name only once everything was converted and written.

    Raises what read_table raises for a conversion that stops (its .grid
    holds no blocks), and OutputError where the file cannot be written.
    """
    if not isinstance(strict, bool):
        raise TypeError(f"strict: expected a bool, not {type(strict).__name__}")
    path = os.fspath(output)
    path = os.fsdecode(path) if isinstance(path, bytes) else path
    with Files(files) as opened:
        outcome, failure, notes, rows, fields = _pallion.convert_table(
            opened.names(), path, parse, delimiter, header, skiprows, block, epsg, comments, names, usecols, strict,
            progress, las_scale_text(las_scale), threads)
    _finish(outcome)
    if failure:
        raise OutputError(failure)
    return Converted(rows, list(fields), path, list(notes))


def read_trajectories(files: Any, progress: Optional[Callable[[int, int], Any]] = None) -> Grid:
    """Loads trajectory files (.txt, .pof, .pofx) into one Grid, with what
    their names say (project, date, EPSG codes) as the grid's attributes."""
    # Their names say what they hold: file objects, which have none, are refused.
    return _finish(_pallion.read_trajectories(Files(files, objects=False).names(), progress))


def iter_table(files: Any, rows: int = 1_000_000, **options: Any) -> Iterable[Grid]:
    """Grids of at most `rows` rows each, in file order, from the same options
    as read_table; about two blocks are held at a time.  See read_table."""
    from ._blocks import iter_table as blocks

    return blocks(files, rows, **options)


def _finish(outcome: Any) -> Grid:
    grid = Grid._from_handle(outcome.grid, outcome.guessed)
    raise_for(outcome, grid)
    return grid
