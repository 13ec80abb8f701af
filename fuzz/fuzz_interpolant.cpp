// Fuzz target: the griddedInterpolant class through the host class system only. Decodes a
// grid, values and words, constructs, then runs a sequence of operations: evaluations in
// every query form, each public property set followed by an evaluation, copies (with the
// copy's Values set), save and load, property reads and malformed method calls.
// Besides the sanitizers it checks that a failed setter leaves the object evaluating as
// before, that a copy's setter never changes the original, that a loaded object evaluates
// like its source, and that evaluating twice gives the same bits.
#include "FuzzHarness.hpp"
#include "FuzzInput.hpp"

#include <platform/ClassSystem.hpp>

#include <cstddef>
#include <cstdint>

using namespace fuzzing;
using platform::ClassSystem;

namespace {

constexpr const char* kClass = "griddedInterpolant";

Outcome setProperty(const HostArray& object, const char* name, const HostArray& value) {
    CallerArrays guard;
    guard.add(value);
    Outcome o = hostCall(name, [&] { ClassSystem::setProperty(object, name, value); });
    guard.verify(name);
    return o;
}

// A property set, then the probe: a failed set must leave the results as they were.
void setAndProbe(const HostArray& F, const char* name, const HostArray& value,
                 const std::vector<HostArray>& probe, Evaluation& reference) {
    const Outcome set = setProperty(F, name, value);
    Evaluation now = evaluateObject(F, probe);
    if (!set.ok) expectSameEvaluation(now, reference, "a failed property set changed the object");
    reference = std::move(now);
}

void copyAndMutate(ByteReader& in, const Scenario& s, const HostArray& F,
                   const std::vector<HostArray>& probe, const Evaluation& reference) {
    HostArray G;
    const Outcome copied = hostCall("copy", [&] { G = ClassSystem::copyObject(F); });
    if (!copied.ok) return;
    expectSameEvaluation(evaluateObject(G, probe), reference, "a copy evaluates differently");
    switch (in.below(3)) {
    case 0:
        setProperty(G, "Values", valuesFor(in, s));
        break;
    case 1:
        setProperty(G, "Method", methodWord(in));
        break;
    default:
        setProperty(G, "GridVectors", gridCell(in, s));
        break;
    }
    evaluateObject(G, queryArgs(in, s));
    expectSameEvaluation(evaluateObject(F, probe), reference,
                         "a copy's setter changed the original");
}

void saveAndLoad(ByteReader& in, const HostArray& F, const std::vector<HostArray>& probe,
                 const Evaluation& reference) {
    HostArray record;
    if (!hostCall("save", [&] { record = ClassSystem::saveObject(F); }).ok) return;
    const bool tamper = in.chance(1, 3);
    if (tamper && record.isStruct() && record.numberOfFields() > 0) {
        record = record.deepCopy();
        record.setField(0, in.below(record.numberOfFields()),
                        in.chance(1, 4) ? HostArray() : anyArray(in, 2));
    }
    CallerArrays guard;
    guard.add(record);
    HostArray H;
    const Outcome loaded = hostCall("load", [&] { H = ClassSystem::loadObject(kClass, record); });
    guard.verify("load");
    if (!loaded.ok) return;
    const Evaluation fromLoaded = evaluateObject(H, probe);
    if (!tamper)
        expectSameEvaluation(fromLoaded, reference, "a loaded object evaluates differently");
}

void readProperties(ByteReader& in, const HostArray& F) {
    static const char* kNames[] = {"GridVectors",   "Values",
                                   "Method",        "ExtrapolationMethod",
                                   "ValuesForCopy", "UnderlyingInterpolantForCopy",
                                   "Nope"};
    const char* name = kNames[in.below(std::size(kNames))];
    hostCall("get", [&] { (void)ClassSystem::getProperty(F, name); });
    if (in.chance(1, 4)) hostCall("set hidden", [&] { ClassSystem::setProperty(F, name, F); });
}

void oddInvocations(ByteReader& in, const HostArray& F) {
    HostArray out[3];
    std::vector<HostArray> rhs{F};
    for (std::uint64_t k = 0, n = in.below(3); k < n; ++k)
        rhs.push_back(in.chance(1, 4) ? F : anyArray(in, 1));
    const int nlhs = static_cast<int>(in.below(4));
    const char* name = in.chance(1, 4) ? kClass : "parenReference";
    hostCall("invoke", [&] {
        ClassSystem::invokeMethod(name, nlhs, out, static_cast<int>(rhs.size()), rhs.data());
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    setUp();
    ByteReader in(data, size);
    const Scenario s = scenario(in);
    const std::vector<HostArray> args = constructionArgs(in, s);

    CallerArrays guard;
    guard.add(args);
    HostArray F;
    const Outcome built = hostCall("construct", [&] {
        F = ClassSystem::construct(kClass, static_cast<int>(args.size()), args.data());
    });
    guard.verify("construct");
    if (!built.ok) {
        // Continue with an empty object: setters on it only store (nothing fully built).
        if (in.chance(1, 2)) return 0;
        if (!hostCall("construct()", [&] { F = ClassSystem::construct(kClass, 0, nullptr); }).ok)
            failure("constructing an empty griddedInterpolant failed");
    }

    const std::vector<HostArray> probe = queryArgs(in, s);
    Evaluation reference = evaluateObject(F, probe);
    for (int step = 0; step < 5 && !in.exhausted(); ++step) {
        switch (in.byte() % 10) {
        case 0: {
            const std::vector<HostArray> q = queryArgs(in, s);
            const Evaluation first = evaluateObject(F, q);
            expectSameEvaluation(evaluateObject(F, q), first, "evaluating twice");
            break;
        }
        case 1:
            setAndProbe(F, "Method", methodWord(in), probe, reference);
            break;
        case 2:
            setAndProbe(F, "ExtrapolationMethod", methodWord(in), probe, reference);
            break;
        case 3:
            setAndProbe(F, "GridVectors", gridCell(in, s), probe, reference);
            break;
        case 4:
        case 5:
            setAndProbe(F, "Values", valuesFor(in, s), probe, reference);
            break;
        case 6:
            copyAndMutate(in, s, F, probe, reference);
            break;
        case 7:
            saveAndLoad(in, F, probe, reference);
            break;
        case 8:
            readProperties(in, F);
            break;
        default:
            oddInvocations(in, F);
            break;
        }
    }
    return 0;
}
