"""The stubs are complete and really read: stubtest finds no public name of the built package
missing from or mistyped in __init__.pyi, mypy --strict accepts examples/typed/typed_use.py
(every public name) and reports exactly the lines marked "# error" in wrong_call.py."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
TYPED = ROOT / "examples" / "typed"
BUILD = (ROOT / os.environ.get("MATHINTERP_BUILD_DIR", "build")).resolve()

pytestmark = pytest.mark.skipif(shutil.which("mypy") is None, reason="mypy is not installed")


def mypy(*args):
    env = dict(os.environ, MYPYPATH=str(ROOT / "bindings" / "python"))
    cmd = [sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(BUILD / "mypy-cache")]
    return subprocess.run(cmd + [str(a) for a in args], capture_output=True, text=True,
                          env=env, cwd=ROOT)


def test_typed_example_passes():
    r = mypy(TYPED / "typed_use.py")
    assert r.returncode == 0, r.stdout


def test_wrong_calls_are_reported():
    src = (TYPED / "wrong_call.py").read_text().splitlines()
    marked = {i + 1 for i, line in enumerate(src) if "# error" in line}
    r = mypy(TYPED / "wrong_call.py")
    reported = {int(m) for m in re.findall(r"wrong_call\.py:(\d+): error", r.stdout)}
    assert marked and reported == marked, r.stdout


@pytest.mark.skipif(not (BUILD / "python" / "mathinterp").is_dir(), reason="no built package")
def test_stubs_match_the_built_package():
    env = dict(os.environ, PYTHONPATH=str(BUILD / "python"))
    r = subprocess.run([sys.executable, "-m", "mypy.stubtest", "mathinterp"], capture_output=True,
                       text=True, env=env, cwd=BUILD)
    assert r.returncode == 0, r.stdout
