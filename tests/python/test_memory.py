"""The memory budget as Python sees it (MemoryError, the limit functions and their context
manager), and text the host cannot represent as the library's own error."""

import numpy as np
import pytest

import mathinterp
from mathinterp import InterpolationError


def spline3(n=59):
    g = np.arange(n, dtype=float)
    v = np.sin(np.add.outer(np.add.outer(g, 0.5 * g), 0.25 * g))
    return mathinterp.griddedInterpolant((g, g, g), v, "spline")


def test_limit_is_read_set_restored_and_scoped():
    default = mathinterp.get_memory_limit()
    assert default > 0
    with mathinterp.memory_limit(123 << 20):
        assert mathinterp.get_memory_limit() == 123 << 20
        mathinterp.set_memory_limit(None)
        assert mathinterp.get_memory_limit() == default
    assert mathinterp.get_memory_limit() == default
    for bad in (0, -5):
        with pytest.raises(ValueError):
            mathinterp.set_memory_limit(bad)


def test_refusal_is_memory_error_and_the_object_goes_on():
    q = np.random.default_rng(1).uniform(0, 58, (500, 3))
    expected = spline3()(q)
    F = spline3()
    mathinterp._core.release_cached_memory()  # freed blocks kept for reuse count until given back
    live = mathinterp.memory_in_use()
    with mathinterp.memory_limit(live + (64 << 20)):
        with pytest.raises(MemoryError) as info:
            F(q)
        text = str(info.value)
        assert str(live + (64 << 20)) in text and "full grid of queries" in text
        assert mathinterp.memory_in_use() == live
        assert F((np.array([0.5, 3.0]), np.array([1.0]), np.array([2.0, 7.5]))).shape == (2, 1, 2)
    np.testing.assert_array_equal(F(q), expected)


@pytest.mark.parametrize(
    "word", ["\udcff", b"\xff", b"\xc0\xaf", b"\xed\xa0\x80", b"lin\xe9ar"]
)
def test_text_without_unicode_is_the_librarys_error(word):
    x = np.array([0.0, 1.0, 2.0])
    with pytest.raises(InterpolationError) as info:
        mathinterp.griddedInterpolant(x, x, word)
    assert info.value.identifier == "QUARTZ:string:InvalidText"


def test_public_names_are_those_of_all():
    public = {n for n in dir(mathinterp) if not n.startswith("_")}
    modules = {"dask", "xarray"}  # optional submodules appear once imported
    assert public - modules <= set(mathinterp.__all__)
