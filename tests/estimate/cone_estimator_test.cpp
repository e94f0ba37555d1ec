#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

using metrofit_test::AxisFromAngles;
using metrofit_test::EstimatorMatrices;
using metrofit_test::kPi;
using metrofit_test::Parallel;
using metrofit_test::ParamPoint;
using metrofit_test::PointNear;
using metrofit_test::RelNear;
using P = KPt3<double>;

constexpr int kConeParams = 6;

// Cone points of radius 0.5 z about the z axis; the start point C = (0, 0, 4) and axis +z
// come in through the result. Only the first and fourth points are read.
struct ConeCase {
  CFitInput in;
  CFitResult r;
  EstimatorMatrices m{kConeParams};
  ConeCase(const P& first, const P& fourth) {
    in.m_points = {first, P(0, 2, 4), P(-2, 0, 4), fourth};
    r.m_center = P(0, 0, 4);
    r.m_axis = P(0, 0, 1);
  }
  void Run() { in.EstimateCone(r, m.constraints(), m.params()); }
};

TEST(EstimateCone, FourthPointOnThePositiveSideReversesTheAxis) {
  // (P3 - C) . A = 2 > 0: the axis turns to -z before the angles are taken. The first point
  // (radius 1) is nearer the axis than the fourth (radius 3), so the slope is negative:
  // (1 - 3) / |(-2) - 2| = -0.5.
  ConeCase c(P(1, 0, 2), P(3, 0, 6));
  c.Run();
  EXPECT_TRUE(PointNear(AxisFromAngles(c.r.m_angles.x, c.r.m_angles.y), P(0, 0, -1), 1e-15));
  EXPECT_EQ(c.r.m_angles.z, 0.0);
  EXPECT_EQ(c.r.m_axis, P(0, 0, 1));
  EXPECT_DOUBLE_EQ(c.r.m_size2.z, -0.5);
  EXPECT_DOUBLE_EQ(c.m.param(5), -0.5);
  // Apex = C - A (L / k) with L = |C - P0| = sqrt(5), A = (0, 0, -1).
  EXPECT_TRUE(PointNear(c.r.m_center, P(0, 0, 4 - 2 * std::sqrt(5.0)), 1e-14));
  EXPECT_TRUE(PointNear(ParamPoint(c.m, 0), c.r.m_center, 0.0));
}

TEST(EstimateCone, SlopeIsPositiveWhenTheFirstPointIsFartherFromTheAxis) {
  // (P3 - C) . A = -2: the axis stays +z. (3 - 1) / |(-2) - 2| = 0.5, the cone's own slope.
  ConeCase c(P(3, 0, 6), P(1, 0, 2));
  c.Run();
  EXPECT_TRUE(PointNear(AxisFromAngles(c.m.param(3), c.m.param(4)), P(0, 0, 1), 1e-15));
  EXPECT_DOUBLE_EQ(c.m.param(5), 0.5);
  EXPECT_TRUE(PointNear(ParamPoint(c.m, 0), P(0, 0, 4 - 2 * std::sqrt(13.0)), 1e-14));
  for (int k = 0; k < kConeParams; ++k) EXPECT_EQ(c.m.diag(k), 0.0) << "no apex coordinate fixed";
}

TEST(EstimateCone, EqualAxialPositionsGiveAnInfiniteOrNaNSlope) {
  ConeCase unequalRadii(P(1, 0, 3), P(2, 0, 3));
  unequalRadii.Run();
  EXPECT_TRUE(std::isinf(unequalRadii.r.m_size2.z));
  ConeCase equalRadii(P(1, 0, 3), P(0, 1, 3));
  equalRadii.Run();
  EXPECT_TRUE(std::isnan(equalRadii.r.m_size2.z));
}

TEST(EstimateCone, ExactTiltedConesGiveTheirSlopeAndAxis) {
  std::mt19937 rng(29);
  std::uniform_real_distribution<double> offset(-100.0, 100.0);
  std::uniform_real_distribution<double> slopeDist(0.1, 2.0);
  std::uniform_real_distribution<double> jitter(0.0, 1.0);
  std::uniform_real_distribution<double> angle(0.0, 2.0 * kPi);
  for (int trial = 0; trial < 100; ++trial) {
    const metrofit_test::Frame f = metrofit_test::RandomFrame(rng);
    const P apex(offset(rng), offset(rng), offset(rng));
    const double slope = slopeDist(rng);
    CFitInput in;
    for (int i = 0; i < 6; ++i) {
      // Heights at least 2 apart keep the axial difference of the first and fourth well away
      // from 0.
      const double z = 1.0 + 3.0 * i + jitter(rng);
      const double t = angle(rng);
      in.m_points.push_back(apex + f.Local(slope * z * std::cos(t), slope * z * std::sin(t), z));
    }
    CFitResult r;
    r.m_center = apex + f.w * 10.0;
    r.m_axis = f.w;
    EstimatorMatrices m(kConeParams);
    in.EstimateCone(r, m.constraints(), m.params());
    EXPECT_TRUE(RelNear(std::fabs(m.param(5)), slope, 1e-10)) << "trial " << trial;
    EXPECT_TRUE(Parallel(AxisFromAngles(m.param(3), m.param(4)), f.w, 1e-12)) << trial;
    EXPECT_EQ(r.m_axis, f.w);
  }
}

TEST(EstimateCone, FewerThanFourPointsWriteNothing) {
  ConeCase c(P(1, 0, 2), P(3, 0, 6));
  c.in.m_points.resize(3);
  c.Run();
  EXPECT_EQ(c.r.m_center, P(0, 0, 4));
  for (int k = 0; k < kConeParams; ++k) EXPECT_FALSE(c.m.written(k));
  c.in.m_points.clear();
  c.Run();
  for (int k = 0; k < kConeParams; ++k) EXPECT_FALSE(c.m.written(k));
}

}  // namespace
