// Levenberg-Marquardt minimisers, step tests, damping rule and the sum-of-squares helpers.
#include "numeric/levenberg_marquardt.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "numeric/compensated.h"
#include "numeric/numeric_test_util.h"

namespace metrofit::numeric {
namespace {

using testing::NoLeakScope;
using testing::RandomUnit;
using testing::Rng;
using testing::SweepAllocationFailures;
using testing::Uniform;

constexpr double kSmallestNormal = 2.2250738585072014e-308;

// ---- Sphere model over a PointSet: r_i = |p_i - c| - R, parameters (c, R). ----

double SphereResidual(const PointSet& pts, std::int32_t i, const NVector& x) {
  const double* p = pts.Point(i);
  return Hypot3(p[0] - x[0], p[1] - x[1], p[2] - x[2]) - x[3];
}

void SphereRow(const PointSet& pts, std::int32_t i, const NVector& x, NVector& row, double& r) {
  const double* p = pts.Point(i);
  const double d[3] = {p[0] - x[0], p[1] - x[1], p[2] - x[2]};
  const double len = Hypot3(d[0], d[1], d[2]);
  for (int k = 0; k < 3; ++k) row[k] = len == 0.0 ? 0.0 : -d[k] / len;
  row[3] = -1.0;
  for (std::int32_t k = 4; k < row.count; ++k) row[k] = 0.0;  // parameters the model ignores
  r = len - x[3];
}

double SphereObjective(void* ctx, const NVector& x) {
  return SumOfSquares(*static_cast<const PointSet*>(ctx), x, SphereResidual);
}

void SphereGradient(void* ctx, NVector& x, NVector& g, NMatrix& a) {
  NormalEquations(*static_cast<const PointSet*>(ctx), x, SphereRow, g, a);
}

UniquePointSet SpherePoints(Rng& rng, int n, const double* c, double r) {
  UniquePointSet pts(CreatePointSet(n));
  for (int i = 0; i < n; ++i) {
    double u[3];
    RandomUnit(rng, u);
    for (int k = 0; k < 3; ++k) pts->Point(i)[k] = c[k] + r * u[k];
  }
  return pts;
}

// ---- Rosenbrock as two residuals: r0 = 10 (x1 - x0^2), r1 = 1 - x0; minimum 0 at (1, 1). ----

double RosenbrockResidual(const PointSet&, std::int32_t i, const NVector& x) {
  return i == 0 ? 10.0 * (x[1] - x[0] * x[0]) : 1.0 - x[0];
}

void RosenbrockRow(const PointSet&, std::int32_t i, const NVector& x, NVector& row, double& r) {
  if (i == 0) {
    row[0] = -20.0 * x[0];
    row[1] = 10.0;
  } else {
    row[0] = -1.0;
    row[1] = 0.0;
  }
  r = RosenbrockResidual(PointSet{}, i, x);
}

double RosenbrockObjective(void* ctx, const NVector& x) {
  return SumOfSquares(*static_cast<const PointSet*>(ctx), x, RosenbrockResidual);
}

void RosenbrockGradient(void* ctx, NVector& x, NVector& g, NMatrix& a) {
  NormalEquations(*static_cast<const PointSet*>(ctx), x, RosenbrockRow, g, a);
}

// ---- Scripted one-parameter problems with counters. ----

struct Script {
  double x0 = 1.0;
  double fAway = 0.0;     // objective anywhere but x0 (tie problems)
  double gradient = 0.0;  // constant gradient (tie problems)
  int flipAfter = -1;     // weak-descent problem: gradient sign flips after this many calls
  int objectiveCalls = 0;
  int gradientCalls = 0;
  int rejected = 0;  // trials whose value was above the last accepted value
  double lastAccepted = std::numeric_limits<double>::infinity();
};

// f(x) = x^2 with a deliberately weak gradient 0.01 x against A = 1: every step removes only
// about 1 % of x, so the minimiser accepts step after step and its damping shrinks geometrically.
double WeakObjective(void* ctx, const NVector& x) {
  auto* s = static_cast<Script*>(ctx);
  ++s->objectiveCalls;
  const double f = x[0] * x[0];
  if (f > s->lastAccepted) ++s->rejected;
  return f;
}

void WeakGradient(void* ctx, NVector& x, NVector& g, NMatrix& a) {
  auto* s = static_cast<Script*>(ctx);
  ++s->gradientCalls;
  s->lastAccepted = x[0] * x[0];
  const bool flipped = s->flipAfter >= 0 && s->gradientCalls > s->flipAfter;
  g[0] = (flipped ? -0.01 : 0.01) * x[0];
  a(0, 0) = 1.0;
}

// Objective 1 at x0 and fAway elsewhere, with a constant gradient.
double TieObjective(void* ctx, const NVector& x) {
  auto* s = static_cast<Script*>(ctx);
  ++s->objectiveCalls;
  return x[0] == s->x0 ? 1.0 : s->fAway;
}

void TieGradient(void* ctx, NVector&, NVector& g, NMatrix& a) {
  auto* s = static_cast<Script*>(ctx);
  ++s->gradientCalls;
  g[0] = s->gradient;
  a(0, 0) = 1.0;
}

// ---------------------------------------------------------------------------------------------

TEST(StepConverged, StrictAbsoluteTestFailsOnAnElementEqualToTol) {
  NoLeakScope scope;
  UniqueVector x(CreateVector(2));
  UniqueVector p(CreateVector(2));
  (*x)[0] = 1.5;
  (*p)[0] = 1.0;  // step 0.5
  EXPECT_FALSE(StepConverged(*x, *p, 0.5));
  EXPECT_TRUE(StepConvergedInclusive(*x, *p, 0.5));
  EXPECT_TRUE(StepConverged(*x, *p, 0.5000001));
  EXPECT_FALSE(StepConvergedInclusive(*x, *p, 0.4999999));
}

TEST(StepConverged, RelativeToleranceIsInclusiveInBothVariants) {
  NoLeakScope scope;
  UniqueVector x(CreateVector(2));
  UniqueVector p(CreateVector(2));
  (*p)[0] = 4.0;
  (*x)[0] = 5.0;  // |step| = 1 = 0.25 |4|
  (*p)[1] = -8.0;
  (*x)[1] = -10.0;  // |step| = 2 = 0.25 |-8|
  EXPECT_TRUE(StepConverged(*x, *p, -0.25));
  EXPECT_TRUE(StepConvergedInclusive(*x, *p, -0.25));
  EXPECT_FALSE(StepConverged(*x, *p, -0.2));
  (*p)[1] = 0.0;  // zero previous value: only a zero step passes
  EXPECT_FALSE(StepConverged(*x, *p, -0.25));
}

TEST(StepConverged, EmptyVectorCountsAsConverged) {
  NoLeakScope scope;
  UniqueVector x(CreateVector(0));
  UniqueVector p(CreateVector(0));
  EXPECT_TRUE(StepConverged(*x, *p, 0.0));
  EXPECT_TRUE(StepConvergedInclusive(*x, *p, -1.0));
}

TEST(GrowDamping, TenfoldAndResetFromExactZero) {
  EXPECT_EQ(GrowDamping(1.0), 10.0);
  EXPECT_EQ(GrowDamping(0.0), kSmallestNormal);
  const double tiny = std::numeric_limits<double>::denorm_min();
  EXPECT_EQ(GrowDamping(tiny), 10.0 * tiny);  // subnormal but not zero: no reset
}

TEST(MinimiseLM, LambdaThatUnderflowsToZeroIsResetToTheSmallestNormal) {
  // About 810 accepted steps shrink the damping 1e-5 x 0.4^k to exactly 0. The gradient then
  // turns uphill, so every trial is rejected: with a damping stuck at 0 every trial would be the
  // same rejected step until the limit. The reset lets it grow (over 300 tenfold steps from
  // 2.2e-308) until the step vanishes in rounding; that trial ties and the step test passes.
  NoLeakScope scope;
  Script s;
  s.flipAfter = 900;
  UniqueVector x(CreateVector(1));
  (*x)[0] = 1.0;
  double f = 0.0;
  double acc = 0.0;
  const NumericStatus status =
      MinimiseLM(&s, WeakObjective, WeakGradient, 5000, 1e-8, &f, x.get(), &acc);
  EXPECT_EQ(status, NumericStatus::kOk);
  EXPECT_EQ(s.gradientCalls, 901);
  EXPECT_GT(s.rejected, 300);
  EXPECT_LT(s.rejected, 400);
  EXPECT_EQ(f, (*x)[0] * (*x)[0]);
  EXPECT_GT((*x)[0], 0.0);
}

TEST(MinimiseLM, ExactTieTestsConvergence) {
  // A constant objective never decreases: only the tie rule can end the run. The first trial
  // (step about 1e-3 < tol) ties and converges; x stays at the tied trial point.
  NoLeakScope scope;
  Script s;
  s.x0 = 2.0;
  s.fAway = 1.0;
  s.gradient = 1e-3;
  UniqueVector x(CreateVector(1));
  (*x)[0] = s.x0;
  double f = 0.0;
  EXPECT_EQ(MinimiseLM(&s, TieObjective, TieGradient, 50, 1e-2, &f, x.get(), nullptr),
            NumericStatus::kOk);
  EXPECT_EQ(s.objectiveCalls, 2);
  const double lambda = kInitialDamping * kDampingShrink;
  EXPECT_NEAR((*x)[0], s.x0 - 1e-3 / (1.0 + 2.0 * lambda), 1e-18);
  EXPECT_EQ(f, 1.0);
}

TEST(MinimiseLMObjective, TrialWithin1e8AboveTestsConvergence) {
  NoLeakScope scope;
  Script s;
  s.x0 = 2.0;
  s.fAway = 1.0 + 5e-9;
  s.gradient = 1e-3;
  UniqueVector x(CreateVector(1));
  (*x)[0] = s.x0;
  double f = 0.0;
  EXPECT_EQ(MinimiseLMObjective(&s, TieObjective, TieGradient, 50, 1e-2, &f, x.get(), nullptr),
            NumericStatus::kOk);
  EXPECT_EQ(s.objectiveCalls, 2);
  EXPECT_EQ(f, 1.0 + 5e-9);  // the value at the returned (trial) point

  // MinimiseLM tests only exact ties: the same trial is rejected and it runs into the limit.
  Script t = s;
  t.objectiveCalls = 0;
  (*x)[0] = t.x0;
  EXPECT_EQ(MinimiseLM(&t, TieObjective, TieGradient, 10, 1e-2, &f, x.get(), nullptr),
            NumericStatus::kIterationLimit);
  EXPECT_EQ((*x)[0], t.x0);
  EXPECT_EQ(f, 1.0);
}

TEST(MinimiseLMObjective, TrialMoreThan1e8AboveIsNotTested) {
  NoLeakScope scope;
  Script s;
  s.x0 = 2.0;
  s.fAway = 1.0 + 2e-8;
  s.gradient = 1e-3;
  UniqueVector x(CreateVector(1));
  (*x)[0] = s.x0;
  EXPECT_EQ(MinimiseLMObjective(&s, TieObjective, TieGradient, 2, 1e-2, nullptr, x.get(), nullptr),
            NumericStatus::kIterationLimit);
  EXPECT_EQ((*x)[0], s.x0);  // the limit restores the last accepted point
}

TEST(MinimiseLM, MaxIterZeroRunsUntilTheStepTestPasses) {
  // The weak-descent problem needs about 1400 accepted steps before a step is below 1e-8.
  NoLeakScope scope;
  Script s;
  UniqueVector x(CreateVector(1));
  (*x)[0] = 1.0;
  EXPECT_EQ(MinimiseLM(&s, WeakObjective, WeakGradient, 0, 1e-8, nullptr, x.get(), nullptr),
            NumericStatus::kOk);
  EXPECT_GT(s.objectiveCalls, 1300);
  EXPECT_LT(std::fabs((*x)[0]), 1e-6 / 0.99);  // last step 0.01 |x| < 1e-8

  Script t;
  (*x)[0] = 1.0;
  EXPECT_EQ(MinimiseLM(&t, WeakObjective, WeakGradient, 200, 1e-8, nullptr, x.get(), nullptr),
            NumericStatus::kIterationLimit);
  EXPECT_EQ(t.objectiveCalls, 200);  // the start plus 199 trials
}

TEST(MinimiseLM, RecoversSphereFromExactPoints) {
  NoLeakScope scope;
  Rng rng(21);
  const double c[3] = {1.0, -2.0, 0.5};
  const double r = 3.0;
  UniquePointSet pts = SpherePoints(rng, 200, c, r);
  for (int variant = 0; variant < 2; ++variant) {
    UniqueVector x(CreateVector(4));
    (*x)[0] = 0.4;
    (*x)[1] = -1.1;
    (*x)[2] = 1.3;
    (*x)[3] = 2.0;
    double f = -1.0;
    double acc = -1.0;
    const NumericStatus status =
        variant == 0
            ? MinimiseLM(pts.get(), SphereObjective, SphereGradient, 100, 1e-12, &f, x.get(), &acc)
            : MinimiseLMObjective(pts.get(), SphereObjective, SphereGradient, 100, 1e-12, &f,
                                  x.get(), &acc);
    EXPECT_EQ(status, NumericStatus::kOk) << variant;
    for (int k = 0; k < 3; ++k) EXPECT_NEAR((*x)[k], c[k], 1e-12) << variant;
    EXPECT_NEAR((*x)[3], r, 1e-12) << variant;
    EXPECT_LT(f, 1e-24) << variant;
    EXPECT_EQ(f, SphereObjective(pts.get(), *x));
    EXPECT_TRUE(std::isfinite(acc));
    EXPECT_GE(acc, std::sqrt(4.0 / 3.0) * 1e-12);
    EXPECT_LT(acc, 1e-10);
  }
}

TEST(MinimiseLM, RosenbrockValleyFromTheClassicStart) {
  NoLeakScope scope;
  PointSet two{2, nullptr};  // two residuals; the model needs no coordinates
  UniqueVector x(CreateVector(2));
  (*x)[0] = -1.2;
  (*x)[1] = 1.0;
  double f = -1.0;
  EXPECT_EQ(
      MinimiseLM(&two, RosenbrockObjective, RosenbrockGradient, 500, 1e-12, &f, x.get(), nullptr),
      NumericStatus::kOk);
  EXPECT_NEAR((*x)[0], 1.0, 1e-10);
  EXPECT_NEAR((*x)[1], 1.0, 1e-10);
  EXPECT_LT(f, 1e-20);
}

TEST(MinimiseLM, IterationLimitReturnsOneWithAnAcceptedPoint) {
  NoLeakScope scope;
  PointSet two{2, nullptr};
  UniqueVector x(CreateVector(2));
  (*x)[0] = -1.2;
  (*x)[1] = 1.0;
  const double f0 = RosenbrockObjective(&two, *x);
  double f = -1.0;
  EXPECT_EQ(
      MinimiseLM(&two, RosenbrockObjective, RosenbrockGradient, 5, 1e-12, &f, x.get(), nullptr),
      NumericStatus::kIterationLimit);
  EXPECT_EQ(f, RosenbrockObjective(&two, *x));
  EXPECT_LT(f, f0);
  // maxIter = 1 stops before the first gradient: x and the value are the start.
  (*x)[0] = -1.2;
  (*x)[1] = 1.0;
  EXPECT_EQ(
      MinimiseLM(&two, RosenbrockObjective, RosenbrockGradient, 1, 1e-12, &f, x.get(), nullptr),
      NumericStatus::kIterationLimit);
  EXPECT_EQ((*x)[0], -1.2);
  EXPECT_EQ(f, f0);
}

TEST(MinimiseLM, UndeterminedParameterRaisesTheAccuracyFigure) {
  // The sphere residual does not depend on a fifth parameter: its normal-matrix row is zero and
  // only the damping keeps the matrix definite, so the reciprocal condition is tiny.
  NoLeakScope scope;
  Rng rng(3);
  const double c[3] = {0.0, 0.0, 0.0};
  UniquePointSet pts = SpherePoints(rng, 50, c, 1.0);
  UniqueVector x4(CreateVector(4));
  UniqueVector x5(CreateVector(5));
  for (auto* x : {x4.get(), x5.get()}) {
    FillVector(x, 0.1);
    (*x)[3] = 0.9;
  }
  double acc4 = 0.0;
  double acc5 = 0.0;
  EXPECT_EQ(
      MinimiseLM(pts.get(), SphereObjective, SphereGradient, 100, 1e-9, nullptr, x4.get(), &acc4),
      NumericStatus::kOk);
  EXPECT_EQ(
      MinimiseLM(pts.get(), SphereObjective, SphereGradient, 100, 1e-9, nullptr, x5.get(), &acc5),
      NumericStatus::kOk);
  EXPECT_NEAR(acc4, std::sqrt((4 * 1e-18 + 1e-18) / 3.0), 1e-12);  // e = tol
  // e = eps / rcond now exceeds tol: rcond is of the order of the final damping over |A|.
  EXPECT_GT(acc5, 10.0 * acc4);
}

TEST(MinimiseLM, BadArgumentsReturnTwo) {
  NoLeakScope scope;
  UniqueVector x(CreateVector(1));
  Script s;
  EXPECT_EQ(MinimiseLM(&s, nullptr, WeakGradient, 10, 1e-9, nullptr, x.get(), nullptr),
            NumericStatus::kBadArguments);
  EXPECT_EQ(MinimiseLM(&s, WeakObjective, nullptr, 10, 1e-9, nullptr, x.get(), nullptr),
            NumericStatus::kBadArguments);
  EXPECT_EQ(
      MinimiseLMObjective(&s, WeakObjective, WeakGradient, 10, 1e-9, nullptr, nullptr, nullptr),
      NumericStatus::kBadArguments);
}

TEST(MinimiseLM, AllocationFailuresReturnThreeAndLeakNothing) {
  NoLeakScope scope;
  Rng rng(8);
  const double c[3] = {5.0, 5.0, 5.0};
  UniquePointSet pts = SpherePoints(rng, 30, c, 2.0);
  const double start[4] = {4.5, 5.2, 5.1, 1.5};
  int threes = 0;
  const int runs = SweepAllocationFailures([&](int k) {
    UniqueVector x(CreateVector(4));
    ASSERT_TRUE(x);
    for (int i = 0; i < 4; ++i) (*x)[i] = start[i];
    FailAllocationAfter(k);
    double f = 0.0;
    const NumericStatus status =
        MinimiseLM(pts.get(), SphereObjective, SphereGradient, 100, 1e-9, &f, x.get(), nullptr);
    if (k < 5) {
      // One of the five work objects: nothing happened to x.
      EXPECT_EQ(status, NumericStatus::kAllocationFailure) << k;
      for (int i = 0; i < 4; ++i) EXPECT_EQ((*x)[i], start[i]) << k;
      EXPECT_EQ(f, SphereObjective(pts.get(), *x));
      ++threes;
    } else {
      // A failed normal-equation block gives a zero gradient and matrix: a zero step that ties.
      EXPECT_EQ(status, NumericStatus::kOk) << k;
    }
  });
  EXPECT_EQ(threes, 5);
  EXPECT_GE(runs, 6);
}

TEST(SumOfSquares, NoPointsOnePointAndCompensation) {
  NoLeakScope scope;
  UniqueVector x(CreateVector(4));
  PointSet none{0, nullptr};
  EXPECT_EQ(SumOfSquares(none, *x, SphereResidual), 0.0);
  double one[3] = {3.0, 4.0, 0.0};
  PointSet single{1, one};
  (*x)[3] = 1.0;
  EXPECT_EQ(SumOfSquares(single, *x, SphereResidual), 16.0);

  // One large residual followed by many tiny ones: a plain sum drops all the tiny squares.
  const int n = 100001;
  UniquePointSet pts(CreatePointSet(n));
  pts->Point(0)[0] = 1.0 + 1.0;                               // residual 1 for R = 1
  for (int i = 1; i < n; ++i) pts->Point(i)[0] = 1.0 + 1e-9;  // residual 1e-9 (about)
  const double got = SumOfSquares(*pts, *x, SphereResidual);
  // Reference: the tiny squares first (all alike, so accurate even in plain long double), then
  // the large one.
  long double tiny = 0.0L;
  double plain = 0.0;
  for (int i = 0; i < n; ++i) {
    const double r = SphereResidual(*pts, i, *x);
    if (i > 0) tiny += static_cast<long double>(r) * r;
    plain += r * r;
  }
  const double r0 = SphereResidual(*pts, 0, *x);
  const double want = static_cast<double>(static_cast<long double>(r0) * r0 + tiny);
  EXPECT_NEAR(got, want, 4e-16);
  EXPECT_GT(std::fabs(plain - want), 1e-14);  // the case does need the compensation
}

TEST(NormalEquations, MatchesDirectJacobianProducts) {
  NoLeakScope scope;
  Rng rng(4);
  const double c[3] = {0.5, 0.25, -1.0};
  UniquePointSet pts = SpherePoints(rng, 40, c, 2.0);
  UniqueVector x(CreateVector(4));
  (*x)[0] = 0.4;
  (*x)[1] = 0.3;
  (*x)[2] = -0.9;
  (*x)[3] = 1.7;
  UniqueVector g(CreateVector(4));
  UniqueMatrix a(CreateMatrix(4, 4, kPackedSymmetric));
  NormalEquations(*pts, *x, SphereRow, *g, *a);
  UniqueVector row(CreateVector(4));
  long double jtj[4][4] = {};
  long double jtr[4] = {};
  for (int i = 0; i < pts->count; ++i) {
    double r = 0.0;
    SphereRow(*pts, i, *x, *row, r);
    for (int u = 0; u < 4; ++u) {
      jtr[u] += static_cast<long double>(r) * (*row)[u];
      for (int v = 0; v < 4; ++v) jtj[u][v] += static_cast<long double>((*row)[u]) * (*row)[v];
    }
  }
  for (int u = 0; u < 4; ++u) {
    EXPECT_NEAR((*g)[u], static_cast<double>(jtr[u]), 1e-14);
    for (int v = 0; v <= u; ++v) EXPECT_NEAR((*a)(u, v), static_cast<double>(jtj[u][v]), 1e-13);
  }
}

TEST(NormalEquations, WorkBlockFailureOrWrongShapeGivesZeros) {
  NoLeakScope scope;
  Rng rng(4);
  const double c[3] = {0.0, 0.0, 0.0};
  UniquePointSet pts = SpherePoints(rng, 10, c, 1.0);
  UniqueVector x(CreateVector(4));
  (*x)[3] = 0.5;
  UniqueVector g(CreateVector(4));
  UniqueMatrix a(CreateMatrix(4, 4, kPackedSymmetric));
  FillVector(g.get(), 7.0);
  for (int k = 0; k < 10; ++k) a->data[k] = 7.0;
  FailAllocationAfter(0);
  NormalEquations(*pts, *x, SphereRow, *g, *a);
  FailAllocationAfter(-1);
  for (int k = 0; k < 4; ++k) EXPECT_EQ((*g)[k], 0.0);
  for (int k = 0; k < 10; ++k) EXPECT_EQ(a->data[k], 0.0);

  UniqueMatrix wrong(CreateMatrix(3, 3, kPackedSymmetric));
  for (int k = 0; k < 6; ++k) wrong->data[k] = 7.0;
  FillVector(g.get(), 7.0);
  NormalEquations(*pts, *x, SphereRow, *g, *wrong);
  for (int k = 0; k < 6; ++k) EXPECT_EQ(wrong->data[k], 0.0);
  EXPECT_EQ((*g)[0], 0.0);
}

}  // namespace
}  // namespace metrofit::numeric
