"""mathinterp.dask on a local cluster of two worker processes: every chunking gives the bits of
a local evaluation (chunks that split the 2048-query parallel threshold, empty chunks, float32,
complex, value sets), and each worker unpickles an interpolant at most once."""

import os
import subprocess
import sys

import numpy as np
import pytest
from hypothesis import given, settings, strategies as st

da = pytest.importorskip("dask.array")
distributed = pytest.importorskip("distributed")
cloudpickle = pytest.importorskip("cloudpickle")

import mathinterp  # noqa: E402
import mathinterp.dask as mdask  # noqa: E402


def _count_loads():
    """Worker side: count the calls of the package's unpickling path."""
    import mathinterp as mi

    if not hasattr(mi._load, "calls"):
        original = mi._load

        def counted(state):
            counted.calls += 1
            return original(state)

        counted.calls = 0
        counted.__module__, counted.__qualname__ = "mathinterp", "_load"  # pickles by name
        mi._load = counted


def _loads():
    import mathinterp as mi

    return mi._load.calls


@pytest.fixture(scope="module")
def client():
    cloudpickle.register_pickle_by_value(sys.modules[__name__])
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=2, processes=True,
                                       host="127.0.0.1", dashboard_address=None,
                                       worker_dashboard_address=None, timeout=60)
    c = distributed.Client(cluster, timeout=60)
    try:
        c.run(_count_loads)
        yield c
    finally:
        c.close(timeout=30)
        cluster.close(timeout=30)
        cloudpickle.unregister_pickle_by_value(sys.modules[__name__])


def _interpolant(rng, sizes, vs=(), method="linear", dtype=np.float64, extrap="nearest"):
    grid = tuple(np.linspace(0, 10, n) if method == "cubic" else np.sort(rng.uniform(0, 10, n))
                 for n in sizes)
    V = rng.standard_normal(sizes + vs)
    if np.dtype(dtype).kind == "c":
        V = V + 1j * rng.standard_normal(sizes + vs)
    V = V.astype(dtype)
    return mathinterp.griddedInterpolant(grid if len(sizes) > 1 else grid[0], V, method, extrap)


def _points(rng, n, d):
    return rng.uniform(-1, 11, (n, d)) if d > 1 else rng.uniform(-1, 11, n)


SPLIT = (2047, 0, 2049, 1, 3000)  # around the parallel threshold, and an empty chunk

# (grid sizes, value sets, method, values dtype, query kind, query chunks)
CASES = [
    ((40,), (), "linear", np.float64, "points", (SPLIT,)),
    ((40,), (3,), "pchip", np.float32, "points", (SPLIT,)),
    ((40,), (), "spline", np.float64, "shaped", ((37, 0, 40), (50, 61))),
    ((30, 20), (), "linear", np.float64, "points", (SPLIT, (1, 1))),
    ((30, 20), (2, 3), "makima", np.complex128, "points", (SPLIT, (2,))),
    ((30, 20), (), "cubic", np.float32, "grid", ((33, 0, 80), (70, 31))),
    ((9, 8, 7), (2,), "linear", np.complex64, "grid", ((20, 21), (0, 41), (17,))),
    ((9, 8, 7), (), "nearest", np.float64, "points", ((5000,), (3,))),
]


@pytest.mark.parametrize("sizes,vs,method,dtype,kind,chunks", CASES)
def test_chunked_evaluation_has_the_local_bits(client, rng, sizes, vs, method, dtype, kind, chunks):
    F = _interpolant(rng, sizes, vs, method, dtype)
    d = len(sizes)
    if kind == "grid":
        q = tuple(np.sort(rng.uniform(-1, 11, sum(c))) for c in chunks)
        lazy = mdask.evaluate(F, tuple(da.from_array(v, chunks=(c,)) for v, c in zip(q, chunks)))
        expected = F(q)
    else:
        q = rng.uniform(-1, 11, tuple(sum(c) for c in chunks))
        if kind == "points" and d == 1:
            q = q[:, 0] if q.ndim == 2 else q
        lazy = mdask.evaluate(F, da.from_array(q, chunks=chunks[:q.ndim]))
        expected = F(q)
    expected = np.asarray(expected)
    assert lazy.dtype == expected.dtype and lazy.shape == expected.shape
    if kind == "points" and d > 1:
        assert lazy.chunks == (chunks[0],) + tuple((n,) for n in vs)
    got = client.compute(lazy).result(timeout=60)
    assert got.dtype == expected.dtype and got.shape == expected.shape
    assert np.ascontiguousarray(got).tobytes() == np.ascontiguousarray(expected).tobytes()


def test_each_worker_unpickles_the_interpolant_at_most_once(client, rng):
    F = _interpolant(rng, (50, 40), (2,), "spline")
    before = client.run(_loads)
    q = da.from_array(_points(rng, 40_000, 2), chunks=(1000, 2))
    lazy = mdask.evaluate(F, q)
    total = lazy.sum(axis=0) + mdask.evaluate(F, q[::-1]).sum(axis=0)
    got = client.compute(total).result(timeout=60)
    assert np.isfinite(got).all()
    loads = {w: n - before[w] for w, n in client.run(_loads).items()}
    assert all(n <= 1 for n in loads.values()) and sum(loads.values()) >= 1, loads


@pytest.mark.parametrize("queries,error", [
    (np.zeros((10, 3)), ValueError),           # three columns for a 2-D interpolant
    ((np.zeros(3),), ValueError),               # one vector for a 2-D grid
    (np.zeros((10, 2), dtype=np.int32), mathinterp.InterpolationError),  # the class's own
])
def test_queries_are_checked_when_the_graph_is_built(rng, queries, error):
    with pytest.raises(error):
        mdask.evaluate(_interpolant(rng, (5, 6)), queries)


def test_the_package_imports_neither_dask_nor_xarray():
    code = ("import sys, mathinterp; "
            "print(sorted(m for m in ('dask', 'xarray', 'distributed') if m in sys.modules))")
    out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                         check=True, env=dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path)))
    assert out.stdout.strip() == "[]"


@settings(max_examples=30, deadline=None)
@given(sizes=st.lists(st.integers(0, 3000), min_size=1, max_size=5),
       d=st.sampled_from([1, 2]), vs=st.sampled_from([(), (2,)]))
def test_any_chunking_gives_the_local_bits(client, sizes, d, vs):
    rng = np.random.default_rng(sum(sizes))
    F = _interpolant(rng, (12,) * d, vs, "pchip" if d == 1 else "linear")
    q = _points(rng, sum(sizes), d)
    lazy = mdask.evaluate(F, da.from_array(q, chunks=(tuple(sizes),) + ((d,) if d > 1 else ())))
    got = client.compute(lazy).result(timeout=60)
    assert got.tobytes() == np.ascontiguousarray(F(q)).reshape(got.shape).tobytes()
