// Conversion between Python objects and host arrays. NumPy arrays whose layout the host can
// read (column-major contiguous, aligned, native byte order) are wrapped without a copy; the
// host array then holds a reference to the NumPy array through an owner handle that drops the
// reference under the GIL on whichever thread releases the last handle. Host arrays go back
// to Python as NumPy arrays over the host buffer (a capsule owns the host array), again
// without a copy. The full mapping is documented in docs/python.md.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <platform/HostArray.hpp>

namespace mathinterp_py {

namespace py = pybind11;

// A host array held by Python without conversion (for arguments passed back to the host
// as they are, and for the private test hooks).
struct HostValue {
    platform::HostArray array;
};

// Python object -> host array. Raises TypeError for objects with no host counterpart (None,
// float16, datetime, ...) and ValueError for nesting deeper than the host can represent.
platform::HostArray toHost(py::handle obj);

// Host array -> Python object. Numeric arrays become NumPy arrays over the host buffer
// (writeable only when `writeable` is set and the host buffer is not read-only); an n x 1
// column becomes a 1-D array; 1 x n cells become tuples, other cells object arrays; char
// rows and 1 x 1 strings become str; 1 x 1 structs become dicts.
py::object fromHost(const platform::HostArray& a, bool writeable);

// The same for numeric arrays, keeping the host's dimensions exactly (no column rule).
py::array numericView(const platform::HostArray& a, bool writeable);

// False once the interpreter is shutting down: Python references are then leaked, not
// dropped, since taking the GIL is no longer possible.
inline bool pythonAlive() noexcept {
#if PY_VERSION_HEX >= 0x030D0000
    return Py_IsInitialized() && !Py_IsFinalizing();
#else
    return Py_IsInitialized() && !_Py_IsFinalizing();
#endif
}

// Hook for class instances: the package registers a factory that turns a host object value
// into its Python class (griddedInterpolant), and toHost recognises Python objects carrying
// an attribute `_mi_host` that yields a HostValue.
void setObjectFactory(py::object factory);

} // namespace mathinterp_py
