#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimate/estimate_common.h"
#include "estimate_test_support.h"

namespace {

using metrofit::CircleFrom3Points;
using metrofit_test::kPi;
using metrofit_test::Parallel;
using metrofit_test::PointNear;
using metrofit_test::RelNear;

TEST(CircleFrom3Points, RandomTiltedCirclesFarFromTheOrigin) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> offset(-5000.0, 5000.0);
  std::uniform_real_distribution<double> radiusDist(1.0, 100.0);
  std::uniform_real_distribution<double> angle(0.0, 2.0 * kPi);
  for (int trial = 0; trial < 100; ++trial) {
    const metrofit_test::Frame f = metrofit_test::RandomFrame(rng);
    const KPt3<double> centre(offset(rng), offset(rng), offset(rng));
    const double r = radiusDist(rng);
    // Three angles at least 60 degrees apart keep the triangle well shaped.
    const double t0 = angle(rng);
    const double t[3] = {t0, t0 + 2.1 + 0.3 * angle(rng) / kPi, t0 + 4.2 + 0.3 * angle(rng) / kPi};
    KPt3<double> p[3];
    for (int i = 0; i < 3; ++i) p[i] = centre + f.Local(r * std::cos(t[i]), r * std::sin(t[i]), 0);

    KPt3<double> c, n;
    double radius = 0.0;
    CircleFrom3Points(p[0], p[1], p[2], &c, &n, &radius);
    // Coordinates near 5000 with radii near 1 lose about eight digits in the squared norms.
    EXPECT_TRUE(PointNear(c, centre, 1e-8 * 5000.0)) << "trial " << trial;
    EXPECT_TRUE(RelNear(radius, r, 1e-7)) << "trial " << trial;
    EXPECT_TRUE(RelNear(n.Length(), 1.0, 1e-15));
    EXPECT_TRUE(Parallel(n, f.w, 1e-9)) << "trial " << trial;
    // The normal follows the orientation of (P0 - P1) x (P2 - P1).
    EXPECT_GT(n.Dot((p[0] - p[1]).Cross(p[2] - p[1])), 0.0);
  }
}

TEST(CircleFrom3Points, RightTriangleHasItsCentreOnTheHypotenuse) {
  KPt3<double> c, n;
  double r = 0.0;
  CircleFrom3Points(KPt3<double>(4, 0, 1), KPt3<double>(0, 0, 1), KPt3<double>(0, 3, 1), &c, &n,
                    &r);
  EXPECT_TRUE(PointNear(c, KPt3<double>(2, 1.5, 1), 1e-15));
  EXPECT_DOUBLE_EQ(r, 2.5);
  // a = P0 - P1 = (4, 0, 0), b = P2 - P1 = (0, 3, 0): a x b = (0, 0, 12).
  EXPECT_TRUE(PointNear(n, KPt3<double>(0, 0, 1), 0.0));
}

TEST(CircleFrom3Points, CollinearPointsGetTheZNormalBeforeTheSolve) {
  KPt3<double> c, n;
  double r = 0.0;
  CircleFrom3Points(KPt3<double>(0, 0, 0), KPt3<double>(1, 1, 1), KPt3<double>(2, 2, 2), &c, &n,
                    &r);
  EXPECT_EQ(n, KPt3<double>(0, 0, 1));
  // Coincident points take the same way.
  const KPt3<double> p(3, -2, 7);
  CircleFrom3Points(p, p, p, &c, &n, &r);
  EXPECT_EQ(n, KPt3<double>(0, 0, 1));
}

TEST(CircleFrom3Points, NormalLengthBelowOneHundredThousandthFallsBackToZ) {
  KPt3<double> c, n;
  double r = 0.0;
  // a = (1, 0, 0), b = (0, 0, e): a x b = (0, -e, 0), of length e.
  CircleFrom3Points(KPt3<double>(1, 0, 0), KPt3<double>(0, 0, 0), KPt3<double>(0, 0, 0.9e-5), &c,
                    &n, &r);
  EXPECT_EQ(n, KPt3<double>(0, 0, 1));
  CircleFrom3Points(KPt3<double>(1, 0, 0), KPt3<double>(0, 0, 0), KPt3<double>(0, 0, 1.1e-5), &c,
                    &n, &r);
  EXPECT_TRUE(PointNear(n, KPt3<double>(0, -1, 0), 1e-15));
}

}  // namespace
