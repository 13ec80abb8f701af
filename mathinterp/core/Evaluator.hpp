// Evaluator: the interpolant's evaluation object. Its only virtual operations are these;
// the concrete evaluators (Evaluators.hpp) are templates over the method classes, so the
// per-query kernels are compiled into the query loops.
#pragma once

#include "mathinterp/core/Numeric.hpp"

#include <platform/HostArray.hpp>

#include <cstdint>
#include <vector>

namespace mathinterp {

// What an evaluator is built from: the grid (one pointer and length per dimension) and the
// value planes (plane k starts at values + k * pointsPerPlane; complex values contribute
// their real planes first, then their imaginary planes).
template <class G, class V>
struct EvaluatorSetup {
    std::vector<const G*> grids;
    std::vector<u64> sizes;
    const V* values = nullptr;
    u64 pointsPerPlane = 0;
    u64 numPlanes = 0;

    u64 numDims() const noexcept { return grids.size(); }
    const V* plane(u64 k) const noexcept { return values + k * pointsPerPlane; }
};

class Evaluator {
public:
    virtual ~Evaluator() = default;
    // Point every method object at a new value plane (one pointer per method object, in
    // methodObjects order); caches derived from values are dropped, grid caches kept.
    virtual void rebindValues(const void* const* planes) = 0;
    // queryVectors: a cell of one query vector per grid dimension; out: created by the
    // caller with room for every result of every plane.
    virtual void evaluateGridded(const platform::HostArray& queryVectors,
                                 platform::HostArray& out) = 0;
    // m query points; queries: the coordinates (numDims columns of m points); out as above.
    virtual void evaluateScattered(u64 m, const platform::HostArray& queries,
                                   platform::HostArray& out) = 0;
    virtual u64 numPlanes() const noexcept = 0;
};

} // namespace mathinterp
