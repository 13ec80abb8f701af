"""1-D "pchip" and "spline" against SciPy's PchipInterpolator and CubicSpline with not-a-knot
ends: the same slope rules and the same spline, so the curves agree to rounding inside the
grid and in the continued end pieces outside it, for short grids (line, parabola, one cubic),
irregular grids, data with flats and turns, and several value sets."""

import numpy as np
import pytest
from scipy.interpolate import CubicSpline, PchipInterpolator

from mathinterp import griddedInterpolant
from conftest import needs_class

pytestmark = needs_class

PEERS = {
    "pchip": lambda x, v: PchipInterpolator(x, v, extrapolate=True),
    "spline": lambda x, v: CubicSpline(x, v, bc_type="not-a-knot", extrapolate=True),
}


def grid(rng, n, kind):
    if kind == "uniform":
        return np.linspace(-1.0, 2.0, n)
    return np.cumsum(rng.uniform(0.05, 1.5, n)) - 3.0


def queries(rng, x):
    """Random points inside, the nodes themselves, and points up to two mean spacings outside."""
    span = (x[-1] - x[0]) / (len(x) - 1)
    inside = rng.uniform(x[0], x[-1], 300)
    outside = np.concatenate(
        [rng.uniform(x[0] - 2 * span, x[0], 20), rng.uniform(x[-1], x[-1] + 2 * span, 20)]
    )
    return np.concatenate([inside, x, outside])


def assert_agrees(got, want, rtol=1e-12):
    scale = max(np.max(np.abs(want)), 1.0)
    np.testing.assert_allclose(got, want, rtol=rtol, atol=rtol * scale)


@pytest.mark.parametrize("method", ["pchip", "spline"])
@pytest.mark.parametrize("n", [2, 3, 4, 5, 17, 200])
@pytest.mark.parametrize("kind", ["uniform", "irregular"])
def test_matches_scipy(method, n, kind, rng):
    x = grid(rng, n, kind)
    v = rng.uniform(-2.0, 2.0, n)
    xq = queries(rng, x)
    F = griddedInterpolant(x, v, method)
    assert_agrees(F(xq), PEERS[method](x, v)(xq))


@pytest.mark.parametrize("method", ["pchip", "spline"])
def test_flats_and_turns_match_scipy(method, rng):
    # Plateaus (zero slopes), local extrema (sign changes) and steep ends that the pchip end
    # rule clamps.
    x = np.array([0.0, 0.5, 1.0, 2.5, 3.0, 3.2, 4.0, 6.0, 6.5, 7.0])
    v = np.array([0.0, 3.0, 3.0, 3.0, 1.0, -2.0, -2.0, 5.0, 4.0, 9.0])
    xq = queries(rng, x)
    assert_agrees(griddedInterpolant(x, v, method)(xq), PEERS[method](x, v)(xq))


@pytest.mark.parametrize("method", ["pchip", "spline"])
def test_value_sets_match_scipy_column_by_column(method, rng):
    x = grid(rng, 30, "irregular")
    V = np.stack([np.sin(x), np.cos(3 * x), x**3 - x], axis=1)
    xq = queries(rng, x)
    got = griddedInterpolant(x, V, method)(xq)
    assert got.shape == (xq.size, 3)
    assert_agrees(got, PEERS[method](x, V)(xq))


@pytest.mark.parametrize("method", ["pchip", "spline"])
def test_single_precision_close_to_scipy(method, rng):
    x = grid(rng, 40, "irregular")
    v = np.sin(x)
    xq = rng.uniform(x[0], x[-1], 500)
    want = PEERS[method](x, v)(xq)
    for gx, gv in [(np.float32, np.float32), (np.float64, np.float32), (np.float32, np.float64)]:
        xs = x.astype(gx)
        got = griddedInterpolant(xs, v.astype(gv), method)(xq)
        # The peer runs on the rounded grid too, so only the arithmetic precision differs.
        ref = PEERS[method](xs.astype(np.float64), v.astype(gv).astype(np.float64))(xq)
        np.testing.assert_allclose(got, ref, rtol=0, atol=5e-5)
        np.testing.assert_allclose(got, want, rtol=0, atol=1e-4)
