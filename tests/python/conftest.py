"""Shared fixtures of the Python tests: the package, and a marker for tests that need the
host class system and the griddedInterpolant class registered by the module; the hypothesis
profile of the property tests."""

import numpy as np
import pytest
from hypothesis import settings

# Properties over random inputs: the same examples on every run, nothing written to the tree.
settings.register_profile("mathinterp", database=None, deadline=None, derandomize=True)
settings.load_profile("mathinterp")

import mathinterp
from mathinterp import _core

needs_class = pytest.mark.skipif(
    not _core.has_class_system, reason="the module does not register griddedInterpolant yet"
)

GI = "QUARTZ:griddedInterpolant:"


def expect_error(key, fn, *args, **kwargs):
    """Runs fn and checks that it raises InterpolationError with the identifier `key` (a
    griddedInterpolant key, or a full identifier containing a colon)."""
    ident = key if ":" in key else GI + key
    with pytest.raises(mathinterp.InterpolationError) as info:
        fn(*args, **kwargs)
    assert info.value.identifier == ident, str(info.value)
    assert isinstance(info.value, ValueError)
    assert info.value.message and info.value.message != ident
    return info.value


@pytest.fixture
def rng():
    return np.random.default_rng(20261122)
