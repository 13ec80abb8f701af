"""Lazy evaluation of a ``griddedInterpolant`` on dask arrays.

    >>> import dask.array as da, mathinterp.dask
    >>> P = da.random.random((10**8, 2), chunks=(10**6, 2))
    >>> V = mathinterp.dask.evaluate(F, P)          # a dask array of 10**8 values
    >>> G = mathinterp.dask.evaluate(F, (xq, yq))   # gridded: one block per pair of chunks

The interpolant is put into the task graph once, under a key of its own, and every chunk's
task depends on that key: a scheduler ships it to each worker once (a worker that receives
it again, after the scheduler dropped its copy, reuses the one it already unpickled). Each
chunk is an ordinary ``F(...)`` call, so it releases the GIL and runs in parallel on the
worker's threads; its bits are those of a local evaluation of the same points.

This module needs dask (``import dask.array``); ``import mathinterp`` does not.
"""

from __future__ import annotations

import collections
import pickle
import threading
from typing import Any, Sequence

import numpy as np

import dask.array as da
from dask.base import tokenize
from dask.delayed import Delayed
from dask.highlevelgraph import HighLevelGraph

import mathinterp

__all__ = ["evaluate"]


# ---- the interpolant in the graph -----------------------------------------------------------

_CACHE_SIZE = 4
_cache: "collections.OrderedDict[str, Any]" = collections.OrderedDict()
_cache_lock = threading.Lock()


class _Shipped:
    """The graph's value for an interpolant: pickles as its token and the interpolant's own
    pickle (opaque bytes), so that a process that already holds the interpolant of that token
    takes it from its cache instead of unpickling it again."""

    __slots__ = ("token", "interpolant")

    def __init__(self, token: str, interpolant: Any) -> None:
        self.token = token
        self.interpolant = interpolant

    def __reduce__(self) -> tuple:
        return (_arrive, (self.token, pickle.dumps(self.interpolant, protocol=5)))


def _arrive(token: str, payload: bytes) -> _Shipped:
    with _cache_lock:
        F = _cache.get(token)
        if F is not None:
            _cache.move_to_end(token)
            return _Shipped(token, F)
    F = pickle.loads(payload)
    with _cache_lock:
        F = _cache.setdefault(token, F)
        _cache.move_to_end(token)
        while len(_cache) > _CACHE_SIZE:
            _cache.popitem(last=False)
    return _Shipped(token, F)


def _interpolant_key(F: Any) -> Delayed:
    """A one-key collection holding F (the key is derived from F's saved state)."""
    token = tokenize(F._state())
    name = "mathinterp-interpolant-" + token
    graph = HighLevelGraph.from_collections(name, {name: _Shipped(token, F)}, dependencies=())
    return Delayed(name, graph)


# ---- chunk tasks ----------------------------------------------------------------------------


def _points_block(shipped: _Shipped, q: np.ndarray, shape: tuple, dtype: np.dtype) -> np.ndarray:
    if q.size == 0:
        return np.empty(shape, dtype)
    return np.asarray(shipped.interpolant(q)).reshape(shape)


def _grid_block(shipped: _Shipped, shape: tuple, dtype: np.dtype, *vectors: np.ndarray) -> np.ndarray:
    if any(v.size == 0 for v in vectors):
        return np.empty(shape, dtype)
    return np.asarray(shipped.interpolant(tuple(vectors))).reshape(shape)


def _assemble(interpolants: dict, deps: list, vs_chunks: tuple, dtype: np.dtype,
              points: da.Array | None = None, matrix: bool = False,
              vectors: Sequence[da.Array] = ()) -> da.Array:
    """The dask array of an evaluation.

    ``interpolants`` maps each block index over the value-set axes (chunked as
    ``vs_chunks``) to the key of a _Shipped interpolant holding those value sets; ``deps``
    are the collections that hold them. The queries are either ``points`` (every chunk a set
    of points; ``matrix``: an (m, d) point matrix in one chunk along its columns) or
    ``vectors`` (one per grid dimension, a block per combination of their chunks).
    """
    queries = [points] if points is not None else list(vectors)
    name = "mathinterp-evaluate-" + tokenize(sorted(interpolants.items()), vs_chunks, matrix,
                                              [q.name for q in queries])
    if points is not None:
        qchunks = points.chunks[:1] if matrix else points.chunks
    else:
        qchunks = tuple(v.chunks[0] for v in vectors)
    layer: dict = {}
    for qidx in np.ndindex(*[len(c) for c in qchunks]):
        qshape = tuple(c[i] for c, i in zip(qchunks, qidx))
        for bidx, fkey in interpolants.items():
            shape = qshape + tuple(c[i] for c, i in zip(vs_chunks, bidx))
            if points is not None:
                qkey = (points.name,) + qidx + ((0,) if matrix else ())
                task: tuple = (_points_block, fkey, qkey, shape, dtype)
            else:
                task = (_grid_block, fkey, shape, dtype,
                        *[(v.name, i) for v, i in zip(vectors, qidx)])
            layer[(name,) + qidx + bidx] = task
    graph = HighLevelGraph.from_collections(name, layer, dependencies=queries + deps)
    chunks = tuple(qchunks) + tuple(vs_chunks)
    return da.Array(graph, name, chunks, meta=np.empty((0,) * len(chunks), dtype))


def _as_dask(v: Any) -> da.Array:
    return v if isinstance(v, da.Array) else da.from_array(np.asarray(v), chunks=-1)


def _probe_dtype(F: Any, d: int, dtypes: Sequence[np.dtype], grid: bool) -> np.dtype:
    """The result dtype of F for queries of these dtypes: F at its first grid point (this
    also raises F's own error, at once, for an interpolant that cannot evaluate)."""
    first = [g[0] for g in F.GridVectors]
    if grid:
        r = F(tuple(np.array([x], dtype=t) for x, t in zip(first, dtypes)))
    elif d == 1:
        r = F(np.array(first, dtype=dtypes[0]))
    else:
        r = F(np.array([first], dtype=dtypes[0]))
    return np.asarray(r).dtype


def _query_form(d: int, queries: Any) -> tuple:
    """("grid", [vectors]) or ("points", array, matrix) for the queries of a d-D interpolant."""
    if isinstance(queries, tuple):  # as for F(...): a tuple is grid vectors, a list an array
        vectors = [_as_dask(v) for v in queries]
        if len(vectors) != d or any(v.ndim != 1 for v in vectors):
            raise ValueError(f"gridded queries need {d} one-dimensional vectors, got shapes "
                             f"{[v.shape for v in vectors]}")
        return ("grid", vectors)
    q = _as_dask(queries)
    if d == 1:
        return ("points", q, False)
    if q.ndim != 2 or q.shape[1] != d:
        raise ValueError(f"scattered queries of a {d}-D interpolant are an (m, {d}) array, "
                         f"got shape {q.shape}")
    if q.numblocks[1] != 1:
        q = q.rechunk({1: -1})
    return ("points", q, True)


def evaluate(F: Any, queries: Any) -> da.Array:
    """Evaluates the interpolant ``F`` lazily: a dask array of ``F``'s values at ``queries``.

    ``queries`` is either

    * a dask (or NumPy) array of scattered points: for a 1-D interpolant, of any shape (every
      element a point; the result has its shape and chunks); for a d-D interpolant, an (m, d)
      array (chunked along the points only: it is rechunked to one chunk along its columns);
      the result has shape (m,) and the row chunks; or
    * a tuple of d dask or NumPy vectors (a NumPy vector is one chunk): gridded evaluation,
      the result has shape (len(x1), ..., len(xd)) and one chunk per combination of the
      vectors' chunks.

    Value sets (the extents of ``F.Values`` beyond the grid's) are trailing axes of one chunk
    each. The dtype is that of ``F(...)`` (float32 values stay float32, complex stays
    complex). Every chunk gives the bits of ``F`` evaluated locally on the same points.
    """
    if not isinstance(F, mathinterp.griddedInterpolant):
        raise TypeError(f"evaluate takes a mathinterp.griddedInterpolant, not {type(F).__name__}")
    d, vs = F._layout()
    form = _query_form(d, queries)
    if form[0] == "grid":
        dtype = _probe_dtype(F, d, [v.dtype for v in form[1]], True)
    else:
        dtype = _probe_dtype(F, d, [form[1].dtype], False)
    fkey = _interpolant_key(F)
    vs_chunks = tuple((n,) for n in vs)
    interpolants = {(0,) * len(vs): fkey.key}
    if form[0] == "grid":
        return _assemble(interpolants, [fkey], vs_chunks, dtype, vectors=form[1])
    return _assemble(interpolants, [fkey], vs_chunks, dtype, points=form[1], matrix=form[2])
