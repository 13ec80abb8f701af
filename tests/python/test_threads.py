"""Threads: evaluation releases the GIL, so one interpolant and its copies can be evaluated
from several Python threads at once with the same results as serially; the worker-thread
cap (set_num_threads / num_threads) is scoped and changes nothing in the results, for every
method; warnings go to the issuing thread; and a large evaluation allocates only the result
(no second query-sized buffer)."""

import copy
import json
import os
import subprocess
import sys
import threading
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import mathinterp
from mathinterp import griddedInterpolant
from conftest import needs_class


def test_thread_cap_and_context_manager():
    default = mathinterp.get_num_threads()
    assert default >= 1
    with mathinterp.num_threads(1):
        assert mathinterp.get_num_threads() == 1
        with mathinterp.num_threads(2):
            assert mathinterp.get_num_threads() == 2
        assert mathinterp.get_num_threads() == 1
    assert mathinterp.get_num_threads() == default
    mathinterp.set_num_threads(1)
    assert mathinterp.get_num_threads() == 1
    mathinterp.set_num_threads(None)
    assert mathinterp.get_num_threads() == default
    with pytest.raises(ValueError):
        mathinterp.set_num_threads(-1)


@needs_class
@pytest.mark.filterwarnings("ignore::mathinterp.InterpolationWarning")
@pytest.mark.parametrize("nd", [False, True], ids=["1-D", "2-D"])
@pytest.mark.parametrize("method", mathinterp.METHODS)
def test_results_do_not_depend_on_the_thread_cap(method, nd, rng):
    """The cap reaches the engine: one worker and two give the same bits, for an object whose
    tables are built under either cap, on both sides of the parallel threshold (2048)."""
    x = np.linspace(-2.0, 3.0, 21)
    y = np.array([0.0, 0.5, 1.5, 2.0, 4.0, 4.5])
    args = ((x, y), np.cos(x)[:, None] * (1 + y[None, :] ** 2)) if nd else (x, np.sin(3 * x))
    q = rng.uniform(-3.0, 4.5, (4100, 2) if nd else 4100)
    q[::97] = np.nan
    with mathinterp.num_threads(1):
        F = griddedInterpolant(*args, method)
        reference = F(q)
    with mathinterp.num_threads(2):
        assert griddedInterpolant(*args, method)(q).tobytes() == reference.tobytes()
        for m in (1, 2047, 2049):
            assert F(q[:m]).tobytes() == reference[:m].tobytes(), m


@needs_class
@pytest.mark.parametrize("method", ["linear", "spline"])
def test_one_object_and_its_copies_from_many_threads(rng, method):
    x = np.cumsum(rng.uniform(0.1, 1.0, 500))
    F = griddedInterpolant(x, np.stack([np.sin(x), np.cos(x)], axis=1), method)
    objects = [F, F, copy.copy(F), copy.copy(F), copy.deepcopy(F)] * 2
    queries = [rng.uniform(x[0] - 1, x[-1] + 1, n) for n in (10, 3000, 50_000, 5, 20_000)]
    expected = [F(q) for q in queries]
    barrier = threading.Barrier(len(objects))

    def work(t):  # returns the query sets that came out wrong
        barrier.wait()
        return [j for k in range(20) for j in [(t + k) % len(queries)]
                if not np.array_equal(objects[t](queries[j]), expected[j])]

    with ThreadPoolExecutor(len(objects)) as pool:
        assert list(pool.map(work, range(len(objects)))) == [[]] * len(objects)


@needs_class
def test_gil_is_released_during_evaluation(rng):
    """A Python thread keeps running while another evaluates a large query."""
    x = np.cumsum(rng.uniform(0.1, 1.0, 1000))
    F = griddedInterpolant(x, np.sin(x))
    xq = rng.uniform(x[0], x[-1], 5_000_000)
    ticks = []
    done = threading.Event()

    def ticker():
        while not done.is_set():
            ticks.append(1)
            done.wait(0.001)

    t = threading.Thread(target=ticker)
    t.start()
    try:
        for _ in range(3):
            F(xq)
    finally:
        done.set()
        t.join()
    assert len(ticks) > 3


def test_warnings_from_threads_are_issued_on_the_issuing_thread():
    """Each thread's host warning is shown on that thread (catch_warnings itself is not
    thread-safe, so one recorder around all threads notes the thread of every warning)."""
    import warnings

    names = ["Next1DonlyWarnId", "Pchip1DonlyWarnId", "Previous1DonlyWarnId"] * 4
    seen = []
    idents = {}

    def show(message, category, filename, lineno, file=None, line=None):
        seen.append((message.identifier.split(":")[-1], threading.get_ident(), category))

    def work(k, name):
        idents[k] = threading.get_ident()
        mathinterp._core._issue_warning("QUARTZ:griddedInterpolant", name)

    with warnings.catch_warnings():
        warnings.simplefilter("always")
        warnings.showwarning = show
        threads = [threading.Thread(target=work, args=(k, n)) for k, n in enumerate(names)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()
    assert sorted((n, i) for n, i, _ in seen) == sorted(
        (n, idents[k]) for k, n in enumerate(names)
    )
    assert all(c is mathinterp.InterpolationWarning for _, _, c in seen)


WIDTH_PROBE = r"""
import hashlib, warnings
import numpy as np, mathinterp
warnings.simplefilter("ignore")
rng = np.random.default_rng(7)
digest = hashlib.sha256()
for dtype in (np.float64, np.float32):
    for shape in ((1000,), (60, 50), (20, 18, 16)):
        grid = tuple(np.cumsum(rng.uniform(0.5, 1.5, n)).astype(dtype) for n in shape)
        grid = grid if len(shape) > 1 else grid[0]
        values = rng.standard_normal(shape).astype(dtype)
        q = np.column_stack([rng.uniform(-1.0, n + 1.0, 5000) for n in shape]).astype(dtype)
        q[::101] = np.nan
        for method in mathinterp.METHODS:
            if len(shape) > 1 and method in ("next", "previous", "pchip"):
                continue
            F = mathinterp.griddedInterpolant(grid, values, method)
            digest.update(np.ascontiguousarray(F(q if len(shape) > 1 else q[:, 0])).tobytes())
print(digest.hexdigest())
"""


@needs_class
def test_results_do_not_depend_on_the_packed_width():
    """MATHINTERP_SIMD caps the packed kernels for a process: sixteen/eight lanes, eight/four
    lanes and the scalar kernels give the same bits, in double and single precision."""
    runs = {}
    for width in ("", "avx2", "none"):
        env = dict(os.environ, MATHINTERP_SIMD=width)
        out = subprocess.run([sys.executable, "-c", WIDTH_PROBE], capture_output=True, text=True,
                             env=env, check=True)
        runs[width] = out.stdout.strip()
    assert runs["avx2"] == runs[""] and runs["none"] == runs[""], runs


MEMORY_PROBE = r"""
import json, sys
import numpy as np, mathinterp
def peak_kib():  # this process's own high-water mark (ru_maxrss keeps the parent's across exec)
    with open("/proc/self/status") as f:
        return next(int(l.split()[1]) for l in f if l.startswith("VmHWM:"))
order = sys.argv[1]
n = 20_000_000
x = np.linspace(0.0, 1.0, 1000)
F = mathinterp.griddedInterpolant(x, np.sin(x))
q = np.random.default_rng(1).uniform(-0.1, 1.1, n)
if order == "C2":
    q = q.reshape(4000, 5000)
elif order == "F2":
    q = q.reshape(5000, 4000).T  # a column-major view, no copy
F(q[:10].ravel())
before = peak_kib()
r = F(q)
after = peak_kib()
assert r.shape == q.shape
print(json.dumps({"grown_kib": after - before, "result_kib": r.nbytes // 1024,
                  "shares": bool(np.shares_memory(r, q))}))
"""


@needs_class
@pytest.mark.parametrize("layout", ["1D", "C2", "F2"])
def test_large_evaluation_allocates_only_the_result(layout):
    """Peak RSS grows by about one result (160 MB), not by a copy of the query as well."""
    out = subprocess.run(
        [sys.executable, "-c", MEMORY_PROBE, layout], capture_output=True, text=True, timeout=600
    )
    assert out.returncode == 0, out.stderr
    m = json.loads(out.stdout.strip().splitlines()[-1])
    assert not m["shares"]
    assert 0.5 * m["result_kib"] < m["grown_kib"] < 1.25 * m["result_kib"], m
