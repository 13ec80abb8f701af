// Python objects <-> host arrays (see Convert.hpp and docs/python.md for the mapping).
#include "Convert.hpp"

#include <platform/HostError.hpp>
#include <platform/HostArray.hpp>
#include <platform/HostString.hpp>

#include <Python.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace mathinterp_py {

using platform::ClassId;
using platform::Dims;
using platform::HostArray;

namespace {

// Deeper nesting than this is refused rather than risking the C stack.
constexpr int kMaxDepth = 64;

py::object& objectFactory() {
    static py::object* f = new py::object(); // leaked on purpose: outlives interpreter teardown
    return *f;
}

py::module_& numpy() {
    static py::module_* np = new py::module_(py::module_::import("numpy"));
    return *np;
}

// Drops a Python reference from any thread: takes the GIL for the decrement. At interpreter
// shutdown the reference is leaked, as the objects are going away anyway.
struct PyRefDeleter {
    void operator()(PyObject* o) const noexcept {
        if (!pythonAlive()) return;
        PyGILState_STATE s = PyGILState_Ensure();
        Py_DECREF(o);
        PyGILState_Release(s);
    }
};

std::shared_ptr<const void> ownerOf(const py::object& o) {
    PyObject* p = o.ptr();
    Py_INCREF(p);
    return std::shared_ptr<PyObject>(p, PyRefDeleter());
}

std::optional<ClassId> classOfDtype(const py::dtype& dt, bool& complex) {
    const char kind = dt.kind();
    const auto size = static_cast<std::size_t>(dt.itemsize());
    complex = false;
    switch (kind) {
    case 'b':
        return ClassId::Logical;
    case 'f':
        if (size == 8) return ClassId::Double;
        if (size == 4) return ClassId::Single;
        return std::nullopt;
    case 'c':
        complex = true;
        if (size == 16) return ClassId::Double;
        if (size == 8) return ClassId::Single;
        return std::nullopt;
    case 'i':
        if (size == 1) return ClassId::Int8;
        if (size == 2) return ClassId::Int16;
        if (size == 4) return ClassId::Int32;
        if (size == 8) return ClassId::Int64;
        return std::nullopt;
    case 'u':
        if (size == 1) return ClassId::UInt8;
        if (size == 2) return ClassId::UInt16;
        if (size == 4) return ClassId::UInt32;
        if (size == 8) return ClassId::UInt64;
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

const char* dtypeOf(ClassId cls, bool complex) {
    switch (cls) {
    case ClassId::Double:
        return complex ? "complex128" : "float64";
    case ClassId::Single:
        return complex ? "complex64" : "float32";
    case ClassId::Logical:
        return "bool";
    case ClassId::Int8:
        return "int8";
    case ClassId::UInt8:
        return "uint8";
    case ClassId::Int16:
        return "int16";
    case ClassId::UInt16:
        return "uint16";
    case ClassId::Int32:
        return "int32";
    case ClassId::UInt32:
        return "uint32";
    case ClassId::Int64:
        return "int64";
    case ClassId::UInt64:
        return "uint64";
    case ClassId::Char:
        return "uint16";
    default:
        return nullptr;
    }
}

// Host dimensions of a NumPy shape: 0-d is 1 x 1, 1-D of n is n x 1, else the shape.
Dims hostDims(const py::array& a) {
    Dims dims;
    const auto nd = static_cast<std::size_t>(a.ndim());
    for (std::size_t k = 0; k < nd; ++k)
        dims.push_back(static_cast<std::uint64_t>(a.shape(k)));
    if (nd == 0) dims = {1, 1};
    if (nd == 1) dims.push_back(1);
    return dims;
}

HostArray toHostImpl(py::handle obj, int depth);

HostArray cellFromSequence(const py::sequence& seq, Dims dims, int depth) {
    HostArray c = HostArray::createCell(std::move(dims));
    const std::uint64_t n = c.numberOfElements();
    for (std::uint64_t k = 0; k < n; ++k)
        c.setCell(k, toHostImpl(seq[k], depth + 1));
    return c;
}

// The UTF-8 text of a Python str; a str that has none (a lone surrogate) is the host's text
// error, as malformed UTF-8 in bytes is.
std::string utf8Text(py::handle str) {
    Py_ssize_t n = 0;
    const char* p = PyUnicode_AsUTF8AndSize(str.ptr(), &n);
    if (!p) {
        PyErr_Clear();
        platform::HostError::raise("QUARTZ:string", "InvalidText");
    }
    return std::string(p, static_cast<std::size_t>(n));
}

HostArray structFromDict(const py::dict& d, int depth) {
    std::vector<std::string> names;
    std::vector<py::handle> values;
    for (auto item : d) {
        if (!py::isinstance<py::str>(item.first))
            throw py::type_error("a dict passed to mathinterp needs str keys (struct field names)");
        names.push_back(utf8Text(item.first));
        values.push_back(item.second);
    }
    HostArray s = HostArray::createStruct({1, 1}, names);
    for (std::uint64_t f = 0; f < values.size(); ++f)
        s.setField(0, f, toHostImpl(values[f], depth + 1));
    return s;
}

// An object array: a struct array when every element is a dict with the same keys, else
// a cell array of the converted elements; either has the array's host dimensions.
HostArray fromObjectArray(const py::array& a, int depth) {
    Dims dims = hostDims(a);
    py::list items = a.attr("ravel")("F").attr("tolist")();
    bool allDicts = !items.empty();
    std::vector<std::string> keys;
    for (std::size_t k = 0; k < items.size() && allDicts; ++k) {
        if (!py::isinstance<py::dict>(items[k])) {
            allDicts = false;
            break;
        }
        std::vector<std::string> ks;
        for (auto item : py::reinterpret_borrow<py::dict>(items[k])) {
            if (!py::isinstance<py::str>(item.first)) {
                ks.clear();
                allDicts = false;
                break;
            }
            ks.push_back(utf8Text(item.first));
        }
        if (k == 0)
            keys = ks;
        else if (ks != keys)
            allDicts = false;
    }
    if (!allDicts) return cellFromSequence(items, std::move(dims), depth);
    HostArray s = HostArray::createStruct(std::move(dims), keys);
    for (std::uint64_t k = 0; k < items.size(); ++k) {
        py::dict d = py::reinterpret_borrow<py::dict>(items[k]);
        for (std::uint64_t f = 0; f < keys.size(); ++f)
            s.setField(k, f, toHostImpl(d[py::str(keys[f])], depth + 1));
    }
    return s;
}

HostArray fromStringArray(const py::array& a) {
    Dims dims = hostDims(a);
    py::list items = a.attr("ravel")("F").attr("tolist")();
    std::vector<std::optional<std::string>> strings;
    strings.reserve(items.size());
    for (auto item : items)
        strings.emplace_back(PyUnicode_Check(item.ptr()) ? utf8Text(item)
                                                         : item.cast<std::string>());
    return HostArray::createString(std::move(dims), std::move(strings));
}

HostArray fromNumericArray(py::array a) {
    bool complex = false;
    const auto cls = classOfDtype(a.dtype(), complex);
    if (!cls) {
        const std::string name = py::str(a.dtype()).cast<std::string>();
        throw py::type_error("NumPy arrays of dtype " + name +
                             " have no host class; use float64, float32, complex128, "
                             "complex64, bool or an integer dtype");
    }
    const int nd = static_cast<int>(a.ndim());
    const auto flags = a.flags();
    const bool aligned = (flags & py::detail::npy_api::NPY_ARRAY_ALIGNED_) != 0;
    const bool native = a.dtype().attr("isnative").cast<bool>();
    bool layoutOk = nd < 2 ? (flags & py::detail::npy_api::NPY_ARRAY_C_CONTIGUOUS_) != 0
                           : (flags & py::detail::npy_api::NPY_ARRAY_F_CONTIGUOUS_) != 0;
    if (!(layoutOk && aligned && native)) {
        // A column-major, aligned, native copy (C-ordered input of 2+ dimensions lands here).
        py::object dt = a.dtype().attr("newbyteorder")("=");
        a = numpy().attr("array")(a, py::arg("dtype") = dt, py::arg("order") = "F",
                                  py::arg("copy") = true);
    }
    const bool readOnly = !a.writeable();
    return HostArray::wrapNumeric(const_cast<void*>(a.data()), hostDims(a), *cls, complex,
                                  ownerOf(a), readOnly);
}

HostArray fromArray(const py::array& a, int depth) {
    const char kind = a.dtype().kind();
    if (kind == 'O') return fromObjectArray(a, depth);
    if (kind == 'U') return fromStringArray(a);
    return fromNumericArray(a);
}

// A list: numbers (and nested lists of numbers) become a numeric array, integers as double
// like any literal number; lists that do not form a rectangular array of numbers, booleans
// or strings become a 1 x n cell of their converted elements.
HostArray fromList(const py::list& l, int depth) {
    if (l.empty()) return HostArray::createNumeric({0, 0}, ClassId::Double);
    py::object arr;
    try {
        arr = numpy().attr("asarray")(l);
    } catch (py::error_already_set& e) {
        if (!e.matches(PyExc_ValueError)) throw;
        arr = py::none();
    }
    if (!arr.is_none()) {
        py::array a = py::reinterpret_borrow<py::array>(arr);
        const char kind = a.dtype().kind();
        if (kind == 'i' || kind == 'u') return fromNumericArray(a.attr("astype")("float64"));
        if (kind == 'f' || kind == 'c' || kind == 'b') return fromNumericArray(a);
        if (kind == 'U') return fromStringArray(a);
    }
    return cellFromSequence(l, {1, static_cast<std::uint64_t>(l.size())}, depth);
}

HostArray toHostImpl(py::handle obj, int depth) {
    if (depth > kMaxDepth)
        throw py::value_error("nesting deeper than " + std::to_string(kMaxDepth) +
                              " levels cannot be passed to mathinterp");
    if (obj.is_none())
        throw py::type_error("None cannot be passed to mathinterp; pass an array, a number, "
                             "a str or a tuple of those");
    if (py::isinstance<HostValue>(obj)) return obj.cast<HostValue&>().array.sharedCopy();
    if (py::hasattr(obj, "_mi_host")) {
        py::object h = obj.attr("_mi_host");
        if (py::isinstance<HostValue>(h)) return h.cast<HostValue&>().array.sharedCopy();
    }
    PyObject* p = obj.ptr();
    if (PyBool_Check(p)) {
        HostArray a = HostArray::createNumeric({1, 1}, ClassId::Logical);
        *a.data<std::uint8_t>() = p == Py_True ? 1 : 0;
        return a;
    }
    if (PyLong_Check(p) || PyFloat_Check(p)) {
        const double v = PyFloat_AsDouble(p); // raises OverflowError for huge ints
        if (v == -1.0 && PyErr_Occurred()) throw py::error_already_set();
        return HostArray::scalar(v);
    }
    if (PyComplex_Check(p)) {
        const std::complex<double> v(PyComplex_RealAsDouble(p), PyComplex_ImagAsDouble(p));
        return HostArray::fromComplex({1, 1}, {v});
    }
    if (PyUnicode_Check(p)) return HostArray::stringScalar(utf8Text(obj));
    if (PyBytes_Check(p)) return HostArray::charRow(obj.cast<std::string>());
    if (PyTuple_Check(p)) {
        py::tuple t = py::reinterpret_borrow<py::tuple>(obj);
        return cellFromSequence(t, {1, static_cast<std::uint64_t>(t.size())}, depth);
    }
    if (PyList_Check(p)) return fromList(py::reinterpret_borrow<py::list>(obj), depth);
    if (PyDict_Check(p)) return structFromDict(py::reinterpret_borrow<py::dict>(obj), depth);
    if (py::isinstance<py::array>(obj))
        return fromArray(py::reinterpret_borrow<py::array>(obj), depth);
    // SciPy sparse matrices: dense storage flagged sparse, so that the host's sparse
    // checks answer (no interpolation input may be sparse).
    if (py::hasattr(obj, "toarray") && py::hasattr(obj, "nnz") && py::hasattr(obj, "format")) {
        HostArray a = fromNumericArray(obj.attr("toarray")(py::arg("order") = "F"));
        a.setSparse(true);
        return a;
    }
    // NumPy scalars and anything offering the array or buffer protocol.
    if (py::hasattr(obj, "__array__") || PyObject_CheckBuffer(p) ||
        py::isinstance(obj, numpy().attr("generic"))) {
        py::object a = numpy().attr("asarray")(obj);
        if (py::isinstance<py::array>(a))
            return fromArray(py::reinterpret_borrow<py::array>(a), depth);
    }
    throw py::type_error("objects of type " +
                         py::str(py::type::handle_of(obj).attr("__name__")).cast<std::string>() +
                         " cannot be passed to mathinterp");
}

std::string u16ToUtf8(const std::u16string& s) {
    // One decoder for the whole host: unpaired surrogates become U+FFFD there.
    return platform::utf16ToUtf8(s);
}

// The NumPy dtype named dt, looked up once per name (a lookup per array costs more than the
// array). Kept for the life of the process, like NumPy's own builtin dtypes.
py::dtype dtypeObject(const char* dt) {
    static std::vector<std::pair<const char*, py::dtype*>> cache; // the GIL guards it
    for (const auto& [name, d] : cache)
        if (std::strcmp(name, dt) == 0) return *d;
    auto* d = new py::dtype(dt);
    cache.emplace_back(dt, d);
    return *d;
}

// Fills an object array of the host dimensions (column-major order of elements).
py::object objectArray(const Dims& dims, const std::vector<py::object>& items) {
    py::array flat = numpy().attr("empty")(items.size(), py::arg("dtype") = "object");
    // Straight into the slots (NumPy filled them with None): struct arrays can be large.
    auto** slots = static_cast<PyObject**>(flat.mutable_data());
    for (std::size_t k = 0; k < items.size(); ++k) {
        PyObject* old = slots[k];
        slots[k] = items[k].inc_ref().ptr();
        Py_XDECREF(old);
    }
    Dims d = dims;
    if (d.size() == 2 && d[1] == 1) d.pop_back(); // the column rule
    py::tuple shape(d.size());
    for (std::size_t k = 0; k < d.size(); ++k)
        shape[k] = d[k];
    return flat.attr("reshape")(shape, py::arg("order") = "F");
}

} // namespace

void setObjectFactory(py::object factory) {
    objectFactory() = std::move(factory);
}

HostArray toHost(py::handle obj) {
    return toHostImpl(obj, 0);
}

namespace {
// A Python object that keeps a host array alive, as the base of NumPy arrays over its data.
py::capsule keeper(const HostArray& a) {
    auto* keep = new HostArray(a.sharedCopy());
    return py::capsule(keep, [](void* p) { delete static_cast<HostArray*>(p); });
}

// A NumPy array over `data`, shaped like a (an n x 1 column becomes 1-D when columnRule is
// set), with `base` keeping the data alive.
py::array arrayOver(const HostArray& a, void* data, py::handle base, bool writeable,
                    bool columnRule) {
    const char* dt = dtypeOf(a.classId(), a.isComplex());
    if (!dt) throw py::type_error("not a numeric host array");
    const Dims& dims = a.dimensions();
    const std::size_t n = columnRule && dims.size() == 2 && dims[1] == 1 ? 1 : dims.size();
    std::vector<py::ssize_t> shape(n), strides(n);
    py::ssize_t stride = static_cast<py::ssize_t>(a.elementBytes());
    for (std::size_t k = 0; k < n; ++k) {
        shape[k] = static_cast<py::ssize_t>(dims[k]);
        strides[k] = stride;
        stride *= static_cast<py::ssize_t>(dims[k] == 0 ? 1 : dims[k]);
    }
    py::array out(dtypeObject(dt), shape, strides, a.numberOfElements() ? data : nullptr, base);
    if (!writeable || a.isReadOnly()) out.attr("setflags")(py::arg("write") = false);
    return out;
}
} // namespace

py::array numericView(const HostArray& a, bool writeable) {
    return arrayOver(a, a.rawData(), keeper(a), writeable, false);
}

py::object fromHost(const HostArray& a, bool writeable) {
    if (a.isNull()) return py::none();
    const Dims& dims = a.dimensions();
    const bool row = dims.size() == 2 && dims[0] == 1;
    switch (a.classId()) {
    case ClassId::Cell: {
        std::vector<py::object> items;
        for (std::uint64_t k = 0; k < a.numberOfElements(); ++k)
            items.push_back(fromHost(a.getCell(k), writeable));
        if (row) {
            py::tuple t(items.size());
            for (std::size_t k = 0; k < items.size(); ++k)
                t[k] = items[k];
            return t;
        }
        return objectArray(dims, items);
    }
    case ClassId::Struct: {
        std::vector<py::object> items;
        const auto& names = a.fieldNames();
        std::vector<py::str> keys; // made once: struct arrays can have many elements
        for (const auto& n : names)
            keys.emplace_back(n);
        // A field kept as slices of one block: one keeper is the base of all its arrays.
        std::vector<HostArray> sliced(names.size());
        std::vector<py::object> keepers(names.size());
        for (std::uint64_t f = 0; f < names.size(); ++f) {
            sliced[f] = a.slicedField(f);
            if (sliced[f]) keepers[f] = keeper(sliced[f]);
        }
        items.reserve(a.numberOfElements());
        for (std::uint64_t k = 0; k < a.numberOfElements(); ++k) {
            py::dict d;
            for (std::uint64_t f = 0; f < names.size(); ++f) {
                if (sliced[f]) {
                    const HostArray& s = sliced[f];
                    auto* data = static_cast<unsigned char*>(s.rawData()) +
                                 k * s.numberOfElements() * s.elementBytes();
                    d[keys[f]] = arrayOver(s, data, keepers[f], writeable, true);
                } else {
                    d[keys[f]] = fromHost(a.getField(k, f), writeable);
                }
            }
            items.push_back(std::move(d));
        }
        if (a.numberOfElements() == 1) return items[0];
        return objectArray(dims, items);
    }
    case ClassId::Char: {
        if (row || a.isEmpty()) return py::str(u16ToUtf8(a.charData()));
        // A char matrix: one str per row.
        const auto& chars = a.charData();
        py::list rows;
        for (std::uint64_t r = 0; r < dims[0]; ++r) {
            std::u16string s;
            for (std::uint64_t c = 0; c < a.numberOfElements() / dims[0]; ++c)
                s.push_back(chars[r + c * dims[0]]);
            rows.append(py::str(u16ToUtf8(s)));
        }
        return numpy().attr("array")(rows);
    }
    case ClassId::String: {
        std::vector<py::object> items;
        for (std::uint64_t k = 0; k < a.numberOfElements(); ++k) {
            const auto& s = a.stringAt(k);
            items.push_back(s ? py::object(py::str(*s)) : py::object(py::none()));
        }
        if (items.size() == 1) return items[0];
        return objectArray(dims, items);
    }
    case ClassId::Object: {
        auto& f = objectFactory();
        if (f.is_none() || !f) throw py::type_error("no Python class for host objects");
        return f(HostValue{a.sharedCopy()});
    }
    default:
        break;
    }
    return arrayOver(a, a.rawData(), keeper(a), writeable, true);
}

} // namespace mathinterp_py
