// SplineND: the tensor-product not-a-knot cubic spline in N dimensions (per dimension: two
// points give a line, three the parabola through them). Scattered queries use a full table of
// tensor coefficients, built by fitting the 1-D spline along every dimension in turn, and a
// nested Horner evaluation of the 4^d coefficients of the query's cell (last dimension first).
// A full grid of queries is instead reduced one dimension at a time (fit and evaluate along
// the last dimension, then the next), which costs one 1-D fit and evaluation per line instead
// of 4^d operations per output point. Outside the grid the end cells' polynomials continue.
// The tensor table is stored cell by cell: the 4^d coefficients of a cell lie together in the
// order the kernel reduces them, so a scattered query reads one contiguous block (2 cache
// lines in 2-D, 8 in 3-D) instead of 4^d scattered entries; the arithmetic is unchanged.
// Thread safety: the index tables and both coefficient tables are built once under guards on
// the calling thread; kernels only read. rebindValues drops both coefficient tables.
#pragma once

#include "mathinterp/core/OnceGuard.hpp"
#include "mathinterp/core/Parallel.hpp"
#include "mathinterp/methods/InterpMethodND.hpp"
#include "mathinterp/methods/PiecewiseCubic.hpp"
#include "mathinterp/methods/SplineCoefficients.hpp"

#include <algorithm>
#include <utility>

namespace mathinterp {

// NaN results (NaN queries or NaN values) are written as the engine's NaN.
template <class V>
inline V nanAsEngine(V r) noexcept {
    return isNaN(r) ? engineNaN<V>() : r;
}

template <class G, class V>
class SplineND final : public InterpMethodND<G, V> {
    using Base = InterpMethodND<G, V>;

public:
    static constexpr bool available = true;
    static constexpr bool hasGriddedPath = true;

    // The cell (interval index) and s = x - g[i], formed in G and converted to V.
    struct Pair {
        u64 index;
        V s;
    };
    using Buffer = DefaultBuffer<V>;

    // Spline coefficients along dimension d-1 only, one line per point of the other
    // dimensions (used by gridded evaluation): per line four blocks of `pieces` coefficients.
    struct LastDimTable {
        HostBlock<V> coefficients;
        u64 pieces = 0; // n_(d-1) - 1
        u64 lines = 0;  // n_0 * ... * n_(d-2)
    };
    // The full tensor table (used by scattered evaluation): cell (i_0, ..., i_(d-1)) at
    // sum i_k * coefficientStrides[k]; within a cell, entry c (base-4 digits c_k, dimension 0
    // least significant) is the coefficient of s_0^(3-c_0) * ... * s_(d-1)^(3-c_(d-1)).
    struct CoefficientTable {
        HostBlock<V> coefficients;
        u64 lastIndex0 = 0; // 4 (n_0 - 1) - 1
        u64 lines = 0;      // lines of the last pass
    };

    SplineND(const G* const* grids, const u64* sizes, const V* valuesPlane, u64 d)
        : Base(grids, sizes, valuesPlane, d), neighbourhoodSize(checkedPow4(d)) {}

    // Tables depend on the query form: prepareForPoints and the gridded path prepare them.
    void prepare() override {}

    // Index tables and the full coefficient table, before any per-point kernel runs. A table
    // past the memory budget is refused before its first pass, with the way around it.
    void prepareForPoints() {
        try {
            if (!tableGuard_.ready()) platform::checkMemoryFits(checkedBytes<V>(tablePeak()));
            prepareIndexTables();
            tableGuard_.ensure([this] { buildCoefficientTable(); });
        } catch (const platform::MemoryLimitError& e) {
            throw e.withHint("Scattered queries to an N-D spline need its full coefficient table "
                             "(4^d x prod(n_k - 1) values); a full grid of queries (one vector "
                             "per dimension) needs no such table.");
        }
    }

    // Only while no evaluation runs: both coefficient tables are recomputed on their next use.
    void rebindValues(const V* plane) noexcept {
        this->values = plane;
        tableGuard_.reset();
        lastDimGuard_.reset();
        coefficientTable = CoefficientTable{};
        lastDimTable = LastDimTable{};
    }

    // The general kernel's first reduction leaves 4^(d-1) values; later ones fewer.
    Buffer makeBuffer() const { return Buffer(std::max<u64>(1, neighbourhoodSize / 4)); }

    template <class Q>
    Pair makePair(u64 k, Q xq, u64 i) const noexcept {
        const G x = static_cast<G>(xq);
        return {i, static_cast<V>(x - this->gridVectors[k][i])};
    }

    // Nested Horner over the 4^d coefficients of the cell, last dimension first: with m
    // entries left, r_j = ((r_j s + r_(m+j)) s + r_(2m+j)) s + r_(3m+j) for j < m / 4.
    V kernel(const Pair* p, Buffer& scratch) const noexcept {
        const u64 d = this->numDims;
        const V* cell = coefficientTable.coefficients.get();
        for (u64 k = 0; k < d; ++k)
            cell += p[k].index * coefficientStrides[k];
        switch (d) {
        case 2:
            return nanAsEngine(reduceFixed<2>(cell, p));
        case 3:
            return nanAsEngine(reduceFixed<3>(cell, p));
        default:
            break;
        }
        V* r = scratch.data();
        u64 m = neighbourhoodSize;
        const V* src = cell;
        for (u64 k = d; k-- > 0;) {
            const V s = p[k].s;
            m >>= 2;
            for (u64 j = 0; j < m; ++j) {
                V v = src[j];
                v = s * v + src[m + j];
                v = s * v + src[2 * m + j];
                v = s * v + src[3 * m + j];
                r[j] = v;
            }
            src = r;
        }
        return nanAsEngine(r[0]);
    }

    // Ask for the cell's coefficient block ahead of the kernel (results do not depend on it):
    // 4^d values in a row, so a scattered query misses in cache on every line of it.
    void prefetch(const Pair* p) const noexcept {
        const V* cell = coefficientTable.coefficients.get();
        for (u64 k = 0; k < this->numDims; ++k)
            cell += p[k].index * coefficientStrides[k];
        const char* first = reinterpret_cast<const char*>(cell);
        const u64 bytes = (neighbourhoodSize - 1) * sizeof(V);
        for (u64 at = 0; at < bytes; at += 64)
            prefetchLine(first + at);
        prefetchLine(first + bytes);
    }

    // A full grid of queries for this plane: results column-major over the query lengths,
    // result j at out[j * stride].
    void evaluateGriddedPlane(const GriddedPairs<Pair>& q, V* out, u64 stride);

    LastDimTable lastDimTable;                    // empty until a gridded evaluation needs it
    CoefficientTable coefficientTable;            // empty until a scattered evaluation needs it
    platform::HostVector<u64> coefficientStrides; // 4^d * (n_0 - 1) * ... * (n_(k-1) - 1)
    u64 neighbourhoodSize;                        // 4^d
    u64 workLength = 0;                           // the largest n_k

    bool indexTablesReady() const noexcept { return indexGuard_.ready(); }

private:
    // The same nested Horner with the dimension count known at compile time (2-D and 3-D),
    // written as a recursion from dimension 0 outwards: the innermost steps run over the last
    // dimension, exactly as the general loop orders them, so the bits are the same.
    template <u64 D>
    static V reduceFixed(const V* cell, const Pair* p) noexcept {
        V s[D];
        for (u64 k = 0; k < D; ++k)
            s[k] = p[k].s;
        return horner<0, D>(cell, s);
    }

    // Dimensions K..D-1 of the entries whose digits below K are fixed by `at`.
    template <u64 K, u64 D>
    static V horner(const V* at, const V* s) noexcept {
        constexpr u64 step = u64{1} << (2 * K);
        V a, b, c, e;
        if constexpr (K + 1 == D) {
            a = at[0], b = at[step], c = at[2 * step], e = at[3 * step];
        } else {
            a = horner<K + 1, D>(at, s);
            b = horner<K + 1, D>(at + step, s);
            c = horner<K + 1, D>(at + 2 * step, s);
            e = horner<K + 1, D>(at + 3 * step, s);
        }
        V v = a;
        v = s[K] * v + b;
        v = s[K] * v + c;
        v = s[K] * v + e;
        return v;
    }

    void prepareIndexTables() {
        indexGuard_.ensure([this] {
            const u64 d = this->numDims;
            u64 size = neighbourhoodSize; // the full table's element count, checked first
            for (u64 k = 0; k < d; ++k)
                size = checkedMul(size, this->gridSizes[k] - 1);
            static_cast<void>(checkedBytes<V>(size));
            platform::HostVector<u64> cs(d);
            u64 stride = neighbourhoodSize;
            u64 longest = 0;
            for (u64 k = 0; k < d; ++k) {
                cs[k] = stride;
                stride *= this->gridSizes[k] - 1;
                longest = std::max(longest, this->gridSizes[k]);
            }
            coefficientStrides.swap(cs);
            workLength = longest;
        });
    }

    // Elements alive at the peak of buildCoefficientTable: two intermediates during a pass,
    // the last one beside the table; every product overflow-checked.
    u64 tablePeak() const {
        const u64 d = this->numDims;
        const u64* n = this->gridSizes.data();
        u64 size = 1, table = neighbourhoodSize;
        for (u64 k = 0; k < d; ++k) {
            size = checkedMul(size, n[k]);
            table = checkedMul(table, n[k] - 1);
        }
        u64 peak = 0, previous = 0;
        for (u64 k = d; k-- > 1;) {
            const u64 next = checkedMul(checkedMul(4, n[k] - 1), size / n[k]);
            peak = std::max(peak, checkedAdd(previous, next));
            previous = size = next;
        }
        return std::max(peak, checkedAdd(previous, table));
    }

    // Fit along dimensions d-1 down to 1; each pass moves its coefficient axis (four blocks of
    // n_k - 1) to the front. The last pass, along dimension 0, runs in chunks of lines and
    // stores every coefficient at its place in its cell's block.
    void buildCoefficientTable() {
        const u64 d = this->numDims;
        const u64* n = this->gridSizes.data();
        u64 total = 1;
        for (u64 k = 0; k < d; ++k)
            total = checkedMul(total, n[k]);
        u64 tableSize = neighbourhoodSize;
        for (u64 k = 0; k < d; ++k)
            tableSize = checkedMul(tableSize, n[k] - 1);
        const V* source = this->values;
        HostBlock<V> current;
        for (u64 k = d; k-- > 1;) {
            const u64 lines = total / n[k];
            const u64 len = 4 * (n[k] - 1);
            HostBlock<V> next = allocateHostBlock<V>(checkedMul(len, lines));
            splineCoefficientsInto<V, G>(next.get(), source, this->gridVectors[k], n[k], lines);
            current = std::move(next); // frees the previous intermediate
            source = current.get();
            total = len * lines;
        }
        HostBlock<V> table = allocateHostBlock<V>(tableSize);
        const u64 lines = total / n[0];
        packLastPass(table.get(), source, lines);
        coefficientTable.coefficients = std::move(table);
        coefficientTable.lastIndex0 = 4 * (n[0] - 1) - 1;
        coefficientTable.lines = lines;
    }

    // Line l of the last pass is the position (p_k * (n_k - 1) + i_k for k = 1 .. d-1, mixed
    // radix, dimension 1 fastest): block p_k, interval i_k.
    void packLastPass(V* table, const V* source, u64 lines) const {
        const u64 d = this->numDims;
        const u64 n0 = this->gridSizes[0];
        const u64 p0 = n0 - 1;
        const u64 width = std::max<u64>(8, (u64{1} << 16) / n0); // lines per chunk
        const u64 chunks = (lines + width - 1) / width;
        struct Body {
            const SplineND* self;
            V* table;
            const V* source;
            u64 lines, width, n0, p0, d;
            void operator()(u64 cb, u64 ce) const {
                platform::HostVector<V> in(n0 * width), coef(4 * p0 * width);
                const u64 nb = self->neighbourhoodSize;
                const u64* cs = self->coefficientStrides.data();
                for (u64 chunk = cb; chunk < ce; ++chunk) {
                    const u64 a = chunk * width;
                    const u64 w = std::min(width, lines - a);
                    for (u64 j = 0; j < n0; ++j)
                        for (u64 l = 0; l < w; ++l)
                            in[j * w + l] = source[j * lines + a + l];
                    splineCoefficientsInto<V, G>(coef.data(), in.data(), self->gridVectors[0], n0,
                                                 w);
                    for (u64 l = 0; l < w; ++l) {
                        u64 rest = a + l, at = 0, digit = 4, c = 0;
                        for (u64 k = 1; k < d; ++k) {
                            const u64 pk = self->gridSizes[k] - 1;
                            const u64 pos = rest % (4 * pk);
                            rest /= 4 * pk;
                            at += (pos % pk) * cs[k];
                            c += (pos / pk) * digit;
                            digit *= 4;
                        }
                        const V* src = coef.data() + l * 4 * p0;
                        for (u64 b = 0; b < 4; ++b)
                            for (u64 i = 0; i < p0; ++i)
                                table[at + i * nb + c + b] = src[b * p0 + i];
                    }
                }
            }
        } body{this, table, source, lines, width, n0, p0, d};
        forEachRange(chunks, body, 2, 1);
    }

    void ensureLastDimTable() {
        lastDimGuard_.ensure([this] {
            const u64 d = this->numDims;
            SplineRecord<V> rec = splineCoefficients<V, G>(this->values, this->gridVectors.data(),
                                                           this->gridSizes.data(), d);
            lastDimTable.coefficients = std::move(rec.coefficients);
            lastDimTable.pieces = rec.pieces;
            lastDimTable.lines = rec.columns;
        });
    }

    OnceGuard indexGuard_;
    OnceGuard tableGuard_;
    OnceGuard lastDimGuard_;
};

namespace detail {

// Evaluate `lines` lines of 1-D piecewise cubics (line l's four blocks of `pieces` at
// coef + l * 4 * pieces) at m query pairs; result j of line l goes to out[(l * m + j) * stride].
template <class V, class Pair>
void evaluateLines(const V* coef, u64 pieces, u64 lines, const Pair* pairs, u64 m, V* out,
                   u64 stride) {
    struct Body {
        const V* coef;
        u64 pieces;
        const Pair* pairs;
        u64 m;
        V* out;
        u64 stride;
        void operator()(u64 b, u64 e) const noexcept {
            for (u64 l = b; l < e; ++l) {
                const V* c = coef + l * 4 * pieces;
                V* o = out + l * m * stride;
                for (u64 j = 0; j < m; ++j)
                    o[j * stride] = nanAsEngine(hornerCubic(c, pieces, pairs[j].index, pairs[j].s));
            }
        }
    } body{coef, pieces, pairs, m, out, stride};
    // Parallel once there are enough results; each task gets about QUERY_GRAIN of them.
    const u64 grain = std::max<u64>(1, QUERY_GRAIN / std::max<u64>(m, 1));
    if (lines * m < PARALLEL_MIN_QUERIES)
        body(0, lines);
    else
        forEachRange(lines, body, 2, grain);
}

// Fit `lines` columns (point j of column l at src[j * lines + l]) over `grid` and evaluate
// each at the m query pairs; result j of column l goes to dst[(l * m + j) * stride]. Columns go
// in chunks that fit in cache (gathered, fitted, evaluated), so no full-size coefficient array
// is made; per column the arithmetic is that of the whole-array fit. src and dst must differ.
template <class V, class G, class Pair>
void fitAndEvaluateLines(const V* src, u64 lines, const G* grid, u64 n, const Pair* pairs, u64 m,
                         V* dst, u64 stride) {
    const u64 width = std::max<u64>(4, (u64{1} << 15) / n);
    const u64 chunks = (lines + width - 1) / width;
    struct Body {
        const V* src;
        u64 lines, width;
        const G* grid;
        u64 n;
        const Pair* pairs;
        u64 m;
        V* dst;
        u64 stride;
        void operator()(u64 cb, u64 ce) const {
            const u64 pieces = n - 1;
            platform::HostVector<V> in(n * width), coef(4 * pieces * width);
            for (u64 chunk = cb; chunk < ce; ++chunk) {
                const u64 a = chunk * width;
                const u64 w = std::min(width, lines - a);
                for (u64 j = 0; j < n; ++j)
                    for (u64 l = 0; l < w; ++l)
                        in[j * w + l] = src[j * lines + a + l];
                splineCoefficientsInto<V, G>(coef.data(), in.data(), grid, n, w);
                evaluateLines(coef.data(), pieces, w, pairs, m, dst + a * m * stride, stride);
            }
        }
    } body{src, lines, width, grid, n, pairs, m, dst, stride};
    if (chunks == 1)
        body(0, 1);
    else
        forEachRange(chunks, body, 2, 1);
}

} // namespace detail

template <class G, class V>
void SplineND<G, V>::evaluateGriddedPlane(const GriddedPairs<Pair>& q, V* out, u64 stride) {
    const u64 d = this->numDims;
    const u64* n = this->gridSizes.data();
    const u64* m = q.lengths;
    if (q.total == 0) return;

    // Every size first, overflow-checked, before anything is allocated. Pass k (from d-1 down
    // to 0) works on L_k = n_0 ... n_(k-1) * m_(k+1) ... m_(d-1) lines and leaves m_k L_k
    // results; pass 0 leaves the output.
    auto linesOf = [&](u64 k) {
        u64 lines = 1;
        for (u64 j = 0; j < k; ++j)
            lines = checkedMul(lines, n[j]);
        for (u64 j = k + 1; j < d; ++j)
            lines = checkedMul(lines, m[j]);
        return lines;
    };
    u64 largest = 0;
    for (u64 k = d; k-- > 0;) {
        const u64 lines = linesOf(k);
        const u64 result = checkedMul(m[k], lines);
        static_cast<void>(checkedMul(checkedMul(4, n[k] - 1), lines));
        if (k > 0) largest = std::max(largest, result);
    }
    // The intermediates (two unless the output serves as one) and the cached last-dimension
    // table, checked against the memory budget before the first of them is made.
    const bool inOutput = stride == 1 && largest <= q.total;
    u64 peak = 0;
    if (d > 1) peak = largest;
    if (d > 2 && !inOutput) peak = checkedAdd(peak, largest);
    if (!lastDimGuard_.ready()) {
        u64 lines = 1;
        for (u64 j = 0; j + 1 < d; ++j)
            lines = checkedMul(lines, n[j]);
        peak = checkedAdd(peak, checkedMul(checkedMul(4, n[d - 1] - 1), lines));
    }
    platform::checkMemoryFits(checkedBytes<V>(peak));

    prepareIndexTables();
    ensureLastDimTable();

    // Passes alternate between two buffers and pass 0 writes the output. The output serves as
    // one of them when it is real (stride 1: nothing else is stored in this plane's part) and
    // every intermediate fits; the passes of the same parity as pass 0 then write there.
    HostBlock<V> first, second;
    if (d > 1) first = allocateHostBlock<V>(largest);
    if (d > 2 && !inOutput) second = allocateHostBlock<V>(largest);
    auto bufferOf = [&](u64 k) -> V* {
        if (k == 0) return out;
        if (k % 2 == 1) return first.get();
        return inOutput ? out : second.get();
    };

    // Pass d-1: the cached table evaluated at the last dimension's queries.
    const u64 top = d - 1;
    detail::evaluateLines(lastDimTable.coefficients.get(), lastDimTable.pieces, lastDimTable.lines,
                          q.tables[top], m[top], bufferOf(top), top == 0 ? stride : 1);
    // Passes d-2 .. 0: the intermediate has n_k varying slowest; fit along it and evaluate.
    for (u64 k = top; k-- > 0;) {
        const V* src = bufferOf(k + 1);
        const u64 lines = linesOf(k);
        detail::fitAndEvaluateLines(src, lines, this->gridVectors[k], n[k], q.tables[k], m[k],
                                    bufferOf(k), k == 0 ? stride : 1);
    }
}

} // namespace mathinterp
