"""The Dask route on a local cluster of two worker processes."""
import dask
import numpy
import pytest
from distributed import Client, LocalCluster, get_task_stream

import pallion
import pallion.dask


def test_read_tables_on_two_workers_equals_read_table_per_file(tmp_path):
    rng = numpy.random.default_rng(3)
    files = [tmp_path / f"part{i}.txt" for i in range(8)]
    for n, path in enumerate(files, start=5):
        rows = numpy.column_stack([rng.uniform(-100, 100, (10 * n, 3)).round(3), rng.integers(0, 255, 10 * n)])
        numpy.savetxt(path, rows, fmt=["%.3f"] * 3 + ["%d"], header="x y z class", comments="")
    parse = "Positions:point:0+1+2,Class:uint8_t:3"
    each = [pallion.read_table(f, parse=parse, header=1) for f in files]

    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address=None) as cluster, Client(cluster) as client:
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
