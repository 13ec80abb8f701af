"""Type stub of mathinterp.dask (dask arrays are typed Any: dask ships no stubs)."""

from typing import Any

from mathinterp import griddedInterpolant

__all__ = ["evaluate"]

def evaluate(F: griddedInterpolant, queries: Any) -> Any: ...
