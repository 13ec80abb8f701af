"""Exception and warning classes of mathinterp (kept free of the compiled module so that
the extension can look them up while it initialises)."""

from __future__ import annotations

__all__ = ["InterpolationError", "MethodNotBuiltError", "InterpolationWarning"]


class InterpolationError(ValueError):
    """An error raised by the interpolation host.

    ``identifier`` is the host identifier ("COMPONENT:key", e.g.
    ``"QUARTZ:griddedInterpolant:DegenerateGridErrId"``; empty for errors raised with a
    literal text), ``message`` the catalog text and ``arguments`` the message arguments.
    """

    def __init__(self, message: str, identifier: str = "", arguments: tuple = ()):
        super().__init__(message, identifier, tuple(arguments))
        self.message = message
        self.identifier = identifier
        self.arguments = tuple(arguments)

    def __str__(self) -> str:
        if self.identifier:
            return f"{self.message} [{self.identifier}]"
        return self.message


class MethodNotBuiltError(InterpolationError, NotImplementedError):
    """The requested interpolation method is not part of this build; ``method`` names it."""

    def __init__(self, message: str, method: str = ""):
        InterpolationError.__init__(self, message, "", ())
        self.args = (message, method)
        self.method = method


class InterpolationWarning(UserWarning):
    """A warning issued by the interpolation host; ``identifier`` as for errors."""

    def __init__(self, message: str, identifier: str = ""):
        super().__init__(message, identifier)
        self.message = message
        self.identifier = identifier

    def __str__(self) -> str:
        return f"{self.message} [{self.identifier}]" if self.identifier else self.message
