"""Threads: conversions started on many Python threads before numpy is loaded, and
one large file converted on several threads (threads=) into the grid of one."""
import subprocess
import sys

import pytest

SCRIPT = """
import sys, threading, pallion
assert "numpy" not in sys.modules
path, results = sys.argv[1], []
start = threading.Barrier(8)
def convert():
    start.wait()
    results.append(pallion.read_table(path, header=1)["Positions"].to_numpy().sum())
threads = [threading.Thread(target=convert) for _ in range(8)]
for thread in threads: thread.start()
for thread in threads: thread.join()
print(sorted(results))
"""


def test_eight_threads_in_a_fresh_interpreter_twenty_times(tmp_path):
    path = tmp_path / "small.txt"
    path.write_text("x y z\n1 2 3\n4 5 6.5\n")
    for run in range(20):
        done = subprocess.run([sys.executable, "-c", SCRIPT, str(path)], capture_output=True, text=True, timeout=30)
        assert (done.returncode, done.stdout) == (0, str([21.5] * 8) + "\n"), (run, done.stderr)


def _table(path, rows, bad_row=None):
    with open(path, "w") as out:
        out.write("x y z i\n")
        for i in range(rows):
            out.write(f"{i} {'x' if i == bad_row else i * 0.5} {-i} {i % 7}\n")


def test_threads_give_the_grid_of_one_thread(tmp_path):
    import numpy
    import pallion

    path = tmp_path / "large.txt"
    _table(path, 300_000)  # about 8 MB: cut into ranges
    for block in (None, 70_000):
        one = pallion.read_table(path, block=block, threads=1)
        for threads in (2, 3, None):
            many = pallion.read_table(path, block=block, threads=threads)
            assert list(many.fields) == list(one.fields)
            for name, field in one.fields.items():
                assert list(many[name].fragments) == list(field.fragments)
                for fragment, values in field.fragments.items():
                    numpy.testing.assert_array_equal(many[name].fragments[fragment], values)
            assert many.notes == one.notes
    # Without a block size, one fragment per field, and to_numpy is a view of it, not a copy.
    positions = pallion.read_table(path, threads=2)["Positions"]
    assert len(positions.fragments) == 1
    assert not positions.to_numpy().flags.owndata


def test_a_failure_in_a_later_range_has_its_line_in_the_file(tmp_path):
    import pallion

    path = tmp_path / "bad.txt"
    _table(path, 300_000, bad_row=200_000)
    failures = []
    for threads in (1, 2, 4):
        with pytest.raises(pallion.TokenError) as caught:
            pallion.read_table(path, block=50_000, threads=threads)
        e = caught.value
        failures.append((e.line, e.column, e.token, sum(len(f) for f in e.grid.fields.values())))
    assert failures == [(200_002, 1, "x", 2 * 200_000)] * 3


def test_threads_must_be_a_whole_number(tmp_path):
    import pallion

    path = tmp_path / "small.txt"
    path.write_text("1 2 3\n")
    with pytest.raises((TypeError, ValueError)):
        pallion.read_table(path, threads=-1)
    assert len(pallion.read_table(path, header=None, threads=0)["Positions"]) == 1
