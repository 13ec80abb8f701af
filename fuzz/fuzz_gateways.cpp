// Fuzz target: the exported gateways interp1Fcn, interp2Fcn and gridStructsInterpFcn with
// decoded arguments and argument counts. Besides the sanitizers it checks that the caller's
// arrays are never changed, and that interp1Fcn answers exactly as the class does when built
// from the same four arguments and evaluated at the fifth.
#include "FuzzHarness.hpp"
#include "FuzzInput.hpp"

#include "mathinterp/ModuleExports.hpp"

#include <platform/ClassSystem.hpp>

#include <cstddef>
#include <cstdint>

using namespace fuzzing;

namespace {

void interp12(ByteReader& in, const Scenario& s) {
    // The four construction arguments: grid (vector or cell), values, method, extrapolation.
    std::vector<HostArray> args;
    if (in.chance(1, 2) && s.gridVectors.size() == 1) {
        args.push_back(s.gridVectors[0]);
    } else {
        HostArray c = HostArray::createCell(1, s.gridVectors.size());
        for (std::uint64_t k = 0; k < s.gridVectors.size(); ++k)
            c.setCell(k, s.gridVectors[k]);
        args.push_back(c);
    }
    args.push_back(s.values);
    args.push_back(methodWord(in));
    args.push_back(methodWord(in));
    if (in.chance(1, 8)) args = constructionArgs(in, s);
    const std::vector<HostArray> q = queryArgs(in, s);
    std::vector<HostArray> rhs(args.begin(), args.begin() + std::min<std::size_t>(args.size(), 4));
    rhs.insert(rhs.end(), q.begin(), q.end());
    if (in.chance(1, 16)) rhs.push_back(anyArray(in, 1));

    int nlhs = in.chance(1, 16) ? static_cast<int>(in.below(3)) : 1;
    CallerArrays guard;
    guard.add(rhs);
    Evaluation viaGateway;
    HostArray out[2];
    const bool useFirst = in.chance(1, 2);
    viaGateway.outcome = hostCall("interp1Fcn", [&] {
        (useFirst ? interp1Fcn : interp2Fcn)(nlhs, out, static_cast<int>(rhs.size()), rhs.data());
    });
    guard.verify("interp1Fcn");
    if (viaGateway.outcome.ok) {
        if (out[0].isNull()) failure("interp1Fcn returned nothing");
        viaGateway.result = out[0];
    }

    if (rhs.size() != 5 || nlhs > 1) return;
    Evaluation viaClass;
    HostArray F;
    viaClass.outcome = hostCall("construct", [&] {
        F = platform::ClassSystem::construct("griddedInterpolant", 4, rhs.data());
    });
    if (viaClass.outcome.ok) viaClass = evaluateObject(F, {rhs[4]});
    expectSameEvaluation(viaGateway, viaClass, "interp1Fcn and the class disagree");
}

void gridStructs(ByteReader& in, const Scenario& s) {
    std::vector<HostArray> rhs;
    HostArray grid = HostArray::createCell(1, s.gridVectors.size());
    for (std::uint64_t k = 0; k < s.gridVectors.size(); ++k)
        grid.setCell(k, s.gridVectors[k]);
    rhs.push_back(in.chance(1, 16) ? gridCell(in, s) : grid);
    rhs.push_back(structValues(in, s));
    std::vector<HostArray> q = queryArgs(in, s);
    rhs.push_back(q.size() == 1 ? q[0] : HostArray::createCell(1, 0));
    const std::uint64_t words = in.below(3);
    for (std::uint64_t k = 0; k < words; ++k)
        rhs.push_back(in.chance(1, 4) ? HostArray::charRow("boundary") : methodWord(in));
    if (in.chance(1, 16)) rhs.resize(in.below(7));

    const int nlhs = in.chance(1, 16) ? static_cast<int>(in.below(3)) : 1;
    CallerArrays guard;
    guard.add(rhs);
    HostArray out[2];
    hostCall("gridStructsInterpFcn",
             [&] { gridStructsInterpFcn(nlhs, out, static_cast<int>(rhs.size()), rhs.data()); });
    guard.verify("gridStructsInterpFcn");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    setUp();
    ByteReader in(data, size);
    const bool structs = in.byte() % 4 == 3;
    const Scenario s = scenario(in);
    if (structs)
        gridStructs(in, s);
    else
        interp12(in, s);
    return 0;
}
