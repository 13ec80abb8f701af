"""F.gradient and F.derivative from Python: result shapes for every query form, value sets,
complex values and dtypes, copies and pickles, and the errors; one SciPy cross-check per
method family (the piecewise cubics' values and derivatives in 1-D, the tensor spline's
gradient in 2-D). The slopes of every method are the C++ suite's."""

import copy
import pickle

import numpy as np
import pytest
from scipy.interpolate import CubicSpline, PchipInterpolator, RectBivariateSpline

import mathinterp
from conftest import expect_error, needs_class

pytestmark = needs_class
GI = mathinterp.griddedInterpolant


def grid(n, rng):
    return np.cumsum(rng.uniform(0.3, 1.0, n)) - 1.0


def interior_points(x, rng, m):
    """Points at relative positions [0.2, 0.8] of random cells of x (away from cell ends)."""
    i = rng.integers(0, len(x) - 1, m)
    return x[i] + rng.uniform(0.2, 0.8, m) * (x[i + 1] - x[i])


PEERS = {
    "pchip": lambda x, v: PchipInterpolator(x, v, extrapolate=True),
    "spline": lambda x, v: CubicSpline(x, v, bc_type="not-a-knot", extrapolate=True),
}


@pytest.mark.parametrize("method", ["pchip", "spline"])
@pytest.mark.parametrize("n", [2, 3, 4, 17])
def test_piecewise_cubics_match_scipy_values_and_derivatives(method, n, rng):
    x = grid(n, rng)
    V = np.stack([rng.uniform(-2.0, 2.0, n), np.sin(3 * x)], axis=1)
    xq = np.concatenate([interior_points(x, rng, 50), x, [x[0] - 0.7, x[-1] + 0.9]])
    F, P = GI(x, V, method), PEERS[method](x, V)
    np.testing.assert_allclose(F(xq), P(xq), rtol=1e-12, atol=1e-12)
    np.testing.assert_allclose(F.gradient(xq), P(xq, 1), rtol=1e-11, atol=1e-11)
    np.testing.assert_allclose(F.derivative(xq, 2), P(xq, 2), rtol=1e-10, atol=1e-10)
    assert F.gradient(xq).shape == F.derivative(xq, 1).shape == (xq.size, 2)


def test_spline_2d_gradient_matches_rectbivariatespline(rng):
    x, y = grid(9, rng), grid(7, rng)
    V = np.cos(x)[:, None] * np.exp(0.3 * y)[None, :] + np.outer(x, y) ** 2
    px, py = interior_points(x, rng, 80), interior_points(y, rng, 80)
    R = RectBivariateSpline(x, y, V, kx=3, ky=3, s=0)
    g = GI((x, y), V, "spline").gradient(np.column_stack([px, py]))
    assert g.shape == (80, 2)
    np.testing.assert_allclose(g[:, 0], R.ev(px, py, dx=1), rtol=1e-9, atol=1e-9)
    np.testing.assert_allclose(g[:, 1], R.ev(px, py, dy=1), rtol=1e-9, atol=1e-9)


def test_value_sets_complex_and_float32_keep_their_components(rng):
    x, y = grid(6, rng), grid(5, rng)
    V = rng.standard_normal((6, 5, 3)) + 1j * rng.standard_normal((6, 5, 3))
    P = np.column_stack([interior_points(x, rng, 7), interior_points(y, rng, 7)])
    g = GI((x, y), V, "spline").gradient(P)
    assert g.shape == (7, 2, 3) and g.dtype == np.complex128
    for s in range(3):
        for part in (np.real, np.imag):
            np.testing.assert_allclose(part(g[:, :, s]),
                                       GI((x, y), part(V[:, :, s]), "spline").gradient(P))
    V1 = rng.standard_normal((6, 2)).astype(np.float32)
    q = np.array([[0.1, 0.2], [0.3, 0.4]])
    g1 = GI(x.astype(np.float32), V1, "pchip").gradient(q)
    assert g1.shape == (2, 2, 2) and g1.dtype == np.float32
    np.testing.assert_allclose(g1[:, :, 1], GI(x, V1[:, 1].astype(float), "pchip").gradient(q),
                               rtol=1e-4, atol=1e-4)


def test_query_forms_agree_and_shape(rng):
    xs = (grid(6, rng), grid(7, rng), grid(5, rng))
    F = GI(xs, rng.standard_normal((6, 7, 5)), "makima")
    vecs = tuple(interior_points(x, rng, n) for x, n in zip(xs, (3, 4, 2)))
    gg = F.gradient(vecs)
    assert gg.shape == (3, 4, 2, 3)
    X = np.meshgrid(*vecs, indexing="ij")
    np.testing.assert_array_equal(F.gradient(*X), gg)
    P = np.column_stack([a.ravel(order="F") for a in X])
    np.testing.assert_array_equal(F.gradient(P).reshape((3, 4, 2, 3), order="F"), gg)
    F1 = GI(xs[0], rng.standard_normal(6), "spline")
    q = interior_points(xs[0], rng, 6).reshape(2, 3)
    assert F1.gradient(q).shape == (2, 3)
    np.testing.assert_array_equal(F1.gradient(np.ascontiguousarray(q)),
                                  F1.gradient(np.asfortranarray(q)))


def test_copies_and_pickles_have_the_gradient(rng):
    x = grid(7, rng)
    F = GI((x, x), rng.standard_normal((7, 7)), "spline")
    P = np.column_stack([interior_points(x, rng, 5), interior_points(x, rng, 5)])
    g = F.gradient(P)
    for G in (copy.copy(F), copy.deepcopy(F), pickle.loads(pickle.dumps(F))):
        np.testing.assert_array_equal(G.gradient(P), g)


def test_derivative_errors(rng):
    x = grid(5, rng)
    expect_error("DerivativeOrderErrId", GI(x, x, "spline").derivative, x, 3)
    expect_error("Derivative1DOnlyErrId", GI((x, x), np.ones((5, 5))).derivative, x, 1)
