// AkimaFixedGridService: the host's modified Akima ("makima") numeric service on fixed
// rectilinear grids. A precomputation turns grid and values into a result block once; the
// interpolation evaluates queries from that block with interval indices found by the caller.
//
// The interpolant (docs/makima.md has the full definition). On a grid x_0 < ... < x_{n-1}
// with values y_k, slopes d_k = (y_{k+1} - y_k) / (x_{k+1} - x_k), k = 0..n-2, are extended by
// two slopes at each end (d_{-1} = 2 d_0 - d_1, d_{-2} = 2 d_{-1} - d_0; mirrored on the
// right). Node i gets the derivative (w1 d_{i-1} + w2 d_i) / (w1 + w2) with
//     w1 = |d_{i+1} - d_i| + |d_{i+1} + d_i| / 2,
//     w2 = |d_{i-1} - d_{i-2}| + |d_{i-1} + d_{i-2}| / 2,
// and 0 when w1 + w2 = 0 (flat data never divides 0 by 0). Two points give the straight line.
// Each interval is the cubic Hermite piece matching values and derivatives at both ends; the
// end pieces are continued outside the grid. In N dimensions every node carries 2^d values:
// for each subset S of the dimensions, the 1-D derivative operator applied along the
// dimensions of S in increasing order (S = {} is the value itself); the interpolant is the
// tensor-product cubic Hermite interpolant of these on the query's cell. A dimension with
// two points is linear; a dimension with one point is constant.
//
// Guarantees. A query equal to a grid node returns the node's value bit for bit (in N-D: in
// every dimension in which the query lies on a grid line, that line is used exactly). Linear
// data whose slopes are exact in the value type are reproduced exactly, inside and outside.
// Arithmetic on derivatives and coefficients is done in the value type (grid points are
// converted to it before they are differenced); the query offset from the interval start is
// formed in the type of the grid passed to the interpolation and then converted to the
// value type.
//
// Threading. Precomputation writes only its workspaces and its result block. Interpolation
// reads the grid and the result block and writes only the scratch and output passed to it,
// so any number of threads may interpolate concurrently from one result block, each with
// scratch of its own. Nothing here allocates; every buffer comes from the caller.
//
// Sizes. The size queries return lengths in elements (value type unless noted). They throw
// std::bad_alloc when a length, or that length times 8 bytes, does not fit in 64 bits, and
// std::invalid_argument for a 1-D grid of fewer than 2 points, d = 0 or a dimension of 0
// points. Every other function trusts its arguments: strictly increasing grids, buffers of
// at least the queried lengths, interval indices k with 0 <= k <= n-2 (0 for a dimension of
// one point), setIndex < numSets.
#pragma once

#include <cstdint>

namespace platform {

// ---- one dimension -----------------------------------------------------------------------
//
// Result block of one value set, n >= 2 points, length 4(n-1) + 1, value type. With
// m = n - 1 intervals:
//     [0, m)        c3[k]  cubic coefficient of interval k
//     [m, 2m)       c2[k]  quadratic coefficient
//     [2m, 3m)      c1[k]  derivative at x_k
//     [3m, 4m + 1)  c0[k]  value y_k, for k = 0..n-1 (one entry more than the other blocks)
// so that on interval k, with s = xq - x_k, the interpolant is ((c3 s + c2) s + c1) s + c0.
// c2 = a + a - b and c3 = (b - a) / h with a = (d_k' - D_k) / h, b = (D_{k+1} - d_k') / h,
// h = x_{k+1} - x_k, d_k' the slope of the interval and D the node derivatives.
//
// Workspace of the 1-D precomputation, length 2n + 3, value type: the n - 1 slopes with two
// extension slopes at each end, then the n node derivatives. Its contents are scratch.

void akimaFixedGrid_precomputeWS_1D(std::uint64_t n, std::uint64_t* workspaceLength,
                                    std::uint64_t* resultLength);

// Fills result (length from the size query) from grid x[0..n) and values y[0..n). A single
// grid with double values is widened by the caller; a double grid with single values is
// rounded to single point by point before differencing.
void akimaFixedGrid_precompute_1D_double(std::uint64_t n, const double* grid, const double* values,
                                         double* workspace, double* result);
void akimaFixedGrid_precompute_1D_float(std::uint64_t n, const float* grid, const float* values,
                                        float* workspace, float* result);
void akimaFixedGrid_precompute_1D_float(std::uint64_t n, const double* grid, const float* values,
                                        float* workspace, float* result);

// Evaluates numQueries queries xq[q] on intervals k[q] into out[q]. result holds numSets
// result blocks of one grid end to end; block setIndex is used (the usual call passes
// setIndex 0, numSets 1). A query on x_k or x_{k+1} returns that node's value; otherwise s =
// xq - x_k is formed in the grid's type and converted to the value type. Queries outside
// the grid (with k = 0 or n - 2) continue the end cubic; a NaN query gives NaN.
// Defined inline below: callers evaluate one query per call, and a call into the library
// would cost as much as the evaluation itself.
inline void akimaFixedGrid_interpolate_1D_double(std::uint64_t n, const double* grid,
                                                 std::uint64_t setIndex, std::uint64_t numSets,
                                                 const double* result, std::uint64_t numQueries,
                                                 const double* xq, const std::uint64_t* k,
                                                 double* out);
inline void akimaFixedGrid_interpolate_1D_float(std::uint64_t n, const double* grid,
                                                std::uint64_t setIndex, std::uint64_t numSets,
                                                const float* result, std::uint64_t numQueries,
                                                const double* xq, const std::uint64_t* k,
                                                float* out);
inline void akimaFixedGrid_interpolate_1D_float(std::uint64_t n, const float* grid,
                                                std::uint64_t setIndex, std::uint64_t numSets,
                                                const float* result, std::uint64_t numQueries,
                                                const float* xq, const std::uint64_t* k,
                                                float* out);

// ---- d dimensions ------------------------------------------------------------------------
//
// Grid: d >= 1 dimensions of dims[j] >= 1 points, grid vector grids[j]; values column-major
// (first dimension fastest), P = dims[0] * ... * dims[d-1] of them.
//
// Result block of one value set, length P * 2^d, value type, node-major: node p (the
// column-major index of the values) owns the 2^d entries [p 2^d, (p + 1) 2^d). Entry S of a
// node, S a bit mask of dimensions, is the derivative operator applied along every
// dimension j whose bit is set in S, in increasing j, to the values; entry 0 is the value.
// Keeping a node's entries together makes one query read 2^d contiguous runs.
//
// Workspaces of the N-D precomputation: the first (value type, 3 max(dims) + 3) holds one
// grid line at a time (its values, its extended slopes, its node derivatives); the second
// (64-bit, d entries) holds the strides of the dimensions. Their contents are scratch.
//
// Scratch of one N-D interpolation: value type 4^d + 2d (the 2^d x 2^d Hermite data of the
// query's cell, reduced in place one dimension at a time, then the per-dimension local
// coordinate and cell width); 64-bit 2^d (the node offsets of the cell's corners). Each
// thread passes its own.

void akimaFixedGrid_precomputeWS(std::uint64_t d, const std::uint64_t* dims,
                                 std::uint64_t* workspace1Length, std::uint64_t* workspace2Length,
                                 std::uint64_t* resultLength);

void akimaFixedGrid_precompute_double(std::uint64_t d, const std::uint64_t* dims,
                                      const double* const* grids, const double* values,
                                      double* workspace1, std::uint64_t* workspace2,
                                      double* result);
void akimaFixedGrid_precompute_double(std::uint64_t d, const std::uint64_t* dims,
                                      const float* const* grids, const double* values,
                                      double* workspace1, std::uint64_t* workspace2,
                                      double* result);
void akimaFixedGrid_precompute_float(std::uint64_t d, const std::uint64_t* dims,
                                     const double* const* grids, const float* values,
                                     float* workspace1, std::uint64_t* workspace2, float* result);
void akimaFixedGrid_precompute_float(std::uint64_t d, const std::uint64_t* dims,
                                     const float* const* grids, const float* values,
                                     float* workspace1, std::uint64_t* workspace2, float* result);

void akimaFixedGrid_interpolateWS(std::uint64_t d, std::uint64_t* scratchLength,
                                  std::uint64_t* indexScratchLength);

// Evaluates numQueries queries: query q has coordinates xq[q d + j] and interval indices
// k[q d + j], j = 0..d-1, and its result goes to out[q]. In dimension j the local coordinate
// t = (x - g[k]) / (g[k+1] - g[k]) is formed in the grid's type, then converted to the value
// type; t = 0 and t = 1 take the lower and upper grid line exactly. Blocks and setIndex as
// in 1-D (numSets result blocks of P 2^d entries end to end).
void akimaFixedGrid_interpolate_double(std::uint64_t d, const std::uint64_t* dims,
                                       const double* const* grids, std::uint64_t setIndex,
                                       std::uint64_t numSets, const double* result,
                                       const double* xq, const std::uint64_t* k,
                                       std::uint64_t numQueries, double* scratch,
                                       std::uint64_t* indexScratch, double* out);
void akimaFixedGrid_interpolate_double(std::uint64_t d, const std::uint64_t* dims,
                                       const float* const* grids, std::uint64_t setIndex,
                                       std::uint64_t numSets, const double* result, const float* xq,
                                       const std::uint64_t* k, std::uint64_t numQueries,
                                       double* scratch, std::uint64_t* indexScratch, double* out);
void akimaFixedGrid_interpolate_float(std::uint64_t d, const std::uint64_t* dims,
                                      const double* const* grids, std::uint64_t setIndex,
                                      std::uint64_t numSets, const float* result, const double* xq,
                                      const std::uint64_t* k, std::uint64_t numQueries,
                                      float* scratch, std::uint64_t* indexScratch, float* out);
void akimaFixedGrid_interpolate_float(std::uint64_t d, const std::uint64_t* dims,
                                      const float* const* grids, std::uint64_t setIndex,
                                      std::uint64_t numSets, const float* result, const float* xq,
                                      const std::uint64_t* k, std::uint64_t numQueries,
                                      float* scratch, std::uint64_t* indexScratch, float* out);

// One query of a grid of D dimensions (D known to the caller at compile time), evaluated
// inline from the block: corner points at the entries of the cell's lowest node (block + node
// index times 2^D), cornerStep[j] is the distance in elements to the next node along j (the
// node stride times 2^D; 0 for a dimension of one point), t[j] and h[j] are the local
// coordinate and cell width as akimaFixedGrid_interpolate forms them. Same operations, and
// so the same bits, as akimaFixedGrid_interpolate; a dimension with t = 0 or t = 1 reads
// only the lower or upper corners. Defined inline below: the call would cost more than
// the evaluation, and a fixed D lets the compiler unroll the 4^D reads.
template <unsigned D, class V>
inline V akimaFixedGrid_interpolateCell(const V* corner, const std::uint64_t* cornerStep,
                                        const V* t, const V* h) noexcept;

// One pass of a full grid of queries (one query vector per dimension), reducing the lowest
// dimension j left: dimension j of the input has n points, and the queries of dimension j
// are the m triples (k[q], t[q], h[q]) formed as akimaFixedGrid_interpolate forms them.
// Input entries sit at 2L (i + n o) + 2x + b: node i along j, o over the outer
// (not yet reduced) dimensions' nodes, x over the L entries the pass keeps per node (the
// combinations of the queries of the dimensions already reduced and the derivative subsets
// of the dimensions after j), b the derivative bit of j. The block itself is the input of
// pass 0 (L = 2^(d-1)). Output entry L (q + m o) + x (times outStride) takes the Hermite step
// along j of the four input entries of (k[q], k[q] + 1) and b = 0, 1: units u = q + m o in
// [uBegin, uEnd) are computed, so that callers may split the work. After passes 0 .. d-1 the
// output is the query grid, column-major, with the bits of akimaFixedGrid_interpolate on
// each of its points (the same steps on the same data, dimension 0 first).
void akimaFixedGrid_griddedPass_double(std::uint64_t L, std::uint64_t n, std::uint64_t m,
                                       const double* in, const std::uint64_t* k, const double* t,
                                       const double* h, std::uint64_t uBegin, std::uint64_t uEnd,
                                       double* out, std::uint64_t outStride);
void akimaFixedGrid_griddedPass_float(std::uint64_t L, std::uint64_t n, std::uint64_t m,
                                      const float* in, const std::uint64_t* k, const float* t,
                                      const float* h, std::uint64_t uBegin, std::uint64_t uEnd,
                                      float* out, std::uint64_t outStride);

// Number of precomputations (1-D and N-D) run in this process so far; lets tests show that
// a cache is filled once.
std::uint64_t akimaFixedGrid_precomputeCount() noexcept;

// ---- inline definitions ------------------------------------------------------------------

namespace akima_detail {
// X: the type the offset is formed in (the grid type as passed).
template <class X, class V>
inline void interpolate1D(std::uint64_t n, const X* grid, std::uint64_t setIndex, const V* result,
                          std::uint64_t numQueries, const X* xq, const std::uint64_t* k,
                          V* out) noexcept {
    const std::uint64_t m = n - 1;
    const V* c3 = result + setIndex * (4 * m + 1);
    const V* c2 = c3 + m;
    const V* c1 = c2 + m;
    const V* c0 = c1 + m;
    for (std::uint64_t q = 0; q < numQueries; ++q) {
        const std::uint64_t i = k[q];
        const X x = xq[q];
        if (x == grid[i]) {
            out[q] = c0[i];
        } else if (x == grid[i + 1]) {
            out[q] = c0[i + 1];
        } else {
            const V s = static_cast<V>(x - grid[i]);
            out[q] = ((c3[i] * s + c2[i]) * s + c1[i]) * s + c0[i];
        }
    }
}
// The cubic Hermite piece on [0, 1] with values a0, a1 and derivatives m0, m1 (per unit of
// the grid) at its ends, cell width h, at local coordinate t (0 < t < 1, or outside).
template <class V>
inline V hermiteInterior(V a0, V a1, V m0, V m1, V t, V h) noexcept {
    const V p0 = h * m0;
    const V p1 = h * m1;
    const V delta = a1 - a0;
    const V a = delta - p0;
    const V b = p1 - delta;
    const V c2 = a + a - b;
    const V c3 = b - a;
    return ((c3 * t + c2) * t + p0) * t + a0;
}

// One Hermite step of the N-D evaluation: the grid lines (t = 0, t = 1) are taken exactly.
template <class V>
inline V hermiteStep(V a0, V a1, V m0, V m1, V t, V h) noexcept {
    if (t == V(0)) return a0;
    if (t == V(1)) return a1;
    return hermiteInterior(a0, a1, m0, m1, t, h);
}

// Entry S (bits of dimensions >= J only) of the cell with dimensions 0 .. J-1 reduced, at the
// corner `at` (lower in those dimensions). Dimension 0 is reduced first, as in the service's
// loop; the data flow, and so every rounding, is that loop's.
template <unsigned J, class V>
inline V reduceCell(const V* at, std::uint64_t S, const std::uint64_t* step, const V* t,
                    const V* h) noexcept {
    if constexpr (J == 0) {
        return at[S];
    } else {
        constexpr unsigned j = J - 1;
        const V tj = t[j];
        if (tj == V(0)) return reduceCell<j>(at, S, step, t, h);
        if (tj == V(1)) return reduceCell<j>(at + step[j], S, step, t, h);
        const std::uint64_t Sd = S | (std::uint64_t{1} << j);
        const V a0 = reduceCell<j>(at, S, step, t, h);
        const V a1 = reduceCell<j>(at + step[j], S, step, t, h);
        const V m0 = reduceCell<j>(at, Sd, step, t, h);
        const V m1 = reduceCell<j>(at + step[j], Sd, step, t, h);
        return hermiteInterior(a0, a1, m0, m1, tj, h[j]);
    }
}
} // namespace akima_detail

template <unsigned D, class V>
inline V akimaFixedGrid_interpolateCell(const V* corner, const std::uint64_t* cornerStep,
                                        const V* t, const V* h) noexcept {
    return akima_detail::reduceCell<D>(corner, 0, cornerStep, t, h);
}

inline void akimaFixedGrid_interpolate_1D_double(std::uint64_t n, const double* grid,
                                                 std::uint64_t setIndex, std::uint64_t,
                                                 const double* result, std::uint64_t numQueries,
                                                 const double* xq, const std::uint64_t* k,
                                                 double* out) {
    akima_detail::interpolate1D(n, grid, setIndex, result, numQueries, xq, k, out);
}
inline void akimaFixedGrid_interpolate_1D_float(std::uint64_t n, const double* grid,
                                                std::uint64_t setIndex, std::uint64_t,
                                                const float* result, std::uint64_t numQueries,
                                                const double* xq, const std::uint64_t* k,
                                                float* out) {
    akima_detail::interpolate1D(n, grid, setIndex, result, numQueries, xq, k, out);
}
inline void akimaFixedGrid_interpolate_1D_float(std::uint64_t n, const float* grid,
                                                std::uint64_t setIndex, std::uint64_t,
                                                const float* result, std::uint64_t numQueries,
                                                const float* xq, const std::uint64_t* k,
                                                float* out) {
    akima_detail::interpolate1D(n, grid, setIndex, result, numQueries, xq, k, out);
}

} // namespace platform
