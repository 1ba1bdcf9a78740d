"""setuptools driving the project's CMake: the compiled module built with the
library linked in (static libraries, so the wheel needs no other shared
object and no LD_LIBRARY_PATH), the package's .py files, py.typed and the
stubs beside it.  The version is the project's one version, read from
CMakeLists.txt."""
from __future__ import annotations

import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent.parent


def project_version() -> str:
    text = (ROOT / "CMakeLists.txt").read_text()
    found = re.search(r"project\(\s*Pallion\s+VERSION\s+([0-9.]+)", text)
    if not found:
        raise RuntimeError("CMakeLists.txt: no project VERSION")
    return found.group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        build = pathlib.Path(self.build_temp).resolve() / "cmake"
        configure = ["cmake", "-S", str(ROOT), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
                     "-DBUILD_SHARED_LIBS=OFF", "-DCMAKE_POSITION_INDEPENDENT_CODE=ON", "-DPALLION_PYTHON=ON",
                     "-DPALLION_TESTS=OFF", "-DPALLION_BENCH=OFF", "-DPALLION_PROGRAM=OFF", "-DPALLION_INSTALL=OFF",
                     f"-DPython_EXECUTABLE={sys.executable}"]
        if shutil.which("ninja"):
            configure += ["-G", "Ninja"]
        if shutil.which("ccache"):
            configure.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        subprocess.run(configure, check=True)
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", "2")
        subprocess.run(["cmake", "--build", str(build), "--target", "pallion_python", "-j", jobs], check=True)
        built = build / "python" / "pallion"
        target = pathlib.Path(self.get_ext_fullpath(ext.name)).parent
        target.mkdir(parents=True, exist_ok=True)
        for module in built.glob("_pallion*.so"):
            shutil.copy2(module, target / self.get_ext_filename("_pallion"))
        shutil.copy2(built / "_version.py", target / "_version.py")


def main() -> None:
    setup(
        name="pallion",
        version=project_version(),
        description="Delimited text tables and trajectory files into typed fields of an in-memory grid",
        packages=["pallion"],
        package_dir={"pallion": "python/pallion"},
        package_data={"pallion": ["py.typed", "*.pyi"]},
        exclude_package_data={"pallion": ["_version.py.in"]},
        ext_modules=[Extension("pallion._pallion", sources=[])],
        cmdclass={"build_ext": CMakeBuild},
        python_requires=">=3.9",
        install_requires=["numpy"],
        extras_require={"pandas": ["pandas"], "dask": ["dask[array]", "distributed"], "open3d": ["open3d"]},
        zip_safe=False,
    )
