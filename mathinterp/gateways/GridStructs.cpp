// gridStructsInterpFcn: interpolation of grids whose values are struct arrays. Every element
// of every numeric field is interpolated at once: the field's elements are gathered into
// value planes (real parts, then imaginary parts for a complex field) and run through one
// N-D linear or nearest evaluator on the gridded queries; the results are then written into
// output struct arrays shaped like the query grid. "boundary" extrapolation clamps a deep copy
// of the queries to the grid, so the caller's arrays are never touched.
#include "mathinterp/ModuleExports.hpp"
#include "mathinterp/core/Parallel.hpp"
#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "mathinterp/interpolant/GridValidation.hpp"
#include "mathinterp/interpolant/Identifiers.hpp"

#include <platform/HostAllocator.hpp>
#include <platform/HostError.hpp>
#include <platform/HostString.hpp>

#include <tbb/enumerable_thread_specific.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace mathinterp {
namespace {

using platform::ClassId;
using platform::HostArray;
using platform::HostError;

constexpr const char* kInterpMessage = "Interpolation must be nearest or linear.";
constexpr const char* kExtrapNotTextMessage = "Extrapolation must be nearest or linear.";
constexpr const char* kExtrapMessage = "Extrapolation must be nearest, linear, or boundary.";
constexpr const char* kGridMessage =
    "Grid vectors (first input) must be a cell of compact grid vectors.";
constexpr const char* kValuesMessage =
    "Grid values (second input) must be a cell of struct arrays matching the grid size.";
constexpr const char* kQueryMessage =
    "Query points (third input) must be a cell with compact grid vectors.";
constexpr const char* kFieldMessage = "Grid values (second input) class or numel mismatch.";

enum class Word { Linear, Nearest, Boundary };

Word parseInterpolationWord(const HostArray& a) {
    std::string s;
    if (!platform::isScalarText(a) || platform::scalarTextToUtf8(a, s) != platform::TextStatus::Ok)
        HostError::raiseText(kInterpMessage);
    if (s == "linear") return Word::Linear;
    if (s == "nearest") return Word::Nearest;
    HostError::raiseText(kInterpMessage);
}

Word parseExtrapolationWord(const HostArray& a) {
    // A non-text input deliberately gets the shorter message.
    if (!platform::isScalarText(a)) HostError::raiseText(kExtrapNotTextMessage);
    std::string s;
    if (platform::scalarTextToUtf8(a, s) != platform::TextStatus::Ok)
        HostError::raiseText(kExtrapMessage);
    if (s == "linear") return Word::Linear;
    if (s == "nearest") return Word::Nearest;
    if (s == "boundary") return Word::Boundary;
    HostError::raiseText(kExtrapMessage);
}

// Presence and class first, then the grid-element checks.
void checkVectorElement(const HostArray& e, ClassId firstClass) {
    if (!e) NumCoordsGridNdimsMismatchErrId::raise();
    if (e.classId() != firstClass) GridOfMixedDataTypesErrId::raise();
    if (e.isComplex()) ComplexDataPointErrId::raise();
    if (e.isSparse()) SparseDataPtErrId::raise();
    if (!e.isFloat()) NonFloatInpPtsErrId::raise();
}

// Per struct array and field: the shape of the field in grid element 0, and whether any
// grid element holds complex data.
struct FieldInfo {
    platform::Dims dims;
    u64 numel = 0;
    bool complex = false;
    std::vector<const void*> data; // per grid element: its value's data, for the gather
};

FieldInfo checkField(const HostArray& s, u64 field, ClassId gridClass) {
    const platform::FieldValueView r = s.fieldView(0, field);
    // Every failure has the same message, so the elements can be checked in any order.
    std::atomic<bool> bad{false}, complex{false};
    FieldInfo info;
    info.data.resize(s.numberOfElements());
    auto check = [&](u64 b, u64 end) {
        bool anyBad = false, anyComplex = false;
        for (u64 g = b; g < end; ++g) {
            const platform::FieldValueView v = s.fieldView(g, field);
            info.data[g] = v.data;
            anyBad = anyBad || !v.present || !platform::isNumericClass(v.cls) ||
                     v.cls != gridClass || v.sparse || v.numel != r.numel;
            anyComplex = anyComplex || v.complex;
        }
        if (anyBad) bad.store(true, std::memory_order_relaxed);
        if (anyComplex) complex.store(true, std::memory_order_relaxed);
    };
    forEachRange(s.numberOfElements(), check);
    if (bad.load()) HostError::raiseText(kFieldMessage);
    info.dims = s.getField(0, field).dimensions();
    info.numel = r.numel;
    info.complex = complex.load();
    return info;
}

template <class G>
struct Problem {
    u64 d = 0;
    std::vector<const G*> grids;
    std::vector<u64> sizes;
    u64 points = 1; // grid points
    HostArray queryCell;
    u64 total = 1; // query points
    MethodId method = MethodId::Linear;
    MethodId extrap = MethodId::Linear;
};

// The query grid is evaluated in sub-grids, one task each: rows [i0, i0 + ni) of the first
// query dimension, every index of the middle ones and columns [j0, j0 + nj) of the last. A
// sub-grid's results (plane-major, about kSubGridBytes) stay in the caches until they are
// transposed into the field block, where each query point's elements lie together; 2 MiB
// beat 0.25, 0.5, 1 and 4 MiB on the benchmark's 16-element fields.
constexpr u64 kSubGridBytes = u64{2048} << 10;
constexpr u64 kRows = 128; // first-dimension extent that sub-grids aim at

struct SubGrids {
    u64 m0 = 1, middle = 1, mLast = 1; // first length, product of the middle ones, last length
    u64 ni = 1, nj = 1;                // sub-grid extents along the first and last dimension
    u64 rowBlocks = 1, count = 1;

    SubGrids(const std::vector<u64>& lengths, u64 bytesPerPoint) {
        const u64 d = lengths.size();
        m0 = lengths[0];
        if (d > 1) mLast = lengths[d - 1];
        for (u64 k = 1; k + 1 < d; ++k)
            middle *= lengths[k];
        const u64 target = std::max<u64>(1, kSubGridBytes / std::max<u64>(1, bytesPerPoint));
        // Wide rather than tall: the separable 2-D linear path does work per grid column
        // the sub-grid's columns touch, which amortises over more columns.
        nj = std::min(mLast, std::max<u64>(1, target / (std::min(m0, kRows) * middle)));
        ni = std::min(m0, std::max<u64>(1, target / (middle * nj)));
        rowBlocks = (m0 + ni - 1) / ni;
        count = rowBlocks * ((mLast + nj - 1) / nj);
    }
};

// Gathers, per grid point g, plane k: part (k < e: real, else imaginary) of element k % e
// of field f; real grid values have imaginary part 0.
template <class G>
struct GatherBody {
    const HostArray* s;
    G* scratch;
    u64 points, f, e;
    bool complex;
    const void* const* data;
    void operator()(u64 b, u64 end) const {
        constexpr u64 kAhead = 16;
        const u64 bytes = e * sizeof(G) * (complex ? 2 : 1);
        for (u64 g = b; g < end; ++g) {
            if (g + kAhead < end) {
                // The first lines of a value a few elements ahead (values are small arrays).
                const auto* next = static_cast<const unsigned char*>(data[g + kAhead]);
                prefetchLine(next);
                if (bytes > 64) prefetchLine(next + 64);
            }
            const G* src = static_cast<const G*>(data[g]);
            if (complex && s->fieldView(g, f).complex) {
                for (u64 k = 0; k < e; ++k) {
                    scratch[k * points + g] = src[2 * k];
                    scratch[(e + k) * points + g] = src[2 * k + 1];
                }
            } else {
                for (u64 k = 0; k < e; ++k)
                    scratch[k * points + g] = src[k];
                if (complex)
                    for (u64 k = 0; k < e; ++k)
                        scratch[(e + k) * points + g] = G(0);
            }
        }
    }
};

// Moves n points' results from plane-major (element k, part c of point q at
// src[k * srcStride + q * parts + c]) to point-major (at dst[q * e * parts + k * parts + c]).
template <class G>
void transposeTile(const G* src, u64 srcStride, G* dst, u64 n, u64 e, u64 parts) {
    const u64 per = e * parts;
    u64 k0 = 0;
#if defined(__SSE2__)
    if constexpr (sizeof(G) == 8) {
        if (parts == 1) {
            // Two elements of two points at a time: a 2x2 transpose of doubles.
            for (; k0 + 2 <= e; k0 += 2) {
                const auto* a = reinterpret_cast<const double*>(src + k0 * srcStride);
                const auto* b = reinterpret_cast<const double*>(src + (k0 + 1) * srcStride);
                auto* d = reinterpret_cast<double*>(dst + k0);
                u64 q = 0;
                for (; q + 2 <= n; q += 2) {
                    const __m128d x = _mm_loadu_pd(a + q), y = _mm_loadu_pd(b + q);
                    _mm_storeu_pd(d + q * per, _mm_unpacklo_pd(x, y));
                    _mm_storeu_pd(d + (q + 1) * per, _mm_unpackhi_pd(x, y));
                }
                for (; q < n; ++q) {
                    d[q * per] = a[q];
                    d[q * per + 1] = b[q];
                }
            }
        }
    }
#endif
    for (u64 k = k0; k < e; ++k)
        for (u64 c = 0; c < parts; ++c) {
            const G* from = src + k * srcStride + c;
            G* to = dst + k * parts + c;
            for (u64 q = 0; q < n; ++q)
                to[q * per] = from[q * parts];
        }
}

// A thread's results buffer, kept for all the sub-grids the thread evaluates.
template <class G>
struct ResultsBuffer {
    std::unique_ptr<G, void (*)(void*)> data{nullptr, platform::hostFree};
};
template <class G>
using ResultsBuffers = tbb::enumerable_thread_specific<ResultsBuffer<G>>;

// Evaluates one sub-grid per call into its thread's buffer and transposes it into the block.
template <class G>
struct SubGridBody {
    static constexpr ClassId cls = sizeof(G) == 8 ? ClassId::Double : ClassId::Single;
    static constexpr u64 kTile = 128; // points per transposed tile
    const Problem<G>* p;
    const SubGrids* sub;
    Evaluator* ev; // evaluation is safe from several threads at once
    const FieldInfo* info;
    G* base; // the field block: query point q's elements start at base + q * per
    ResultsBuffers<G>* buffers;
    u64 bufferBytes; // room for the largest sub-grid

    void operator()(u64 b, u64 end) const {
        for (u64 c = b; c < end; ++c)
            run(c);
    }

    void run(u64 c) const {
        const u64 d = p->d, e = info->numel;
        const u64 parts = info->complex ? 2 : 1, per = e * parts;
        const u64 i0 = (c % sub->rowBlocks) * sub->ni, j0 = (c / sub->rowBlocks) * sub->nj;
        const u64 ni = std::min(sub->ni, sub->m0 - i0);
        const u64 nj = std::min(sub->nj, sub->mLast - j0);
        const u64 count = ni * sub->middle * nj;
        // Views: the caller's coordinates and the buffer outlive the evaluation.
        HostArray queries = HostArray::createCell(1, d);
        for (u64 k = 0; k < d; ++k) {
            const HostArray v = p->queryCell.getCell(k);
            const G* x = v.data<G>();
            if (k == 0)
                queries.setCell(k, HostArray::wrapNumeric(const_cast<G*>(x + i0), {1, ni}, cls,
                                                          false, nullptr, true));
            else if (k == d - 1)
                queries.setCell(k, HostArray::wrapNumeric(const_cast<G*>(x + j0), {1, nj}, cls,
                                                          false, nullptr, true));
            else
                queries.setCell(k, v);
        }
        ResultsBuffer<G>& r = buffers->local();
        if (!r.data) r.data.reset(static_cast<G*>(platform::hostAllocate(bufferBytes)));
        {
            HostArray results =
                HostArray::wrapNumeric(r.data.get(), {count, e}, cls, info->complex, nullptr);
            const SerialScope serial; // this loop already runs on every core
            ev->evaluateGridded(queries, results);
        }
        // Sub-grid row (mid, jj) holds ni consecutive output points.
        for (u64 jj = 0; jj < nj; ++jj)
            for (u64 mid = 0; mid < sub->middle; ++mid) {
                const u64 s0 = (mid + sub->middle * jj) * ni;
                const u64 q0 = i0 + sub->m0 * (mid + sub->middle * (j0 + jj));
                for (u64 t0 = 0; t0 < ni; t0 += kTile) {
                    const u64 t1 = std::min(ni, t0 + kTile);
                    transposeTile(r.data.get() + (s0 + t0) * parts, count * parts,
                                  base + (q0 + t0) * per, t1 - t0, e, parts);
                }
            }
    }
};

// Interpolates field f of struct array s and writes it into field f of every element of out.
template <class G>
void interpolateField(const Problem<G>& p, const HostArray& s, u64 f, const FieldInfo& info,
                      HostArray& out) {
    constexpr ClassId cls = SubGridBody<G>::cls;
    const u64 e = info.numel;
    const u64 planes = checkedMul(e, info.complex ? 2 : 1);
    if (p.total == 0) return;
    // All output arrays of this field are slices of one block.
    const u64 bytes = checkedMul(checkedMul(planes, p.total), sizeof(G));
    // The deleter runs if the control block cannot be allocated.
    const std::shared_ptr<void> block(platform::hostAllocate(bytes), platform::hostFree);
    out.setFieldSlices(f, block.get(), info.dims, cls, info.complex, block);
    if (planes == 0) return; // empty field arrays: nothing to interpolate

    const std::unique_ptr<G, void (*)(void*)> scratch(
        static_cast<G*>(
            platform::hostAllocate(checkedMul(checkedMul(planes, p.points), sizeof(G)))),
        platform::hostFree);
    GatherBody<G> gather{&s, scratch.get(), p.points, f, e, info.complex, info.data.data()};
    forEachRange(p.points, gather);
    EvaluatorSetup<G, G> setup;
    setup.grids = p.grids;
    setup.sizes = p.sizes;
    setup.values = scratch.get();
    setup.pointsPerPlane = p.points;
    setup.numPlanes = planes;
    // The N-D methods serve every dimension count here, one as well.
    auto ev = makeEvaluatorND<G, G>(p.method, p.extrap, setup);

    std::vector<u64> lengths;
    for (u64 k = 0; k < p.d; ++k)
        lengths.push_back(p.queryCell.getCell(k).numberOfElements());
    const SubGrids sub(lengths, planes * sizeof(G));
    ResultsBuffers<G> buffers;
    const u64 bufferBytes =
        checkedMul(checkedMul(checkedMul(sub.ni, sub.middle), sub.nj), planes * sizeof(G));
    SubGridBody<G> body{&p,       &sub,       ev.get(), &info, static_cast<G*>(block.get()),
                        &buffers, bufferBytes};
    // Below the engine's parallel threshold of query points the loop stays on this thread.
    forEachRange(sub.count, body, p.total < PARALLEL_MIN_QUERIES ? ~u64{0} : 2, 1);
}

// A deep copy of the query cell with every coordinate clamped to its grid's range; NaN stays.
template <class G>
HostArray clampedQueries(const Problem<G>& p) {
    HostArray copy = p.queryCell.deepCopy();
    for (u64 k = 0; k < p.d; ++k) {
        HostArray v = copy.getCell(k);
        G* x = v.data<G>();
        const G lo = p.grids[k][0];
        const G hi = p.grids[k][p.sizes[k] - 1];
        for (u64 i = 0; i < v.numberOfElements(); ++i) {
            if (x[i] < lo) x[i] = lo;
            if (x[i] > hi) x[i] = hi;
        }
    }
    return copy;
}

template <class G>
HostArray run(const HostArray& gridCell, const HostArray& valuesCell, const HostArray& queryCell,
              Word interp, Word extrap, std::vector<HostArray>& outputs) {
    Problem<G> p;
    p.d = gridCell.numberOfElements();
    for (u64 k = 0; k < p.d; ++k) {
        const HostArray g = gridCell.getCell(k);
        p.grids.push_back(g.data<G>());
        p.sizes.push_back(g.numberOfElements());
        p.points = checkedMul(p.points, g.numberOfElements());
    }
    p.queryCell = queryCell;
    for (u64 k = 0; k < p.d; ++k)
        p.total = checkedMul(p.total, queryCell.getCell(k).numberOfElements());

    const bool interpLinear = interp == Word::Linear;
    const bool extrapLinear = extrap == Word::Linear || (interpLinear && extrap == Word::Boundary);
    if (interpLinear && extrap == Word::Boundary) p.queryCell = clampedQueries(p);
    p.method = interpLinear ? MethodId::Linear : MethodId::Nearest;
    p.extrap = extrapLinear ? MethodId::Linear : MethodId::Nearest;

    // Every field checked and every output sized before the first is made: the outputs stay
    // alive together, and one field's values are gathered into scratch while it is evaluated.
    std::vector<std::vector<FieldInfo>> infos(outputs.size());
    u64 outputBytes = 0, scratchBytes = 0;
    for (u64 j = 0; j < outputs.size(); ++j) {
        const HostArray s = valuesCell.getCell(j);
        for (u64 f = 0; f < s.numberOfFields(); ++f) {
            infos[j].push_back(checkField(s, f, gridCell.getCell(0).classId()));
            const u64 planes = checkedMul(infos[j].back().numel, infos[j].back().complex ? 2 : 1);
            const u64 planeBytes = checkedMul(planes, sizeof(G));
            outputBytes = checkedAdd(outputBytes, checkedMul(planeBytes, p.total));
            scratchBytes = std::max(scratchBytes, checkedMul(planeBytes, p.points));
        }
    }
    platform::checkMemoryFits(checkedAdd(outputBytes, scratchBytes));

    HostArray outCell = HostArray::createCell(1, valuesCell.numberOfElements());
    for (u64 j = 0; j < outputs.size(); ++j) {
        const HostArray s = valuesCell.getCell(j);
        HostArray& out = outputs[j];
        for (u64 f = 0; f < infos[j].size(); ++f)
            interpolateField(p, s, f, infos[j][f], out);
        outCell.setCell(j, out);
    }
    return outCell;
}

HostArray gridStructsInterp(int nrhs, const HostArray* prhs) {
    // 1. Methods.
    Word interp = Word::Linear;
    if (nrhs >= 4) interp = parseInterpolationWord(prhs[3]);
    Word extrap = interp;
    if (nrhs >= 5) extrap = parseExtrapolationWord(prhs[4]);

    // 2. Grid vectors.
    const HostArray& gridCell = prhs[0];
    if (!gridCell.isCell() || gridCell.numberOfElements() == 0) HostError::raiseText(kGridMessage);
    const u64 d = gridCell.numberOfElements();
    const HostArray first = gridCell.getCell(0);
    const ClassId gridClass = first ? first.classId() : ClassId::Unknown;
    for (u64 k = 0; k < d; ++k) {
        const HostArray g = gridCell.getCell(k);
        checkVectorElement(g, gridClass);
        validateGridVector(g);
        // A dimension needs an interval to interpolate in.
        if (g.numberOfElements() < 2) DegenerateGridErrId::raise();
    }

    // 3. Values cell.
    const HostArray& valuesCell = prhs[1];
    if (!valuesCell.isCell()) HostError::raiseText(kValuesMessage);

    // 4. Query cell.
    const HostArray& queryCell = prhs[2];
    if (!queryCell.isCell() || queryCell.numberOfElements() != d)
        HostError::raiseText(kQueryMessage);
    const HostArray q0 = queryCell.getCell(0);
    const ClassId queryClass = q0 ? q0.classId() : ClassId::Unknown;
    for (u64 k = 0; k < d; ++k)
        checkVectorElement(queryCell.getCell(k), queryClass);
    if (queryClass != gridClass) HostError::raiseText(kQueryMessage);

    // 5. An empty values cell deliberately reports the query message.
    const u64 sets = valuesCell.numberOfElements();
    if (sets == 0) HostError::raiseText(kQueryMessage);

    // 6. Struct arrays and the output struct arrays shaped by the query vectors.
    platform::Dims outDims;
    for (u64 k = 0; k < d; ++k)
        outDims.push_back(queryCell.getCell(k).numberOfElements());
    if (d == 1) outDims.push_back(1);
    std::vector<HostArray> outputs;
    for (u64 j = 0; j < sets; ++j) {
        const HostArray s = valuesCell.getCell(j);
        if (!s || !s.isStruct()) HostError::raiseText(kValuesMessage);
        if (d == 1 && s.isVector2D()) {
            if (s.numberOfElements() != gridCell.getCell(0).numberOfElements())
                HostError::raiseText(kValuesMessage);
        } else {
            if (s.numberOfDimensions() != d) HostError::raiseText(kValuesMessage);
            for (u64 k = 0; k < d; ++k)
                if (s.dimension(k) != gridCell.getCell(k).numberOfElements())
                    HostError::raiseText(kValuesMessage);
        }
        outputs.push_back(HostArray::createStruct(outDims, s.fieldNames()));
    }

    // 7-11. Evaluate in the grid's precision.
    if (gridClass == ClassId::Double)
        return run<double>(gridCell, valuesCell, queryCell, interp, extrap, outputs);
    return run<float>(gridCell, valuesCell, queryCell, interp, extrap, outputs);
}

} // namespace
} // namespace mathinterp

extern "C" void gridStructsInterpFcn(int nlhs, platform::HostArray* plhs, int nrhs,
                                     const platform::HostArray* prhs) {
    try {
        if (nlhs > 1) platform::HostError::tooManyOutputs();
        if (nrhs > 5) platform::HostError::tooManyInputs();
        if (nrhs < 3) platform::HostError::tooFewInputs();
        platform::HostArray result = mathinterp::gridStructsInterp(nrhs, prhs);
        if (plhs) plhs[0] = std::move(result);
    } catch (...) {
        mathinterp::rethrowAsHostError();
    }
}
