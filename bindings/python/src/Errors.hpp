// Host errors and warnings in Python. Host errors become mathinterp.InterpolationError (a
// ValueError carrying the identifier and the catalog text; out of memory is MemoryError).
// Warnings arrive through the platform warning sink while the GIL is released; they are
// queued per calling thread and issued as mathinterp.InterpolationWarning once the call is
// back under the GIL, so a warning filter that raises behaves as in any Python call.
#pragma once

#include <pybind11/pybind11.h>

#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace mathinterp_py {

namespace py = pybind11;

// Looks up the Python classes in mathinterp._errors, installs the translator and the sink.
void initErrors(py::module_& m);

// Collects the warnings that the host issues on this thread while the scope is open.
class WarningScope {
public:
    WarningScope();
    ~WarningScope();
    WarningScope(const WarningScope&) = delete;
    WarningScope& operator=(const WarningScope&) = delete;
    void add(std::string identifier, std::string text);
    // Issues the queued warnings (GIL held); throws error_already_set if a filter raises.
    void flush();
    static WarningScope* current() noexcept;

private:
    std::vector<std::pair<std::string, std::string>> pending_;
    WarningScope* previous_;
};

// Runs f with the GIL released and warnings queued; afterwards issues the warnings and
// rethrows what f threw (the registered translators turn it into a Python exception).
template <class F>
auto hostCall(F&& f) -> decltype(f()) {
    WarningScope scope;
    std::exception_ptr error;
    using R = decltype(f());
    if constexpr (std::is_void_v<R>) {
        {
            py::gil_scoped_release release;
            try {
                f();
            } catch (...) {
                error = std::current_exception();
            }
        }
        scope.flush();
        if (error) std::rethrow_exception(error);
    } else {
        R result{};
        {
            py::gil_scoped_release release;
            try {
                result = f();
            } catch (...) {
                error = std::current_exception();
            }
        }
        scope.flush();
        if (error) std::rethrow_exception(error);
        return result;
    }
}

} // namespace mathinterp_py
