// Method and extrapolation selection: parsing the words, the fallbacks that replace a method
// the grid cannot support (each with its warning), and the evaluator that matches the final
// words, the number of grid dimensions and the precisions of grid and values.
#pragma once

#include "mathinterp/interpolant/GriddedInterpolant.hpp"
#include "mathinterp/interpolant/MethodId.hpp"

#include <platform/HostArray.hpp>

#include <memory>

namespace mathinterp {

// Scalar text, converted to UTF-8, matched exactly against the word table (the first eight
// words for a method, all nine for an extrapolation word). Raises BadInterpTypeErrId or
// ExtrapolationMethodInvalid, or MissingNotSupported for a missing string.
MethodId parseMethodWord(const platform::HostArray& text, bool isMethod);

// True when the grid vector is uniform within the cubic tolerance:
// |(x[i+1] - x[i]) - h| <= min(h, 4 eps(max(|x[0]|, |x[n-1]|))) with h = (x[n-1]-x[0])/(n-1).
bool isUniformGridVector(const platform::HostArray& x);

struct MethodPair {
    MethodId method = MethodId::Linear;
    MethodId extrap = MethodId::Linear;
};

// The final pair for the words (null array: not given) on the grid cell; issues the
// fallback warnings. Stores nothing.
MethodPair chooseMethods(const platform::HostArray& methodText,
                         const platform::HostArray& extrapText, const platform::HostArray& grid,
                         bool gridDefaulted);

// chooseMethods, then stores both final words in the object as char rows.
void selectMethods(GriddedInterpolant& obj, const platform::HostArray& methodText,
                   const platform::HostArray& extrapText, bool gridDefaulted);

// The evaluator for the object's grid and internal values and the given final words; null
// when the values are empty. Stores nothing. Throws MethodNotBuiltError for a method that is
// not part of this build.
std::shared_ptr<Evaluator> makeObjectEvaluator(GriddedInterpolant& obj, MethodPair words);

// Builds the evaluator for the object's stored (final) words and stores it as current.
void buildEvaluator(GriddedInterpolant& obj);

// Points per value set and number of value sets (complex values not doubled) of values on a
// d-dimensional grid.
struct ValueSetLayout {
    u64 pointsPerSet = 0;
    u64 sets = 0;
};
ValueSetLayout valueSetLayout(const platform::HostArray& values, u64 d);

} // namespace mathinterp
