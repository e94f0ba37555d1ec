#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimate/estimate_common.h"
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

// The circle's radius goes into m_size1.x and m_size1.y of the result; the model's semi-axes are
// m_size3.x and m_size3.y, and their parameter slots receive angles (WritesAllSevenFreeParameters).
TEST(EstimateEllipse, ThreePointsOnARadiusTwoCircleWriteTheRadiusIntoSizeOne) {
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

// Q0 lies on the circle through Q0, Q1, Q2, so (Q0 - C) . N is rounding residue, and that residue
// decides whether the start frame uses N or -N. Read back from the estimator's orientation
// angles (delivered as a1, a3, a2, so rebuilt from (x, z, y)), the frame normal is the one whose
// residue is not positive: -N where (Q0 - C) . N came out positive, N otherwise.
TEST(EstimateEllipse, StartNormalIsTurnedByTheRoundingResidueOfTheFirstPoint) {
  std::mt19937 rng(37);
  std::uniform_real_distribution<double> angle(0.0, 2.0 * kPi), offset(-400.0, 400.0);
  int turned = 0, kept = 0;
  for (int trial = 0; trial < 200; ++trial) {
    const metrofit_test::Frame f = metrofit_test::RandomFrame(rng);
    const P centre(offset(rng), offset(rng), offset(rng));
    CFitInput in;
    for (int k = 0; k < 3; ++k) {
      const double t = angle(rng);
      in.m_points.push_back(centre + f.Local(25 * std::cos(t), 25 * std::sin(t), 0));
    }
    P q[3];
    in.GetFurthest3Points(q);
    P c, n;
    double r = 0.0;
    metrofit::CircleFrom3Points(q[0], q[1], q[2], &c, &n, &r);
    const double residue = (q[0] - c).Dot(n);
    const P expected = residue > 0.0 ? -n : n;
    (residue > 0.0 ? turned : kept) += 1;

    CFitResult out;
    EstimatorMatrices m(kEllipseParams);
    in.EstimateEllipse(out, m.constraints(), m.params());
    double rows[9];
    ConvertAnglesToMatrix(out.m_angles.x, out.m_angles.z, out.m_angles.y, rows);
    EXPECT_TRUE(PointNear(P(rows[6], rows[7], rows[8]), expected, 1e-12))
        << "trial " << trial << ", residue " << residue;
  }
  // Both outcomes occur, so the comparison above tells them apart.
  EXPECT_GT(turned, 10);
  EXPECT_GT(kept, 10);
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
