"""The Dask route on a local cluster of two worker processes."""
import dask
import numpy
import pytest
from distributed import Client, LocalCluster, get_task_stream

import pallion
import pallion.dask


@pytest.fixture(scope="module")
def client():
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address=None) as cluster, Client(cluster) as client:
        yield client


def test_read_tables_on_two_workers_equals_read_table_per_file(tmp_path, client):
    rng = numpy.random.default_rng(3)
    files = [tmp_path / f"part{i}.txt" for i in range(8)]
    for n, path in enumerate(files, start=5):
        rows = numpy.column_stack([rng.uniform(-100, 100, (10 * n, 3)).round(3), rng.integers(0, 255, 10 * n)])
        numpy.savetxt(path, rows, fmt=["%.3f"] * 3 + ["%d"], header="x y z class", comments="")
    parse = "Positions:point:0+1+2,Class:uint8_t:3"
    each = [pallion.read_table(f, parse=parse, header=1) for f in files]

    fields = pallion.dask.read_tables(files, parse=parse, header=1)
    assert fields["Positions"].numblocks == (8, 1) and fields["Class"].dtype == numpy.uint8
    with get_task_stream(client) as stream:
        positions, classes = dask.compute(fields["Positions"], fields["Class"])
    # Both fields came from one conversion per file, run by the worker processes.
    conversions = [task for task in stream.data if task["key"].startswith("_convert")]
    assert len(conversions) == 8 and {task["worker"] for task in conversions} <= set(client.scheduler_info()["workers"])
    # Columns by header name, the header lines guessed once for every worker.
    grouped = pallion.dask.read_tables(files, parse="Positions:point:x+y+z,Class:uint8_t:class", header="auto",
                                       files_per_partition=3)
    assert grouped["Class"].numblocks == (3,)
    numpy.testing.assert_array_equal(grouped["Class"].compute(), classes)
    (tmp_path / "bad.txt").write_text("x y z class\n1 2 3 oops\n")
    with pytest.raises(pallion.TokenError, match="oops"):
        pallion.dask.read_tables([files[0], tmp_path / "bad.txt"], parse=parse, header=1)["Class"].compute()

    numpy.testing.assert_array_equal(positions, numpy.concatenate([g.fields["Positions"].to_numpy() for g in each]))
    numpy.testing.assert_array_equal(classes, numpy.concatenate([g.fields["Class"].to_numpy() for g in each]))
    with pytest.raises(pallion.ConversionError, match="type not supported"):
        pallion.dask.read_tables(files, parse="P:pt:0+1+2")
    # Files are known when the graph is built: a pattern in sorted order, and what is missing is refused then.
    pattern = pallion.dask.read_tables(str(tmp_path / "part[0-7].txt"), parse=parse, header=1)
    numpy.testing.assert_array_equal(pattern["Class"].compute(scheduler="sync"), classes)
    for missing in [str(tmp_path / "dk" / "part*.txt"), [tmp_path / "nothing.txt", files[0]]]:
        with pytest.raises(FileNotFoundError):
            pallion.dask.read_tables(missing, parse=parse, header=1)


def test_a_large_file_is_split_into_byte_ranges_equal_to_read_table(tmp_path, client):
    rng = numpy.random.default_rng(5)
    large, small = tmp_path / "large.txt", tmp_path / "small.txt"
    rows = numpy.column_stack([rng.uniform(-1e4, 1e4, (3000, 3)).round(4), rng.integers(0, 255, 3000)])
    for path, n in [(large, 3000), (small, 7)]:
        numpy.savetxt(path, rows[:n], fmt=["%.4f"] * 3 + ["%d"], header="#" * 600 + "\nx y z class", comments="")
    parse = "Positions:point:0+1+2,Class:uint8_t:3"
    whole = pallion.read_table([small, large, small], parse=parse, header=2)
    # A block smaller than the header: the first range takes it all, no other begins inside it.
    size = large.stat().st_size
    for blocksize, partitions in [("8kB", 1 + -(-size // 8000) + 1), (400, None), (None, 3)]:
        fields = pallion.dask.read_tables([small, large, small], parse=parse, header=2, blocksize=blocksize)
        assert fields["Class"].numblocks[0] == partitions if partitions else fields["Class"].numblocks[0] > 200
        assert fields["Positions"].dtype == numpy.float64
        positions, classes = dask.compute(fields["Positions"], fields["Class"])
        numpy.testing.assert_array_equal(positions, whole["Positions"].to_numpy())
        numpy.testing.assert_array_equal(classes, whole["Class"].to_numpy())
        assert classes.dtype == numpy.uint8

    bad = tmp_path / "bad.txt"
    bad.write_bytes(large.read_bytes() + b"1 2 3 300\n")
    with pytest.raises(pallion.TokenOverflowError, match="of line 3003 of file") as caught:
        pallion.dask.read_tables(bad, parse=parse, header=2, blocksize="10 kiB")["Class"].compute()
    assert caught.value.line == 3003
    for blocksize in [0, "many", True, 2.5]:
        with pytest.raises(ValueError, match="blocksize"):
            pallion.dask.read_tables(large, parse=parse, header=2, blocksize=blocksize)
