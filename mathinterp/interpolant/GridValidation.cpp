// Grid and values validation, the ndgrid reader and the default grid.
#include "mathinterp/interpolant/GridValidation.hpp"

#include "mathinterp/interpolant/Identifiers.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace mathinterp {

using platform::ClassId;
using platform::HostArray;

namespace {

bool isFloatClass(ClassId c) noexcept {
    return c == ClassId::Double || c == ClassId::Single;
}

template <class T>
void validateGridVectorT(const T* x, u64 n) {
    constexpr T largest = std::numeric_limits<T>::max();
    bool repeated = false;
    bool notIncreasing = false;
    for (u64 i = 0; i < n; ++i) {
        // NaN fails the comparison, so it counts as non-finite.
        if (!(std::abs(x[i]) <= largest)) NonFiniteInputPtsErrId::raise();
        if (i == 0) continue;
        if (x[i] == x[i - 1])
            repeated = true;
        else if (!(x[i] > x[i - 1]))
            notIncreasing = true;
    }
    if (repeated) NonUniqueCompVecsPtsErrId::raise();
    if (notIncreasing) NonMonotonicCompVecsErrId::raise();
}

bool isColumn(const HostArray& a) {
    const platform::Dims& d = a.dimensions();
    return d.size() == 2 && d[1] == 1;
}

// Reads the vector of array k along dimension k and checks the replication; false when the
// array is not that vector replicated along every other dimension.
template <class T>
bool readReplicated(const HostArray& a, u64 k, HostArray& vec) {
    const platform::Dims& dims = a.dimensions();
    u64 stride = 1;
    for (u64 j = 0; j < k; ++j)
        stride = checkedMul(stride, dims[j]);
    const u64 n = dims[k];
    const u64 total = a.numberOfElements();
    if (total == 0) {
        // Nothing to compare; the (zero) vector only serves the size checks that follow.
        vec = HostArray::createNumeric({1, n}, a.classId());
        return true;
    }
    vec = HostArray::createUninitialisedNumeric({1, n}, a.classId());
    const T* x = a.data<T>();
    T* g = vec.data<T>();
    for (u64 i = 0; i < n; ++i)
        g[i] = x[i * stride];
    const u64 outer = total / (stride * n);
    u64 idx = 0;
    for (u64 o = 0; o < outer; ++o)
        for (u64 i = 0; i < n; ++i) {
            const T gi = g[i];
            for (u64 s = 0; s < stride; ++s, ++idx)
                if (!(x[idx] - gi == T(0))) return false; // non-zero difference or NaN
        }
    return true;
}

template <class T>
HostArray defaultVector(u64 n, ClassId cls) {
    HostArray v = HostArray::createUninitialisedNumeric({1, n}, cls);
    T* p = v.data<T>();
    T acc = T(0);
    for (u64 i = 0; i < n; ++i) {
        acc = acc + T(1);
        p[i] = acc;
    }
    return v;
}

} // namespace

void validateValues(const HostArray& v, u64 d) {
    if (!v.isFloat()) NonFloatValuesErrId::raise();
    if (v.isSparse()) SparseInterpValuesErrId::raise();
    if (v.isEmpty()) DegenerateGridErrId::raise();
    const u64 nd = v.numberOfDimensions();
    const bool vec = v.isVector2D();
    const u64 n = d > 0 ? std::min(nd, d) : (vec ? 1 : nd);
    if (vec && (d == 0 || n == 1)) {
        if (v.numberOfElements() < 2) DegenerateGridErrId::raise();
        return;
    }
    for (u64 k = 0; k < n; ++k)
        if (v.dimension(k) < 2) DegenerateGridErrId::raise();
}

void checkGridElement(const HostArray& a, ClassId first) {
    if (!isFloatClass(a.classId())) NonFloatInpPtsErrId::raise();
    if (a.isSparse()) SparseDataPtErrId::raise();
    if (a.isComplex()) ComplexDataPointErrId::raise();
    if (a.classId() != first) GridOfMixedDataTypesErrId::raise();
}

void validateGridVector(const HostArray& x) {
    if (x.classId() == ClassId::Double)
        validateGridVectorT(x.data<double>(), x.numberOfElements());
    else if (x.classId() == ClassId::Single)
        validateGridVectorT(x.data<float>(), x.numberOfElements());
    else
        NonFloatInpPtsErrId::raise();
}

void validateCellGrid(const HostArray& cell, const HostArray& v) {
    if (!cell.isNull() && !cell.isCell()) NonCellCompVecErrId::raise();
    const u64 d = cell.numberOfElements();
    const u64 nd = v.numberOfDimensions();
    const u64 n = d > 0 ? std::min(nd, d) : (v.isVector2D() ? 1 : nd);
    if (n != d) NumCoordsGridNdimsMismatchErrId::raise();
    for (u64 k = 0; k < d; ++k)
        if (cell.getCell(k).isNull()) NumCoordsGridNdimsMismatchErrId::raise();
    const ClassId first = cell.getCell(0).classId();
    for (u64 k = 0; k < d; ++k)
        checkGridElement(cell.getCell(k), first);
    if (n == 1 && v.isVector2D()) {
        const HostArray c = cell.getCell(0);
        if (!c.isVector2D()) NonVecCompVecErrId::raise();
        if (c.numberOfElements() != v.numberOfElements())
            CompVecValueMismatchErrId::raise(1, v.numberOfElements());
    } else {
        for (u64 k = 0; k < n; ++k) {
            const HostArray c = cell.getCell(k);
            if (!c.isVector2D()) NonVecCompVecErrId::raise();
            if (c.numberOfElements() != v.dimension(k))
                CompVecValueMismatchErrId::raise(k + 1, v.dimension(k));
        }
    }
    for (u64 k = 0; k < d; ++k)
        validateGridVector(cell.getCell(k));
}

void validateGridVectorCell(const HostArray& cell) {
    if (!cell.isCell()) NonCellCompVecErrId::raise();
    const u64 d = cell.numberOfElements();
    if (d == 0) DegenerateGridErrId::raise();
    const ClassId first = cell.getCell(0).classId();
    for (u64 k = 0; k < d; ++k)
        checkGridElement(cell.getCell(k), first);
    for (u64 k = 0; k < d; ++k) {
        const HostArray c = cell.getCell(k);
        if (!c.isVector2D()) NonVecCompVecErrId::raise();
        if (c.numberOfElements() < 2) DegenerateGridErrId::raise();
    }
    for (u64 k = 0; k < d; ++k)
        validateGridVector(cell.getCell(k));
}

std::optional<std::vector<HostArray>> extractNdgrid(const HostArray* arrays, u64 d) {
    if (d == 0) return std::nullopt;
    if (d == 1) return std::vector<HostArray>{arrays[0]};
    const platform::Dims& dims = arrays[0].dimensions();
    if (dims.size() != d) return std::nullopt;
    const ClassId cls = arrays[0].classId();
    for (u64 k = 1; k < d; ++k)
        if (arrays[k].dimensions() != dims || arrays[k].classId() != cls) return std::nullopt;
    std::vector<HostArray> vecs(d);
    for (u64 k = 0; k < d; ++k) {
        bool ok = false;
        if (cls == ClassId::Double)
            ok = readReplicated<double>(arrays[k], k, vecs[k]);
        else if (cls == ClassId::Single)
            ok = readReplicated<float>(arrays[k], k, vecs[k]);
        if (!ok) return std::nullopt;
    }
    return vecs;
}

bool isMeshgridOrder(const HostArray* arrays, u64 d) {
    if (d != 2 && d != 3) return false;
    for (u64 k = 0; k < d; ++k)
        if (isColumn(arrays[k])) return false;
    HostArray swapped[3];
    swapped[0] = arrays[1];
    swapped[1] = arrays[0];
    if (d == 3) swapped[2] = arrays[2];
    return extractNdgrid(swapped, d).has_value();
}

HostArray validateFullGrid(const HostArray* arrays, u64 d, const HostArray& v) {
    if (std::min(v.numberOfDimensions(), d) != d) NumCoordsGridNdimsMismatchErrId::raise();
    const ClassId first = arrays[0].classId();
    for (u64 k = 0; k < d; ++k)
        checkGridElement(arrays[k], first);
    if (d == 1) {
        const HostArray& x = arrays[0];
        if (!x.isVector2D()) MixedGridCoordSizeErrId::raise();
        const u64 expected = v.isVector2D() ? v.numberOfElements() : v.dimension(0);
        if (x.numberOfElements() != expected) CompVecValueMismatchErrId::raise(1, expected);
        validateGridVector(x);
        return makeCell({x});
    }
    bool sizesAgree = true;
    for (u64 k = 0; k < d; ++k)
        for (u64 j = 0; j < d; ++j)
            if (arrays[k].dimension(j) != v.dimension(j)) sizesAgree = false;
    std::optional<std::vector<HostArray>> vecs = extractNdgrid(arrays, d);
    if (vecs) {
        if (!sizesAgree) MixedGridCoordSizeErrId::raise();
        for (const HostArray& g : *vecs)
            validateGridVector(g);
        return makeCell(*vecs);
    }
    if (isMeshgridOrder(arrays, d)) {
        if (d == 2) NdgridNotMeshgrid2DErrId::raise();
        NdgridNotMeshgrid3DErrId::raise();
    }
    BadGridErrId::raise();
}

HostArray makeDefaultGrid(const HostArray& v) {
    const ClassId cls = v.classId() == ClassId::Single ? ClassId::Single : ClassId::Double;
    std::vector<u64> lengths;
    if (v.isVector2D())
        lengths.push_back(v.numberOfElements());
    else
        lengths.assign(v.dimensions().begin(), v.dimensions().end());
    std::vector<HostArray> vecs;
    vecs.reserve(lengths.size());
    for (u64 n : lengths)
        vecs.push_back(cls == ClassId::Single ? defaultVector<float>(n, cls)
                                              : defaultVector<double>(n, cls));
    return makeCell(vecs);
}

HostArray makeCell(const std::vector<HostArray>& items) {
    HostArray c = HostArray::createCell(1, items.size());
    for (u64 k = 0; k < items.size(); ++k)
        c.setCell(k, items[k]);
    return c;
}

} // namespace mathinterp
