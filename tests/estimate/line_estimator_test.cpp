#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

using metrofit_test::AxisFromAngles;
using metrofit_test::EstimatorMatrices;
using metrofit_test::kPi;
using metrofit_test::Parallel;
using metrofit_test::PointNear;
using P = KPt3<double>;

constexpr int kLineParams = 5;

TEST(EstimateLine, LineAlongXFixesLocationXAndLeavesItUnwritten) {
  CFitInput in;
  in.m_points = {P(1, 0, 0), P(2, 0, 0), P(3, 0, 0)};
  in.m_refPoint = P(0, 0, 0);
  CFitResult r;
  EstimatorMatrices m(kLineParams);
  in.EstimateLine(r, m.constraints(), m.params());

  EXPECT_NEAR(r.m_angles.y, kPi / 2, 1e-12);
  EXPECT_TRUE(PointNear(AxisFromAngles(r.m_angles.x, r.m_angles.y), P(1, 0, 0), 1e-12));
  EXPECT_EQ(r.m_center, P(0, 0, 0));
  EXPECT_EQ(m.diag(0), 1e20);
  EXPECT_EQ(m.diag(1), 0.0);
  EXPECT_EQ(m.diag(2), 0.0);
  EXPECT_FALSE(m.written(0));
  EXPECT_EQ(m.param(1), 0.0);
  EXPECT_EQ(m.param(2), 0.0);
  EXPECT_EQ(m.param(3), r.m_angles.x);
  EXPECT_EQ(m.param(4), r.m_angles.y);
}

TEST(EstimateLine, TiedLargestComponentsKeepTheCentreAndFixNothing) {
  CFitInput in;
  in.m_points = {P(1, 1, 0), P(2, 2, 0), P(4, 4, 0)};
  CFitResult r;
  r.m_center = P(7, 8, 9);
  EstimatorMatrices m(kLineParams);
  in.EstimateLine(r, m.constraints(), m.params());

  EXPECT_EQ(r.m_center, P(7, 8, 9));
  for (int k = 0; k < kLineParams; ++k) EXPECT_EQ(m.diag(k), 0.0) << k;
  EXPECT_EQ(m.param(0), 7.0);
  EXPECT_EQ(m.param(1), 8.0);
  EXPECT_EQ(m.param(2), 9.0);
  const double h = std::sqrt(0.5);
  EXPECT_TRUE(PointNear(AxisFromAngles(m.param(3), m.param(4)), P(h, h, 0), 1e-12));
}

TEST(EstimateLine, NegativeDominantComponentGivesTheMirroredLocation) {
  // Line through (0, 1, 2) along (-1, 0.6, 0.6); each difference has a positive component
  // sum or is flipped to one, so S points along (-1, 0.6, 0.6) and x dominates with a
  // negative sign. P = (-2, 2.2, 3.2): t = P.x / |S.x| moves P the wrong way along the line,
  // to (0, 3.4, 4.4) instead of the point (0, 1, 2) on it.
  const P q0(0, 1, 2), dir(-1, 0.6, 0.6);
  CFitInput in;
  for (double t : {2.0, 3.0, -1.0, 4.0}) in.m_points.push_back(q0 + dir * t);
  in.m_refPoint = q0;
  CFitResult r;
  EstimatorMatrices m(kLineParams);
  in.EstimateLine(r, m.constraints(), m.params());

  EXPECT_TRUE(PointNear(r.m_center, P(0, 3.4, 4.4), 1e-12));
  EXPECT_EQ(m.diag(0), 1e20);
  EXPECT_FALSE(m.written(0));
  EXPECT_NEAR(m.param(1), 3.4, 1e-12);
  EXPECT_NEAR(m.param(2), 4.4, 1e-12);
  P unit = dir;
  unit.Normalize();
  EXPECT_TRUE(PointNear(AxisFromAngles(r.m_angles.x, r.m_angles.y), unit, 1e-12));
}

TEST(EstimateLine, DifferenceWithZeroComponentSumIsNotFlipped) {
  // Both differences sum to exactly 0, so neither is flipped: S is along (1, -1, 0), not
  // along (-1, 1, 0).
  CFitInput in;
  in.m_points = {P(1, -1, 0), P(2, -2, 0)};
  CFitResult r;
  EstimatorMatrices m(kLineParams);
  in.EstimateLine(r, m.constraints(), m.params());
  const double h = std::sqrt(0.5);
  EXPECT_TRUE(PointNear(AxisFromAngles(r.m_angles.x, r.m_angles.y), P(h, -h, 0), 1e-12));
}

TEST(EstimateLine, OppositeDifferencesAddInsteadOfCancelling) {
  // Points on both sides of the reference point: without the flip the sum would vanish.
  CFitInput in;
  in.m_points = {P(1, 2, 3), P(-1, -2, -3), P(2, 4, 6), P(-3, -6, -9)};
  CFitResult r;
  EstimatorMatrices m(kLineParams);
  in.EstimateLine(r, m.constraints(), m.params());
  P unit(1, 2, 3);
  unit.Normalize();
  EXPECT_TRUE(PointNear(AxisFromAngles(r.m_angles.x, r.m_angles.y), unit, 1e-12));
  // z dominates: the first point slides to z = 0, which is the origin on this line.
  EXPECT_TRUE(PointNear(r.m_center, P(0, 0, 0), 1e-12));
  EXPECT_EQ(m.diag(2), 1e20);
}

TEST(EstimateLine, FewerThanTwoPointsWriteNothing) {
  CFitInput in;
  in.m_points = {P(1, 2, 3)};
  CFitResult r;
  r.m_angles = P(0.1, 0.2, 0.3);
  r.m_center = P(4, 5, 6);
  EstimatorMatrices m(kLineParams);
  in.EstimateLine(r, m.constraints(), m.params());
  EXPECT_EQ(r.m_angles, P(0.1, 0.2, 0.3));
  EXPECT_EQ(r.m_center, P(4, 5, 6));
  for (int k = 0; k < kLineParams; ++k) {
    EXPECT_FALSE(m.written(k));
    EXPECT_EQ(m.diag(k), 0.0);
  }
}

TEST(EstimateLine, RandomExactLinesGiveTheirDirectionAndAPlaneLocation) {
  std::mt19937 rng(5);
  std::normal_distribution<double> g(0.0, 1.0);
  std::uniform_real_distribution<double> along(-50.0, 50.0);
  for (int trial = 0; trial < 100; ++trial) {
    P dir(g(rng), g(rng), g(rng));
    dir.Normalize();
    const P base(100 * g(rng), 100 * g(rng), 100 * g(rng));
    CFitInput in;
    for (int i = 0; i < 8; ++i) in.m_points.push_back(base + dir * along(rng));
    in.m_refPoint = base;
    CFitResult r;
    EstimatorMatrices m(kLineParams);
    in.EstimateLine(r, m.constraints(), m.params());

    const P axis = AxisFromAngles(r.m_angles.x, r.m_angles.y);
    ASSERT_TRUE(Parallel(axis, dir, 1e-12)) << "trial " << trial;
    // Dominant axis k: the location has coordinate k equal to 0 and k is fixed. The point of
    // the line in that plane is L; a positive dominant component gives L, a negative one the
    // first point's free coordinates mirrored through L.
    const double c[3] = {axis.x, axis.y, axis.z};
    int k = 0;
    for (int j = 1; j < 3; ++j)
      if (std::fabs(c[j]) > std::fabs(c[k])) k = j;
    const P first = in.m_points[0];
    const double fk[3] = {first.x, first.y, first.z};
    const P onLine = first - axis * (fk[k] / c[k]);
    P expected = c[k] > 0 ? onLine : first * 2.0 - onLine;
    if (k == 0) expected.x = 0.0;
    if (k == 1) expected.y = 0.0;
    if (k == 2) expected.z = 0.0;
    EXPECT_TRUE(PointNear(r.m_center, expected, 1e-9)) << "trial " << trial;
    EXPECT_EQ(m.diag(k), 1e20);
    EXPECT_FALSE(m.written(k));
  }
}

}  // namespace
