// The one validation gate for grids and values: every face that accepts grid vectors, grid
// arrays or sample values (the constructor, the GridVectors and Values setters, evaluation,
// the struct-grid gateway) runs these checks, each raising the identifier of the first
// failing check. Also the ndgrid reader shared by construction and evaluation, and the
// default grid.
#pragma once

#include "mathinterp/core/Numeric.hpp"

#include <platform/HostArray.hpp>

#include <optional>
#include <vector>

namespace mathinterp {

// Sample values against d grid dimensions (d = 0: no grid given): float, not sparse, not
// empty, and at least 2 points along every grid dimension. Complex values pass.
void validateValues(const platform::HostArray& v, u64 d);

// One grid element: float (NonFloatInpPtsErrId), not sparse (SparseDataPtErrId), real
// (ComplexDataPointErrId), of the class `first` (GridOfMixedDataTypesErrId).
void checkGridElement(const platform::HostArray& a, platform::ClassId first);

// Finite (NonFiniteInputPtsErrId), no repeated neighbours (NonUniqueCompVecsPtsErrId),
// strictly increasing (NonMonotonicCompVecsErrId), with that precedence over the whole
// vector. `x` must be a real double or single array; its elements are read in order.
void validateGridVector(const platform::HostArray& x);

// A cell of grid vectors against the values (constructor form (C, V)).
void validateCellGrid(const platform::HostArray& cell, const platform::HostArray& v);

// A cell offered as GridVectors on its own (the property setter): a non-empty cell of float,
// dense, real vectors of one class, each of at least 2 points, finite and strictly
// increasing. Lengths are not compared with any values here.
void validateGridVectorCell(const platform::HostArray& cell);

// Full grid arrays X1..Xd against the values; returns the 1 x d cell of grid vectors.
platform::HostArray validateFullGrid(const platform::HostArray* arrays, u64 d,
                                     const platform::HostArray& v);

// Reads d arrays of one class as an ndgrid: the first has exactly d dimensions, all have its
// size, and array k equals its vector along dimension k replicated along every other
// dimension (compared exactly; NaN never matches). Returns the d vectors as 1 x n arrays of
// the arrays' class (for d = 1 the array itself), or nothing when the arrays are no ndgrid.
std::optional<std::vector<platform::HostArray>> extractNdgrid(const platform::HostArray* arrays,
                                                              u64 d);
// extractNdgrid on (X2, X1, X3...), and none of the arrays an n x 1 column (d = 2 or 3).
bool isMeshgridOrder(const platform::HostArray* arrays, u64 d);

// The default grid of the values: one vector 1..numel for a 2-D vector, otherwise one vector
// 1..n_k per dimension; 1 x n arrays of the values' class (double for a non-float array).
platform::HostArray makeDefaultGrid(const platform::HostArray& v);

// A 1 x n cell of the given arrays.
platform::HostArray makeCell(const std::vector<platform::HostArray>& items);

} // namespace mathinterp
