// Decoding fuzzer bytes into host arguments: a byte reader that never fails (an exhausted
// input reads as zeros), numbers drawn from hostile categories (NaN, infinities, subnormals,
// huge magnitudes, signed zeros), host arrays of any class, shape, sparsity and complexity,
// and the pieces of an interpolant's argument list (grids, values, method words, queries)
// built valid most of the time so that the engine behind the checks is reached.
#pragma once

#include <platform/HostArray.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzzing {

using platform::ClassId;
using platform::Dims;
using platform::HostArray;

class ByteReader {
public:
    ByteReader(const std::uint8_t* data, std::size_t size) : p_(data), end_(data + size) {}
    bool exhausted() const noexcept { return p_ == end_; }
    std::uint8_t byte() noexcept { return p_ == end_ ? 0 : *p_++; }
    std::uint64_t bits(int bytes) noexcept;
    // Uniform-ish in [0, bound) (0 when bound is 0).
    std::uint64_t below(std::uint64_t bound) noexcept;
    // True with probability about num/den; false once the input is exhausted (the zeros an
    // exhausted input reads as pick the common case everywhere).
    bool chance(unsigned num, unsigned den) noexcept { return below(den) >= den - num; }
    // A number from the hostile categories, or one near [lo, hi] (the grid's range).
    double number(double lo, double hi) noexcept;

private:
    const std::uint8_t* p_;
    const std::uint8_t* end_;
};

// Caps that keep one execution cheap: elements of any array the decoder makes, and the
// gridded query product it asks for (the decoder still makes shapes with 0 elements and huge
// extents, which cost nothing).
inline constexpr std::uint64_t kMaxElements = 1100;
inline constexpr std::uint64_t kMaxGridDims = 10; // 2^10 values
// Query points for a d-dimensional grid: points x 4^d (the widest neighbourhood) stays
// near 2^20.
std::uint64_t queryBudget(std::uint64_t d) noexcept;

// A numeric array of the class (a float class is filled with number(lo, hi)); complex and
// sparse as asked; read-only foreign buffers now and then.
HostArray numericArray(ByteReader& in, Dims dims, ClassId cls, bool complex, double lo, double hi);
// Any host array at all: numeric of any class, char, string objects (missing included),
// cells and structs (nested to `depth`), empty arrays with huge extents, many dimensions.
HostArray anyArray(ByteReader& in, int depth);
// A method or extrapolation word: valid words, misspellings, empty text, string objects,
// missing strings, char matrices, and non-text.
HostArray methodWord(ByteReader& in);
// A grid vector of n points: increasing (uniform or not) most of the time; otherwise
// repeated, decreasing, NaN or infinite points, a column instead of a row.
HostArray gridVector(ByteReader& in, std::uint64_t n, ClassId cls);

// A grid and its values, the shared part of the interpolant's arguments.
struct Scenario {
    std::vector<std::uint64_t> sizes; // grid points per dimension (d = sizes.size())
    ClassId gridClass = ClassId::Double;
    std::vector<HostArray> gridVectors; // one per dimension
    HostArray values;
    double lo = 0, hi = 1; // the grid's rough range, for queries
};
Scenario scenario(ByteReader& in);
// Values for a scenario's grid: usually its exact size (same class or not, complex or not,
// with value sets), sometimes any other array.
HostArray valuesFor(ByteReader& in, const Scenario& s);
// The construction arguments: values only, full grid arrays, or a cell of grid vectors,
// then 0 to 2 words; now and then an argument is dropped, swapped or replaced.
std::vector<HostArray> constructionArgs(ByteReader& in, const Scenario& s);
// A cell of grid vectors for setting GridVectors (right sizes or not, junk now and then).
HostArray gridCell(ByteReader& in, const Scenario& s);
// The query arguments of one evaluation: a point array or matrix, a cell of query vectors,
// d coordinate arrays (ndgrid, meshgrid or scattered), or junk.
std::vector<HostArray> queryArgs(ByteReader& in, const Scenario& s);
// A struct grid for the struct-grid gateway's second input.
HostArray structValues(ByteReader& in, const Scenario& s);

} // namespace fuzzing
