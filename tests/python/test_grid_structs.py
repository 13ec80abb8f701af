"""gridStructsInterpFcn from Python: dicts and object arrays of dicts in, object arrays of
dicts out (shaped by the query vectors), results equal to griddedInterpolant per element. The
gateway's words, clamping and error texts are the C++ suite's (tests/gateways)."""
import gc

import numpy as np
import pytest

import mathinterp

x = np.array([0.0, 1.0, 2.5])
y = np.array([-1.0, 0.0, 2.0, 3.0])


def records():
    recs = np.empty((x.size, y.size), dtype=object)
    for i, xi in enumerate(x):
        for j, yj in enumerate(y):
            recs[i, j] = {
                "p": np.array([xi, yj, xi * yj]),
                "z": np.array([[1 + 1j * xi, 2.0], [3.0 + yj, 4 - 1j * yj]]),
            }
    return recs


def field_values(recs, name, index):
    return np.array([[recs[i, j][name][index] for j in range(y.size)] for i in range(x.size)])


@pytest.mark.parametrize("method,extrap", [("linear", "nearest"), ("nearest", "linear")])
def test_matches_interpolant_element_by_element(method, extrap):
    recs = records()
    qx, qy = np.linspace(-1, 3.5, 7), np.linspace(-2, 4, 5)
    (out,) = mathinterp.gridStructsInterpFcn((x, y), (recs,), (qx, qy), method, extrap)
    assert out.shape == (7, 5)
    assert set(out[0, 0]) == {"p", "z"}
    assert out[0, 0]["z"].shape == (2, 2) and out[0, 0]["z"].dtype == np.complex128
    for name, index in [("p", 2), ("z", (1, 1))]:
        F = mathinterp.griddedInterpolant((x, y), field_values(recs, name, index), method, extrap)
        expect = F((qx, qy))
        got = np.array([[out[i, j][name][index] for j in range(5)] for i in range(7)])
        np.testing.assert_array_equal(got, expect)


def test_result_arrays_are_independent_and_outlive_the_result():
    recs = records()
    for r in recs.flat:
        r["row"] = r["p"].reshape(1, 3)
    qx, qy = np.linspace(0, 2.5, 4), np.linspace(-1, 3, 3)
    (out,) = mathinterp.gridStructsInterpFcn((x, y), (recs,), (qx, qy))
    a, b = out[1, 2]["p"], out[2, 2]["p"]
    assert a.shape == (3,) and out[0, 0]["row"].shape == (1, 3)
    keep = b.copy()
    a[:] = -7.0
    np.testing.assert_array_equal(b, keep)
    np.testing.assert_array_equal(out[1, 2]["p"], [-7.0, -7.0, -7.0])
    z = out[3, 1]["z"]
    expect = z.copy()
    del out, a, b
    gc.collect()
    np.testing.assert_array_equal(z, expect)


def test_a_result_serves_as_grid_values_again():
    # Results are read back through the same checks and gather as any struct array.
    qx, qy = np.linspace(0, 2.5, 60), np.linspace(-1, 3, 50)
    (out,) = mathinterp.gridStructsInterpFcn((x, y), (records(),), (qx, qy))
    (again,) = mathinterp.gridStructsInterpFcn((qx, qy), (out,), (qx, qy))
    for i, j in [(0, 0), (59, 49)]:
        for name in ("p", "z"):
            np.testing.assert_array_equal(again[i, j][name], out[i, j][name])
