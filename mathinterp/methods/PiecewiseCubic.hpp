// Piecewise-cubic coefficient blocks shared by pchip, the 1-D spline and the N-D spline: for
// n points, four blocks of n - 1 entries (cubic, quadratic, linear, constant term), entry k of
// each block belonging to interval [x_k, x_{k+1}], evaluated by Horner's rule in the fixed order
// ((c3*s + c2)*s + c1)*s + c0 with s = xq - x_k. Also the host-allocated block that owns them.
#pragma once

#include "mathinterp/core/Numeric.hpp"
#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/methods/InterpMethod1D.hpp"

#include <platform/HostAllocator.hpp>

#include <memory>
#include <type_traits>

namespace mathinterp {

struct HostFreeDeleter {
    void operator()(void* p) const noexcept { platform::hostFree(p); }
};

// An owned array from the host allocator; freed with the host's matching free.
template <class T>
using HostBlock = std::unique_ptr<T[], HostFreeDeleter>;

// n elements from the host allocator (uninitialised); overflow or a null result is bad_alloc.
template <class T>
HostBlock<T> allocateHostBlock(u64 n) {
    static_assert(std::is_trivially_copyable_v<T>);
    return HostBlock<T>(static_cast<T*>(platform::hostAllocate(checkedBytes<T>(n))));
}

// Number of coefficients for `pieces` intervals and `columns` columns: 4 * pieces * columns.
inline u64 cubicCoefficientCount(u64 pieces, u64 columns) {
    return checkedMul(checkedMul(4, pieces), columns);
}

// The offset type of a 1-D cubic piece: double unless grid and values are both single.
template <class G, class V>
using CubicOffsetType =
    std::conditional_t<std::is_same_v<G, float> && std::is_same_v<V, float>, float, double>;

// s = xq - x_k for the polynomial: the query is first converted to the grid type (position
// arithmetic), the difference is formed in the offset type, and the result is converted to
// the value type in which the polynomial runs.
template <class G, class V, class Q>
inline V cubicOffset(Q xq, G xk) noexcept {
    using S = CubicOffsetType<G, V>;
    const G x = static_cast<G>(xq);
    return static_cast<V>(static_cast<S>(x) - static_cast<S>(xk));
}

// Value of piece k of one column's four blocks (stride `pieces`) at offset s.
template <class V>
inline V hornerCubic(const V* coef, u64 pieces, u64 k, V s) noexcept {
    const V c3 = coef[k];
    const V c2 = coef[pieces + k];
    const V c1 = coef[2 * pieces + k];
    const V c0 = coef[3 * pieces + k];
    return ((c3 * s + c2) * s + c1) * s + c0;
}

// The common part of the 1-D piecewise-cubic methods (pchip, spline): the kernel over one
// column of coefficient blocks and the once-guarded view of them. A derived method owns the
// storage, fills it in complete() through ensureCoefficients and drops it in rebindValues.
// Outside the grid the end pieces continue (interval 0 below x[1], n - 2 from x[n-2] on).
template <class G, class V>
class PiecewiseCubic1D : public InterpMethod1D<G, V> {
    using Base = InterpMethod1D<G, V>;

public:
    PiecewiseCubic1D(const G* grid, u64 n, const V* plane)
        : Base(grid, n, plane), numPieces(n - 1) {}

    // A NaN result (NaN query, or NaN reaching the coefficients from the values) is written
    // as the engine's NaN.
    template <class Q>
    V kernel(Q xq, u64 k) const noexcept {
        const V r = hornerCubic(coef_, numPieces, k, cubicOffset<G, V>(xq, this->gridPoints[k]));
        return isNaN(r) ? engineNaN<V>() : r;
    }

    // The four blocks, or null before the first completion and after rebinding.
    const V* coefficientBlocks() const noexcept { return coef_; }

    u64 numPieces; // n - 1: the stride between the four blocks

protected:
    // fill() stores the blocks and returns a pointer to them; it runs on one thread only.
    template <class Fill>
    void ensureCoefficients(Fill&& fill) {
        guard_.ensure([&] { coef_ = fill(); });
    }
    // Only while no evaluation runs (the caller owns the evaluator).
    void forgetCoefficients() noexcept {
        coef_ = nullptr;
        guard_.reset();
    }

private:
    const V* coef_ = nullptr;
    OnceGuard guard_;
};

} // namespace mathinterp
