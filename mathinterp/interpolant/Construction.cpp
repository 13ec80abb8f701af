// GriddedInterpolant construction from host arguments, the property setters and the
// after-load fix-up. Everything is validated into locals first and committed at the end, so
// a failure leaves the object empty (construction) or unchanged (setters).
#include "mathinterp/core/ComplexSplit.hpp"
#include "mathinterp/interpolant/GridValidation.hpp"
#include "mathinterp/interpolant/GriddedInterpolant.hpp"
#include "mathinterp/interpolant/Identifiers.hpp"
#include "mathinterp/interpolant/InterpolantAccess.hpp"
#include "mathinterp/interpolant/Selection.hpp"

#include <platform/HostString.hpp>

#include <string>
#include <vector>

namespace mathinterp {

using platform::ClassId;
using platform::HostArray;

namespace {

HostArray wordArray(MethodId m) {
    return HostArray::charRow(methodWord(m));
}

// A split-layout array (from ValuesForCopy) that fits complex values v.
bool splitFits(const HostArray& internal, const HostArray& v) {
    return !internal.isNull() && !internal.isComplex() && internal.classId() == v.classId() &&
           internal.numberOfElements() == checkedMul(v.numberOfElements(), 2);
}

} // namespace

HostArray makeInternalValues(const HostArray& values) {
    if (!values.isComplex() || !values.isFloat()) return values;
    const u64 n = values.numberOfElements();
    HostArray split = HostArray::createUninitialisedNumeric({n, 2}, values.classId());
    if (values.classId() == ClassId::Double)
        interleaved2split<double>(values.data<double>(), split.data<double>(), n);
    else
        interleaved2split<float>(values.data<float>(), split.data<float>(), n);
    return split;
}

const HostArray& ensureInternalValues(GriddedInterpolant& obj) {
    HostArray& internal = GriddedInterpolantAccess::internalValues(obj);
    if (internal.isNull()) internal = makeInternalValues(GriddedInterpolantAccess::values(obj));
    return internal;
}

void GriddedInterpolant::construct(int nrhs, const HostArray* prhs) {
    clear();
    HostArray grid;
    HostArray values;
    HostArray methodText;
    HostArray extrapText;
    bool defaulted = false;

    if (nrhs <= 0) {
        values = HostArray::createNumeric({0, 0}, ClassId::Double);
    } else {
        const u64 n = static_cast<u64>(nrhs);
        const u64 s = (prhs[0].isCell() && n > 1) ? 1 : 0;
        u64 p = s;
        while (p < n && prhs[p].isFloat())
            ++p;
        if (p == s) NonFloatValuesErrId::raise();
        const u64 trailing = n - p;
        if (trailing == 1 && prhs[p].isText()) {
            methodText = prhs[p];
        } else if (trailing == 2 && prhs[p].isText() && prhs[p + 1].isText()) {
            methodText = prhs[p];
            extrapText = prhs[p + 1];
        } else if (trailing != 0) {
            NonFloatValuesErrId::raise();
        }
        const HostArray& v = prhs[p - 1];
        const u64 gridArrays = p - 1 - s;
        if (s == 0) {
            validateValues(v, gridArrays);
            values = v;
            if (gridArrays > 0) grid = validateFullGrid(prhs, gridArrays, v);
        } else {
            if (p - s > 1) SampleValuesNotSecond::raise();
            const HostArray& cell = prhs[0];
            validateValues(v, cell.numberOfElements());
            values = v;
            validateCellGrid(cell, v);
            grid = cell;
        }
    }
    if (grid.isNull()) {
        grid = makeDefaultGrid(values);
        defaulted = true;
    }
    HostArray internal = makeInternalValues(values);
    const MethodPair words = chooseMethods(methodText, extrapText, grid, defaulted);

    try {
        gridVectors_ = std::move(grid);
        values_ = std::move(values);
        internalValues_ = std::move(internal);
        method_ = wordArray(words.method);
        extrapMethod_ = wordArray(words.extrap);
        gridDefaulted_ = defaulted;
        evaluator_ = makeObjectEvaluator(*this, words);
        evaluatorCurrent_ = static_cast<bool>(evaluator_);
    } catch (...) {
        clear();
        throw;
    }
}

bool GriddedInterpolant::fullyConstructed() const noexcept {
    return !gridVectors_.isNull() && !values_.isNull() && !method_.isNull() &&
           !extrapMethod_.isNull();
}

void GriddedInterpolant::setMethod(const HostArray& word) {
    if (!fullyConstructed()) {
        method_ = word;
        return;
    }
    const MethodPair p = chooseMethods(word, extrapMethod_, gridVectors_, false);
    HostArray m = wordArray(p.method);
    HostArray e = wordArray(p.extrap);
    method_ = std::move(m);
    extrapMethod_ = std::move(e);
    discardEvaluator();
}

void GriddedInterpolant::setExtrapolationMethod(const HostArray& word) {
    if (!fullyConstructed()) {
        extrapMethod_ = word;
        return;
    }
    const MethodPair p = chooseMethods(method_, word, gridVectors_, false);
    HostArray m = wordArray(p.method);
    HostArray e = wordArray(p.extrap);
    method_ = std::move(m);
    extrapMethod_ = std::move(e);
    discardEvaluator();
}

void GriddedInterpolant::setGridVectors(const HostArray& cell) {
    if (!fullyConstructed()) {
        gridVectors_ = cell;
        gridDefaulted_ = false;
        return;
    }
    // Lengths are deliberately not compared with the values: the next evaluation does that.
    validateGridVectorCell(cell);
    const MethodPair p = chooseMethods(method_, extrapMethod_, cell, false);
    HostArray m = wordArray(p.method);
    HostArray e = wordArray(p.extrap);
    gridVectors_ = cell;
    gridDefaulted_ = false;
    method_ = std::move(m);
    extrapMethod_ = std::move(e);
    discardEvaluator();
}

void GriddedInterpolant::setValues(const HostArray& v) {
    if (!fullyConstructed()) {
        // Loading or copying: store only. Complex values keep split data already given
        // through ValuesForCopy; otherwise the split copy is made when first needed.
        values_ = v;
        if (!v.isComplex())
            internalValues_ = v;
        else if (!splitFits(internalValues_, v))
            internalValues_.release();
        return;
    }
    if (!v.isFloat()) NonFloatValuesErrId::raise();
    if (v.isSparse()) SparseInterpValuesErrId::raise();
    if (v.isEmpty()) DegenerateGridErrId::raise();

    const u64 d = gridVectors_.numberOfElements();
    const bool singleSet = (d == 1 && v.isVector2D()) || v.numberOfDimensions() == d;
    const u64 planes = v.isComplex() ? 2 : 1;
    // Rebinding changes what every holder of the evaluator computes, so only an evaluator
    // this object built and holds alone is rebound; a shared one is left to its copies.
    const bool rebind = evaluator_ && evaluatorCurrent_ && evaluator_.use_count() == 1 &&
                        singleSet && v.classId() == values_.classId() &&
                        v.isComplex() == values_.isComplex() &&
                        v.dimensions() == values_.dimensions() && evaluator_->numPlanes() == planes;

    HostArray internal = makeInternalValues(v);
    values_ = v;
    internalValues_ = internal;
    if (!rebind) {
        discardEvaluator();
        return;
    }
    const auto* base = static_cast<const unsigned char*>(internal.rawData());
    const std::size_t planeBytes =
        checkedBytes<unsigned char>(checkedMul(v.numberOfElements(), internal.elementBytes()));
    const void* ptrs[2] = {base, base + planeBytes};
    try {
        evaluator_->rebindValues(ptrs);
        if (auto* keeper = std::get_deleter<EvaluatorKeeper>(evaluator_)) keeper->values = internal;
    } catch (...) {
        discardEvaluator();
        throw;
    }
}

void GriddedInterpolant::setValuesForCopy(const HostArray& internalValues) {
    internalValues_ = internalValues;
}

void GriddedInterpolant::setEvaluatorForCopy(std::shared_ptr<Evaluator> evaluator) {
    evaluator_ = std::move(evaluator);
    evaluatorCurrent_ = false; // not built by this object
}

void GriddedInterpolant::afterLoadFixup() {
    if (extrapMethod_.isNull()) {
        // Saved before extrapolation words existed: spline and pchip extrapolated with
        // themselves, every other method not at all.
        std::string word;
        if (!method_.isNull()) (void)platform::scalarTextToUtf8(method_, word);
        extrapMethod_ = HostArray::charRow((word == "spline" || word == "pchip") ? word : "none");
    }
    if (values_.isEmpty()) {
        // Empty values may still have huge extents (0 x 2^31, a few bytes in a saved
        // record): their grid has no point to interpolate at, so each default grid vector is
        // empty instead of as long as its extent.
        const u64 d = values_.isVector2D() ? 1 : values_.numberOfDimensions();
        const ClassId cls = values_.classId() == ClassId::Single ? ClassId::Single : ClassId::Double;
        std::vector<HostArray> vecs;
        for (u64 k = 0; k < d; ++k) vecs.push_back(HostArray::createNumeric({1, 0}, cls));
        gridVectors_ = makeCell(vecs);
        gridDefaulted_ = true;
    }
    discardEvaluator();
}

void GriddedInterpolant::discardEvaluator() noexcept {
    evaluator_.reset();
    evaluatorCurrent_ = false;
}

void GriddedInterpolant::clear() noexcept {
    discardEvaluator();
    gridVectors_.release();
    internalValues_.release();
    values_.release();
    method_.release();
    extrapMethod_.release();
    gridDefaulted_ = false;
}

} // namespace mathinterp
