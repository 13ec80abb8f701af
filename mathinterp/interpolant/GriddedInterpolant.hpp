// GriddedInterpolant: the object behind the host class griddedInterpolant. It holds the grid
// vectors, the values (as given, and as the evaluator reads them: split planes for complex
// values), the method and extrapolation words, and a shared evaluator that shallow copies
// share. Construction validates in a fixed order (the first failing check's identifier wins);
// evaluation classifies the query form, shapes the output and runs the evaluator.
#pragma once

#include "mathinterp/core/Evaluator.hpp"

#include <platform/HostArray.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace mathinterp {

class GriddedInterpolant {
public:
    GriddedInterpolant() = default;

    // ---- construction (host arguments, as the constructor method receives them) ----------
    void construct(int nrhs, const platform::HostArray* prhs);

    // ---- evaluation F(q1, ..., qk): returns a new array of the values' class -------------
    platform::HostArray evaluate(int nq, const platform::HostArray* queries);
    // ---- gradient at the same query forms: per query the d partial derivatives of the
    // interpolant (docs/gradients.md); result dims: the query frame, then d (left out for
    // d = 1, so a 1-D result has the dims of F(q)), then the value-set extents.
    platform::HostArray gradient(int nq, const platform::HostArray* queries);
    // 1-D only: the derivative of order 1 or 2 at the points of xq, shaped as F(xq).
    platform::HostArray derivative(const platform::HostArray& xq, int order);
    // The checks that precede every evaluation and the lazy build of the evaluator (a host
    // that evaluates one object from several threads calls this first, on one thread).
    void prepareEvaluation();

    // ---- property getters ----------------------------------------------------------------
    const platform::HostArray& gridVectors() const noexcept { return gridVectors_; }
    const platform::HostArray& values() const noexcept { return values_; }
    const platform::HostArray& internalValues() const noexcept { return internalValues_; }
    const platform::HostArray& method() const noexcept { return method_; }
    const platform::HostArray& extrapolationMethod() const noexcept { return extrapMethod_; }
    const std::shared_ptr<Evaluator>& evaluator() const noexcept { return evaluator_; }
    bool evaluatorCurrent() const noexcept { return evaluatorCurrent_; }
    // The grid was built from the values (no grid given), hence uniform by construction.
    bool gridDefaulted() const noexcept { return gridDefaulted_; }
    // Grid, values, method and extrapolation method all present.
    bool fullyConstructed() const noexcept;

    // ---- property setters (host class rules; while not fully constructed they only store)
    void setMethod(const platform::HostArray& word);
    void setExtrapolationMethod(const platform::HostArray& word);
    void setGridVectors(const platform::HostArray& cell);
    void setValues(const platform::HostArray& values);
    void setValuesForCopy(const platform::HostArray& internalValues);
    void setEvaluatorForCopy(std::shared_ptr<Evaluator> evaluator);

    // After loading: default the extrapolation word, default grid for empty values, discard
    // the evaluator.
    void afterLoadFixup();

    // Drop the evaluator; the next evaluation builds it again.
    void discardEvaluator() noexcept;
    // Release every stored array and the evaluator.
    void clear() noexcept;

private:
    // evaluate (order 0) and gradient (order 1, 2) after the shared query checks.
    platform::HostArray runQueries(int nq, const platform::HostArray* queries, int order);

    platform::HostArray gridVectors_;    // cell 1 x d, may be null
    platform::HostArray internalValues_; // values as the evaluator reads them
    platform::HostArray values_;         // as given
    platform::HostArray method_;         // char row, may be null (default)
    platform::HostArray extrapMethod_;   // char row, may be null (default)
    std::shared_ptr<Evaluator> evaluator_;
    bool evaluatorCurrent_ = false;
    bool gridDefaulted_ = false;

    friend struct GriddedInterpolantAccess; // implementation files
};

} // namespace mathinterp
