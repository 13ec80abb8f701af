// The not-a-knot spline coefficient routine and its column solver, instantiated for the value
// types double and float over double and float grids.
#include "mathinterp/methods/SplineCoefficients.hpp"

#include "mathinterp/core/Parallel.hpp"

#include <stdexcept>

namespace mathinterp {

template <class T>
void threadTridiagSolveSpline<T>::operator()(u64 b, u64 e) const noexcept {
    const u64 p = n - 1;
    const T* h = widths;
    for (u64 j = b; j < e; ++j) {
        T* c3 = coefficients + j * 4 * p;
        T* c2 = c3 + p;
        T* r = c3 + 2 * p; // n entries: the last spills into the first of the fourth block
        T* c0 = c3 + 3 * p;
        const T* y = values + j;
        T* delta = c3; // scratch until the cubic terms replace it
        for (u64 k = 0; k < p; ++k)
            delta[k] = (y[(k + 1) * m] - y[k * m]) / h[k];

        // Right-hand side: the not-a-knot rows at both ends, continuity of the second
        // derivative inside.
        r[0] =
            (h[0] * delta[1] + h[1] * delta[0]) * (h[0] / (h[1] + h[0])) + (h[1] + h[1]) * delta[0];
        for (u64 i = 1; i + 1 < n; ++i)
            r[i] = (delta[i - 1] * h[i] + delta[i] * h[i - 1]) * T(3);
        r[n - 1] = (h[n - 2] * delta[n - 3] + delta[n - 2] * h[n - 3]) *
                       (h[n - 2] / (h[n - 3] + h[n - 2])) +
                   (h[n - 3] + h[n - 3]) * delta[n - 2];

        // Forward sweep with the stored multipliers, then back-substitution: r becomes the
        // node slopes.
        for (u64 i = 1; i < n; ++i)
            r[i] = r[i] - multipliers[i] * r[i - 1];
        r[n - 1] = r[n - 1] / diagonal[n - 1];
        for (u64 i = n - 1; i-- > 0;)
            r[i] = (r[i] - super[i] * r[i + 1]) / diagonal[i];

        for (u64 k = 0; k < p; ++k) {
            const T t = (r[k] + r[k + 1] - (delta[k] + delta[k])) / h[k];
            c2[k] = (delta[k] - r[k]) / h[k] - t;
            c3[k] = t / h[k];
        }
        // Last: the first constant term overwrites the last node slope.
        for (u64 k = 0; k < p; ++k)
            c0[k] = y[k * m];
    }
}

namespace {

// One column: matrix rows, elimination and right-hand side in one forward pass, then the
// back-substitution together with the slope-to-coefficient step. The independent work then
// overlaps the two dependency chains of the solve; every value is formed by the same
// operations as in the multi-column path, so both give the same bits.
template <class T>
void solveOneColumn(T* coef, const T* y, const T* h, T* diag, u64 n) {
    const u64 p = n - 1;
    T* c3 = coef;
    T* c2 = coef + p;
    T* r = coef + 2 * p; // n entries: the last spills into the first of the fourth block
    T* c0 = coef + 3 * p;
    T* delta = c3; // scratch until the cubic terms replace it
    delta[0] = (y[1] - y[0]) / h[0];
    delta[1] = (y[2] - y[1]) / h[1];

    diag[0] = h[1];
    T superPrev = h[0] + h[1]; // super-diagonal of the previous row
    r[0] = (h[0] * delta[1] + h[1] * delta[0]) * (h[0] / (h[1] + h[0])) + (h[1] + h[1]) * delta[0];
    for (u64 i = 1; i + 1 < n; ++i) {
        if (i + 1 < p) delta[i + 1] = (y[i + 2] - y[i + 1]) / h[i + 1];
        const T mu = h[i] / diag[i - 1];
        diag[i] = T(2) * (h[i - 1] + h[i]) - mu * superPrev;
        superPrev = h[i - 1];
        const T ri = (delta[i - 1] * h[i] + delta[i] * h[i - 1]) * T(3);
        r[i] = ri - mu * r[i - 1];
    }
    {
        const T mu = (h[n - 3] + h[n - 2]) / diag[n - 2];
        diag[n - 1] = h[n - 3] - mu * superPrev;
        const T rl = (h[n - 2] * delta[n - 3] + delta[n - 2] * h[n - 3]) *
                         (h[n - 2] / (h[n - 3] + h[n - 2])) +
                     (h[n - 3] + h[n - 3]) * delta[n - 2];
        r[n - 1] = rl - mu * r[n - 2];
    }

    auto piece = [&](u64 k) {
        const T t = (r[k] + r[k + 1] - (delta[k] + delta[k])) / h[k];
        c2[k] = (delta[k] - r[k]) / h[k] - t;
        c3[k] = t / h[k];
    };
    r[n - 1] = r[n - 1] / diag[n - 1];
    for (u64 i = n - 2; i > 0; --i) {
        r[i] = (r[i] - h[i - 1] * r[i + 1]) / diag[i];
        piece(i);
    }
    r[0] = (r[0] - (h[0] + h[1]) * r[1]) / diag[0];
    piece(0);
    // Last: the first constant term overwrites the last node slope.
    for (u64 k = 0; k < p; ++k)
        c0[k] = y[k];
}

} // namespace

template <class T, class G>
void splineCoefficientsInto(T* coef, const T* values, const G* grid, u64 n, u64 m) {
    if (n < 2) throw std::invalid_argument("a spline needs at least two points");
    const u64 p = n - 1;
    if (m == 0) return;

    // Workspace: spacings, diagonal, and for several columns the sub- and super-diagonal
    // (n entries each; one column reads the off-diagonals straight from the spacings).
    platform::HostVector<T> work(checkedMul(m == 1 ? 2 : 4, n), T(0));
    T* h = work.data();
    T* diag = h + n;
    T* sub = m == 1 ? nullptr : diag + n;
    T* super = m == 1 ? nullptr : diag + 2 * n;
    for (u64 k = 0; k < p; ++k)
        h[k] = static_cast<T>(grid[k + 1]) - static_cast<T>(grid[k]);

    if (n == 2) {
        for (u64 j = 0; j < m; ++j) {
            T* c = coef + j * 4 * p;
            c[0] = T(0);
            c[1] = T(0);
            c[2] = (values[m + j] - values[j]) / h[0];
            c[3] = values[j];
        }
        return;
    }
    if (n == 3) {
        // The parabola through the three points: one quadratic term on both intervals.
        for (u64 j = 0; j < m; ++j) {
            T* c = coef + j * 4 * p;
            const T y0 = values[j], y1 = values[m + j], y2 = values[2 * m + j];
            const T d0 = (y1 - y0) / h[0];
            const T d1 = (y2 - y1) / h[1];
            const T q = (d1 - d0) / (h[0] + h[1]);
            c[0] = T(0);
            c[1] = T(0);
            c[2] = q;
            c[3] = q;
            c[4] = d0 - q * h[0];
            c[5] = q * h[0] + d0;
            c[6] = y0;
            c[7] = y1;
        }
        return;
    }

    if (m == 1) {
        solveOneColumn(coef, values, h, diag, n);
        return;
    }

    // The matrix of the node slopes, from the spacings only.
    diag[0] = h[1];
    super[0] = h[0] + h[1];
    for (u64 i = 1; i + 1 < n; ++i) {
        sub[i] = h[i];
        diag[i] = T(2) * (h[i - 1] + h[i]);
        super[i] = h[i - 1];
    }
    sub[n - 1] = h[n - 3] + h[n - 2];
    diag[n - 1] = h[n - 3];
    // Forward elimination without pivoting, once for all columns: the multipliers replace
    // the sub-diagonal, the diagonal is modified in place.
    for (u64 i = 1; i < n; ++i) {
        const T mu = sub[i] / diag[i - 1];
        diag[i] = diag[i] - mu * super[i - 1];
        sub[i] = mu;
    }

    threadTridiagSolveSpline<T> body{values, h, sub, diag, super, coef, n, m};
    forEachRange(m, body, 3, 1);
}

template <class T, class G>
SplineRecord<T> splineCoefficients(const T* values, const G* const* grids, const u64* sizes,
                                   u64 d) {
    if (d == 0) throw std::invalid_argument("a spline needs at least one dimension");
    const u64 n = sizes[d - 1];
    if (n < 2) throw std::invalid_argument("a spline needs at least two points");
    u64 m = 1;
    for (u64 k = 0; k + 1 < d; ++k)
        m = checkedMul(m, sizes[k]);
    SplineRecord<T> rec;
    rec.pieces = n - 1;
    rec.columns = m;
    rec.coefficients = allocateHostBlock<T>(cubicCoefficientCount(n - 1, m));
    splineCoefficientsInto(rec.coefficients.get(), values, grids[d - 1], n, m);
    return rec;
}

template struct threadTridiagSolveSpline<double>;
template struct threadTridiagSolveSpline<float>;

#define MATHINTERP_DEFINE_SPLINE_COEFFICIENTS(T, G)                                                \
    template void splineCoefficientsInto<T, G>(T*, const T*, const G*, u64, u64);                  \
    template SplineRecord<T> splineCoefficients<T, G>(const T*, const G* const*, const u64*, u64);
MATHINTERP_DEFINE_SPLINE_COEFFICIENTS(double, double)
MATHINTERP_DEFINE_SPLINE_COEFFICIENTS(double, float)
MATHINTERP_DEFINE_SPLINE_COEFFICIENTS(float, double)
MATHINTERP_DEFINE_SPLINE_COEFFICIENTS(float, float)
#undef MATHINTERP_DEFINE_SPLINE_COEFFICIENTS

} // namespace mathinterp
