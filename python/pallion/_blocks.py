"""A table read block by block: iter_table, and read_table's max_rows."""
from __future__ import annotations

from typing import Any, Dict, Generator, List, Optional, Sequence, Tuple, Union

from . import _pallion
from ._errors import raise_for
from ._grid import Field, Grid
from ._paths import Files


def iter_table(files: Any, rows: int = 1_000_000, *, parse: str = "auto", delimiter: str = "auto",
               header: Union[int, str, None] = "auto", skiprows: Optional[int] = None,
               comments: Optional[str] = None, names: Optional[Sequence[str]] = None,
               usecols: Optional[Sequence[Union[int, str]]] = None, strict: bool = True,
               epsg: Optional[int] = None) -> Generator[Grid, None, None]:
    if isinstance(rows, bool) or not isinstance(rows, int) or rows < 1:
        raise ValueError(_pallion.texts["rows_per_block"] % (rows,))
    attributes = {} if epsg is None else {"EPSG": epsg}
    with Files(files) as opened:
        blocks = _pallion.TableBlocks(opened.names(), parse, delimiter, header, skiprows, rows, comments, names,
                                      usecols, strict)
        try:
            while True:
                fields = blocks.next()
                if fields is None:
                    break
                yield Grid([Field(data.name, data.type, data.components, data.empty, data.fragments)
                            for data in fields], attributes)
            outcome = blocks.outcome()
            raise_for(outcome, Grid([], attributes, (), outcome.guessed))
        finally:
            blocks.close()


def first_rows(max_rows: int, files: Any, epsg: Optional[int] = None, **options: Any) -> Grid:
    """The first `max_rows` rows as one Grid; the conversion stops once they are read."""
    if isinstance(max_rows, bool) or not isinstance(max_rows, int) or max_rows < 0:
        raise ValueError(_pallion.texts["rows_per_block"].replace("rows", "max_rows") % (max_rows,))
    parts: Dict[str, List[Tuple[str, List[Any]]]] = {}
    kinds: Dict[str, Field] = {}
    left = max_rows
    blocks = iter_table(files, max(1, min(max_rows, 1_000_000)), epsg=epsg, **options)
    try:
        for block in blocks:
            if left == 0:
                break
            taken = 0
            for name, field in block.items():
                kinds.setdefault(name, field)
                values = field.to_numpy()[:left]
                taken = len(values)
                parts.setdefault(name, []).append((next(iter(field.fragments), ""), [values]))
            left -= taken
    finally:
        blocks.close()
    attributes = {} if epsg is None else {"EPSG": epsg}
    return Grid([Field(name, kind.type, kind.components, kind._empty, parts[name]) for name, kind in kinds.items()],
                attributes)
