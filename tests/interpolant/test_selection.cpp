// Method and extrapolation selection: word parsing, the cubic fallbacks (too few points,
// non-uniform spacing, with the uniformity tolerance at its edge), the one-dimensional-only
// fallbacks and their warnings (identifiers and counts, through the warning sink), the words
// stored back, and the evaluator instantiation for words and precision pairs.
#include "support/Interpolant.hpp"

#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/interpolant/GridValidation.hpp"
#include "mathinterp/interpolant/Selection.hpp"
#include "mathinterp/methods/Cubic1D.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/Step1D.hpp"

#include <cmath>

using namespace itest;
using mathinterp::chooseMethods;
using mathinterp::GriddedInterpolant;
using mathinterp::MethodId;
using mathinterp::MethodPair;

namespace {

// x[k] = k, with x[2] moved by `ulps` units in the last place of 2.
HostArray nudged(std::uint64_t n, int ulps) {
    std::vector<double> x(n);
    for (std::uint64_t i = 0; i < n; ++i)
        x[i] = double(i);
    x[2] = 2.0 + ulps * std::ldexp(1.0, -51);
    return row(x);
}

HostArray nudgedSingle(std::uint64_t n, int ulps) {
    std::vector<float> x(n);
    for (std::uint64_t i = 0; i < n; ++i)
        x[i] = float(i);
    x[2] = 2.0f + float(ulps) * std::ldexp(1.0f, -22);
    return rowSingle(x);
}

struct Choice {
    MethodPair pair;
    std::map<std::string, int> warnings;
};

Choice choose(const char* m, const char* e, const HostArray& grid, bool defaulted = false) {
    WarningCounter w;
    Choice c;
    c.pair = chooseMethods(m ? text(m) : HostArray(), e ? text(e) : HostArray(), grid, defaulted);
    for (const char* key : {"CubicNeedsThreeWarnId", "CubicUniformOnlyWarnId", "Next1DonlyWarnId",
                            "Pchip1DonlyWarnId", "Previous1DonlyWarnId"})
        if (w.count(key)) c.warnings[key] = w.count(key);
    EXPECT_EQ(w.total(), [&] {
        int t = 0;
        for (const auto& [k, n] : c.warnings)
            t += n;
        return t;
    }()) << "unexpected warning identifiers";
    return c;
}

using W = std::map<std::string, int>;

} // namespace

TEST(Selection, ParseMethodWord) {
    using mathinterp::parseMethodWord;
    EXPECT_EQ(parseMethodWord(text("makima"), true), MethodId::Makima);
    EXPECT_EQ(parseMethodWord(HostArray::stringScalar("previous"), true), MethodId::Previous);
    EXPECT_EQ(parseMethodWord(text("none"), false), MethodId::None);
    const std::vector<std::pair<HostArray, bool>> rejected = {
        {text("none"), true},
        {text("Linear"), true},
        {text("linear "), true},
        {text(""), true},
        {text("lin\xC3\xA9"
              "ar"),
         true},
        {HostArray::scalar(1), true},
        {HostArray::createChar({2, 3}, u"abcdef"), false},
        {text("nones"), false},
    };
    for (const auto& [t, isMethod] : rejected)
        EXPECT_EQ(raisedId([&] { parseMethodWord(t, isMethod); }),
                  gi(isMethod ? "BadInterpTypeErrId" : "ExtrapolationMethodInvalid"));
    EXPECT_EQ(raisedId([] { parseMethodWord(HostArray::missingString(), false); }),
              "QUARTZ:string:MissingNotSupported");
}

TEST(Selection, DefaultsAndCubicFallbacks) {
    const HostArray two = HostArray::cellOf({oneTo(2)});
    const HostArray uniform = HostArray::cellOf({oneTo(6)});
    const HostArray uneven = HostArray::cellOf({row({0, 1, 3, 4})});
    struct Case {
        const char* name;
        const char* m;
        const char* e;
        HostArray grid;
        bool defaulted;
        MethodId method, extrap;
        W warnings;
    };
    const Case cases[] = {
        {"no words", nullptr, nullptr, uniform, false, MethodId::Linear, MethodId::Linear, {}},
        {"extrapolation defaults to the method",
         "pchip",
         nullptr,
         uniform,
         false,
         MethodId::Pchip,
         MethodId::Pchip,
         {}},
        {"cubic on two points",
         "cubic",
         nullptr,
         two,
         false,
         MethodId::Linear,
         MethodId::Linear,
         {{"CubicNeedsThreeWarnId", 1}}},
        {"cubic both words, two points",
         "cubic",
         "cubic",
         two,
         false,
         MethodId::Linear,
         MethodId::Linear,
         {{"CubicNeedsThreeWarnId", 1}}},
        {"cubic extrapolation only",
         "nearest",
         "cubic",
         two,
         false,
         MethodId::Nearest,
         MethodId::Linear,
         {{"CubicNeedsThreeWarnId", 1}}},
        {"cubic, uniform", "cubic", nullptr, uniform, false, MethodId::Cubic, MethodId::Cubic, {}},
        {"cubic, non-uniform",
         "cubic",
         nullptr,
         uneven,
         false,
         MethodId::Spline,
         MethodId::Spline,
         {{"CubicUniformOnlyWarnId", 1}}},
        {"cubic with nearest, non-uniform",
         "cubic",
         "nearest",
         uneven,
         false,
         MethodId::Spline,
         MethodId::Nearest,
         {{"CubicUniformOnlyWarnId", 1}}},
        {"defaulted grids are not tested for uniformity",
         "cubic",
         nullptr,
         uneven,
         true,
         MethodId::Cubic,
         MethodId::Cubic,
         {}},
        {"but their point count is",
         "cubic",
         nullptr,
         two,
         true,
         MethodId::Linear,
         MethodId::Linear,
         {{"CubicNeedsThreeWarnId", 1}}},
        {"first offending vector: non-uniform",
         "cubic",
         nullptr,
         HostArray::cellOf({row({0, 1, 3, 4}), oneTo(2)}),
         false,
         MethodId::Spline,
         MethodId::Spline,
         {{"CubicUniformOnlyWarnId", 1}}},
        {"first offending vector: two points",
         "cubic",
         nullptr,
         HostArray::cellOf({oneTo(2), row({0, 1, 3, 4})}),
         false,
         MethodId::Linear,
         MethodId::Linear,
         {{"CubicNeedsThreeWarnId", 1}}},
        {"no cubic, no examination",
         "linear",
         nullptr,
         two,
         false,
         MethodId::Linear,
         MethodId::Linear,
         {}},
    };
    for (const Case& c : cases) {
        const Choice got = choose(c.m, c.e, c.grid, c.defaulted);
        EXPECT_EQ(got.pair.method, c.method) << c.name;
        EXPECT_EQ(got.pair.extrap, c.extrap) << c.name;
        EXPECT_EQ(got.warnings, c.warnings) << c.name;
    }
}

TEST(Selection, UniformityTolerance) {
    using mathinterp::isUniformGridVector;
    // h = 1 and tol = 4 eps(3) = 2^-49 on 0..3: a step off by exactly tol is uniform.
    EXPECT_TRUE(isUniformGridVector(nudged(4, 0)));
    EXPECT_TRUE(isUniformGridVector(nudged(4, 4)));
    EXPECT_TRUE(isUniformGridVector(nudged(4, -4)));
    EXPECT_FALSE(isUniformGridVector(nudged(4, 5)));
    EXPECT_FALSE(isUniformGridVector(nudged(4, -5)));
    // eps(a) is the distance to the next *larger* number: on 0..4, eps(4) = 2^-50, so a step
    // off by 6 ulps of 2 (0.75 tol) is still uniform.
    EXPECT_TRUE(isUniformGridVector(nudged(5, 6)));
    EXPECT_FALSE(isUniformGridVector(nudged(5, 9)));
    // Single precision uses its own eps: eps(3) = 2^-22 there.
    EXPECT_TRUE(isUniformGridVector(nudgedSingle(4, 4)));
    EXPECT_FALSE(isUniformGridVector(nudgedSingle(4, 5)));
    // Rounded decimal steps are uniform; a visibly uneven grid is not.
    EXPECT_TRUE(isUniformGridVector(row({0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7})));
    EXPECT_TRUE(isUniformGridVector(row({-1e6, -1e6 + 0.1, -1e6 + 0.2})));
    EXPECT_FALSE(isUniformGridVector(row({0, 1, 2.001, 3})));
    // The default grid is uniform by construction.
    EXPECT_TRUE(isUniformGridVector(
        mathinterp::makeDefaultGrid(HostArray::fromSingles({1000, 1}, std::vector<float>(1000)))
            .getCell(0)));
}

TEST(Selection, OneDimensionalOnlyFallbacks) {
    const HostArray g2 = HostArray::cellOf({oneTo(3), oneTo(4)});
    const HostArray g1 = HostArray::cellOf({oneTo(3)});
    struct Case {
        const char* m;
        const char* e;
        MethodId method, extrap;
        W warnings;
    };
    const Case cases[] = {
        {"pchip", nullptr, MethodId::Linear, MethodId::Linear, {{"Pchip1DonlyWarnId", 1}}},
        {"next", "next", MethodId::Linear, MethodId::Linear, {{"Next1DonlyWarnId", 1}}},
        {"pchip",
         "next",
         MethodId::Linear,
         MethodId::Linear,
         {{"Pchip1DonlyWarnId", 1}, {"Next1DonlyWarnId", 1}}},
        {"previous", "none", MethodId::Linear, MethodId::None, {{"Previous1DonlyWarnId", 1}}},
        {"nearest", "previous", MethodId::Nearest, MethodId::Linear, {{"Previous1DonlyWarnId", 1}}},
        {"spline", "pchip", MethodId::Spline, MethodId::Linear, {{"Pchip1DonlyWarnId", 1}}},
        {"makima", "nearest", MethodId::Makima, MethodId::Nearest, {}},
    };
    for (const Case& c : cases) {
        const Choice got = choose(c.m, c.e, g2);
        EXPECT_EQ(got.pair.method, c.method) << c.m << "/" << (c.e ? c.e : "-");
        EXPECT_EQ(got.pair.extrap, c.extrap) << c.m << "/" << (c.e ? c.e : "-");
        EXPECT_EQ(got.warnings, c.warnings) << c.m << "/" << (c.e ? c.e : "-");
        // In one dimension every word stays.
        const Choice one = choose(c.m, c.e, g1);
        EXPECT_TRUE(one.warnings.empty());
    }
    // Cubic fallback first, then the 1-D-only test on the changed words: two warnings.
    const Choice both = choose("cubic", "pchip", HostArray::cellOf({oneTo(2), oneTo(4)}));
    EXPECT_EQ(both.pair.method, MethodId::Linear);
    EXPECT_EQ(both.pair.extrap, MethodId::Linear);
    EXPECT_EQ(both.warnings, (W{{"CubicNeedsThreeWarnId", 1}, {"Pchip1DonlyWarnId", 1}}));
}

TEST(Selection, ConstructionStoresFinalWordsAndWarnsOnce) {
    WarningCounter w;
    GriddedInterpolant g;
    const Args a{row({1, 2}), row({5, 7}), HostArray::stringScalar("cubic")};
    g.construct(3, a.data());
    EXPECT_EQ(w.count("CubicNeedsThreeWarnId"), 1);
    EXPECT_EQ(w.total(), 1);
    EXPECT_EQ(textOf(g.method()), "linear");
    EXPECT_EQ(textOf(g.extrapolationMethod()), "linear");
    const HostArray out = eval(g, {row({1.5, 3})});
    EXPECT_EQ(out.realAt(0), 6.0);
    EXPECT_EQ(out.realAt(1), 9.0);
    EXPECT_EQ(w.total(), 1); // evaluation repeats no warning

    // A default grid of any length is uniform: "cubic" stays (or fails as not built).
    WarningCounter w2;
    GriddedInterpolant c;
    const Args b{oneTo(7), text("cubic")};
    const std::string id = constructId(c, b);
    EXPECT_EQ(id, (mathinterp::Cubic1D<double, double>::available ? "" : "MethodNotBuilt"));
    EXPECT_EQ(w2.total(), 0);
}

TEST(Selection, EvaluatorMatchesWordsAndPrecisions) {
    using namespace mathinterp;
    auto build = [](const Args& a) {
        GriddedInterpolant g;
        g.construct(static_cast<int>(a.size()), a.data());
        return g.evaluator();
    };
    const HostArray xd = row({0, 1, 2}), vd = row({1, 2, 3});
    const HostArray xs = rowSingle({0, 1, 2}), vs = rowSingle({1, 2, 3});
    EXPECT_TRUE((dynamic_cast<EvaluatorInterp<Linear1D<double, double>>*>(build({xd, vd}).get())));
    EXPECT_TRUE((dynamic_cast<EvaluatorInterp<Linear1D<double, float>>*>(build({xd, vs}).get())));
    EXPECT_TRUE((dynamic_cast<EvaluatorInterp<Linear1D<float, double>>*>(build({xs, vd}).get())));
    EXPECT_TRUE((dynamic_cast<EvaluatorInterp<Linear1D<float, float>>*>(build({xs, vs}).get())));
    EXPECT_TRUE(
        (dynamic_cast<EvaluatorInterpExtrap<Linear1D<double, double>, Constant1D<double, double>>*>(
            build({xd, vd, text("linear"), text("none")}).get())));
    EXPECT_TRUE(
        (dynamic_cast<EvaluatorInterpExtrap<Next1D<float, double>, Nearest1D<float, double>>*>(
            build({xs, vd, text("next"), text("nearest")}).get())));
    EXPECT_TRUE((dynamic_cast<EvaluatorInterp<Previous1D<double, float>>*>(
        build({xd, vs, text("previous"), text("previous")}).get())));
    // Planes: one per value set, twice as many for complex values.
    EXPECT_EQ(
        build({HostArray::cellOf({xd}), filled({3, 5}, [](auto) { return 0.; })})->numPlanes(), 5u);
    EXPECT_EQ(build({HostArray::cellOf({xd}),
                     HostArray::fromComplex({3, 2, 2}, std::vector<std::complex<double>>(12))})
                  ->numPlanes(),
              8u);
    EXPECT_EQ(build({xd, vd})->numPlanes(), 1u);
}
