#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimate/estimate_common.h"
#include "estimate_test_support.h"

namespace {

using metrofit::DirectionToAngles;
using metrofit_test::AxisFromAngles;
using metrofit_test::kPi;
using metrofit_test::PointNear;

TEST(DirectionToAngles, RandomUnitDirectionsAreRebuiltByTheAxisRow) {
  std::mt19937 rng(11);
  std::normal_distribution<double> g(0.0, 1.0);
  for (int trial = 0; trial < 500; ++trial) {
    KPt3<double> n(g(rng), g(rng), g(rng));
    n.Normalize();
    double a1 = 0.0, a2 = 0.0;
    DirectionToAngles(n, &a1, &a2);
    EXPECT_TRUE(PointNear(AxisFromAngles(a1, a2), n, 1e-14)) << "trial " << trial;
    EXPECT_GE(a2, -kPi / 2);
    EXPECT_LE(a2, kPi / 2);
    EXPECT_GE(a1, -kPi);
    EXPECT_LE(a1, kPi);
  }
}

TEST(DirectionToAngles, PlusAndMinusXGiveAQuarterTurnOfEitherSign) {
  double a1 = 1.0, a2 = 1.0;
  DirectionToAngles(KPt3<double>(1, 0, 0), &a1, &a2);
  EXPECT_NEAR(a2, kPi / 2, 1e-12);
  DirectionToAngles(KPt3<double>(-1, 0, 0), &a1, &a2);
  EXPECT_NEAR(a2, -kPi / 2, 1e-12);
  EXPECT_TRUE(PointNear(AxisFromAngles(a1, a2), KPt3<double>(-1, 0, 0), 1e-12));
}

TEST(DirectionToAngles, ZAxisIsTheZeroRotationAndMinusZTurnsAngleOne) {
  double a1 = 1.0, a2 = 1.0;
  DirectionToAngles(KPt3<double>(0, 0, 1), &a1, &a2);
  EXPECT_EQ(a1, 0.0);
  EXPECT_EQ(a2, 0.0);
  DirectionToAngles(KPt3<double>(0, 0, -1), &a1, &a2);
  EXPECT_DOUBLE_EQ(std::fabs(a1), kPi);
  EXPECT_EQ(a2, 0.0);
}

TEST(DirectionToAngles, ShortVectorIsUsedAsItStands) {
  // Not normalised: sin a2 is the x component itself, so (0.5, 0, 0) gives pi/6, not pi/2.
  double a1 = 1.0, a2 = 1.0;
  DirectionToAngles(KPt3<double>(0.5, 0, 0), &a1, &a2);
  EXPECT_NEAR(a2, kPi / 6, 1e-15);
}

}  // namespace
