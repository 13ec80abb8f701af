// Translation of host errors into Python exceptions, and the warning sink.
#include "Errors.hpp"

#include "Convert.hpp"

#include <platform/HostError.hpp>

#include <string_view>
#include <variant>

namespace mathinterp_py {

namespace {

thread_local WarningScope* tlsScope = nullptr;

// The classes live in mathinterp._errors; kept for the process lifetime.
py::object* errorClass = nullptr;
py::object* methodNotBuiltClass = nullptr;
py::object* warningClass = nullptr;

py::tuple argsTuple(const platform::MessageArgs& args) {
    py::tuple t(args.size());
    for (std::size_t k = 0; k < args.size(); ++k)
        t[k] = std::visit([](const auto& v) { return py::object(py::cast(v)); }, args[k]);
    return t;
}

// A method whose engine this build lacks arrives as a literal-text error naming the word.
bool methodNotBuilt(const std::string& text, std::string& word) {
    constexpr std::string_view head = "The interpolation method \"";
    if (text.rfind(head, 0) != 0 || text.find("is not available") == std::string::npos)
        return false;
    const auto end = text.find('"', head.size());
    if (end == std::string::npos) return false;
    word = text.substr(head.size(), end - head.size());
    return true;
}

void issueWarning(const std::string& identifier, const std::string& text) {
    static py::object* warn = new py::object(py::module_::import("warnings").attr("warn"));
    // stacklevel 2: the user's line that called into the package's Python wrapper.
    (*warn)((*warningClass)(text, identifier), py::arg("stacklevel") = 2);
}

} // namespace

WarningScope::WarningScope() : previous_(tlsScope) {
    tlsScope = this;
}
WarningScope::~WarningScope() {
    tlsScope = previous_;
}
WarningScope* WarningScope::current() noexcept {
    return tlsScope;
}
void WarningScope::add(std::string identifier, std::string text) {
    pending_.emplace_back(std::move(identifier), std::move(text));
}

void WarningScope::flush() {
    auto pending = std::move(pending_);
    pending_.clear();
    for (const auto& [id, text] : pending)
        issueWarning(id, text);
}

void initErrors(py::module_& m) {
    py::module_ errors = py::module_::import("mathinterp._errors");
    errorClass = new py::object(errors.attr("InterpolationError"));
    methodNotBuiltClass = new py::object(errors.attr("MethodNotBuiltError"));
    warningClass = new py::object(errors.attr("InterpolationWarning"));
    m.attr("InterpolationError") = *errorClass;
    m.attr("InterpolationWarning") = *warningClass;

    py::register_exception_translator([](std::exception_ptr p) {
        if (!p) return;
        try {
            std::rethrow_exception(p);
        } catch (const platform::HostErrorException& e) {
            if (e.identifier() == platform::kOutOfMemoryId) {
                PyErr_SetString(PyExc_MemoryError, e.message().c_str());
                return;
            }
            std::string word;
            py::object err;
            if (e.identifier().empty() && methodNotBuilt(e.message(), word))
                err = (*methodNotBuiltClass)(e.message(), word);
            else
                err = (*errorClass)(e.message(), e.identifier(), argsTuple(e.args()));
            PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(err.ptr())), err.ptr());
        }
    });

    // Warnings happen on the calling thread, inside a hostCall: queue them there. A warning
    // from anywhere else (no scope open on that thread) is issued at once under the GIL.
    platform::setWarningSink([](const std::string& id, const std::string& text) {
        if (WarningScope* s = WarningScope::current()) {
            s->add(id, text);
            return;
        }
        if (!pythonAlive()) return;
        py::gil_scoped_acquire gil;
        try {
            issueWarning(id, text);
        } catch (py::error_already_set& e) {
            e.discard_as_unraisable("mathinterp warning sink");
        }
    });
}

} // namespace mathinterp_py
