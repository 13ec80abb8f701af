"""The mapping of Python objects to host arrays and back (mathinterp._core.to_host and
HostValue.value): classes per dtype, dimensions per shape, memory order and copies, cells,
structs and text (objects without a host counterpart: test_hostile_input.py)."""

import gc
import weakref

import numpy as np
import pytest
from hypothesis import given, settings, strategies as st
from hypothesis.extra import numpy as hnp

from mathinterp import _core

# dtype -> (host class, complex); integer classes are named as their dtypes.
INTEGERS = (np.int8, np.uint8, np.int16, np.uint16, np.int32, np.uint32, np.int64, np.uint64)
DTYPE_CLASSES = {
    np.float64: ("double", False), np.float32: ("single", False),
    np.complex128: ("double", True), np.complex64: ("single", True),
    np.bool_: ("logical", False), **{t: (np.dtype(t).name, False) for t in INTEGERS},
}


def host_dims(shape):
    """The host's dimensions of a NumPy shape: 0-d is 1 x 1, 1-D of n an n x 1 column,
    and trailing singleton dimensions beyond the second are dropped."""
    dims = list(shape) + [1] * (2 - len(shape)) if len(shape) < 2 else list(shape)
    while len(dims) > 2 and dims[-1] == 1:
        dims.pop()
    return tuple(dims)


def sample(dtype, shape):
    n = int(np.prod(shape, dtype=np.int64))
    a = (np.arange(n) % 7 + 1).astype(dtype)
    if np.dtype(dtype).kind == "c":
        a = a + 1j * a[::-1].astype(dtype)
    return a.reshape(shape)


@settings(max_examples=150)
@given(
    dtype=st.sampled_from(list(DTYPE_CLASSES)),
    shape=hnp.array_shapes(min_dims=0, max_dims=5, min_side=0, max_side=4),
    order=st.sampled_from("CF"),
)
def test_class_dims_and_values_for_any_dtype_shape_and_order(dtype, shape, order):
    a = np.array(sample(dtype, shape), order=order)
    h = _core.to_host(a)
    assert (h.class_name, h.is_complex) == DTYPE_CLASSES[dtype]
    assert h.dims == host_dims(shape)
    # The host sees the elements in column-major order whatever the NumPy order.
    view = h.view()
    assert view.dtype == np.dtype(dtype)
    np.testing.assert_array_equal(view.ravel(order="F"), a.ravel(order="F"))
    back = _core.to_host(h.value())  # and back
    assert (back.class_name, back.dims) == (h.class_name, h.dims)
    np.testing.assert_array_equal(back.view(), view)


@pytest.mark.parametrize("dtype", [np.float64, np.float32, np.complex128, np.int32, np.bool_])
def test_layouts_the_host_can_read_are_wrapped_without_copy(dtype):
    column_major = np.asfortranarray(sample(dtype, (3, 4, 2)))
    vector = sample(dtype, (7,))
    scalar = np.asarray(sample(dtype, ()))
    read_only = np.asfortranarray(sample(dtype, (2, 3)))
    read_only.flags.writeable = False
    for a in (column_major, vector, scalar, read_only):
        h = _core.to_host(a)
        assert np.shares_memory(h.view(), a)
        assert h.is_read_only == (not a.flags.writeable)
        assert h.view(writeable=True).flags.writeable == a.flags.writeable


def test_c_ordered_strided_swapped_and_unaligned_input_is_copied_to_host_layout():
    base = np.arange(24.0).reshape(4, 6)
    swapped = base.astype(">f8")
    strided = np.arange(20.0)[::2]
    raw = np.zeros(8 * 6 + 1, dtype=np.uint8)
    unaligned = raw[1:].view(np.float64)
    unaligned[:] = np.arange(6.0)
    for a in (base, swapped, strided, unaligned, base[:, 1:4]):
        h = _core.to_host(a)
        assert not np.shares_memory(h.view(), a)
        assert h.class_name == "double"
        np.testing.assert_array_equal(h.view().ravel(order="F"), a.ravel(order="F"))


class Owned(np.ndarray):
    pass


@pytest.mark.parametrize("release", ["del", "native thread"])
def test_wrapped_array_lives_as_long_as_the_host_holds_it(release):
    a = np.arange(5.0).view(Owned)
    ref = weakref.ref(a)
    h = _core.to_host(a)
    del a
    gc.collect()
    assert ref() is not None  # the host's owner handle keeps it alive
    np.testing.assert_array_equal(h.view().ravel(), np.arange(5.0))
    if release == "del":
        del h
    else:
        _core._release_on_native_thread(h)  # the owner takes the GIL on that thread to let go
        assert h.is_null
    gc.collect()
    assert ref() is None


@pytest.mark.parametrize(
    "obj,cls,dims",
    [
        (2, "double", (1, 1)),
        (2.5, "double", (1, 1)),
        (True, "logical", (1, 1)),
        (1 + 2j, "double", (1, 1)),
        (np.float32(2), "single", (1, 1)),
        (np.int16(2), "int16", (1, 1)),
        ([1, 2, 3], "double", (3, 1)),  # a list of integers is double like a literal
        (np.array([1, 2]), "int64", (2, 1)),  # but integer arrays keep their class
        ([[1, 2, 3]], "double", (1, 3)),
        ([[1, 2], [3, 4], [5, 6]], "double", (3, 2)),
        ([1.5, 2j], "double", (2, 1)),
        ([True, False], "logical", (2, 1)),
        ([np.float32(1), np.float32(2)], "single", (2, 1)),
        ([], "double", (0, 0)),
        ("linear", "string", (1, 1)),
        (b"linear", "char", (1, 6)),
        (["a", "bc"], "string", (2, 1)),
        ((), "cell", (1, 0)),
        ((1, 2, 3), "cell", (1, 3)),
        ([[1, 2], [3]], "cell", (1, 2)),
        ({"a": 1, "b": "x"}, "struct", (1, 1)),
    ],
    ids=repr,
)
def test_python_objects_map_to_host_classes_and_back(obj, cls, dims):
    h = _core.to_host(obj)
    assert (h.class_name, h.dims) == (cls, dims)
    # Text comes back as str (a string scalar), string arrays as object arrays (cells).
    text = {"char": ("string", (1, 1)), "string": ("string" if dims == (1, 1) else "cell", dims)}
    back = _core.to_host(h.value())
    assert (back.class_name, back.dims) == text.get(cls, (cls, dims))


def test_object_arrays_are_cells_or_struct_arrays():
    cells = np.empty((2, 3), dtype=object)
    for i, j in np.ndindex(2, 3):
        cells[i, j] = float(10 * i + j)
    h = _core.to_host(cells)
    assert (h.class_name, h.dims) == ("cell", (2, 3))
    back = h.value()
    assert back.shape == (2, 3)
    assert [float(back[i, j][0]) for i, j in np.ndindex(2, 3)] == [
        10.0 * i + j for i, j in np.ndindex(2, 3)
    ]
    structs = np.array([{"x": 1.0}, {"x": 2.0}, {"x": 3.0}], dtype=object)
    s = _core.to_host(structs)
    assert (s.class_name, s.dims) == ("struct", (3, 1))
    assert [float(d["x"][0]) for d in s.value()] == [1.0, 2.0, 3.0]
    mixed = np.array([{"x": 1.0}, {"y": 2.0}], dtype=object)
    assert _core.to_host(mixed).class_name == "cell"


def test_host_arrays_read_back_in_their_numpy_shape_and_views_share_the_buffer():
    for shape in [(4,), (1, 4), (2, 3, 4), (0, 3)]:
        assert _core.to_host(np.zeros(shape)).value().shape == shape
    h = _core.to_host(np.zeros((3, 2), order="F"))
    h.view(writeable=True)[1, 1] = 7.0
    assert h.view()[1, 1] == 7.0
    assert not h.view().flags.writeable  # read-only unless asked for


def test_deep_nesting_and_many_dimensions_raise_or_map_without_crashing():
    nested = 1.0
    for _ in range(200):
        nested = (nested,)
    with pytest.raises(ValueError):
        _core.to_host(nested)
    many = np.zeros((1,) * 31 + (2,))
    assert _core.to_host(many).dims == (1,) * 31 + (2,)
    assert _core.to_host(np.zeros((2,) + (1,) * 31)).dims == (2, 1)
    huge = np.lib.stride_tricks.as_strided(np.zeros(1), shape=(2**22, 2**22), strides=(0, 0))
    with pytest.raises(MemoryError):
        _core.to_host(huge)  # needs a copy to host layout that cannot be allocated
