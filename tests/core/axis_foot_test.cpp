// Foot of the perpendicular from a point onto an axis line.
#include "core/axis_foot.h"

#include <gtest/gtest.h>

#include <cmath>

#include "core/core_test_util.h"
#include "metrofit.h"

namespace {

using metrofit::AxisFoot;
using metrofit_test::Close;
using P = KPt3<double>;

TEST(AxisFoot, FootOnACoordinateAxisDropsTheOtherCoordinates) {
  EXPECT_EQ(AxisFoot(P(3, -4, 7), P(0, 0, 0), P(0, 0, 1)), P(0, 0, 7));
  EXPECT_EQ(AxisFoot(P(3, -4, 7), P(1, 2, -5), P(1, 0, 0)), P(3, 2, -5));
}

TEST(AxisFoot, FootIsOnTheLineAndItsOffsetIsPerpendicular) {
  const P c(480.25, -130.5, 211.0);
  const P a = P(0.3, -0.5, 0.81).Normalize();
  const P from(-12.0, 40.0, 3.5);
  const P f = AxisFoot(from, c, a);
  EXPECT_NEAR((from - f).Dot(a), 0.0, 1e-12);
  EXPECT_NEAR((f - c).Cross(a).Length(), 0.0, 1e-12);
}

TEST(AxisFoot, LengthAndSignOfTheDirectionDoNotMatter) {
  const P c(10.0, 20.0, 30.0);
  const P a(0.2, 0.7, -0.4);
  const P from(-3.0, 5.0, 8.0);
  const P f = AxisFoot(from, c, a);
  EXPECT_TRUE(Close(AxisFoot(from, c, a * 250.0), f, 1e-14));
  EXPECT_TRUE(Close(AxisFoot(from, c, a * -0.01), f, 1e-14));
}

TEST(AxisFoot, PointOnTheAxisIsItsOwnFoot) {
  const P c(1.0, 2.0, 3.0);
  const P a(0.0, 0.6, 0.8);
  EXPECT_TRUE(Close(AxisFoot(c + a * 17.5, c, a), c + a * 17.5, 1e-15));
}

TEST(AxisFoot, VanishingDirectionLeavesTheAxisPoint) {
  const P c(1.0, 2.0, 3.0);
  EXPECT_EQ(AxisFoot(P(9, 9, 9), c, P(0, 0, 0)), c);
  // |a|^2 = 1e-16, not above the machine epsilon 2.22e-16: treated as no direction.
  EXPECT_EQ(AxisFoot(P(9, 9, 9), c, P(1e-8, 0, 0)), c);
  // |a|^2 = 4e-16 is above it: the foot moves along x.
  EXPECT_TRUE(Close(AxisFoot(P(9, 9, 9), c, P(2e-8, 0, 0)), P(9, 2, 3), 1e-12));
}

}  // namespace
