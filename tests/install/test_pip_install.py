"""pip installs the package from the checkout into a throwaway environment (Debian's pip, no
build isolation, no downloads); a clean interpreter outside the checkout imports and uses it,
and pip uninstall removes it. The build reuses the CMake build directory MATHINTERP_BUILD_DIR
(default build/), so only the extension target is brought up to date."""

import importlib.util
import os
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
BUILD = (ROOT / os.environ.get("MATHINTERP_BUILD_DIR", "build")).resolve()

USE = """
import numpy as np, mathinterp
assert mathinterp.__file__.startswith(PREFIX), mathinterp.__file__
F = mathinterp.griddedInterpolant(np.array([0.0, 1.0, 2.0]), np.array([0.0, 10.0, 0.0]))
assert F(np.array([0.5, 1.5])).tolist() == [5.0, 5.0]
"""


def run(args, **kw):
    r = subprocess.run(args, capture_output=True, text=True, **kw)
    assert r.returncode == 0, f"{args}\n{r.stdout}\n{r.stderr}"
    return r


@pytest.mark.skipif(importlib.util.find_spec("pip") is None, reason="pip is not installed")
@pytest.mark.skipif(not (BUILD / "CMakeCache.txt").exists(), reason=f"no CMake build in {BUILD}")
def test_pip_install_import_uninstall(tmp_path):
    env_dir = tmp_path / "env"
    # The system's NumPy stays visible; pip itself runs from the system's packages.
    run([sys.executable, "-m", "venv", "--without-pip", "--system-site-packages", str(env_dir)])
    py = str(env_dir / "bin" / "python")
    env = {k: v for k, v in os.environ.items() if k != "PYTHONPATH"}
    env["MATHINTERP_BUILD_DIR"] = str(BUILD)
    pip = [py, "-m", "pip", "--no-cache-dir", "--disable-pip-version-check"]
    run(pip + ["install", "--no-build-isolation", "--no-deps", "--no-index", str(ROOT)],
        env=env, cwd=tmp_path)
    site = run([py, "-c", "import sysconfig; print(sysconfig.get_paths()['purelib'])"]).stdout
    clean = {"PATH": os.environ.get("PATH", "/usr/bin:/bin")}
    code = f"PREFIX = {site.strip()!r}\n" + USE
    run([py, "-I", "-c", code], env=clean, cwd=tmp_path)
    run(pip + ["uninstall", "-y", "mathinterp"], env=env, cwd=tmp_path)
    gone = subprocess.run([py, "-I", "-c", "import mathinterp"], env=clean, cwd=tmp_path,
                          capture_output=True, text=True)
    assert gone.returncode != 0 and "No module named 'mathinterp'" in gone.stderr
    assert not list(Path(site.strip()).glob("mathinterp*")), "pip uninstall left files behind"
