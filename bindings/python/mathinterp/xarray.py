"""Interpolation of xarray objects with ``griddedInterpolant``.

    >>> import mathinterp.xarray                    # registers the ``.mathinterp`` accessor
    >>> T.mathinterp.interp(lat=new_lat, lon=new_lon, method="pchip")
    >>> mathinterp.xarray.interp(T, {"lat": new_lat, "lon": new_lon})      # the same

``interp`` takes the arguments of ``DataArray.interp`` / ``Dataset.interp`` (the new
coordinates as a mapping or as keywords) and returns what they return, in shape, dimension
order, names, coordinates and attributes:

* a vector (or a scalar) per dimension gives a grid (a scalar drops the dimension and keeps
  it as a scalar coordinate); DataArrays that share a new dimension give pointwise
  (scattered) interpolation along it, their coordinates attached;
* the dimensions left alone are value sets of one interpolant: one interval search per query
  point serves all of them;
* outside the grid the result is NaN, unless ``extrapolation`` names a method;
* ``method`` and ``extrapolation`` are the words of ``griddedInterpolant``; a word it does not
  have, or a coordinate that is not strictly monotonic, raises ``InterpolationError``.
  Decreasing coordinates are flipped (with the data), never sorted;
* numeric variables of a Dataset (and numeric coordinates) that depend on an interpolated
  dimension are interpolated (integers as float64); others (labels, flags) take the value
  of the nearest grid point where every interpolated dimension they have gets a vector of
  its own, and are dropped otherwise.

Dask-backed data stays lazy: its chunks along the interpolated dimensions are merged, one
interpolant is built per chunk of the other dimensions on the workers, and the evaluation is
``mathinterp.dask``'s. Importing this module needs xarray (and dask only for dask-backed
data); ``import mathinterp`` imports neither.
"""

from __future__ import annotations

from typing import Any, Hashable, Mapping

import numpy as np
import xarray as xr

import mathinterp

__all__ = ["interp", "MathinterpAccessor"]


def _is_dask(a: Any) -> bool:
    g = getattr(a, "__dask_graph__", None)
    return g is not None and g() is not None


def _dimension_variable(ds: xr.Dataset, k: Hashable) -> xr.Variable:
    """The coordinate of dimension k (0, 1, ... when it has none)."""
    if k in ds.variables:
        return ds.variables[k]
    return xr.Variable((k,), np.arange(ds.sizes[k], dtype=np.float64))


def _indexers(ds: xr.Dataset, coords: Mapping[Any, Any]) -> dict:
    """The new coordinates as Variables, as Dataset.interp reads them."""
    missing = [k for k in coords if k not in ds.dims]
    if missing:
        raise ValueError(f"Dimensions {missing} do not exist. Expected one or more of "
                         f"{tuple(ds.dims)}")
    out: dict = {}
    for k, v in coords.items():
        attrs = ds.variables[k].attrs if k in ds.variables else {}
        if isinstance(v, xr.Dataset):
            raise TypeError("cannot use a Dataset as an indexer")
        if isinstance(v, (xr.DataArray, xr.Variable)):
            var = v.variable if isinstance(v, xr.DataArray) else v
            out[k] = var.to_index_variable() if var.ndim == 1 else var
            continue
        a = np.asarray(v)
        if a.ndim == 0:
            out[k] = xr.Variable((), a, attrs=attrs)
        elif a.ndim == 1:
            out[k] = xr.IndexVariable((k,), a, attrs=attrs)
        else:
            raise IndexError(f"Unlabeled multi-dimensional array cannot be used for indexing: {k}")
    return out


def _float(a: Any) -> Any:
    """Values the interpolant takes: integers become float64, float16 float32."""
    kind = a.dtype.kind
    if kind in "iub":
        return a.astype(np.float64)
    if kind == "f" and a.dtype.itemsize < 4:
        return a.astype(np.float32)
    if kind == "c" and a.dtype.itemsize < 8:
        return a.astype(np.complex64)
    return a


def _grid_vector(x: xr.Variable, k: Hashable) -> tuple[np.ndarray, bool]:
    """The grid vector of dimension k and whether it decreases (then it comes flipped)."""
    g = np.asarray(x.values)
    if g.dtype.kind not in "iuf":
        raise TypeError(f"the coordinate of dimension {k!r} has dtype {g.dtype}; interpolation "
                        "needs numbers")
    g = g.astype(np.float64)
    if g.size > 1 and bool(np.all(g[1:] < g[:-1])):
        return g[::-1].copy(), True
    return g, False  # an unordered coordinate is the interpolant's to reject


def _interp_variable(var: xr.Variable, idx: dict, method: str, extrapolation: str) -> xr.Variable:
    """``var`` interpolated along the dimensions of ``idx`` ({dim: (old, new)}), with the
    dimensions of missing.interp: each interpolated dimension replaced in place by those of
    its new coordinate."""
    if not idx:
        return var.copy()
    D = list(idx)
    rest = [d for d in var.dims if d not in idx]
    news = [idx[k][1] for k in D]
    out_dims: list = []
    for dim in var.dims:
        for nd in (idx[dim][1].dims if dim in idx else (dim,)):
            if nd not in out_dims:
                out_dims.append(nd)

    grid, flips = zip(*[_grid_vector(idx[k][0], k) for k in D])
    data = _float(var.transpose(*D, *rest).data)
    if any(flips):
        data = data[tuple(slice(None, None, -1) if f else slice(None) for f in flips)]
    rest_shape = tuple(var.sizes[d] for d in rest)

    one_d = [v for v in news if v.ndim == 1]
    gridded = (len(D) > 1 and all(v.ndim <= 1 for v in news)
               and len({v.dims for v in one_d}) == len(one_d))
    if gridded:
        dest_dims = [v.dims[0] for v in one_d]
        qs = [np.atleast_1d(_float(np.asarray(v.values))) for v in news]
    else:
        dest_dims = []
        for v in news:
            dest_dims += [d for d in v.dims if d not in dest_dims]
        sizes = {}
        for v in news:
            sizes.update(v.sizes)
        bvars = [v.set_dims({d: sizes[d] for d in dest_dims}) for v in news]
        qs = [_float(np.asarray(v.values)) for v in bvars]
    dest_shape = tuple(sizes[d] for d in dest_dims) if not gridded else tuple(
        v.size for v in one_d)

    if _is_dask(data):
        result = _dask_interp(data, tuple(grid), method, extrapolation, gridded, qs,
                              len(D), rest_shape)
    else:
        F = mathinterp.griddedInterpolant(tuple(grid), np.asarray(data), method, extrapolation)
        result = np.asarray(F(*_queries(gridded, qs)))
    result = result.reshape(dest_shape + rest_shape)
    return xr.Variable(tuple(dest_dims) + tuple(rest), result, attrs=var.attrs).transpose(*out_dims)


def _queries(gridded: bool, qs: list) -> tuple:
    """The arguments of F(...) for the query arrays: a tuple of vectors (grid), the array
    itself (1-D), or an (m, d) point matrix in column-major order."""
    if gridded:
        return (tuple(qs),)
    if len(qs) == 1:
        return (qs[0],)
    dtype = np.result_type(*qs)
    P = np.empty((qs[0].size, len(qs)), dtype=dtype, order="F")
    for j, q in enumerate(qs):
        P[:, j] = q.ravel()
    return (P,)


def _dask_interp(data: Any, grid: tuple, method: str, extrapolation: str, gridded: bool,
                 qs: list, d: int, rest_shape: tuple) -> Any:
    """The lazy result for dask-backed values (grid axes first, then the value-set axes):
    one interpolant per chunk of the value-set axes, built by a task of the graph."""
    import dask.array as dda
    from dask.base import tokenize
    from dask.delayed import Delayed
    from dask.highlevelgraph import HighLevelGraph

    from mathinterp import dask as mdask

    data = data.rechunk({i: -1 for i in range(d)})
    # Any error of the grid or the words is raised now, by an interpolant of the same grid.
    probe = mathinterp.griddedInterpolant(grid, np.zeros(tuple(len(g) for g in grid), data.dtype),
                                          method, extrapolation)
    args = _queries(gridded, qs)
    if gridded:
        dtype = mdask._probe_dtype(probe, d, [q.dtype for q in qs], True)
        form: dict = {"vectors": [dda.from_array(q, chunks=-1) for q in qs]}
    else:
        dtype = mdask._probe_dtype(probe, d, [args[0].dtype], False)
        q = args[0]
        chunks = (2**20,) * (q.ndim - 1) + (-1,) if d > 1 else -1
        form = {"points": dda.from_array(q, chunks=chunks), "matrix": d > 1}
    name = "mathinterp-build-" + tokenize(data.name, grid, method, extrapolation)
    layer: dict = {}
    interpolants: dict = {}
    for bidx in np.ndindex(*data.numblocks[d:]):
        key = (name,) + bidx
        layer[key] = (_build, f"{name}-{bidx}", grid, (data.name,) + (0,) * d + bidx, method,
                      extrapolation)
        interpolants[bidx] = key
    graph = HighLevelGraph.from_collections(name, layer, dependencies=[data])
    built = Delayed(next(iter(interpolants.values())), graph, layer=name)
    return mdask._assemble(interpolants, [built], data.chunks[d:], dtype, **form)


def _build(token: str, grid: tuple, values: np.ndarray, method: str, extrapolation: str) -> Any:
    from mathinterp import dask as mdask

    return mdask._Shipped(token, mathinterp.griddedInterpolant(grid, values, method, extrapolation))


def _nearest_labels(ds: xr.Dataset, names: list, indexers: dict) -> dict:
    """Variables that are not numbers (labels, flags) along interpolated dimensions: taken
    from the nearest grid point, as Dataset.interp does, where every such dimension gets a
    vector of its own; left out otherwise."""
    along = {k: np.asarray(v.values) for k, v in indexers.items() if v.dims == (k,)}
    names = [n for n in names if all(d in along or d not in indexers for d in ds.variables[n].dims)]
    if not names:
        return {}
    try:
        sub = ds[names].reindex({k: v for k, v in along.items() if k in ds.indexes},
                                method="nearest")
    except (KeyError, ValueError, TypeError):
        return {}
    return {n: sub.variables[n] for n in names if all(
        d not in indexers or d in sub.indexes for d in sub.variables[n].dims)}


def _interp_dataset(ds: xr.Dataset, coords: Mapping[Any, Any], method: str,
                    extrapolation: str) -> xr.Dataset:
    indexers = _indexers(ds, coords)
    if coords:
        # A dimension of the data that every new coordinate has is interpolated along too
        # (pointwise), as Dataset.interp does.
        shared = set(ds.dims).intersection(*[set(v.dims) for v in indexers.values()])
        for dim in shared.difference(coords):
            indexers[dim] = _dimension_variable(ds, dim)
    pairs = {k: (_dimension_variable(ds, k), v) for k, v in indexers.items()}
    variables: dict = {}
    stepwise: list = []
    for name, var in ds.variables.items():
        if name in indexers:
            continue
        var_idx = {k: p for k, p in pairs.items() if k in var.dims}
        if var.dtype.kind in "uifc":
            variables[name] = _interp_variable(var, var_idx, method, extrapolation)
        elif not var_idx:
            variables[name] = var
        else:
            stepwise.append(name)
    variables.update(_nearest_labels(ds, stepwise, indexers))
    coord_names = set(ds.coords) & variables.keys()
    kept = set(variables)
    for k, v in indexers.items():
        variables[k] = v
        coord_names.add(k)
    for v in coords.values():
        if isinstance(v, xr.DataArray):
            for cname, c in v.coords.items():
                if cname not in kept:
                    variables[cname] = c.variable
                    coord_names.add(cname)
    return xr.Dataset({n: v for n, v in variables.items() if n not in coord_names},
                      coords={n: v for n, v in variables.items() if n in coord_names},
                      attrs=ds.attrs)


def interp(obj: Any, coords: Mapping[Any, Any] | None = None, method: str = "linear",
           extrapolation: str = "none", **coords_kwargs: Any) -> Any:
    """Interpolates a DataArray (or each variable of a Dataset) at new coordinates, as
    ``obj.interp(coords, method=...)`` does, with ``griddedInterpolant``'s methods and
    extrapolation (see the module docstring)."""
    if coords is not None and coords_kwargs:
        raise ValueError("cannot specify both keyword and positional arguments to interp")
    coords = dict(coords if coords is not None else coords_kwargs)
    if isinstance(obj, xr.DataArray):
        ds = obj._to_temp_dataset()
        return obj._from_temp_dataset(_interp_dataset(ds, coords, method, extrapolation))
    if isinstance(obj, xr.Dataset):
        return _interp_dataset(obj, coords, method, extrapolation)
    raise TypeError(f"interp takes an xarray DataArray or Dataset, not {type(obj).__name__}")


@xr.register_dataset_accessor("mathinterp")
@xr.register_dataarray_accessor("mathinterp")
class MathinterpAccessor:
    """``obj.mathinterp.interp(...)``: ``mathinterp.xarray.interp(obj, ...)`` (registered on
    DataArray and Dataset when ``mathinterp.xarray`` is imported)."""

    def __init__(self, obj: Any) -> None:
        self._obj = obj

    def interp(self, coords: Mapping[Any, Any] | None = None, method: str = "linear",
               extrapolation: str = "none", **coords_kwargs: Any) -> Any:
        """Interpolates at new coordinates (see ``mathinterp.xarray.interp``)."""
        return interp(self._obj, coords, method, extrapolation, **coords_kwargs)
