// The host class griddedInterpolant: its class description (GriddedInterpolantCOSClassInfo),
// the constructor and indexing methods, and the six properties (four public, two hidden copy
// properties that share values and evaluator with the source of a copy).
#pragma once

#include <platform/ClassSystem.hpp>

#include <string>

namespace mathinterp {

inline constexpr const char* kGriddedInterpolantClassName = "griddedInterpolant";

class GriddedInterpolantQCOSConstructor final : public platform::HostMethodInfo {
public:
    std::string name() const override { return kGriddedInterpolantClassName; }
    std::string description() const override { return "griddedInterpolant constructor"; }
    bool isVisible() const override { return true; }
    // One output (the host hands out the object); a negative input count is too few inputs.
    void invoke(void* instance, int nlhs, platform::HostArray* plhs, int nrhs,
                const platform::HostArray* prhs) const override;
};

class GriddedInterpolantQCOSParenReference final : public platform::HostMethodInfo {
public:
    std::string name() const override { return "parenReference"; }
    std::string description() const override { return "griddedInterpolant evaluation"; }
    bool isVisible() const override { return false; }
    // prhs[0] is the object, prhs[1..] the queries (at least one); one output.
    void invoke(void* instance, int nlhs, platform::HostArray* plhs, int nrhs,
                const platform::HostArray* prhs) const override;
};

// gradient and derivative are invoked by name (the Python face's F.gradient, F.derivative) but
// kept out of the visible method list, which stays the class's published one.
class GriddedInterpolantQCOSGradient final : public platform::HostMethodInfo {
public:
    std::string name() const override { return "gradient"; }
    std::string description() const override { return "griddedInterpolant gradient"; }
    bool isVisible() const override { return false; }
    // prhs[0] is the object, prhs[1..] the queries in any form evaluation takes; one output.
    void invoke(void* instance, int nlhs, platform::HostArray* plhs, int nrhs,
                const platform::HostArray* prhs) const override;
};

class GriddedInterpolantQCOSDerivative final : public platform::HostMethodInfo {
public:
    std::string name() const override { return "derivative"; }
    std::string description() const override { return "griddedInterpolant 1-D derivative"; }
    bool isVisible() const override { return false; }
    // prhs[0] is the object, prhs[1] the query points, prhs[2] the order (1 when omitted).
    void invoke(void* instance, int nlhs, platform::HostArray* plhs, int nrhs,
                const platform::HostArray* prhs) const override;
};

// Slots 0, 1, 2, 5, 6, 7 and 31; the others keep the host's base behaviour (copy through
// the properties, save and load of the public properties).
class GriddedInterpolantCOSClassInfo final : public platform::HostClassInfo {
public:
    std::string className() const override { return kGriddedInterpolantClassName; }
    std::string classDescription() const override { return "Interpolate on rectangular ndgrids."; }
    void defineMembers(platform::ClassMembers& members) const override;
    void* createInstance() const override;
    void destroyInstance(void* instance) const noexcept override;
    void afterLoadFixup(void* instance) const override;
};

} // namespace mathinterp
