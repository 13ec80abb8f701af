"""Hostile input from Python: None, text, dicts, arbitrary objects, bools, integers, datetimes,
float16, 0-d and 0-size arrays, many dimensions, and tampered pickles (byte orders and strides:
test_mapping.py). Each gives a Python exception with a message, or the
correct result; none crashes the interpreter or changes the caller's arrays."""

import datetime
import pickle

import numpy as np
import pytest
from hypothesis import given, settings, strategies as st

import mathinterp
from conftest import needs_class

pytestmark = needs_class

X = np.array([0.0, 1.0, 2.5, 4.0])
V = np.array([1.0, -2.0, 0.5, 3.0])
Q = np.array([-1.0, 0.0, 0.3, 2.5, 3.9, 5.0])

HOSTILE = [
    None,
    "linear",
    b"bytes",
    {"a": 1.0},
    {},
    object(),
    True,
    7,
    2**80,
    -0.0,
    float("nan"),
    datetime.datetime(2026, 11, 23),
    datetime.timedelta(days=1),
    np.datetime64("2026-11-23"),
    np.array([1, 2, 3], dtype=np.float16),
    np.array(["a", "b"]),
    np.array([object(), None], dtype=object),
    np.array([1.0, 2.0], dtype=np.longdouble),
    np.zeros((2, 0, 3)),
    np.array(1.5),
    (),
    (None,),
    [[1.0, 2.0], [3.0]],
    [],
    slice(1, 2),
    Ellipsis,
    np.ma.masked_array([1.0, 2.0], mask=[False, True]),
    np.zeros(3, dtype=[("a", "f8"), ("b", "i4")]),
]


def hostile_id(v):
    return type(v).__name__ + ("" if not isinstance(v, np.ndarray) else "-" + str(v.dtype))


def snapshot(args):
    """Deep copies of the NumPy arrays among args (and in tuples and dicts)."""
    out = []
    for a in args:
        if isinstance(a, np.ndarray):
            out.append((a, a.copy(), a.flags.writeable))
        elif isinstance(a, tuple):
            out.extend(snapshot(a))
        elif isinstance(a, dict):
            out.extend(snapshot(tuple(a.values())))
    return out


def assert_unchanged(snap):
    for a, copy, writeable in snap:
        assert a.tobytes() == copy.tobytes() and a.flags.writeable == writeable


def settles(fn, *args):
    """Runs fn(*args); it must return or raise an ordinary Python exception with a message,
    and leave the arrays among args unchanged. Returns the result or the exception."""
    snap = snapshot(args)
    try:
        result = fn(*args)
    except (mathinterp.InterpolationError, TypeError, ValueError, OverflowError,
            NotImplementedError, MemoryError) as e:
        assert str(e), f"{type(e).__name__} without a message"
        result = e
    assert_unchanged(snap)
    return result


@pytest.mark.parametrize("bad", HOSTILE, ids=hostile_id)
def test_hostile_argument_in_every_position(bad):
    F = mathinterp.griddedInterpolant(X, V)
    reference = F(Q)
    settles(mathinterp.griddedInterpolant, bad)
    settles(mathinterp.griddedInterpolant, X, bad)
    settles(mathinterp.griddedInterpolant, bad, V)
    settles(mathinterp.griddedInterpolant, (bad,), V)
    settles(mathinterp.griddedInterpolant, X, V, bad)
    settles(mathinterp.griddedInterpolant, X, V, "linear", bad)
    settles(F, bad)
    settles(F, bad, bad)
    settles(F, (bad,))
    for name in ("GridVectors", "Values", "Method", "ExtrapolationMethod"):
        settles(setattr, F, name, bad)
        # A failed set changes nothing; a successful one is undone for the next check.
        G = mathinterp.griddedInterpolant(X, V)
        r = settles(setattr, G, name, bad)
        if isinstance(r, Exception):
            np.testing.assert_array_equal(G(Q), reference)
    for gateway in (mathinterp.interp1Fcn, mathinterp.interp2Fcn):
        settles(gateway, X, V, "linear", "linear", bad)
        settles(gateway, bad, V, "linear", "linear", Q)
        settles(gateway, X, bad, "linear", "linear", Q)
        settles(gateway, X, V, bad, "linear", Q)
    settles(repr, F)


def test_many_dimensions():
    grid = tuple(np.array([0.0, 1.0]) for _ in range(12))
    F = mathinterp.griddedInterpolant(grid, np.ones((2,) * 12))
    # Thirty grid vectors for 12-D values, a 30-column point matrix, 30 query vectors.
    settles(mathinterp.griddedInterpolant, tuple(np.array([0.0, 1.0]) for _ in range(30)),
            np.ones((2,) * 12))
    assert isinstance(settles(F, np.zeros((3, 30))), mathinterp.InterpolationError)
    r = settles(F, tuple(np.array([0.5]) for _ in range(30)))
    assert isinstance(r, mathinterp.InterpolationError)
    # A 1-D interpolant queried with a 30-dimensional array: the result keeps the shape.
    q = np.full((1,) * 28 + (2, 2), 0.5)
    assert np.shape(settles(mathinterp.griddedInterpolant(X, V), q)) == q.shape
    # Thirty 2-point dimensions in a broadcast view (no memory behind it): the values of ten
    # of them for a grid of thirty fail cleanly.
    huge = np.broadcast_to(np.float64(1.0), (2,) * 30)
    settles(mathinterp.griddedInterpolant, tuple(np.array([0.0, 1.0]) for _ in range(30)),
            huge[(0,) * 20])


PICKLED = pickle.dumps(mathinterp.griddedInterpolant(X, V), protocol=4)


@settings(max_examples=200)
@given(st.lists(st.tuples(st.integers(0, len(PICKLED) - 1), st.integers(0, 255)), min_size=1,
                max_size=4))
def test_tampered_pickle_bytes(edits):
    b = bytearray(PICKLED)
    for pos, value in edits:
        b[pos] = value
    try:
        G = pickle.loads(bytes(b))
    except Exception:  # noqa: BLE001 - a corrupt pickle may raise anything but crash
        return
    if isinstance(G, mathinterp.griddedInterpolant):
        settles(G, Q)


def test_caller_arrays_unchanged_by_every_method_and_form():
    x = np.linspace(0.0, 3.0, 7)
    v = np.sin(x)
    q = np.array([-0.5, 0.0, 1.1, 3.0, 3.5, np.nan])
    for method in mathinterp.METHODS:
        for extrap in ("none", "nearest", method):
            args = (x, v.copy(), method, extrap)
            r = settles(mathinterp.griddedInterpolant, *args)
            if isinstance(r, Exception):
                continue
            settles(r, q)
            settles(mathinterp.interp1Fcn, *args, q)
    grid = (np.arange(4.0), np.arange(3.0))
    vals = np.arange(12.0).reshape(4, 3)
    F = settles(mathinterp.griddedInterpolant, grid, vals)
    settles(F, np.array([[0.5, 0.5], [9.0, -1.0]]))
    settles(F, (np.array([0.5, 9.0]), np.array([-1.0, 1.5])))
    settles(F, *np.meshgrid(np.array([0.5, 1.0]), np.array([1.5, 2.0])))
