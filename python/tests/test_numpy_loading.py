"""A script's first conversion, in an interpreter that has not loaded numpy:
the package loads it beside the conversion."""
import subprocess
import sys

import pytest

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

