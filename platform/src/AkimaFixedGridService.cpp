// The modified Akima service: node derivatives per grid line, 1-D coefficient blocks, N-D
// node-major derivative tensors, the tensor-product Hermite evaluation and the gridded passes
// (the Hermite steps themselves are inline in the header, shared with the engine's kernels).
// One template per routine serves every grid/value precision pair; the exported overloads
// only pick it.
#include "platform/AkimaFixedGridService.hpp"

#include <atomic>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>

namespace platform {
namespace {

using u64 = std::uint64_t;

std::atomic<u64> g_precomputeCount{0};

// Size arithmetic of this service; an overflow is an allocation failure.
u64 mulChecked(u64 a, u64 b) {
    u64 r;
    if (__builtin_mul_overflow(a, b, &r)) throw std::bad_alloc();
    return r;
}
u64 addChecked(u64 a, u64 b) {
    u64 r;
    if (__builtin_add_overflow(a, b, &r)) throw std::bad_alloc();
    return r;
}
u64 pow2Checked(u64 k) {
    if (k >= 64) throw std::bad_alloc();
    return u64{1} << k;
}
// A length the caller can turn into bytes (8 per element at most) without overflow.
u64 lengthChecked(u64 n) {
    (void)mulChecked(n, 8);
    return n;
}

// Node derivatives of one grid line: n >= 1 points x[0..n), values y[0..n) (contiguous);
// ext holds n + 3 slopes (two extension slopes at each end), der receives n derivatives.
template <class G, class V>
void lineDerivatives(u64 n, const G* x, const V* y, V* ext, V* der) {
    if (n == 1) {
        der[0] = V(0);
        return;
    }
    const u64 m = n - 1;
    V* e = ext + 2; // e[-2 .. m+1]
    for (u64 k = 0; k < m; ++k) {
        const V h = static_cast<V>(x[k + 1]) - static_cast<V>(x[k]);
        e[k] = (y[k + 1] - y[k]) / h;
    }
    if (n == 2) { // the straight line
        der[0] = e[0];
        der[1] = e[0];
        return;
    }
    e[-1] = V(2) * e[0] - e[1];
    e[-2] = V(2) * e[-1] - e[0];
    e[m] = V(2) * e[m - 1] - e[m - 2];
    e[m + 1] = V(2) * e[m] - e[m - 1];
    for (u64 i = 0; i < n; ++i) {
        const V* s = e + i; // s[-2], s[-1], s[0], s[1] are d_{i-2} .. d_{i+1}
        const V w1 = std::abs(s[1] - s[0]) + std::abs(s[1] + s[0]) / V(2);
        const V w2 = std::abs(s[-1] - s[-2]) + std::abs(s[-1] + s[-2]) / V(2);
        const V w = w1 + w2;
        der[i] = (w == V(0)) ? V(0) : (w1 * s[-1] + w2 * s[0]) / w;
    }
}

template <class G, class V>
void precompute1D(u64 n, const G* x, const V* y, V* ws, V* result) {
    g_precomputeCount.fetch_add(1, std::memory_order_relaxed);
    const u64 m = n - 1;
    V* ext = ws;         // n + 3 slopes
    V* der = ws + n + 3; // n derivatives
    lineDerivatives(n, x, y, ext, der);
    const V* slope = ext + 2;
    V* c3 = result;
    V* c2 = result + m;
    V* c1 = result + 2 * m;
    V* c0 = result + 3 * m;
    for (u64 k = 0; k < m; ++k) {
        const V h = static_cast<V>(x[k + 1]) - static_cast<V>(x[k]);
        const V a = (slope[k] - der[k]) / h;
        const V b = (der[k + 1] - slope[k]) / h;
        c2[k] = a + a - b;
        c3[k] = (b - a) / h;
        c1[k] = der[k];
    }
    for (u64 k = 0; k < n; ++k)
        c0[k] = y[k];
}

template <class G, class V>
void precomputeND(u64 d, const u64* dims, const G* const* grids, const V* values, V* ws1,
                  u64* strides, V* result) {
    g_precomputeCount.fetch_add(1, std::memory_order_relaxed);
    u64 P = 1;
    for (u64 j = 0; j < d; ++j) {
        strides[j] = P;
        P *= dims[j]; // sized by the size query, which checked the products
    }
    const u64 K = u64{1} << d;
    for (u64 p = 0; p < P; ++p)
        result[p * K] = values[p];
    // Entry S from entry S minus its highest dimension j, along j: the operator is applied
    // along the dimensions of S in increasing order.
    for (u64 S = 1; S < K; ++S) {
        u64 j = 63 - static_cast<u64>(__builtin_clzll(S));
        const u64 src = S ^ (u64{1} << j);
        const u64 n = dims[j];
        const u64 inner = strides[j];
        const u64 span = inner * n;
        const u64 outer = P / span;
        V* line = ws1;
        V* ext = ws1 + n;
        V* der = ws1 + 2 * n + 3;
        for (u64 o = 0; o < outer; ++o) {
            for (u64 in = 0; in < inner; ++in) {
                const u64 base = o * span + in;
                for (u64 i = 0; i < n; ++i)
                    line[i] = result[(base + i * inner) * K + src];
                lineDerivatives(n, grids[j], line, ext, der);
                for (u64 i = 0; i < n; ++i)
                    result[(base + i * inner) * K + S] = der[i];
            }
        }
    }
}

template <class G, class V>
void interpolateND(u64 d, const u64* dims, const G* const* grids, u64 setIndex, const V* result,
                   const G* xq, const u64* k, u64 numQueries, V* scratch, u64* cornerOffset,
                   V* out) {
    const u64 K = u64{1} << d;
    u64 P = 1;
    for (u64 j = 0; j < d; ++j)
        P *= dims[j];
    const V* blk = result + setIndex * (P * K);
    V* A = scratch;          // K x K: A[S K + c], S the derivative subset, c the corner
    V* tv = scratch + K * K; // d local coordinates
    V* hv = tv + d;          // d cell widths
    for (u64 q = 0; q < numQueries; ++q) {
        const G* x = xq + q * d;
        const u64* kq = k + q * d;
        u64 base = 0;
        u64 stride = 1;
        cornerOffset[0] = 0;
        for (u64 j = 0; j < d; ++j) {
            const u64 i = kq[j];
            const G* g = grids[j];
            const u64 half = u64{1} << j;
            const u64 step = dims[j] > 1 ? stride : 0;
            for (u64 c = 0; c < half; ++c)
                cornerOffset[half + c] = cornerOffset[c] + step;
            base += i * stride;
            if (dims[j] > 1) {
                tv[j] = static_cast<V>((x[j] - g[i]) / (g[i + 1] - g[i]));
                hv[j] = static_cast<V>(g[i + 1]) - static_cast<V>(g[i]);
            } else {
                tv[j] = V(0); // a single grid line: the value on it
                hv[j] = V(0);
            }
            stride *= dims[j];
        }
        for (u64 c = 0; c < K; ++c) {
            const V* node = blk + (base + cornerOffset[c]) * K;
            for (u64 S = 0; S < K; ++S)
                A[S * K + c] = node[S];
        }
        // Reduce dimension j (the lowest bit of both S and c); in place, since every entry
        // written lies at or below the entries still to be read.
        for (u64 j = 0; j < d; ++j) {
            const u64 r = d - j; // dimensions left
            const u64 halfR = u64{1} << (r - 1);
            const V t = tv[j];
            const V h = hv[j];
            for (u64 S = 0; S < halfR; ++S) {
                const V* lo = A + ((2 * S) << r);
                const V* hi = A + ((2 * S + 1) << r);
                for (u64 c = 0; c < halfR; ++c) {
                    const V a0 = lo[2 * c], a1 = lo[2 * c + 1];
                    const V m0 = hi[2 * c], m1 = hi[2 * c + 1];
                    A[(S << (r - 1)) | c] = akima_detail::hermiteStep(a0, a1, m0, m1, t, h);
                }
            }
        }
        out[q] = A[0];
    }
}

// One pass of a full query grid (see the header): per unit a run of L outputs, each from
// the entries 2x and 2x + 1 of the two nodes around the query. t is the same along the run,
// so the grid-line tests are made once per run and the loop itself has no branches.
template <class V, bool Contiguous>
void griddedPass(u64 L, u64 n, u64 m, const V* in, const u64* k, const V* t, const V* h, u64 uBegin,
                 u64 uEnd, V* out, u64 outStride) {
    u64 q = uBegin % m;
    u64 o = uBegin / m;
    for (u64 u = uBegin; u < uEnd; ++u) {
        const V* lo = in + 2 * L * (k[q] + n * o);
        const V* hi = lo + 2 * L;
        V* dst = out + L * u * (Contiguous ? 1 : outStride);
        const u64 w = Contiguous ? 1 : outStride;
        const V tq = t[q];
        const V hq = h[q];
        if (tq == V(0)) {
            for (u64 x = 0; x < L; ++x)
                dst[x * w] = lo[2 * x];
        } else if (tq == V(1)) {
            for (u64 x = 0; x < L; ++x)
                dst[x * w] = hi[2 * x];
        } else {
            for (u64 x = 0; x < L; ++x)
                dst[x * w] = akima_detail::hermiteInterior(lo[2 * x], hi[2 * x], lo[2 * x + 1],
                                                           hi[2 * x + 1], tq, hq);
        }
        if (++q == m) {
            q = 0;
            ++o;
        }
    }
}

template <class V>
void griddedPassAny(u64 L, u64 n, u64 m, const V* in, const u64* k, const V* t, const V* h,
                    u64 uBegin, u64 uEnd, V* out, u64 outStride) {
    if (uBegin >= uEnd) return;
    if (outStride == 1)
        griddedPass<V, true>(L, n, m, in, k, t, h, uBegin, uEnd, out, 1);
    else
        griddedPass<V, false>(L, n, m, in, k, t, h, uBegin, uEnd, out, outStride);
}

} // namespace

// ---- one dimension -------------------------------------------------------------------------

void akimaFixedGrid_precomputeWS_1D(u64 n, u64* workspaceLength, u64* resultLength) {
    if (n < 2) throw std::invalid_argument("akimaFixedGrid: a 1-D grid needs 2 points or more");
    *workspaceLength = lengthChecked(addChecked(mulChecked(2, n), 3));
    *resultLength = lengthChecked(addChecked(mulChecked(4, n - 1), 1));
}

void akimaFixedGrid_precompute_1D_double(u64 n, const double* grid, const double* values,
                                         double* workspace, double* result) {
    precompute1D(n, grid, values, workspace, result);
}
void akimaFixedGrid_precompute_1D_float(u64 n, const float* grid, const float* values,
                                        float* workspace, float* result) {
    precompute1D(n, grid, values, workspace, result);
}
void akimaFixedGrid_precompute_1D_float(u64 n, const double* grid, const float* values,
                                        float* workspace, float* result) {
    precompute1D(n, grid, values, workspace, result);
}

// ---- d dimensions --------------------------------------------------------------------------

void akimaFixedGrid_precomputeWS(u64 d, const u64* dims, u64* workspace1Length,
                                 u64* workspace2Length, u64* resultLength) {
    if (d == 0) throw std::invalid_argument("akimaFixedGrid: a grid needs 1 dimension or more");
    u64 points = 1;
    u64 longest = 0;
    for (u64 j = 0; j < d; ++j) {
        if (dims[j] == 0)
            throw std::invalid_argument("akimaFixedGrid: every dimension needs 1 point or more");
        points = mulChecked(points, dims[j]);
        if (dims[j] > longest) longest = dims[j];
    }
    *workspace1Length = lengthChecked(addChecked(mulChecked(3, longest), 3));
    *workspace2Length = lengthChecked(d);
    *resultLength = lengthChecked(mulChecked(points, pow2Checked(d)));
}

void akimaFixedGrid_precompute_double(u64 d, const u64* dims, const double* const* grids,
                                      const double* values, double* workspace1, u64* workspace2,
                                      double* result) {
    precomputeND(d, dims, grids, values, workspace1, workspace2, result);
}
void akimaFixedGrid_precompute_double(u64 d, const u64* dims, const float* const* grids,
                                      const double* values, double* workspace1, u64* workspace2,
                                      double* result) {
    precomputeND(d, dims, grids, values, workspace1, workspace2, result);
}
void akimaFixedGrid_precompute_float(u64 d, const u64* dims, const double* const* grids,
                                     const float* values, float* workspace1, u64* workspace2,
                                     float* result) {
    precomputeND(d, dims, grids, values, workspace1, workspace2, result);
}
void akimaFixedGrid_precompute_float(u64 d, const u64* dims, const float* const* grids,
                                     const float* values, float* workspace1, u64* workspace2,
                                     float* result) {
    precomputeND(d, dims, grids, values, workspace1, workspace2, result);
}

void akimaFixedGrid_interpolateWS(u64 d, u64* scratchLength, u64* indexScratchLength) {
    if (d == 0) throw std::invalid_argument("akimaFixedGrid: a grid needs 1 dimension or more");
    const u64 K = pow2Checked(d);
    *scratchLength = lengthChecked(addChecked(mulChecked(K, K), mulChecked(2, d)));
    *indexScratchLength = lengthChecked(K);
}

void akimaFixedGrid_interpolate_double(u64 d, const u64* dims, const double* const* grids,
                                       u64 setIndex, u64, const double* result, const double* xq,
                                       const u64* k, u64 numQueries, double* scratch,
                                       u64* indexScratch, double* out) {
    interpolateND(d, dims, grids, setIndex, result, xq, k, numQueries, scratch, indexScratch, out);
}
void akimaFixedGrid_interpolate_double(u64 d, const u64* dims, const float* const* grids,
                                       u64 setIndex, u64, const double* result, const float* xq,
                                       const u64* k, u64 numQueries, double* scratch,
                                       u64* indexScratch, double* out) {
    interpolateND(d, dims, grids, setIndex, result, xq, k, numQueries, scratch, indexScratch, out);
}
void akimaFixedGrid_interpolate_float(u64 d, const u64* dims, const double* const* grids,
                                      u64 setIndex, u64, const float* result, const double* xq,
                                      const u64* k, u64 numQueries, float* scratch,
                                      u64* indexScratch, float* out) {
    interpolateND(d, dims, grids, setIndex, result, xq, k, numQueries, scratch, indexScratch, out);
}
void akimaFixedGrid_interpolate_float(u64 d, const u64* dims, const float* const* grids,
                                      u64 setIndex, u64, const float* result, const float* xq,
                                      const u64* k, u64 numQueries, float* scratch,
                                      u64* indexScratch, float* out) {
    interpolateND(d, dims, grids, setIndex, result, xq, k, numQueries, scratch, indexScratch, out);
}

void akimaFixedGrid_griddedPass_double(u64 L, u64 n, u64 m, const double* in, const u64* k,
                                       const double* t, const double* h, u64 uBegin, u64 uEnd,
                                       double* out, u64 outStride) {
    griddedPassAny(L, n, m, in, k, t, h, uBegin, uEnd, out, outStride);
}
void akimaFixedGrid_griddedPass_float(u64 L, u64 n, u64 m, const float* in, const u64* k,
                                      const float* t, const float* h, u64 uBegin, u64 uEnd,
                                      float* out, u64 outStride) {
    griddedPassAny(L, n, m, in, k, t, h, uBegin, uEnd, out, outStride);
}

u64 akimaFixedGrid_precomputeCount() noexcept {
    return g_precomputeCount.load(std::memory_order_relaxed);
}

} // namespace platform
