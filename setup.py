# pip's entry: the build lives in python/cmake_build.py.
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "python"))

from cmake_build import main  # noqa: E402

main()
