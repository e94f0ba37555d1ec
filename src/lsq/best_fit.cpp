// CFitInput::BestFit: Gauss-Helmert adjustment of the points against the shape of m_fitType.
//
// Every point p_i is an observation with cofactor Q and gives m conditions f(p_i, x) = 0,
// linearised as B v + A dx = w (B = df/dp, A = df/dx, w = -f; the shapes are in lsq/shapes/).
// With M = B Q B^T the normal equations of one Gauss-Newton step are
//
//   (sum A^T M^-1 A + C) dx = sum A^T M^-1 w - C (x - x0),
//
// C the diagonal prior weights of the caller (1e20 holds a parameter at its value in x0, 0
// leaves it free; a negative weight counts as 0). No damping and no line search. The variance
// factor sum w^T M^-1 w / r, r = points + offset + fixed parameters, drives the relative-change
// test; on convergence every point gets its residual vector v = Q B^T M^-1 w.
//
// One iteration: write x into the result, one pass over the points for the sums (the shape's
// own pass, specialised to its sizes: point_pass.h, moment_pass.h), the prior, the step on the
// small n x n system with the row-pointer kernels, the convergence test.
//
// Singular systems are not detected: a vanishing pivot stops an inversion, the partly inverted
// matrix is used as it stands, and the failure shows as divergence, the iteration limit or
// meaningless numbers.
#include "lsq/best_fit.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/constants.h"
#include "lsq/point_moments.h"
#include "lsq/shape.h"
#include "metrofit.h"

namespace {

using metrofit::NormalSums;
using metrofit::PassContext;
using metrofit::ShapeDescription;
using Pt = KPt3<double>;

// More full iterations than this fail the fit (the stop is taken at the top of the next pass,
// so 501 iterations run).
constexpr int kMaxIterations = 500;
// A step component above this is divergence.
constexpr double kMaxStep = 1e6;
// Converged when the variance factor changes by less than this, relative.
constexpr double kRelativeChangeTolerance = 1e-6;
// Step tolerances: without redundancy the step is the only measure left; the plane's
// parameters are an offset and two angles, hence its own, coarser bound.
constexpr double kNoRedundancyStepTolerance = 1e-8;
constexpr double kPlaneStepTolerance = 5e-10;
constexpr double kStepTolerance = 1e-12;
// Value of the previous variance factor before the first iteration.
constexpr double kInitialObjective = 1.0;
// Smallest deviation length reported for an empty deviation list.
constexpr double kEmptyListExtreme = 0.0;

// The row-pointer matrices of one BestFit call, allocated at entry and released on every way
// out. Each gets at least one row and one column so that a fit type without a shape (no
// unknowns) still has valid, unused storage.
struct Work {
  double** x0 = nullptr;  // n x 1 a-priori values
  double** x = nullptr;   // n x 1 current parameters
  double** dx = nullptr;  // n x 1 step
  double** u = nullptr;   // n x 1 right-hand side
  double** d = nullptr;   // n x 1 x - x0
  double** N = nullptr;   // n x n normal matrix, inverted in place

  explicit Work(int n) : rows_(n > 0 ? n : 1) {
    double*** all[] = {&x0, &x, &dx, &u, &d};
    for (double*** m : all) *m = mCreateMatrix(rows_, 1);
    N = mCreateMatrix(rows_, rows_);
  }
  ~Work() {
    double*** all[] = {&x0, &x, &dx, &u, &d, &N};
    for (double*** m : all) mFreeMatrix(m, rows_);
  }
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  bool Ok() const { return x0 && x && dx && u && d && N; }

 private:
  int rows_;
};

// r = points + offset + fixed parameters, as an unsigned 64-bit count: with fewer points than
// the offset asks for it wraps to a huge value on purpose, the variance factor then comes out
// near 0 and only the relative-change test can decide. Negative prior weights are free
// parameters: they are zeroed here, with the caller's value beside them.
std::uint64_t Redundancy(std::size_t points, int offset, int n, double** constraints,
                         double** params) {
  std::uint64_t fixed = 0;
  for (int k = 0; k < n; ++k) {
    if (constraints[k][k] > 0.0) ++fixed;
    if (constraints[k][k] < 0.0) {
      constraints[k][k] = 0.0;
      params[k][0] = 0.0;
    }
  }
  const std::uint64_t wrappedOffset = static_cast<std::uint64_t>(static_cast<std::int64_t>(offset));
  return static_cast<std::uint64_t>(points) + wrappedOffset + fixed;
}

// The rotation of the result's three angles, for probe compensation (the sphere has none).
void UpdateRotation(int fitType, const CFitResult& res, double (&rot)[3][3]) {
  if (fitType == FIT_SPHERE) return;
  double m9[9];
  ConvertAnglesToMatrix(res.m_angles.x, res.m_angles.y, res.m_angles.z, m9);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) rot[i][j] = m9[3 * i + j];
}

// The normal equations over all points, and the weighted sum of squared misclosures into
// m_objective.
void Accumulate(const ShapeDescription& shape, PassContext& ctx, Work& k) {
  const int n = shape.engine.parameters;
  NormalSums sums;
  shape.accumulate(ctx, sums);
  for (int a = 0; a < n; ++a) {
    for (int b = 0; b < n; ++b) k.N[a][b] = sums.N[a][b];
    k.u[a][0] = sums.u[a];
  }
  ctx.res.m_objective = sums.objective;
}

// The prior. The caller's parameter vector serves as scratch for C (x - x0).
void ApplyPrior(double** constraints, double** params, int n, Work& k) {
  mCopyMatrix(k.d, k.x, n, 1);
  mSubtractMatrix(k.d, k.x0, n, 1);
  mMultiplyMatrix(constraints, k.d, params, n, n, 1);
  mAddMatrix(k.N, constraints, n, n);
  mSubtractMatrix(k.u, params, n, 1);
}

// dx = N^-1 u, x += dx; returns the largest step component (NaN if any is NaN).
double TakeStep(int n, Work& k) {
  mInvertMatrix(k.N, n);
  mMultiplyMatrix(k.N, k.u, k.dx, n, n, 1);
  mAddMatrix(k.x, k.dx, n, 1);
  return mMaxAbs(k.dx, n);
}

// Comparisons are written so that a NaN step or variance factor never converges.
bool Converged(int fitType, std::uint64_t r, double delta, double previous, double& rel,
               CFitResult& res) {
  if (r == 0) return delta <= kNoRedundancyStepTolerance;
  res.m_objective /= static_cast<double>(r);
  // A variance factor of exactly 0 keeps the previous relative change (0 before the first
  // iteration), so points exactly on the start shape converge at once.
  if (res.m_objective != 0.0) rel = (res.m_objective - previous) / res.m_objective;
  const double stepTolerance = fitType == FIT_PLANE ? kPlaneStepTolerance : kStepTolerance;
  return std::fabs(rel) < kRelativeChangeTolerance || delta <= stepTolerance;
}

// After convergence: N^-1 and x to the caller, one residual vector per point appended, and
// the statistics. The result keeps the parameters of the start of the converging iteration.
void Finish(const ShapeDescription& shape, PassContext& ctx, double** constraints, double** params,
            Work& k) {
  const int n = shape.engine.parameters;
  CFitResult& res = ctx.res;
  mCopyMatrix(constraints, k.N, n, n);
  mCopyMatrix(params, k.x, n, 1);

  // Extremes over the whole list: the entries of earlier calls first, then this pass's.
  double smallest = metrofit::kSentinel, largest = 0.0;
  for (const Pt& v : res.m_deviations) {
    const double len = v.Length();
    if (len < smallest) smallest = len;
    if (len > largest) largest = len;
  }
  const std::size_t count = ctx.in.m_points.size();
  const metrofit::ResidualSums sums = shape.residuals(ctx);
  if (sums.smallest < smallest) smallest = sums.smallest;
  if (sums.largest > largest) largest = sums.largest;
  const double points = static_cast<double>(count);
  res.m_sigma = std::sqrt(sums.squares / (count > 1 ? points - 1.0 : 1.0));
  res.m_rms = std::sqrt(sums.squares / points);
  res.m_formError = res.m_rms;  // provisional; the driver puts the shape's own measure here
  // The list the caller would see: empty only if it was and this pass added nothing.
  const bool emptyList = res.m_deviations.empty() && (ctx.appendDeviations || count == 0);
  if (emptyList) smallest = largest = kEmptyListExtreme;
  res.m_minDeviation = smallest;
  res.m_maxDeviation = largest;
}

}  // namespace

void CFitInput::BestFit(CFitResult& result, double** constraints, double** params) {
  metrofit::RunBestFit(*this, result, constraints, params, metrofit::DeviationList::kAppended);
}

void metrofit::RunBestFit(CFitInput& in, CFitResult& result, double** constraints, double** params,
                          DeviationList list) {
  const std::size_t points = in.m_points.size();
  result.m_iterations = 0;
  result.m_objective = kInitialObjective;
  result.m_valid = 1;

  // A code outside 0..8 runs with no unknowns, no estimator and no model.
  const ShapeDescription* shape = &metrofit::EngineShapeFor(in.m_fitType);
  const int n = shape->engine.parameters;
  Work k(n);
  if (!k.Ok()) {
    // Out of memory is a failed fit, never an exception across the interface.
    result.m_valid = 0;
    return;
  }

  mCopyMatrix(k.x0, params, n, 1);
  if (shape->estimate != nullptr) (in.*shape->estimate)(result, constraints, k.x0);
  metrofit::PointMoments moments;
  PassContext ctx{in, result, {}, false, &moments, list == DeviationList::kAppended};
  // The only place m_axis is written: the estimate's axis. The driver derives the final one.
  // A sphere has no orientation: its axis stays as the caller seeded it.
  if (in.m_fitType != FIT_SPHERE) {
    UpdateRotation(in.m_fitType, result, ctx.rotation);
    result.m_axis = Pt(ctx.rotation[2][0], ctx.rotation[2][1], ctx.rotation[2][2]);
  }
  const std::uint64_t r = Redundancy(points, shape->engine.offset, n, constraints, params);
  ctx.noRedundancy = r == 0;
  mCopyMatrix(k.x, k.x0, n, 1);

  bool stop = false;
  double rel = 0.0;
  for (;;) {
    // The stop decided at the end of the previous pass is taken here: that pass's update is
    // discarded and the result keeps the parameters written at its start.
    if (stop) {
      result.m_valid = 0;
      return;
    }
    ++result.m_iterations;
    const double previous = result.m_objective;
    result.m_objective = 0.0;

    shape->writeParameters(in, result, k.x);
    UpdateRotation(in.m_fitType, result, ctx.rotation);
    Accumulate(*shape, ctx, k);
    ApplyPrior(constraints, params, n, k);
    const double delta = TakeStep(n, k);

    if (Converged(in.m_fitType, r, delta, previous, rel, result)) break;
    // delta > kMaxStep is false for a NaN step, which then runs into the iteration limit.
    if (result.m_iterations > kMaxIterations || delta > kMaxStep) stop = true;
  }

  Finish(*shape, ctx, constraints, params, k);
  result.m_valid = 1;
}
