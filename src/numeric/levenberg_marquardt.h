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

#include <cstddef>
#include <cstdint>

#include "numeric/compensated.h"
#include "numeric/lanes.h"
#include "numeric/nvector.h"
#include "numeric/vector_path.h"

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

// Points of a PointSet side by side: lane l of coordinate c is coordinate c of point at + l.
// Each coordinate is built whole from its lanes (lanes written one by one into memory and read
// back as a vector would wait on the stores).
METROFIT_ALWAYS_INLINE void GatherPoints(const PointSet& points, std::int32_t at,
                                         DoublePair (&xyz)[3]) {
  const double* p = points.Point(at);
  const double* q = points.Point(at + 1);
  for (int c = 0; c < 3; ++c) xyz[c] = MakePair(p[c], q[c]);
}
#if defined(METROFIT_HAS_DOUBLE_QUAD)
METROFIT_ALWAYS_INLINE void GatherPoints(const PointSet& points, std::int32_t at,
                                         DoubleQuad (&xyz)[3]) {
  const double* p[4] = {points.Point(at), points.Point(at + 1), points.Point(at + 2),
                        points.Point(at + 3)};
  for (int c = 0; c < 3; ++c) xyz[c] = DoubleQuad{p[0][c], p[1][c], p[2][c], p[3][c]};
}
#endif

// Lanes of v into out[0 .. lanes - 1].
template <class V>
METROFIT_ALWAYS_INLINE void StoreLanes(double* out, const V& v) {
  constexpr int kLanes = sizeof(V) / sizeof(double);
  for (int l = 0; l < kLanes; ++l) out[l] = v[l];
}

// Element j of the rows (p wide) of the points k, k + 1, ... from the lanes of v.
template <class V>
METROFIT_ALWAYS_INLINE void StoreRowLanes(double* rows, std::int32_t p, std::int32_t k,
                                          std::int32_t j, const V& v) {
  constexpr int kLanes = sizeof(V) / sizeof(double);
  for (int l = 0; l < kLanes; ++l) rows[static_cast<std::ptrdiff_t>(k + l) * p + j] = v[l];
}

// The lanes of v, 0.0 where the lane of test is 0 (either sign).
template <class V>
METROFIT_ALWAYS_INLINE V ZeroWhereZero(const V& test, const V& v) {
#if defined(__GNUC__)
  return test == 0.0 ? Filled<V>(0.0) : v;
#else
  V out = v;
  for (int l = 0; l < static_cast<int>(sizeof(V) / sizeof(double)); ++l)
    if (test[l] == 0.0) out[l] = 0.0;
  return out;
#endif
}

#if defined(METROFIT_HAS_DOUBLE_QUAD)
// The groups of four points of a block, with the processor's AVX2; returns how many points
// they took.
template <class Body>
__attribute__((target("avx2"))) std::int32_t ForPointQuadsAvx2(const PointSet& points,
                                                               std::int32_t first,
                                                               std::int32_t count,
                                                               const Body& body) {
  std::int32_t k = 0;
  for (; k + 3 < count; k += 4) {
    DoubleQuad xyz[3];
    GatherPoints(points, first + k, xyz);
    body(k, xyz);
  }
  return k;
}
#endif

// The skeleton of a block function whose model is written once for any lanes: body(k, xyz)
// for the points first + k onwards, four at a time where the processor has AVX2 and two at a
// time otherwise (and for what is left), and one(k) for a last point left alone. Body is a
// class with an always-inlined `template <class V> void operator()(std::int32_t, const V
// (&)[3]) const`; each lane does the scalar operations, so every path gives the same bits.
template <class Body, class One>
inline void ForPointLanes(const PointSet& points, std::int32_t first, std::int32_t count,
                          const Body& body, One one) {
  std::int32_t k = 0;
#if defined(METROFIT_HAS_DOUBLE_QUAD)
  if (ActiveVectorPath() == VectorPath::kAvx2) k = ForPointQuadsAvx2(points, first, count, body);
#endif
  for (; k + 1 < count; k += 2) {
    DoublePair xyz[3];
    GatherPoints(points, first + k, xyz);
    body(k, xyz);
  }
  if (k < count) one(k);
}

// Points side by side against an axis through x[0..2] along x[3..5] (a, not necessarily unit):
// the offsets d = p - x[0..2], the projection t = d.a and |d x a|, formed as the one-point forms
// of the cylinder and cone form them (the cross product by Hypot3).
template <class V>
struct AxisOffsetLanes {
  V d[3];
  V cross;  // |d x a|
  V t;      // d.a
  METROFIT_ALWAYS_INLINE AxisOffsetLanes(const V (&p)[3], const NVector& x)
      : d{p[0] - x[0], p[1] - x[1], p[2] - x[2]} {
    const double a[3] = {x[3], x[4], x[5]};
    cross = Hypot3(d[1] * a[2] - d[2] * a[1], d[2] * a[0] - d[0] * a[2], d[0] * a[1] - d[1] * a[0]);
    t = d[0] * a[0] + d[1] * a[1] + d[2] * a[2];
  }
};

// The rows and residuals of a distance from a centre, len - radius, for the points k onwards
// (one per lane): -d_j / len for the first `dims` unknowns (0 where len is 0: a point at the
// centre has no direction), then -1 for the radius.
template <class V>
METROFIT_ALWAYS_INLINE void StoreCentreDistanceLanes(double* rows, double* residuals,
                                                     std::int32_t k, const V* d, std::int32_t dims,
                                                     const V& len, double radius) {
  const std::int32_t p = dims + 1;
  for (std::int32_t j = 0; j < dims; ++j)
    StoreRowLanes(rows, p, k, j, ZeroWhereZero(len, -d[j] / len));
  StoreRowLanes(rows, p, k, dims, Filled<V>(-1.0));
  StoreLanes(residuals + k, len - radius);
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
