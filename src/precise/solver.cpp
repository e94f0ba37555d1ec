#include "precise/solver.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace metrofit::precise {
namespace {

// Damping of the first trial, relative to the Jacobi-scaled normal matrix.
constexpr double kInitialDamping = 1e-6;
// Factor by which the damping shrinks after a good step and grows after a bad one.
constexpr double kDampingFactor = 10.0;
// Smallest damping kept after good steps: below it the step is Gauss-Newton's.
constexpr double kMinDamping = 1e-12;
// Damping at or below which a step counts as (nearly) the Gauss-Newton step.
constexpr double kGaussNewtonDamping = 1e-6;
// Reciprocal condition of the scaled normal matrix below which the points do not determine
// the parameters.
constexpr double kRankReciprocal = 1e-14;
// A parameter whose unit change moves the points by less than this (relative) has no effect.
constexpr double kNoEffect = 1e-9;
// Largest damping tried before the iteration gives up on lowering the sum of squares.
constexpr double kMaxDamping = 1e16;
// A step whose every component (length, or angle times the data size) is below this fraction
// of the data size changes nothing a double can hold about the feature.
constexpr double kNegligibleStep = 1e-14;
// Below the rounding of the sums, steps are judged by their length alone: a step that does not
// shrink below this fraction of the shortest one so far makes no progress, and after
// kMaxStalledSteps of them the iterate is at the rounding floor.
constexpr double kProgressRatio = 0.9;
constexpr int kMaxStalledSteps = 3;

bool CholeskyInPlace(double a[kLocalCount][kLocalCount], int p) {
  for (int j = 0; j < p; ++j) {
    double d = a[j][j];
    for (int k = 0; k < j; ++k) d -= a[j][k] * a[j][k];
    if (!(d > 0.0)) return false;
    a[j][j] = std::sqrt(d);
    for (int i = j + 1; i < p; ++i) {
      double v = a[i][j];
      for (int k = 0; k < j; ++k) v -= a[i][k] * a[j][k];
      a[i][j] = v / a[j][j];
    }
  }
  return true;
}

void CholeskySolve(const double l[kLocalCount][kLocalCount], int p, double* b) {
  for (int i = 0; i < p; ++i) {
    for (int k = 0; k < i; ++k) b[i] -= l[i][k] * b[k];
    b[i] /= l[i][i];
  }
  for (int i = p - 1; i >= 0; --i) {
    for (int k = i + 1; k < p; ++k) b[i] -= l[k][i] * b[k];
    b[i] /= l[i][i];
  }
}

// Column scales sqrt(diag): the Jacobi scaling of the normal matrix.
void Scales(const Normal& ne, double* d) {
  for (int i = 0; i < ne.p; ++i) d[i] = ne.a[i][i] > 0.0 ? std::sqrt(ne.a[i][i]) : 1.0;
}

// Damped step over the free parameters; false when the damped matrix is not positive definite.
bool DampedStep(const Normal& ne, double lambda, double* x) {
  double d[kLocalCount];
  Scales(ne, d);
  double l[kLocalCount][kLocalCount];
  for (int i = 0; i < ne.p; ++i) {
    for (int j = 0; j < ne.p; ++j) l[i][j] = ne.a[i][j] / (d[i] * d[j]);
    l[i][i] += lambda;
    x[i] = -ne.g[i] / d[i];
  }
  if (!CholeskyInPlace(l, ne.p)) return false;
  CholeskySolve(l, ne.p, x);
  for (int i = 0; i < ne.p; ++i) x[i] /= d[i];
  return true;
}

// Decrease of the sum of squares the linear model predicts for the step x.
double PredictedDecrease(const Normal& ne, const double* x) {
  double lin = 0.0, quad = 0.0;
  for (int i = 0; i < ne.p; ++i) {
    lin += ne.g[i] * x[i];
    for (int j = 0; j < ne.p; ++j) quad += x[i] * ne.a[i][j] * x[j];
  }
  return -2.0 * lin - quad;
}

// Largest step component as a length (angles times the data size).
double StepLength(const Problem& problem, const Normal& ne, const double* x) {
  double m = 0.0;
  for (int i = 0; i < ne.p; ++i) m = std::fmax(m, std::fabs(x[i]) * problem.weight[ne.index[i]]);
  return m;
}

bool Negligible(const Problem& problem, const Normal& ne, const double* x) {
  for (int i = 0; i < ne.p; ++i) {
    if (std::fabs(x[i]) * problem.weight[ne.index[i]] > kNegligibleStep * problem.scale) {
      return false;
    }
  }
  return true;
}

}  // namespace

void PrepareNormal(const Problem& problem, Normal* ne) {
  ne->p = 0;
  for (int i = 0; i < kLocalCount; ++i) {
    if (problem.free[i]) ne->index[ne->p++] = i;
  }
}

State Step(const Problem& problem, const State& s, const double* x) {
  State m = Moved(s, x);
  const Vec3 v = problem.centroid - m.c;
  const double t = m.u.Dot(v);
  switch (problem.recentre) {
    case Recentre::kNone:
      break;
    case Recentre::kAlongAxis:
      m.c += m.u * t;
      break;
    case Recentre::kConePivot:
      m.c += m.u * t;
      m.size[0] += t * std::tan(m.size[1]);
      break;
    case Recentre::kInPlane:
      m.c += v - m.u * t;
      break;
  }
  return m;
}

Solution Minimise(const Problem& problem, AccumulateFn accumulate, const State& start,
                  int maxIterations) {
  Solution sol;
  PrepareNormal(problem, &sol.normal);
  sol.state = Step(problem, start, std::array<double, kLocalCount>{}.data());
  sol.sum = accumulate(problem, sol.state, &sol.normal);
  Normal trial = sol.normal;
  double lambda = kInitialDamping;
  int stalled = 0;
  double shortest = std::numeric_limits<double>::infinity();
  while (sol.iterations < maxIterations && std::isfinite(sol.sum)) {
    double x[kLocalCount];
    if (!DampedStep(sol.normal, lambda, x)) {
      if ((lambda = std::max(lambda * kDampingFactor, kGaussNewtonDamping)) > kMaxDamping) break;
      continue;
    }
    ++sol.iterations;
    double full[kLocalCount] = {};
    for (int i = 0; i < sol.normal.p; ++i) full[sol.normal.index[i]] = x[i];
    const bool negligible = Negligible(problem, sol.normal, x);
    const bool nearGaussNewton = lambda <= kGaussNewtonDamping;
    if (negligible && nearGaussNewton && problem.stopBeforeNegligible) {
      sol.converged = true;
      break;
    }
    const State next = Step(problem, sol.state, full);
    const double sum = accumulate(problem, next, &trial);
    // A step whose predicted and actual changes are both below the rounding of the sums: the
    // sum of squares cannot judge it, the linear model can.
    const double noise = std::fmax(sol.normal.noise, trial.noise);
    const bool invisibleStep = PredictedDecrease(sol.normal, x) <= noise && sum <= sol.sum + noise;
    if (sum <= sol.sum || invisibleStep) {
      const double length = StepLength(problem, sol.normal, x);
      if (invisibleStep && length > kProgressRatio * shortest) ++stalled;
      shortest = std::fmin(shortest, length);
      sol.state = next;
      sol.sum = sum;
      std::swap(sol.normal, trial);
      lambda = std::max(lambda / kDampingFactor, kMinDamping);
      if (negligible || stalled >= kMaxStalledSteps) {
        sol.converged = true;
        break;
      }
      continue;
    }
    if (negligible && nearGaussNewton) {
      sol.converged = true;
      break;
    }
    if ((lambda = std::max(lambda * kDampingFactor, kGaussNewtonDamping)) > kMaxDamping) break;
  }
  sol.determined = Determined(problem, sol.normal);
  return sol;
}

bool Cofactor(const Normal& ne, double inverse[kLocalCount][kLocalCount]) {
  double d[kLocalCount];
  Scales(ne, d);
  double l[kLocalCount][kLocalCount];
  for (int i = 0; i < ne.p; ++i) {
    for (int j = 0; j < ne.p; ++j) l[i][j] = ne.a[i][j] / (d[i] * d[j]);
  }
  if (!CholeskyInPlace(l, ne.p)) return false;
  for (int j = 0; j < ne.p; ++j) {
    double col[kLocalCount] = {};
    col[j] = 1.0;
    CholeskySolve(l, ne.p, col);
    for (int i = 0; i < ne.p; ++i) inverse[i][j] = col[i] / (d[i] * d[j]);
  }
  return true;
}

double ScaledConditionReciprocal(const Normal& ne) {
  double d[kLocalCount];
  Scales(ne, d);
  double l[kLocalCount][kLocalCount];
  for (int i = 0; i < ne.p; ++i) {
    for (int j = 0; j < ne.p; ++j) l[i][j] = ne.a[i][j] / (d[i] * d[j]);
  }
  if (!CholeskyInPlace(l, ne.p)) return 0.0;
  double lo = 1.0, hi = 0.0;
  for (int i = 0; i < ne.p; ++i) {
    lo = std::min(lo, l[i][i] * l[i][i]);
    hi = std::max(hi, l[i][i] * l[i][i]);
  }
  return hi > 0.0 ? lo / hi : 0.0;
}

bool Determined(const Problem& problem, const Normal& ne) {
  const double n = static_cast<double>(problem.count);
  for (int i = 0; i < ne.p; ++i) {
    // rms effect on a distance of a unit change (a length, or an angle times the data size).
    const double effect = std::sqrt(ne.a[i][i] / n) / problem.weight[ne.index[i]];
    if (!(effect > kNoEffect)) return false;
  }
  return ne.p == 0 || ScaledConditionReciprocal(ne) >= kRankReciprocal;
}

}  // namespace metrofit::precise
