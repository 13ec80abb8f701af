// Making interpolants in the interpolant tests: construction from host arguments (a failure
// throws) and the sparse flag on an array.
#pragma once

#include "support/Interpolant.hpp"

namespace itest {

inline mathinterp::GriddedInterpolant make(const Args& a) {
    mathinterp::GriddedInterpolant g;
    g.construct(static_cast<int>(a.size()), a.data());
    return g;
}

inline HostArray sparse(HostArray a) {
    a.setSparse(true);
    return a;
}

} // namespace itest
