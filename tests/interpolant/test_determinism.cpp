// Determinism: a query's result does not depend on how many worker threads run the loop
// (one or two, through tbb::global_control) nor on how many other queries share its call
// (1, 2047, 2048, 2049 and 4097 of a call of 5003). Every method word with itself, "none" and
// another method as extrapolation, in 1-D, 2-D and 3-D, every precision pair with double or
// single queries, two complex value sets; gridded 2-D and 3-D queries of 2047 to 4097 points.
#include "support/Cases.hpp"

#include <oneapi/tbb/global_control.h>

#include <cstring>

using namespace testsupport;

namespace {

std::vector<double> evalWith(int threads, mathinterp::GriddedInterpolant& g, const HostArray& q) {
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(threads));
    return resultsOf(itest::eval(g, {q}));
}

// Plane k of an m-query result equals entries [k*total, k*total + m) of the reference.
::testing::AssertionResult samePrefix(const std::vector<double>& part, std::uint64_t m,
                                      const std::vector<double>& whole, std::uint64_t total) {
    if (part.size() / m * total != whole.size())
        return ::testing::AssertionFailure() << "plane count differs";
    for (std::uint64_t k = 0; k < part.size() / m; ++k)
        if (std::memcmp(&part[k * m], &whole[k * total], m * sizeof(double)) != 0)
            return ::testing::AssertionFailure()
                   << "plane " << k << " differs, " << m << " queries";
    return ::testing::AssertionSuccess();
}

std::vector<std::pair<std::string, std::string>> combinations() {
    std::vector<std::pair<std::string, std::string>> out;
    for (const MethodWord& m : kMethodWords) {
        const std::string other = std::string(m.word) == "nearest" ? "linear" : "nearest";
        for (const std::string& e : {std::string(m.word), std::string("none"), other})
            out.emplace_back(m.word, e);
    }
    return out;
}

const std::vector<std::uint64_t> kSizes[] = {{}, {29}, {9, 6}, {9, 6, 4}};
auto imaginary = [](std::uint64_t s, const Point& p) { return rough(s + 3, p); };

} // namespace

TEST(Determinism, ScatteredAnyThreadCountAnyBatch) {
    itest::WarningCounter quiet;
    constexpr std::uint64_t kTotal = 5003;
    const ClassId both[] = {ClassId::Double, ClassId::Single};
    for (std::size_t d = 1; d <= 3; ++d)
        for (int pair = 0; pair < 4; ++pair) {
            const ClassId gcls = both[pair / 2], vcls = both[pair % 2], qcls = both[(pair + d) % 2];
            const auto grids = makeGrids(kSizes[d], gcls, d != 2);
            const HostArray cell = gridCell(grids, gcls);
            const HostArray values = gridValues(grids, vcls, 2, rough, imaginary);
            const std::vector<Point> q = queryPoints(grids, kTotal, qcls, 17);
            const HostArray all = pointMatrix(q, d, qcls);
            for (const auto& [m, e] : combinations()) {
                SCOPED_TRACE(m + "/" + e + " d=" + std::to_string(d) + " pair " +
                             std::to_string(pair));
                auto one = interpolant(cell, values, m, e), two = interpolant(cell, values, m, e);
                // Both first evaluations (lazy caches) happen under their thread limit.
                const std::vector<double> ref = evalWith(1, one, all);
                ASSERT_TRUE(samePrefix(evalWith(2, two, all), kTotal, ref, kTotal));
                for (std::uint64_t c : {1u, 2047u, 2048u, 2049u, 4097u}) {
                    const HostArray head =
                        pointMatrix(std::vector<Point>(q.begin(), q.begin() + c), d, qcls);
                    EXPECT_TRUE(samePrefix(evalWith(1, one, head), c, ref, kTotal));
                    EXPECT_TRUE(samePrefix(evalWith(2, two, head), c, ref, kTotal));
                }
            }
        }
}

TEST(Determinism, NDGriddedAnyThreadCount) {
    itest::WarningCounter quiet;
    // Query grids of 2047, 2048, 2049 and 4097 points.
    const std::vector<std::vector<std::uint64_t>> shapes{
        {23, 89}, {32, 64}, {3, 683}, {17, 241}, {8, 16, 16}, {3, 683, 1}, {1, 1, 1}};
    for (const auto& shape : shapes) {
        const std::size_t d = shape.size();
        const auto grids = makeGrids(kSizes[d], ClassId::Double, true);
        const HostArray cell = gridCell(grids, ClassId::Double);
        const HostArray values = gridValues(grids, ClassId::Double, 2, rough, imaginary);
        HostArray vectors = HostArray::createCell(1, d);
        for (std::size_t k = 0; k < d; ++k) {
            std::vector<double> v;
            for (const Point& p : queryPoints(grids, shape[k], ClassId::Double, k + 3))
                v.push_back(p[k]);
            vectors.setCell(k, numericRow(v, ClassId::Double));
        }
        for (const auto& [m, e] : combinations()) {
            SCOPED_TRACE(m + "/" + e + " d=" + std::to_string(d));
            auto one = interpolant(cell, values, m, e), two = interpolant(cell, values, m, e);
            const std::vector<double> ref = evalWith(1, one, vectors);
            EXPECT_TRUE(samePrefix(evalWith(2, two, vectors), ref.size(), ref, ref.size()));
            EXPECT_TRUE(samePrefix(evalWith(2, one, vectors), ref.size(), ref, ref.size()));
        }
    }
}
