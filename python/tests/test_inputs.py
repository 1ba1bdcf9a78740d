"""What a call may name as its files, and how a file that fails is raised."""
import errno
import io
import os
import pickle

import numpy
import pytest

import pallion

ROWS = "1 2 3\n4 5 6\n"
POINTS = [[1, 2, 3], [4, 5, 6]]


def positions(files, **options):
    return pallion.read_table(files, header=None, parse="P:point:0+1+2", **options)["P"].to_numpy().tolist()


class OnlyDescriptor:
    """A file object that offers a descriptor and nothing to read with."""

    def __init__(self, path):
        self.file = open(path, "rb")

    def fileno(self):
        return self.file.fileno()


def test_paths_and_file_objects_are_read_as_the_os_takes_them(tmp_path, monkeypatch):
    (tmp_path / "b.txt").write_text("7 8 9\n")
    (tmp_path / "a.txt").write_text(ROWS)
    odd = os.fsencode(tmp_path) + b"/t\xff.txt"
    with open(odd, "w") as out:
        out.write(ROWS)
    monkeypatch.setenv("HOME", str(tmp_path))
    cases = [
        (odd, POINTS), (os.fsdecode(odd), POINTS),  # not UTF-8: as bytes, and as str with a surrogate escape
        ("~/a.txt", POINTS), (str(tmp_path / "?.txt"), POINTS + [[7, 8, 9]]),  # ~, a pattern in sorted order
        ([tmp_path / "[ab].txt", b"~/a.txt"], POINTS + [[7, 8, 9]] + POINTS),
        (io.BytesIO(ROWS.encode()), POINTS), (io.StringIO(ROWS), POINTS),
        (open(tmp_path / "a.txt"), POINTS), (OnlyDescriptor(tmp_path / "a.txt"), POINTS),
        ([io.BytesIO(b"7 8 9\n"), tmp_path / "a.txt"], [[7, 8, 9]] + POINTS),
    ]
    for files, want in cases:
        assert positions(files) == want, files


def test_paths_that_are_refused(tmp_path):
    for files, error, text in [
        (str(tmp_path / "a.txt\0junk"), ValueError, "null byte"),
        (str(tmp_path / "*.none"), FileNotFoundError, "no file matches"),
        (3, TypeError, "read() or fileno()"), ([tmp_path / "a.txt", object()], TypeError, "read() or fileno()"),
    ]:
        with pytest.raises(error, match=text.replace("(", r"\(").replace(")", r"\)")):
            positions(files)


def test_a_file_that_cannot_be_opened_raises_the_os_error_and_keeps_the_grid(tmp_path):
    (tmp_path / "a.txt").write_text(ROWS)
    (tmp_path / "folder").mkdir()
    for name, error, number in [("missing.txt", FileNotFoundError, errno.ENOENT),
                                ("folder", IsADirectoryError, errno.EISDIR)]:
        with pytest.raises(error) as caught:
            positions([tmp_path / "a.txt", tmp_path / name], block=1)
        e = caught.value
        assert isinstance(e, pallion.ConversionError) and (e.errno, e.filename) == (number, str(tmp_path / name))
        assert e.grid["P"].to_numpy().tolist() == POINTS  # the first file's rows were flushed
        again = pickle.loads(pickle.dumps(e))  # as a Dask worker's failure travels, without .grid
        assert (type(again), again.errno, again.filename, again.kind, again.grid) == (type(e), number, e.filename,
                                                                                     "cannot_open", None)


def test_bytes_that_are_not_utf8_are_decoded_with_replacement(tmp_path):
    (tmp_path / "token.txt").write_bytes(b"1 2 3\n4 \xff5 6\n")
    with pytest.raises(pallion.TokenError) as caught:
        positions(tmp_path / "token.txt", block=1)
    e = caught.value
    assert (e.line, e.column, e.token) == (2, 1, "\ufffd5") and e.grid["P"].to_numpy().tolist() == [[1, 2, 3]]
    (tmp_path / "header.txt").write_bytes(b"x y z d\xe9p\n1 2 3 4\n")
    grid = pallion.read_table(tmp_path / "header.txt")
    assert list(grid) == ["Positions", "d\ufffdp"] and grid["d\ufffdp"].to_numpy().tolist() == [4]
