#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimate/point_selection.h"
#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

using metrofit_test::EstimatorMatrices;
using metrofit_test::ParamPoint;
using metrofit_test::PointNear;
using metrofit_test::RelNear;
using P = KPt3<double>;

constexpr int kSphereParams = 4;

TEST(EstimateSphere, ExactSpherePointsGiveTheExactCentreAndRadius) {
  std::mt19937 rng(23);
  std::normal_distribution<double> g(0.0, 1.0);
  std::uniform_real_distribution<double> offset(-200.0, 200.0);
  std::uniform_real_distribution<double> radiusDist(1.0, 50.0);
  for (int trial = 0; trial < 100; ++trial) {
    const P centre(offset(rng), offset(rng), offset(rng));
    const double radius = radiusDist(rng);
    CFitInput in;
    for (int i = 0; i < 20; ++i) {
      P d(g(rng), g(rng), g(rng));
      d.Normalize();
      in.m_points.push_back(centre + d * radius);
    }
    CFitResult r;
    EstimatorMatrices m(kSphereParams);
    in.EstimateSphere(r, m.constraints(), m.params());
    EXPECT_TRUE(PointNear(ParamPoint(m, 0), centre, 1e-9 * 200.0)) << "trial " << trial;
    EXPECT_TRUE(RelNear(m.param(3), radius, 1e-8)) << "trial " << trial;
    EXPECT_EQ(r.m_size1.x, m.param(3));
  }
}

TEST(EstimateSphere, ExactlyFourPointsGiveTheirCircumscribedSphere) {
  CFitInput in;
  in.m_points = {P(6, 2, 3), P(1, 7, 3), P(1, 2, 8), P(1, 2, -2)};
  CFitResult r;
  r.m_center = P(-1, -1, -1);
  EstimatorMatrices m(kSphereParams);
  in.EstimateSphere(r, m.constraints(), m.params());
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), P(1, 2, 3), 1e-14));
  EXPECT_NEAR(m.param(3), 5.0, 1e-14);
  // The centre goes into the parameter vector only.
  EXPECT_EQ(r.m_center, P(-1, -1, -1));
}

TEST(EstimateSphere, RadiusIsMeasuredToTheFirstPointEvenOffTheSphere) {
  // The first point (-2, 1, 5) is not on the sphere |p| = 5 and is not among A, B, C, D
  // (see the next test), so the centre is exact and the radius is |(-2, 1, 5)| = sqrt(30).
  CFitInput in;
  in.m_points = {P(-2, 1, 5), P(-3, 4, 0), P(-4, 3, 0), P(0, 0, 5), P(0, 0, -5)};
  CFitResult r;
  EstimatorMatrices m(kSphereParams);
  in.EstimateSphere(r, m.constraints(), m.params());
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), P(0, 0, 0), 1e-15));
  EXPECT_DOUBLE_EQ(m.param(3), std::sqrt(30.0));
  EXPECT_DOUBLE_EQ(r.m_size1.x, std::sqrt(30.0));
}

TEST(EstimateSphere, FourthPointIsTheOneFarthestFromLineBC) {
  // Centroid (-1.8, 1.6, 1): A = (-4, 3, 0) is nearest; B = (0, 0, 5) is the first of the two
  // farthest from A; C = (0, 0, -5). Line BC is the z axis: (-3, 4, 0) is 5 from it and
  // (-2, 1, 5) only sqrt(5), although (-2, 1, 5) is farther from the midpoint of BC. With
  // (-3, 4, 0) as D all four lie on |p| = 5, so the centre is exactly the origin.
  CFitInput in;
  in.m_points = {P(-3, 4, 0), P(-4, 3, 0), P(0, 0, 5), P(0, 0, -5), P(-2, 1, 5)};
  const metrofit::SpherePointSet s = metrofit::SelectSpherePoints(in.m_points);
  EXPECT_EQ(s.a, 1u);
  EXPECT_EQ(s.b, 2u);
  EXPECT_EQ(s.c, 3u);
  EXPECT_EQ(s.d, 0u);
  CFitResult r;
  EstimatorMatrices m(kSphereParams);
  in.EstimateSphere(r, m.constraints(), m.params());
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), P(0, 0, 0), 1e-15));
  EXPECT_DOUBLE_EQ(m.param(3), 5.0);
}

TEST(EstimateSphere, IndicesNoCandidateImprovesStayAtTheFirstPoint) {
  // Two points: A is the first (both tie for nearest), B the second, and C and D find no
  // candidate left and stay 0.
  const std::vector<P> pts = {P(1, 0, 0), P(-1, 0, 0)};
  const metrofit::SpherePointSet s = metrofit::SelectSpherePoints(pts);
  EXPECT_EQ(s.a, 0u);
  EXPECT_EQ(s.b, 1u);
  EXPECT_EQ(s.c, 0u);
  EXPECT_EQ(s.d, 0u);
}

TEST(EstimateSphere, NoPointsWriteNothing) {
  CFitInput in;
  CFitResult r;
  r.m_size1 = P(4, 4, 4);
  EstimatorMatrices m(kSphereParams);
  in.EstimateSphere(r, m.constraints(), m.params());
  EXPECT_EQ(r.m_size1, P(4, 4, 4));
  for (int k = 0; k < kSphereParams; ++k) EXPECT_FALSE(m.written(k));
}

}  // namespace
