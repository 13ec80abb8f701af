#include "mathinterp/core/ComplexSplit.hpp"

#include "mathinterp/core/Parallel.hpp"

namespace mathinterp {

template <class T>
void interleaved2split(const T* in, T* out, u64 n) {
    auto body = [in, out, n](u64 b, u64 e) {
        for (u64 i = b; i < e; ++i) {
            out[i] = in[2 * i];
            out[n + i] = in[2 * i + 1];
        }
    };
    // Serial when n <= 1024, parallel from 1025 on.
    forEachRange(n, body, QUERY_GRAIN + 1, QUERY_GRAIN);
}

template void interleaved2split<double>(const double*, double*, u64);
template void interleaved2split<float>(const float*, float*, u64);

} // namespace mathinterp
