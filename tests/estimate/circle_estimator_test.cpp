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

constexpr int kCircleParams = 6;

TEST(EstimateCircle, ExactTiltedCirclesGiveTheirCentreRadiusAndNormal) {
  std::mt19937 rng(17);
  std::uniform_real_distribution<double> offset(-500.0, 500.0);
  std::uniform_real_distribution<double> radiusDist(0.5, 80.0);
  std::uniform_real_distribution<double> angle(0.0, 2.0 * kPi);
  for (int trial = 0; trial < 100; ++trial) {
    const metrofit_test::Frame f = metrofit_test::RandomFrame(rng);
    const P centre(offset(rng), offset(rng), offset(rng));
    const double radius = radiusDist(rng);
    CFitInput in;
    for (int i = 0; i < 15; ++i) {
      const double t = angle(rng);
      in.m_points.push_back(centre + f.Local(radius * std::cos(t), radius * std::sin(t), 0));
    }
    CFitResult r;
    EstimatorMatrices m(kCircleParams);
    in.EstimateCircle(r, m.constraints(), m.params());
    EXPECT_TRUE(PointNear(ParamPoint(m, 0), centre, 1e-9 * 500.0)) << "trial " << trial;
    EXPECT_TRUE(RelNear(m.param(5), radius, 1e-8)) << "trial " << trial;
    EXPECT_TRUE(Parallel(AxisFromAngles(m.param(3), m.param(4)), f.w, 1e-9)) << trial;
    EXPECT_EQ(r.m_angles.x, m.param(3));
    EXPECT_EQ(r.m_angles.y, m.param(4));
  }
}

TEST(EstimateCircle, CentreAndRadiusGoIntoTheParameterVectorOnly) {
  CFitInput in;
  in.m_points = {P(3, 0, 1), P(0, 3, 1), P(-3, 0, 1), P(0, -3, 1)};
  CFitResult r;
  r.m_center = P(9, 9, 9);
  r.m_size1 = P(8, 8, 8);
  EstimatorMatrices m(kCircleParams);
  in.EstimateCircle(r, m.constraints(), m.params());
  EXPECT_EQ(r.m_center, P(9, 9, 9));
  EXPECT_EQ(r.m_size1, P(8, 8, 8));
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), P(0, 0, 1), 1e-15));
  EXPECT_DOUBLE_EQ(m.param(5), 3.0);
}

TEST(EstimateCircle, CollinearPointsStartWithTheZNormal) {
  CFitInput in;
  in.m_points = {P(0, 0, 0), P(1, 2, 3), P(2, 4, 6), P(3, 6, 9)};
  CFitResult r;
  EstimatorMatrices m(kCircleParams);
  in.EstimateCircle(r, m.constraints(), m.params());
  EXPECT_EQ(m.param(3), 0.0);
  EXPECT_EQ(m.param(4), 0.0);
}

TEST(EstimateCircle, FewerThanThreePointsWriteNothing) {
  CFitInput in;
  in.m_points = {P(0, 0, 0), P(1, 2, 3)};
  CFitResult r;
  r.m_angles = P(0.5, 0.6, 0.7);
  EstimatorMatrices m(kCircleParams);
  in.EstimateCircle(r, m.constraints(), m.params());
  EXPECT_EQ(r.m_angles, P(0.5, 0.6, 0.7));
  for (int k = 0; k < kCircleParams; ++k) EXPECT_FALSE(m.written(k));
}

}  // namespace
