// The not-a-knot cubic spline coefficient routine, shared by the 1-D and the N-D spline. It
// fits many columns over one grid vector at once: the tridiagonal matrix depends on the grid
// only and is factorised once; every column then forms its right-hand side, applies the
// stored multipliers, back-substitutes and turns its node slopes into piecewise-cubic blocks
// (layout in PiecewiseCubic.hpp). Columns are independent, so with three or more columns they
// run as a parallel loop (grain 1); the results do not depend on how columns are scheduled.
#pragma once

#include "mathinterp/methods/PiecewiseCubic.hpp"

namespace mathinterp {

// The result of the routine: per column four blocks of `pieces` coefficients, column j's
// blocks starting at j * 4 * pieces.
template <class T>
struct SplineRecord {
    HostBlock<T> coefficients;
    u64 pieces = 0;  // n - 1
    u64 columns = 0; // m
};

// Body of the column loop: for columns [b, e), right-hand side, solve with the factorised
// matrix and conversion of node slopes to coefficients. Reads the shared matrix only; each
// column writes its own four blocks.
template <class T>
struct threadTridiagSolveSpline {
    const T* values;      // point i of column j at i * m + j
    const T* widths;      // h[0 .. n-2]
    const T* multipliers; // elimination multipliers, rows 1 .. n-1
    const T* diagonal;    // factorised diagonal
    const T* super;       // super-diagonal
    T* coefficients;      // column j at j * 4 * (n - 1)
    u64 n;
    u64 m;

    void operator()(u64 b, u64 e) const noexcept;
};

// Fit `m` columns of `n` >= 2 points over `grid` into coef (4 * (n - 1) * m entries; for
// n = 2 the straight line, for n = 3 the parabola, from n = 4 on the not-a-knot spline).
// Grid points are converted to T before they are differenced. Allocates its workspace from
// the host allocator (bad_alloc on failure).
template <class T, class G>
void splineCoefficientsInto(T* coef, const T* values, const G* grid, u64 n, u64 m);

// The spline along the last of d dimensions (lengths sizes[0 .. d-1], grid vectors
// grids[0 .. d-1]): n = sizes[d-1], m = the product of the other lengths, point i of column j
// at values[i * m + j]. The coefficient array comes from the host allocator.
template <class T, class G>
SplineRecord<T> splineCoefficients(const T* values, const G* const* grids, const u64* sizes, u64 d);

#define MATHINTERP_DECLARE_SPLINE_COEFFICIENTS(T, G)                                               \
    extern template void splineCoefficientsInto<T, G>(T*, const T*, const G*, u64, u64);           \
    extern template SplineRecord<T> splineCoefficients<T, G>(const T*, const G* const*,            \
                                                             const u64*, u64);
MATHINTERP_DECLARE_SPLINE_COEFFICIENTS(double, double)
MATHINTERP_DECLARE_SPLINE_COEFFICIENTS(double, float)
MATHINTERP_DECLARE_SPLINE_COEFFICIENTS(float, double)
MATHINTERP_DECLARE_SPLINE_COEFFICIENTS(float, float)
#undef MATHINTERP_DECLARE_SPLINE_COEFFICIENTS
extern template struct threadTridiagSolveSpline<double>;
extern template struct threadTridiagSolveSpline<float>;

} // namespace mathinterp
