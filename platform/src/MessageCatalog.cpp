// The message catalog: a text per identifier, in our own words. Placeholders {1}, {2}, ...
// take the error's arguments.
#include "platform/HostError.hpp"

#include <cstdio>
#include <map>
#include <string>

namespace platform {
namespace {

const std::map<std::string, std::string, std::less<>>& catalog() {
    static const std::map<std::string, std::string, std::less<>> texts = {
        // Standard host errors.
        {"QUARTZ:maxlhs", "Too many output arguments."},
        {"QUARTZ:maxrhs", "Too many input arguments."},
        {"QUARTZ:minrhs", "Not enough input arguments."},
        {"QUARTZ:nomem", "Out of memory: the operation needs more memory than can be allocated "
                         "(or a size that cannot be represented)."},
        // The string facility.
        {"QUARTZ:string:MustBeStringScalarOrCharacterVector",
         "The input must be a string scalar or a character vector."},
        {"QUARTZ:string:InvalidText",
         "The text is not valid Unicode (malformed UTF-8 or a lone surrogate); give it as "
         "plain text."},
        {"QUARTZ:string:MissingNotSupported",
         "A missing string is not supported here; give a method name as text."},
        {"QUARTZ:legacy_two_part:badsubscript", "Bad subscript or struct input."},
        // Errors of griddedInterpolant.
        {"QUARTZ:griddedInterpolant:DerivativeOrderErrId",
         "The derivative order must be 1 (slope) or 2 (second derivative)."},
        {"QUARTZ:griddedInterpolant:Derivative1DOnlyErrId",
         "derivative(xq, order) applies to one-dimensional interpolants; on grids of two or "
         "more dimensions use gradient(...)."},
        {"QUARTZ:griddedInterpolant:BadArgInterpEvalErrId",
         "Wrong number of query coordinates: this interpolant has {1} grid dimension(s), so "
         "give an m-by-{1} matrix of points, {1} arrays of coordinates, or a cell of {1} "
         "grid vectors."},
        {"QUARTZ:griddedInterpolant:BadGridErrId",
         "The grid arrays do not form a full grid: each array must vary along its own "
         "dimension only (ndgrid order) and be constant along every other dimension."},
        {"QUARTZ:griddedInterpolant:BadInterpTypeErrId",
         "Unknown interpolation method. Use one of 'linear', 'nearest', 'next', 'previous', "
         "'pchip', 'cubic', 'spline' or 'makima' (lower case)."},
        {"QUARTZ:griddedInterpolant:CompVecValueMismatchErrId",
         "The grid vector of dimension {1} does not match the values: it must have {2} "
         "points, the size of the values in dimension {1}."},
        {"QUARTZ:griddedInterpolant:ComplexDataPointErrId",
         "Grid points and query points must be real; complex coordinates are not accepted."},
        {"QUARTZ:griddedInterpolant:DegenerateGridErrId",
         "The grid is degenerate: the values must not be empty and every grid dimension "
         "needs at least 2 points."},
        {"QUARTZ:griddedInterpolant:ExtrapolationMethodInvalid",
         "Unknown extrapolation method. Use one of 'linear', 'nearest', 'next', 'previous', "
         "'pchip', 'cubic', 'spline', 'makima' or 'none' (lower case)."},
        {"QUARTZ:griddedInterpolant:GridOfMixedDataTypesErrId",
         "All grid vectors (or grid arrays) must be of one class: all double or all single."},
        {"QUARTZ:griddedInterpolant:InputMixSizeErrId",
         "The query coordinate arrays must all have the same size."},
        {"QUARTZ:griddedInterpolant:MixedGridCoordSizeErrId",
         "The grid arrays must have the size of the values (a one-dimensional grid must be a "
         "vector)."},
        {"QUARTZ:griddedInterpolant:NdgridNotMeshgrid2DErrId",
         "The two grid arrays are in meshgrid order; give them in ndgrid order (transpose "
         "both arrays and the values), or give the grid as a cell of grid vectors."},
        {"QUARTZ:griddedInterpolant:NdgridNotMeshgrid3DErrId",
         "The three grid arrays are in meshgrid order; give them in ndgrid order (swap the "
         "first two dimensions of every array and of the values), or give a cell of grid "
         "vectors."},
        {"QUARTZ:griddedInterpolant:NonCellCompVecErrId",
         "GridVectors must be a cell array holding one grid vector per dimension."},
        {"QUARTZ:griddedInterpolant:NonFiniteInputPtsErrId",
         "Grid vectors must hold finite values only; Inf and NaN are not accepted."},
        {"QUARTZ:griddedInterpolant:NonFloatInpPtsErrId",
         "Grid points and query points must be of class double or single."},
        {"QUARTZ:griddedInterpolant:NonFloatValuesErrId",
         "The sample values must be of class double or single, given after the grid and "
         "before the method words; only text may follow them (a method and an extrapolation "
         "method)."},
        {"QUARTZ:griddedInterpolant:NonMonotonicCompVecsErrId",
         "Grid vectors must be strictly increasing; sort the grid (and the values with it)."},
        {"QUARTZ:griddedInterpolant:NonUniqueCompVecsPtsErrId",
         "Grid vectors must not repeat a point; remove the duplicate grid points."},
        {"QUARTZ:griddedInterpolant:NonVecCompVecErrId",
         "Each grid vector (and each gridded query vector) must be a vector."},
        {"QUARTZ:griddedInterpolant:NumCoordsGridNdimsMismatchErrId",
         "The number of grid vectors does not match the values (or the query does not have "
         "one coordinate per grid dimension): the values need at least as many dimensions "
         "as there are grid vectors."},
        {"QUARTZ:griddedInterpolant:QueryOfMixedDataTypesErrId",
         "All query arrays must be of one class: all double or all single."},
        {"QUARTZ:griddedInterpolant:SampleValuesNotSecond",
         "With a cell of grid vectors, the sample values must be the second argument."},
        {"QUARTZ:griddedInterpolant:SparseDataPtErrId",
         "Grid points and query points must be full (dense) arrays, not sparse."},
        {"QUARTZ:griddedInterpolant:SparseInterpValuesErrId",
         "The sample values must be a full (dense) array, not sparse."},
        // Warnings of griddedInterpolant.
        {"QUARTZ:griddedInterpolant:CubicNeedsThreeWarnId",
         "'cubic' needs at least 3 grid points in every dimension; using 'linear' instead."},
        {"QUARTZ:griddedInterpolant:CubicUniformOnlyWarnId",
         "'cubic' needs uniformly spaced grid vectors; using 'spline' instead."},
        {"QUARTZ:griddedInterpolant:Next1DonlyWarnId",
         "'next' is available for one-dimensional grids only; using 'linear' instead."},
        {"QUARTZ:griddedInterpolant:Pchip1DonlyWarnId",
         "'pchip' is available for one-dimensional grids only; using 'linear' instead."},
        {"QUARTZ:griddedInterpolant:Previous1DonlyWarnId",
         "'previous' is available for one-dimensional grids only; using 'linear' instead."},
        {"QUARTZ:griddedInterpolant:MeshgridEval2DWarnId",
         "The two query arrays look like meshgrid output; they are evaluated point by point. "
         "Use ndgrid order (or a cell of query vectors) for a gridded evaluation."},
        {"QUARTZ:griddedInterpolant:MeshgridEval3DWarnId",
         "The three query arrays look like meshgrid output; they are evaluated point by "
         "point. Use ndgrid order (or a cell of query vectors) for a gridded evaluation."},
    };
    return texts;
}

std::string argText(const MessageArg& a) {
    if (const auto* s = std::get_if<std::string>(&a)) return *s;
    if (const auto* i = std::get_if<std::int64_t>(&a)) return std::to_string(*i);
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.17g", std::get<double>(a));
    return buf;
}

} // namespace

bool MessageCatalog::has(std::string_view identifier) {
    return catalog().find(identifier) != catalog().end();
}

std::string MessageCatalog::text(std::string_view identifier, const MessageArgs& args) {
    const auto it = catalog().find(identifier);
    if (it == catalog().end()) return std::string(identifier);
    const std::string& t = it->second;
    std::string out;
    for (std::size_t i = 0; i < t.size(); ++i) {
        if (t[i] == '{' && i + 2 < t.size() && t[i + 1] >= '1' && t[i + 1] <= '9' &&
            t[i + 2] == '}') {
            const std::size_t k = static_cast<std::size_t>(t[i + 1] - '1');
            out += k < args.size() ? argText(args[k]) : std::string("?");
            i += 2;
        } else {
            out += t[i];
        }
    }
    return out;
}

std::vector<std::string> MessageCatalog::identifiers() {
    std::vector<std::string> ids;
    for (const auto& [id, text] : catalog()) ids.push_back(id);
    return ids;
}

} // namespace platform
