// What the fuzz targets check besides the sanitizers: every host call ends normally or with a
// host error (out of memory included), never with another exception; the arrays a caller
// passes in are never changed; and two ways to the same result give the same bits or the
// same error. A failure prints what happened and aborts, which libFuzzer records as a crash.
#pragma once

#include <platform/HostArray.hpp>

#include <string>
#include <vector>

namespace fuzzing {

using platform::HostArray;

// How a host call ended: ok, or the error's identifier (its text for literal-text errors).
struct Outcome {
    bool ok = false;
    std::string error;
};

// Once per process: a warning sink that drops warnings, and the module initialised.
void setUp();

[[noreturn]] void failure(const std::string& what);

// Runs f, turning a host error (out of memory included) into an Outcome; anything else
// thrown is a failure.
template <class F>
Outcome hostCall(const char* what, F&& f);

// Snapshots of the arrays handed to a call, compared with the arrays after it.
class CallerArrays {
public:
    void add(const HostArray& a);
    void add(const std::vector<HostArray>& arrays);
    // Fails when any array differs from its snapshot.
    void verify(const char* what) const;

private:
    std::vector<HostArray> arrays_;
    std::vector<HostArray> snapshots_;
};

// Class, shape, flags and every bit of the contents, recursively (objects by identity).
bool sameContents(const HostArray& a, const HostArray& b);

// One evaluation F(q...) through the class system, with the caller's arrays checked.
struct Evaluation {
    Outcome outcome;
    HostArray result;
};
Evaluation evaluateObject(const HostArray& object, const std::vector<HostArray>& queries);
// Fails, naming `what`, unless both ended alike: same error, or results with the same bits.
void expectSameEvaluation(const Evaluation& a, const Evaluation& b, const char* what);

// ---- implementation of hostCall ------------------------------------------------------------
Outcome outcomeOfCurrentException(const char* what);
// With FUZZ_TRACE set in the environment, every call and its outcome go to stderr.
extern bool g_trace;
void trace(const char* what, const Outcome& o);

template <class F>
Outcome hostCall(const char* what, F&& f) {
    Outcome o;
    try {
        f();
        o.ok = true;
    } catch (...) {
        o = outcomeOfCurrentException(what);
    }
    if (g_trace) trace(what, o);
    return o;
}

} // namespace fuzzing
