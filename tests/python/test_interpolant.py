"""griddedInterpolant from Python: construction and query forms, result shapes and memory
order, dtypes end to end, properties, copy/deepcopy/pickle (the gateways: tests/gateways).
What each method computes is the C++ suite's; here results are compared between forms."""

import copy
import pickle

import numpy as np
import pytest
from hypothesis import given, settings, strategies as st
from hypothesis.extra import numpy as hnp

import mathinterp
from mathinterp import griddedInterpolant
from conftest import expect_error, needs_class

pytestmark = needs_class

X = np.array([0.0, 0.5, 1.5, 2.0, 3.5, 4.0])
V = np.sin(X) + X
Q = np.array([0.25, 1.0, 1.75, 3.0, 3.9, 0.0, 4.0])


def test_constructor_forms_agree():
    expected = griddedInterpolant(X, V)(Q)
    for F in (
        griddedInterpolant((X,), V),
        griddedInterpolant(X, V, "linear"),
        griddedInterpolant((X,), V, "linear", "linear"),
        griddedInterpolant(X.reshape(1, -1), V.reshape(-1, 1)),
        griddedInterpolant(list(X), list(V)),
        griddedInterpolant(X, V, b"linear"),
        griddedInterpolant(X, V, np.array(["linear"])),
    ):
        np.testing.assert_array_equal(F(Q), expected)
    # And they are the line's values (the engine's accuracy is the C++ suite's to check).
    np.testing.assert_array_equal(griddedInterpolant(X, 2 * X + 1)(Q), 2 * Q + 1)


def test_values_only_builds_the_default_grid_and_no_arguments_an_empty_object():
    F = griddedInterpolant(np.array([3.0, 1.0, 4.0, 1.0, 5.0]), "nearest")
    np.testing.assert_array_equal(F.GridVectors[0], [1.0, 2.0, 3.0, 4.0, 5.0])
    assert F.Method == "nearest"
    np.testing.assert_array_equal(F([1.4, 4.0]), [3.0, 1.0])
    E = griddedInterpolant()
    assert repr(E) == "griddedInterpolant()"
    expect_error("DegenerateGridErrId", E, 1.0)


VALUE_SETS = {
    (): V,
    (3,): np.stack([V, 2 * V, -V], axis=1),
    (2, 2): np.stack([V, 2 * V, -V, 3 * V], axis=1).reshape(6, 2, 2),
}


@settings(max_examples=60)
@given(
    shape=hnp.array_shapes(min_dims=0, max_dims=4, min_side=0, max_side=4),
    order=st.sampled_from("CF"),
    sets=st.sampled_from(list(VALUE_SETS)),
)
def test_results_take_the_query_shape_then_the_value_sets_in_the_query_order(shape, order, sets):
    F = griddedInterpolant(X, VALUE_SETS[sets])
    n = int(np.prod(shape))
    q = np.asarray(np.linspace(-0.5, 4.5, n).reshape(shape), order=order)
    r = F(q)
    assert r.shape == shape + sets and r.dtype == np.float64
    np.testing.assert_array_equal(r.reshape((n,) + sets), F(q.ravel()))  # point by point
    if q.ndim >= 2 and not sets and min(shape) > 1:
        assert r.flags.c_contiguous if order == "C" else r.flags.f_contiguous


def test_scalars_lists_and_gridded_form_on_one_dimension():
    F = griddedInterpolant(X, V)
    r = F(float(X[3]))
    assert np.ndim(r) == 0 and r == V[3]
    assert F(np.float64(X[3])) == V[3]
    assert F([X[1], X[2]]).shape == (2,)
    np.testing.assert_array_equal(F((Q,)), F(Q))
    np.testing.assert_array_equal(F(np.array([Q[0]], dtype=object)), F(Q[:1]))  # a cell
    q = np.linspace(0, 4, 24).reshape(4, 6)
    np.testing.assert_array_equal(F(q[:, ::2]), F(q)[:, ::2])  # strided


# ---- dtypes --------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "grid,values,query,result",
    [
        (np.float32, np.float32, np.float32, np.float32),
        (np.float32, np.float32, np.float64, np.float32),
        (np.float64, np.float64, np.float32, np.float64),
        (np.float32, np.float64, np.float64, np.float64),
        (np.float64, np.float32, np.float64, np.float32),
        (np.float64, np.complex64, np.float64, np.complex64),
        (np.float32, np.complex128, np.float32, np.complex128),
    ],
)
def test_dtypes_are_kept_end_to_end(grid, values, query, result):
    v = (V + 1j * V[::-1]) if np.dtype(values).kind == "c" else V
    F = griddedInterpolant(X.astype(grid), v.astype(values))
    assert F.Values.dtype == values and F.GridVectors[0].dtype == grid
    r = F(Q.astype(query))
    assert r.dtype == result
    if np.dtype(values).kind == "c":  # the planes are interpolated as two real value sets
        re = griddedInterpolant(X.astype(grid), v.real.astype(values))(Q.astype(query))
        np.testing.assert_array_equal(r.real, re)


def test_values_in_host_layout_are_wrapped_and_other_layouts_give_the_same_results():
    W = np.asfortranarray(np.sin(np.outer(X, [1.0, 2.0, 3.0])))
    F = griddedInterpolant(X, W)
    assert np.shares_memory(F.Values, W) and not F.Values.flags.writeable
    assert np.shares_memory(griddedInterpolant(X, V).Values, V)
    np.testing.assert_array_equal(griddedInterpolant(X, np.ascontiguousarray(W))(Q), F(Q))


# ---- properties, copies, pickles ---------------------------------------------------------


def test_properties_read_back_and_set():
    F = griddedInterpolant(X, V, "nearest", "linear")
    np.testing.assert_array_equal(F.GridVectors[0], X)
    assert F.GridVectors[0].ndim == 1 and F.Values.shape == V.shape
    assert (F.Method, F.ExtrapolationMethod) == ("nearest", "linear")
    F.Method = "linear"
    np.testing.assert_array_equal(F(Q), griddedInterpolant(X, V)(Q))
    F.Values = np.cos(X)  # same size
    np.testing.assert_array_equal(F(Q), griddedInterpolant(X, np.cos(X))(Q))
    F.GridVectors = (X + 1,)
    np.testing.assert_array_equal(F(Q), griddedInterpolant(X + 1, np.cos(X))(Q))
    F.ExtrapolationMethod = "none"
    assert np.isnan(F(10.0))


def test_property_setter_errors_change_nothing():
    F = griddedInterpolant(X, V)
    expect_error("NonCellCompVecErrId", setattr, F, "GridVectors", X)
    expect_error("NonMonotonicCompVecsErrId", setattr, F, "GridVectors", (X[::-1],))
    expect_error("NonFloatValuesErrId", setattr, F, "Values", V.astype(np.int32))
    expect_error("BadInterpTypeErrId", setattr, F, "Method", "bilinear")
    with pytest.raises(mathinterp.InterpolationError):
        F.Method = 3.0
    np.testing.assert_array_equal(F.GridVectors[0], X)
    assert F.Method == "linear"


def test_shallow_copy_shares_data_but_not_changes():
    F = griddedInterpolant(X, V)
    expected = F(Q)
    G = copy.copy(F)
    assert np.shares_memory(F.Values, G.Values)
    G.Values = np.cos(X)  # on the copy: the original keeps evaluating its own values
    np.testing.assert_array_equal(F(Q), expected)
    H = copy.copy(F)
    F.Values = 2 * V  # on the original: the copy is untouched
    np.testing.assert_array_equal(H(Q), expected)
    H.Method = "nearest"
    assert F.Method == "linear"


def test_deep_copy_owns_its_data():
    vv = V.copy()
    F = griddedInterpolant(X, vv, "linear", "none")
    expected = F(Q)
    D = copy.deepcopy(F)
    assert not np.shares_memory(D.Values, vv)
    vv[:] = 0.0  # in-place change of the caller's array reaches F only
    np.testing.assert_array_equal(D(Q), expected)
    assert (D.Method, D.ExtrapolationMethod) == ("linear", "none")


@pytest.mark.parametrize("protocol", range(pickle.HIGHEST_PROTOCOL + 1))
def test_pickle_round_trip_every_protocol(protocol):
    for F in (
        griddedInterpolant(X, V, "nearest", "none"),
        griddedInterpolant((X,), np.stack([V, -V], axis=1).astype(np.float32)),
        griddedInterpolant(X.astype(np.float32), V + 1j * V[::-1], "linear", "nearest"),
        griddedInterpolant(V),
        griddedInterpolant(),
    ):
        G = pickle.loads(pickle.dumps(F, protocol=protocol))
        assert type(G) is griddedInterpolant
        assert (G.Method, G.ExtrapolationMethod) == (F.Method, F.ExtrapolationMethod)
        assert len(G.GridVectors) == len(F.GridVectors)
        for a, b in zip(G.GridVectors, F.GridVectors):
            np.testing.assert_array_equal(a, b)
        if F.Values.size:
            assert G.Values.dtype == F.Values.dtype
            np.testing.assert_array_equal(G(Q), F(Q))


def test_pickle_state_is_checked_and_loads_through_the_fixup():
    with pytest.raises(ValueError):
        mathinterp._load((1, None))
    with pytest.raises(ValueError):
        mathinterp._load((99, None, None, None, None))
    # A record saved without an extrapolation word: "linear" loads with extrapolation "none".
    G = mathinterp._load((1, (X,), V, "linear", None))
    assert G.ExtrapolationMethod == "none" and np.isnan(G(X[-1] + 1.0))


def test_two_dimensional_query_forms_and_shapes(rng):
    x, y = np.cumsum(rng.uniform(0.1, 1.0, 9)), np.cumsum(rng.uniform(0.1, 1.0, 7))
    W = np.sin(x)[:, None] * np.cos(y)[None, :] + 0.1 * np.arange(9)[:, None]
    F = griddedInterpolant((x, y), W)
    P = np.column_stack([rng.uniform(x[0], x[-1], 48), rng.uniform(y[0], y[-1], 48)])
    r = F(P)
    assert r.shape == (48,)
    np.testing.assert_array_equal(F(np.asfortranarray(P)), r)
    np.testing.assert_array_equal(F(P[:, 0], P[:, 1]), r)
    Xc, Yc = P[:, 0].reshape(6, 8), P[:, 1].reshape(6, 8)  # scattered arrays keep their shape
    np.testing.assert_array_equal(F(Xc, Yc), r.reshape(6, 8))
    np.testing.assert_array_equal(F(np.asfortranarray(Xc), np.asfortranarray(Yc)), r.reshape(6, 8))
    xq, yq = np.linspace(x[0], x[-1], 13), np.linspace(y[0], y[-1], 5)
    g = F((xq, yq))  # gridded: a tuple of vectors, or ndgrid arrays
    assert g.shape == (13, 5)
    np.testing.assert_array_equal(F(*np.meshgrid(xq, yq, indexing="ij")), g)
    # Full grid arrays (ndgrid order) build the same interpolant as the grid vectors.
    np.testing.assert_array_equal(griddedInterpolant(*np.meshgrid(x, y, indexing="ij"), W)(P), r)
    H = griddedInterpolant((x, y), np.stack([W, 2 * W, -W], axis=2))  # value sets go last
    assert H(P).shape == (48, 3) and H((xq, yq)).shape == (13, 5, 3)
    assert H(P[:, 0], P[:, 1]).shape == (48, 3)
    np.testing.assert_array_equal(H(P)[:, 2], -r)
    np.testing.assert_array_equal(H((xq, yq))[:, :, 1], 2 * g)
