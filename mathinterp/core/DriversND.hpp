// The N-D query drivers: scattered and gridded evaluation of every value plane with one
// method (InterpScatteredQueriesFtorND, InterpGriddedQueriesFtorND) or with an interpolation
// and an extrapolation method (InterpExtrapScatteredQueriesFtorND,
// InterpExtrapGriddedQueriesFtorND).
#pragma once

#include "mathinterp/core/Drivers1D.hpp"

#include <stdexcept>

namespace mathinterp {

// methods: one method object per plane; extraps: null, or one extrapolation object per plane.
// m: number of scattered points; queries: d columns of m coordinates.
template <class M, class ME = NoMethod>
void evaluateScatteredND(const std::vector<std::unique_ptr<M>>& methods,
                         const std::type_identity_t<std::vector<std::unique_ptr<ME>>>* extraps, u64 m,
                         const platform::HostArray& queries, platform::HostArray& out) {
    (void)methods, (void)extraps, (void)m, (void)queries, (void)out;
    throw std::logic_error("N-D evaluation is not built yet");
}

// queryVectors: a cell of d query vectors; results column-major over their lengths.
template <class M, class ME = NoMethod>
void evaluateGriddedND(const std::vector<std::unique_ptr<M>>& methods,
                       const std::type_identity_t<std::vector<std::unique_ptr<ME>>>* extraps,
                       const platform::HostArray& queryVectors, platform::HostArray& out) {
    (void)methods, (void)extraps, (void)queryVectors, (void)out;
    throw std::logic_error("N-D evaluation is not built yet");
}

} // namespace mathinterp
