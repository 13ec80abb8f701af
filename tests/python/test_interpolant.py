"""griddedInterpolant from Python: construction forms, query forms and result shapes,
dtypes end to end, memory order, properties, copy/deepcopy/pickle and repr. Expected values
come from an independent NumPy transcription of the linear blend (1 - t)*a + b*t, exact to
the bit for double data."""

import copy
import pickle

import numpy as np
import pytest

import mathinterp
from mathinterp import griddedInterpolant
from conftest import expect_error, needs_class

pytestmark = needs_class


def ref_linear(x, v, xq):
    """Linear interpolation inside [x[0], x[-1]]: interval i with x[i] <= xq (the last
    interval for xq = x[-1]), t = (xq - x[i]) / (x[i+1] - x[i]), (1 - t)*v[i] + v[i+1]*t;
    a constant interval returns its value."""
    x = np.asarray(x)
    v = np.asarray(v)
    xq = np.asarray(xq, dtype=x.dtype)
    i = np.clip(np.searchsorted(x, xq, side="right") - 1, 0, len(x) - 2)
    t = ((xq - x[i]) / (x[i + 1] - x[i])).astype(v.dtype)
    a, b = v[i], v[i + 1]
    r = (1 - t) * a + b * t
    return np.where(a == b, a, r)


def ref_nearest(x, v, xq):
    x = np.asarray(x)
    i = np.clip(np.searchsorted(x, xq, side="right") - 1, 0, len(x) - 2)
    right = (xq - x[i]) >= (x[i + 1] - xq)
    return np.asarray(v)[np.where(right, i + 1, i)]


@pytest.fixture
def data(rng):
    x = np.cumsum(rng.uniform(0.1, 1.0, 40))
    v = np.sin(x) * 3.0
    xq = rng.uniform(x[0], x[-1], 1000)
    return x, v, xq


# ---- construction forms ------------------------------------------------------------------


def test_constructor_forms_agree(data):
    x, v, xq = data
    expected = ref_linear(x, v, xq)
    for F in (
        griddedInterpolant(x, v),
        griddedInterpolant((x,), v),
        griddedInterpolant(x, v, "linear"),
        griddedInterpolant((x,), v, "linear", "linear"),
        griddedInterpolant(x.reshape(1, -1), v.reshape(-1, 1)),
        griddedInterpolant(list(x), list(v)),
    ):
        np.testing.assert_array_equal(F(xq), expected)


def test_values_only_builds_the_default_grid():
    v = np.array([3.0, 1.0, 4.0, 1.0, 5.0])
    F = griddedInterpolant(v)
    assert len(F.GridVectors) == 1
    np.testing.assert_array_equal(F.GridVectors[0], [1.0, 2.0, 3.0, 4.0, 5.0])
    np.testing.assert_array_equal(F([1.5, 4.0]), [2.0, 1.0])
    G = griddedInterpolant(v, "nearest")
    assert G.Method == "nearest"


def test_empty_interpolant_and_its_evaluation():
    F = griddedInterpolant()
    assert repr(F) == "griddedInterpolant()"
    expect_error("DegenerateGridErrId", F, 1.0)


def test_method_words_are_str_bytes_or_one_element_string_arrays(data):
    x, v, xq = data
    for word in ("nearest", b"nearest", np.array(["nearest"])):
        F = griddedInterpolant(x, v, word)
        np.testing.assert_array_equal(F(xq), ref_nearest(x, v, xq))


# ---- query forms and shapes ----------------------------------------------------------------


def test_one_dimensional_results_keep_the_query_shape_and_order(data):
    x, v, xq = data
    F = griddedInterpolant(x, v)
    q = xq[:24]
    expected = ref_linear(x, v, q)
    assert F(q).shape == (24,)
    for shape in [(4, 6), (2, 3, 4), (24, 1), (1, 24)]:
        qc = np.ascontiguousarray(q.reshape(shape))
        qf = np.asfortranarray(q.reshape(shape))
        rc, rf = F(qc), F(qf)
        assert rc.shape == rf.shape == shape
        np.testing.assert_array_equal(rc, expected.reshape(shape))
        np.testing.assert_array_equal(rf, expected.reshape(shape))
        assert rc.flags.c_contiguous and rf.flags.f_contiguous
    strided = np.ascontiguousarray(q.reshape(4, 6))[:, ::2]
    np.testing.assert_array_equal(F(strided), expected.reshape(4, 6)[:, ::2])


def test_scalar_list_and_empty_queries(data):
    x, v, _ = data
    F = griddedInterpolant(x, v)
    r = F(float(x[3]))
    assert np.ndim(r) == 0 and r == v[3]
    assert F(np.float64(x[3])) == v[3]
    assert F([x[1], x[2]]).shape == (2,)
    assert F(np.empty(0)).shape == (0,)
    assert F(np.empty((0, 3))).shape == (0, 3)
    assert F(np.empty((3, 0), order="F")).shape == (3, 0)


def test_value_sets_follow_the_query_shape(data):
    x, v, xq = data
    V = np.stack([v, 2 * v, -v], axis=1)  # 40 x 3: three value sets
    F = griddedInterpolant(x, V)
    q = xq[:12].reshape(3, 4)
    for qq in (q, np.asfortranarray(q)):
        r = F(qq)
        assert r.shape == (3, 4, 3)
        for k in range(3):
            np.testing.assert_array_equal(r[..., k], ref_linear(x, V[:, k], q))
    assert F(xq[:5]).shape == (5, 3)
    assert F(1.5 + x[0]).shape == (3,)


def test_gridded_query_on_one_dimension(data):
    x, v, xq = data
    F = griddedInterpolant(x, v)
    r = F((xq[:7],))
    assert r.shape == (7,)
    np.testing.assert_array_equal(r, ref_linear(x, v, xq[:7]))


def test_queries_outside_follow_the_extrapolation_method(data):
    x, v, _ = data
    F = griddedInterpolant(x, v, "linear", "none")
    r = F(np.array([x[0] - 1, x[-1] + 1, x[5]]))
    assert np.isnan(r[0]) and np.isnan(r[1]) and r[2] == v[5]
    assert np.signbit(r[0])  # the engine's NaN has the sign bit set
    G = griddedInterpolant(x, v, "linear", "nearest")
    np.testing.assert_array_equal(G(np.array([x[0] - 1, x[-1] + 1])), [v[0], v[-1]])


# ---- dtypes --------------------------------------------------------------------------------


def test_single_precision_stays_single_end_to_end(data):
    x, v, xq = data
    x32, v32, q32 = x.astype(np.float32), v.astype(np.float32), xq.astype(np.float32)
    F = griddedInterpolant(x32, v32)
    r = F(q32)
    assert r.dtype == np.float32
    np.testing.assert_array_equal(r, ref_linear(x32, v32, q32))
    assert F(xq).dtype == np.float32  # double queries on single values: single
    assert griddedInterpolant(x, v)(q32).dtype == np.float64
    assert F.Values.dtype == np.float32 and F.GridVectors[0].dtype == np.float32


def test_mixed_grid_and_value_precision(data):
    x, v, xq = data
    F = griddedInterpolant(x.astype(np.float32), v)
    assert F(xq).dtype == np.float64
    G = griddedInterpolant(x, v.astype(np.float32))
    assert G(xq).dtype == np.float32


@pytest.mark.parametrize("dtype", [np.complex128, np.complex64])
def test_complex_values(data, dtype):
    x, v, xq = data
    vc = (v + 1j * np.cos(x)).astype(dtype)
    F = griddedInterpolant(x, vc)
    r = F(xq)
    assert r.dtype == dtype
    real = griddedInterpolant(x, vc.real.copy())(xq)
    imag = griddedInterpolant(x, vc.imag.copy())(xq)
    np.testing.assert_array_equal(r.real, real)
    np.testing.assert_array_equal(r.imag, imag)


@pytest.mark.parametrize(
    "dtype", [np.int8, np.uint8, np.int16, np.int32, np.int64, np.uint64, np.bool_]
)
def test_non_float_values_grids_and_queries_are_rejected_by_class(data, dtype):
    x, v, xq = data
    expect_error("NonFloatValuesErrId", griddedInterpolant, (x,), v.astype(dtype))
    expect_error("NonFloatInpPtsErrId", griddedInterpolant, (np.arange(40).astype(dtype),), v)
    F = griddedInterpolant(x, v)
    expect_error("NonFloatInpPtsErrId", F, xq.astype(dtype))


def test_c_and_fortran_ordered_values_give_identical_results(data):
    x, _, xq = data
    V = np.sin(np.outer(x, [1.0, 2.0, 3.0]))
    rc = griddedInterpolant(x, np.ascontiguousarray(V))(xq)
    rf = griddedInterpolant(x, np.asfortranarray(V))(xq)
    np.testing.assert_array_equal(rc, rf)


def test_values_in_host_layout_are_not_copied(data):
    x, _, _ = data
    V = np.asfortranarray(np.sin(np.outer(x, [1.0, 2.0])))
    F = griddedInterpolant(x, V)
    assert np.shares_memory(F.Values, V)
    assert not F.Values.flags.writeable
    v1 = np.sin(x)
    assert np.shares_memory(griddedInterpolant(x, v1).Values, v1)


# ---- properties ----------------------------------------------------------------------------


def test_properties_read_back(data):
    x, v, _ = data
    F = griddedInterpolant(x, v, "nearest", "linear")
    np.testing.assert_array_equal(F.GridVectors[0], x)
    assert F.GridVectors[0].ndim == 1
    np.testing.assert_array_equal(F.Values, v)
    assert F.Values.shape == v.shape
    assert F.Method == "nearest" and F.ExtrapolationMethod == "linear"


def test_setting_method_and_values(data):
    x, v, xq = data
    F = griddedInterpolant(x, v)
    F.Method = "nearest"
    np.testing.assert_array_equal(F(xq), ref_nearest(x, v, xq))
    F.Method = "linear"
    w = np.cos(x)
    F.Values = w  # same size: the evaluator is rebound
    np.testing.assert_array_equal(F(xq), ref_linear(x, w, xq))
    F.Values = w[:30]  # different size: mismatch found at the next evaluation
    expect_error("CompVecValueMismatchErrId", F, xq)
    F.GridVectors = (x[:30],)
    np.testing.assert_array_equal(F(xq[xq < x[29]]), ref_linear(x[:30], w[:30], xq[xq < x[29]]))
    F.ExtrapolationMethod = "none"
    assert np.isnan(F(x[-1] + 10))


def test_property_setter_errors(data):
    x, v, _ = data
    F = griddedInterpolant(x, v)
    expect_error("NonCellCompVecErrId", setattr, F, "GridVectors", x)
    expect_error("DegenerateGridErrId", setattr, F, "GridVectors", ())
    expect_error("NonMonotonicCompVecsErrId", setattr, F, "GridVectors", (x[::-1],))
    expect_error("NonFloatValuesErrId", setattr, F, "Values", v.astype(np.int32))
    expect_error("DegenerateGridErrId", setattr, F, "Values", np.empty(0))
    expect_error("BadInterpTypeErrId", setattr, F, "Method", "bilinear")
    with pytest.raises(mathinterp.InterpolationError) as info:
        F.Method = 3.0
    assert info.value.identifier in {
        "QUARTZ:griddedInterpolant:BadInterpTypeErrId",
        "QUARTZ:string:MustBeStringScalarOrCharacterVector",
    }
    np.testing.assert_array_equal(F.GridVectors[0], x)  # nothing changed
    assert F.Method == "linear"


# ---- copies and pickles --------------------------------------------------------------------


def test_shallow_copy_shares_data_but_not_changes(data):
    x, v, xq = data
    F = griddedInterpolant(x, v)
    G = copy.copy(F)
    assert np.shares_memory(F.Values, G.Values)
    np.testing.assert_array_equal(G(xq), F(xq))
    G.Values = np.cos(x)  # on the copy: the original keeps evaluating its own values
    np.testing.assert_array_equal(F(xq), ref_linear(x, v, xq))
    np.testing.assert_array_equal(G(xq), ref_linear(x, np.cos(x), xq))
    H = copy.copy(F)
    F.Values = 2 * v  # on the original: the copy is untouched
    np.testing.assert_array_equal(H(xq), ref_linear(x, v, xq))
    np.testing.assert_array_equal(F(xq), ref_linear(x, 2 * v, xq))
    H.Method = "nearest"
    assert F.Method == "linear"


def test_deep_copy_owns_its_data(data):
    x, v, xq = data
    vv = v.copy()
    F = griddedInterpolant(x, vv)
    D = copy.deepcopy(F)
    assert not np.shares_memory(D.Values, vv)
    vv[:] = 0.0  # in-place change of the caller's array reaches F only
    np.testing.assert_array_equal(D(xq), ref_linear(x, v, xq))
    assert D.Method == F.Method and D.ExtrapolationMethod == F.ExtrapolationMethod


@pytest.mark.parametrize("protocol", range(pickle.HIGHEST_PROTOCOL + 1))
def test_pickle_round_trip_every_protocol(data, protocol):
    x, v, xq = data
    V = np.stack([v, -v], axis=1).astype(np.float32)
    for F in (
        griddedInterpolant(x, v, "nearest", "none"),
        griddedInterpolant((x,), V),
        griddedInterpolant(x.astype(np.float32), v + 1j * v[::-1], "linear", "nearest"),
        griddedInterpolant(v),
        griddedInterpolant(),
    ):
        G = pickle.loads(pickle.dumps(F, protocol=protocol))
        assert type(G) is griddedInterpolant
        assert G.Method == F.Method and G.ExtrapolationMethod == F.ExtrapolationMethod
        assert len(G.GridVectors) == len(F.GridVectors)
        for a, b in zip(G.GridVectors, F.GridVectors):
            np.testing.assert_array_equal(a, b)
        if F.Values.size:
            assert G.Values.dtype == F.Values.dtype
            np.testing.assert_array_equal(G(xq), F(xq))


def test_pickle_state_is_checked():
    with pytest.raises(ValueError):
        mathinterp._load((1, None))
    with pytest.raises(ValueError):
        mathinterp._load((99, None, None, None, None))


def test_pickled_state_loads_through_the_fixup(data):
    x, v, xq = data
    # A record saved without an extrapolation word: "linear" loads with extrapolation "none".
    G = mathinterp._load((1, (x,), v, "linear", None))
    assert G.ExtrapolationMethod == "none"
    assert np.isnan(G(x[-1] + 1.0))


def test_repr(data):
    x, v, _ = data
    F = griddedInterpolant(x, v.astype(np.float32), "nearest")
    text = repr(F)
    assert text.startswith("griddedInterpolant(")
    assert "40" in text and "float32" in text and "'nearest'" in text


# ---- gateways -------------------------------------------------------------------------------


@pytest.mark.parametrize("gateway", [mathinterp.interp1Fcn, mathinterp.interp2Fcn])
def test_gateways(data, gateway):
    x, v, xq = data
    q = np.concatenate([xq[:10], [x[0] - 1.0]])
    r = gateway(x, v, "linear", "none", q)
    assert r.shape == q.shape
    np.testing.assert_array_equal(r[:10], ref_linear(x, v, xq[:10]))
    assert np.isnan(r[10])
    rc = gateway(x, v, "linear", "none", np.ascontiguousarray(xq[:12].reshape(3, 4)))
    np.testing.assert_array_equal(rc, ref_linear(x, v, xq[:12]).reshape(3, 4))
    expect_error("QUARTZ:minrhs", gateway, x, v, "linear", "none")
    expect_error("QUARTZ:maxrhs", gateway, x, v, "linear", "none", q, q)
    expect_error("NonMonotonicCompVecsErrId", gateway, x[::-1], v, "linear", "none", q)


# ---- two dimensions ---------------------------------------------------------------------------


def test_two_dimensional_query_forms_and_shapes(rng):
    import scipy.interpolate as si

    x = np.cumsum(rng.uniform(0.1, 1.0, 9))
    y = np.cumsum(rng.uniform(0.1, 1.0, 7))
    V = np.sin(x)[:, None] * np.cos(y)[None, :] + 0.1 * np.arange(9)[:, None]
    try:
        F = griddedInterpolant((x, y), V)
    except mathinterp.MethodNotBuiltError as e:
        pytest.skip(str(e))
    ref = si.RegularGridInterpolator((x, y), V)
    P = np.column_stack([rng.uniform(x[0], x[-1], 50), rng.uniform(y[0], y[-1], 50)])
    r = F(P)
    assert r.shape == (50,)
    np.testing.assert_allclose(r, ref(P), rtol=1e-13, atol=1e-14)
    np.testing.assert_array_equal(F(np.asfortranarray(P)), r)
    np.testing.assert_array_equal(F(P[:, 0], P[:, 1]), r)
    # Scattered coordinate arrays keep their shape, in either memory order.
    Xc, Yc = P[:48, 0].reshape(6, 8), P[:48, 1].reshape(6, 8)
    np.testing.assert_array_equal(F(Xc, Yc), r[:48].reshape(6, 8))
    np.testing.assert_array_equal(F(np.asfortranarray(Xc), np.asfortranarray(Yc)), r[:48].reshape(6, 8))
    # Gridded: a tuple of vectors, or ndgrid arrays.
    xq, yq = np.linspace(x[0], x[-1], 13), np.linspace(y[0], y[-1], 5)
    g = F((xq, yq))
    assert g.shape == (13, 5)
    Xg, Yg = np.meshgrid(xq, yq, indexing="ij")
    np.testing.assert_allclose(g, ref((Xg, Yg)), rtol=1e-13, atol=1e-14)
    np.testing.assert_array_equal(F(Xg, Yg), g)
    # Full grid arrays (ndgrid order) build the same interpolant as the grid vectors.
    Xf, Yf = np.meshgrid(x, y, indexing="ij")
    np.testing.assert_array_equal(griddedInterpolant(Xf, Yf, V)(P), r)
    np.testing.assert_array_equal(griddedInterpolant(Xf, Yf, V, "linear", "none")(P), r)
    # Value sets go last.
    W = np.stack([V, 2 * V, -V], axis=2)
    H = griddedInterpolant((x, y), W)
    assert H(P).shape == (50, 3)
    assert H((xq, yq)).shape == (13, 5, 3)
    assert H(P[:, 0], P[:, 1]).shape == (50, 3)
    np.testing.assert_array_equal(H(P)[:, 2], -r)
    np.testing.assert_array_equal(H((xq, yq))[:, :, 1], 2 * g)
