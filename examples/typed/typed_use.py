"""Every public name of mathinterp used with its declared types; mypy --strict accepts it
(tests/install/test_typing.py), so the stubs describe what a typed program relies on."""

import copy
import warnings

import numpy as np
import numpy.typing as npt

import mathinterp
from mathinterp import (
    METHODS,
    InterpolationError,
    InterpolationWarning,
    MethodNotBuiltError,
    get_memory_limit,
    get_num_threads,
    gridStructsInterpFcn,
    griddedInterpolant,
    interp1Fcn,
    interp2Fcn,
    memory_in_use,
    memory_limit,
    num_threads,
    set_memory_limit,
    set_num_threads,
)


def spline_1d(x: npt.NDArray[np.float64]) -> npt.NDArray[np.float64]:
    F = griddedInterpolant(x, np.sin(x), "spline", "none")
    F.Method = "pchip"
    F.ExtrapolationMethod = "linear"
    method: str = F.Method + F.ExtrapolationMethod
    grid: tuple[npt.NDArray[np.float64] | npt.NDArray[np.float32], ...] = F.GridVectors
    F.GridVectors = (x,)
    F.Values = np.cos(x)
    values: npt.NDArray[np.float64] | npt.NDArray[np.float32] = F.Values
    G = copy.deepcopy(copy.copy(F))
    assert method and len(grid) == 1 and values.shape == x.shape
    return np.asarray(G(np.linspace(0.0, 1.0, 5)), dtype=np.float64)


def main() -> None:
    x = np.linspace(0.0, 3.0, 7)
    print(mathinterp.__version__, METHODS, spline_1d(x))
    G = griddedInterpolant((x, x), np.add.outer(x, x), "linear")
    print(G((x, x)).shape, G(np.array([[0.5, 1.5]])), G(x, x))
    print(interp1Fcn(x, x * x, "linear", "none", np.array([0.5, 9.0])))
    print(interp2Fcn((x, x), np.add.outer(x, x), "nearest", "nearest", np.array([[1.0, 2.0]])))
    records = np.empty((7,), dtype=object)
    for i in range(7):
        records[i] = {"a": float(i)}
    (out,) = gridStructsInterpFcn((x,), (records,), (np.array([0.25]),), "linear")
    print(out[0]["a"])
    set_num_threads(2)
    with num_threads(1):
        n: int = get_num_threads()
    set_num_threads(None)
    set_memory_limit(1 << 30)
    with memory_limit(None):
        limit: int = get_memory_limit() + memory_in_use()
    set_memory_limit(None)
    try:
        griddedInterpolant(np.array([1.0, 1.0]), np.array([1.0, 2.0]))
    except MethodNotBuiltError as e:
        print(e.method)
    except InterpolationError as e:
        print(e.identifier, e.message, e.arguments, n)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always", InterpolationWarning)
        griddedInterpolant((x, x), np.add.outer(x, x), "pchip")
    print([w.message for w in caught if isinstance(w.message, InterpolationWarning)])


def scale_out(F: griddedInterpolant) -> None:
    """The dask and xarray faces (optional: they need dask and xarray)."""
    import xarray as xr

    import mathinterp.dask
    import mathinterp.xarray

    lazy = mathinterp.dask.evaluate(F, np.array([[0.5, 0.5]]))  # or a dask array
    T = xr.DataArray(np.zeros((3, 3)), dims=("x", "y"))
    print(lazy.compute(), mathinterp.xarray.interp(T, {"x": [0.5]}, "linear", "none"),
          T.mathinterp.interp(y=[1.5], method="pchip"))


if __name__ == "__main__":
    main()
