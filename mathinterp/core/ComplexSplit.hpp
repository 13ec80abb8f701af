// interleaved2split: n interleaved complex numbers (re, im, re, ...) into two planes of one
// buffer, real parts in out[0, n) and imaginary parts in out[n, 2n), order kept. Serial up to
// QUERY_GRAIN elements, a parallel loop with that grain above.
#pragma once

#include "mathinterp/core/Numeric.hpp"

namespace mathinterp {

template <class T>
void interleaved2split(const T* in, T* out, u64 n);

extern template void interleaved2split<double>(const double*, double*, u64);
extern template void interleaved2split<float>(const float*, float*, u64);

} // namespace mathinterp
