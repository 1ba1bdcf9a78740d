"""Grids written to PLY, HDF5 and LAS, and tables converted straight into them block by block."""
import pathlib

import numpy
import pytest

import pallion

TABLE = "x y z r g b intensity\n" + "".join(
    f"{k}.25 {-k}.5 {k % 7}.125 {k % 256} 3 {255 - k % 256} {k % 1000}\n" for k in range(2000))


@pytest.fixture
def tables(tmp_path):
    paths = []
    for name in ("a.txt", "b.txt"):
        paths.append(tmp_path / name)
        paths[-1].write_text(TABLE)
    return paths


def h5_contents(path):
    h5py = pytest.importorskip("h5py")
    contents = {}
    with h5py.File(path) as h5:
        h5.visititems(lambda name, item: contents.__setitem__(
            name, (item[()].tolist() if isinstance(item, h5py.Dataset) else None,
                   {k: numpy.asarray(v).tolist() for k, v in item.attrs.items()})))
        contents["/"] = {k: numpy.asarray(v).tolist() for k, v in h5.attrs.items()}
    return contents


def test_streamed_files_are_those_of_the_grid(tables, tmp_path):
    grid = pallion.read_table(tables, block=97, epsg=32617)
    for extension in ("ply", "h5", "las"):
        whole, streamed = tmp_path / f"whole.{extension}", tmp_path / f"streamed.{extension}"
        getattr(grid, f"to_{extension}")(whole)
        result = pallion.convert(tables, streamed, block=97, epsg=32617)
        assert (result.rows, result.fields, result.output) == (4000, list(grid), str(streamed))
        if extension == "h5":
            contents = h5_contents(streamed)
            assert contents == h5_contents(whole)
            assert contents["Positions/values"][0][1:3] == [[1.25, -1.5, 1.125], [2.25, -2.5, 2.125]]
            assert contents["Positions"][1]["counts"][:3] == [97, 97, 97] and len(contents["/"]["EPSG"]) == 1
        else:
            assert streamed.read_bytes() == whole.read_bytes(), extension
    assert pathlib.Path(tmp_path / "streamed.ply").read_bytes().find(b"element vertex 4000\n") > 0


def test_failures_leave_no_file(tables, tmp_path):
    # A token that is no number half-way through the second table: the conversion's error, no output.
    broken = tmp_path / "c.txt"
    broken.write_text(TABLE.replace("1500.25", "15x0.25"))
    with pytest.raises(pallion.TokenError) as raised:
        pallion.convert([tables[0], broken], tmp_path / "o.las", block=50)
    assert raised.value.line == 1502
    # Values the format cannot hold, and a folder that is missing: OutputError naming the file.
    wide = tmp_path / "w.txt"
    wide.write_text("x y z\n0.001 0 0\n9000000 0 0\n")
    with pytest.raises(pallion.OutputError, match=r"X spans 0.001 to 9e\+06; .* las_scale 0.01 fits"):
        pallion.convert(wide, tmp_path / "w.las", block=1)  # refused at the second block
    with pytest.raises(ValueError, match="missing"):
        pallion.convert(tables, tmp_path / "missing" / "o.ply")
    # A field name that HDF5 cannot hold is refused before anything is read.
    with pytest.raises(pallion.ArgumentsError, match="notes"):
        pallion.convert(tables, tmp_path / "n.h5", parse="P:point:x+y+z,notes:double:intensity", header=1)
    assert sorted(p.name for p in tmp_path.iterdir()) == ["a.txt", "b.txt", "c.txt", "w.txt"]
    assert pallion.convert(wide, tmp_path / "w.las", las_scale=0.01).notes[0].startswith(str(tmp_path / "w.las"))
    with pytest.raises(ValueError, match="las_scale"):
        pallion.read_table(wide).to_las(tmp_path / "v.las", las_scale=(1, 2))
    with pytest.raises(ValueError, match=r"\.ply"):
        pallion.read_table(wide).to_ply(tmp_path / "v.las")
