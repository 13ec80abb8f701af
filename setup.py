"""Builds the extension mathinterp._core with the project's CMake build and puts it, with the
two shared libraries it loads, into the package (see pyproject.toml for the metadata).

MATHINTERP_BUILD_DIR=DIR reuses an existing CMake build directory (only the extension target is
brought up to date); otherwise build-pip/cmake is configured without tests, benchmarks and
examples. CMAKE_BUILD_PARALLEL_LEVEL sets the build jobs.
"""

import os
import re
import shutil
import subprocess
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent
(ROOT / "build-pip").mkdir(exist_ok=True)  # setup.cfg keeps egg-info there


def project_version() -> str:
    text = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"project\(mathinterp VERSION ([0-9.]+)", text).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        given = os.environ.get("MATHINTERP_BUILD_DIR")
        build_dir = (ROOT / given).resolve() if given else ROOT / "build-pip" / "cmake"
        if not (build_dir / "CMakeCache.txt").exists():
            subprocess.run(
                ["cmake", "-S", str(ROOT), "-B", str(build_dir), "-G", "Ninja",
                 "-DCMAKE_BUILD_TYPE=Release", "-DMATHINTERP_TESTS=OFF",
                 "-DMATHINTERP_BENCH=OFF", "-DMATHINTERP_EXAMPLES=OFF",
                 "-DMATHINTERP_FAULT_INJECTION=OFF"],
                check=True)
        subprocess.run(["cmake", "--build", str(build_dir), "--target", "_core"], check=True)
        # The component installs mathinterp/ (sources, extension, libqzmathinterp, libplatform)
        # under the directory that holds the package in the wheel being made; that directory
        # outlives a build, so it is emptied first (no stale file reaches a wheel).
        package_dir = Path(self.get_ext_fullpath(ext.name)).parent
        package_parent = package_dir.parent
        shutil.rmtree(package_dir, ignore_errors=True)
        subprocess.run(["cmake", "--install", str(build_dir), "--component", "python",
                        "--prefix", str(package_parent)], check=True)


setup(
    version=project_version(),
    ext_modules=[Extension("mathinterp._core", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
