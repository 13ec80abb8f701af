// Decoding fuzzer bytes into host arguments (see FuzzInput.hpp). Every choice reads a byte,
// so a mutation of one byte changes one decision and the corpus stays meaningful.
#include "FuzzInput.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string_view>

namespace fuzzing {

namespace {

constexpr std::string_view kWords[] = {"linear", "nearest", "next",   "previous", "pchip",
                                       "spline", "cubic",   "makima", "none"};

// Doubles to float without the undefined conversion of out-of-range values.
float toSingle(double v) noexcept {
    if (v != v) return std::numeric_limits<float>::quiet_NaN();
    if (v > std::numeric_limits<float>::max()) return std::numeric_limits<float>::infinity();
    if (v < -std::numeric_limits<float>::max()) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(v);
}

std::uint64_t product(const Dims& dims) noexcept {
    std::uint64_t n = 1;
    for (std::uint64_t e : dims) {
        if (e != 0 && n > kMaxElements) return kMaxElements + 1;
        n *= e;
    }
    return n;
}

// Extents for a general array: 2 dimensions mostly, up to 30 now and then; products stay
// under the element cap, and an extent of 0 may sit next to huge ones.
Dims anyDims(ByteReader& in) {
    const std::uint8_t kind = in.byte() % 16;
    if (kind == 14) {
        // Empty, with extents whose product would not fit in memory (or in 64 bits).
        Dims d{0, std::uint64_t{1} << (20 + in.below(40))};
        if (in.chance(1, 2)) d.push_back(std::uint64_t{1} << (30 + in.below(30)));
        return d;
    }
    Dims d;
    const std::uint64_t nd = kind == 15 ? 3 + in.below(28) : 2 + (kind >= 10 ? in.below(3) : 0);
    for (std::uint64_t k = 0; k < nd; ++k) {
        static constexpr std::uint64_t kExtents[] = {1, 1, 2, 3, 0, 4, 5, 1, 2, 7, 10, 16};
        std::uint64_t e = kind == 15 ? 1 + in.below(2) : kExtents[in.below(std::size(kExtents))];
        d.push_back(e);
        if (product(d) > kMaxElements) d.back() = 1;
    }
    return d;
}

} // namespace

std::uint64_t queryBudget(std::uint64_t d) noexcept {
    if (d >= 9) return 1;
    return std::min<std::uint64_t>(kMaxElements, std::uint64_t{1} << (18 - 2 * d));
}

std::uint64_t ByteReader::bits(int bytes) noexcept {
    std::uint64_t v = 0;
    for (int i = 0; i < bytes; ++i)
        v = (v << 8) | byte();
    return v;
}

std::uint64_t ByteReader::below(std::uint64_t bound) noexcept {
    if (bound <= 1) return 0;
    const std::uint64_t v = bound <= 256 ? byte() : bound <= 65536 ? bits(2) : bits(8);
    return v % bound;
}

double ByteReader::number(double lo, double hi) noexcept {
    const std::uint8_t c = byte();
    switch (c % 24) {
    case 15: {
        static constexpr std::uint64_t kNaNs[] = {0x7FF8000000000000ull, 0xFFF8000000000000ull,
                                                  0x7FF0000000000001ull, 0x7FFFFFFFFFFFFFFFull};
        return std::bit_cast<double>(kNaNs[c / 24 % 4]);
    }
    case 16:
        return (c & 0x80) ? -std::numeric_limits<double>::infinity()
                          : std::numeric_limits<double>::infinity();
    case 17: { // subnormal
        const std::uint64_t m = (bits(4) << 20 | 1) & 0x000FFFFFFFFFFFFFull;
        return std::bit_cast<double>(m | ((c & 0x80) ? 0x8000000000000000ull : 0));
    }
    case 18: { // huge
        const double h = std::numeric_limits<double>::max() / static_cast<double>(1 + byte());
        return (c & 0x80) ? -h : h;
    }
    case 19:
        return (c & 0x80) ? -0.0 : 0.0;
    case 20:
        return std::bit_cast<double>(bits(8));
    case 21:
        return std::ldexp(static_cast<double>(static_cast<std::int8_t>(byte())), -1060);
    case 22:
        return (c & 0x80) ? lo : hi;
    case 23:
        return static_cast<double>(static_cast<std::int8_t>(byte()));
    default: {
        // Mostly in and around the grid's range.
        const double t = (static_cast<double>(byte()) - 48.0) / 160.0; // [-0.3, 1.3]
        return lo + (hi - lo) * t;
    }
    }
}

HostArray numericArray(ByteReader& in, Dims dims, ClassId cls, bool complex, double lo, double hi) {
    HostArray a;
    const bool foreign = in.chance(1, 8);
    try {
        if (foreign) {
            // A foreign buffer (as a binding passes one), read-only now and then.
            const std::uint64_t n = product(dims);
            const std::size_t bytes =
                static_cast<std::size_t>(n) * platform::elementSize(cls) * (complex ? 2 : 1);
            auto buffer = std::make_shared<std::vector<std::uint8_t>>(bytes + 1);
            a = HostArray::wrapNumeric(buffer->data(), dims, cls, complex, buffer, in.chance(1, 2));
        } else {
            a = HostArray::createUninitialisedNumeric(dims, cls, complex);
        }
    } catch (const std::bad_alloc&) {
        a = HostArray::createNumeric({0, 0}, cls, complex);
    }
    const std::uint64_t n = a.numberOfElements() * (complex ? 2 : 1);
    switch (cls) {
    case ClassId::Double: {
        auto* p = a.data<double>();
        for (std::uint64_t i = 0; i < n; ++i)
            p[i] = in.number(lo, hi);
        break;
    }
    case ClassId::Single: {
        auto* p = a.data<float>();
        for (std::uint64_t i = 0; i < n; ++i)
            p[i] = toSingle(in.number(lo, hi));
        break;
    }
    default: {
        auto* p = static_cast<std::uint8_t*>(a.rawData());
        const std::size_t bytes = static_cast<std::size_t>(n) * platform::elementSize(cls);
        for (std::size_t i = 0; i < bytes; ++i)
            p[i] = cls == ClassId::Logical ? in.byte() & 1 : in.byte();
    }
    }
    if (in.chance(1, 24)) a.setSparse(true);
    return a;
}

HostArray anyArray(ByteReader& in, int depth) {
    static constexpr ClassId kNumeric[] = {ClassId::Double,  ClassId::Double, ClassId::Single,
                                           ClassId::Logical, ClassId::Int8,   ClassId::UInt8,
                                           ClassId::Int16,   ClassId::UInt16, ClassId::Int32,
                                           ClassId::UInt32,  ClassId::Int64,  ClassId::UInt64};
    const std::uint8_t kind = in.byte() % 16;
    switch (kind) {
    case 5: { // char row of arbitrary code units, lone surrogates included
        std::u16string s;
        for (std::uint64_t i = 0, n = in.below(9); i < n; ++i)
            s.push_back(static_cast<char16_t>(in.chance(1, 4) ? 0xD800 + in.byte() : in.byte()));
        return HostArray::createChar({s.empty() ? 0u : 1u, s.size()}, s);
    }
    case 6: { // char matrix
        const std::uint64_t r = 1 + in.below(3), c = in.below(4);
        return HostArray::createChar({r, c}, std::u16string(r * c, u'a'));
    }
    case 7:
        return HostArray::stringScalar(kWords[in.below(std::size(kWords))]);
    case 8:
        return HostArray::missingString();
    case 9: {
        const std::uint64_t n = in.below(3);
        std::vector<std::optional<std::string>> items(n, std::string("linear"));
        return HostArray::createString({1, n}, items);
    }
    case 10:
        if (depth > 0) {
            const Dims dims = in.chance(1, 4) ? anyDims(in) : Dims{1, in.below(4)};
            HostArray c;
            try {
                c = HostArray::createCell(dims);
            } catch (const std::bad_alloc&) {
                return HostArray::createCell(0, 0);
            }
            for (std::uint64_t k = 0; k < c.numberOfElements() && k < 6; ++k)
                if (!in.chance(1, 6)) c.setCell(k, anyArray(in, depth - 1));
            return c;
        }
        return HostArray::createCell(0, 0);
    case 11:
        if (depth > 0) {
            static const char* kFields[] = {"a", "Values", "GridVectors", "Method", "x"};
            std::vector<std::string> names;
            for (std::uint64_t k = 0, n = in.below(3); k < n; ++k)
                names.emplace_back(kFields[in.below(std::size(kFields))]);
            std::sort(names.begin(), names.end());
            names.erase(std::unique(names.begin(), names.end()), names.end());
            HostArray s = HostArray::createStruct({1, 1 + in.below(2)}, names);
            for (std::uint64_t e = 0; e < s.numberOfElements(); ++e)
                for (std::uint64_t f = 0; f < names.size(); ++f)
                    s.setField(e, f, anyArray(in, depth - 1));
            return s;
        }
        return HostArray::createStruct({1, 1}, {});
    case 12:
        return HostArray::scalar(in.number(0, 1));
    case 13:
        return HostArray::scalarSingle(toSingle(in.number(0, 1)));
    default: {
        const ClassId cls = kNumeric[in.below(std::size(kNumeric))];
        const Dims dims = anyDims(in);
        return numericArray(in, dims, cls, in.chance(1, 6), 0, 1);
    }
    }
}

HostArray methodWord(ByteReader& in) {
    const std::string_view word = kWords[in.below(std::size(kWords))];
    const std::uint8_t kind = in.byte() % 16;
    switch (kind) {
    case 9:
        return HostArray::stringScalar(word);
    case 10: {
        std::string w(word);
        switch (in.below(5)) {
        case 0:
            w[0] = static_cast<char>(w[0] - 32);
            break; // capitalised
        case 1:
            w.pop_back();
            break;
        case 2:
            w.push_back(static_cast<char>(in.byte()));
            break;
        case 3:
            w.insert(w.begin() + static_cast<std::ptrdiff_t>(in.below(w.size())), '\0');
            break;
        default:
            w = " " + w;
            break;
        }
        if (in.chance(1, 2)) return HostArray::stringScalar(w);
        // A char row holds UTF-16 code units: each byte becomes one (charRow would reject a
        // stray byte as malformed UTF-8 before the module saw it).
        std::u16string u;
        for (char c : w)
            u.push_back(static_cast<char16_t>(static_cast<unsigned char>(c)));
        const std::uint64_t n = u.size();
        return HostArray::createChar({n == 0 ? 0u : 1u, n}, std::move(u));
    }
    case 11:
        return in.chance(1, 2) ? HostArray::charRow("") : HostArray::createChar({0, 0}, u"");
    case 12:
        return HostArray::missingString();
    case 13: {
        std::u16string s(word.begin(), word.end());
        if (in.chance(1, 2)) return HostArray::createChar({s.size(), 1}, s);
        const std::uint64_t layers = 1 + in.below(2);
        return HostArray::createChar({1, s.size(), layers}, layers == 1 ? s : s + s);
    }
    case 14:
        return HostArray::createString({1, 2}, {std::string(word), std::nullopt});
    case 15:
        return anyArray(in, 1);
    default:
        return HostArray::charRow(word);
    }
}

HostArray gridVector(ByteReader& in, std::uint64_t n, ClassId cls) {
    std::vector<double> x(n);
    static constexpr double kScales[] = {1.0, 1.0, 1e-3, 1e3, 1e-300, 1e300, 1e-30, 1e30};
    const double scale = kScales[in.below(std::size(kScales))];
    double start = static_cast<double>(static_cast<std::int8_t>(in.byte())) * scale;
    const std::uint8_t kind = in.byte() % 16;
    const double h = static_cast<double>(1 + in.below(8)) * scale;
    for (std::uint64_t i = 0; i < n; ++i) {
        if (kind < 6) {
            x[i] = start + static_cast<double>(i) * h; // uniform
        } else {
            start += (kind == 12 ? -1.0 : 1.0) * (1.0 + static_cast<double>(in.byte())) * scale;
            x[i] = start;
        }
    }
    if (n > 1 && kind == 13) x[in.below(n - 1) + 1] = x[0];              // repeated point
    if (n > 0 && kind == 14) x[in.below(n)] = in.number(x[0], x[n - 1]); // hostile point
    if (n > 0 && kind == 15) std::reverse(x.begin(), x.end());
    Dims dims{1, n};
    if (in.chance(1, 6)) dims = {n, 1};
    if (in.chance(1, 32) && n % 2 == 0) dims = {2, n / 2};
    if (cls == ClassId::Single) {
        std::vector<float> s(n);
        for (std::uint64_t i = 0; i < n; ++i)
            s[i] = toSingle(x[i]);
        return HostArray::fromSingles(dims, s);
    }
    if (cls != ClassId::Double) return numericArray(in, dims, cls, false, 0, 1);
    return HostArray::fromDoubles(dims, x);
}

namespace {

ClassId floatClass(ByteReader& in) {
    const std::uint8_t c = in.byte() % 32;
    if (c < 20) return ClassId::Double;
    if (c < 30) return ClassId::Single;
    return c == 30 ? ClassId::Int16 : ClassId::Logical;
}

double readValue(const HostArray& a, std::uint64_t k) {
    return a.classId() == ClassId::Single ? static_cast<double>(a.data<float>()[k])
                                          : a.data<double>()[k];
}

// ndgrid arrays of the vectors (meshgrid order when asked: the first two dimensions swap).
std::vector<HostArray> fullGrid(const std::vector<HostArray>& vecs, ClassId cls, bool meshgrid) {
    const std::uint64_t d = vecs.size();
    Dims dims(d);
    for (std::uint64_t k = 0; k < d; ++k)
        dims[k] = vecs[k].numberOfElements();
    if (meshgrid && d >= 2) std::swap(dims[0], dims[1]);
    if (product(dims) > kMaxElements) return {};
    std::vector<HostArray> out;
    for (std::uint64_t k = 0; k < d; ++k) {
        HostArray a = HostArray::createUninitialisedNumeric(dims, cls);
        const std::uint64_t n = a.numberOfElements();
        // Dimension along which vector k varies.
        const std::uint64_t along = meshgrid && d >= 2 && k < 2 ? 1 - k : k;
        std::uint64_t stride = 1;
        for (std::uint64_t j = 0; j < along; ++j)
            stride *= dims[j];
        for (std::uint64_t i = 0; i < n; ++i) {
            const double v = readValue(vecs[k], i / stride % dims[along]);
            if (cls == ClassId::Single)
                a.data<float>()[i] = static_cast<float>(v);
            else
                a.data<double>()[i] = v;
        }
        out.push_back(a);
    }
    return out;
}

// Query vectors for gridded queries: lengths whose product stays under the cap.
std::vector<HostArray> queryVectors(ByteReader& in, const Scenario& s, ClassId cls,
                                    std::uint64_t count) {
    std::vector<HostArray> vecs;
    std::uint64_t total = 1;
    const std::uint64_t budget = queryBudget(s.sizes.size());
    for (std::uint64_t k = 0; k < count; ++k) {
        std::uint64_t m = in.below(in.chance(1, 8) ? 60 : 7);
        if (total * std::max<std::uint64_t>(m, 1) > budget) m = 1;
        total *= std::max<std::uint64_t>(m, 1);
        Dims dims = in.chance(1, 4) ? Dims{m, 1} : Dims{1, m};
        vecs.push_back(numericArray(in, dims, cls, false, s.lo, s.hi));
    }
    return vecs;
}

} // namespace

Scenario scenario(ByteReader& in) {
    Scenario s;
    const std::uint8_t shape = in.byte() % 32;
    std::uint64_t d = 1;
    if (shape >= 20) d = 2 + (shape >= 28 ? in.below(kMaxGridDims - 1) : in.below(3));
    std::uint64_t total = 1;
    for (std::uint64_t k = 0; k < d; ++k) {
        std::uint64_t n = 2 + in.below(d == 1 ? 9 : 4);
        const std::uint8_t odd = in.byte();
        if (odd >= 248) n = odd % 3;                                    // 0, 1 or 2 points
        if (d == 1 && odd >= 240 && odd < 244) n = 2040 + in.below(20); // long grids
        if (total * std::max<std::uint64_t>(n, 1) > kMaxElements) n = 2;
        total *= std::max<std::uint64_t>(n, 1);
        s.sizes.push_back(n);
    }
    s.gridClass = in.chance(1, 4) ? ClassId::Single : ClassId::Double;
    for (std::uint64_t k = 0; k < d; ++k)
        s.gridVectors.push_back(gridVector(in, s.sizes[k], s.gridClass));
    if (!s.gridVectors.empty() && s.gridVectors[0].numberOfElements() > 0) {
        const HostArray& g = s.gridVectors[0];
        s.lo = readValue(g, 0);
        s.hi = readValue(g, g.numberOfElements() - 1);
        if (!std::isfinite(s.lo) || !std::isfinite(s.hi)) s.lo = 0, s.hi = 1;
    }
    s.values = valuesFor(in, s);
    return s;
}

HostArray valuesFor(ByteReader& in, const Scenario& s) {
    if (in.chance(1, 24)) return anyArray(in, 1);
    const ClassId cls = floatClass(in);
    const bool complex = in.chance(1, 5);
    Dims dims(s.sizes.begin(), s.sizes.end());
    if (dims.size() == 1) dims.insert(dims.begin(), 1); // a row
    if (s.sizes.size() == 1 && in.chance(1, 3)) std::swap(dims[0], dims[1]);
    if (in.chance(1, 5)) {
        // Value sets: trailing extents (for 1-D, an n x S matrix).
        if (s.sizes.size() == 1) dims = {s.sizes[0], 1};
        for (std::uint64_t k = 0, n = 1 + in.below(2); k < n; ++k) {
            dims.push_back(1 + in.below(3));
            if (product(dims) > kMaxElements) dims.back() = 1;
        }
    }
    if (in.chance(1, 16) && !dims.empty()) dims[in.below(dims.size())] += 1; // size mismatch
    if (product(dims) > kMaxElements) dims = {2, 2};
    return numericArray(in, dims, cls, complex, -2.0, 2.0);
}

std::vector<HostArray> constructionArgs(ByteReader& in, const Scenario& s) {
    std::vector<HostArray> args;
    const std::uint8_t form = in.byte() % 8;
    if (form < 5 && !s.gridVectors.empty()) {
        HostArray c = HostArray::createCell(1, s.gridVectors.size() + (in.chance(1, 32) ? 1 : 0));
        for (std::uint64_t k = 0; k < s.gridVectors.size(); ++k)
            if (!in.chance(1, 64)) c.setCell(k, s.gridVectors[k]);
        args.push_back(c);
    } else if (form < 7) {
        const bool mesh = in.chance(1, 6);
        std::vector<HostArray> full =
            s.gridVectors.size() == 1 ? s.gridVectors : fullGrid(s.gridVectors, s.gridClass, mesh);
        if (!full.empty() && in.chance(1, 8)) {
            // Spoil one element of one array: no longer an ndgrid.
            HostArray& a = full[in.below(full.size())];
            a = a.deepCopy();
            if (a.numberOfElements() > 0 && a.classId() == ClassId::Double)
                a.data<double>()[in.below(a.numberOfElements())] = in.number(s.lo, s.hi);
        }
        args.insert(args.end(), full.begin(), full.end());
    }
    args.push_back(s.values);
    const std::uint8_t words = in.byte() % 8;
    if (words >= 3) args.push_back(methodWord(in));
    if (words >= 6) args.push_back(methodWord(in));
    if (in.chance(1, 10) && !args.empty()) {
        const std::uint64_t k = in.below(args.size());
        switch (in.below(4)) {
        case 0:
            args.erase(args.begin() + static_cast<std::ptrdiff_t>(k));
            break;
        case 1:
            args[k] = anyArray(in, 2);
            break;
        case 2:
            args.insert(args.begin() + static_cast<std::ptrdiff_t>(k), anyArray(in, 2));
            break;
        default:
            std::swap(args[k], args[in.below(args.size())]);
            break;
        }
    }
    return args;
}

HostArray gridCell(ByteReader& in, const Scenario& s) {
    const std::uint8_t kind = in.byte() % 8;
    if (kind == 7) return anyArray(in, 2);
    const ClassId cls = kind == 6 ? floatClass(in) : s.gridClass;
    std::uint64_t d = s.sizes.size();
    if (kind == 5) d = in.below(4);
    HostArray c = HostArray::createCell(1, d);
    for (std::uint64_t k = 0; k < d; ++k) {
        std::uint64_t n = k < s.sizes.size() ? s.sizes[k] : 2;
        if (kind == 4) n = in.below(6);
        c.setCell(k, gridVector(in, n, cls));
    }
    return c;
}

std::vector<HostArray> queryArgs(ByteReader& in, const Scenario& s) {
    const std::uint64_t d = std::max<std::uint64_t>(s.sizes.size(), 1);
    const std::uint8_t q = in.byte() % 32;
    const ClassId cls = q >= 28 ? ClassId::Single : floatClass(in);
    const std::uint8_t form = in.byte() % 10;
    switch (form) {
    case 0:
    case 1:
    case 2: {
        // A point array (1-D) or a point matrix (N-D), near the parallel threshold now and then.
        std::uint64_t m = in.chance(1, 64) ? 2040 + in.below(16) : in.below(12);
        m = std::min(m, queryBudget(s.sizes.size()));
        if (d > 1 && m * d > kMaxElements) m = kMaxElements / d;
        Dims dims = d == 1 ? Dims{m, 1} : Dims{m, d};
        if (in.chance(1, 4)) dims = d == 1 ? Dims{1, m} : Dims{m, d + in.below(3) - 1};
        if (in.chance(1, 8)) dims = anyDims(in);
        if (product(dims) > d * queryBudget(s.sizes.size())) dims = {1, d};
        return {numericArray(in, dims, cls, in.chance(1, 32), s.lo, s.hi)};
    }
    case 3:
    case 4: {
        const std::uint64_t count = in.chance(1, 8) ? in.below(d + 2) : d;
        std::vector<HostArray> vecs = queryVectors(in, s, cls, count);
        HostArray c = HostArray::createCell(1, count);
        for (std::uint64_t k = 0; k < count; ++k)
            if (!in.chance(1, 64)) c.setCell(k, in.chance(1, 32) ? anyArray(in, 1) : vecs[k]);
        return {c};
    }
    case 5:
    case 6:
    case 7: {
        // Coordinate arrays: an ndgrid or a meshgrid of query vectors.
        std::vector<HostArray> vecs = queryVectors(in, s, cls, d);
        for (auto& v : vecs)
            if (v.numberOfElements() == 0) v = numericArray(in, {1, 1}, cls, false, s.lo, s.hi);
        if (cls != ClassId::Double && cls != ClassId::Single) return vecs;
        std::vector<HostArray> full = fullGrid(vecs, cls, form == 7);
        if (d == 1 || full.empty()) return vecs;
        return full;
    }
    case 8: {
        // d scattered arrays of one shape (or not).
        Dims dims = anyDims(in);
        if (product(dims) > queryBudget(s.sizes.size())) dims = {1, 1};
        std::vector<HostArray> arrays;
        const std::uint64_t count = in.chance(1, 8) ? in.below(d + 2) : d;
        for (std::uint64_t k = 0; k < count; ++k)
            arrays.push_back(numericArray(in, in.chance(1, 16) ? anyDims(in) : dims, cls,
                                          in.chance(1, 32), s.lo, s.hi));
        return arrays;
    }
    default: {
        std::vector<HostArray> junk;
        for (std::uint64_t k = 0, n = in.below(4); k < n; ++k)
            junk.push_back(anyArray(in, 2));
        return junk;
    }
    }
}

HostArray structValues(ByteReader& in, const Scenario& s) {
    const std::uint64_t count = in.chance(1, 8) ? 0 : 1 + in.below(2);
    HostArray cell = HostArray::createCell(1, count);
    for (std::uint64_t j = 0; j < count; ++j) {
        if (in.chance(1, 16)) {
            cell.setCell(j, anyArray(in, 1));
            continue;
        }
        Dims dims =
            s.sizes.size() == 1 ? Dims{s.sizes[0], 1} : Dims(s.sizes.begin(), s.sizes.end());
        if (in.chance(1, 16)) dims[0] += 1;
        if (product(dims) > kMaxElements / 4) dims = {2, 2};
        static const char* kFields[] = {"a", "b", "temperature"};
        std::vector<std::string> names(kFields, kFields + in.below(4));
        HostArray st = HostArray::createStruct(dims, names);
        for (std::uint64_t f = 0; f < names.size(); ++f) {
            const Dims fdims{1 + in.below(2), 1 + in.below(3)};
            for (std::uint64_t e = 0; e < st.numberOfElements(); ++e) {
                const bool odd = in.chance(1, 64);
                const ClassId cls = odd ? floatClass(in) : s.gridClass;
                st.setField(
                    e, f,
                    numericArray(in, odd ? anyDims(in) : fdims, cls, in.chance(1, 8), -2.0, 2.0));
            }
        }
        cell.setCell(j, st);
    }
    return cell;
}

} // namespace fuzzing
