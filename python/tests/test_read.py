"""The package as a Python user meets it: views of the converted memory, failures with context, threads, Ctrl-C."""
import concurrent.futures
import contextlib
import datetime
import gc
import gzip
import os
import pathlib
import signal
import sys
import threading

import numpy
import pytest

import pallion

ALL_TYPES = ("P:point:0+1+2,V:tvector:3+4+5,D:double:6,F:float:7,I:int:8,"
             "U8:uint8_t:9,U16:uint16_t:10,U32:uint32_t:11,C:rgb:12+13+14")


def write_rows(path, rows, fmt="%.3f"):
    numpy.savetxt(path, rows, fmt=fmt, delimiter=" ")
    return rows


def all_types_table(path, n):
    rng = numpy.random.default_rng(7)
    # point, tvector, double, float, int, uint8, uint16, uint32 (below 2**31: whole numbers go through stoi), rgb
    rows = numpy.column_stack([rng.uniform(-1e3, 1e3, (n, 7)).round(3), rng.uniform(-10, 10, n).round(2),
                               rng.integers(-2**31, 2**31 - 1, n), rng.integers(0, 255, n), rng.integers(0, 65535, n),
                               rng.integers(0, 2**31 - 1, n), rng.integers(0, 255, (n, 3))])
    return write_rows(path, rows, fmt=["%.17g"] * 8 + ["%d"] * 7)


def test_each_element_type_has_its_dtype_shape_and_values(tmp_path):
    rows = all_types_table(tmp_path / "all.txt", 257)
    grid = pallion.read_table(tmp_path / "all.txt", parse=ALL_TYPES, block=100, epsg=25832)
    assert grid.attributes == {"EPSG": 25832} and grid.notes[0].converter == "ascii2z9"
    dtypes = {"point": numpy.float64, "tvector": numpy.float64, "double": numpy.float64, "float": numpy.float32,
              "int": numpy.int32, "uint8_t": numpy.uint8, "uint16_t": numpy.uint16, "uint32_t": numpy.uint32,
              "rgb": numpy.uint8}
    entries = [entry.split(":") for entry in ALL_TYPES.split(",")]
    assert list(grid.fields) == [name for name, _, _ in entries]
    for name, type_name, columns in entries:
        field, want = grid.fields[name], rows[:, [int(c) for c in columns.split("+")]].squeeze()
        values = field.to_numpy()
        assert (field.type, values.dtype, values.shape) == (type_name, dtypes[type_name], want.shape), name
        assert [len(a) for a in field.fragments.values()] == [100, 100, 57], name
        numpy.testing.assert_array_equal(values, want.astype(values.dtype), err_msg=name)
    frame = grid.to_pandas()
    assert list(frame.columns[:3]) == ["P.x", "P.y", "P.z"] and len(frame) == 257
    numpy.testing.assert_array_equal(frame["C.g"], rows[:, 13].astype(numpy.uint8))


def test_arrays_view_the_chunks_and_keep_them_alive(tmp_path):
    rows = write_rows(tmp_path / "p.txt", numpy.arange(60000 * 3, dtype=float).reshape(-1, 3) / 8)
    grid = pallion.read_table(str(tmp_path / "p.txt"), block=25000)
    fragments = list(grid.fields["Positions"].fragments.values())
    # Each fragment's data is the chunk's own memory, not a copy of it.
    assert [a.ctypes.data for a in fragments] == grid._handle.chunk_addresses("Positions")
    assert all(a.base.address == a.ctypes.data and a.flags.writeable for a in fragments)
    # One fragment with elements (a full block is followed by an empty one): to_numpy is that view.
    single = pallion.read_table(tmp_path / "p.txt", block=60000)
    assert list(map(len, single.fields["Positions"].fragments.values())) == [60000, 0]
    assert single.fields["Positions"].to_numpy().ctypes.data == single._handle.chunk_addresses("Positions")[0]

    # The arrays alone keep their chunks: the values stay right once the grid is gone.
    last = fragments[-1]
    del grid, fragments
    gc.collect()
    scratch = [numpy.full(25000 * 3, 7.0) for _ in range(8)]  # would take freed memory
    numpy.testing.assert_array_equal(last, rows[50000:])
    del scratch


@pytest.mark.parametrize("content, options, error, line, column, token, hint, rows_kept", [
    ("x y z\n1 2 3\n", {"header": None, "parse": "P:point:0+1+2"}, pallion.TokenError, 1, 0, "x", "header=1", 0),
    ("1 2 3\n" * 5 + "4 abc 6\n", {"block": 2}, pallion.TokenError, 6, 1, "abc", None, 4),
    ("1 2 3\n4 5 99999999999\n", {"parse": "I:int:2"}, pallion.TokenOverflowError, 2, 2, "99999999999", None, 0),
    ("1,2,3\n4,5,6\n", {"delimiter": "space", "header": None, "parse": "P:point:0+1+2"}, pallion.ConversionError, 1, None, None, 'delimiter="comma"', 0),
    ("1 2 3\n", {"parse": "P:point:0+1"}, pallion.ConversionError, None, None, None, None, 0),
])
def test_failures_tell_where_and_keep_what_was_flushed(tmp_path, content, options, error, line, column, token,
                                                       hint, rows_kept):
    path = tmp_path / "t.txt"
    path.write_text(content)
    with pytest.raises(error) as caught:  # the plain reading: the contract's failures and exceptions
        pallion.read_table(path, strict=False, **options)
    e = caught.value
    assert (e.file, e.line, e.column, e.token) == (str(path) if line else None, line, column, token)
    assert not line or f"  file:  {path}\n  line:  {line}\n" in str(e)
    assert (hint is None and not e.hints) or any(hint in h for h in e.hints), e.hints
    assert sum(len(f) for f in e.grid.fields.values()) == rows_kept
    assert isinstance(e, {pallion.TokenError: ValueError, pallion.TokenOverflowError: OverflowError}.get(error, error))


def test_auto_options_are_guessed_from_the_first_file(tmp_path):
    (tmp_path / "named.csv").write_text("X,Y,Z,Intensity\n1,2,3,0.5\n4,5,6,0.25\n")
    grid = pallion.read_table(tmp_path / "named.csv", parse="auto", delimiter="auto", header="auto")
    assert [(name, f.type) for name, f in grid.fields.items()] == [("Positions", "point"), ("Intensity", "float")]
    assert [line.split(":")[0] for line in grid.guessed] == ["delimiter", "header lines", "parse"]


def test_bad_arguments_are_refused_before_any_file_is_opened(tmp_path):
    missing = tmp_path / "never-opened.txt"
    for arguments, error in [
        ({"delimiter": "tabs"}, ValueError), ({"delimiter": 9}, TypeError), ({"block": 0}, ValueError),
        ({"header": -1}, ValueError), ({"header": "1"}, TypeError), ({"epsg": 0}, ValueError),
        ({"files": [missing, 3]}, TypeError), ({"files": []}, ValueError), ({"parse": None}, TypeError),
        ({"progress": "bar"}, TypeError),
    ]:
        with pytest.raises(error) as caught:
            pallion.read_table(**{"files": missing, **arguments})
        assert not isinstance(caught.value, pallion.ConversionError), arguments
    with pytest.raises(pallion.ConversionError, match="cannot open file"):
        pallion.read_table(missing, delimiter="semicolon", header=2, block=5, epsg=4326)


def test_interruption_stops_at_a_report_and_keeps_the_flushed_blocks(tmp_path):
    rows = write_rows(tmp_path / "t.txt", numpy.arange(1000 * 3, dtype=float).reshape(-1, 3), fmt="%.0f")

    def progress(value, total):
        if value >= 250:
            raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt) as caught:
        pallion.read_table(tmp_path / "t.txt", block=100, progress=progress)
    numpy.testing.assert_array_equal(caught.value.grid.fields["Positions"].to_numpy(), rows[:200])


def test_ctrl_c_while_the_library_reads_is_noticed_at_the_next_report(tmp_path):
    # SIGINT arrives once the library has read into the file, while the main thread converts without the GIL and
    # away from any Python code, and no callable asks for the reports: the module's own check at a report finds it.
    n, block = 1_000_000, 50_000
    path = tmp_path / "t.txt"
    path.write_text("".join(f"{i} {i} {i}\n" for i in range(n)))

    def reading_offset():  # of the one descriptor open on the table (two while its size is judged)
        offsets = []
        for fd in os.listdir("/proc/self/fd"):
            with contextlib.suppress(OSError):
                if os.readlink(f"/proc/self/fd/{fd}") == str(path):
                    with open(f"/proc/self/fdinfo/{fd}") as info:
                        offsets.append(int(info.readline().split()[1]))
        return offsets[0] if len(offsets) == 1 else 0

    returned = threading.Event()

    def interrupt_once_reading():
        while reading_offset() < 4_000_000:
            if returned.wait(0.0002):
                return  # the reading ended unseen: no signal, and the test fails below
        signal.pthread_kill(threading.main_thread().ident, signal.SIGINT)

    with concurrent.futures.ThreadPoolExecutor(1) as helper:
        helper.submit(interrupt_once_reading)
        try:
            with pytest.raises(KeyboardInterrupt) as caught:
                pallion.read_table(path, block=block, threads=1)  # a block given: the file is not sampled first
        finally:
            returned.set()
    kept = caught.value.grid.fields["Positions"].to_numpy()
    assert block <= len(kept) < n and len(kept) % block == 0
    numpy.testing.assert_array_equal(kept[:, 0], numpy.arange(len(kept)))


def test_two_threads_convert_at_the_same_time(tmp_path):
    tables = {name: write_rows(tmp_path / f"{name}.txt", numpy.arange(300000 * 3, dtype=float).reshape(-1, 3) + k,
                               fmt="%.0f") for k, name in enumerate("ab")}
    latest, seen_mid_way = {"a": 0, "b": 0}, {"a": [], "b": []}

    def convert(name, other):
        def progress(value, total):
            latest[name] = value
            seen_mid_way[name].append(0 < latest[other] < len(tables[other]) - 1)
        return pallion.read_table(tmp_path / f"{name}.txt", progress=progress, threads=1)

    # Without forced switches the GIL changes hands only where it is released: a conversion that kept it would
    # run the other one before or after it.
    interval = sys.getswitchinterval()
    sys.setswitchinterval(30)
    try:
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            results = dict(zip("ab", pool.map(convert, "ab", "ba")))
    finally:
        sys.setswitchinterval(interval)
    assert any(seen_mid_way["a"]) and any(seen_mid_way["b"])
    for name, rows in tables.items():
        numpy.testing.assert_array_equal(results[name].fields["Positions"].to_numpy(), rows)


def test_trajectories_and_attributes(tmp_path):
    data = pathlib.Path(__file__).resolve().parents[2] / "examples" / "data" / "trajectory"
    grid = pallion.read_trajectories(sorted(data.iterdir()))
    assert grid.attributes["EPSG_SPATIAL"] == 25832 and grid.attributes["NameOfProject"] == "Harbour"
    assert grid.attributes["Date"] == [datetime.date(2026, 3, day) for day in (10, 11, 12, 13)]
    assert grid.fields["Positions"].type == "point" and grid.fields["GPSTime"].to_numpy().dtype == numpy.float64
    assert len({len(f) for f in grid.fields.values()}) == 1
    # A name whose EPSG piece is no number: the piece is named, with its meaning.
    with pytest.raises(Exception, match=r'piece 4 \(the EPSG code of the spatial reference\) .*"EPSG99999999999"'):
        pallion.read_trajectories([tmp_path / "QVT_Harbour_001_20260310_EPSG99999999999_EPSG7837.txt"])
    # Fields of different lengths (the blocks of two reads put together): no single DataFrame.
    a, b = (pallion.read_table(data.parent / "sample_points.txt", parse=f"{name}:double:0", header=1, max_rows=rows)
            for name, rows in (("A", 3000), ("B", 1000)))
    twice = pallion.Grid([a["A"], b["B"]])
    with pytest.raises(ValueError, match="A: 3000, B: 1000"):
        twice.to_pandas()


def compressed_copies(plain):
    """The plain table as .gz, .bz2, .xz, .zip (one member) and, where the zstd tool is there, .zst."""
    import bz2, gzip, lzma, shutil, subprocess, zipfile  # noqa: E401
    data = plain.read_bytes()
    copies = []
    for suffix, write in ((".gz", gzip.compress), (".bz2", bz2.compress), (".xz", lzma.compress)):
        copies.append(plain.with_name(plain.name + suffix))
        copies[-1].write_bytes(write(data))
    with zipfile.ZipFile(plain.with_name(plain.name + ".zip"), "w", zipfile.ZIP_DEFLATED) as archive:
        archive.write(plain, plain.name)
    copies.append(plain.with_name(plain.name + ".zip"))
    if shutil.which("zstd"):
        subprocess.run(["zstd", "-q", "-k", str(plain)], check=True)
        copies.append(plain.with_name(plain.name + ".zst"))
    return copies


def test_compressed_tables_read_as_their_plain_text_and_a_cut_one_fails(tmp_path):
    plain = tmp_path / "pts.txt"
    plain.write_text("X Y Z\n" + "".join(f"{i}.25 {i % 13} -{i}.5\n" for i in range(40000)))
    want = pallion.read_table(plain, block=5000, header="auto").fields["Positions"].to_numpy()
    for copy in compressed_copies(plain):
        grid = pallion.read_table(copy, block=5000, header="auto")  # guessed from the decompressed text
        numpy.testing.assert_array_equal(grid.fields["Positions"].to_numpy(), want, err_msg=copy.name)
        cut = tmp_path / ("cut-" + copy.name)
        cut.write_bytes(copy.read_bytes()[: copy.stat().st_size // 2])
        with pytest.raises(pallion.ConversionError) as caught:
            pallion.read_table(cut, block=5000, header=1, parse="Positions:point:0+1+2", delimiter="space")
        assert f"cannot read file: {cut}" in str(caught.value), copy.name
        kept = numpy.concatenate([a for a in caught.value.grid.fields["Positions"].fragments.values()] or [want[:0]])
        numpy.testing.assert_array_equal(kept, want[: len(kept)], err_msg=copy.name)


def test_byte_ranges_that_meet_read_every_line_once_and_name_the_files_lines(tmp_path):
    # CRLF lines, a line longer than some ranges, a last line without a line end.
    table = tmp_path / "r.txt"
    table.write_bytes(b"x y z\r\n1 2 3\r\n4.5 5 6\n" + b"7 8 " + b"9" * 60 + b"\n10 11 12\n-1 -2 -3")
    whole = pallion.read_table(table, header=1)["Positions"].to_numpy()
    assert len(whole) == 5
    size = table.stat().st_size
    for cut in range(size + 1):
        parts = [pallion.read_table(table, header=1, byte_range=r)["Positions"].to_numpy()
                 for r in [(0, cut), (cut, None)]]
        numpy.testing.assert_array_equal(numpy.concatenate(parts), whole, err_msg=f"cut at {cut}")
    # Three ranges, the middle one inside the long line: it has no line of its own.
    assert len(pallion.read_table(table, header=1, byte_range=(30, 40))["Positions"]) == 0

    bad = tmp_path / "bad.txt"
    bad.write_text("x y z\n" + "1 2 3\n" * 50 + "1 2 x\n")
    for begin in (1, 100, 299, 300):
        with pytest.raises(pallion.TokenError, match="of line 52 of file") as caught:
            pallion.read_table(bad, header=1, byte_range=(begin, None))
        assert caught.value.line == 52 and "text:  1 2 x" in str(caught.value)
    for byte_range, error in [((5, 2), ValueError), ((-1, 3), ValueError), ([0, 3], TypeError), ((0,), TypeError),
                              (("0", 3), TypeError)]:
        with pytest.raises(error, match="byte_range"):
            pallion.read_table(bad, header=1, byte_range=byte_range)
    packed = tmp_path / "bad.txt.gz"
    packed.write_bytes(gzip.compress(bad.read_bytes()))
    with pytest.raises(ValueError, match="regular uncompressed file"):
        pallion.read_table(packed, header=1, byte_range=(0, 10))
    with pytest.raises(ValueError, match="max_rows"):
        pallion.read_table(bad, header=1, byte_range=(0, 10), max_rows=3)
