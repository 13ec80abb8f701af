// Query layouts: QueryColumns views a scattered query array as numDims columns of m points
// (column j at base + j*m), the query precision follows the query array's class, and
// planeOutput places value plane k in the output (value-set blocks of `count` results;
// complex output interleaved, real planes first, then imaginary planes).
#pragma once

#include "mathinterp/core/Numeric.hpp"

#include <platform/HostAllocator.hpp>
#include <platform/HostArray.hpp>

namespace mathinterp {

template <class Q>
struct QueryColumns {
    platform::HostVector<const Q*> columns;
    u64 numDims = 0;
    u64 m = 0;

    QueryColumns(const Q* base, u64 d, u64 points) : columns(d), numDims(d), m(points) {
        for (u64 j = 0; j < d; ++j)
            columns[j] = base + j * points;
    }
};

// Double queries when the class is double (for a cell: its first element's class).
inline bool queryIsDouble(const platform::HostArray& queries) {
    if (queries.isCell()) {
        if (queries.numberOfElements() == 0) return true;
        const platform::HostArray first = queries.getCell(0);
        return first.classId() == platform::ClassId::Double;
    }
    return queries.classId() == platform::ClassId::Double;
}

template <class V>
struct PlaneOutput {
    V* out;
    u64 stride;
};

// Where plane k of numPlanes writes its `count` results.
template <class V>
inline PlaneOutput<V> planeOutput(const platform::HostArray& out, u64 k, u64 numPlanes,
                                  u64 count) noexcept {
    V* base = out.data<V>();
    if (!out.isComplex()) return {base + k * count, 1};
    const u64 sets = numPlanes / 2;
    if (k < sets) return {base + 2 * k * count, 2};
    return {base + 2 * (k - sets) * count + 1, 2};
}

} // namespace mathinterp
