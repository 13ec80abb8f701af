"""Determinism from Python: results are bit-identical with the worker threads capped at one
(mathinterp.set_num_threads / num_threads) and at two, and whatever the number of queries
in a call (both sides of the parallel threshold of 2048 points), for every method."""

import numpy as np
import pytest

import mathinterp
from conftest import needs_class

pytestmark = needs_class

COUNTS = (1, 2047, 2048, 2049, 4097)


def build(method, nd):
    x = np.linspace(-2.0, 3.0, 21)
    if not nd:
        return mathinterp.griddedInterpolant(x, np.sin(3 * x) + x, method)
    y = np.array([0.0, 0.5, 1.5, 2.0, 4.0, 4.5])
    v = np.cos(x)[:, None] * (1 + y[None, :] ** 2)
    return mathinterp.griddedInterpolant((x, y), v, method)


def queries(nd, rng):
    n = COUNTS[-1] + 7
    if not nd:
        q = rng.uniform(-3.0, 4.0, n)
    else:
        q = np.column_stack([rng.uniform(-3.0, 4.0, n), rng.uniform(-1.0, 5.0, n)])
    q[::97] = np.nan
    return q


@pytest.mark.parametrize("nd", [False, True], ids=["1-D", "2-D"])
@pytest.mark.parametrize("method", mathinterp.METHODS)
def test_bits_do_not_depend_on_threads_or_batch_size(method, nd, rng):
    try:
        with mathinterp.num_threads(1):
            F1 = build(method, nd)
            q = queries(nd, rng)
            reference = F1(q)
    except mathinterp.MethodNotBuiltError:
        pytest.skip(f"{method} is not built")
    with mathinterp.num_threads(2):
        F2 = build(method, nd)  # its first evaluation runs with two workers
        assert F2(q).tobytes() == reference.tobytes()
    for cap in (1, 2):
        mathinterp.set_num_threads(cap)
        try:
            for m in COUNTS:
                assert F1(q[:m]).tobytes() == reference[:m].tobytes(), (cap, m)
        finally:
            mathinterp.set_num_threads(None)
