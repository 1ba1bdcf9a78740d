"""Threads that start converting before numpy is loaded: none may wait for good."""
import subprocess
import sys

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
