// Method and extrapolation selection, and the evaluator built for the final words.
#include "mathinterp/interpolant/Selection.hpp"

#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "mathinterp/interpolant/Identifiers.hpp"
#include "mathinterp/interpolant/InterpolantAccess.hpp"

#include <platform/HostString.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace mathinterp {

using platform::ClassId;
using platform::HostArray;
using Access = GriddedInterpolantAccess;

namespace {

[[noreturn]] void raiseBadWord(bool isMethod) {
    if (isMethod) BadInterpTypeErrId::raise();
    ExtrapolationMethodInvalid::raise();
}

template <class T>
bool isUniformT(const T* x, u64 n) {
    const T first = x[0];
    const T last = x[n - 1];
    const T h = (last - first) / static_cast<T>(n - 1);
    const T a = std::max(std::abs(first), std::abs(last));
    // eps(a): the distance from a to the next larger number of this precision.
    const T eps = std::nextafter(a, std::numeric_limits<T>::infinity()) - a;
    const T tol = std::min(h, T(4) * eps);
    for (u64 i = 0; i + 1 < n; ++i)
        if (!(std::abs((x[i + 1] - x[i]) - h) <= tol)) return false;
    return true;
}

void replace(MethodId& w, MethodId from, MethodId to) {
    if (w == from) w = to;
}

// "next", "previous" and "pchip" exist in one dimension only.
void oneDimensionalFallback(MethodId& w) {
    switch (w) {
    case MethodId::Next:
        w = MethodId::Linear;
        warn(WarningId::Next1DonlyWarnId);
        break;
    case MethodId::Pchip:
        w = MethodId::Linear;
        warn(WarningId::Pchip1DonlyWarnId);
        break;
    case MethodId::Previous:
        w = MethodId::Linear;
        warn(WarningId::Previous1DonlyWarnId);
        break;
    default:
        break;
    }
}

template <class G, class V>
std::shared_ptr<Evaluator> makeFor(const HostArray& grid, const HostArray& internal,
                                   ValueSetLayout layout, u64 planes, MethodPair words) {
    EvaluatorSetup<G, V> s;
    const u64 d = grid.numberOfElements();
    s.grids.reserve(d);
    s.sizes.reserve(d);
    for (u64 k = 0; k < d; ++k) {
        const HostArray x = grid.getCell(k);
        s.grids.push_back(x.data<G>());
        s.sizes.push_back(x.numberOfElements());
    }
    s.values = internal.data<V>();
    s.pointsPerPlane = layout.pointsPerSet;
    s.numPlanes = planes;
    std::unique_ptr<Evaluator> e = makeEvaluator<G, V>(words.method, words.extrap, s);
    return std::shared_ptr<Evaluator>(e.release(), EvaluatorKeeper{grid, internal});
}

} // namespace

MethodId parseMethodWord(const HostArray& text, bool isMethod) {
    if (!platform::isScalarText(text)) raiseBadWord(isMethod);
    std::string word;
    if (platform::scalarTextToUtf8(text, word) == platform::TextStatus::Missing)
        MissingNotSupported::raise();
    const std::optional<MethodId> id = methodFromWord(word, isMethod);
    if (!id) raiseBadWord(isMethod);
    return *id;
}

bool isUniformGridVector(const HostArray& x) {
    const u64 n = x.numberOfElements();
    if (n < 2) return true;
    if (x.classId() == ClassId::Double) return isUniformT(x.data<double>(), n);
    if (x.classId() == ClassId::Single) return isUniformT(x.data<float>(), n);
    return true; // not a valid grid vector: validation reports it
}

MethodPair chooseMethods(const HostArray& methodText, const HostArray& extrapText,
                         const HostArray& grid, bool gridDefaulted) {
    MethodPair p;
    p.method = methodText.isNull() ? MethodId::Linear : parseMethodWord(methodText, true);
    p.extrap = extrapText.isNull() ? p.method : parseMethodWord(extrapText, false);
    const u64 d = grid.isCell() ? grid.numberOfElements() : 0;

    if (p.method == MethodId::Cubic || p.extrap == MethodId::Cubic) {
        enum class Verdict { Fine, TooFewPoints, NonUniform } verdict = Verdict::Fine;
        for (u64 k = 0; k < d && verdict == Verdict::Fine; ++k) {
            const HostArray x = grid.getCell(k);
            if (x.numberOfElements() < 3)
                verdict = Verdict::TooFewPoints;
            else if (!gridDefaulted && !isUniformGridVector(x))
                verdict = Verdict::NonUniform;
        }
        if (verdict == Verdict::TooFewPoints) {
            replace(p.method, MethodId::Cubic, MethodId::Linear);
            replace(p.extrap, MethodId::Cubic, MethodId::Linear);
            warn(WarningId::CubicNeedsThreeWarnId);
        } else if (verdict == Verdict::NonUniform) {
            replace(p.method, MethodId::Cubic, MethodId::Spline);
            replace(p.extrap, MethodId::Cubic, MethodId::Spline);
            warn(WarningId::CubicUniformOnlyWarnId);
        }
    }

    if (d >= 2) {
        const bool equal = p.method == p.extrap;
        oneDimensionalFallback(p.method);
        if (equal)
            p.extrap = p.method;
        else
            oneDimensionalFallback(p.extrap);
    }
    return p;
}

void selectMethods(GriddedInterpolant& obj, const HostArray& methodText,
                   const HostArray& extrapText, bool gridDefaulted) {
    const MethodPair p = chooseMethods(methodText, extrapText, Access::grid(obj), gridDefaulted);
    HostArray m = HostArray::charRow(methodWord(p.method));
    HostArray e = HostArray::charRow(methodWord(p.extrap));
    Access::method(obj) = std::move(m);
    Access::extrap(obj) = std::move(e);
}

ValueSetLayout valueSetLayout(const HostArray& values, u64 d) {
    if (d == 1 && values.isVector2D()) return {values.numberOfElements(), 1};
    const platform::Dims& dims = values.dimensions();
    ValueSetLayout l{1, 1};
    for (u64 k = 0; k < dims.size(); ++k) {
        if (k < d)
            l.pointsPerSet = checkedMul(l.pointsPerSet, dims[k]);
        else
            l.sets = checkedMul(l.sets, dims[k]);
    }
    return l;
}

std::shared_ptr<Evaluator> makeObjectEvaluator(GriddedInterpolant& obj, MethodPair words) {
    const HostArray& values = Access::values(obj);
    if (values.isEmpty()) return nullptr;
    const HostArray& internal = ensureInternalValues(obj);
    const HostArray& grid = Access::grid(obj);
    const u64 d = grid.numberOfElements();
    const ValueSetLayout layout = valueSetLayout(values, d);
    const u64 planes = checkedMul(layout.sets, values.isComplex() ? 2 : 1);
    const bool gridSingle = grid.getCell(0).classId() == ClassId::Single;
    const bool valuesSingle = values.classId() == ClassId::Single;
    if (gridSingle)
        return valuesSingle ? makeFor<float, float>(grid, internal, layout, planes, words)
                            : makeFor<float, double>(grid, internal, layout, planes, words);
    return valuesSingle ? makeFor<double, float>(grid, internal, layout, planes, words)
                        : makeFor<double, double>(grid, internal, layout, planes, words);
}

void buildEvaluator(GriddedInterpolant& obj) {
    MethodPair words;
    const HostArray& m = Access::method(obj);
    const HostArray& e = Access::extrap(obj);
    words.method = m.isNull() ? MethodId::Linear : parseMethodWord(m, true);
    words.extrap = e.isNull() ? words.method : parseMethodWord(e, false);
    std::shared_ptr<Evaluator> ev = makeObjectEvaluator(obj, words);
    Access::evaluator(obj) = std::move(ev);
    Access::current(obj) = static_cast<bool>(Access::evaluator(obj));
}

} // namespace mathinterp
