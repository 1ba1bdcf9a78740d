"""The grid a conversion made, and its fields, over the compiled module's views."""
from collections import namedtuple
from types import MappingProxyType

from . import _pallion

# numpy is imported where it is used, not with the package: a conversion
# loads it beside its own work (see the compiled module), so that a script's
# first conversion does not wait for it.

Note = namedtuple("Note", "converter text")


class Field:
    """One field of a grid: its element type as in the parse string ("point",
    "tvector", "rgb", "double", "float", "int", "uint8_t", "uint16_t",
    "uint32_t"), and its fragments, one numpy array per block of rows.

    Point and tvector arrays are (n, 3) float64, rgb (n, 3) uint8, scalars
    1-D of their own type.  They are views of the converted memory and keep
    it alive on their own.
    """

    def __init__(self, name, type, components, empty, fragments):
        self.name = name
        self.type = type
        self.components = tuple(components)
        import numpy

        self._empty = empty if empty is not None else numpy.empty(0)
        self.fragments = MappingProxyType({
            fragment: arrays[0] if len(arrays) == 1 else numpy.concatenate(arrays)
            for fragment, arrays in fragments})

    def __len__(self):
        return sum(len(array) for array in self.fragments.values())

    def __repr__(self):
        return f"<pallion.Field {self.name!r} {self.type} x {len(self)} in {len(self.fragments)} fragment(s)>"

    def to_numpy(self):
        """All fragments as one array: a view when one fragment holds every element
        (the empty block that follows a full one counts for nothing), else one copy."""
        arrays = [array for array in self.fragments.values() if len(array)]
        if len(arrays) == 1:
            return arrays[0]
        if not arrays:
            return self._empty
        import numpy

        return numpy.concatenate(arrays)


class Grid:
    """What a conversion made.

    fields      name -> Field, in the grid's order
    attributes  name -> value (EPSG, Date, WeekDay, ...); a list where a name holds several
    notes       the texts converters noted, as Note(converter, text)
    guessed     what was guessed for the options given as "auto", one line each
    """

    def __init__(self, handle, guessed=()):
        self._handle = handle
        self.guessed = list(guessed)
        self.fields = MappingProxyType({name: Field(name, *rest) for name, *rest in handle.fields()})
        self.attributes = handle.attributes()
        self.notes = [Note(*note) for note in handle.notes()]

    def __repr__(self):
        fields = ", ".join(f"{name}: {field.type} x {len(field)}" for name, field in self.fields.items())
        return f"<pallion.Grid {fields}>"

    def to_pandas(self):
        """One DataFrame of all fields; a field of three components gives three
        columns (Positions.x, Positions.y, Positions.z).  Every field must hold
        the same number of elements."""
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
        return pandas.DataFrame(columns)
