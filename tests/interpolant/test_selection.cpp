// Method and extrapolation selection: word parsing, the cubic fallbacks (too few points,
// non-uniform spacing, with the uniformity tolerance at its edge), the one-dimensional-only
// fallbacks and their warnings (identifiers and counts, through the warning sink), the words
// stored back, and the evaluator instantiated for words and precision pairs.
#include "support/Interpolant.hpp"
#include "support/InterpolantMaking.hpp"

#include "mathinterp/core/Evaluators.hpp"
#include "mathinterp/interpolant/GridValidation.hpp"
#include "mathinterp/interpolant/Selection.hpp"
#include "mathinterp/methods/Linear1D.hpp"
#include "mathinterp/methods/Step1D.hpp"

#include <cmath>
#include <typeindex>

using namespace itest;
using mathinterp::GriddedInterpolant;
using M = mathinterp::MethodId;
using W = std::map<std::string, int>;

namespace {

// 0, 1, ..., n-1 in the grid type T, with x[2] moved by `ulps` units in the last place of 2.
template <class T>
HostArray nudged(std::uint64_t n, int ulps) {
    std::vector<T> x(n);
    for (std::uint64_t i = 0; i < n; ++i)
        x[i] = T(i);
    x[2] = T(2) + T(ulps) * T(2) * std::numeric_limits<T>::epsilon();
    if constexpr (sizeof(T) == 4) return rowSingle(x);
    return row(std::vector<double>(x.begin(), x.end()));
}

// The pair chosen and the warnings raised, by key; no other warning may appear.
std::pair<mathinterp::MethodPair, W> choose(const char* m, const char* e, const HostArray& grid,
                                            bool defaulted = false) {
    WarningCounter w;
    const auto pair = mathinterp::chooseMethods(m ? text(m) : HostArray(),
                                                e ? text(e) : HostArray(), grid, defaulted);
    W seen;
    int total = 0;
    for (const char* key : {"CubicNeedsThreeWarnId", "CubicUniformOnlyWarnId", "Next1DonlyWarnId",
                            "Pchip1DonlyWarnId", "Previous1DonlyWarnId"})
        if (w.count(key)) total += seen[key] = w.count(key);
    EXPECT_EQ(w.total(), total) << "unexpected warning identifiers";
    return {pair, seen};
}

} // namespace

// Cubic needs three points (else linear) and, unless the grid is the default one, uniform
// spacing (else spline); next, previous and pchip are one-dimensional (else linear). The
// first offending vector decides; each fallback warns once; in one dimension every word stays.
TEST(Selection, DefaultsAndFallbacks) {
    const HostArray two = HostArray::cellOf({oneTo(2)}), six = HostArray::cellOf({oneTo(6)});
    const HostArray uneven = HostArray::cellOf({row({0, 1, 3, 4})});
    const HostArray unevenThenTwo = HostArray::cellOf({row({0, 1, 3, 4}), oneTo(2)});
    const HostArray twoThenUneven = HostArray::cellOf({oneTo(2), row({0, 1, 3, 4})});
    const HostArray g2 = HostArray::cellOf({oneTo(3), oneTo(4)});
    const W three{{"CubicNeedsThreeWarnId", 1}}, uniform{{"CubicUniformOnlyWarnId", 1}};
    const W pchip{{"Pchip1DonlyWarnId", 1}}, next{{"Next1DonlyWarnId", 1}};
    const W previous{{"Previous1DonlyWarnId", 1}},
        pchipNext{{"Pchip1DonlyWarnId", 1}, {"Next1DonlyWarnId", 1}};
    const W threePchip{{"CubicNeedsThreeWarnId", 1}, {"Pchip1DonlyWarnId", 1}};
    struct Case {
        const char *m, *e;
        HostArray grid;
        bool defaulted;
        M method, extrap;
        W warnings;
    };
    const Case cases[] = {
        {nullptr, nullptr, six, false, M::Linear, M::Linear, {}},
        {"pchip", nullptr, six, false, M::Pchip, M::Pchip, {}},
        {"linear", nullptr, two, false, M::Linear, M::Linear, {}},
        {"cubic", nullptr, two, false, M::Linear, M::Linear, three},
        {"cubic", "cubic", two, false, M::Linear, M::Linear, three},
        {"nearest", "cubic", two, false, M::Nearest, M::Linear, three},
        {"cubic", nullptr, six, false, M::Cubic, M::Cubic, {}},
        {"cubic", nullptr, uneven, false, M::Spline, M::Spline, uniform},
        {"cubic", "nearest", uneven, false, M::Spline, M::Nearest, uniform},
        {"nearest", "cubic", uneven, false, M::Nearest, M::Spline, uniform},
        {"cubic", nullptr, uneven, true, M::Cubic, M::Cubic, {}},
        {"cubic", nullptr, two, true, M::Linear, M::Linear, three},
        {"cubic", nullptr, unevenThenTwo, false, M::Spline, M::Spline, uniform},
        {"cubic", nullptr, twoThenUneven, false, M::Linear, M::Linear, three},
        {"pchip", nullptr, g2, false, M::Linear, M::Linear, pchip},
        {"next", "next", g2, false, M::Linear, M::Linear, next},
        {"pchip", "next", g2, false, M::Linear, M::Linear, pchipNext},
        {"previous", "none", g2, false, M::Linear, M::None, previous},
        {"nearest", "previous", g2, false, M::Nearest, M::Linear, previous},
        {"spline", "pchip", g2, false, M::Spline, M::Linear, pchip},
        {"makima", "nearest", g2, false, M::Makima, M::Nearest, {}},
        {"cubic", "pchip", twoThenUneven, false, M::Linear, M::Linear, threePchip},
    };
    for (const Case& c : cases) {
        const std::string what = std::string(c.m ? c.m : "-") + "/" + (c.e ? c.e : "-");
        const auto [pair, warnings] = choose(c.m, c.e, c.grid, c.defaulted);
        EXPECT_EQ(pair.method, c.method) << what;
        EXPECT_EQ(pair.extrap, c.extrap) << what;
        EXPECT_EQ(warnings, c.warnings) << what;
        if (c.grid.sameArray(g2)) {
            const auto [pair1, warnings1] = choose(c.m, c.e, HostArray::cellOf({oneTo(3)}));
            EXPECT_TRUE(warnings1.empty()) << what << " in 1-D";
        }
    }
}

// A step off by up to 4 eps(largest end) is uniform; eps is that of the grid's class and of
// the next larger number (on 0..4, eps(4) = 2^-50 admits 6 ulps of 2 but not 9).
TEST(Selection, UniformityTolerance) {
    using mathinterp::isUniformGridVector;
    EXPECT_TRUE(isUniformGridVector(nudged<double>(4, 0)));
    for (int ulps : {4, -4})
        EXPECT_TRUE(isUniformGridVector(nudged<double>(4, ulps))) << ulps;
    for (int ulps : {5, -5})
        EXPECT_FALSE(isUniformGridVector(nudged<double>(4, ulps))) << ulps;
    EXPECT_TRUE(isUniformGridVector(nudged<double>(5, 6)));
    EXPECT_FALSE(isUniformGridVector(nudged<double>(5, 9)));
    EXPECT_TRUE(isUniformGridVector(nudged<float>(4, 4)));
    EXPECT_FALSE(isUniformGridVector(nudged<float>(4, 5)));
    // Rounded decimal steps are uniform; a visibly uneven grid is not.
    EXPECT_TRUE(isUniformGridVector(row({0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7})));
    EXPECT_TRUE(isUniformGridVector(row({-1e6, -1e6 + 0.1, -1e6 + 0.2})));
    EXPECT_FALSE(isUniformGridVector(row({0, 1, 2.001, 3})));
    EXPECT_TRUE(isUniformGridVector(
        mathinterp::makeDefaultGrid(HostArray::fromSingles({1000, 1}, std::vector<float>(1000)))
            .getCell(0)));
}

TEST(Selection, EvaluatorMatchesWordsAndPrecisions) {
    using namespace mathinterp;
    const HostArray xd = row({0, 1, 2}), vd = row({1, 2, 3});
    const HostArray xs = rowSingle({0, 1, 2}), vs = rowSingle({1, 2, 3});
    const std::pair<Args, std::type_index> cases[] = {
        {{xd, vd}, typeid(EvaluatorInterp<Linear1D<double, double>>)},
        {{xd, vs}, typeid(EvaluatorInterp<Linear1D<double, float>>)},
        {{xs, vd}, typeid(EvaluatorInterp<Linear1D<float, double>>)},
        {{xs, vs}, typeid(EvaluatorInterp<Linear1D<float, float>>)},
        {{xd, vd, text("linear"), text("none")},
         typeid(EvaluatorInterpExtrap<Linear1D<double, double>, Constant1D<double, double>>)},
        {{xs, vd, text("next"), text("nearest")},
         typeid(EvaluatorInterpExtrap<Next1D<float, double>, Nearest1D<float, double>>)},
        {{xd, vs, text("previous"), text("previous")},
         typeid(EvaluatorInterp<Previous1D<double, float>>)},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        GriddedInterpolant g = make(cases[i].first);
        const Evaluator& ev = *g.evaluator();
        EXPECT_EQ(std::type_index(typeid(ev)), cases[i].second) << "case " << i;
    }
    // Planes: one per value set, twice as many for complex values.
    EXPECT_EQ(make({HostArray::cellOf({xd}), filled({3, 5}, [](auto) { return 0.; })})
                  .evaluator()
                  ->numPlanes(),
              5u);
}
