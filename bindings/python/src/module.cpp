// mathinterp._core: the compiled half of the Python package. It converts Python objects to
// host arrays (Convert.hpp), drives the griddedInterpolant class through the host class
// system (create, construct, invoke, properties, copy, save, load), calls the exported
// gateways, and releases the GIL around all host work. The package's Python layer
// (mathinterp/__init__.py) shapes results and documents the API.
#include "Convert.hpp"
#include "Errors.hpp"
#include "Threads.hpp"

#include "mathinterp/ModuleExports.hpp"

#include <platform/HostError.hpp>
#include <platform/HostAllocator.hpp>

#if __has_include(<platform/ClassSystem.hpp>)
#include <platform/ClassSystem.hpp>
#define MATHINTERP_PY_CLASS_SYSTEM 1
#else
#define MATHINTERP_PY_CLASS_SYSTEM 0
#endif

#include <pybind11/stl.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace py = pybind11;
using platform::HostArray;
using namespace mathinterp_py;

namespace {

using Gateway = void (*)(int, HostArray*, int, const HostArray*);

std::vector<HostArray> toHostAll(const py::sequence& args) {
    std::vector<HostArray> out;
    out.reserve(args.size());
    for (auto a : args)
        out.push_back(toHost(a));
    return out;
}

py::tuple dimsOf(const HostArray& a) {
    py::tuple t(a.dimensions().size());
    for (std::size_t k = 0; k < a.dimensions().size(); ++k)
        t[k] = a.dimensions()[k];
    return t;
}

// Extents of the value sets: the values' extents beyond the first d, none for a vector
// with d = 1 (as the host shapes evaluation results).
py::tuple valueSetExtents(const HostArray& v, std::size_t d) {
    if (v.isNull() || d == 0 || (d == 1 && v.isVector2D())) return py::tuple();
    const auto& dims = v.dimensions();
    if (dims.size() <= d) return py::tuple();
    py::tuple t(dims.size() - d);
    for (std::size_t k = d; k < dims.size(); ++k)
        t[k - d] = dims[k];
    return t;
}

std::vector<HostValue> callGateway(Gateway fn, int nlhs, const py::sequence& args) {
    std::vector<HostArray> in = toHostAll(args);
    std::vector<HostArray> out(static_cast<std::size_t>(nlhs < 1 ? 1 : nlhs));
    hostCall([&] { fn(nlhs, out.data(), static_cast<int>(in.size()), in.data()); });
    std::vector<HostValue> result;
    for (auto& a : out)
        result.push_back(HostValue{std::move(a)});
    return result;
}

// Issues one warning through the host facility with the GIL released, as the engine does.
void issueTestWarning(const std::string& component, const std::string& key) {
    hostCall([&] { platform::HostError::warning(component, key); });
}

void raiseTestError(const std::string& component, const std::string& key, py::tuple args) {
    platform::MessageArgs margs;
    for (auto a : args) {
        if (py::isinstance<py::int_>(a))
            margs.emplace_back(a.cast<std::int64_t>());
        else if (py::isinstance<py::float_>(a))
            margs.emplace_back(a.cast<double>());
        else
            margs.emplace_back(py::str(a).cast<std::string>());
    }
    hostCall([&] {
        if (component.empty()) platform::HostError::raiseText(key);
        platform::HostError::raise(component, key, margs);
    });
}

bool g_initialised = false;

void initialiseModule() {
    if (g_initialised) return;
    hostCall([] { KVInitialize_libqzmathinterp(); });
    g_initialised = true;
}

} // namespace

PYBIND11_MODULE(_core, m) {
    m.doc() = "Compiled core of mathinterp (host arrays, class system, gateways).";

    py::class_<HostValue>(m, "HostValue", "A host array held without conversion.")
        .def_property_readonly(
            "class_name",
            [](const HostValue& v) { return std::string(platform::className(v.array.classId())); })
        .def_property_readonly("dims", [](const HostValue& v) { return dimsOf(v.array); })
        .def_property_readonly("is_complex", [](const HostValue& v) { return v.array.isComplex(); })
        .def_property_readonly("is_sparse", [](const HostValue& v) { return v.array.isSparse(); })
        .def_property_readonly("is_null", [](const HostValue& v) { return v.array.isNull(); })
        .def_property_readonly("is_read_only",
                               [](const HostValue& v) { return v.array.isReadOnly(); })
        .def(
            "value",
            [](const HostValue& v, bool writeable) { return fromHost(v.array, writeable); },
            py::arg("writeable") = false,
            "The Python value (NumPy arrays are views of the host buffer).")
        .def(
            "view",
            [](const HostValue& v, bool writeable) { return numericView(v.array, writeable); },
            py::arg("writeable") = false, "A NumPy view with the host's exact dimensions.")
        .def("same_array",
             [](const HostValue& a, const HostValue& b) { return a.array.sameArray(b.array); })
        .def("__repr__", [](const HostValue& v) {
            std::string s = "<HostValue ";
            s += platform::className(v.array.classId());
            for (std::size_t k = 0; k < v.array.dimensions().size(); ++k) {
                s += k ? "x" : " ";
                s += std::to_string(v.array.dimensions()[k]);
            }
            if (v.array.isComplex()) s += " complex";
            return s + ">";
        });

    initErrors(m);

    m.def(
        "to_host", [](py::handle obj) { return HostValue{toHost(obj)}; },
        "Converts a Python object to a host array.");
    m.def("value_set_extents",
          [](const HostValue& v, std::size_t d) { return valueSetExtents(v.array, d); });
    m.def("set_object_factory", &setObjectFactory);
    m.def("set_thread_limit", &setThreadLimit);
    m.def("thread_limit", &threadLimit);
    m.def("active_parallelism", &activeParallelism);
    m.def("set_memory_limit", [](std::optional<std::uint64_t> bytes) {
        platform::setMemoryLimit(bytes);
    });
    m.def("memory_limit", &platform::memoryLimit);
    m.def("default_memory_limit", &platform::defaultMemoryLimit);
    m.def("memory_in_use", &platform::liveBytes);
    m.def("peak_memory_in_use", &platform::peakLiveBytes);
    m.def("reset_peak_memory_in_use", &platform::resetPeakLiveBytes);
    m.def("release_cached_memory", &platform::releaseCachedMemory);
    m.def("_issue_warning", &issueTestWarning);
    // Drops the last handle of a host array on a thread that Python never saw, with the GIL
    // released here, as a worker thread of the engine would.
    m.def("_release_on_native_thread", [](HostValue& v) {
        HostArray a = std::move(v.array);
        v.array = HostArray();
        py::gil_scoped_release release;
        std::thread t([held = std::move(a)]() mutable { held.release(); });
        t.join();
    });
    m.def("_raise_error", &raiseTestError, py::arg("component"), py::arg("key"),
          py::arg("args") = py::tuple());

    m.def(
        "gateway",
        [](const std::string& name, const py::sequence& args, int nlhs) {
            Gateway fn = nullptr;
            if (name == "interp1Fcn")
                fn = interp1Fcn;
            else if (name == "interp2Fcn")
                fn = interp2Fcn;
            else if (name == "gridStructsInterpFcn")
                fn = gridStructsInterpFcn;
            else
                throw py::value_error("no gateway named " + name);
            return callGateway(fn, nlhs, args);
        },
        py::arg("name"), py::arg("args"), py::arg("nlhs") = 1);

    initialiseModule();
    m.attr("has_class_system") = py::bool_(MATHINTERP_PY_CLASS_SYSTEM && g_initialised);

#if MATHINTERP_PY_CLASS_SYSTEM
    using platform::ClassSystem;
    m.def("construct", [](const std::string& cls, const py::sequence& args) {
        std::vector<HostArray> in = toHostAll(args);
        HostArray obj = hostCall(
            [&] { return ClassSystem::construct(cls, static_cast<int>(in.size()), in.data()); });
        return HostValue{std::move(obj)};
    });
    m.def(
        "invoke",
        [](const std::string& method, const HostValue& obj, const py::sequence& args, int nlhs) {
            std::vector<HostArray> in{obj.array};
            for (auto a : args)
                in.push_back(toHost(a));
            std::vector<HostArray> out(static_cast<std::size_t>(nlhs < 1 ? 1 : nlhs));
            hostCall([&] {
                ClassSystem::invokeMethod(method, nlhs, out.data(), static_cast<int>(in.size()),
                                          in.data());
            });
            std::vector<HostValue> result;
            for (auto& a : out)
                result.push_back(HostValue{std::move(a)});
            return result;
        },
        py::arg("method"), py::arg("obj"), py::arg("args"), py::arg("nlhs") = 1);
    m.def("get_property", [](const HostValue& obj, const std::string& name) {
        return HostValue{hostCall([&] { return ClassSystem::getPropertyArray(obj.array, name); })};
    });
    m.def("set_property", [](const HostValue& obj, const std::string& name, py::handle value) {
        platform::PropertyValue v{toHost(value)};
        hostCall([&] { ClassSystem::setProperty(obj.array, name, v); });
    });
    // (d, value-set extents) of an interpolant in one call: the shape rules need both.
    m.def("layout", [](const HostValue& obj) {
        auto [grid, values] = hostCall([&] {
            return std::pair<HostArray, HostArray>(
                ClassSystem::getPropertyArray(obj.array, "GridVectors"),
                ClassSystem::getPropertyArray(obj.array, "Values"));
        });
        const std::size_t d = grid.isCell() ? grid.numberOfElements() : 0;
        return py::make_tuple(d, valueSetExtents(values, d));
    });
    m.def("copy_object", [](const HostValue& obj) {
        return HostValue{hostCall([&] { return ClassSystem::copyObject(obj.array); })};
    });
    m.def("save_object", [](const HostValue& obj) {
        return HostValue{hostCall([&] { return ClassSystem::saveObject(obj.array); })};
    });
    m.def("load_object", [](const std::string& cls, py::handle record) {
        HostArray rec = toHost(record);
        return HostValue{hostCall([&] { return ClassSystem::loadObject(cls, rec); })};
    });
    m.def("deep_copy", [](const HostValue& v) { return HostValue{v.array.deepCopy()}; });
    m.def("is_a", [](const HostValue& obj, const std::string& cls) {
        return ClassSystem::isA(obj.array, cls);
    });
#else
    auto noClassSystem = [] {
        throw py::value_error("the host class system is not part of this build");
    };
    for (const char* name : {"construct", "invoke", "get_property", "set_property", "copy_object",
                             "save_object", "load_object", "is_a"})
        m.def(name, [noClassSystem](py::args, py::kwargs) { noClassSystem(); });
    m.def("deep_copy", [](const HostValue& v) { return HostValue{v.array.deepCopy()}; });
#endif
}
