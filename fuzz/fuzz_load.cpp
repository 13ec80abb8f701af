// Fuzz target: loading griddedInterpolant objects from saved records that may have been
// tampered with (missing, extra or junk fields, records that are not structs), as a host
// does when it reads a file or unpickles. The loaded object is then evaluated, copied, set
// and saved again; a second load of its own record must evaluate exactly like it.
#include "FuzzHarness.hpp"
#include "FuzzInput.hpp"

#include <platform/ClassSystem.hpp>

#include <cstddef>
#include <cstdint>

using namespace fuzzing;
using platform::ClassSystem;

namespace {

HostArray fieldValue(ByteReader& in, const Scenario& s, std::uint64_t field) {
    if (in.chance(1, 6)) return in.chance(1, 3) ? HostArray() : anyArray(in, 2);
    switch (field) {
    case 0:
        return gridCell(in, s);
    case 1:
        return s.values;
    default:
        return methodWord(in);
    }
}

HostArray record(ByteReader& in, const Scenario& s) {
    if (in.chance(1, 16)) return anyArray(in, 2);
    static const char* kFields[] = {"GridVectors",         "Values",        "Method",
                                    "ExtrapolationMethod", "ValuesForCopy", "Other"};
    std::vector<std::string> names;
    std::vector<std::uint64_t> which;
    for (std::uint64_t k = 0; k < std::size(kFields); ++k) {
        const bool present = k < 3 ? !in.chance(1, 8) : in.chance(1, 3);
        if (present) names.emplace_back(kFields[k]), which.push_back(k);
    }
    HostArray r = HostArray::createStruct({1, in.chance(1, 32) ? 2u : 1u}, names);
    for (std::uint64_t e = 0; e < r.numberOfElements(); ++e)
        for (std::uint64_t f = 0; f < names.size(); ++f)
            r.setField(e, f, fieldValue(in, s, which[f]));
    return r;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    setUp();
    ByteReader in(data, size);
    const Scenario s = scenario(in);
    const HostArray rec = record(in, s);

    CallerArrays guard;
    guard.add(rec);
    HostArray F;
    const Outcome loaded =
        hostCall("load", [&] { F = ClassSystem::loadObject("griddedInterpolant", rec); });
    guard.verify("load");
    if (!loaded.ok) return 0;

    const std::vector<HostArray> probe = queryArgs(in, s);
    const Evaluation first = evaluateObject(F, probe);

    HostArray again;
    if (hostCall("save", [&] { again = ClassSystem::saveObject(F); }).ok) {
        HostArray G;
        if (hostCall("reload", [&] {
                G = ClassSystem::loadObject("griddedInterpolant", again);
            }).ok)
            expectSameEvaluation(evaluateObject(G, probe), first, "save and load round trip");
    }

    HostArray H;
    if (hostCall("copy", [&] { H = ClassSystem::copyObject(F); }).ok) {
        CallerArrays vguard;
        const HostArray v = valuesFor(in, s);
        vguard.add(v);
        hostCall("set", [&] { ClassSystem::setProperty(H, "Values", v); });
        vguard.verify("set Values");
        evaluateObject(H, queryArgs(in, s));
        expectSameEvaluation(evaluateObject(F, probe), first,
                             "a copy's setter changed the original");
    }
    return 0;
}
