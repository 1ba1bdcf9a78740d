"""Delimited text tables and trajectory files into numpy arrays.

    import pallion
    grid = pallion.read_table("points.txt", parse="Positions:point:0+1+2,Intensity:float:3")
    xyz = grid.fields["Positions"].to_numpy()      # (n, 3) float64, a view of the converted rows

The arrays are views of the memory the library wrote the rows into: nothing is
copied, and an array keeps that memory alive after the grid is gone.  The
conversion runs without the GIL; ``progress`` is called with it held.
"""
from ._errors import ConversionError, TokenError, TokenOverflowError, raise_for
from ._grid import Field, Grid, Note
from . import _pallion

__all__ = ["read_table", "read_trajectories", "Grid", "Field", "Note",
           "ConversionError", "TokenError", "TokenOverflowError"]

DEFAULT_PARSE = "Positions:point:0+1+2"


def read_table(files, parse=DEFAULT_PARSE, delimiter=" ", header=0, block=None, epsg=None, progress=None):
    """Converts one or more delimited text tables into a Grid.

    files      a path (str or os.PathLike) or a list of them, read in order into the same fields
    parse      which columns go to which field with which type, e.g.
               "Positions:point:0+1+2,Colours:rgb:3+4+5,Intensity:float:6"; columns
               may be given by their header names ("Positions:point:X+Y+Z")
    delimiter  one character, or "tab", "comma", "semicolon", "space", "pipe"
    header     lines skipped at the head of every file
               Each of these three may be "auto": guessed from the first lines of
               the first file as the command-line host guesses it (parse="auto"
               builds the fields from the header's names); Grid.guessed tells what.
    block      rows per fragment; None judges it from the files' sizes
    epsg       the data's EPSG code, kept as the grid's "EPSG" attribute
    progress   None, or a callable progress(rows_read, rows_judged) called now and then

    Raises ConversionError on a failure of the conversion (TokenError, a
    ValueError, or TokenOverflowError, an OverflowError, when a token is no
    number or too large), with the file, line, token and hints, and with what
    was converted until then as .grid.  Bad arguments raise TypeError or
    ValueError before any file is opened.
    """
    return _finish(_pallion.read_table(files, parse, delimiter, header, block, epsg, progress))


def read_trajectories(files, progress=None):
    """Loads trajectory files (.txt, .pof, .pofx) into one Grid, with what
    their names say (project, date, EPSG codes) as the grid's attributes."""
    return _finish(_pallion.read_trajectories(files, progress))


def _finish(outcome):
    grid = Grid(outcome["grid"], outcome["guessed"])
    if outcome["raised"] is not None or outcome["kind"]:
        raise_for(outcome, grid)
    return grid
