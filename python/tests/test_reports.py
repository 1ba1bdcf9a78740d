"""What a conversion does beside its own work: numpy loaded while it
converts, where the script has not loaded it, and Ctrl-C noticed at a report
where no callable asks for the reports."""
import subprocess
import sys

import pytest

import pallion

SCRIPT = """
import sys, pallion
assert "numpy" not in sys.modules, "numpy came with the package"
path, n, calls = sys.argv[1], int(sys.argv[2]), []
with open(path, "w") as out:
    out.writelines(f"{i} {i + 0.5} {-i}\\n" for i in range(n))
progress = (lambda *report: calls.append(report)) if sys.argv[3] == "progress" else None
values = pallion.read_table(path, block=700, progress=progress).fields["Positions"].to_numpy()
assert values.shape == (n, 3) and values[-1].tolist() == [n - 1, n - 0.5, 1 - n], values[-1]
assert bool(calls) == (progress is not None), calls
print("ok")
"""


# A conversion that ends before numpy could be loaded, and longer ones with and without a progress callable.
@pytest.mark.parametrize("rows, progress", [(1, "none"), (200000, "none"), (200000, "progress")])
def test_first_conversion_loads_numpy_beside_it(tmp_path, rows, progress):
    done = subprocess.run([sys.executable, "-c", SCRIPT, str(tmp_path / "t.txt"), str(rows), progress],
                          capture_output=True, text=True, timeout=60)
    assert done.returncode == 0 and done.stdout == "ok\n", done.stderr


def test_ctrl_c_without_a_progress_callable_stops_at_the_next_report(tmp_path):
    # SIGINT comes once the library has read into the file, while the main
    # thread converts without the GIL: the module looks for it at a report
    # even where no callable asks for the reports.
    import os
    import signal
    import threading

    import numpy

    n, block = 1_000_000, 50_000
    path = tmp_path / "t.txt"
    path.write_text("".join(f"{i} {i} {i}\n" for i in range(n)))

    def reading_offset():
        # The offset of the one descriptor open on the table; None while the
        # size is still being judged through a second one.
        offsets = []
        for fd in os.listdir("/proc/self/fd"):
            try:
                if os.readlink(f"/proc/self/fd/{fd}") == str(path):
                    with open(f"/proc/self/fdinfo/{fd}") as info:
                        offsets.append(int(info.readline().split()[1]))
            except OSError:
                pass
        return offsets[0] if len(offsets) == 1 else None

    def interrupt_once_reading():
        while (reading_offset() or 0) < 4_000_000:
            threading.Event().wait(0.0002)
        signal.pthread_kill(threading.main_thread().ident, signal.SIGINT)

    helper = threading.Thread(target=interrupt_once_reading)
    helper.start()
    try:
        with pytest.raises(KeyboardInterrupt) as caught:
            pallion.read_table(path, block=block)  # a block given: the files are not sampled first
    finally:
        helper.join()
    kept = caught.value.grid.fields["Positions"].to_numpy()
    assert block <= len(kept) < n and len(kept) % block == 0
    numpy.testing.assert_array_equal(kept[:, 0], numpy.arange(len(kept)))
