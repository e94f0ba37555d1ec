// Levenberg-Marquardt minimisation of a sum of squares with Marquardt diagonal scaling plus a
// Levenberg term.
//
// For an objective f(x) = sum_i r_i(x)^2 with gradient g = J^T r and normal matrix A = J^T J
// (no factor 2 on either: the step equation is the same), each trial solves
//   (A + lambda (diag(A) + I)) step = -g
// by Cholesky and tries x_prev + step. A decrease is accepted and shrinks lambda by 0.4 for the
// next gradient; a rejected trial grows lambda tenfold and tries again from x_prev. The
// diag(A) term makes the step scale-invariant per parameter, the I term keeps the damped
// matrix positive definite where A is singular (a parameter the data do not determine).
//
// Callbacks take a context (the caller's data, usually a PointSet) and the parameter vector:
//   objective  f(context, x)
//   gradient   g(context, x, gradient out, normal matrix out (packed symmetric p x p));
//              it may also bring x into a canonical form in place (a sign, a normalisation).
// The residual-level helpers SumOfSquares and NormalEquations build both from per-point
// callbacks over a PointSet, whose count is the number of residuals:
//   residual      r(points, i, x)
//   residual row  (points, i, x, row out (p elements of J_i), residual out)
//
// Statuses (NumericStatus): kOk converged, kIterationLimit, kBadArguments (absent x or
// callback), kAllocationFailure. Work vectors are made once per call.
#ifndef METROFIT_NUMERIC_LEVENBERG_MARQUARDT_H
#define METROFIT_NUMERIC_LEVENBERG_MARQUARDT_H

#include <cstdint>

#include "numeric/lanes.h"
#include "numeric/nvector.h"

namespace metrofit::numeric {

using ObjectiveFn = double (*)(void* context, const NVector& x);
using GradientFn = void (*)(void* context, NVector& x, NVector& gradient, NMatrix& normal);
using ResidualFn = double (*)(const PointSet& points, std::int32_t i, const NVector& x);
using ResidualRowFn = void (*)(const PointSet& points, std::int32_t i, const NVector& x,
                               NVector& row, double& residual);
// Residuals of the points first .. first + count - 1 into out[0 .. count - 1]: one call per
// block of points, so that what is constant within a pass is computed once per block and the
// points of a block can be evaluated side by side.
using ResidualBlockFn = void (*)(const PointSet& points, std::int32_t first, std::int32_t count,
                                 const NVector& x, double* out);
// Jacobian rows (count x p, row after row) and residuals of a block of points, as
// ResidualRowFn gives them one point at a time.
using ResidualRowBlockFn = void (*)(const PointSet& points, std::int32_t first, std::int32_t count,
                                    const NVector& x, double* rows, double* residuals);
// Largest number of points a block function is asked for at once.
constexpr std::int32_t kResidualBlock = 256;
// Largest number of unknowns of a block row function (rows are kept on the stack).
constexpr std::int32_t kMaxBlockUnknowns = 8;

// The skeleton of a block function: pair(k, xyz) for the points first + k and first + k + 1,
// their coordinates as pairs, and one(k) for a last point left alone.
template <class Pair, class One>
inline void ForPointPairs(const PointSet& points, std::int32_t first, std::int32_t count, Pair pair,
                          One one) {
  std::int32_t k = 0;
  for (; k + 1 < count; k += 2) {
    const double* p = points.Point(first + k);
    const double* q = points.Point(first + k + 1);
    const DoublePair xyz[3] = {MakePair(p[0], q[0]), MakePair(p[1], q[1]), MakePair(p[2], q[2])};
    pair(k, xyz);
  }
  if (k < count) one(k);
}

// The rows and residuals of a distance from a centre, len - radius, for points k and k + 1:
// -d_j / len for the first `dims` unknowns (0 where len is 0: a point at the centre has no
// direction), then -1 for the radius.
inline void StoreCentreDistancePair(double* rows, double* residuals, std::int32_t k,
                                    const DoublePair* d, std::int32_t dims, const DoublePair& len,
                                    double radius);

// Element j of the rows (p wide) of points k and k + 1 from a pair.
inline void StoreRowPair(double* rows, std::int32_t p, std::int32_t k, std::int32_t j,
                         const DoublePair& v) {
  rows[static_cast<std::ptrdiff_t>(k) * p + j] = v[0];
  rows[static_cast<std::ptrdiff_t>(k + 1) * p + j] = v[1];
}

inline void StoreCentreDistancePair(double* rows, double* residuals, std::int32_t k,
                                    const DoublePair* d, std::int32_t dims, const DoublePair& len,
                                    double radius) {
  const std::int32_t p = dims + 1;
  for (std::int32_t j = 0; j < dims; ++j) {
    const DoublePair q = -d[j] / len;
    StoreRowPair(rows, p, k, j, MakePair(len[0] == 0.0 ? 0.0 : q[0], len[1] == 0.0 ? 0.0 : q[1]));
  }
  StoreRowPair(rows, p, k, dims, Splat(-1.0));
  const DoublePair r = len - radius;
  residuals[k] = r[0];
  residuals[k + 1] = r[1];
}

// Damping at the start of a minimisation; shrunk by kDampingShrink before the first trial.
constexpr double kInitialDamping = 1e-5;
// Damping factor applied after every accepted step (before the next gradient).
constexpr double kDampingShrink = 0.4;
// Damping factor applied after every rejected trial or failed factorisation.
constexpr double kDampingGrowth = 10.0;
// Near-tie margin of MinimiseLMObjective: a trial at most this much above the previous value
// still has its step tested for convergence.
constexpr double kObjectiveTieMargin = 1e-8;

// Damping after a rejected trial: lambda x 10, and the smallest normal double when that is
// exactly 0 (lambda underflowed through repeated shrinking), so the damping can grow again.
double GrowDamping(double lambda);

// Step test of MinimiseLM. tol >= 0: every |x_i - xPrev_i| < tol (equal fails). tol < 0:
// every |x_i - xPrev_i| <= |xPrev_i| (-tol). True when x has no elements; false when the
// counts differ.
bool StepConverged(const NVector& x, const NVector& xPrev, double tol);
// Step test of MinimiseLMObjective: as StepConverged, but tol >= 0 passes with
// |x_i - xPrev_i| <= tol (equal passes).
bool StepConvergedInclusive(const NVector& x, const NVector& xPrev, double tol);

// Compensated sum of r_i^2 over the points; just r_0^2 for a single point and 0 without points.
double SumOfSquares(const PointSet& points, const NVector& x, ResidualFn residual);
// The same sum, bit for bit, from residuals computed a block at a time.
double SumOfSquares(const PointSet& points, const NVector& x, ResidualBlockFn residuals);

// gradient = J^T r and normal = J^T J (packed lower triangle, p = x.count) over all points,
// every element summed with its own compensation term in one zero-filled work block. When the
// block cannot be allocated, or the shapes do not match, both outputs are set to zero.
void NormalEquations(const PointSet& points, const NVector& x, ResidualRowFn row, NVector& gradient,
                     NMatrix& normal);
// The same sums, bit for bit, from rows computed a block at a time (x.count at most
// kMaxBlockUnknowns); the elements' compensated steps run two elements side by side.
void NormalEquations(const PointSet& points, const NVector& x, ResidualRowBlockFn rows,
                     NVector& gradient, NMatrix& normal);

// Minimises from x (overwritten by the solution). maxIter counts objective evaluations of
// trials plus one; 0 means no limit. tol is the step tolerance (absolute when >= 0, relative
// when < 0). *result (may be null) receives the objective value at the returned x; *accuracy
// (may be null) sqrt((p tol^2 + e^2) / 3) with e = max(eps / rcond, tol) from the reciprocal
// condition of the finally damped normal matrix (e = 0 when rcond is 0).
NumericStatus MinimiseLM(void* context, ObjectiveFn objective, GradientFn gradient,
                         std::int32_t maxIter, double tol, double* result, NVector* x,
                         double* accuracy);

// The same scheme with two deliberate differences: the step of a trial that lies less than
// kObjectiveTieMargin above the previous value is tested too (not only exact ties), and the
// absolute step test accepts an element equal to tol (StepConvergedInclusive).
NumericStatus MinimiseLMObjective(void* context, ObjectiveFn objective, GradientFn gradient,
                                  std::int32_t maxIter, double tol, double* result, NVector* x,
                                  double* accuracy);

}  // namespace metrofit::numeric

#endif  // METROFIT_NUMERIC_LEVENBERG_MARQUARDT_H
