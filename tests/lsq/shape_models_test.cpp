// Shape models: misclosure, point derivatives B and parameter derivatives A of all nine
// shapes against central differences of the conditions written out in lsq_test_util.h, plus
// the hand-worked cases of the sphere, line, plane and torus.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "lsq/shape.h"
#include "lsq_test_util.h"
#include "metrofit.h"

namespace {

using lsq_test::Close;
using lsq_test::FrameOf;
using lsq_test::FromLocal;
using lsq_test::Matrix;
using lsq_test::Pt;
using lsq_test::Rng;

// Agreement required between an analytic derivative and its central difference, relative to
// the larger of the entry and a thousandth of its row (structural zeros compare on that
// floor).
constexpr double kDerivativeTolerance = 1e-6;
constexpr double kRowFloor = 1e-3;
// Difference steps: positions in mm, angles in rad, sizes relative to the size. Chosen so that
// the rounding of 500 mm coordinates (about 1e-13) stays far below the tolerance.
constexpr double kPositionStep = 1e-4;
constexpr double kAngleStep = 1e-6;
constexpr double kRelativeSizeStep = 1e-6;
constexpr int kTrialsPerModel = 25;

// Parameter vector and point of one random trial, with the step of every parameter.
struct Trial {
  std::vector<double> x;
  std::vector<double> steps;
  Pt p;
};

// Angles over the whole circle for a, away from the gimbal poles for b (cos b near 0 only
// flattens the frame's parametrisation, the model stays valid, but differences get noisy).
void RandomAngles(Rng& rng, double* a, double* b) {
  *a = rng.Uniform(0.0, lsq_test::kTwoPi);
  *b = rng.Uniform(-1.3, 1.3);
}

Trial MakeTrial(int type, Rng& rng) {
  Trial t;
  const Pt c = rng.AtDistance(rng.Uniform(200.0, 600.0));
  double a = 0.0, b = 0.0;
  RandomAngles(rng, &a, &b);
  const auto frame = FrameOf(a, b);
  const double theta = rng.Uniform(0.0, lsq_test::kTwoPi);
  const double ct = std::cos(theta), st = std::sin(theta);
  auto centred = [&](std::vector<double> sizes) {
    t.x = {c.x, c.y, c.z, a, b};
    t.steps = {kPositionStep, kPositionStep, kPositionStep, kAngleStep, kAngleStep};
    for (double s : sizes) {
      t.x.push_back(s);
      t.steps.push_back(kRelativeSizeStep * s);
    }
  };
  switch (type) {
    case FIT_LINE:
      centred({});
      t.p = FromLocal(frame, c, rng.Uniform(-20, 20), rng.Uniform(-20, 20), rng.Uniform(-80, 80));
      break;
    case FIT_PLANE: {
      const double d = rng.Uniform(-600.0, 600.0);
      t.x = {a, b, d};
      t.steps = {kAngleStep, kAngleStep, kPositionStep};
      t.p = FromLocal(frame, c, rng.Uniform(-50, 50), rng.Uniform(-50, 50), rng.Uniform(-5, 5));
      break;
    }
    case FIT_CIRCLE:
    case FIT_CYLINDER: {
      const double r = rng.Uniform(5.0, 60.0);
      centred({r});
      const double rho = r * rng.Uniform(0.5, 1.5);
      t.p = FromLocal(frame, c, rho * ct, rho * st, rng.Uniform(-30, 30));
      break;
    }
    case FIT_SPHERE: {
      const double r = rng.Uniform(5.0, 60.0);
      t.x = {c.x, c.y, c.z, r};
      t.steps = {kPositionStep, kPositionStep, kPositionStep, kRelativeSizeStep * r};
      t.p = c + rng.AtDistance(r * rng.Uniform(0.5, 1.5));
      break;
    }
    case FIT_PARABOLOID: {
      const double f = rng.Uniform(10.0, 100.0);
      centred({f});
      const double rho = rng.Uniform(5.0, 60.0);
      t.p = FromLocal(frame, c, rho * ct, rho * st, rho * rho / (4 * f) + rng.Uniform(-3, 3));
      break;
    }
    case FIT_CONE: {
      const double k = rng.Uniform(0.3, 3.0);
      centred({k});
      const double rho = rng.Uniform(5.0, 40.0);
      t.p = FromLocal(frame, c, rho * ct, rho * st, k * rho + rng.Uniform(-3, 3));
      break;
    }
    case FIT_ELLIPSE: {
      const double sa = rng.Uniform(10.0, 50.0), sb = rng.Uniform(10.0, 50.0);
      centred({sa, sb});
      const double rho = rng.Uniform(5.0, 40.0);
      t.p = FromLocal(frame, c, rho * ct, rho * st, rng.Uniform(-40, 40));
      break;
    }
    case FIT_TORUS: {
      const double major = rng.Uniform(20.0, 60.0), minor = rng.Uniform(2.0, 10.0);
      centred({major, minor});
      const double tube = minor * rng.Uniform(0.5, 1.5), psi = rng.Uniform(0, lsq_test::kTwoPi);
      const double rho = major + tube * std::cos(psi);
      t.p = FromLocal(frame, c, rho * ct, rho * st, tube * std::sin(psi));
      break;
    }
    default:
      break;
  }
  return t;
}

struct ModelOutput {
  Matrix Q{3, 3}, B{2, 3}, A{2, 7}, w{2, 1};
};

void Evaluate(int type, const std::vector<double>& x, const Pt& p, ModelOutput& out) {
  CFitResult r;
  lsq_test::SetParams(type, x, r);
  metrofit::EvaluateShapeModel(type, p, r, out.Q.get(), out.B.get(), out.A.get(), out.w.get());
}

::testing::AssertionResult DerivativeAgrees(double analytic, double numeric, double rowMax) {
  const double scale = std::max(std::fabs(analytic), kRowFloor * rowMax);
  if (std::fabs(analytic - numeric) <= kDerivativeTolerance * scale)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "analytic " << analytic << ", difference quotient "
                                       << numeric << ", row scale " << rowMax;
}

void CheckModelAgainstDifferences(int type, unsigned seed) {
  Rng rng(seed);
  const int m = lsq_test::ConditionCount(type);
  const int n = metrofit::EngineLayoutFor(type).parameters;
  for (int trial = 0; trial < kTrialsPerModel; ++trial) {
    SCOPED_TRACE(::testing::Message() << "fit type " << type << ", trial " << trial);
    const Trial t = MakeTrial(type, rng);
    ModelOutput out;
    Evaluate(type, t.x, t.p, out);

    double f[2];
    ASSERT_EQ(lsq_test::Conditions(type, t.x, t.p, f), m);
    for (int i = 0; i < m; ++i) EXPECT_TRUE(Close(out.w[i][0], -f[i], 1e-10));

    for (int i = 0; i < m; ++i) {
      // Point derivatives.
      double bNum[3], rowMax = 0.0;
      for (int k = 0; k < 3; ++k) {
        Pt pp = t.p, pm = t.p;
        lsq_test::Comp(pp, k) += kPositionStep;
        lsq_test::Comp(pm, k) -= kPositionStep;
        double fp[2], fm[2];
        lsq_test::Conditions(type, t.x, pp, fp);
        lsq_test::Conditions(type, t.x, pm, fm);
        bNum[k] = (fp[i] - fm[i]) / (2.0 * kPositionStep);
        rowMax = std::max(rowMax, std::fabs(out.B[i][k]));
      }
      for (int k = 0; k < 3; ++k)
        EXPECT_TRUE(DerivativeAgrees(out.B[i][k], bNum[k], rowMax))
            << "B[" << i << "][" << k << "]";

      // Parameter derivatives.
      std::vector<double> aNum(n);
      rowMax = 0.0;
      for (int j = 0; j < n; ++j) {
        std::vector<double> xp = t.x, xm = t.x;
        xp[j] += t.steps[j];
        xm[j] -= t.steps[j];
        double fp[2], fm[2];
        lsq_test::Conditions(type, xp, t.p, fp);
        lsq_test::Conditions(type, xm, t.p, fm);
        aNum[j] = (fp[i] - fm[i]) / (xp[j] - xm[j]);
        rowMax = std::max(rowMax, std::fabs(out.A[i][j]));
      }
      for (int j = 0; j < n; ++j)
        EXPECT_TRUE(DerivativeAgrees(out.A[i][j], aNum[j], rowMax))
            << "A[" << i << "][" << j << "]";
    }
  }
}

TEST(ShapeModels, LineDerivativesMatchDifferences) {
  CheckModelAgainstDifferences(FIT_LINE, 11);
}
TEST(ShapeModels, PlaneDerivativesMatchDifferences) {
  CheckModelAgainstDifferences(FIT_PLANE, 12);
}
TEST(ShapeModels, CircleDerivativesMatchDifferences) {
  CheckModelAgainstDifferences(FIT_CIRCLE, 13);
}
TEST(ShapeModels, SphereDerivativesMatchDifferences) {
  CheckModelAgainstDifferences(FIT_SPHERE, 14);
}
TEST(ShapeModels, CylinderDerivativesMatchDifferences) {
  CheckModelAgainstDifferences(FIT_CYLINDER, 15);
}
TEST(ShapeModels, ParaboloidDerivativesMatchDifferences) {
  CheckModelAgainstDifferences(FIT_PARABOLOID, 16);
}
TEST(ShapeModels, ConeDerivativesMatchDifferences) {
  CheckModelAgainstDifferences(FIT_CONE, 17);
}
TEST(ShapeModels, EllipseDerivativesMatchDifferences) {
  CheckModelAgainstDifferences(FIT_ELLIPSE, 18);
}
TEST(ShapeModels, TorusDerivativesMatchDifferences) {
  CheckModelAgainstDifferences(FIT_TORUS, 19);
}

TEST(ShapeModels, LayoutTableKeepsTheDeliberateOffsets) {
  struct Row {
    int type, n, m, offset;
  };
  const Row rows[] = {{FIT_LINE, 5, 2, -5},   {FIT_PLANE, 3, 1, -3},    {FIT_CIRCLE, 6, 2, -3},
                      {FIT_SPHERE, 4, 1, -4}, {FIT_CYLINDER, 6, 1, -5}, {FIT_PARABOLOID, 6, 1, -6},
                      {FIT_CONE, 6, 1, -6},   {FIT_ELLIPSE, 7, 1, -7},  {FIT_TORUS, 7, 1, -7}};
  for (const Row& r : rows) {
    const metrofit::EngineLayout l = metrofit::EngineLayoutFor(r.type);
    EXPECT_EQ(l.parameters, r.n) << r.type;
    EXPECT_EQ(l.conditions, r.m) << r.type;
    EXPECT_EQ(l.offset, r.offset) << r.type;
  }
  for (int type : {-1, 9, 100}) {
    const metrofit::EngineLayout l = metrofit::EngineLayoutFor(type);
    EXPECT_EQ(l.parameters, 0);
    EXPECT_EQ(l.conditions, 0);
    EXPECT_EQ(l.offset, 0);
  }
}

// Q = 1e-6 I: the diagonal is written, the off-diagonal entries are left to the caller.
TEST(ShapeModels, CofactorIsOneMillionthOnTheDiagonalOnly) {
  for (int type = FIT_LINE; type <= FIT_TORUS; ++type) {
    Rng rng(40 + type);
    const Trial t = MakeTrial(type, rng);
    ModelOutput out;
    out.Q.Fill(7.0);
    Evaluate(type, t.x, t.p, out);
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) EXPECT_EQ(out.Q[i][j], i == j ? 1e-6 : 7.0) << type;
  }
}

TEST(ShapeModels, SphereOutsidePointHandWorked) {
  CFitResult r;
  r.m_size1.x = 1.0;
  ModelOutput out;
  metrofit::EvaluateShapeModel(FIT_SPHERE, Pt(2, 0, 0), r, out.Q.get(), out.B.get(), out.A.get(),
                               out.w.get());
  EXPECT_EQ(out.B[0][0], 1.0);
  EXPECT_EQ(out.B[0][1], 0.0);
  EXPECT_EQ(out.B[0][2], 0.0);
  EXPECT_EQ(out.A[0][0], -1.0);
  EXPECT_EQ(out.A[0][1], 0.0);
  EXPECT_EQ(out.A[0][2], 0.0);
  EXPECT_EQ(out.A[0][3], -1.0);
  EXPECT_EQ(out.w[0][0], -1.0);
}

TEST(ShapeModels, LineAlongZHandWorked) {
  CFitResult r;  // centre at the origin, a = b = 0: the line is the z axis
  ModelOutput out;
  metrofit::EvaluateShapeModel(FIT_LINE, Pt(1, 2, 3), r, out.Q.get(), out.B.get(), out.A.get(),
                               out.w.get());
  const double b[2][3] = {{1, 0, 0}, {0, 1, 0}};
  const double a[2][5] = {{-1, 0, 0, 0, -3}, {0, -1, 0, 3, 0}};
  for (int i = 0; i < 2; ++i) {
    for (int k = 0; k < 3; ++k) EXPECT_EQ(out.B[i][k] + 0.0, b[i][k]) << i << "," << k;
    for (int j = 0; j < 5; ++j) EXPECT_EQ(out.A[i][j] + 0.0, a[i][j]) << i << "," << j;
  }
  EXPECT_EQ(out.w[0][0], -1.0);
  EXPECT_EQ(out.w[1][0], -2.0);
}

TEST(ShapeModels, PlaneHandWorked) {
  CFitResult r;
  r.m_size2.y = 5.0;
  r.m_center = Pt(100, -40, 7);  // the plane model does not use the centre
  ModelOutput out;
  metrofit::EvaluateShapeModel(FIT_PLANE, Pt(1, 2, 3), r, out.Q.get(), out.B.get(), out.A.get(),
                               out.w.get());
  EXPECT_EQ(out.B[0][0] + 0.0, 0.0);
  EXPECT_EQ(out.B[0][1] + 0.0, 0.0);
  EXPECT_EQ(out.B[0][2], 1.0);
  EXPECT_EQ(out.A[0][0], -2.0);
  EXPECT_EQ(out.A[0][1], 1.0);
  EXPECT_EQ(out.A[0][2], -1.0);
  EXPECT_EQ(out.w[0][0], 2.0);
}

TEST(ShapeModels, TorusPointOnTheTubeHasZeroMisclosure) {
  CFitResult r;
  r.m_size1.y = 10.0;
  r.m_size1.z = 2.0;
  ModelOutput out;
  metrofit::EvaluateShapeModel(FIT_TORUS, Pt(12, 0, 0), r, out.Q.get(), out.B.get(), out.A.get(),
                               out.w.get());
  EXPECT_EQ(out.w[0][0], 0.0);
  // The point derivative is the outward unit normal of the tube there.
  EXPECT_NEAR(out.B[0][0], 1.0, 1e-15);
  EXPECT_NEAR(out.B[0][1], 0.0, 1e-15);
  EXPECT_NEAR(out.B[0][2], 0.0, 1e-15);
}

TEST(ShapeModels, ThirdAngleHasNoInfluence) {
  for (int type = FIT_LINE; type <= FIT_TORUS; ++type) {
    Rng rng(60 + type);
    const Trial t = MakeTrial(type, rng);
    CFitResult r0, r1;
    lsq_test::SetParams(type, t.x, r0);
    lsq_test::SetParams(type, t.x, r1);
    r0.m_angles.z = 0.0;
    r1.m_angles.z = 1.234;
    ModelOutput o0, o1;
    metrofit::EvaluateShapeModel(type, t.p, r0, o0.Q.get(), o0.B.get(), o0.A.get(), o0.w.get());
    metrofit::EvaluateShapeModel(type, t.p, r1, o1.Q.get(), o1.B.get(), o1.A.get(), o1.w.get());
    const int m = lsq_test::ConditionCount(type);
    const int n = metrofit::EngineLayoutFor(type).parameters;
    for (int i = 0; i < m; ++i) {
      EXPECT_EQ(o0.w[i][0], o1.w[i][0]) << type;
      for (int k = 0; k < 3; ++k) EXPECT_EQ(o0.B[i][k], o1.B[i][k]) << type;
      for (int j = 0; j < n; ++j) EXPECT_EQ(o0.A[i][j], o1.A[i][j]) << type;
    }
  }
}

// Divisions are not guarded: a point on the axis gives non-finite derivatives, which the
// engine then meets as non-convergence.
TEST(ShapeModels, PointOnTheAxisGivesNonFiniteDerivatives) {
  CFitResult r;
  r.m_size1.x = 3.0;
  ModelOutput out;
  metrofit::EvaluateShapeModel(FIT_CYLINDER, Pt(0, 0, 4), r, out.Q.get(), out.B.get(), out.A.get(),
                               out.w.get());
  EXPECT_EQ(out.w[0][0], 3.0);
  EXPECT_FALSE(std::isfinite(out.B[0][0]));
  EXPECT_FALSE(std::isfinite(out.A[0][3]));
}

}  // namespace
