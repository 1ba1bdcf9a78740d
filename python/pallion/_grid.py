"""The grid a conversion made, and its fields: numpy views of the converted
memory, with numpy's and Python's container protocols, pickled by value."""
from __future__ import annotations

import datetime
import os
from collections.abc import Mapping
from types import MappingProxyType
from typing import Any, Dict, Iterator, List, NamedTuple, Optional, Sequence, Tuple

from . import _pallion
from ._errors import OutputError

# numpy is imported where it is used, not with the package: a conversion
# loads it beside its own work (see the compiled module), so that a script's
# first conversion does not wait for it.


class Note(NamedTuple):
    converter: str
    text: str


class Field:
    """One field of a grid: its element type as in the parse string ("point",
    "tvector", "rgb", "double", "float", "int", "uint8_t", "uint16_t",
    "uint32_t"), and its fragments, one numpy array per block of rows.

    Point and tvector arrays are (n, 3) float64, rgb (n, 3) uint8, scalars
    1-D of their own type.  They are views of the converted memory and keep
    it alive on their own.  numpy takes a Field as an array (numpy.asarray,
    numpy.mean): the same view or copy as to_numpy().
    """

    def __init__(self, name: str, type: Optional[str], components: Sequence[str], empty: Any,
                 fragments: Sequence[Tuple[str, Sequence[Any]]]) -> None:
        import numpy

        self.name = name
        self.type = type
        self.components = tuple(components)
        self._empty = empty if empty is not None else numpy.empty(0)
        # The arrays in the order stored; in .fragments, fragments that share a
        # name are joined in that order.
        self._stored = [(fragment, array) for fragment, arrays in fragments for array in arrays]
        joined: Dict[str, List[Any]] = {}
        for fragment, array in self._stored:
            joined.setdefault(fragment, []).append(array)
        self.fragments = MappingProxyType({
            fragment: arrays[0] if len(arrays) == 1 else numpy.concatenate(arrays)
            for fragment, arrays in joined.items()})

    def __len__(self) -> int:
        return sum(len(array) for array in self.fragments.values())

    def __repr__(self) -> str:
        return f"<pallion.Field {self.name!r} {self.type} x {len(self)} in {len(self.fragments)} fragment(s)>"

    def __reduce__(self) -> Any:
        # By value: the arrays travel as their bytes, not as views.
        return Field, (self.name, self.type, self.components, self._empty,
                       [(name, [array]) for name, array in self._stored])

    @property
    def dtype(self) -> Any:
        return self._empty.dtype

    @property
    def shape(self) -> Tuple[int, ...]:
        return (len(self),) + tuple(self._empty.shape[1:])

    @property
    def ndim(self) -> int:
        return int(self._empty.ndim)

    def __array__(self, dtype: Any = None, copy: Optional[bool] = None) -> Any:
        values = self.to_numpy()
        if copy:
            values = values.copy()
        return values if dtype is None else values.astype(dtype, copy=False)

    def to_numpy(self) -> Any:
        """All fragments as one array: a view when one fragment holds every element
        (the empty block that follows a full one counts for nothing), else one copy."""
        arrays = [array for _, array in self._stored if len(array)]
        if len(arrays) == 1:
            return arrays[0]
        if not arrays:
            return self._empty
        import numpy

        return numpy.concatenate(arrays)


def _python_value(name: str, value: Any) -> Any:
    """An attribute in Python's types: a date as datetime.date, codes as int."""
    if isinstance(value, list):
        return [_python_value(name, item) for item in value]
    if name == "Date" and isinstance(value, str):
        try:
            return datetime.datetime.strptime(value, "%d.%m.%Y").date()
        except ValueError:
            return value
    return value


def las_scale_text(scale: Any) -> Optional[str]:
    """None, one number, or three (sx, sy, sz) as the text the writer reads."""
    if scale is None or isinstance(scale, str):
        return scale
    if isinstance(scale, (int, float)):
        return repr(float(scale))
    return ",".join(repr(float(value)) for value in scale)


class Grid(Mapping):  # type: ignore[type-arg]
    """What a conversion made: a mapping of field name -> Field, in the grid's order.

    attributes  name -> value (EPSG, Date as datetime.date, WeekDay, ...); a list where a name holds several
    notes       the texts converters noted, as Note(converter, text)
    guessed     what was guessed for the options given as "auto", one line each
    """

    def __init__(self, fields: Sequence[Field], attributes: Optional[Dict[str, Any]] = None,
                 notes: Sequence[Tuple[str, str]] = (), guessed: Sequence[str] = ()) -> None:
        self.fields = MappingProxyType({field.name: field for field in fields})
        self.attributes = {name: _python_value(name, value) for name, value in (attributes or {}).items()}
        self.notes = [Note(*note) for note in notes]
        self.guessed = list(guessed)
        self._handle: Any = None

    @classmethod
    def _from_handle(cls, handle: Any, guessed: Sequence[str] = ()) -> "Grid":
        fields = [Field(data.name, data.type, data.components, data.empty, data.fragments)
                  for data in handle.fields()]
        grid = cls(fields, handle.attributes(), handle.notes(), guessed)
        grid._handle = handle
        return grid

    def __getitem__(self, name: str) -> Field:
        return self.fields[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self.fields)

    def __len__(self) -> int:
        return len(self.fields)

    def __reduce__(self) -> Any:
        return Grid, (list(self.fields.values()), self.attributes, [tuple(note) for note in self.notes],
                      self.guessed)

    def __repr__(self) -> str:
        fields = ", ".join(f"{name}: {field.type} x {len(field)}" for name, field in self.fields.items())
        return f"<pallion.Grid {fields}>"

    def to_pandas(self, copy: bool = True) -> Any:
        """One DataFrame of all fields; a field of three components gives three
        columns (Positions.x, Positions.y, Positions.z).  Every field must hold
        the same number of elements.  With copy=False the columns share the
        fields' memory where a field is one fragment.  df.attrs holds the
        grid's attributes."""
        import pandas

        counts = {name: len(field) for name, field in self.fields.items()}
        if len(set(counts.values())) > 1:
            listed = ", ".join(f"{name}: {count}" for name, count in counts.items())
            raise ValueError(_pallion.texts["unequal_counts"] % listed)
        columns = {}
        for name, field in self.fields.items():
            values = field.to_numpy()
            if values.ndim == 1:
                columns[name] = values
            else:
                for i, component in enumerate(field.components):
                    columns[f"{name}.{component}"] = values[:, i]
        frame = pandas.DataFrame(columns, copy=copy)
        frame.attrs.update(self.attributes)
        return frame

    def to_ply(self, path: Any) -> None:
        """Writes the grid as binary PLY: one vertex per row, the first point
        field as x, y, z, the first rgb field as red, green, blue, the first
        tvector field as nx, ny, nz and every other field as properties of its
        own type.  Raises OutputError where it cannot be written."""
        self._write("to_ply", path, ".ply", None)

    def to_h5(self, path: Any) -> None:
        """Writes the whole grid as HDF5: a group per field with its dataset
        "values" and the attributes "type", "fragments" and "counts", the
        grid's attributes on the root and its notes in the group "notes".
        Raises OutputError where it cannot be written."""
        self._write("to_h5", path, ".h5", None)

    def to_las(self, path: Any, las_scale: Any = None) -> List[str]:
        """Writes the grid as LAS 1.4 (point format 6, or 7 with an rgb field):
        the first point field as X, Y, Z at the scale 10^-d of the most
        decimals in each axis (every coordinate reads back as it was written),
        fields named after a standard dimension into it, every other field as
        extra bytes, EPSG as WKT.  las_scale: one scale for x, y and z, or
        three.  Gives the notes on what the file holds otherwise than the grid
        (rounding, no WKT); raises OutputError where it cannot be written."""
        return self._write("to_las", path, ".las", las_scale)

    def _write(self, method: str, path: Any, extension: str, las_scale: Any) -> List[str]:
        if self._handle is None:
            raise ValueError(_pallion.texts["not_writable"] % method)
        output = os.fspath(path)
        if isinstance(output, bytes):
            output = os.fsdecode(output)
        if not output.lower().endswith(extension) and not (extension == ".h5" and output.lower().endswith(".hdf5")):
            raise ValueError(_pallion.texts["wrong_extension"] % (method, extension, output))
        failure, notes = _pallion.write_grid(self._handle, output, las_scale_text(las_scale))
        if failure:
            raise OutputError(failure)
        return list(notes)

    def to_open3d(self) -> Any:
        """An open3d.geometry.PointCloud of the point field "Positions" (else
        the first point field), with the rgb field's colours scaled to 0..1
        and the tvector field's normals, where the grid has them."""
        try:
            import open3d
        except ImportError as error:
            raise ImportError(_pallion.texts["no_open3d"] % (error,)) from error
        import numpy

        def first(name: str, kind: str) -> Optional[Field]:
            if name in self.fields and self.fields[name].type == kind:
                return self.fields[name]
            return next((field for field in self.fields.values() if field.type == kind), None)

        positions, colours, normals = first("Positions", "point"), first("Colours", "rgb"), first("Normals", "tvector")
        if positions is None:
            raise ValueError(_pallion.texts["no_positions"])
        cloud = open3d.geometry.PointCloud()
        cloud.points = open3d.utility.Vector3dVector(numpy.ascontiguousarray(positions.to_numpy()))
        if colours is not None:
            cloud.colors = open3d.utility.Vector3dVector(colours.to_numpy() / 255.0)
        if normals is not None:
            cloud.normals = open3d.utility.Vector3dVector(numpy.ascontiguousarray(normals.to_numpy()))
        return cloud
