#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

using metrofit_test::AxisFromAngles;
using metrofit_test::EstimatorMatrices;
using metrofit_test::Parallel;
using metrofit_test::PointNear;
using metrofit_test::RelNear;
using P = KPt3<double>;

constexpr int kPlaneParams = 3;

TEST(EstimatePlane, PlaneThroughTheOriginKeepsTheComputedNormal) {
  // Centroid 0; A = (2, 0, 0) (first of the two farthest); B = (0, -1, 0) (first of the two
  // farthest from the x axis). N = (1, 0, 0) x (0, -1, 0) = (0, 0, -1), and with N . P = 0
  // for the first point it is kept pointing down.
  CFitInput in;
  in.m_points = {P(0, 0, 0), P(2, 0, 0), P(0, -1, 0), P(-2, 0, 0), P(0, 1, 0)};
  CFitResult r;
  EstimatorMatrices m(kPlaneParams);
  in.EstimatePlane(r, m.constraints(), m.params());
  EXPECT_TRUE(PointNear(AxisFromAngles(m.param(0), m.param(1)), P(0, 0, -1), 1e-15));
  EXPECT_EQ(m.param(2), 0.0);
  EXPECT_EQ(r.m_size2.y, 0.0);
  EXPECT_EQ(r.m_angles.x, m.param(0));
  EXPECT_EQ(r.m_angles.y, m.param(1));
}

TEST(EstimatePlane, NegativeDistanceReversesTheNormal) {
  // The same points lifted to z = 3 give N = (0, 0, -1) and N . P = -3: both are negated.
  CFitInput in;
  in.m_points = {P(0, 0, 3), P(2, 0, 3), P(0, -1, 3), P(-2, 0, 3), P(0, 1, 3)};
  CFitResult r;
  EstimatorMatrices m(kPlaneParams);
  in.EstimatePlane(r, m.constraints(), m.params());
  EXPECT_TRUE(PointNear(AxisFromAngles(m.param(0), m.param(1)), P(0, 0, 1), 1e-15));
  EXPECT_EQ(r.m_size2.y, 3.0);
  EXPECT_EQ(m.param(2), 3.0);
}

TEST(EstimatePlane, DistanceIsMeasuredFromTheFirstPoint) {
  // The first point sits 0.5 above the plane of the others; the distance is N . P of that
  // point, not of the centroid.
  CFitInput in;
  in.m_points = {P(0.1, 0.1, 1.5), P(4, 0, 1), P(0, -3, 1), P(-4, 0, 1), P(0, 3, 1)};
  CFitResult r;
  EstimatorMatrices m(kPlaneParams);
  in.EstimatePlane(r, m.constraints(), m.params());
  const P n = AxisFromAngles(m.param(0), m.param(1));
  EXPECT_NEAR(m.param(2), n.Dot(in.m_points[0]), 1e-14);
  EXPECT_GT(m.param(2), 1.4);
}

TEST(EstimatePlane, RandomExactPlanesGiveTheirNormalAndDistance) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> coord(-30.0, 30.0);
  for (int trial = 0; trial < 100; ++trial) {
    const metrofit_test::Frame f = metrofit_test::RandomFrame(rng);
    const double dist = coord(rng);
    CFitInput in;
    for (int i = 0; i < 12; ++i) in.m_points.push_back(f.Local(coord(rng), coord(rng), dist));
    CFitResult r;
    EstimatorMatrices m(kPlaneParams);
    in.EstimatePlane(r, m.constraints(), m.params());
    const P n = AxisFromAngles(m.param(0), m.param(1));
    EXPECT_TRUE(Parallel(n, f.w, 1e-12)) << "trial " << trial;
    EXPECT_TRUE(RelNear(m.param(2), std::fabs(dist), 1e-11)) << "trial " << trial;
    EXPECT_GE(m.param(2), 0.0);
    EXPECT_GE(n.Dot(f.w) * dist, 0.0) << "normal points from the origin to the plane";
  }
}

TEST(EstimatePlane, NoPointsWriteNothing) {
  CFitInput in;
  CFitResult r;
  r.m_size2 = P(1, 2, 3);
  EstimatorMatrices m(kPlaneParams);
  in.EstimatePlane(r, m.constraints(), m.params());
  EXPECT_EQ(r.m_size2, P(1, 2, 3));
  for (int k = 0; k < kPlaneParams; ++k) EXPECT_FALSE(m.written(k));
}

}  // namespace
