// The fuzz targets' checks (see FuzzHarness.hpp).
#include "FuzzHarness.hpp"

#include "mathinterp/ModuleExports.hpp"

#include <platform/ClassSystem.hpp>
#include <platform/HostError.hpp>
#include <platform/MemoryBudget.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <typeinfo>

namespace fuzzing {

bool g_trace = false;

void trace(const char* what, const Outcome& o) {
    std::fprintf(stderr, "  %s: %s\n", what, o.ok ? "ok" : o.error.c_str());
}

void setUp() {
    static std::once_flag once;
    std::call_once(once, [] {
        g_trace = std::getenv("FUZZ_TRACE") != nullptr;
        platform::setWarningSink([](const std::string&, const std::string&) {});
        // Large requests are refused by the budget instead of attempted: the fuzzer's own
        // RSS limit (2.5 GB) would otherwise end the run on an input that is merely big.
        platform::setMemoryLimit(std::uint64_t{256} << 20);
        KVInitialize_libqzmathinterp();
    });
}

void failure(const std::string& what) {
    std::fprintf(stderr, "\n*** fuzz check failed: %s\n", what.c_str());
    std::fflush(stderr);
    std::abort();
}

Outcome outcomeOfCurrentException(const char* what) {
    try {
        throw;
    } catch (const platform::HostErrorException& e) {
        return {false, e.identifier().empty() ? e.message() : e.identifier()};
    } catch (const std::bad_alloc&) {
        return {false, std::string(platform::kOutOfMemoryId)};
    } catch (const std::exception& e) {
        failure(std::string(what) + ": exception that is not a host error: " + typeid(e).name() +
                ": " + e.what());
    } catch (...) {
        failure(std::string(what) + ": unknown exception");
    }
}

bool sameContents(const HostArray& a, const HostArray& b) {
    if (a.isNull() || b.isNull()) return a.isNull() == b.isNull();
    if (a.classId() != b.classId() || a.dimensions() != b.dimensions() ||
        a.isComplex() != b.isComplex() || a.isSparse() != b.isSparse())
        return false;
    const std::uint64_t n = a.numberOfElements();
    switch (a.classId()) {
    case platform::ClassId::Cell:
        for (std::uint64_t k = 0; k < n; ++k)
            if (!sameContents(a.getCell(k), b.getCell(k))) return false;
        return true;
    case platform::ClassId::Struct:
        if (a.fieldNames() != b.fieldNames()) return false;
        for (std::uint64_t e = 0; e < n; ++e)
            for (std::uint64_t f = 0; f < a.numberOfFields(); ++f)
                if (!sameContents(a.getField(e, f), b.getField(e, f))) return false;
        return true;
    case platform::ClassId::Char:
        return a.charData() == b.charData();
    case platform::ClassId::String:
        for (std::uint64_t k = 0; k < n; ++k)
            if (a.stringAt(k) != b.stringAt(k)) return false;
        return true;
    case platform::ClassId::Object:
        return a.objectValue() == b.objectValue();
    default:
        return n == 0 || std::memcmp(a.rawData(), b.rawData(), n * a.elementBytes()) == 0;
    }
}

void CallerArrays::add(const HostArray& a) {
    arrays_.push_back(a);
    snapshots_.push_back(a.deepCopy());
}

void CallerArrays::add(const std::vector<HostArray>& arrays) {
    for (const HostArray& a : arrays)
        add(a);
}

void CallerArrays::verify(const char* what) const {
    for (std::size_t k = 0; k < arrays_.size(); ++k)
        if (!sameContents(arrays_[k], snapshots_[k]))
            failure(std::string(what) + ": the caller's argument " + std::to_string(k) +
                    " was changed");
}

Evaluation evaluateObject(const HostArray& object, const std::vector<HostArray>& queries) {
    std::vector<HostArray> in;
    in.push_back(object);
    in.insert(in.end(), queries.begin(), queries.end());
    CallerArrays guard;
    guard.add(queries);
    Evaluation ev;
    HostArray out[1];
    ev.outcome = hostCall("F(...)", [&] {
        platform::ClassSystem::invokeMethod("parenReference", 1, out, static_cast<int>(in.size()),
                                            in.data());
    });
    guard.verify("F(...)");
    if (ev.outcome.ok) {
        if (out[0].isNull()) failure("F(...) returned nothing");
        ev.result = out[0];
    }
    return ev;
}

void expectSameEvaluation(const Evaluation& a, const Evaluation& b, const char* what) {
    if (a.outcome.ok != b.outcome.ok || a.outcome.error != b.outcome.error)
        failure(std::string(what) + ": outcomes differ: '" + a.outcome.error + "' vs '" +
                b.outcome.error + "'");
    if (a.outcome.ok && !sameContents(a.result, b.result))
        failure(std::string(what) + ": results differ");
}

} // namespace fuzzing
