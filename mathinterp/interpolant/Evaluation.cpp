// Evaluation F(q1, ..., qk) and the gradient at the same query forms: classifies the query
// form, validates it, shapes the output (the values' class and complexity, whatever the
// queries' class) and runs the evaluator, or the gradient kernels over it. All
// checks precede the output and the engine; the lazy build of the evaluator commits only on
// success, so a failed evaluation leaves grid, values and words unchanged.
#include "mathinterp/interpolant/GradientDispatch.hpp"
#include "mathinterp/interpolant/GridValidation.hpp"
#include "mathinterp/interpolant/GriddedInterpolant.hpp"
#include "mathinterp/interpolant/Identifiers.hpp"
#include "mathinterp/interpolant/InterpolantAccess.hpp"
#include "mathinterp/interpolant/Selection.hpp"

#include <cstring>
#include <vector>

namespace mathinterp {

using platform::ClassId;
using platform::Dims;
using platform::HostArray;

namespace {

void checkQueryArray(const HostArray& a) {
    if (!a.isFloat()) NonFloatInpPtsErrId::raise();
    if (a.isSparse()) SparseDataPtErrId::raise();
    if (a.isComplex()) ComplexDataPointErrId::raise();
}

// The extents of the values beyond the d grid dimensions (none for a 1-D vector).
Dims valueSetExtents(const HostArray& v, u64 d) {
    if (d == 1 && v.isVector2D()) return {};
    const Dims& dims = v.dimensions();
    if (dims.size() <= d) return {};
    return Dims(dims.begin() + static_cast<std::ptrdiff_t>(d), dims.end());
}

// d ones: the frame of a scattered result with value sets (the query's dims fill it in).
Dims scatteredFrame(u64 d) {
    return Dims(d, 1);
}

Dims appendExtents(Dims front, const Dims& tail) {
    front.insert(front.end(), tail.begin(), tail.end());
    return front;
}

// d query arrays of one class and size as one buffer: array k at elements [k*m, (k+1)*m).
HostArray packColumns(const HostArray* arrays, u64 d, u64 m) {
    HostArray packed = HostArray::createUninitialisedNumeric({m, d}, arrays[0].classId());
    const std::size_t bytes = checkedBytes<unsigned char>(checkedMul(m, arrays[0].elementBytes()));
    auto* dst = static_cast<unsigned char*>(packed.rawData());
    for (u64 k = 0; k < d; ++k)
        std::memcpy(dst + k * bytes, arrays[k].rawData(), bytes);
    return packed;
}

// The words the evaluator was built from (stored after the build, fallbacks applied).
MethodPair finalWords(const HostArray& method, const HostArray& extrap) {
    MethodPair p;
    p.method = parseMethodWord(method, true);
    p.extrap = parseMethodWord(extrap, false);
    return p;
}

} // namespace

void GriddedInterpolant::prepareEvaluation() {
    if (values_.isNull()) DegenerateGridErrId::raise();
    if (values_.isEmpty()) validateValues(values_, 0);
    if (evaluator_) return;
    validateValues(values_, gridVectors_.numberOfElements());
    validateCellGrid(gridVectors_, values_);
    const MethodPair words = chooseMethods(method_, extrapMethod_, gridVectors_, gridDefaulted_);
    std::shared_ptr<Evaluator> ev = makeObjectEvaluator(*this, words);
    HostArray m = HostArray::charRow(methodWord(words.method));
    HostArray e = HostArray::charRow(methodWord(words.extrap));
    method_ = std::move(m);
    extrapMethod_ = std::move(e);
    evaluator_ = std::move(ev);
    evaluatorCurrent_ = static_cast<bool>(evaluator_);
}

HostArray GriddedInterpolant::evaluate(int nq, const HostArray* queries) {
    return runQueries(nq, queries, 0);
}

HostArray GriddedInterpolant::gradient(int nq, const HostArray* queries) {
    return runQueries(nq, queries, 1);
}

HostArray GriddedInterpolant::derivative(const HostArray& xq, int order) {
    if (order != 1 && order != 2) DerivativeOrderErrId::raise();
    if (!gridVectors_.isNull() && gridVectors_.numberOfElements() != 1)
        Derivative1DOnlyErrId::raise();
    return runQueries(1, &xq, order);
}

HostArray GriddedInterpolant::runQueries(int nq, const HostArray* queries, int order) {
    prepareEvaluation();
    const std::shared_ptr<Evaluator> ev = evaluator_; // held for the whole call
    const HostArray values = values_;
    const u64 d = gridVectors_.numberOfElements();
    const ClassId cls = values.classId();
    const bool complex = values.isComplex();
    const Dims setExtents = valueSetExtents(values, d);
    // frame: the dims of the query part; a gradient adds the axis of the d components.
    auto makeOutput = [&](Dims frame) {
        if (order != 0 && d > 1) frame.push_back(d);
        return HostArray::createUninitialisedNumeric(appendExtents(std::move(frame), setExtents),
                                                     cls, complex);
    };
    const MethodPair words = order == 0 ? MethodPair{} : finalWords(method_, extrapMethod_);
    auto run = [&](bool gridded, u64 m, const HostArray& q, HostArray& out) {
        if (order == 0) {
            if (gridded)
                ev->evaluateGridded(q, out);
            else
                ev->evaluateScattered(m, q, out);
            return;
        }
        const GradientJob job{words.method, words.extrap, gridded, m, &q, &out, order};
        const bool gridSingle = gridVectors_.getCell(0).classId() == ClassId::Single;
        const bool valuesSingle = cls == ClassId::Single;
        auto family = [&](auto g, auto v) {
            using G = decltype(g);
            using V = decltype(v);
            if (d == 1)
                runGradient1D<G, V>(*ev, job);
            else
                runGradientND<G, V>(*ev, job);
        };
        if (gridSingle)
            valuesSingle ? family(float{}, float{}) : family(float{}, double{});
        else
            valuesSingle ? family(double{}, float{}) : family(double{}, double{});
    };

    if (nq != 1) {
        // Several coordinate arrays: an ndgrid (gridded) or d arrays of points (scattered).
        if (nq < 0 || static_cast<u64>(nq) != d) BadArgInterpEvalErrId::raise(d);
        const ClassId qcls = queries[0].classId();
        for (u64 k = 0; k < d; ++k) {
            checkQueryArray(queries[k]);
            if (queries[k].classId() != qcls) QueryOfMixedDataTypesErrId::raise();
        }
        const Dims qdims = queries[0].dimensions();
        for (u64 k = 1; k < d; ++k)
            if (queries[k].dimensions() != qdims) InputMixSizeErrId::raise();
        const u64 m = queries[0].numberOfElements();
        if (m != 0) {
            if (auto vecs = extractNdgrid(queries, d)) {
                HostArray out = makeOutput(qdims);
                run(true, 0, makeCell(*vecs), out);
                return out;
            }
            // Meshgrid-ordered queries are evaluated point by point, with a warning.
            if (isMeshgridOrder(queries, d))
                warn(d == 2 ? WarningId::MeshgridEval2DWarnId : WarningId::MeshgridEval3DWarnId);
        }
        Dims frame = qdims;
        if (!setExtents.empty()) {
            frame = scatteredFrame(d);
            if (qdims.size() <= d)
                std::copy(qdims.begin(), qdims.end(), frame.begin());
            else
                frame[0] = m;
        }
        HostArray out = makeOutput(std::move(frame));
        if (m == 0) return out;
        const HostArray packed = packColumns(queries, d, m);
        run(false, m, packed, out);
        return out;
    }

    const HostArray& q = queries[0];
    if (!q.isCell()) {
        checkQueryArray(q);
        if (d >= 2) {
            // A point matrix: one point per row, coordinate j in column j.
            if (q.numberOfDimensions() != 2 || q.dimension(1) != d) BadArgInterpEvalErrId::raise(d);
            const u64 m = q.dimension(0);
            Dims frame = order == 0 ? Dims{m, 1} : Dims{m}; // a gradient: m x d
            if (!setExtents.empty()) {
                frame = scatteredFrame(d);
                frame[0] = m;
            }
            HostArray out = makeOutput(std::move(frame));
            if (m > 0) run(false, m, q, out);
            return out;
        }
        const u64 m = q.numberOfElements();
        Dims frame = q.dimensions();
        if (!values.isVector2D()) frame = Dims{m};
        HostArray out = makeOutput(std::move(frame));
        if (m > 0) run(false, m, q, out);
        return out;
    }

    // A cell of query vectors: gridded.
    if (q.numberOfElements() != d) NumCoordsGridNdimsMismatchErrId::raise();
    for (u64 k = 0; k < d; ++k)
        if (q.getCell(k).isNull()) NumCoordsGridNdimsMismatchErrId::raise();
    const ClassId qcls = q.getCell(0).classId();
    for (u64 k = 0; k < d; ++k) {
        const HostArray c = q.getCell(k);
        checkQueryArray(c);
        if (c.classId() != qcls) GridOfMixedDataTypesErrId::raise();
    }
    Dims lengths(d);
    for (u64 k = 0; k < d; ++k) {
        const HostArray c = q.getCell(k);
        if (!c.isEmpty() && !c.isVector2D()) NonVecCompVecErrId::raise();
        lengths[k] = c.numberOfElements();
    }
    HostArray out = makeOutput(std::move(lengths));
    if (out.numberOfElements() > 0) run(true, 0, q, out);
    return out;
}

} // namespace mathinterp
