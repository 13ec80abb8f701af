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

#include <algorithm>
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
};

FieldInfo checkField(const HostArray& s, u64 field, ClassId gridClass) {
    const u64 points = s.numberOfElements();
    const HostArray& r = s.getField(0, field);
    FieldInfo info;
    for (u64 g = 0; g < points; ++g) {
        const HostArray& v = s.getField(g, field);
        if (!v || !v.isNumeric() || v.classId() != gridClass || v.isSparse() ||
            v.numberOfElements() != r.numberOfElements())
            HostError::raiseText(kFieldMessage);
        info.complex = info.complex || v.isComplex();
    }
    info.dims = r.dimensions();
    info.numel = r.numberOfElements();
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

// Writes the results of `count` consecutive query points, the first being output point q0,
// into field f of their output elements: element k of point q comes from r (plane-major over
// the count points) and goes to the slice of `block` that becomes point q's array. Runs in
// parallel tiles of points, each tile a small transpose plus one batch of array records.
template <class G>
struct ScatterBody {
    static constexpr ClassId cls = sizeof(G) == 8 ? ClassId::Double : ClassId::Single;
    static constexpr u64 kTile = 128;
    const G* r;
    u64 count, q0;
    G* base; // slice of output point 0
    const std::shared_ptr<void>* block;
    const FieldInfo* info;
    HostArray* out;
    u64 f;

    void operator()(u64 b, u64 end) const {
        const u64 e = info->numel;
        const u64 parts = info->complex ? 2 : 1;
        const u64 per = e * parts;
        HostArray made[kTile];
        for (u64 t0 = b; t0 < end; t0 += kTile) {
            const u64 t1 = std::min(end, t0 + kTile);
            G* dst0 = base + (q0 + t0) * per;
            for (u64 k = 0; k < e; ++k)
                for (u64 c = 0; c < parts; ++c) {
                    const G* src = r + (k * count + t0) * parts + c;
                    G* dst = dst0 + k * parts + c;
                    for (u64 q = 0; q < t1 - t0; ++q)
                        dst[q * per] = src[q * parts];
                }
            // One record batch per tile: the threads never share a reference count.
            HostArray::wrapNumericBatch(dst0, info->dims, cls, info->complex, *block, t1 - t0,
                                        made);
            for (u64 q = t0; q < t1; ++q)
                out->setField(q0 + q, f, std::move(made[q - t0]));
        }
    }
};

// Query points per evaluation chunk: the chunk's results stay in cache until scattered.
constexpr u64 kChunkPoints = 32768;

// Interpolates field f of struct array s and writes it into field f of every element of out.
template <class G>
void interpolateField(const Problem<G>& p, const HostArray& s, u64 f, const FieldInfo& info,
                      HostArray& out) {
    constexpr ClassId cls = ScatterBody<G>::cls;
    const u64 e = info.numel;
    const u64 planes = checkedMul(e, info.complex ? 2 : 1);
    if (p.total == 0) return;
    // All output arrays of this field are slices of one block.
    const u64 bytes = checkedMul(checkedMul(planes, p.total), sizeof(G));
    // The deleter runs if the control block cannot be allocated.
    const std::shared_ptr<void> block(platform::hostAllocate(bytes), platform::hostFree);
    G* const base = static_cast<G*>(block.get());
    ScatterBody<G> scatter{nullptr, 0, 0, base, &block, &info, &out, f};
    if (planes == 0) { // empty field arrays: nothing to interpolate
        scatter.count = p.total;
        forEachRange(p.total, scatter);
        return;
    }
    // Gather: plane k holds part (k < e: real, else imaginary) of element k % e of every
    // grid point; real grid values have imaginary part 0.
    platform::HostVector<G> scratch(checkedMul(planes, p.points));
    struct GatherBody {
        const HostArray* s;
        G* scratch;
        u64 points, f, e;
        bool complex;
        void operator()(u64 b, u64 end) const {
            for (u64 g = b; g < end; ++g) {
                const HostArray& v = s->getField(g, f);
                const G* src = v.data<G>();
                if (v.isComplex()) {
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
    } gather{&s, scratch.data(), p.points, f, e, info.complex};
    forEachRange(p.points, gather);
    EvaluatorSetup<G, G> setup;
    setup.grids = p.grids;
    setup.sizes = p.sizes;
    setup.values = scratch.data();
    setup.pointsPerPlane = p.points;
    setup.numPlanes = planes;
    // The N-D methods serve every dimension count here, one as well.
    auto ev = makeEvaluatorND<G, G>(p.method, p.extrap, setup);

    // Evaluate in chunks of whole columns of the last query dimension (consecutive output
    // points), each into one cache-sized results buffer that is then scattered.
    const u64 last = p.d - 1;
    const HostArray lastVector = p.queryCell.getCell(last);
    const G* lastCoords = lastVector.data<G>();
    const u64 inner = p.total / lastVector.numberOfElements();
    const u64 columns = std::max<u64>(1, kChunkPoints / inner);
    platform::HostVector<G> results(
        checkedMul(checkedMul(std::min(columns, lastVector.numberOfElements()), inner), planes));
    HostArray chunkQueries = HostArray::createCell(1, p.d);
    for (u64 k = 0; k < last; ++k)
        chunkQueries.setCell(k, p.queryCell.getCell(k));
    for (u64 j0 = 0; j0 < lastVector.numberOfElements(); j0 += columns) {
        const u64 n = std::min(columns, lastVector.numberOfElements() - j0);
        // Views: the caller's coordinates and the results buffer outlive both.
        chunkQueries.setCell(last, HostArray::wrapNumeric(const_cast<G*>(lastCoords + j0), {1, n},
                                                          cls, false, nullptr, true));
        HostArray chunkResults =
            HostArray::wrapNumeric(results.data(), {n * inner, e}, cls, info.complex, nullptr);
        ev->evaluateGridded(chunkQueries, chunkResults);
        scatter.r = results.data();
        scatter.count = n * inner;
        scatter.q0 = j0 * inner;
        forEachRange(scatter.count, scatter);
    }
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

    HostArray outCell = HostArray::createCell(1, valuesCell.numberOfElements());
    for (u64 j = 0; j < outputs.size(); ++j) {
        const HostArray s = valuesCell.getCell(j);
        HostArray& out = outputs[j];
        const u64 nf = s.numberOfFields();
        std::vector<FieldInfo> infos;
        for (u64 f = 0; f < nf; ++f)
            infos.push_back(checkField(s, f, gridCell.getCell(0).classId()));
        for (u64 f = 0; f < nf; ++f)
            interpolateField(p, s, f, infos[f], out);
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
