#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

using metrofit_test::EstimatorMatrices;
using metrofit_test::kPi;
using metrofit_test::ParamPoint;
using metrofit_test::PointNear;
using metrofit_test::RelNear;
using P = KPt3<double>;

constexpr int kEllipseParams = 7;

TEST(EstimateEllipse, ThreePointsOnARadiusTwoCircleStartBothSemiAxesAtTwo) {
  std::mt19937 rng(31);
  std::uniform_real_distribution<double> angle(0.0, 2.0 * kPi);
  const metrofit_test::Frame f = metrofit_test::RandomFrame(rng);
  const P centre(120.0, -45.0, 310.0);
  CFitInput in;
  for (double t : {0.3, 2.5, 4.4})
    in.m_points.push_back(centre + f.Local(2 * std::cos(t), 2 * std::sin(t), 0));
  CFitResult r;
  EstimatorMatrices m(kEllipseParams);
  in.EstimateEllipse(r, m.constraints(), m.params());
  EXPECT_TRUE(RelNear(r.m_size1.x, 2.0, 1e-12));
  EXPECT_TRUE(RelNear(r.m_size1.y, 2.0, 1e-12));
  EXPECT_EQ(r.m_size1.x, r.m_size1.y);
}

TEST(EstimateEllipse, OrientationAnglesAreDeliveredAsA1A3A2) {
  // Q0 = (2, 0, 0), Q1 = (-2, 0, 0), Q2 = (0, 2, 0): circle centre 0, normal (0, 0, 1),
  // U = (-1, 0, 0), V = (0, -1, 0), W = (-1, 0, 0). The rows (W, V, N') give the angles
  // (0, 0, pi); delivered as a1, a3, a2 they become a1 = 0, a2 = pi, a3 = 0.
  CFitInput in;
  in.m_points = {P(2, 0, 0), P(-2, 0, 0), P(0, 2, 0)};
  CFitResult r;
  r.m_size2.z = 0.7;
  EstimatorMatrices m(kEllipseParams);
  in.EstimateEllipse(r, m.constraints(), m.params());
  EXPECT_EQ(r.m_angles.x, 0.0);
  EXPECT_DOUBLE_EQ(r.m_angles.y, kPi);
  EXPECT_EQ(r.m_angles.z, 0.0);
  EXPECT_EQ(m.param(3), 0.0);
  EXPECT_DOUBLE_EQ(m.param(4), kPi);
  // The rows (V, N', W) give the in-plane angles (0, 3 pi / 2, 0).
  EXPECT_EQ(r.m_size3.x, 0.0);
  EXPECT_DOUBLE_EQ(r.m_size3.y, 1.5 * kPi);
  EXPECT_EQ(r.m_size3.z, 0.0);
  EXPECT_EQ(m.param(5), 0.0);
  EXPECT_DOUBLE_EQ(m.param(6), 1.5 * kPi);
  // Q2 projects onto the middle of Q0 -> Q1.
  EXPECT_DOUBLE_EQ(r.m_size1.z, 0.5);
  // In the frame of (0, pi, 0) Q0 and Q1 differ axially by rounding only (sin pi), so a slope
  // of 0 / 4 sin(pi) replaces the leftover 0.7 and the centre stays the circle's.
  EXPECT_EQ(r.m_size2.z, 0.0);
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), P(0, 0, 0), 0.0));
}

TEST(EstimateEllipse, LeftoverSlopeMovesTheCentreAlongTheNormalWhenAxialSpreadIsZero) {
  // Q0 = (-2, 0, 0), Q1 = (2, 0, 0), Q2 = (0, 2, 0): normal (0, 0, -1), angles (pi, 0, 0) in
  // whose frame Q0 and Q1 have exactly equal axial positions. The slope already in the
  // result is then used: h = |Q0 - C| / 0.5 = 4 and the centre moves to C - N' h = (0, 0, 4).
  CFitInput in;
  in.m_points = {P(-2, 0, 0), P(2, 0, 0), P(0, 2, 0)};
  CFitResult r;
  r.m_size2.z = 0.5;
  EstimatorMatrices m(kEllipseParams);
  in.EstimateEllipse(r, m.constraints(), m.params());
  EXPECT_EQ(r.m_size2.z, 0.5);
  EXPECT_TRUE(PointNear(r.m_center, P(0, 0, 4), 1e-15));
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), P(0, 0, 4), 1e-15));

  // With no slope left over, h falls back to the radial difference, 0 here.
  CFitResult fresh;
  EstimatorMatrices m2(kEllipseParams);
  in.EstimateEllipse(fresh, m2.constraints(), m2.params());
  EXPECT_EQ(fresh.m_size2.z, 0.0);
  EXPECT_TRUE(PointNear(fresh.m_center, P(0, 0, 0), 0.0));
}

TEST(EstimateEllipse, WritesAllSevenFreeParameters) {
  CFitInput in;
  in.m_points = {P(2, 0, 1), P(0, 2, 1), P(-2, 0, 1), P(0, -2, 1)};
  CFitResult r;
  EstimatorMatrices m(kEllipseParams);
  in.EstimateEllipse(r, m.constraints(), m.params());
  for (int k = 0; k < kEllipseParams; ++k) EXPECT_TRUE(m.written(k)) << k;
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), r.m_center, 0.0));
  EXPECT_EQ(m.param(3), r.m_angles.x);
  EXPECT_EQ(m.param(4), r.m_angles.y);
  EXPECT_EQ(m.param(5), r.m_size3.x);
  EXPECT_EQ(m.param(6), r.m_size3.y);
}

}  // namespace
