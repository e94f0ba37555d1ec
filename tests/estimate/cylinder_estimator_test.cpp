#include <gtest/gtest.h>

#include <cmath>

#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

using metrofit_test::AxisFromAngles;
using metrofit_test::EstimatorMatrices;
using metrofit_test::Parallel;
using metrofit_test::PointNear;
using P = KPt3<double>;

constexpr int kCylinderParams = 6;

// A cylinder input: the start location, axis and radius come in through the result.
struct CylinderCase {
  CFitInput in;
  CFitResult r;
  EstimatorMatrices m{kCylinderParams};
  CylinderCase(const P& centre, const P& axis, double radius) {
    in.m_points = {P(0, 0, 0), P(1, 1, 1), P(2, 0, 1)};
    r.m_center = centre;
    r.m_axis = axis;
    r.m_size1.x = radius;
  }
  void Run() { in.EstimateCylinder(r, m.constraints(), m.params()); }
};

TEST(EstimateCylinder, AxisAlongZSlidesTheCentreIntoTheZPlane) {
  CylinderCase c(P(1, 2, 5), P(0, 0, 1), 3.0);
  c.Run();
  EXPECT_EQ(c.r.m_center, P(1, 2, 0));
  EXPECT_EQ(c.m.diag(2), 1e20);
  EXPECT_EQ(c.m.diag(0), 0.0);
  EXPECT_EQ(c.m.diag(1), 0.0);
  EXPECT_EQ(c.m.param(0), 1.0);
  EXPECT_EQ(c.m.param(1), 2.0);
  EXPECT_FALSE(c.m.written(2));
  EXPECT_EQ(c.m.param(3), 0.0);
  EXPECT_EQ(c.m.param(4), 0.0);
  EXPECT_EQ(c.m.param(5), 3.0);
}

TEST(EstimateCylinder, TiedLargestXAndYFallToTheZPlane) {
  P axis(1, 1, 0.5);
  axis.Normalize();
  const P centre(4, 1, 2);
  CylinderCase c(centre, axis, 1.5);
  c.Run();
  EXPECT_EQ(c.m.diag(2), 1e20);
  EXPECT_EQ(c.m.diag(0), 0.0);
  EXPECT_EQ(c.m.diag(1), 0.0);
  EXPECT_EQ(c.r.m_center.z, 0.0);
  // Slid along the axis: still on the axis line through the given centre, at z = 0.
  EXPECT_TRUE(PointNear(c.r.m_center, centre - axis * (centre.z / axis.z), 1e-14));
  EXPECT_FALSE(c.m.written(2));
  EXPECT_TRUE(Parallel(AxisFromAngles(c.m.param(3), c.m.param(4)), axis, 1e-15));
}

TEST(EstimateCylinder, DominantComponentChoosesTheCoordinateToFix) {
  CylinderCase cx(P(3, 1, 2), P(0.8, 0.6, 0), 1.0);
  cx.Run();
  EXPECT_EQ(cx.m.diag(0), 1e20);
  EXPECT_TRUE(PointNear(cx.r.m_center, P(0, 1 - 0.6 * 3 / 0.8, 2), 1e-15));

  CylinderCase cyy(P(3, 1, 2), P(0, 0.8, 0.6), 1.0);
  cyy.Run();
  EXPECT_EQ(cyy.m.diag(1), 1e20);
  EXPECT_TRUE(PointNear(cyy.r.m_center, P(3, 0, 2 - 0.6 * 1 / 0.8), 1e-15));

  CylinderCase cz(P(3, 1, 2), P(0, 0.6, -0.8), 1.0);
  cz.Run();
  EXPECT_EQ(cz.m.diag(0), 0.0);
  // z dominates with a negative component: t = C_z / |A_z| = 2.5 moves the point the other way
  // along the axis from the line's own z = 0 point (3, 2.5, 0), to (3, -0.5, 0).
  EXPECT_EQ(cz.m.diag(2), 1e20);
  EXPECT_TRUE(PointNear(cz.r.m_center, P(3, -0.5, 0), 1e-15));
}

TEST(EstimateCylinder, TieWithZeroAxialZGivesANaNLocation) {
  const double h = std::sqrt(0.5);
  CylinderCase c(P(1, 2, 3), P(h, h, 0), 1.0);
  c.Run();
  EXPECT_EQ(c.m.diag(2), 1e20);
  EXPECT_TRUE(std::isnan(c.r.m_center.x));
  EXPECT_TRUE(std::isnan(c.r.m_center.y));
}

TEST(EstimateCylinder, FewerThanTwoPointsWriteNothing) {
  CylinderCase c(P(1, 2, 5), P(0, 0, 1), 3.0);
  c.in.m_points.resize(1);
  c.Run();
  EXPECT_EQ(c.r.m_center, P(1, 2, 5));
  for (int k = 0; k < kCylinderParams; ++k) {
    EXPECT_FALSE(c.m.written(k));
    EXPECT_EQ(c.m.diag(k), 0.0);
  }
}

}  // namespace
