"""mathinterp: gridded interpolation from Python.

From sample values on a rectangular grid of one or more dimensions, ``griddedInterpolant``
builds an interpolant and evaluates it at scattered points or on a full query grid, in
parallel. The methods are "linear", "nearest", "next", "previous", "pchip", "cubic",
"spline" and "makima"; outside the grid the interpolant extrapolates by its
``ExtrapolationMethod`` (or returns NaN for "none").

The Python objects are driven through the embedded host's class system; NumPy arrays are
passed to it without copying where their layout allows (see docs/python.md for the mapping
of Python objects to host arrays and for every shape rule).

    >>> import numpy as np, mathinterp
    >>> F = mathinterp.griddedInterpolant(np.array([0.0, 1.0, 2.0]), np.array([0.0, 10.0, 0.0]))
    >>> F(np.array([0.5, 1.5]))
    array([5., 5.])

Errors raise ``InterpolationError`` (a ``ValueError``) with the host ``identifier``;
warnings are ``InterpolationWarning`` with the same attribute.
"""

from __future__ import annotations

import contextlib as _contextlib
import numbers as _numbers
import threading as _threading
from typing import Any, Iterator

import numpy as _np

from ._errors import InterpolationError, InterpolationWarning, MethodNotBuiltError
from . import _core

__all__ = [
    "griddedInterpolant",
    "interp1Fcn",
    "interp2Fcn",
    "gridStructsInterpFcn",
    "InterpolationError",
    "InterpolationWarning",
    "MethodNotBuiltError",
    "set_num_threads",
    "get_num_threads",
    "num_threads",
    "set_memory_limit",
    "get_memory_limit",
    "memory_limit",
    "memory_in_use",
    "METHODS",
]

__version__ = "0.1.0"

#: The method words, in the host's order.
METHODS = ("linear", "nearest", "next", "previous", "pchip", "cubic", "spline", "makima")

_CLASS = "griddedInterpolant"
_PROPERTIES = ("GridVectors", "Values", "Method", "ExtrapolationMethod")
_STATE_VERSION = 1


def _require_class_system() -> None:
    if not _core.has_class_system:
        raise NotImplementedError("this build of mathinterp has no host class system")


# ---- query preparation and result shapes ----------------------------------------------------


def _as_query_array(q: Any) -> _np.ndarray | None:
    """The NumPy array the host will see for a numeric query, or None (cells, text, ...).

    Mirrors the conversion rules: Python numbers and lists of numbers are double arrays.
    """
    if isinstance(q, _np.ndarray):
        return q if q.dtype.kind in "biufc" else None
    if isinstance(q, _np.generic):
        return _np.asarray(q)
    if isinstance(q, bool):
        return None
    if isinstance(q, (int, float)):
        return _np.asarray(float(q))
    if isinstance(q, list):
        try:
            a = _np.asarray(q)
        except ValueError:
            return None
        if a.dtype.kind in "iu":
            return a.astype(_np.float64)
        return a if a.dtype.kind in "bfc" else None
    return None


def _shape_result(out: "_core.HostValue", shape: tuple | None, order: str = "F") -> Any:
    """A NumPy result over the host output: reshaped to `shape` (a view) when given and the
    element counts agree, else the host's own shape under the general mapping."""
    if shape is not None and out.class_name in ("double", "single"):
        view = out.view(writeable=True)
        if int(_np.prod(shape, dtype=_np.int64)) == view.size:
            r = view.reshape(shape, order=order)
            return r[()] if r.ndim == 0 else r
    return out.value(writeable=True)


def _shape_gradient(out: "_core.HostValue", shape: tuple | None, order: str, d: int,
                    vs: tuple) -> Any:
    """A gradient over the host output (query points fastest, then the d components, then
    the value sets): the query axes, then d (dropped for d = 1), then the value-set axes."""
    if shape is None or out.class_name not in ("double", "single"):
        return out.value(writeable=True)
    qshape = tuple(shape[: len(shape) - len(vs)])
    view = out.view(writeable=True)
    m = int(_np.prod(qshape, dtype=_np.int64))
    if m * d * int(_np.prod(vs, dtype=_np.int64)) != view.size:
        return out.value(writeable=True)
    flat = view.reshape((m, d) + vs, order="F")
    r = flat.reshape(qshape + (d,) + vs, order=order)
    if d == 1:
        r = r.reshape(qshape + vs, order=order)
    return r[()] if r.ndim == 0 else r


def _prepare_queries(d: int, vs: tuple, queries: tuple) -> tuple[tuple, tuple | None, str]:
    """Host arguments for a query, the NumPy shape of the result and its element order.

    Shape rules (docs/python.md): a 1-D interpolant returns the query's shape followed by the
    value-set extents (any memory order, no copy of a contiguous query); a point matrix of m
    rows returns (m,) + value sets; a tuple of grid vectors returns their lengths + value
    sets; d coordinate arrays return their shape + value sets.
    """
    if not queries:
        return queries, None, "F"  # the host raises its too-few-inputs error
    if len(queries) == 1:
        q = queries[0]
        if isinstance(q, tuple):  # grid vectors (a cell): gridded evaluation
            return queries, None, "F"
        a = _as_query_array(q)
        if a is None:
            return queries, None, "F"
        if d == 1:
            # Every element is one point: pass a contiguous query as its flat memory, so a
            # C-ordered array of any rank is read in place; the result takes its shape back.
            if a.ndim >= 2 and a.flags.c_contiguous and not a.flags.f_contiguous:
                return (a.reshape(-1, order="C"),), a.shape + vs, "C"
            if a.ndim >= 2 and a.flags.f_contiguous:
                return (a.reshape(-1, order="F"),), a.shape + vs, "F"
            return (a,), a.shape + vs, "F"
        if d >= 2 and a.ndim == 2:
            return (a,), (a.shape[0],) + vs, "F"
        return (a,), None, "F"
    arrays = [_as_query_array(q) for q in queries]
    if any(a is None for a in arrays):
        return queries, None, "F"
    return tuple(arrays), arrays[0].shape + vs, "F"


# ---- the class ------------------------------------------------------------------------------


class griddedInterpolant:
    """Interpolate on rectangular ndgrids.

    Forms of the constructor (``V`` values, ``m`` method word, ``e`` extrapolation word)::

        griddedInterpolant()                      # empty
        griddedInterpolant(V[, m[, e]])           # default grid 1..n per dimension
        griddedInterpolant(X1, ..., Xd, V[, m[, e]])   # full grid arrays (ndgrid order)
        griddedInterpolant((x1, ..., xd), V[, m[, e]]) # grid vectors in a tuple

    Grid vectors must be finite and strictly increasing; grid arrays and values are float64
    or float32 (values may be complex). ``V`` may have more dimensions than the grid: the
    extra dimensions are value sets, each interpolated separately.

    Evaluation ``F(...)``::

        F(xq)              # 1-D: every element of xq is a point; result has xq's shape
        F(P)               # d >= 2: a point matrix of m rows and d columns; result (m,)
        F(X1q, ..., Xdq)   # d arrays of one shape: result of that shape
        F((x1q, ..., xdq)) # grid vectors: result on their full grid

    Value sets add their extents at the end of the result's shape. Evaluation releases the
    GIL and runs in parallel; an object may be evaluated from several Python threads.
    """

    __slots__ = ("_mi_host", "__weakref__")

    def __init__(self, *args: Any) -> None:
        _require_class_system()
        self._mi_host = _core.construct(_CLASS, args)

    @classmethod
    def _from_host(cls, host: "_core.HostValue") -> "griddedInterpolant":
        obj = cls.__new__(cls)
        obj._mi_host = host
        return obj

    # ---- evaluation -------------------------------------------------------------------------

    def _layout(self) -> tuple[int, tuple]:
        d, vs = _core.layout(self._mi_host)
        return int(d), tuple(vs)

    def __call__(self, *queries: Any) -> Any:
        """Evaluate at the query points (see the class docstring for the forms)."""
        d, vs = self._layout()
        args, shape, order = _prepare_queries(d, vs, queries)
        (out,) = _core.invoke("parenReference", self._mi_host, args, 1)
        return _shape_result(out, shape, order)

    def gradient(self, *queries: Any) -> Any:
        """The gradient at the query points, in the query forms of ``F(...)``.

        The result has the query axes, then an axis of length d with the partial derivatives
        in dimension order (left out for d = 1, so a 1-D gradient has the shape of ``F(q)``),
        then the value-set axes; float32 values give float32, complex values complex. Each
        component is the analytic derivative of the piece evaluation uses at the point
        (docs/gradients.md): on a node the cell the interval search picks, outside the grid
        the extrapolation method's, NaN for "none".
        """
        d, vs = self._layout()
        args, shape, order = _prepare_queries(d, vs, queries)
        (out,) = _core.invoke("gradient", self._mi_host, args, 1)
        return _shape_gradient(out, shape, order, d, vs)

    def derivative(self, xq: Any, order: int = 1) -> Any:
        """1-D only: the first (``order=1``) or second (``order=2``) derivative at the points
        of ``xq``, shaped as ``F(xq)``. "linear" has second derivative 0 inside a cell."""
        d, vs = self._layout()
        args, shape, morder = _prepare_queries(d, vs, (xq,))
        o = float(order) if isinstance(order, _numbers.Real) and not isinstance(order, bool) else order
        (out,) = _core.invoke("derivative", self._mi_host, args + (o,), 1)
        return _shape_gradient(out, shape, morder, 1, vs)

    # ---- properties -------------------------------------------------------------------------

    def _get(self, name: str) -> Any:
        return _core.get_property(self._mi_host, name).value(writeable=False)

    @property
    def GridVectors(self) -> tuple:
        """The grid vectors, one 1-D array per dimension (read-only views)."""
        g = self._get("GridVectors")
        if g is None:
            return ()
        if not isinstance(g, tuple):
            return g
        return tuple(_np.ravel(x) if isinstance(x, _np.ndarray) else x for x in g)

    @GridVectors.setter
    def GridVectors(self, value: Any) -> None:
        if isinstance(value, list):
            value = tuple(value)
        _core.set_property(self._mi_host, "GridVectors", value)

    @property
    def Values(self) -> Any:
        """The sample values as given (a read-only view; an n x 1 column reads back 1-D)."""
        return self._get("Values")

    @Values.setter
    def Values(self, value: Any) -> None:
        _core.set_property(self._mi_host, "Values", value)

    @property
    def Method(self) -> str:
        """The interpolation method word."""
        m = self._get("Method")
        return "" if m is None else m

    @Method.setter
    def Method(self, value: Any) -> None:
        _core.set_property(self._mi_host, "Method", value)

    @property
    def ExtrapolationMethod(self) -> str:
        """The extrapolation method word ("none": NaN outside the grid)."""
        m = self._get("ExtrapolationMethod")
        return "" if m is None else m

    @ExtrapolationMethod.setter
    def ExtrapolationMethod(self, value: Any) -> None:
        _core.set_property(self._mi_host, "ExtrapolationMethod", value)

    # ---- copying and pickling ---------------------------------------------------------------

    def __copy__(self) -> "griddedInterpolant":
        """A shallow copy: shares values and evaluator; changing either object's properties
        afterwards never changes the other."""
        return griddedInterpolant._from_host(_core.copy_object(self._mi_host))

    def __deepcopy__(self, memo: dict) -> "griddedInterpolant":
        """An independent copy: the saved properties are deep-copied and loaded."""
        record = _core.deep_copy(_core.save_object(self._mi_host))
        return griddedInterpolant._from_host(_core.load_object(_CLASS, record))

    def _state(self) -> tuple:
        record = _core.save_object(self._mi_host).value(writeable=False)
        return (_STATE_VERSION,) + tuple(record.get(name) for name in _PROPERTIES)

    def __reduce__(self) -> tuple:
        return (_load, (self._state(),))

    # ---- display ----------------------------------------------------------------------------

    def __repr__(self) -> str:
        try:
            grid = self.GridVectors
            values = self.Values
            method = self.Method
            extrap = self.ExtrapolationMethod
        except Exception as e:  # pragma: no cover - a repr must not raise
            return f"<griddedInterpolant (unreadable: {e})>"
        if values is None or getattr(values, "size", 0) == 0:
            return "griddedInterpolant()"
        sizes = "x".join(str(len(g)) for g in grid)
        shape = "x".join(str(s) for s in _np.shape(values))
        dt = getattr(values, "dtype", None)
        return (
            f"griddedInterpolant(grid {sizes} ({len(grid)}-D), Values {shape} {dt}, "
            f"Method={method!r}, ExtrapolationMethod={extrap!r})"
        )


def _load(state: tuple) -> griddedInterpolant:
    """Rebuilds a pickled griddedInterpolant through the host's load protocol."""
    if not isinstance(state, tuple) or len(state) != 1 + len(_PROPERTIES):
        raise ValueError("invalid griddedInterpolant pickle state")
    if state[0] != _STATE_VERSION:
        raise ValueError(f"unsupported griddedInterpolant pickle version {state[0]!r}")
    record = {name: v for name, v in zip(_PROPERTIES, state[1:]) if v is not None}
    return griddedInterpolant._from_host(_core.load_object(_CLASS, record))


_core.set_object_factory(griddedInterpolant._from_host)


# ---- gateways -------------------------------------------------------------------------------


def _gateway(name: str, args: tuple) -> Any:
    if len(args) != 5:
        (out,) = _core.gateway(name, args, 1)  # the host raises the argument-count error
        return out.value(writeable=True)
    host_args = [_core.to_host(a) for a in args[:4]]
    d = len(args[0]) if isinstance(args[0], tuple) else 1
    vs = _core.value_set_extents(host_args[1], d)
    queries, shape, order = _prepare_queries(d, vs, (args[4],))
    (out,) = _core.gateway(name, host_args + list(queries), 1)
    return _shape_result(out, shape, order)


def interp1Fcn(*args: Any) -> Any:
    """One-call interpolation: ``interp1Fcn(grid, V, method, extrapolation, query)``.

    Builds a temporary interpolant from the first four arguments (as the constructor takes
    them) and evaluates it at the fifth; results are shaped as by ``griddedInterpolant``.
    """
    return _gateway("interp1Fcn", args)


def interp2Fcn(*args: Any) -> Any:
    """The same as ``interp1Fcn`` (the host's two-dimensional entry point)."""
    return _gateway("interp2Fcn", args)


def _as_cell(v: Any) -> tuple:
    """A tuple stays a cell; a list becomes one; anything else is a one-element cell."""
    if isinstance(v, tuple):
        return v
    if isinstance(v, list):
        return tuple(v)
    return (v,)


def gridStructsInterpFcn(grid_vectors: Any, values: Any, queries: Any, *words: Any) -> tuple:
    """Interpolates grids of records: ``gridStructsInterpFcn(grid_vectors, values, queries,
    method="linear", extrapolation=method)``.

    ``grid_vectors`` and ``queries`` are tuples of d vectors; ``values`` is a tuple of struct
    arrays (an object array of dicts shaped like the grid, or one dict on a one-point grid),
    every dict holding the same numeric fields. ``method`` is "linear" or "nearest";
    ``extrapolation`` "linear", "nearest" or "boundary" (clamp to the grid). Returns a tuple
    with one object array of dicts per struct array, shaped by the query vectors, each field
    interpolated element by element (complex where any grid record's field is complex).
    """
    qs = _as_cell(queries)
    args = [_as_cell(grid_vectors), _as_cell(values), qs, *words]
    (out,) = _core.gateway("gridStructsInterpFcn", [_core.to_host(a) for a in args], 1)
    result = out.value(writeable=True)
    shape = tuple(int(_np.asarray(q).size) for q in qs)
    return tuple(_np.asarray(s, dtype=object).reshape(shape) for s in result)


# ---- threads --------------------------------------------------------------------------------

_thread_lock = _threading.Lock()


def set_num_threads(n: int | None) -> None:
    """Caps the worker threads of every evaluation at ``n`` (None or 0 removes the cap)."""
    n = 0 if n is None else int(n)
    if n < 0:
        raise ValueError("the number of threads must be positive (or 0/None for no cap)")
    with _thread_lock:
        _core.set_thread_limit(n)


def get_num_threads() -> int:
    """The number of threads an evaluation may use now."""
    return int(_core.active_parallelism())


@_contextlib.contextmanager
def num_threads(n: int | None) -> Iterator[None]:
    """Context manager: ``with mathinterp.num_threads(1): ...`` caps the worker threads
    inside the block and restores the previous cap afterwards."""
    with _thread_lock:
        previous = int(_core.thread_limit())
    set_num_threads(n)
    try:
        yield
    finally:
        set_num_threads(previous)


# ---- memory ---------------------------------------------------------------------------------


def set_memory_limit(nbytes: int | None) -> None:
    """Caps the bytes the library may hold at once (coefficient tables, results, scratch).

    A request that would pass the cap raises ``MemoryError`` at once, before any memory is
    touched, and leaves every object as it was. ``None`` restores the default: three quarters
    of the memory this process may use (its cgroup limit where one is set, else physical
    memory). Memory held by NumPy arrays you pass in is not counted.
    """
    if nbytes is None:
        _core.set_memory_limit(None)
        return
    n = int(nbytes)
    if n <= 0:
        raise ValueError("the memory limit must be a positive number of bytes (or None)")
    _core.set_memory_limit(n)


def get_memory_limit() -> int:
    """The memory limit in force, in bytes."""
    return int(_core.memory_limit())


def memory_in_use() -> int:
    """Bytes the library holds now (including large blocks kept for reuse)."""
    return int(_core.memory_in_use())


@_contextlib.contextmanager
def memory_limit(nbytes: int | None) -> Iterator[None]:
    """Context manager: ``with mathinterp.memory_limit(2**30): ...`` sets the limit inside
    the block and restores the previous one afterwards."""
    previous = get_memory_limit()
    set_memory_limit(nbytes)
    try:
        yield
    finally:
        set_memory_limit(previous)


del annotations, Any, Iterator  # annotations only: keep the module's public names those of __all__
