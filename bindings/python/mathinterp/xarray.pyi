"""Type stub of mathinterp.xarray (xarray objects are typed Any)."""

from typing import Any, Mapping

__all__ = ["interp", "MathinterpAccessor"]

def interp(obj: Any, coords: Mapping[Any, Any] | None = None, method: str = "linear",
           extrapolation: str = "none", **coords_kwargs: Any) -> Any: ...

class MathinterpAccessor:
    def __init__(self, obj: Any) -> None: ...
    def interp(self, coords: Mapping[Any, Any] | None = None, method: str = "linear",
               extrapolation: str = "none", **coords_kwargs: Any) -> Any: ...
