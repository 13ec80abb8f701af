// Helpers of the interpolant tests: building host arguments, catching the identifier of the
// first failing check, counting warnings through the host's warning sink, and a recording
// evaluator that lets the query-form handling be checked independently of the engine.
#pragma once

#include "mathinterp/interpolant/EvaluatorFactory.hpp"
#include "mathinterp/interpolant/GriddedInterpolant.hpp"
#include "mathinterp/interpolant/Identifiers.hpp"

#include <platform/HostArray.hpp>
#include <platform/HostError.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace itest {

using platform::ClassId;
using platform::Dims;
using platform::HostArray;
using Args = std::vector<HostArray>;

inline HostArray row(std::vector<double> v) {
    return HostArray::rowVector(v);
}
inline HostArray col(std::vector<double> v) {
    return HostArray::columnVector(v);
}
inline HostArray rowSingle(const std::vector<float>& v) {
    return HostArray::fromSingles({1, v.size()}, v);
}
inline HostArray text(const char* s) {
    return HostArray::charRow(s);
}
// 1, 2, ..., n as a double row.
inline HostArray oneTo(std::uint64_t n) {
    std::vector<double> v(n);
    for (std::uint64_t i = 0; i < n; ++i)
        v[i] = static_cast<double>(i + 1);
    return row(v);
}
// An array of the given size whose element i holds f(i).
inline HostArray filled(Dims dims, const std::function<double(std::uint64_t)>& f) {
    HostArray a = HostArray::createNumeric(dims, ClassId::Double);
    double* p = a.data<double>();
    for (std::uint64_t i = 0; i < a.numberOfElements(); ++i)
        p[i] = f(i);
    return a;
}

// The identifier raised by f ("" when nothing is raised; "MethodNotBuilt" for a method that
// is not part of this build; "other: <what>" for anything else).
inline std::string raisedId(const std::function<void()>& f) {
    try {
        f();
    } catch (const mathinterp::InterpolationException& e) {
        return e.identifier();
    } catch (const mathinterp::MethodNotBuiltError&) {
        return "MethodNotBuilt";
    } catch (const std::exception& e) {
        return std::string("other: ") + e.what();
    }
    return "";
}

inline std::string gi(const std::string& key) {
    return "QUARTZ:griddedInterpolant:" + key;
}

inline std::string constructId(mathinterp::GriddedInterpolant& g, const Args& a) {
    return raisedId([&] { g.construct(static_cast<int>(a.size()), a.data()); });
}
inline std::string constructId(const Args& a) {
    mathinterp::GriddedInterpolant g;
    return constructId(g, a);
}

inline HostArray eval(mathinterp::GriddedInterpolant& g, const Args& q) {
    return g.evaluate(static_cast<int>(q.size()), q.data());
}
inline std::string evalId(mathinterp::GriddedInterpolant& g, const Args& q) {
    return raisedId([&] { (void)eval(g, q); });
}

// Counts warnings by identifier while alive; restores the previous sink afterwards.
class WarningCounter {
public:
    WarningCounter() {
        previous_ = platform::setWarningSink([this](const std::string& id, const std::string&) {
            ++counts_[id];
            ++total_;
        });
    }
    ~WarningCounter() { platform::setWarningSink(previous_); }
    WarningCounter(const WarningCounter&) = delete;
    WarningCounter& operator=(const WarningCounter&) = delete;
    int count(const std::string& key) const {
        const auto it = counts_.find(gi(key));
        return it == counts_.end() ? 0 : it->second;
    }
    int total() const { return total_; }

private:
    platform::WarningSink previous_;
    std::map<std::string, int> counts_;
    int total_ = 0;
};

inline std::string textOf(const HostArray& a) {
    std::string s;
    for (char16_t c : a.charData())
        s.push_back(static_cast<char>(c));
    return s;
}

// An evaluator that records what it receives and writes a known function of the queries:
// scattered: plane k, point i -> 1000 k + sum_j (j + 1) * 10^j * coordinate_j(i) (as double);
// gridded: the same function on the grid point of the query vectors (first fastest).
class RecordingEvaluator final : public mathinterp::Evaluator {
public:
    explicit RecordingEvaluator(std::uint64_t planes) : planes_(planes) {}

    void rebindValues(const void* const*) override { ++rebinds; }

    void evaluateGridded(const HostArray& vectors, HostArray& out) override {
        ++griddedCalls;
        lastVectors = vectors;
        const std::uint64_t d = vectors.numberOfElements();
        std::uint64_t count = 1;
        for (std::uint64_t j = 0; j < d; ++j)
            count *= vectors.getCell(j).numberOfElements();
        for (std::uint64_t k = 0; k < planes_; ++k)
            for (std::uint64_t i = 0; i < count; ++i) {
                double v = 1000.0 * static_cast<double>(k);
                std::uint64_t rest = i;
                double scale = 1;
                for (std::uint64_t j = 0; j < d; ++j) {
                    const HostArray x = vectors.getCell(j);
                    const std::uint64_t n = x.numberOfElements();
                    v += scale * static_cast<double>(j + 1) * x.realAt(rest % n);
                    rest /= n;
                    scale *= 10;
                }
                write(out, k, count, i, v);
            }
    }

    void evaluateScattered(std::uint64_t m, const HostArray& queries, HostArray& out) override {
        ++scatteredCalls;
        lastM = m;
        lastQueries = queries;
        const std::uint64_t d = m == 0 ? 0 : queries.numberOfElements() / m;
        for (std::uint64_t k = 0; k < planes_; ++k)
            for (std::uint64_t i = 0; i < m; ++i) {
                double v = 1000.0 * static_cast<double>(k);
                double scale = 1;
                for (std::uint64_t j = 0; j < d; ++j) {
                    v += scale * static_cast<double>(j + 1) * queries.realAt(j * m + i);
                    scale *= 10;
                }
                write(out, k, m, i, v);
            }
    }

    std::uint64_t numPlanes() const noexcept override { return planes_; }

    int griddedCalls = 0;
    int scatteredCalls = 0;
    int rebinds = 0;
    std::uint64_t lastM = 0;
    HostArray lastQueries;
    HostArray lastVectors;

private:
    static void write(HostArray& out, std::uint64_t k, std::uint64_t count, std::uint64_t i,
                      double v) {
        const std::uint64_t idx = k * count + i;
        if (out.classId() == ClassId::Double)
            out.data<double>()[idx] = v;
        else
            out.data<float>()[idx] = static_cast<float>(v);
    }
    std::uint64_t planes_;
};

// A fully constructed N-D interpolant whose evaluator is a RecordingEvaluator (built through
// the load and copy setters, so nothing of the N-D engine is needed).
inline std::shared_ptr<RecordingEvaluator> withRecorder(mathinterp::GriddedInterpolant& g,
                                                        const HostArray& grid,
                                                        const HostArray& values,
                                                        std::uint64_t planes) {
    g.setGridVectors(grid);
    g.setValues(values);
    g.setMethod(text("linear"));
    g.setExtrapolationMethod(text("linear"));
    auto rec = std::make_shared<RecordingEvaluator>(planes);
    g.setEvaluatorForCopy(rec);
    return rec;
}

} // namespace itest
