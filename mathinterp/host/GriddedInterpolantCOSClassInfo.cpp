// griddedInterpolant's class description, methods and properties. Every entry from the host
// converts engine exceptions with rethrowAsHostError.
#include "mathinterp/host/GriddedInterpolantCOSClassInfo.hpp"

#include "mathinterp/host/COSPropCPPT.hpp"
#include "mathinterp/interpolant/GriddedInterpolant.hpp"
#include "mathinterp/interpolant/Identifiers.hpp"

#include <platform/HostAllocator.hpp>
#include <platform/HostError.hpp>

#include <memory>
#include <new>

namespace mathinterp {

using platform::HostArray;

namespace {

GriddedInterpolant& interpolantOf(void* instance) {
    return *static_cast<GriddedInterpolant*>(instance);
}

// Access codes and attribute words of the class system, as the class declares them.
constexpr int kPublicAccess = 0;
constexpr int kCopyAccess = 2;
constexpr std::uint32_t kPublicAttributes = 2624;
constexpr std::uint32_t kCopyAttributes = 96;

using ArrayProp = COSPropCPPT<GriddedInterpolant, HostArray>;
using EvaluatorProp = COSPropCPPT<GriddedInterpolant, std::shared_ptr<Evaluator>>;

std::shared_ptr<ArrayProp> arrayProperty(const char* name, const char* description, int access,
                                         std::uint32_t attributes, ArrayProp::Getter get,
                                         ArrayProp::Setter set) {
    return std::make_shared<ArrayProp>(name, description, access, access, attributes, get, set);
}

} // namespace

void GriddedInterpolantQCOSConstructor::invoke(void* instance, int nlhs, HostArray*, int nrhs,
                                               const HostArray* prhs) const {
    if (nlhs > 1) platform::HostError::tooManyOutputs();
    if (nrhs < 0) platform::HostError::tooFewInputs();
    try {
        interpolantOf(instance).construct(nrhs, prhs);
    } catch (...) {
        rethrowAsHostError();
    }
}

void GriddedInterpolantQCOSParenReference::invoke(void* instance, int nlhs, HostArray* plhs,
                                                  int nrhs, const HostArray* prhs) const {
    if (nlhs > 1) platform::HostError::tooManyOutputs();
    if (nrhs < 2) platform::HostError::tooFewInputs();
    try {
        plhs[0] = interpolantOf(instance).evaluate(nrhs - 1, prhs + 1);
    } catch (...) {
        rethrowAsHostError();
    }
}

void GriddedInterpolantQCOSGradient::invoke(void* instance, int nlhs, HostArray* plhs, int nrhs,
                                            const HostArray* prhs) const {
    if (nlhs > 1) platform::HostError::tooManyOutputs();
    if (nrhs < 2) platform::HostError::tooFewInputs();
    try {
        plhs[0] = interpolantOf(instance).gradient(nrhs - 1, prhs + 1);
    } catch (...) {
        rethrowAsHostError();
    }
}

void GriddedInterpolantQCOSDerivative::invoke(void* instance, int nlhs, HostArray* plhs, int nrhs,
                                              const HostArray* prhs) const {
    if (nlhs > 1) platform::HostError::tooManyOutputs();
    if (nrhs < 2) platform::HostError::tooFewInputs();
    if (nrhs > 3) platform::HostError::tooManyInputs();
    try {
        int order = 1;
        if (nrhs == 3) {
            const HostArray& o = prhs[2];
            // A real numeric scalar holding 1 or 2; anything else is a bad order.
            double v = 0;
            if (o.isFloat() && !o.isComplex() && o.numberOfElements() == 1)
                v = o.classId() == platform::ClassId::Double ? o.data<double>()[0]
                                                             : double{o.data<float>()[0]};
            if (v != 1.0 && v != 2.0) DerivativeOrderErrId::raise();
            order = static_cast<int>(v);
        }
        plhs[0] = interpolantOf(instance).derivative(prhs[1], order);
    } catch (...) {
        rethrowAsHostError();
    }
}

void GriddedInterpolantCOSClassInfo::defineMembers(platform::ClassMembers& m) const {
    m.addSuperclass("quartz.mixin.internal.Scalar");
    m.addSuperclass("quartz.mixin.internal.indexing.Paren");
    m.addMethod(std::make_shared<GriddedInterpolantQCOSConstructor>());
    m.addMethod(std::make_shared<GriddedInterpolantQCOSParenReference>());
    m.addMethod(std::make_shared<GriddedInterpolantQCOSGradient>());
    m.addMethod(std::make_shared<GriddedInterpolantQCOSDerivative>());
    m.addProperty(arrayProperty(
        "GridVectors", "Vectors defining the grid nodes.", kPublicAccess, kPublicAttributes,
        [](const GriddedInterpolant& g) { return g.gridVectors(); },
        [](GriddedInterpolant& g, const HostArray& v) { g.setGridVectors(v); }));
    m.addProperty(arrayProperty(
        "Values", "Values at each grid node.", kPublicAccess, kPublicAttributes,
        [](const GriddedInterpolant& g) { return g.values(); },
        [](GriddedInterpolant& g, const HostArray& v) { g.setValues(v); }));
    m.addProperty(arrayProperty(
        "Method", "Interpolation method.", kPublicAccess, kPublicAttributes,
        [](const GriddedInterpolant& g) { return g.method(); },
        [](GriddedInterpolant& g, const HostArray& v) { g.setMethod(v); }));
    m.addProperty(arrayProperty(
        "ExtrapolationMethod", "Extrapolation method.", kPublicAccess, kPublicAttributes,
        [](const GriddedInterpolant& g) { return g.extrapolationMethod(); },
        [](GriddedInterpolant& g, const HostArray& v) { g.setExtrapolationMethod(v); }));
    m.addProperty(arrayProperty(
        "ValuesForCopy", "For shallow-copying the values at each grid node.", kCopyAccess,
        kCopyAttributes, [](const GriddedInterpolant& g) { return g.internalValues(); },
        [](GriddedInterpolant& g, const HostArray& v) { g.setValuesForCopy(v); }));
    m.addProperty(std::make_shared<EvaluatorProp>(
        "UnderlyingInterpolantForCopy", "For shallow-copying the underlying builtin interpolant.",
        kCopyAccess, kCopyAccess, kCopyAttributes,
        [](const GriddedInterpolant& g) { return g.evaluator(); },
        [](GriddedInterpolant& g, const std::shared_ptr<Evaluator>& e) {
            g.setEvaluatorForCopy(e);
        }));
}

void* GriddedInterpolantCOSClassInfo::createInstance() const {
    try {
        void* block = platform::hostAllocate(sizeof(GriddedInterpolant));
        return new (block) GriddedInterpolant(); // every field empty
    } catch (...) {
        rethrowAsHostError();
    }
}

void GriddedInterpolantCOSClassInfo::destroyInstance(void* instance) const noexcept {
    if (!instance) return;
    auto* g = static_cast<GriddedInterpolant*>(instance);
    g->clear(); // host arrays and evaluator released
    g->~GriddedInterpolant();
    platform::hostFree(instance);
}

void GriddedInterpolantCOSClassInfo::afterLoadFixup(void* instance) const {
    try {
        interpolantOf(instance).afterLoadFixup();
    } catch (...) {
        rethrowAsHostError();
    }
}

} // namespace mathinterp
