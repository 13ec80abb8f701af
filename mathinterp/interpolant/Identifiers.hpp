// The error and warning identifiers of the interpolant. One exception type per error
// identifier (component "QUARTZ:griddedInterpolant" unless stated), each with a static
// raise() that throws it; grep "<Identifier>::raise" to find where an error is raised.
// Warnings are issued through warn(); the module boundary turns every exception of this
// file into a host error with the catalog's text (toHostError).
#pragma once

#include <platform/HostError.hpp>

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace mathinterp {

inline constexpr std::string_view kComponent = "QUARTZ:griddedInterpolant";
inline constexpr std::string_view kStringComponent = "QUARTZ:string";
inline constexpr std::string_view kLegacyComponent = "QUARTZ:legacy_two_part";

class InterpolationException : public std::exception {
public:
    InterpolationException(std::string_view component, std::string_view key,
                           platform::MessageArgs args = {})
        : component_(component), key_(key), args_(std::move(args)),
          identifier_(std::string(component) + ":" + std::string(key)) {}
    const char* what() const noexcept override { return identifier_.c_str(); }
    const std::string& component() const noexcept { return component_; }
    const std::string& key() const noexcept { return key_; }
    const std::string& identifier() const noexcept { return identifier_; }
    const platform::MessageArgs& args() const noexcept { return args_; }

private:
    std::string component_;
    std::string key_;
    platform::MessageArgs args_;
    std::string identifier_;
};

#define MATHINTERP_ERROR_ID(Name, Component)                                                       \
    class Name : public InterpolationException {                                                   \
    public:                                                                                        \
        Name() : InterpolationException(Component, #Name) {}                                       \
        [[noreturn]] static void raise() { throw Name(); }                                         \
    };

MATHINTERP_ERROR_ID(BadGridErrId, kComponent)
MATHINTERP_ERROR_ID(BadInterpTypeErrId, kComponent)
MATHINTERP_ERROR_ID(ComplexDataPointErrId, kComponent)
MATHINTERP_ERROR_ID(DegenerateGridErrId, kComponent)
MATHINTERP_ERROR_ID(ExtrapolationMethodInvalid, kComponent)
MATHINTERP_ERROR_ID(GridOfMixedDataTypesErrId, kComponent)
MATHINTERP_ERROR_ID(InputMixSizeErrId, kComponent)
MATHINTERP_ERROR_ID(MixedGridCoordSizeErrId, kComponent)
MATHINTERP_ERROR_ID(NdgridNotMeshgrid2DErrId, kComponent)
MATHINTERP_ERROR_ID(NdgridNotMeshgrid3DErrId, kComponent)
MATHINTERP_ERROR_ID(NonCellCompVecErrId, kComponent)
MATHINTERP_ERROR_ID(NonFiniteInputPtsErrId, kComponent)
MATHINTERP_ERROR_ID(NonFloatInpPtsErrId, kComponent)
MATHINTERP_ERROR_ID(NonFloatValuesErrId, kComponent)
MATHINTERP_ERROR_ID(NonMonotonicCompVecsErrId, kComponent)
MATHINTERP_ERROR_ID(NonUniqueCompVecsPtsErrId, kComponent)
MATHINTERP_ERROR_ID(NonVecCompVecErrId, kComponent)
MATHINTERP_ERROR_ID(NumCoordsGridNdimsMismatchErrId, kComponent)
MATHINTERP_ERROR_ID(QueryOfMixedDataTypesErrId, kComponent)
MATHINTERP_ERROR_ID(SampleValuesNotSecond, kComponent)
MATHINTERP_ERROR_ID(SparseDataPtErrId, kComponent)
MATHINTERP_ERROR_ID(SparseInterpValuesErrId, kComponent)
// Derivatives: an order other than 1 or 2; derivative() of a grid of d >= 2 dimensions.
MATHINTERP_ERROR_ID(DerivativeOrderErrId, kComponent)
MATHINTERP_ERROR_ID(Derivative1DOnlyErrId, kComponent)

// "QUARTZ:string" errors of the string facility, raised while parsing method words.
MATHINTERP_ERROR_ID(MustBeStringScalarOrCharacterVector, kStringComponent)
MATHINTERP_ERROR_ID(MissingNotSupported, kStringComponent)
// Bad subscripts or struct inputs in the struct-grid gateway.
MATHINTERP_ERROR_ID(badsubscript, kLegacyComponent)
#undef MATHINTERP_ERROR_ID

// A grid vector's length differs from the matching extent of the values.
class CompVecValueMismatchErrId : public InterpolationException {
public:
    // dimension counts from 1.
    CompVecValueMismatchErrId(std::uint64_t dimension, std::uint64_t expectedLength)
        : InterpolationException(
              kComponent, "CompVecValueMismatchErrId",
              {static_cast<std::int64_t>(dimension), static_cast<std::int64_t>(expectedLength)}) {}
    [[noreturn]] static void raise(std::uint64_t dimension, std::uint64_t expectedLength) {
        throw CompVecValueMismatchErrId(dimension, expectedLength);
    }
};

// The number of query arrays, or the columns of a point matrix, differ from d.
class BadArgInterpEvalErrId : public InterpolationException {
public:
    explicit BadArgInterpEvalErrId(std::uint64_t numDims)
        : InterpolationException(kComponent, "BadArgInterpEvalErrId",
                                 {static_cast<std::int64_t>(numDims)}) {}
    [[noreturn]] static void raise(std::uint64_t numDims) { throw BadArgInterpEvalErrId(numDims); }
};

// Warnings.
enum class WarningId {

    CubicNeedsThreeWarnId,
    CubicUniformOnlyWarnId,
    Next1DonlyWarnId,
    Pchip1DonlyWarnId,
    Previous1DonlyWarnId,
    MeshgridEval2DWarnId,
    MeshgridEval3DWarnId,

};

std::string_view warningKey(WarningId id) noexcept;
// Issues the warning to the host's warning sink; execution goes on.
void warn(WarningId id);

// Call inside a catch block at a module boundary (class method, gateway): rethrows the
// exception in flight as the host error the user sees. Identifiers keep their arguments;
// a method missing from this build becomes a literal-text error; std::bad_alloc becomes the
// host's out-of-memory error; host errors pass unchanged.
[[noreturn]] void rethrowAsHostError();

} // namespace mathinterp
