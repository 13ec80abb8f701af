"""mathinterp.xarray against DataArray.interp (SciPy underneath): the same values (to 1e-12
for linear), dimensions, names, coordinates and attributes for grids, scalars and pointwise
coordinates on 1-D to 3-D data with untouched dimensions; dask-backed data gives the bits of
in-memory data; the class's own errors for unordered coordinates and unknown words."""

import numpy as np
import pytest

xr = pytest.importorskip("xarray")
pytest.importorskip("scipy")

import mathinterp  # noqa: E402
import mathinterp.xarray as mxr  # noqa: E402


def _field(rng, decreasing_y=False):
    x = np.sort(rng.uniform(0, 10, 12))
    y = np.linspace(-5, 5, 9)[::-1] if decreasing_y else np.linspace(-5, 5, 9)
    t = np.arange(4.0)
    T = xr.DataArray(rng.standard_normal((12, 9, 4, 2)), dims=("x", "y", "t", "member"),
                     coords={"x": ("x", x, {"units": "km"}), "y": y, "t": t,
                             "lat": ("x", x * 0.5), "label": "run 7",
                             "station": ("y", [f"s{i}" for i in range(9)])},
                     name="T", attrs={"units": "K", "long_name": "temperature"})
    return T


def _points(values):
    return xr.DataArray(values, dims="p", coords={"p": np.arange(len(values)) * 10})


QX = np.array([-1.0, 0.3, 2.5, 7.25, 9.9, 11.0])  # two outside the grid
QY = np.array([-6.0, -4.5, 0.0, 0.1, 4.99])

# (name, dims kept (others are dropped by isel first), new coordinates, xarray kwargs)
CASES = [
    ("1-D vector", ("x",), {"x": QX}, {}),
    ("1-D, extra dims", ("x", "y", "t", "member"), {"x": QX}, {}),
    ("2-D data", ("x", "y"), {"x": QX, "y": QY}, {}),
    ("2-D grid, value sets", ("x", "y", "t", "member"), {"x": QX, "y": QY}, {}),
    ("2-D, scalar", ("x", "y", "t", "member"), {"x": 4.2, "y": QY}, {}),
    ("3-D grid", ("x", "y", "t", "member"), {"x": QX, "y": QY, "t": [0.5, 2.25]}, {}),
    ("pointwise", ("x", "y", "t", "member"),
     {"x": _points([0.5, 3.0, 9.0]), "y": _points([-4.0, 1.0, 4.5])}, {}),
    ("new dims", ("x", "y", "t", "member"),
     {"x": xr.DataArray(QX, dims="u"), "y": xr.DataArray(QY, dims="v")}, {}),
    ("extrapolated", ("x", "t"), {"x": QX}, {"fill_value": "extrapolate"}),
]


@pytest.mark.parametrize("decreasing", [False, True])
@pytest.mark.parametrize("name,dims,coords,kwargs", CASES, ids=[c[0] for c in CASES])
def test_linear_matches_dataarray_interp(rng, name, dims, coords, kwargs, decreasing):
    T = _field(rng, decreasing)
    T = T.isel({d: 0 for d in T.dims if d not in dims})
    if any(isinstance(v, xr.DataArray) for v in coords.values()):
        # labels along a dimension interpolated pointwise: DataArray.interp then hands back
        # the original array beside the result; ours leaves the labels out
        T = T.drop_vars("station")
    extrap = "linear" if kwargs else "none"
    ours = mxr.interp(T, coords, "linear", extrap)
    theirs = T.interp(coords, method="linear", kwargs=kwargs)
    assert ours.dims == theirs.dims and ours.name == theirs.name and ours.attrs == theirs.attrs
    assert set(ours.coords) == set(theirs.coords)
    for c in theirs.coords:
        assert ours[c].dims == theirs[c].dims and ours[c].attrs == theirs[c].attrs, c
    xr.testing.assert_allclose(ours, theirs, rtol=1e-12, atol=1e-12)
    # the accessor, and the Dataset of this array and its square
    assert ours.identical(T.mathinterp.interp(coords, extrapolation=extrap))
    ds = xr.Dataset({"T": T, "T2": T**2}, attrs={"source": "test"})
    both = ds.mathinterp.interp(coords, extrapolation=extrap)
    assert both.attrs == ds.attrs and both["T"].identical(ours)
    xr.testing.assert_allclose(both, ds.interp(coords, kwargs=kwargs), rtol=1e-12, atol=1e-12)


@pytest.mark.parametrize("coords", [{"x": QX, "y": QY}, {"x": QX},
                                    {"x": _points([0.5, 3.0]), "y": _points([-4, 1])}])
def test_dask_backed_data_gives_the_in_memory_bits(rng, coords):
    T = _field(rng, decreasing_y=True)
    eager = mxr.interp(T, coords, "spline", "linear")
    lazy = mxr.interp(T.chunk({"x": 5, "y": 4, "t": 3, "member": 1}), coords, "spline", "linear")
    assert lazy.chunks is not None and lazy.dims == eager.dims
    computed = lazy.compute()
    assert computed.identical(eager)
    assert computed.values.tobytes() == eager.values.tobytes()


@pytest.mark.parametrize("change,call", [
    ("unordered", {"method": "linear"}),
    ("none", {"method": "quadratic"}),
    ("none", {"extrapolation": "sideways"}),
])
def test_the_class_raises_its_own_errors(rng, change, call):
    T = _field(rng)
    if change == "unordered":
        T = T.assign_coords(x=T.x.values[[1, 0] + list(range(2, 12))])
    with pytest.raises(mathinterp.InterpolationError) as info:
        T.mathinterp.interp(x=QX, **call)
    assert info.value.identifier
    with pytest.raises(mathinterp.InterpolationError):  # dask-backed: when the graph is built
        T.chunk().mathinterp.interp(x=QX, **call)
