#include "core/enclosing_circle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/core_test_util.h"
#include "metrofit.h"

namespace {

using metrofit::EnclosingCircle;
using metrofit::SmallestEnclosingCircle;
using metrofit_test::Close;
using P = KPt3<double>;

// Relative rounding of coordinates far from the origin that a centre may inherit.
constexpr double kCoordinateRounding = 1e-13;

// A plane in space with an orthonormal in-plane frame: 2-D (x, y) maps to o + x u + y v.
struct Plane {
  P o, u, v;
  P At(double x, double y) const { return o + u * x + v * y; }
};

Plane RandomPlane(metrofit_test::Rng& rng, double reach) {
  Plane pl;
  pl.o = rng.InBox(reach);
  metrofit_test::PlaneBasis(rng.UnitVector(), &pl.u, &pl.v);
  return pl;
}

struct Circle2 {
  double x, y, r;
};

// Reference answer: every circle on two or three of the points (computed in the plane's own
// 2-D coordinates), the smallest that holds them all.
Circle2 BruteForce(const std::vector<double>& xs, const std::vector<double>& ys) {
  const std::size_t n = xs.size();
  Circle2 best{0, 0, 1e300};
  double scale = 0;
  for (std::size_t i = 0; i < n; ++i) scale = std::max({scale, std::fabs(xs[i]), std::fabs(ys[i])});
  const double slack = 1e-9 * std::max(scale, 1.0);
  auto consider = [&](double cx, double cy, double r) {
    if (r >= best.r) return;
    for (std::size_t k = 0; k < n; ++k)
      if (std::hypot(xs[k] - cx, ys[k] - cy) > r + slack) return;
    best = Circle2{cx, cy, r};
  };
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j) {
      const double cx = 0.5 * (xs[i] + xs[j]), cy = 0.5 * (ys[i] + ys[j]);
      consider(cx, cy, 0.5 * std::hypot(xs[i] - xs[j], ys[i] - ys[j]));
      for (std::size_t k = j + 1; k < n; ++k) {
        const double ax = xs[j] - xs[i], ay = ys[j] - ys[i];
        const double bx = xs[k] - xs[i], by = ys[k] - ys[i];
        const double d = 2.0 * (ax * by - ay * bx);
        if (std::fabs(d) <= 1e-12 * std::hypot(ax, ay) * std::hypot(bx, by)) continue;
        const double a2 = ax * ax + ay * ay, b2 = bx * bx + by * by;
        const double ux = (by * a2 - ay * b2) / d, uy = (ax * b2 - bx * a2) / d;
        consider(xs[i] + ux, ys[i] + uy, std::hypot(ux, uy));
      }
    }
  if (n == 1) best = Circle2{xs[0], ys[0], 0.0};
  return best;
}

// Checks the routine against the brute force on one planar set given in 2-D coordinates.
void ExpectMatchesBruteForce(const Plane& pl, const std::vector<double>& xs,
                             const std::vector<double>& ys, double rel) {
  std::vector<P> pts;
  for (std::size_t i = 0; i < xs.size(); ++i) pts.push_back(pl.At(xs[i], ys[i]));
  const Circle2 ref = BruteForce(xs, ys);
  const EnclosingCircle got = SmallestEnclosingCircle(pts);
  EXPECT_EQ(got.status, metrofit::kCircleOk);
  EXPECT_TRUE(Close(got.radius, ref.r, rel, 1e-6)) << xs.size() << " points";
  // The centre to the same relative accuracy as the radius, plus the rounding of coordinates
  // far from the origin.
  const double centreTol = rel * std::max(ref.r, 1e-6) + kCoordinateRounding * pl.o.Length();
  EXPECT_LE((got.centre - pl.At(ref.x, ref.y)).Length(), centreTol) << xs.size() << " points";
  for (const P& p : pts) EXPECT_LE((p - got.centre).Length(), got.radius * (1 + rel) + 1e-9);
}

TEST(EnclosingCircle, FewerThanTwoPointsGiveRadiusZero) {
  EXPECT_EQ(SmallestEnclosingCircle({}).radius, 0.0);
  const EnclosingCircle one = SmallestEnclosingCircle({P(1, 2, 3)});
  EXPECT_EQ(one.radius, 0.0);
  EXPECT_EQ(one.status, metrofit::kCircleOk);
}

TEST(EnclosingCircle, TwoPointsGiveMidpointAndHalfDistance) {
  const EnclosingCircle c = SmallestEnclosingCircle({P(1, 1, 1), P(3, 1, 1)});
  EXPECT_EQ(c.centre, P(2, 1, 1));
  EXPECT_EQ(c.radius, 1.0);
}

TEST(EnclosingCircle, MatchesBruteForceOnTiltedPlanesFarFromOrigin) {
  metrofit_test::Rng rng(41);
  for (int trial = 0; trial < 300; ++trial) {
    const Plane pl = RandomPlane(rng, 1e4);
    const int n = rng.Int(3, 30);
    const double spread = rng.Uniform(0.01, 100.0);
    std::vector<double> xs, ys;
    for (int i = 0; i < n; ++i) {
      xs.push_back(rng.Uniform(-spread, spread));
      ys.push_back(rng.Uniform(-0.3 * spread, spread));
    }
    ExpectMatchesBruteForce(pl, xs, ys, 1e-8);
  }
}

TEST(EnclosingCircle, CocircularPointsWithInteriorPoints) {
  metrofit_test::Rng rng(42);
  for (int trial = 0; trial < 40; ++trial) {
    const Plane pl = RandomPlane(rng, 1e3);
    const double r = rng.Uniform(0.5, 50.0);
    const int k = rng.Int(3, 16);
    std::vector<double> xs, ys;
    for (int i = 0; i < k; ++i) {
      const double phi = metrofit_test::kTwoPi * i / k;
      xs.push_back(r * std::cos(phi));
      ys.push_back(r * std::sin(phi));
    }
    for (int i = 0; i < 5; ++i) {
      xs.push_back(rng.Uniform(-0.5 * r, 0.5 * r));
      ys.push_back(rng.Uniform(-0.5 * r, 0.5 * r));
    }
    ExpectMatchesBruteForce(pl, xs, ys, 1e-8);
  }
}

TEST(EnclosingCircle, ManySortedCocircularPoints) {
  const Plane pl{P(250, -80, 1200), P(0.6, 0.8, 0), P(0, 0, 1)};
  std::vector<P> pts;
  constexpr int kCount = 100000;
  const double r = 3.25;
  for (int i = 0; i < kCount; ++i) {
    const double phi = metrofit_test::kTwoPi * i / kCount;
    pts.push_back(pl.At(r * std::cos(phi), r * std::sin(phi)));
  }
  const EnclosingCircle c = SmallestEnclosingCircle(pts);
  EXPECT_TRUE(Close(c.radius, r, 1e-10));
  EXPECT_TRUE(Close(c.centre, pl.o, 1e-12));
}

TEST(EnclosingCircle, DuplicatePoints) {
  metrofit_test::Rng rng(43);
  for (int trial = 0; trial < 60; ++trial) {
    const Plane pl = RandomPlane(rng, 1e3);
    std::vector<double> xs, ys;
    const int n = rng.Int(2, 8);
    for (int i = 0; i < n; ++i) {
      xs.push_back(rng.Uniform(-10, 10));
      ys.push_back(rng.Uniform(-10, 10));
    }
    for (int i = 0; i < 3 * n; ++i) {
      const int j = rng.Int(0, n - 1);
      xs.push_back(xs[j]);
      ys.push_back(ys[j]);
    }
    ExpectMatchesBruteForce(pl, xs, ys, 1e-8);
  }
}

TEST(EnclosingCircle, CollinearPointsGiveHalfTheirExtent) {
  metrofit_test::Rng rng(44);
  for (int trial = 0; trial < 60; ++trial) {
    const P o = rng.InBox(1e3), d = rng.UnitVector();
    std::vector<P> pts;
    double lo = 1e300, hi = -1e300;
    const int n = rng.Int(3, 25);
    for (int i = 0; i < n; ++i) {
      const double t = rng.Uniform(-40, 40);
      lo = std::min(lo, t);
      hi = std::max(hi, t);
      pts.push_back(o + d * t);
    }
    const EnclosingCircle c = SmallestEnclosingCircle(pts);
    EXPECT_TRUE(Close(c.radius, 0.5 * (hi - lo), 1e-9, 1.0));
    EXPECT_TRUE(Close(c.centre, o + d * (0.5 * (hi + lo)), 1e-9, o.Length()));
  }
}

TEST(EnclosingCircle, IdenticalPointsGiveRadiusZero) {
  const std::vector<P> pts(7, P(-3.5, 1e4, 2.25));
  const EnclosingCircle c = SmallestEnclosingCircle(pts);
  EXPECT_EQ(c.radius, 0.0);
  EXPECT_EQ(c.centre, P(-3.5, 1e4, 2.25));
}

// Points that agree in every coordinate within 2.220446049250313e-16 are one point.
TEST(EnclosingCircle, PointsWithinToleranceCountAsOne) {
  const std::vector<P> close = {P(0, 0, 0), P(1e-16, 0, 0), P(0, 2e-16, 0), P(1e-16, 1e-16, 0)};
  EXPECT_EQ(SmallestEnclosingCircle(close).radius, 0.0);
  // Just above the tolerance they are distinct again.
  const std::vector<P> apart = {P(0, 0, 0), P(4e-16, 0, 0), P(2e-16, 1e-17, 0)};
  EXPECT_TRUE(Close(SmallestEnclosingCircle(apart).radius, 2e-16, 1e-6, 0.0));
}

TEST(EnclosingCircle, ResultIsRepeatableAndIndependentOfOrder) {
  metrofit_test::Rng rng(45);
  const Plane pl = RandomPlane(rng, 1e3);
  std::vector<P> pts;
  for (int i = 0; i < 500; ++i) pts.push_back(pl.At(rng.Uniform(-5, 5), rng.Uniform(-5, 5)));
  const EnclosingCircle a = SmallestEnclosingCircle(pts);
  const EnclosingCircle b = SmallestEnclosingCircle(pts);
  EXPECT_EQ(a.radius, b.radius);
  EXPECT_EQ(a.centre, b.centre);
  std::reverse(pts.begin(), pts.end());
  const EnclosingCircle c = SmallestEnclosingCircle(pts);
  EXPECT_TRUE(Close(a.radius, c.radius, 1e-12));
}

TEST(EnclosingCircle, InPlaceVariantReordersButAgrees) {
  std::vector<P> pts = {P(0, 0, 0), P(4, 0, 0), P(0, 3, 0), P(1, 1, 0), P(2, 2.5, 0)};
  const EnclosingCircle copy = SmallestEnclosingCircle(pts);
  const EnclosingCircle inPlace = metrofit::SmallestEnclosingCircleInPlace(pts.data(), pts.size());
  EXPECT_EQ(copy.radius, inPlace.radius);
  EXPECT_TRUE(Close(copy.radius, 2.5, 1e-15));  // right triangle: half the hypotenuse
  EXPECT_TRUE(Close(copy.centre, P(2, 1.5, 0), 1e-15));
}

TEST(EnclosingCircle, NonFiniteCoordinateIsReported) {
  const double nan = std::nan("");
  const EnclosingCircle c = SmallestEnclosingCircle({P(0, 0, 0), P(1, 0, 0), P(nan, 0, 0)});
  EXPECT_EQ(c.status, metrofit::kCircleNonFinite);
  EXPECT_TRUE(std::isnan(c.radius));
  const EnclosingCircle inf = SmallestEnclosingCircle({P(0, 0, 0), P(1, 0, 0), P(0, HUGE_VAL, 0)});
  EXPECT_EQ(inf.status, metrofit::kCircleNonFinite);
}

}  // namespace
