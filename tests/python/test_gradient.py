"""F.gradient and F.derivative: against SciPy's analytic derivatives (CubicSpline, pchip,
RectBivariateSpline), against hand-computed multilinear cell slopes, against central
differences of our own values for every method in 1-4 dimensions, and the rules at nodes,
outside the grid, for NaN, value sets, complex values, dtypes, query forms and copies."""

import copy
import pickle

import numpy as np
import pytest
from scipy.interpolate import CubicSpline, PchipInterpolator, RectBivariateSpline

import mathinterp
from conftest import expect_error, needs_class

pytestmark = needs_class
GI = mathinterp.griddedInterpolant


def grid(n, rng, uniform=False):
    if uniform:
        return np.linspace(-1.0, 2.0, n)
    return np.cumsum(rng.uniform(0.3, 1.0, n)) - 1.0


def interior_points(x, rng, m, lo=0.2, hi=0.8):
    """Points at relative positions [lo, hi] of random cells of x (away from cell ends)."""
    i = rng.integers(0, len(x) - 1, m)
    return x[i] + rng.uniform(lo, hi, m) * (x[i + 1] - x[i])


# ---- agreement with SciPy and with analytic slopes --------------------------------------------


def test_spline_1d_matches_cubicspline_first_and_second_derivative(rng):
    x = grid(12, rng)
    y = np.sin(2 * x) + x
    xq = np.concatenate([interior_points(x, rng, 50), [x[0] - 0.7, x[-1] + 0.9], x])
    F, S = GI(x, y, "spline"), CubicSpline(x, y)
    np.testing.assert_allclose(F.gradient(xq), S(xq, 1), rtol=1e-12, atol=1e-12)
    np.testing.assert_allclose(F.derivative(xq, 1), S(xq, 1), rtol=1e-12, atol=1e-12)
    np.testing.assert_allclose(F.derivative(xq, 2), S(xq, 2), rtol=1e-11, atol=1e-11)


def test_pchip_1d_matches_pchip_derivative(rng):
    x = grid(10, rng)
    y = np.array([0, 1, 1, 3, 2, 2.5, 5, 5, 4, 0.0])
    xq = np.concatenate([interior_points(x, rng, 60), [x[0] - 0.5, x[-1] + 0.5]])
    P = PchipInterpolator(x, y)
    np.testing.assert_allclose(GI(x, y, "pchip").gradient(xq), P.derivative()(xq), rtol=1e-12,
                               atol=1e-12)
    np.testing.assert_allclose(GI(x, y, "pchip").derivative(xq, 2), P.derivative(2)(xq),
                               rtol=1e-10, atol=1e-10)


def test_spline_2d_matches_rectbivariatespline(rng):
    x, y = grid(9, rng), grid(7, rng)
    V = np.cos(x)[:, None] * np.exp(0.3 * y)[None, :] + np.outer(x, y) ** 2
    px, py = interior_points(x, rng, 80), interior_points(y, rng, 80)
    R = RectBivariateSpline(x, y, V, kx=3, ky=3, s=0)
    g = GI((x, y), V, "spline").gradient(np.column_stack([px, py]))
    assert g.shape == (80, 2)
    np.testing.assert_allclose(g[:, 0], R.ev(px, py, dx=1), rtol=1e-9, atol=1e-9)
    np.testing.assert_allclose(g[:, 1], R.ev(px, py, dy=1), rtol=1e-9, atol=1e-9)


def test_multilinear_cell_slopes_3d(rng):
    xs = [grid(n, rng) for n in (5, 4, 6)]
    V = rng.standard_normal((5, 4, 6))
    P = np.column_stack([interior_points(x, rng, 40, 0.0, 1.0) for x in xs])
    idx = [np.searchsorted(x, P[:, k], side="right") - 1 for k, x in enumerate(xs)]
    t = [(P[:, k] - xs[k][idx[k]]) / (xs[k][idx[k] + 1] - xs[k][idx[k]]) for k in range(3)]
    h = [xs[k][idx[k] + 1] - xs[k][idx[k]] for k in range(3)]
    expect = np.zeros((40, 3))
    for c in range(8):
        bits = [(c >> k) & 1 for k in range(3)]
        v = V[idx[0] + bits[0], idx[1] + bits[1], idx[2] + bits[2]]
        w = [t[k] if bits[k] else 1 - t[k] for k in range(3)]
        for j in range(3):
            dw = np.where(bits[j], 1.0, -1.0) / h[j]
            expect[:, j] += v * dw * np.prod([w[k] for k in range(3) if k != j], axis=0)
    np.testing.assert_allclose(GI(tuple(xs), V, "linear").gradient(P), expect, rtol=1e-12,
                               atol=1e-12)


# ---- central differences for every method and dimension ----------------------------------------

CASES = [(1, m) for m in ("linear", "pchip", "spline", "makima", "cubic")] + [
    (d, m) for d in (2, 3, 4) for m in ("linear", "spline", "makima", "cubic")
]


@pytest.mark.parametrize("d,method", CASES)
def test_gradient_matches_central_differences(d, method, rng):
    sizes = (9, 7, 6, 5)[:d]
    xs = tuple(grid(n, rng, uniform=method == "cubic") for n in sizes)
    V = rng.standard_normal(sizes) if d > 1 else rng.standard_normal(sizes[0])
    F = GI(xs if d > 1 else xs[0], V, method)
    # Interior points and points beyond each end (the extrapolating pieces).
    P = np.column_stack([interior_points(x, rng, 30) for x in xs])
    out = np.column_stack([np.where(rng.random(10) < 0.5, x[0] - 0.3, x[-1] + 0.4) for x in xs])
    P = np.vstack([P, out])
    g = F.gradient(P if d > 1 else P[:, 0])
    g = g.reshape(len(P), d)
    for j in range(d):
        h = 1e-6 * (xs[j][-1] - xs[j][0])
        Pp, Pm = P.copy(), P.copy()
        Pp[:, j] += h
        Pm[:, j] -= h
        fp = F(Pp) if d > 1 else F(Pp[:, 0])
        fm = F(Pm) if d > 1 else F(Pm[:, 0])
        np.testing.assert_allclose(g[:, j], (fp - fm) / (2 * h), rtol=2e-5, atol=2e-5,
                                   err_msg=f"dimension {j}")


@pytest.mark.parametrize("method", ["nearest", "next", "previous"])
def test_steps_have_zero_gradient_and_nan_where_value_is_nan(method, rng):
    x = grid(6, rng)
    F = GI(x, rng.standard_normal(6), method)
    xq = np.array([x[0] - 1, x[1], 0.5 * (x[2] + x[3]), x[-1], x[-1] + 1, np.nan])
    np.testing.assert_array_equal(np.isnan(F.gradient(xq)), np.isnan(F(xq)))
    assert np.all(F.gradient(xq)[~np.isnan(F(xq))] == 0)
    G = GI((x, x), rng.standard_normal((6, 6)), "nearest")
    np.testing.assert_array_equal(G.gradient(np.array([[0.1, 0.2], [np.nan, 0.0]])),
                                  [[0, 0], [np.nan, np.nan]])


# ---- nodes, extrapolation, NaN ---------------------------------------------------------------


def test_linear_at_a_node_takes_the_cell_the_search_picks(rng):
    x = grid(6, rng)
    y = rng.standard_normal(6)
    F = GI(x, y, "linear")
    slopes = np.diff(y) / np.diff(x)
    # Interior nodes and the first: the cell to the right; the last node: the last cell.
    np.testing.assert_allclose(F.gradient(x), np.append(slopes, slopes[-1]), rtol=1e-14)
    h = 1e-7
    np.testing.assert_allclose(F.gradient(x[1:-1]), (F(x[1:-1] + h) - F(x[1:-1])) / h, rtol=1e-6)
    np.testing.assert_allclose(F.gradient(x[-1:]), (F(x[-1:]) - F(x[-1:] - h)) / h, rtol=1e-6)
    V = rng.standard_normal((6, 6))
    G = GI((x, x), V, "linear")  # a node in both dimensions: the cell above in each
    g = G.gradient(np.array([[x[2], x[3]]]))[0]
    np.testing.assert_allclose(g, [(V[3, 3] - V[2, 3]) / (x[3] - x[2]),
                                   (V[2, 4] - V[2, 3]) / (x[4] - x[3])], rtol=1e-13)


def test_outside_uses_the_extrapolation_method_only(rng):
    x = grid(8, rng)
    y = rng.standard_normal(8)
    xq = np.concatenate([interior_points(x, rng, 20), [x[0] - 0.5, x[-1] + 0.5], x[[0, -1]]])
    inside = (xq >= x[0]) & (xq <= x[-1])
    mixed = GI(x, y, "linear", "spline").gradient(xq)
    np.testing.assert_array_equal(mixed[inside], GI(x, y, "linear").gradient(xq[inside]))
    np.testing.assert_array_equal(mixed[~inside], GI(x, y, "spline").gradient(xq[~inside]))
    none = GI(x, y, "spline", "none").gradient(np.array([x[0] - 0.1, x[-1] + 0.1, np.nan]))
    assert np.isnan(none).all()
    near = GI((x, x), np.outer(y, y), "linear", "nearest").gradient(np.array([[x[-1] + 1, x[2]]]))
    np.testing.assert_array_equal(near, [[0.0, 0.0]])
    # N-D, on a full query grid and point by point: inside the box the linear slopes, outside
    # (any coordinate out) the spline's.
    V = rng.standard_normal((8, 8))
    q = (np.array([x[0] - 0.4, x[1], 0.5 * (x[3] + x[4]), x[-1] + 0.3]),
         np.array([0.5 * (x[2] + x[3]), x[-1], x[-1] + 0.2]))
    P = np.column_stack([a.ravel(order="F") for a in np.meshgrid(*q, indexing="ij")])
    mixed = GI((x, x), V, "linear", "spline")
    grid_g = mixed.gradient(q).reshape(-1, 2, order="F")
    np.testing.assert_array_equal(grid_g, mixed.gradient(P))
    inside = ((P >= x[0]) & (P <= x[-1])).all(axis=1)
    np.testing.assert_array_equal(grid_g[inside], GI((x, x), V, "linear").gradient(P[inside]))
    np.testing.assert_array_equal(grid_g[~inside], GI((x, x), V, "spline").gradient(P[~inside]))
    u = np.linspace(0.0, 1.0, 8)
    for method in ("linear", "spline", "cubic", "makima"):
        g = GI((u, u), np.outer(y, y), method).gradient(np.array([[np.nan, 0.2], [0.5, 0.3]]))
        assert np.isnan(g[0]).all() and not np.isnan(g[1]).any(), method


# ---- layout: value sets, complex, dtypes, query forms, copies, threads -------------------------


def test_value_sets_complex_and_float32_keep_their_components(rng):
    x, y = grid(6, rng), grid(5, rng)
    V = rng.standard_normal((6, 5, 3)) + 1j * rng.standard_normal((6, 5, 3))
    P = np.column_stack([interior_points(x, rng, 7), interior_points(y, rng, 7)])
    g = GI((x, y), V, "spline").gradient(P)
    assert g.shape == (7, 2, 3) and g.dtype == np.complex128
    for s in range(3):
        np.testing.assert_allclose(g[:, :, s].real, GI((x, y), V[:, :, s].real, "spline").gradient(P))
        np.testing.assert_allclose(g[:, :, s].imag, GI((x, y), V[:, :, s].imag, "spline").gradient(P))
    V1 = rng.standard_normal((6, 2)).astype(np.float32)
    g1 = GI(x.astype(np.float32), V1, "pchip").gradient(np.array([[0.1, 0.2], [0.3, 0.4]]))
    assert g1.shape == (2, 2, 2) and g1.dtype == np.float32
    np.testing.assert_allclose(g1[:, :, 1], GI(x, V1[:, 1].astype(float), "pchip").gradient(
        np.array([[0.1, 0.2], [0.3, 0.4]])), rtol=1e-4, atol=1e-4)


def test_query_forms_agree_and_shape(rng):
    xs = (grid(6, rng), grid(7, rng), grid(5, rng))
    F = GI(xs, rng.standard_normal((6, 7, 5)), "makima")
    vecs = tuple(interior_points(x, rng, n) for x, n in zip(xs, (3, 4, 2)))
    gg = F.gradient(vecs)
    assert gg.shape == (3, 4, 2, 3)
    X = np.meshgrid(*vecs, indexing="ij")
    np.testing.assert_array_equal(F.gradient(*X), gg)
    np.testing.assert_array_equal(
        F.gradient(np.column_stack([a.ravel(order="F") for a in X])).reshape((3, 4, 2, 3), order="F"),
        gg)
    # Many query points per cell: linear's and the spline's whole-grid paths.
    for method in ("linear", "spline"):
        G = GI(xs[:2], rng.standard_normal((6, 7)), method)
        v = tuple(np.sort(rng.uniform(x[0] - 0.5, x[-1] + 0.5, 40)) for x in xs[:2])
        X = np.meshgrid(*v, indexing="ij")
        P = np.column_stack([a.ravel(order="F") for a in X])
        got = G.gradient(v).reshape(-1, 2, order="F")
        if method == "linear":
            np.testing.assert_array_equal(got, G.gradient(P))
        else:
            np.testing.assert_allclose(got, G.gradient(P), rtol=1e-12, atol=1e-12)
    F1 = GI(xs[0], rng.standard_normal(6), "spline")
    q = interior_points(xs[0], rng, 6).reshape(2, 3)
    assert F1.gradient(q).shape == (2, 3)
    np.testing.assert_array_equal(F1.gradient(np.ascontiguousarray(q)), F1.gradient(np.asfortranarray(q)))


def test_copies_and_pickles_have_the_gradient(rng):
    x = grid(7, rng)
    F = GI((x, x), rng.standard_normal((7, 7)), "spline")
    P = np.column_stack([interior_points(x, rng, 5), interior_points(x, rng, 5)])
    g = F.gradient(P)
    for G in (copy.copy(F), copy.deepcopy(F), pickle.loads(pickle.dumps(F))):
        np.testing.assert_array_equal(G.gradient(P), g)


def test_same_bits_for_any_thread_count(rng):
    x = grid(40, rng)
    F = GI((x, x), rng.standard_normal((40, 40)), "spline")
    P = np.column_stack([interior_points(x, rng, 20000), interior_points(x, rng, 20000)])
    g = F.gradient(P)
    with mathinterp.num_threads(1):
        np.testing.assert_array_equal(F.gradient(P), g)


def test_derivative_errors(rng):
    x = grid(5, rng)
    expect_error("DerivativeOrderErrId", GI(x, x, "spline").derivative, x, 3)
    expect_error("Derivative1DOnlyErrId", GI((x, x), np.ones((5, 5))).derivative, x, 1)


@pytest.mark.parametrize("method", ["linear", "pchip", "spline", "makima", "cubic", "nearest"])
def test_nan_values_give_nan_gradients_where_values_are_nan(method, rng):
    x = np.linspace(0.0, 4.0, 9)
    for V in (rng.standard_normal(9), rng.standard_normal((9, 9))):
        if method == "pchip" and V.ndim == 2:
            continue
        V = V.copy()
        V[(4,) * V.ndim] = np.nan
        F = GI((x,) * V.ndim if V.ndim > 1 else x, V, method)
        P = rng.uniform(-0.5, 4.5, (400, V.ndim))
        q = P if V.ndim > 1 else P[:, 0]
        nan_value = np.isnan(F(q))
        assert nan_value.any()
        g = F.gradient(q).reshape(len(P), V.ndim)
        assert np.isnan(g[nan_value]).all(), method
